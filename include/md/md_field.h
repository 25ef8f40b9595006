/// @file
/// A field as a constant: its id, and in its C++ type the type of its value. Plain values without other state.
///
///     constexpr MD::Field<MD::MD_Message::String> SYMBOL{1};
///     constexpr MD::Field<double> BID{22};
///
///     if (const auto bid = message.get(BID)) { ... *bid ... }   // std::optional<double>
///     message.update(BID, 184.2);
///
/// Values that convert to the type of the field without loss are accepted; others do not compile.
#ifndef MD_FIELD_H
#define MD_FIELD_H

#include <cstdint>
#include <cstring>

#include <chrono>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

#include "md/detail/byte_range.h"
#include "md/md_datetime.h"
#include "md/md_epochns.h"
#include "md/md_value_types.h"

namespace MD {

/// The id of a field, and the type of its value: one of the nine value types.
template <class T>
class Field {
  static_assert(
      detail::kTypeCode<T> != DATATYPES::RAW,
      "MD::Field<T>: T must be one of the nine value types of a field: char, std::int32_t, std::int64_t, float, "
      "double, MD_Message::String, MD_Message::Buffer, MD_DateTime, MD_EpochNS");

 public:
  /// The type of the values of the field.
  using value_type = T;

  /// A field by its id. It is not checked here whether the dictionary declares this type for the id.
  constexpr explicit Field(std::uint16_t id) noexcept : m_id(id) {}

  /// The id of the field.
  constexpr std::uint16_t id() const noexcept { return m_id; }
  /// The type code, one of `DATATYPES`.
  static constexpr DATATYPES::Code type() noexcept { return detail::kTypeCode<T>; }

