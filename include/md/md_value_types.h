/// @file
/// The nine types of value that a field can carry, and the one list from which all code per type is generated.
#ifndef MD_VALUE_TYPES_H
#define MD_VALUE_TYPES_H

#include <cstdint>
#include <cstring>

#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#include "md/md_api.h"
#include "md/md_datatypes.h"
#include "md/md_datetime.h"
#include "md/md_epochns.h"

namespace MD {

struct StringView16;

namespace detail {
template <class Text>
using IfOtherText =
    std::enable_if_t<std::is_convertible_v<const Text&, std::string_view> && !std::is_same_v<Text, StringView16>, int>;
}  // namespace detail

/// A view of characters owned by another object. A view obtained from a message is valid until that message changes.
/// The length excludes a terminating NUL. Callers use the name `MD_Message::String`.
struct StringView16 {
  /// Null, of length 0.
  StringView16() noexcept = default;
  /// `count` characters starting at `first`.
  StringView16(const char* first, std::uint16_t count) noexcept : data(first), length(count) {}
  /// @{
  /// All of `text`. The length is reduced to 16 bits without a check.
  StringView16(std::string_view text) noexcept : StringView16(text.data(), static_cast<std::uint16_t>(text.size())) {}
  StringView16(const std::string& text) noexcept : StringView16(std::string_view(text)) {}
  /// @}

  /// The same characters.
  operator std::string_view() const noexcept { return {data, length}; }

  /// @{
  /// Equal if the characters are equal. A `Text` is any text of the standard library, or a literal.
  friend bool operator==(StringView16 a, StringView16 b) noexcept { return std::string_view(a) == std::string_view(b); }
  friend bool operator!=(StringView16 a, StringView16 b) noexcept { return !(a == b); }
  template <class Text, detail::IfOtherText<Text> = 0>
  friend bool operator==(StringView16 a, const Text& b) noexcept {
    return std::string_view(a) == std::string_view(b);
  }
  template <class Text, detail::IfOtherText<Text> = 0>
  friend bool operator==(const Text& a, StringView16 b) noexcept {
    return b == a;
  }
  template <class Text, detail::IfOtherText<Text> = 0>
  friend bool operator!=(StringView16 a, const Text& b) noexcept {
    return !(a == b);
  }
  template <class Text, detail::IfOtherText<Text> = 0>
  friend bool operator!=(const Text& a, StringView16 b) noexcept {
    return !(b == a);
  }
  /// @}

  /// Writes the characters unchanged. Use escaped() (md/md_escape.h) for characters of untrusted parties.
  friend MD_API std::ostream& operator<<(std::ostream& out, StringView16 text);

  const char* data = nullptr;  ///< the first character
  std::uint16_t length = 0;    ///< number of characters
};

/// A view of bytes owned by another object, with the lifetime of a `StringView16`. Callers use `MD_Message::Buffer`.
struct BufferView16 {
  /// Null, of length 0.
  BufferView16() noexcept = default;
  /// `count` bytes starting at `first`.
  BufferView16(const std::uint8_t* first, std::uint16_t count) noexcept : data(first), length(count) {}

  /// @{
  /// Equal if the bytes are equal.
  friend bool operator==(BufferView16 a, BufferView16 b) noexcept {
    return a.length == b.length && (a.length == 0 || std::memcmp(a.data, b.data, a.length) == 0);
  }
  friend bool operator!=(BufferView16 a, BufferView16 b) noexcept { return !(a == b); }
  /// @}

  /// Writes two lower-case hex digits per byte.
  friend MD_API std::ostream& operator<<(std::ostream& out, BufferView16 bytes);

  const std::uint8_t* data = nullptr;  ///< the first byte
  std::uint16_t length = 0;            ///< number of bytes
};

}  // namespace MD

/// Expands X(C++ type, name of the type in function names, type code) for the nine value types, in the order of the
/// virtual slots of `MD_Message`.
#define MD_VALUE_TYPES(X)                                   \
  X(char, Char, ::MD::DATATYPES::CHAR)                      \
  X(std::int32_t, Int, ::MD::DATATYPES::INT)                \
  X(std::int64_t, Int64, ::MD::DATATYPES::INT64)            \
  X(float, Float, ::MD::DATATYPES::FLOAT)                   \
  X(double, Double, ::MD::DATATYPES::DOUBLE)                \
  X(::MD::StringView16, String, ::MD::DATATYPES::STRING)    \
  X(::MD::BufferView16, Buffer, ::MD::DATATYPES::BUFFER)    \
  X(::MD::MD_DateTime, DateTime, ::MD::DATATYPES::DATETIME) \
  X(::MD::MD_EpochNS, EpochNS, ::MD::DATATYPES::EPOCH_NSEC)

namespace MD::detail {

/// The type code of a value type.
template <class T>
inline constexpr DATATYPES::Code kTypeCode = DATATYPES::RAW;
#define MD_TYPE_CODE(T, name, code) \
  template <>                       \
  inline constexpr DATATYPES::Code kTypeCode<T> = code;
MD_VALUE_TYPES(MD_TYPE_CODE)
#undef MD_TYPE_CODE

}  // namespace MD::detail

#endif
