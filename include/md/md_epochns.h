/// @file
/// A point in time in nanoseconds. A plain value without other state.
#ifndef MD_EPOCHNS_H
#define MD_EPOCHNS_H

#include <cstdint>

#include <chrono>
#include <iosfwd>
#include <limits>
#include <optional>
#include <ratio>
#include <type_traits>

#include "md/md_api.h"

namespace MD {

/// Nanoseconds since 1970-01-01 00:00 UTC, unsigned 64 bits. Arithmetic wraps modulo 2^64; ranges are not checked.
class MD_EpochNS {
 public:
  /// A point in time of the standard library, with a range from 1677 to 2262.
  using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

  /// The timestamp 0.
  constexpr MD_EpochNS() noexcept = default;
  /// A number of nanoseconds.
  constexpr explicit MD_EpochNS(std::uint64_t nanoseconds) noexcept : m_nanoseconds(nanoseconds) {}

  /// @{
  /// Sets the timestamp in nanoseconds, seconds, milliseconds or microseconds.
  constexpr void set(std::uint64_t nanoseconds) noexcept { m_nanoseconds = nanoseconds; }
  constexpr void set_s(std::uint64_t seconds) noexcept { m_nanoseconds = seconds * kPerSecond; }
  constexpr void set_ms(std::uint64_t milliseconds) noexcept { m_nanoseconds = milliseconds * kPerMillisecond; }
  constexpr void set_us(std::uint64_t microseconds) noexcept { m_nanoseconds = microseconds * kPerMicrosecond; }
  /// @}

  /// The nanoseconds.
  constexpr std::uint64_t get() const noexcept { return m_nanoseconds; }
  /// @{
  /// Seconds, milliseconds and microseconds, rounded down.
  constexpr std::uint64_t get_s() const noexcept { return m_nanoseconds / kPerSecond; }
  constexpr std::uint64_t get_ms() const noexcept { return m_nanoseconds / kPerMillisecond; }
  constexpr std::uint64_t get_us() const noexcept { return m_nanoseconds / kPerMicrosecond; }
  /// @}

  /// The same point in time; empty for one before 1970. The unit of `Duration` is an integer number of nanoseconds,
  /// such as microseconds or seconds.
  template <class Duration>
  static constexpr std::optional<MD_EpochNS> fromTimePoint(
      std::chrono::time_point<std::chrono::system_clock, Duration> time) noexcept {
    using Count = typename Duration::rep;
    using Unit = std::ratio_divide<typename Duration::period, std::nano>;
    static_assert(Unit::den == 1 && std::is_integral_v<Count>,
                  "MD_EpochNS: a time point must count whole nanoseconds, or whole multiples of nanoseconds; use "
                  "std::chrono::time_point_cast<std::chrono::nanoseconds>");
    constexpr auto kMostUnits = std::numeric_limits<std::uint64_t>::max() / static_cast<std::uint64_t>(Unit::num);
    const Count count = time.time_since_epoch().count();
    if (count < Count{0} || static_cast<std::uint64_t>(count) > kMostUnits) {
      return std::nullopt;
    }
    return MD_EpochNS(static_cast<std::uint64_t>(count) * static_cast<std::uint64_t>(Unit::num));
  }
  /// The same point in time; empty from 2262-04-11 23:47:16.854775808 on, which `TimePoint` cannot represent.
  constexpr std::optional<TimePoint> toTimePoint() const noexcept {
    if (m_nanoseconds > static_cast<std::uint64_t>(std::numeric_limits<std::chrono::nanoseconds::rep>::max())) {
      return std::nullopt;
    }
    return TimePoint(std::chrono::nanoseconds(static_cast<std::chrono::nanoseconds::rep>(m_nanoseconds)));
  }

  /// @{
  /// Earlier is less.
  friend constexpr bool operator<(MD_EpochNS a, MD_EpochNS b) noexcept { return a.m_nanoseconds < b.m_nanoseconds; }
  friend constexpr bool operator>(MD_EpochNS a, MD_EpochNS b) noexcept { return b < a; }
  friend constexpr bool operator<=(MD_EpochNS a, MD_EpochNS b) noexcept { return !(b < a); }
  friend constexpr bool operator>=(MD_EpochNS a, MD_EpochNS b) noexcept { return !(a < b); }
  friend constexpr bool operator==(MD_EpochNS a, MD_EpochNS b) noexcept { return a.m_nanoseconds == b.m_nanoseconds; }
  friend constexpr bool operator!=(MD_EpochNS a, MD_EpochNS b) noexcept { return !(a == b); }
  /// @}

  /// Writes the number of nanoseconds.
  friend MD_API std::ostream& operator<<(std::ostream& out, MD_EpochNS time);

 private:
  static constexpr std::uint64_t kPerMicrosecond = 1'000;
  static constexpr std::uint64_t kPerMillisecond = 1'000'000;
  static constexpr std::uint64_t kPerSecond = 1'000'000'000;

  std::uint64_t m_nanoseconds = 0;
};

}  // namespace MD

#endif
