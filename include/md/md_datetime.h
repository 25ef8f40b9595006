/// @file
/// A date, a time of day and the UTC offset of an exchange in one 64-bit word. A plain value. Use hhmmssmmm (local time
/// as decimal digits, 93000000 is 09:30:00.000) as the unit of the time of day and minutes east of UTC as that of the
/// offset.
#ifndef MD_DATETIME_H
#define MD_DATETIME_H

#include <cstdint>
#include <cstring>

#include <iosfwd>
#include <optional>

#include "md/md_api.h"

namespace MD {

/// Packed word, bit 0 the least significant: time 0-27, day 28-32, month 33-36, year minus 1900 in 37-44, and the
/// sign-extended 16-bit offset from bit 45. Parts out of range are silently reduced to their width.
class MD_DateTime {
 public:
  /// The word 0.
  constexpr MD_DateTime() noexcept = default;

  /// @param date             the decimal number yyyymmdd; years outside 1900-2155 are returned shifted by 256
  /// @param time             time of day below 2^28; recommended unit: hhmmssmmm
  /// @param exch_gmt_offset  the exchange's UTC offset; recommended unit: minutes east of UTC
  constexpr MD_DateTime(int date, int time, short exch_gmt_offset) noexcept
      : m_packed(cut(time, kTimeBits) | cut(date % 100, kDayBits) << kDayShift |
                 cut(date / 100 % 100, kMonthBits) << kMonthShift |
                 cut(date / 10000 - kFirstYear, kYearBits) << kYearShift |
                 static_cast<std::uint64_t>(std::int64_t{exch_gmt_offset}) << kOffsetShift) {}

  /// A date-time that returns all its parts unchanged. Empty for an invalid date, a year outside 1900 to 2155, and a
  /// time outside 0 to 2^28 - 1.
  /// @param time             time of day; recommended unit: hhmmssmmm
  /// @param exch_gmt_offset  the exchange's UTC offset; recommended unit: minutes east of UTC
  static constexpr std::optional<MD_DateTime> fromDate(int year, int month, int day, int time = 0,
                                                       short exch_gmt_offset = 0) noexcept {
    if (year < kFirstYear || year >= kFirstYear + (1 << kYearBits) || month < 1 || month > 12 || day < 1 ||
        day > daysOf(year, month) || time < 0 || time >= 1 << kTimeBits) {
      return std::nullopt;
    }
    return MD_DateTime((year * 100 + month) * 100 + day, time, exch_gmt_offset);
  }

  /// The decimal number yyyymmdd.
  constexpr int date() const noexcept { return (year() * 100 + month()) * 100 + day(); }
  /// @{
  /// The parts of the date.
  constexpr int year() const noexcept { return part(kYearShift, kYearBits) + kFirstYear; }
  constexpr int month() const noexcept { return part(kMonthShift, kMonthBits); }
  constexpr int day() const noexcept { return part(kDayShift, kDayBits); }
  /// @}
  /// The time of day, in the unit that was passed in.
  constexpr int time() const noexcept { return part(0, kTimeBits); }
  /// The exchange's UTC offset, in the unit that was passed in.
  constexpr short exch_gmt_offset() const noexcept {
    return static_cast<short>(static_cast<std::uint16_t>(m_packed >> kOffsetShift));
  }

  /// Writes the 8-byte word to `out`, in the byte order of the machine.
  static void serialize(char* out, const MD_DateTime& value) noexcept {
    std::memcpy(out, &value.m_packed, sizeof value.m_packed);
  }
  /// Reads the 8-byte word from `in`.
  static void deserialize(MD_DateTime& value, const char* in) noexcept {
    std::memcpy(&value.m_packed, in, sizeof value.m_packed);
  }

  /// @{
  /// Equal if the packed words are equal.
  friend constexpr bool operator==(MD_DateTime a, MD_DateTime b) noexcept { return a.m_packed == b.m_packed; }
  friend constexpr bool operator!=(MD_DateTime a, MD_DateTime b) noexcept { return !(a == b); }
  /// @}

 private:
  static constexpr int kFirstYear = 1900;
  static constexpr unsigned kTimeBits = 28;
  static constexpr unsigned kDayBits = 5;
  static constexpr unsigned kMonthBits = 4;
  static constexpr unsigned kYearBits = 8;
  static constexpr unsigned kDayShift = kTimeBits;
  static constexpr unsigned kMonthShift = kDayShift + kDayBits;
  static constexpr unsigned kYearShift = kMonthShift + kMonthBits;
  static constexpr unsigned kOffsetShift = kYearShift + kYearBits;

  static constexpr int daysOf(int year, int month) noexcept {
    const bool isLeapYear = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 ? 28 + int{isLeapYear} : 30 + (month + month / 8) % 2;
  }
  static constexpr std::uint64_t cut(int value, unsigned bits) noexcept {
    return static_cast<std::uint64_t>(std::int64_t{value}) & ((std::uint64_t{1} << bits) - 1);
  }
  constexpr int part(unsigned shift, unsigned bits) const noexcept {
    return static_cast<int>(m_packed >> shift & ((std::uint64_t{1} << bits) - 1));
  }

  std::uint64_t m_packed = 0;
};

/// Writes date, one space, time and the offset in parentheses, as in "20240115 93000000 (-300)". The stream's width
/// applies to the whole text.
MD_API std::ostream& operator<<(std::ostream& out, const MD_DateTime& value);

}  // namespace MD

#endif
