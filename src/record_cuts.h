// Removes several records of one message, each byte that stays moved once.
#ifndef MD_SRC_RECORD_CUTS_H
#define MD_SRC_RECORD_CUTS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <algorithm>

#include "md/detail/record_walk.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_fieldmap.h"
#include "md/md_msgdata.h"
#include "md/md_optimizer.h"

namespace MD::detail {

/// A record that is to be removed, then bytes that are.
struct RecordCut {
  std::uint64_t position;
  FIELDS::packed_rec field;
  std::uint64_t end = 0;  ///< start of the next bytes to keep
};

/// The head of a record that begins less than a head before the first of the cuts.
template <class Layout>
MD_RARE RecordHead headBeforeCuts(const ByteView& bytes, std::uint64_t position, const RecordCut* cut,
                                  const RecordCut* cutsEnd, const MD_FieldMap& dictionary) noexcept {
  std::uint8_t head[Layout::kMaxHeadBytes];
  std::size_t count = 0;
  while (count < sizeof head && position < bytes.size()) {
    if (cut != cutsEnd && position == cut->position) {
      position = cut++->end;
    } else {
      head[count++] = *bytes.at(position++);
    }
  }
  return headAt<Layout>(ByteView(head, count), 0, dictionary);
}

/// Removes the records of present fields, at least one, and makes these absent. The result is as if one record were
/// removed after the other, from the last to the first: where they overlap, what a record consists of is read from the
/// bytes that are left by then.
/// @return where the first of the records was
template <class Layout>
std::uint64_t removeRecords(RecordCut* first, RecordCut* end, MsgData& data, Optimizer& positions,
                            const MD_FieldMap& dictionary) noexcept {
  const auto isBefore = [](const RecordCut& a, const RecordCut& b) { return a.position < b.position; };
  if (!std::is_sorted(first, end, isBefore)) {
    std::sort(first, end, isBefore);
  }
  const ByteView bytes(data.data(), data.size());
  RecordCut* cuts = end;  // from here on, the records are cuts by now
  for (RecordCut* record = end; record != first;) {
    --record;
    const std::uint64_t position = record->position;
    if (positions.position(record->field) != position) {
      continue;  // a field that is listed twice is absent the second time
    }
    positions.erase(record->field);
    const bool isApart = cuts == end || cuts->position - position >= Layout::kMaxHeadBytes;
    std::uint64_t left = (isApart ? headAt<Layout>(bytes, position, dictionary)
                                  : headBeforeCuts<Layout>(bytes, position, cuts, end, dictionary))
                             .bytes();
    std::uint64_t cutEnd = position;
    for (; cuts != end && left >= cuts->position - cutEnd; ++cuts) {
      left -= cuts->position - cutEnd;
      cutEnd = cuts->end;
    }
    --cuts;
    cuts->position = position;
    cuts->end = cutEnd + std::min(left, bytes.size() - cutEnd);
  }

  const std::uint64_t position = cuts->position;
  std::uint64_t kept = position;
  for (; cuts != end; ++cuts) {
    const std::uint64_t last = cuts + 1 != end ? cuts[1].position : bytes.size();
    std::memmove(data.data() + kept, bytes.at(cuts->end), static_cast<std::size_t>(last - cuts->end));
    kept += last - cuts->end;
  }
  data.setSize(kept);
  return position;
}

}  // namespace MD::detail

#endif
