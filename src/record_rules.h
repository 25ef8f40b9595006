// What the algorithms of the encodings work with. An encoding's source states its decisions and texts in
// `Encoding::Rules`, a structure of these static members:
//
//   kAddRefused, kUpdateRefused    the first lines of reports (the second where kUpdateTest refuses types)
//   kMessageFull                   the same of an add to a message that would become too long
//   tooLong(lengthBytes)           the report of a value longer than Layout::kMaxValueBytes, where that can be
//   kGetRefused                    the first line of the report of a failed read; null where that is silent
//   kGetReportsStoredId            whether that report has the id in the record instead of the requested one
//   kUpdateTest                    the check of an update before it overwrites a field
//   kFieldDataTypeOfRequestedId    whether fieldData() returns the dictionary's type of the requested id instead of the
//                                  record's type
//   kEmptyMessageBeforeEmptyList   which of the two an erase of several fields tests first
//   kMoveLeavesEmptyMessage        whether moveToNew() leaves an empty message or the borrowed objects as they came
#ifndef MD_SRC_RECORD_RULES_H
#define MD_SRC_RECORD_RULES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <algorithm>
#include <limits>

#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_msgdata.h"
#include "report.h"

namespace MD {
namespace detail {

/// What an update of a present field tests: a value of another length moves it to the end, another type is refused.
enum class UpdateTest {
  Length,          ///< any type of the same length is accepted
  LengthThenType,  ///< a value of another length and type costs the field
  TypeThenLength,
};

enum class UpdateStep { Overwrite, EraseAndAppend, Refuse };

/// What an update by a value of `type` and `lengthBytes` does to a record.
template <class Rules>
constexpr UpdateStep updateStep(const RecordHead& stored, std::uint8_t type, std::uint64_t lengthBytes) noexcept {
  const bool isSameLength = stored.valueBytes == lengthBytes;
  if (Rules::kUpdateTest != UpdateTest::Length && stored.type != type &&
      (isSameLength || Rules::kUpdateTest == UpdateTest::TypeThenLength)) {
    return UpdateStep::Refuse;
  }
  return isSameLength ? UpdateStep::Overwrite : UpdateStep::EraseAndAppend;
}

/// The largest size that getSizeImpl() can return.
inline constexpr std::uint64_t kMaxMessageBytes = std::numeric_limits<std::uint32_t>::max();

/// The longest value of any type: a string with its NUL.
inline constexpr std::uint64_t kLongestValueBytes = std::uint64_t{std::numeric_limits<std::uint16_t>::max()} + 1;

template <class Encoding>
inline BadFieldReports g_badFieldReports;

template <class Encoding>
void reportBadField(std::uint16_t id, std::uint8_t type, std::uint64_t sizeBytes) {
  if (g_badFieldReports<Encoding>.admit()) {
    reportField("Error: Bad Field on wire!  Skipping!", id, type, static_cast<std::size_t>(sizeBytes));
  }
}

inline ByteView viewOf(const MsgData& data) noexcept { return {data.data(), data.size()}; }

/// How many bytes of a record there are: the last one may run past the end.
inline std::uint64_t presentBytes(const ByteView& bytes, const RecordHead& head) noexcept {
  return std::min(head.bytes(), bytes.left(head.position));
}

/// Moves the bytes [first, last) down to `kept` and advances `kept` past them.
inline void keep(MsgData& data, std::uint64_t first, std::uint64_t last, std::uint64_t& kept) noexcept {
  if (kept != first && first < last) {
    std::memmove(data.data() + kept, data.data() + first, static_cast<std::size_t>(last - first));
  }
  kept += last - first;
}

/// Grows the buffer. @return where `source`, which may be in it, is now
MD_RARE inline const std::uint8_t* growUnder(MsgData& data, std::uint64_t neededBytes, const std::uint8_t* source) {
  const bool isOwn = data.owns(source);
  const std::ptrdiff_t offset = isOwn ? source - data.data() : 0;
  data.reserve(neededBytes);
  return isOwn ? data.data() + offset : source;
}

}  // namespace detail
}  // namespace MD

#endif
