#include "md/md_frac_double.h"

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include <limits>

#include "assertion.h"

namespace MD {
namespace {

constexpr const char* kAssertFile = "md_message/src/md_fracker";

constexpr std::int64_t kPowersOfTen[] = {1,
                                         10,
                                         100,
                                         1'000,
                                         10'000,
                                         100'000,
                                         1'000'000,
                                         10'000'000,
                                         100'000'000,
                                         1'000'000'000,
                                         10'000'000'000,
                                         100'000'000'000,
                                         1'000'000'000'000,
                                         10'000'000'000'000,
                                         100'000'000'000'000,
                                         1'000'000'000'000'000,
                                         10'000'000'000'000'000,
                                         100'000'000'000'000'000,
                                         1'000'000'000'000'000'000};
constexpr int kLargestPower = 18;

constexpr int kPlaces32 = 9;
constexpr std::int32_t kDivisors32[kPlaces32 + 1] = {1,       10,        100,        1'000,       10'000,
                                                     100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};

constexpr double kScale = 1e15;

constexpr std::int64_t floorLog10(std::int64_t value) {
  std::int64_t result = 0;
  for (; value >= 10; value /= 10) {
    ++result;
  }
  return result;
}

std::int64_t powerOfTen(int exponent) { return kPowersOfTen[static_cast<std::size_t>(exponent)]; }

// floor(log10(v)) within 0 to 18. Every power in the table is exact as a double, so comparing needs no tolerance.
int digitCount(double v) {
  detail::check(v >= 0, "v >= 0", kAssertFile, static_cast<unsigned>(__LINE__));
  int digits = 0;
  while (digits < kLargestPower && v >= static_cast<double>(powerOfTen(digits + 1))) {
    ++digits;
  }
  return digits;
}

// Beyond the range of the result, and for a NaN: the result of the x86-64 conversion, on every platform.
std::int64_t truncate(double v) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  return v > -kLimit && v < kLimit ? static_cast<std::int64_t>(v) : std::numeric_limits<std::int64_t>::min();
}

double magnitude(std::int64_t value) { return std::fabs(static_cast<double>(value)); }

// Rounds a fraction to a multiple of `unit`. The floor makes it half up: an exact half of a negative fraction goes
// toward zero. The sign is that of the truncated multiple, so a negative fraction below one unit counts as positive.
// Callers rely on both.
std::int64_t roundToMultiple(std::int64_t fraction, std::int64_t unit) {
  const double unitAsDouble = static_cast<double>(unit);
  const double rest = static_cast<double>(fraction % unit);
  const bool isRoundedAway = std::floor((unitAsDouble * 0.5 + rest) / unitAsDouble) != 0.0;
  const std::int64_t adjustment = isRoundedAway ? unit : 0;
  const std::int64_t multiple = fraction / unit * unit;
  return multiple >= 0 ? multiple + adjustment : multiple - adjustment;
}

std::int64_t withoutTrailingZeros(std::int64_t value) {
  for (const std::int64_t step : {1000, 100, 10}) {
    while (value != 0 && value % step == 0) {
      value /= step;
    }
  }
  return value;
}

int noFraction(std::int64_t& num, std::int64_t& den) {
  num = 0;
  den = 10;
  return 1;
}

}  // namespace

constexpr std::int64_t base_double_places = floorLog10(1'000'000'000'000'000);

int frac_double(double v, std::int64_t& whole, std::int64_t& num, std::int64_t& den) {
  whole = truncate(v);
  const std::int64_t fraction = truncate((v - static_cast<double>(whole)) * kScale);
  const double wholeMagnitude = magnitude(whole);
  if (wholeMagnitude >= kScale || fraction == 0) {
    return noFraction(num, den);
  }

  // The unit of the last kept place: one power of ten for each digit of the whole part.
  const std::int64_t unit = powerOfTen(digitCount(wholeMagnitude) + 1);
  const std::int64_t rounded = roundToMultiple(fraction, unit);
  num = withoutTrailingZeros(rounded);
  const int places =
      digitCount(magnitude(num)) + (static_cast<int>(base_double_places) - digitCount(magnitude(rounded)));
  den = powerOfTen(places);

  if (places == 0) {  // rounded to 1 or -1, the only ones without a place
    whole += num >= 1 ? 1 : -1;
    return noFraction(num, den);
  }
  return places;
}

int frac_double(double v, int& whole, int& num, int& den) {
  std::int64_t w = 0;
  std::int64_t n = 0;
  std::int64_t d = 0;
  int ret = frac_double(v, w, n, d);
  if (w < INT_MIN || w > INT_MAX) {
    return -1;
  }
  detail::check(ret <= base_double_places, "ret <= base_double_places", kAssertFile, static_cast<unsigned>(__LINE__));
  if (ret > kPlaces32) {
    const std::int32_t divisor = kDivisors32[static_cast<std::size_t>(ret - kPlaces32)];
    n /= divisor;
    d /= divisor;
    detail::check((n <= INT_MAX && n >= INT_MIN) && (d <= INT_MAX && d >= INT_MIN),
                  "(n <= INT_MAX && n >= INT_MIN) && (d <= INT_MAX && d >= INT_MIN)", kAssertFile,
                  static_cast<unsigned>(__LINE__));
    ret = kPlaces32;
  }
  whole = static_cast<int>(w);
  num = static_cast<int>(n);
  den = static_cast<int>(d);
  return ret;
}

std::string frac_double_to_string(double v) {
  std::int64_t whole = 0;
  std::int64_t num = 0;
  std::int64_t den = 0;
  const int places = frac_double(v, whole, num, den);
  detail::check(num != std::numeric_limits<std::int64_t>::min(), "num != std::numeric_limits<int64_t>::min()",
                kAssertFile, static_cast<unsigned>(__LINE__));

  char text[64];
  if ((whole < 0 || num < 0) && whole != std::numeric_limits<std::int64_t>::min()) {
    // The sign is written apart: a whole part of 0 cannot carry it.
    static_cast<void>(std::snprintf(text, sizeof text, "-%lld.%0*lld",
                                    static_cast<long long>(whole < 0 ? -whole : whole), places,
                                    static_cast<long long>(num < 0 ? -num : num)));
  } else {
    static_cast<void>(std::snprintf(text, sizeof text, "%lld.%0*lld", static_cast<long long>(whole), places,
                                    static_cast<long long>(num)));
  }
  return text;
}

}  // namespace MD
