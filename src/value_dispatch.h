// What is done by the type of a value.
#ifndef MD_SRC_VALUE_DISPATCH_H
#define MD_SRC_VALUE_DISPATCH_H

#include <cstdint>

#include <type_traits>

#include "md/md_value_types.h"

namespace MD::detail {

/// Calls `use` with a value-initialised object of the value type with the code `type`.
/// @return what `use` returned, false for any other type
template <class Use>
bool withValueType(std::uint8_t type, Use use) {
  switch (type) {
#define MD_CASE(T, name, code) \
  case code:                   \
    return use(T{});
    MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
    default:
      return false;
  }
}

/// Whether values of the type with the code `type` can be read and written through a message.
constexpr bool isValueType(std::uint8_t type) noexcept {
#define MD_CODE(T, name, code) type == (code) ||
  return MD_VALUE_TYPES(MD_CODE) false;
#undef MD_CODE
}

/// The length of a value as a record stores it; of an `INT`, which some encodings store shorter, the longest.
template <class T>
std::uint64_t storedBytes(const T& value) noexcept {
  if constexpr (std::is_same_v<T, StringView16>) {
    return std::uint64_t{value.length} + 1;
  } else if constexpr (std::is_same_v<T, BufferView16>) {
    return value.length;
  } else {
    return sizeof value;
  }
}

}  // namespace MD::detail

#endif
