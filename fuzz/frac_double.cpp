// Doubles, eight bytes each, as decimal fractions: both forms and the text against a model in exact integers, and the
// text against the double itself.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <limits>
#include <string>

#include "fuzz_input.h"
#include "fuzz_target.h"
#include "md/md_frac_double.h"

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::int64_t kNone = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kScale = 1'000'000'000'000'000;

struct Fraction {
  std::int64_t whole;
  std::int64_t num;
  std::int64_t den;
  int places;
};

/// A finite double as sign * mantissa * 2^exponent.
struct Parts {
  bool isNegative;
  std::uint64_t mantissa;
  int exponent;
};

Parts partsOf(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  const auto exponent = static_cast<int>(bits >> 52 & 0x7ff);
  const std::uint64_t mantissa = bits & ((std::uint64_t{1} << 52) - 1);
  return {bits >> 63 != 0, exponent == 0 ? mantissa : mantissa | std::uint64_t{1} << 52,
          exponent == 0 ? -1074 : exponent - 1075};
}

/// The magnitude of a double's whole part, which is below 2^63.
std::uint64_t wholeMagnitude(const Parts& parts) {
  if (parts.exponent >= 0) {
    return parts.mantissa << parts.exponent;
  }
  return parts.exponent <= -64 ? 0 : parts.mantissa >> -parts.exponent;
}

/// The magnitude of a double's fractional part in units of 10^-15, truncated. The product is first rounded to the 53
/// bits of a double, half to even, as the multiplication of doubles rounds it.
std::int64_t scaledFraction(const Parts& parts) {
  if (parts.exponent >= 0) {
    return 0;
  }
  std::uint64_t mantissa = parts.mantissa;
  if (parts.exponent > -64) {
    mantissa &= (std::uint64_t{1} << -parts.exponent) - 1;
  }
  auto product = static_cast<Wide>(mantissa) * static_cast<Wide>(kScale);
  int exponent = parts.exponent;
  constexpr auto kLimit = static_cast<Wide>(1) << 53;
  int dropped = 0;
  while (product >> dropped >= kLimit) {
    ++dropped;
  }
  if (dropped > 0) {
    const auto rest = product & ((static_cast<Wide>(1) << dropped) - 1);
    const auto half = static_cast<Wide>(1) << (dropped - 1);
    product >>= dropped;
    if (rest > half || (rest == half && (product & 1) != 0)) {
      ++product;
    }
    exponent += dropped;
  }
  if (exponent >= 0) {
    return static_cast<std::int64_t>(product << exponent);
  }
  return exponent <= -64 ? 0 : static_cast<std::int64_t>(product >> -exponent);
}

/// The number of digits less one; 0 for 0.
int digitsBehindFirst(std::int64_t value) {
  int digits = 0;
  for (; value >= 10; value /= 10) {
    ++digits;
  }
  return digits;
}

std::int64_t powerOfTen(int exponent) {
  std::int64_t power = 1;
  for (; exponent > 0; --exponent) {
    power *= 10;
  }
  return power;
}

std::int64_t magnitude(std::int64_t value) { return value < 0 ? -value : value; }

Fraction model(double value) {
  if (!(std::fabs(value) < 9223372036854775808.0)) {
    return {kNone, 0, 10, 1};
  }
  const Parts parts = partsOf(value);
  const auto wholeSize = static_cast<std::int64_t>(wholeMagnitude(parts));
  const std::int64_t whole = parts.isNegative ? -wholeSize : wholeSize;
  const std::int64_t fraction = parts.isNegative ? -scaledFraction(parts) : scaledFraction(parts);
  if (wholeSize >= kScale || fraction == 0) {
    return {whole, 0, 10, 1};
  }
  const std::int64_t unit = powerOfTen(digitsBehindFirst(wholeSize) + 1);
  const std::int64_t rest = fraction % unit;
  const std::int64_t multiple = fraction - rest;
  // Half up; but a negative fraction below one unit counts as positive.
  const bool isRoundedAway = 2 * rest >= unit || 2 * rest < -unit;
  const std::int64_t adjustment = isRoundedAway ? unit : 0;
  const std::int64_t rounded = multiple >= 0 ? multiple + adjustment : multiple - adjustment;
  std::int64_t num = rounded;
  while (num != 0 && num % 10 == 0) {
    num /= 10;
  }
  const int places = digitsBehindFirst(magnitude(num)) + 15 - digitsBehindFirst(magnitude(rounded));
  if (places == 0) {
    return {whole + (num >= 1 ? 1 : -1), 0, 10, 1};
  }
  return {whole, num, powerOfTen(places), places};
}

std::string textOf(const Fraction& fraction) {
  std::string digits = std::to_string(magnitude(fraction.num));
  digits.insert(
      0, static_cast<std::size_t>(fraction.places) - std::min(digits.size(), static_cast<std::size_t>(fraction.places)),
      '0');
  if (fraction.whole == kNone) {
    return std::to_string(kNone) + '.' + digits;
  }
  const bool isNegative = fraction.whole < 0 || fraction.num < 0;
  return (isNegative ? "-" : "") + std::to_string(magnitude(fraction.whole)) + '.' + digits;
}

void check(double value) {
  const Fraction expected = model(value);
  Fraction got{1, 2, 3, 0};
  got.places = MD::frac_double(value, got.whole, got.num, got.den);
  MD_PROPERTY(got.whole == expected.whole && got.num == expected.num && got.den == expected.den &&
                  got.places == expected.places,
              "the fraction is " + textOf(got) + " instead of " + textOf(expected));

  const std::string text = MD::frac_double_to_string(value);
  MD_PROPERTY(text == textOf(expected), "the text is " + text + " instead of " + textOf(expected));
  if (expected.whole != kNone) {
    // Two units of the last kept place, for the fraction whose sign changes, and what doubles of this size cannot
    // represent.
    const double unit =
        std::pow(10.0, digitsBehindFirst(static_cast<std::int64_t>(wholeMagnitude(partsOf(value)))) - 14);
    const double off = std::fabs(std::strtod(text.c_str(), nullptr) - value);
    MD_PROPERTY(off <= 2 * unit + std::fabs(value) * std::numeric_limits<double>::epsilon(),
                "the text is off: " + text);
  }

  int whole = 1;
  int num = 2;
  int den = 3;
  const int places = MD::frac_double(value, whole, num, den);
  constexpr std::int64_t kLimit = std::int64_t{1} << 31;
  if (expected.whole < -kLimit || expected.whole >= kLimit) {
    MD_PROPERTY(places == -1 && whole == 1 && num == 2 && den == 3, "the short form takes " + text);
  } else {
    const std::int64_t cut = powerOfTen(expected.places > 9 ? expected.places - 9 : 0);
    MD_PROPERTY(places == (expected.places > 9 ? 9 : expected.places) && whole == expected.whole &&
                    num == expected.num / cut && den == expected.den / cut,
                "the short form differs for " + text);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MD::fuzz::FuzzInput input(data, size);
  while (!input.isAtEnd()) {
    const std::uint64_t bits = input.word();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    check(value);
  }
  return 0;
}
