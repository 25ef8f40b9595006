#include "text/time_text.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <iterator>
#include <limits>
#include <sstream>
#include <system_error>

#include <date/date.h>
#if defined(MDMSG_HAS_DATE_TZ)
#include <date/tz.h>
#endif

#include "base/diagnostics.h"
#include "base/platform.h"

namespace MD::tool {
namespace {

using Seconds = std::chrono::seconds;
using Nanoseconds = std::chrono::nanoseconds;

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::uint64_t kMostNs = std::numeric_limits<std::uint64_t>::max();

std::int64_t floorToDays(std::int64_t clockSeconds) { return date::floor<date::days>(Seconds(clockSeconds)).count(); }

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
      !text.takeNumber(2, 31, day)) {
    return false;
  }
  const date::year_month_day date{date::year(static_cast<int>(year)), date::month(static_cast<unsigned>(month)),
                                  date::day(static_cast<unsigned>(day))};
  days = date.ok() ? date::sys_days(date).time_since_epoch().count() : 0;
  return date.ok();
}

std::optional<std::uint64_t> nsOf(std::int64_t unixSeconds, std::uint64_t ns) {
  if (unixSeconds < 0 || static_cast<std::uint64_t>(unixSeconds) > kMostNs / kNsPerSecond) {
    return std::nullopt;
  }
  const std::uint64_t whole = static_cast<std::uint64_t>(unixSeconds) * kNsPerSecond;
  return whole <= kMostNs - ns ? std::optional(whole + ns) : std::nullopt;
}

void appendDate(std::int64_t days, std::string& out) {
  const date::year_month_day date{date::sys_days(date::days(days))};
  appendDigits(static_cast<std::uint64_t>(static_cast<int>(date.year())), 4, out);
  out += '-';
  appendDigits(static_cast<unsigned>(date.month()), 2, out);
  out += '-';
  appendDigits(static_cast<unsigned>(date.day()), 2, out);
}

void appendDecimals(std::uint64_t ns, int digits, std::string& out) {
  if (digits != 0) {
    out += '.';
    appendDigits(ns % kNsPerSecond, 9, out);
    out.resize(out.size() - static_cast<std::size_t>(9 - digits));
  }
}

/// Appends date, time and decimals as a clock shows them.
void appendClockTime(std::int64_t clockSeconds, std::uint64_t ns, char separator, int digits, std::string& out) {
  const std::int64_t days = floorToDays(clockSeconds);
  appendDate(days, out);
  out += separator;
  appendClock(static_cast<std::uint64_t>(clockSeconds - days * kSecondsPerDay), true, out);
  appendDecimals(ns, digits, out);
}

/// "+05:30"
void appendOffset(int secondsEast, std::string& out) {
  out += secondsEast < 0 ? '-' : '+';
  const auto ahead = static_cast<std::uint64_t>(secondsEast < 0 ? -secondsEast : secondsEast);
  appendClock(ahead, ahead % 60 != 0, out);
}

/// @tparam Precision  a duration with the decimals that seconds are written with
template <class Precision>
void appendStrftime(const std::string& format, std::int64_t clockSeconds, std::uint64_t ns, int secondsEast,
                    std::string& out) {
  const std::int64_t days = floorToDays(clockSeconds);
  // Apart from the date, since 64 bits with a sign do not hold the nanoseconds of all dates.
  const auto time = Seconds(clockSeconds - days * kSecondsPerDay) + Nanoseconds(ns % kNsPerSecond);
  std::string abbreviation = "UTC";
  if (secondsEast != 0) {
    abbreviation.clear();
    appendOffset(secondsEast, abbreviation);
  }
  const Seconds offset(secondsEast);
  std::ostringstream text;
  text.imbue(std::locale::classic());
  const date::fields<Precision> fields{date::year_month_day(date::sys_days(date::days(days))),
                                       date::hh_mm_ss<Precision>(date::floor<Precision>(time))};
  date::to_stream(text, format.c_str(), fields, &abbreviation, &offset);
  out += text.str();
}

