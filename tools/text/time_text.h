// Times as text for people, "2024-06-03T09:30:00.173980747Z", and back.
#ifndef MDMSG_TIME_TEXT_H
#define MDMSG_TIME_TEXT_H

#include <cstdint>

#include <optional>
#include <string>
#include <string_view>

namespace date {
class time_zone;
}

namespace MD::tool {

/// How far a clock is ahead of UTC: always by the same, or by the rules of a zone. Thread-safe.
class TimeZone {
 public:
  /// UTC.
  TimeZone() = default;

  /// "UTC", "local", "+05:30", "-04:00", or the name of a zone in the system's database, such as "Europe/Vienna".
  /// @throws UsageError for any other text, and for names where the program has no such database
  static TimeZone parse(const std::string& text);

  int secondsEast(std::int64_t unixSeconds) const;

  /// When a clock in the zone shows this, in seconds since 1970 without regard to UTC. Of a time that the clock shows
  /// twice the first; a time that it skips counts as if it had not been put forward yet.
  std::int64_t unixSeconds(std::int64_t clockSeconds) const;

 private:
  bool m_isLocal = false;
  int m_secondsEast = 0;
  const date::time_zone* m_named = nullptr;
};

/// Appends nanoseconds since 1970 with `digits` decimals, 0 to 9, and the zone's offset, "Z" for none.
void appendIsoTime(std::uint64_t ns, const TimeZone& zone, std::string& out, int digits = 9);

/// Reads what appendIsoTime() writes, with no to nine decimals. Empty when `text` is no such time, or one that
/// nanoseconds since 1970 in 64 bits do not reach.
std::optional<std::uint64_t> parseIsoTime(std::string_view text);

/// The same, and a date and a time without an offset, which are those of the zone, with a "T" or a space between them,
/// and a date alone, which is its midnight: "2024-06-03T09:30:00.5Z", "2024-06-03 09:30", "2024-06-03".
std::optional<std::uint64_t> parseTime(std::string_view text, const TimeZone& zone);

/// Nanoseconds since midnight: "09:30", "09:30:00.5". Empty for any other text.
std::optional<std::uint64_t> parseTimeOfDay(std::string_view text);

/// Nanoseconds: numbers with a unit, d, h, m, s, ms, us or ns, such as "90s", "1h30m", "0.5s". Empty for any other
/// text, and for more than 64 bits of nanoseconds hold.
std::optional<std::uint64_t> parseDuration(std::string_view text);

/// The start of the day of a timestamp, by the clock of a zone, in seconds of that clock since 1970.
std::int64_t clockMidnight(std::uint64_t ns, const TimeZone& zone);

/// How nanosecond timestamps are written.
class TimeFormat {
 public:
  /// Nanoseconds since 1970.
  TimeFormat() = default;

  /// @param style   "iso"; "spreadsheet": "2024-06-03 09:30:00.173", which spreadsheets read as a time; "s", "ms", "us"
  ///                or "ns": a number of units since 1970; or a text for strftime, in which there is a "%"
  /// @param digits  decimals of the seconds, which are cut and not rounded: 0, 3, 6 or 9; of a number the decimals of
  ///                seconds alone. Without, 9 for "iso", 3 for "spreadsheet", else 0
  /// @throws UsageError for anything else
  TimeFormat(const std::string& style, std::optional<unsigned> digits, const TimeZone& zone);

  void append(std::uint64_t ns, std::string& out) const;

  /// Whether it writes numbers, which JSON has without quotes.
  bool isNumber() const noexcept { return m_style == Style::Number; }

 private:
  enum class Style : std::uint8_t { Iso, Spreadsheet, Number, Strftime };

  Style m_style = Style::Number;
  int m_digits = 0;
  std::uint64_t m_unitNs = 1;  // of Number
  std::string m_strftime;
  TimeZone m_zone;
};

}  // namespace MD::tool

#endif