 private:
  std::uint16_t m_id;
};

namespace detail {

/// The return type of a get of a field: views of text are those of the standard library.
template <class T>
using FieldValue = std::conditional_t<std::is_same_v<T, StringView16>, std::string_view, T>;

/// Numbers, excluding char, bool and the wide characters.
template <class T>
inline constexpr bool kIsNumber =
    std::is_arithmetic_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> && !std::is_same_v<T, wchar_t> &&
    !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>;

/// Whether `To` can represent every value of `From`.
template <class From, class To>
constexpr bool convertsWithoutLoss() noexcept {
  if constexpr (!kIsNumber<From> || (std::is_floating_point_v<From> && !std::is_floating_point_v<To>)) {
    return false;
  } else {
    return std::numeric_limits<From>::digits <= std::numeric_limits<To>::digits;
  }
}

template <class V>
inline constexpr bool kIsTimePoint = false;
template <class Duration>
inline constexpr bool kIsTimePoint<std::chrono::time_point<std::chrono::system_clock, Duration>> = true;

/// Text of any length. A literal ends at its NUL; a null pointer is not a text.
template <class V>
bool textOf(const V& value, std::string_view& out) noexcept {
  if constexpr (std::is_array_v<V>) {
    const void* const end = std::memchr(value, '\0', std::extent_v<V>);
    out = {value, end != nullptr ? static_cast<std::size_t>(static_cast<const char*>(end) - value) : std::extent_v<V>};
  } else if constexpr (std::is_pointer_v<V>) {
    out = value != nullptr ? std::string_view(value) : std::string_view();
    return value != nullptr;
  } else {
    out = value;
  }
  return true;
}

inline constexpr std::size_t kLongestView = std::numeric_limits<std::uint16_t>::max();

/// Converts a value to that of a field of type `T`. Does not compile, with a reason, if a value could be lost.
/// @return false, `out` unchanged, for values that the types cannot exclude: text or bytes longer than a view can be, a
///         null pointer, a time point before 1970
template <class T, class V>
MD_ALWAYS_INLINE inline bool convertForField(const V& value, T& out) noexcept {
  static_assert(
      !std::is_same_v<V, bool>,
      "MD::Field: a bool is not the value of a field; say what is stored, such as isOpen ? 1 : 0 for an INT or "
      "isOpen ? 'Y' : 'N' for a CHAR");
  if constexpr (std::is_same_v<V, T>) {
    out = value;
    return true;
  } else if constexpr (std::is_same_v<V, bool>) {
    return false;
  } else if constexpr (std::is_same_v<T, char>) {
    static_assert(std::is_same_v<V, char>, "MD::Field<char>: a CHAR field takes a char, such as 'B'");
    return false;
  } else if constexpr (std::is_arithmetic_v<T>) {
    constexpr bool kIsLossless = convertsWithoutLoss<V, T>();
    static_assert(
        kIsLossless || !std::is_same_v<T, std::int32_t>,
        "MD::Field<std::int32_t>: an INT field takes integers of which every value fits 32 bits with a sign; for "
        "another number write static_cast<std::int32_t>, where it is known to fit");
    static_assert(
        kIsLossless || !std::is_same_v<T, std::int64_t>,
        "MD::Field<std::int64_t>: an INT64 field takes integers of which every value fits 64 bits with a sign; "
        "for another number write static_cast<std::int64_t>, where it is known to fit");
    static_assert(
        kIsLossless || !std::is_same_v<T, float>,
        "MD::Field<float>: a FLOAT field takes a float or an integer of at most 16 bits; for another number write "
        "static_cast<float>, where the loss is wanted");
    static_assert(
        kIsLossless || !std::is_same_v<T, double>,
        "MD::Field<double>: a DOUBLE field takes a double, a float or an integer of at most 32 bits; for another "
        "number write static_cast<double>, where the loss is wanted");
    if constexpr (kIsLossless) {
      out = static_cast<T>(value);
    }
    return kIsLossless;
  } else if constexpr (std::is_same_v<T, StringView16>) {
    constexpr bool kIsText = std::is_convertible_v<const V&, std::string_view> && !std::is_null_pointer_v<V>;
    static_assert(
        kIsText,
        "MD::Field<MD_Message::String>: a STRING field takes text: std::string, std::string_view, a literal or "
        "MD_Message::String");
    if constexpr (kIsText) {
      std::string_view text;
      if (!textOf(value, text) || text.size() > kLongestView) {
        return false;
      }
      out = text;
      return true;
    }
    return false;
  } else if constexpr (std::is_same_v<T, BufferView16>) {
    static_assert(kIsByteRange<V>,
                  "MD::Field<MD_Message::Buffer>: a BUFFER field takes bytes one after the other: MD_Message::Buffer, "
                  "std::vector<std::uint8_t>, std::array, std::string_view, but no literal");
    if constexpr (kIsByteRange<V>) {
      if (std::size(value) > kLongestView) {
        return false;
      }
      out = {firstByte(value), static_cast<std::uint16_t>(std::size(value))};
      return true;
    }
    return false;
  } else if constexpr (std::is_same_v<T, MD_EpochNS>) {
    static_assert(kIsTimePoint<V>,
                  "MD::Field<MD_EpochNS>: an EPOCH_NSEC field takes an MD_EpochNS or a time point of "
                  "std::chrono::system_clock; a plain number has no unit, so write MD_EpochNS(nanoseconds)");
    if constexpr (kIsTimePoint<V>) {
      const auto time = MD_EpochNS::fromTimePoint(value);
      out = time.value_or(out);
      return time.has_value();
    }
    return false;
  } else {
    static_assert(
        std::is_same_v<V, T>,
        "MD::Field<MD_DateTime>: a DATETIME field takes an MD_DateTime, such as *MD_DateTime::fromDate(2024, 6, 3)");
    return false;
  }
}

// Integers whose types are not among the nine and are not promoted to one of them.
template <class T>
inline constexpr bool kIsOtherInteger =
    std::conjunction_v<std::is_integral<T>,
                       std::bool_constant<(sizeof(T) >= sizeof(std::int32_t) && kTypeCode<T> == DATATYPES::RAW)>,
                       std::negation<std::is_same<T, wchar_t>>, std::negation<std::is_same<T, char32_t>>>;
template <class T>
using IfOtherInteger = std::enable_if_t<kIsOtherInteger<T>, int>;

template <class T>
constexpr bool fitsInt64(T value) noexcept {
  return std::is_signed_v<T> || static_cast<std::uint64_t>(value) >> 63 == 0;
}

template <class T>
using IfBool = std::enable_if_t<std::is_same_v<T, bool>, int>;
template <class Bool>
constexpr bool refuseBool() noexcept {
  static_assert(
      !std::is_same_v<Bool, bool>,
      "MD_Message: a bool is not the value of a field; say what is stored, such as isOpen ? 1 : 0 for an INT or "
      "isOpen ? 'Y' : 'N' for a CHAR");
  return false;
}

/// get() of a field as an optional.
template <class T, class Message>
MD_ALWAYS_INLINE inline std::optional<FieldValue<T>> readField(const Message& message, std::uint16_t id) {
  T value{};
  // In this form, compilers test only once whether there is a value.
  const bool isRead = message.get(id, value);
  return isRead ? std::optional<FieldValue<T>>(static_cast<FieldValue<T>>(value)) : std::nullopt;
}

}  // namespace detail
}  // namespace MD

#endif