#if defined(MDMSG_HAS_DATE_TZ)
const date::time_zone* findZone(const std::string& name) {
  try {
    return name.empty() ? nullptr : date::locate_zone(name);
  } catch (const std::runtime_error&) {
    return nullptr;
  }
}
#else
const date::time_zone* findZone(const std::string&) { return nullptr; }
#endif

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
  if (text == "local") {
    readLocalTimeZone();
    zone.m_isLocal = true;
    return zone;
  }
  zone.m_named = findZone(text);
  if (zone.m_named == nullptr) {
    throw UsageError("unknown time zone " + inQuotes(text) +
                     " (UTC, local, an offset such as +05:30, or a name that the system knows)");
  }
  return zone;
}

int TimeZone::secondsEast(std::int64_t unixSeconds) const {
#if defined(MDMSG_HAS_DATE_TZ)
  if (m_named != nullptr) {
    return static_cast<int>(m_named->get_info(date::sys_seconds(Seconds(unixSeconds))).offset.count());
  }
#endif
  return m_isLocal ? secondsEastOfUtc(unixSeconds) : m_secondsEast;
}

std::int64_t TimeZone::unixSeconds(std::int64_t clockSeconds) const {
  // The offsets a day before and a day after are those on both sides of a change that may be between.
  const int before = secondsEast(clockSeconds - kSecondsPerDay);
  const int after = secondsEast(clockSeconds + kSecondsPerDay);
  return secondsEast(clockSeconds - before) == before || secondsEast(clockSeconds - after) != after
             ? clockSeconds - before
             : clockSeconds - after;
}

void appendIsoTime(std::uint64_t ns, const TimeZone& zone, std::string& out, int digits) {
  const auto unixSeconds = static_cast<std::int64_t>(ns / kNsPerSecond);
  const int east = zone.secondsEast(unixSeconds);
  appendClockTime(unixSeconds + east, ns, 'T', digits, out);
  if (east == 0) {
    out += 'Z';
  } else {
    appendOffset(east, out);
  }
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
  return nsOf(days * kSecondsPerDay + clock - secondsEast, ns);
}

std::optional<std::uint64_t> parseTime(std::string_view text, const TimeZone& zone) {
  Scanner scanner(text);
  std::int64_t days = 0;
  std::int64_t clock = 0;
  std::uint64_t ns = 0;
  if (!takeDate(scanner, days)) {
    return std::nullopt;
  }
  if (!scanner.isAtEnd() &&
      ((!scanner.take('T') && !scanner.take(' ')) || !takeClock(scanner, false, clock) || !takeDecimals(scanner, ns))) {
    return std::nullopt;
  }
  const std::int64_t clockSeconds = days * kSecondsPerDay + clock;
  if (scanner.isAtEnd()) {
    return nsOf(zone.unixSeconds(clockSeconds), ns);
  }
  std::int64_t secondsEast = 0;
  return takeOffset(scanner, secondsEast) && scanner.isAtEnd() ? nsOf(clockSeconds - secondsEast, ns) : std::nullopt;
}

