#include "text/time_text.h"

#include <charconv>
#include <limits>
#include <system_error>

#include "base/diagnostics.h"
#include "base/platform.h"

namespace MD::tool {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

struct Date {
  std::int64_t year;
  unsigned month;
  unsigned day;
};

// The calendar by Howard Hinnant's algorithms: years from March on, in eras of 400.
std::int64_t daysSince1970(Date date) {
  const std::int64_t year = date.month <= 2 ? date.year - 1 : date.year;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const auto yearOfEra = static_cast<unsigned>(year - era * 400);
  const unsigned dayOfYear = (153 * (date.month > 2 ? date.month - 3 : date.month + 9) + 2) / 5 + date.day - 1;
  const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

Date dateOf(std::int64_t days) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
  const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const unsigned shifted = (5 * dayOfYear + 2) / 153;
  const unsigned month = shifted < 10 ? shifted + 3 : shifted - 9;
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, dayOfYear - (153 * shifted + 2) / 5 + 1};
}

void appendDigits(std::uint64_t value, int digits, std::string& out) {
  const std::size_t start = out.size();
  out.resize(start + static_cast<std::size_t>(digits));
  for (std::size_t i = out.size(); i-- != start; value /= 10) {
    out[i] = static_cast<char>('0' + value % 10);
  }
}

void appendClock(std::uint64_t seconds, bool hasSeconds, std::string& out) {
  appendDigits(seconds / 3600, 2, out);
  out += ':';
  appendDigits(seconds / 60 % 60, 2, out);
  if (hasSeconds) {
    out += ':';
    appendDigits(seconds % 60, 2, out);
  }
}

/// Takes text apart from the front.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : m_rest(text) {}

  bool isAtEnd() const noexcept { return m_rest.empty(); }
  bool take(char c) {
    if (m_rest.empty() || m_rest[0] != c) {
      return false;
    }
    m_rest.remove_prefix(1);
    return true;
  }
  /// Exactly so many digits.
  bool takeNumber(std::size_t digits, std::uint64_t most, std::uint64_t& out) {
    if (countDigits() < digits) {
      return false;
    }
    std::from_chars(m_rest.data(), m_rest.data() + digits, out);
    m_rest.remove_prefix(digits);
    return out <= most;
  }
  std::size_t countDigits() const {
    const std::size_t end = m_rest.find_first_not_of("0123456789");
    return end == m_rest.npos ? m_rest.size() : end;
  }

 private:
  std::string_view m_rest;
};

/// Hours, minutes and, where `hasSeconds` or given, seconds.
bool takeClock(Scanner& text, bool needsSeconds, std::int64_t& seconds) {
  std::uint64_t hour = 0;
  std::uint64_t minute = 0;
  std::uint64_t second = 0;
  if (!text.takeNumber(2, 23, hour) || !text.take(':') || !text.takeNumber(2, 59, minute)) {
    return false;
  }
  if (text.take(':')) {
    if (!text.takeNumber(2, 59, second)) {
      return false;
    }
  } else if (needsSeconds) {
    return false;
  }
  seconds = static_cast<std::int64_t>(hour * 3600 + minute * 60 + second);
  return true;
}

/// "Z", "+05:30", "-04:00".
bool takeOffset(Scanner& text, std::int64_t& secondsEast) {
  if (text.take('Z')) {
    secondsEast = 0;
    return true;
  }
  const bool isEast = text.take('+');
  if ((!isEast && !text.take('-')) || !takeClock(text, false, secondsEast)) {
    return false;
  }
  secondsEast = isEast ? secondsEast : -secondsEast;
  return true;
}

bool takeDecimals(Scanner& text, std::uint64_t& ns) {
  ns = 0;
  if (!text.take('.')) {
    return true;
  }
  const std::size_t digits = text.countDigits();
  if (digits == 0 || digits > 9 || !text.takeNumber(digits, kNsPerSecond, ns)) {
    return false;
  }
  for (std::size_t i = digits; i != 9; ++i) {
    ns *= 10;
  }
  return true;
}

bool takeDate(Scanner& text, std::int64_t& days) {
  std::uint64_t year = 0;
  std::uint64_t month = 0;
  std::uint64_t day = 0;
  if (!text.takeNumber(4, 9999, year) || !text.take('-') || !text.takeNumber(2, 12, month) || !text.take('-') ||
      !text.takeNumber(2, 31, day) || month == 0 || day == 0) {
    return false;
  }
  const Date date{static_cast<std::int64_t>(year), static_cast<unsigned>(month), static_cast<unsigned>(day)};
  days = daysSince1970(date);
  const Date back = dateOf(days);  // 31 April is none
  return back.month == date.month && back.day == date.day;
}

}  // namespace

TimeZone TimeZone::parse(const std::string& text) {
  TimeZone zone;
  if (text == "UTC") {
    return zone;
  }
  Scanner scanner(text);
  std::int64_t secondsEast = 0;
  if (takeOffset(scanner, secondsEast) && scanner.isAtEnd()) {
    zone.m_secondsEast = static_cast<int>(secondsEast);
    return zone;
  }
  zone.m_isOfSystem = true;
  if (text == "local") {
    setTimeZone({});
    return zone;
  }
  if (!isTimeZoneName(text)) {
    throw UsageError("there is no time zone " + inQuotes(text) +
                     " (UTC, local, an offset such as +05:30, or a name that the system knows)");
  }
  setTimeZone(text);
  return zone;
}

int TimeZone::secondsEast(std::int64_t unixSeconds) const {
  return m_isOfSystem ? secondsEastOfUtc(unixSeconds) : m_secondsEast;
}

void appendIsoTime(std::uint64_t ns, const TimeZone& zone, std::string& out) {
  const auto seconds = static_cast<std::int64_t>(ns / kNsPerSecond);
  const int east = zone.secondsEast(seconds);
  const std::int64_t local = seconds + east;
  const std::int64_t days = (local >= 0 ? local : local - (kSecondsPerDay - 1)) / kSecondsPerDay;
  const Date date = dateOf(days);
  appendDigits(static_cast<std::uint64_t>(date.year), 4, out);
  out += '-';
  appendDigits(date.month, 2, out);
  out += '-';
  appendDigits(date.day, 2, out);
  out += 'T';
  appendClock(static_cast<std::uint64_t>(local - days * kSecondsPerDay), true, out);
  out += '.';
  appendDigits(ns % kNsPerSecond, 9, out);
  if (east == 0) {
    out += 'Z';
    return;
  }
  out += east < 0 ? '-' : '+';
  const auto ahead = static_cast<std::uint64_t>(east < 0 ? -east : east);
  appendClock(ahead, ahead % 60 != 0, out);
}

std::optional<std::uint64_t> parseIsoTime(std::string_view text) {
  Scanner scanner(text);
  std::int64_t days = 0;
  std::int64_t clock = 0;
  std::uint64_t ns = 0;
  std::int64_t secondsEast = 0;
  if (!takeDate(scanner, days) || !scanner.take('T') || !takeClock(scanner, true, clock) ||
      !takeDecimals(scanner, ns) || !takeOffset(scanner, secondsEast) || !scanner.isAtEnd()) {
    return std::nullopt;
  }
  const std::int64_t seconds = days * kSecondsPerDay + clock - secondsEast;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  if (seconds < 0 || static_cast<std::uint64_t>(seconds) > kMost / kNsPerSecond) {
    return std::nullopt;
  }
  const std::uint64_t whole = static_cast<std::uint64_t>(seconds) * kNsPerSecond;
  return whole <= kMost - ns ? std::optional(whole + ns) : std::nullopt;
}

}  // namespace MD::tool
