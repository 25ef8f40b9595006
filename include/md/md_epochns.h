/// @file
/// A point in time as nanoseconds. A plain value: safe to copy, no state behind it.
#ifndef MD_EPOCHNS_H
#define MD_EPOCHNS_H

#include <cstdint>

#include "md/md_api.h"

namespace MD {

/// Nanoseconds since 1970-01-01 00:00 UTC, unsigned 64 bits. Arithmetic wraps modulo 2^64; nothing is range-tested.
class MD_EpochNS {
 public:
  /// The moment 0.
  constexpr MD_EpochNS() noexcept = default;
  /// A number of nanoseconds.
  constexpr explicit MD_EpochNS(std::uint64_t nanoseconds) noexcept : m_nanoseconds(nanoseconds) {}

  /// @{
  /// Replaces the moment, given in nanoseconds, seconds, milliseconds or microseconds.
  constexpr void set(std::uint64_t nanoseconds) noexcept { m_nanoseconds = nanoseconds; }
  constexpr void set_s(std::uint64_t seconds) noexcept { m_nanoseconds = seconds * kPerSecond; }
  constexpr void set_ms(std::uint64_t milliseconds) noexcept { m_nanoseconds = milliseconds * kPerMillisecond; }
  constexpr void set_us(std::uint64_t microseconds) noexcept { m_nanoseconds = microseconds * kPerMicrosecond; }
  /// @}

  /// The nanoseconds.
  constexpr std::uint64_t get() const noexcept { return m_nanoseconds; }
  /// @{
  /// Whole seconds, milliseconds, microseconds; what is left over is dropped.
  constexpr std::uint64_t get_s() const noexcept { return m_nanoseconds / kPerSecond; }
  constexpr std::uint64_t get_ms() const noexcept { return m_nanoseconds / kPerMillisecond; }
  constexpr std::uint64_t get_us() const noexcept { return m_nanoseconds / kPerMicrosecond; }
  /// @}

  /// @{
  /// Earlier is less.
  friend constexpr bool operator<(MD_EpochNS a, MD_EpochNS b) noexcept { return a.m_nanoseconds < b.m_nanoseconds; }
  friend constexpr bool operator>(MD_EpochNS a, MD_EpochNS b) noexcept { return b < a; }
  friend constexpr bool operator<=(MD_EpochNS a, MD_EpochNS b) noexcept { return !(b < a); }
  friend constexpr bool operator>=(MD_EpochNS a, MD_EpochNS b) noexcept { return !(a < b); }
  friend constexpr bool operator==(MD_EpochNS a, MD_EpochNS b) noexcept { return a.m_nanoseconds == b.m_nanoseconds; }
  friend constexpr bool operator!=(MD_EpochNS a, MD_EpochNS b) noexcept { return !(a == b); }
  /// @}

 private:
  static constexpr std::uint64_t kPerMicrosecond = 1'000;
  static constexpr std::uint64_t kPerMillisecond = 1'000'000;
  static constexpr std::uint64_t kPerSecond = 1'000'000'000;

  std::uint64_t m_nanoseconds = 0;
};

}  // namespace MD

#endif
