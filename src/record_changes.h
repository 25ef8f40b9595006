// Whether changes to several records of one message leave each other alone.
#ifndef MD_SRC_RECORD_CHANGES_H
#define MD_SRC_RECORD_CHANGES_H

#include <cstdint>

#include <algorithm>

#include "md/detail/record_walk.h"
#include "md/detail/wire_bytes.h"
#include "md/md_fieldmap.h"

namespace MD::detail {

/// A record of a field that an update overwrites in place, or that is erased.
struct ChangedRecord {
  std::uint64_t position;
  std::uint64_t end;
  FIELDS::packed_rec field;
  bool isErased;
};

/// Whether each field still leads to a record of its type when the others have been changed, in any order. Sorts the
/// records.
template <class Layout>
bool areIndependent(ChangedRecord* first, ChangedRecord* end, ByteView bytes, const MD_FieldMap& dictionary) noexcept {
  const auto isBefore = [](const ChangedRecord& a, const ChangedRecord& b) { return a.position < b.position; };
  if (!std::is_sorted(first, end, isBefore)) {
    std::sort(first, end, isBefore);
  }
  const auto overlap = [](const ChangedRecord& a, const ChangedRecord& b) { return b.position < a.end; };
  if (std::adjacent_find(first, end, overlap) != end) {
    return false;
  }
  // An erase moves the following bytes and finds the records in them by a scan, which must find those of the fields.
  const ChangedRecord* next = std::find_if(first, end, [](const ChangedRecord& record) { return record.isErased; });
  if (next == end) {
    return true;
  }
  const auto meet = [&next, end](FIELDS::packed_rec field, std::uint64_t position) {
    if (next != end && next->position == position && next->field.slot == field.slot) {
      ++next;
    }
  };
  RecordWalk<Layout> walk(bytes, dictionary, next->position);
  walk.passWholeFields([&meet](FIELDS::packed_rec field, std::uint16_t, std::uint64_t at) { meet(field, at); });
  for (WalkedRecord record; walk.next(record);) {
    if (record.kind == WalkedRecord::Kind::Field) {
      meet(record.field, record.head.position);
    }
  }
  return next == end;
}

}  // namespace MD::detail

#endif
