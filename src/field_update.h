// The updates of a typed field that are refused: those that would erase or reinterpret a field.
#ifndef MD_SRC_FIELD_UPDATE_H
#define MD_SRC_FIELD_UPDATE_H

#include <cstddef>
#include <cstdint>

#include "md/detail/value_codec.h"
#include "report.h"

namespace MD::detail {

inline constexpr const char* kUpdateOfOtherType = "MD_Message Error: Attempting to UPDATE a field with incorrect type!";
inline constexpr const char* kUpdateIsTooLong =
    "MD_Message Error: Attempting to UPDATE a field with a value that is too long!";
inline constexpr const char* kUpdateOfOtherRecord =
    "MD_Message Error: Attempting to UPDATE a record of incorrect id, type or length!";

/// Reports why an update is refused. @return false
inline bool refuseUpdate(const char* why, std::uint16_t id, std::uint8_t type, std::uint64_t lengthBytes) noexcept {
  reportField(why, id, type, static_cast<std::size_t>(lengthBytes));
  return false;
}

/// Whether a record of a `T` can be so long: an integer, where it has no one width, may be stored shorter.
template <class Layout, class T>
constexpr bool isLengthOf(std::uint64_t valueBytes) noexcept {
  if constexpr (kIsView<T>) {
    return true;
  } else if constexpr (Layout::template kHasOneWidth<T>) {
    return valueBytes == sizeof(T);
  } else {
    return valueBytes == 1 || valueBytes == 2 || valueBytes == sizeof(T);
  }
}

}  // namespace MD::detail

#endif
