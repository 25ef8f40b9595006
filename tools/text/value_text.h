// Single values as text: numbers without loss and without regard to the locale.
#ifndef MDMSG_VALUE_TEXT_H
#define MDMSG_VALUE_TEXT_H

#include <cstdint>

#include <optional>
#include <string>
#include <string_view>

#include "md/md_datetime.h"
#include "md/md_epochns.h"

namespace MD::tool {

/// The dictionary's name of a type code.
const char* typeName(std::uint8_t type) noexcept;

/// The type code of a dictionary's type name, empty for any other text.
std::optional<std::uint8_t> typeCode(std::string_view name) noexcept;

/// Whether messages carry values of this type.
bool isCarried(std::uint8_t type) noexcept;

/// Whether there is nothing but decimal digits in `text`, at least one.
bool isOfDigits(std::string_view text) noexcept;

/// The whole of `text` as an integer.
/// @param what  names the number in the error
/// @throws LineError when there is anything else in `text`, or a number out of the range of `T`
template <class T>
T parseWhole(std::string_view text, std::string_view what);

/// The whole of `text` as a number with or without fraction and exponent, rounded to the nearest `T`.
/// @throws LineError when there is anything else in `text`, or a number that rounds to infinity or, not being 0, to 0
template <class T>
T parseReal(std::string_view text);

/// As parseReal(), and "NaN", "Infinity" and "-Infinity".
template <class T>
T parseRealOrName(std::string_view text);

/// The value that one of these names denotes. @return false, `out` unchanged, for any other text
template <class T>
bool parseRealName(std::string_view text, T& out) noexcept;

/// @throws LineError when the packed word does not hold the three as they are
MD_DateTime makeDateTime(std::int32_t date, std::int32_t time, std::int16_t offset);

/// The text of a date-time, "20240115 93000000 -300", and of a nanosecond timestamp: an integer, or a time such as
/// "2024-06-03T09:30:00Z". @throws LineError for any other text
MD_DateTime parseDateTime(std::string_view text);
MD_EpochNS parseEpochNs(std::string_view text);

template <class T>
void appendWhole(T value, std::string& out);

/// The shortest text that gives the same `T` back; a zero keeps its sign. `value` is finite.
template <class T>
void appendReal(T value, std::string& out);

/// The same of any value: one that is not finite as "NaN", "Infinity" or "-Infinity", whatever the bits of a NaN are.
template <class T>
void appendRealOrName(T value, std::string& out);

}  // namespace MD::tool

#endif
