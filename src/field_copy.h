// The loop over a message's fields by which another one takes them over.
#ifndef MD_SRC_FIELD_COPY_H
#define MD_SRC_FIELD_COPY_H

#include <cstdint>

#include <vector>

#include "assertion.h"
#include "md/md_fieldmap.h"
#include "md/md_message.h"
#include "md/md_value_types.h"

namespace MD::detail {

inline constexpr const char* kMessageFile = "md_message/src/md_message";

/// Calls `use` with a value-initialised object of the value type that `type` stands for. Any other type fails the
/// assertion "0" of `assertionLine` (none when that is 0).
/// @return what `use` returned, or false
template <class Use>
bool withValueOfType(std::uint8_t type, unsigned assertionLine, Use use) {
  switch (type) {
#define MD_CASE(T, name, code) \
  case code:                   \
    return use(T{});
    MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
    default:
      if (assertionLine != 0) {
        assertionFailed("0", kMessageFile, assertionLine);
      }
      return false;
  }
}

/// The line under which a failed copy of a value type is filed: those of one type lie ten behind those of the one
/// before.
constexpr unsigned copyAssertionLine(DATATYPES::Code type) noexcept {
#define MD_CODE(T, name, code) code,
  constexpr DATATYPES::Code kSlotOrder[] = {MD_VALUE_TYPES(MD_CODE)};
#undef MD_CODE
  unsigned line = 300;
  for (const DATATYPES::Code code : kSlotOrder) {
    if (code == type) {
      break;
    }
    line += 10;
  }
  return line;
}

/// Reads each field from `source` and calls `put(id, value)`, whose result says whether it was stored. Asserts both.
template <class Put>
void copyFields(const MD_Message& source, const MD_FieldMap& map, const std::vector<std::uint16_t>& ids, Put put) {
  for (const std::uint16_t id : ids) {
    withValueOfType(map.packed(id).type, 389, [&](auto value) {
      constexpr unsigned kLine = copyAssertionLine(kTypeCode<decltype(value)>);
      return check(source.get(id, value), "b == true", kMessageFile, kLine) &&
             check(put(id, value), "b == true", kMessageFile, kLine + 3);
    });
  }
}

}  // namespace MD::detail

#endif
