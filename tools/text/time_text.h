// Moments as text for people, "2024-06-03T09:30:00.173980747Z", and back.
#ifndef MDMSG_TIME_TEXT_H
#define MDMSG_TIME_TEXT_H

#include <cstdint>

#include <optional>
#include <string>
#include <string_view>

namespace MD::tool {

/// How far a clock is ahead of UTC: always by the same, or as the system's rules for a zone have it.
class TimeZone {
 public:
  /// UTC.
  TimeZone() = default;

  /// "UTC", "local", "+05:30", "-04:00", or a name that the system knows, such as "Europe/Vienna".
  /// @throws UsageError for any other text
  static TimeZone parse(const std::string& text);

  int secondsEast(std::int64_t unixSeconds) const;

 private:
  bool m_isOfSystem = false;
  int m_secondsEast = 0;
};

/// Appends nanoseconds since 1970 with nine decimals and the zone's offset, "Z" for none.
void appendIsoTime(std::uint64_t ns, const TimeZone& zone, std::string& out);

/// Reads what appendIsoTime() writes, with no to nine decimals. Empty when `text` is no such moment, or one that
/// nanoseconds since 1970 in 64 bits do not reach.
std::optional<std::uint64_t> parseIsoTime(std::string_view text);

}  // namespace MD::tool

#endif
