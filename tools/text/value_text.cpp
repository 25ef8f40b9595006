#include "text/value_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

#include "base/diagnostics.h"
#include "md/md_value_types.h"
#include "src/md_typemap.h"
#include "text/time_text.h"

namespace MD::tool {
namespace {

template <class T>
constexpr const char* kRealName = sizeof(T) == sizeof(float) ? "FLOAT" : "DOUBLE";

/// The length of the text of an ordinary price or size, 0 for any other number: one from 0.001 on that has at most six
/// decimals, and fewer digits than a double holds. Of such a number no other text of as few digits gives the same
/// double back, so this one is the shortest. It is several times as fast as the search for that.
std::size_t writeDecimal(double value, char (&text)[32]) noexcept {
  constexpr double kLeast = 0.001;
  constexpr double kMost = 1e9;
  constexpr double kPowers[] = {10, 100, 1e3, 1e4, 1e5, 1e6};
  const double size = std::fabs(value);
  if (!(size >= kLeast && size < kMost)) {
    return 0;
  }
  std::size_t decimals = 0;
  std::uint64_t digits = 0;
  for (const double power : kPowers) {
    ++decimals;
    constexpr double kHalf = 0.5;
    digits = static_cast<std::uint64_t>(size * power + kHalf);
    // Both are exact, and the quotient is rounded once, as the number is when the text is read.
    if (static_cast<double>(digits) / power == size) {
      break;
    }
    if (decimals == std::size(kPowers)) {
      return 0;
    }
  }
  char* to = std::end(text);
  if (digits % 10 != 0) {
    for (std::size_t i = 0; i != decimals; ++i, digits /= 10) {
      *--to = static_cast<char>('0' + digits % 10);
    }
    *--to = '.';
  } else {
    // An integer. From 100000 on "1e+05" is shorter.
    constexpr std::uint64_t kLeastWithExponent = 100'000;
    digits /= 10;
    if (digits >= kLeastWithExponent) {
      return 0;
    }
  }
  do {
    *--to = static_cast<char>('0' + digits % 10);
    digits /= 10;
  } while (digits != 0);
  if (value < 0) {
    *--to = '-';
  }
  return static_cast<std::size_t>(std::end(text) - to);
}

bool startsNumber(std::string_view text) noexcept {
  const std::size_t digits = !text.empty() && text[0] == '-' ? 1 : 0;
  return digits < text.size() && ((text[digits] >= '0' && text[digits] <= '9') || text[digits] == '.');
}

}  // namespace

const char* typeName(std::uint8_t type) noexcept {
  const detail::FieldType* const found = detail::findType(type);
  return found != nullptr ? found->name.data() : "?";  // a literal, so that a NUL ends it
}

std::optional<std::uint8_t> typeCode(std::string_view name) noexcept {
  const detail::FieldType* const type = detail::findType(name);
  return type != nullptr ? std::optional(type->code) : std::nullopt;
}

bool isOfDigits(std::string_view text) noexcept {
  return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

bool isCarried(std::uint8_t type) noexcept {
  switch (type) {
#define MD_CASE(T, name, code) case code:
    MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
    return true;
    default:
      return false;
  }
}

template <class T>
T parseWhole(std::string_view text, std::string_view what) {
  T value{};
  const char* const end = text.data() + text.size();
  const auto [rest, code] = std::from_chars(text.data(), end, value);
  if (code == std::errc() && rest == end) {
    return value;
  }
  // A minus before an unsigned number is out of its range rather than no number.
  const std::string_view digits = !text.empty() && text[0] == '-' ? text.substr(1) : text;
  if (isOfDigits(digits)) {
    throw LineError(printable(text) + " does not fit " + std::string(what) + " (" +
                    std::to_string(std::numeric_limits<T>::min()) + " to " +
                    std::to_string(std::numeric_limits<T>::max()) + ')');
  }
  throw LineError(inQuotes(text) + " is not an integer");
}

template <class T>
T parseReal(std::string_view text) {
  T value{};
  const char* const end = text.data() + text.size();
  const auto [rest, code] = std::from_chars(text.data(), end, value);
  // The conversion knows names of infinities and not-a-numbers of its own.
  if (code == std::errc::invalid_argument || rest != end || !startsNumber(text)) {
    throw LineError(inQuotes(text) + " is not a number");
  }
  if (code != std::errc()) {
    throw LineError(printable(text) + " does not fit " + kRealName<T> + ": too large, or too close to 0");
  }
  return value;
}

template <class T>
bool parseRealName(std::string_view text, T& out) noexcept {
  if (text == "NaN") {
    out = std::numeric_limits<T>::quiet_NaN();
  } else if (text == "Infinity") {
    out = std::numeric_limits<T>::infinity();
  } else if (text == "-Infinity") {
    out = -std::numeric_limits<T>::infinity();
  } else {
    return false;
  }
  return true;
}

template <class T>
T parseRealOrName(std::string_view text) {
  T value{};
  return parseRealName(text, value) ? value : parseReal<T>(text);
}

MD_DateTime makeDateTime(std::int32_t date, std::int32_t time, std::int16_t offset) {
  const MD_DateTime value(date, time, offset);
  if (value.date() != date) {
    throw LineError(std::to_string(date) + " is not a date (years 1900 to 2155, months to 15, days to 31)");
  }
  if (value.time() != time) {
    throw LineError(std::to_string(time) + " is not a time (0 to 268435455)");
  }
  return value;
}

MD_DateTime parseDateTime(std::string_view text) {
  if (std::count(text.begin(), text.end(), ' ') != 2) {
    throw LineError(inQuotes(text) + " is not a date, a time and an offset with spaces between");
  }
  const std::size_t first = text.find(' ');
  const std::size_t second = text.rfind(' ');
  const auto date = parseWhole<std::int32_t>(text.substr(0, first), "the date");
  const auto time = parseWhole<std::int32_t>(text.substr(first + 1, second - first - 1), "the time");
  const auto offset = parseWhole<std::int16_t>(text.substr(second + 1), "the offset");
  return makeDateTime(date, time, offset);
}

MD_EpochNS parseEpochNs(std::string_view text) {
  if (const auto moment = parseIsoTime(text)) {
    return MD_EpochNS(*moment);
  }
  if (text.find_first_not_of("-0123456789") != text.npos) {
    throw LineError(inQuotes(text) + " is neither an integer nor a timestamp such as 2024-06-03T09:30:00Z");
  }
  return MD_EpochNS(parseWhole<std::uint64_t>(text, "EPOCH_NSEC"));
}

template <class T>
void appendWhole(T value, std::string& out) {
  char text[std::numeric_limits<T>::digits10 + 2];
  out.append(text, std::to_chars(std::begin(text), std::end(text), value).ptr);
}

template <class T>
void appendReal(T value, std::string& out) {
  if (value == 0) {
    // "-0" would be read as an integer without a sign.
    out += std::signbit(value) ? "-0.0" : "0";
    return;
  }
  char text[32];
  if constexpr (sizeof(T) == sizeof(double)) {
    if (const std::size_t length = writeDecimal(value, text)) {
      out.append(std::end(text) - length, length);
      return;
    }
  }
  out.append(text, std::to_chars(std::begin(text), std::end(text), value).ptr);
}

template <class T>
void appendRealOrName(T value, std::string& out) {
  if (std::isfinite(value)) {
    return appendReal(value, out);
  }
  out += std::isnan(value) ? "NaN" : value > 0 ? "Infinity" : "-Infinity";
}

template std::int16_t parseWhole(std::string_view, std::string_view);
template std::uint16_t parseWhole(std::string_view, std::string_view);
template std::int32_t parseWhole(std::string_view, std::string_view);
template std::int64_t parseWhole(std::string_view, std::string_view);
template std::uint64_t parseWhole(std::string_view, std::string_view);
template float parseReal(std::string_view);
template double parseReal(std::string_view);
template bool parseRealName(std::string_view, float&) noexcept;
template bool parseRealName(std::string_view, double&) noexcept;
template float parseRealOrName(std::string_view);
template double parseRealOrName(std::string_view);
template void appendWhole(std::int16_t, std::string&);
template void appendWhole(std::uint16_t, std::string&);
template void appendWhole(std::int32_t, std::string&);
template void appendWhole(std::int64_t, std::string&);
template void appendWhole(std::uint64_t, std::string&);
template void appendReal(float, std::string&);
template void appendReal(double, std::string&);
template void appendRealOrName(float, std::string&);
template void appendRealOrName(double, std::string&);

}  // namespace MD::tool
