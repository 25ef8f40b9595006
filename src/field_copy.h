// The loop over a message's fields by which another one takes them over.
#ifndef MD_SRC_FIELD_COPY_H
#define MD_SRC_FIELD_COPY_H

#include <cstdint>

#include <vector>

#include "assertion.h"
#include "md/md_fieldmap.h"
#include "md/md_message.h"
#include "md/md_value_types.h"
#include "value_dispatch.h"

namespace MD::detail {

inline constexpr const char* kMessageFile = "md_message/src/md_message";

/// withValueType(). Any type that is not a value type fails the assertion "0" of `assertionLine` (none when that is 0).
template <class Use>
bool withValueOfType(std::uint8_t type, unsigned assertionLine, Use use) {
  if (assertionLine != 0 && !isValueType(type)) {
    assertionFailed("0", kMessageFile, assertionLine);
  }
  return withValueType(type, use);
}

/// The line under which a failed copy of a value type is filed: the lines of each type are ten after those of the
/// one before.
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

/// Reads each field from `source` and calls `put(id, value)`, whose result says whether it was stored. Asserts both or,
/// where `notCopied` is given, lists the fields for which one of them fails.
template <class Put>
void copyFields(const MD_Message& source, const MD_FieldMap& map, const std::vector<std::uint16_t>& ids,
                std::vector<std::uint16_t>* notCopied, Put put) {
  for (const std::uint16_t id : ids) {
    const std::uint8_t type = map.packed(id).type;
    if (notCopied != nullptr) {
      if (!withValueType(type, [&](auto value) { return source.get(id, value) && put(id, value); })) {
        notCopied->push_back(id);
      }
      continue;
    }
    withValueOfType(type, 389, [&](auto value) {
      constexpr unsigned kLine = copyAssertionLine(kTypeCode<decltype(value)>);
      return check(source.get(id, value), "b == true", kMessageFile, kLine) &&
             check(put(id, value), "b == true", kMessageFile, kLine + 3);
    });
  }
}

}  // namespace MD::detail

#endif
