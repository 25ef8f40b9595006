/// @file
/// Bytes in containers of the standard library. For the headers of the library only.
#ifndef MD_DETAIL_BYTE_RANGE_H
#define MD_DETAIL_BYTE_RANGE_H

#include <cstddef>
#include <cstdint>

#include <iterator>
#include <type_traits>
#include <utility>

namespace MD::detail {

/// The types that hold one byte of a message.
template <class T>
inline constexpr bool kIsByte = std::is_same_v<T, unsigned char> || std::is_same_v<T, signed char> ||
                                std::is_same_v<T, char> || std::is_same_v<T, std::byte>;

/// Whether `Range` holds contiguous bytes, such as std::vector<std::uint8_t>, std::array<std::byte, 8> and
/// std::string_view. A literal is excluded because of its NUL.
template <class Range, class = void>
inline constexpr bool kIsByteRange = false;
template <class Range>
inline constexpr bool kIsByteRange<Range, std::void_t<decltype(std::data(std::declval<const Range&>())),
                                                      decltype(std::size(std::declval<const Range&>()))>> =
    std::is_pointer_v<decltype(std::data(std::declval<const Range&>()))>&&
        kIsByte<std::remove_cv_t<std::remove_pointer_t<decltype(std::data(std::declval<const Range&>()))>>> &&
    !(std::is_array_v<Range> && std::is_same_v<std::remove_cv_t<std::remove_extent_t<Range>>, char>);

template <class Range>
using IfByteRange = std::enable_if_t<kIsByteRange<Range>, int>;

/// The first byte of a range. A byte may be read through any of the character types.
template <class Range>
const std::uint8_t* firstByte(const Range& range) noexcept {
  return reinterpret_cast<const std::uint8_t*>(std::data(range));
}

}  // namespace MD::detail

#endif