std::optional<std::uint64_t> parseTimeOfDay(std::string_view text) {
  Scanner scanner(text);
  std::int64_t clock = 0;
  std::uint64_t ns = 0;
  if (!takeClock(scanner, false, clock) || !takeDecimals(scanner, ns) || !scanner.isAtEnd()) {
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(clock) * kNsPerSecond + ns;
}

std::optional<std::uint64_t> parseDuration(std::string_view text) {
  constexpr struct {
    std::string_view name;
    std::uint64_t ns;
  } kUnits[] = {{"ns", 1},
                {"us", 1'000},
                {"ms", 1'000'000},
                {"s", kNsPerSecond},
                {"m", 60 * kNsPerSecond},
                {"h", 3600 * kNsPerSecond},
                {"d", 86400 * kNsPerSecond}};
  std::uint64_t sum = 0;
  if (text.empty()) {
    return std::nullopt;
  }
  while (!text.empty()) {
    const std::size_t numberEnd = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::string_view rest = text.substr(numberEnd);
    const std::string_view name = rest.substr(0, rest.find_first_of("0123456789."));
    const auto* const unit =
        std::find_if(std::begin(kUnits), std::end(kUnits), [&](const auto& row) { return row.name == name; });
    if (unit == std::end(kUnits)) {
      return std::nullopt;
    }
    const char* const end = text.data() + numberEnd;
    std::uint64_t whole = 0;
    const auto [point, code] = std::from_chars(text.data(), end, whole);
    double fraction = 0;
    if (code != std::errc() ||
        (point != end && (point + 1 == end || std::from_chars(point, end, fraction).ptr != end))) {
      return std::nullopt;
    }
    const auto part = static_cast<std::uint64_t>(std::llround(fraction * static_cast<double>(unit->ns)));
    if (whole > kMostNs / unit->ns || whole * unit->ns > kMostNs - sum || part > kMostNs - sum - whole * unit->ns) {
      return std::nullopt;
    }
    sum += whole * unit->ns + part;
    text = rest.substr(name.size());
  }
  return sum;
}

std::int64_t clockMidnight(std::uint64_t ns, const TimeZone& zone) {
  const auto unixSeconds = static_cast<std::int64_t>(ns / kNsPerSecond);
  return floorToDays(unixSeconds + zone.secondsEast(unixSeconds)) * kSecondsPerDay;
}

TimeFormat::TimeFormat(const std::string& style, std::optional<unsigned> digits, const TimeZone& zone) : m_zone(zone) {
  constexpr struct {
    std::string_view name;
    std::uint64_t ns;
  } kUnits[] = {{"s", kNsPerSecond}, {"ms", 1'000'000}, {"us", 1'000}, {"ns", 1}};
  const auto* const unit =
      std::find_if(std::begin(kUnits), std::end(kUnits), [&](const auto& row) { return row.name == style; });
  int defaultDigits = 0;
  if (style == "iso") {
    m_style = Style::Iso;
    defaultDigits = 9;
  } else if (style == "spreadsheet") {
    m_style = Style::Spreadsheet;
    defaultDigits = 3;
  } else if (unit != std::end(kUnits)) {
    m_style = Style::Number;
    m_unitNs = unit->ns;
  } else if (style.find('%') != style.npos) {
    m_style = Style::Strftime;
    m_strftime = style;
  } else {
    throw UsageError("--time-format: " + inQuotes(style) +
                     " is neither iso, spreadsheet, s, ms, us, ns nor a strftime format such as %H:%M:%S");
  }
  if (digits && *digits != 0 && *digits != 3 && *digits != 6 && *digits != 9) {
    throw UsageError("--time-digits is 0, 3, 6 or 9");
  }
  if (digits && m_style == Style::Number && style != "s") {
    throw UsageError("--time-digits cannot be combined with --time-format " + style);
  }
  m_digits = digits ? static_cast<int>(*digits) : defaultDigits;
}

void TimeFormat::append(std::uint64_t ns, std::string& out) const {
  if (m_style == Style::Iso) {
    return appendIsoTime(ns, m_zone, out, m_digits);
  }
  if (m_style == Style::Number) {
    char text[std::numeric_limits<std::uint64_t>::digits10 + 1];
    out.append(text, std::to_chars(std::begin(text), std::end(text), ns / m_unitNs).ptr);
    return appendDecimals(ns, m_digits, out);
  }
  const auto unixSeconds = static_cast<std::int64_t>(ns / kNsPerSecond);
  const int east = m_zone.secondsEast(unixSeconds);
  const std::int64_t clockSeconds = unixSeconds + east;
  if (m_style == Style::Spreadsheet) {
    return appendClockTime(clockSeconds, ns, ' ', m_digits, out);
  }
  switch (m_digits) {
    case 0:
      return appendStrftime<Seconds>(m_strftime, clockSeconds, ns, east, out);
    case 3:
      return appendStrftime<std::chrono::milliseconds>(m_strftime, clockSeconds, ns, east, out);
    case 6:
      return appendStrftime<std::chrono::microseconds>(m_strftime, clockSeconds, ns, east, out);
    default:
      return appendStrftime<Nanoseconds>(m_strftime, clockSeconds, ns, east, out);
  }
}

}  // namespace MD::tool
