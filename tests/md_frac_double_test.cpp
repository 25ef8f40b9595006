#include "md/md_frac_double.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_assert.h"

namespace {

constexpr std::int64_t kInt64Min = std::numeric_limits<std::int64_t>::min();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kTwoTo63 = 9223372036854775808.0;

// Counts failed assertions while it lives. No value may cause one.
class AssertionCounter {
 public:
  AssertionCounter() : m_previous(MD::set_assertion_handler(&count)) { s_count = 0; }
  ~AssertionCounter() { MD::set_assertion_handler(m_previous); }
  AssertionCounter(const AssertionCounter&) = delete;
  AssertionCounter& operator=(const AssertionCounter&) = delete;

  static int failures() { return s_count; }

 private:
  static void count(const char*, const char*, unsigned) { ++s_count; }

  static int s_count;
  MD::AssertionHandler m_previous;
};

int AssertionCounter::s_count = 0;

struct FractionCase {
  const char* name;
  double value;
  std::int64_t whole;
  std::int64_t num;
  std::int64_t den;
  int places;
  const char* text;
};

const FractionCase kFractionCases[] = {
    {"TwoPlaces", 1.25, 1, 25, 100, 2, "1.25"},
    {"NegativeTwoPlaces", -1.25, -1, -25, 100, 2, "-1.25"},
    {"WholeNumber", 3.0, 3, 0, 10, 1, "3.0"},
    {"NegativeWholeNumber", -3.0, -3, 0, 10, 1, "-3.0"},
    {"Zero", 0.0, 0, 0, 10, 1, "0.0"},
    {"NegativeZeroHasNoSign", -0.0, 0, 0, 10, 1, "0.0"},
    {"SignComesFromTheNumerator", -0.5, 0, -5, 10, 1, "-0.5"},
    {"BinaryNoiseIsRoundedAway", 123.456, 123, 456, 1000, 3, "123.456"},
    {"BinaryNoiseOfANegativeValue", -123.456, -123, -456, 1000, 3, "-123.456"},
    {"BinaryNoiseOfASum", 0.1 + 0.2, 0, 3, 10, 1, "0.3"},
    {"FractionIsZeroPadded", 0.05, 0, 5, 100, 2, "0.05"},
    {"NegativeFractionIsZeroPadded", -7.0625, -7, -625, 10000, 4, "-7.0625"},
    {"ZerosInsideTheFractionStay", 1.1000001, 1, 1000001, 10000000, 7, "1.1000001"},
    {"CarryIntoWholePart", 2.999999999999999, 3, 0, 10, 1, "3.0"},
    {"CarryIntoNegativeWholePart", -2.999999999999999, -3, 0, 10, 1, "-3.0"},
    {"CarryFromZero", 0.999999999999999, 1, 0, 10, 1, "1.0"},
    {"CarryFromZeroDownwards", -0.999999999999999, -1, 0, 10, 1, "-1.0"},
    {"CarryToOneMoreDigit", 99999999999999.984375, 100000000000000, 0, 10, 1, "100000000000000.0"},
    {"FourteenPlacesWithAWholePartOfOneDigit", 9.12345678901234, 9, 12345678901234, 100000000000000, 14,
     "9.12345678901234"},
    {"ThirteenPlacesWithTwoDigits", 10.1234567890123, 10, 1234567890123, 10000000000000, 13, "10.1234567890123"},
    {"OnePlaceWithFourteenDigits", 12345678901234.5, 12345678901234, 5, 10, 1, "12345678901234.5"},
    {"HalfRoundsUp", 12345678901234.75, 12345678901234, 8, 10, 1, "12345678901234.8"},
    {"NegativeHalfIsCutOff", -12345678901234.75, -12345678901234, -7, 10, 1, "-12345678901234.7"},
    {"ExactHalfOfAUnit", 5e-15, 0, 1, 100000000000000, 14, "0.00000000000001"},
    {"NegativeExactHalfOfAUnit", -5e-15, 0, 0, 1000000000000000, 15, "0.000000000000000"},
    {"BelowHalfAUnitKeepsAllPlaces", 3e-15, 0, 0, 1000000000000000, 15, "0.000000000000000"},
    {"NegativeBelowHalfAUnit", -3e-15, 0, 0, 1000000000000000, 15, "0.000000000000000"},
    {"BelowTheScaleIsAWholeNumber", 1e-16, 0, 0, 10, 1, "0.0"},
    {"SmallestDouble", 4.9406564584124654e-324, 0, 0, 10, 1, "0.0"},
    {"NegativeBelowOneUnitTurnsPositive", -7e-15, 0, 1, 100000000000000, 14, "0.00000000000001"},
    {"NegativeWholePartWithAPositiveNumerator", -5.000000000000007, -5, 1, 100000000000000, 14, "-5.00000000000001"},
    {"NegativeBelowOneUnitIsCarriedUpwards", -100000000000000.625, -99999999999999, 0, 10, 1, "-99999999999999.0"},
    {"NegativeAboveOneUnitKeepsItsSign", -17e-15, 0, -2, 100000000000000, 14, "-0.00000000000002"},
    {"FifteenDigitsLeaveNoPlace", 123456789012345.25, 123456789012345, 0, 1000000000000000, 15,
     "123456789012345.000000000000000"},
    {"FifteenDigitsRoundUp", 123456789012345.75, 123456789012346, 0, 10, 1, "123456789012346.0"},
    {"FifteenDigitsHalfRoundsUp", 123456789012345.5, 123456789012346, 0, 10, 1, "123456789012346.0"},
    {"NegativeFifteenDigitsHalfIsCutOff", -123456789012345.5, -123456789012345, 0, 1000000000000000, 15,
     "-123456789012345.000000000000000"},
    {"NegativeFifteenDigitsCarryUpwards", -123456789012345.75, -123456789012344, 0, 10, 1, "-123456789012344.0"},
    {"JustBelowTheLastMagnitudeWithPlaces", 999999999999999.0, 999999999999999, 0, 10, 1, "999999999999999.0"},
    {"CarryToSixteenDigits", 999999999999999.875, 1000000000000000, 0, 10, 1, "1000000000000000.0"},
    {"FromSixteenDigitsOnOnlyTheWholePart", 1000000000000000.5, 1000000000000000, 0, 10, 1, "1000000000000000.0"},
    {"NegativeSixteenDigits", -1000000000000000.5, -1000000000000000, 0, 10, 1, "-1000000000000000.0"},
    {"LargestBelowTwoTo63", 9223372036854774784.0, 9223372036854774784, 0, 10, 1, "9223372036854774784.0"},
    {"SmallestAboveMinusTwoTo63", -9223372036854774784.0, -9223372036854774784, 0, 10, 1, "-9223372036854774784.0"},
    {"TwoTo63", kTwoTo63, kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
    {"MinusTwoTo63", -kTwoTo63, kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
    {"BeyondTwoTo63", 1e300, kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
    {"LargestDouble", std::numeric_limits<double>::max(), kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
    {"LowestDouble", std::numeric_limits<double>::lowest(), kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
    {"Infinity", kInfinity, kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
    {"MinusInfinity", -kInfinity, kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
    {"NaN", kNaN, kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
    {"NegativeNaN", -kNaN, kInt64Min, 0, 10, 1, "-9223372036854775808.0"},
};

TEST(FracDouble, SplitsIntoWholePartAndDecimalFraction) {
  const AssertionCounter assertions;
  for (const FractionCase& row : kFractionCases) {
    SCOPED_TRACE(row.name);
    std::int64_t whole = 77;
    std::int64_t num = 77;
    std::int64_t den = 77;
    EXPECT_EQ(row.places, MD::frac_double(row.value, whole, num, den));
    EXPECT_EQ(row.whole, whole);
    EXPECT_EQ(row.num, num);
    EXPECT_EQ(row.den, den);
  }
  EXPECT_EQ(0, assertions.failures());
}

TEST(FracDoubleToString, PrintsTheFraction) {
  const AssertionCounter assertions;
  for (const FractionCase& row : kFractionCases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.text, MD::frac_double_to_string(row.value));
  }
  EXPECT_EQ(0, assertions.failures());
}

struct Fraction32Case {
  const char* name;
  double value;
  int whole;
  int num;
  int den;
  int places;
};

const Fraction32Case kFraction32Cases[] = {
    {"TwoPlaces", 1.25, 1, 25, 100, 2},
    {"WholeNumber", 3.0, 3, 0, 10, 1},
    {"Zero", 0.0, 0, 0, 10, 1},
    {"SignComesFromTheNumerator", -0.5, 0, -5, 10, 1},
    {"BinaryNoiseIsRoundedAway", 123.456, 123, 456, 1000, 3},
    {"CarryIntoWholePart", 2.999999999999999, 3, 0, 10, 1},
    {"NinePlacesAreKept", 0.123456789, 0, 123456789, 1000000000, 9},
    {"TheTenthPlaceIsCutOff", 0.1234567899, 0, 123456789, 1000000000, 9},
    {"TheTenthPlaceOfANegativeValueIsCutOff", -0.1234567899, 0, -123456789, 1000000000, 9},
    {"TwelvePlacesAreCutToNine", 0.123456789012, 0, 123456789, 1000000000, 9},
    {"LargestNumerator", 0.99999999999999, 0, 999999999, 1000000000, 9},
    {"SmallestNumerator", -0.99999999999999, 0, -999999999, 1000000000, 9},
    {"ZerosLeftByTheCutStay", 0.1000000001, 0, 100000000, 1000000000, 9},
    {"PlacesBeyondTheNinthAlone", 0.0000000001117, 0, 0, 1000000000, 9},
    {"NothingLeftAfterRounding", 3e-15, 0, 0, 1000000000, 9},
    {"PositiveOutOfNegativeIsCutOff", -7e-15, 0, 0, 1000000000, 9},
    {"LargestWholePart", 2147483647.0, INT_MAX, 0, 10, 1},
    {"LargestWholePartWithAFraction", 2147483647.25, INT_MAX, 25, 100, 2},
    {"SmallestWholePart", -2147483648.0, INT_MIN, 0, 10, 1},
    {"SmallestWholePartWithAFraction", -2147483648.25, INT_MIN, -25, 100, 2},
};

TEST(FracDouble32, KeepsAtMostNinePlaces) {
  const AssertionCounter assertions;
  for (const Fraction32Case& row : kFraction32Cases) {
    SCOPED_TRACE(row.name);
    int whole = 77;
    int num = 77;
    int den = 77;
    EXPECT_EQ(row.places, MD::frac_double(row.value, whole, num, den));
    EXPECT_EQ(row.whole, whole);
    EXPECT_EQ(row.num, num);
    EXPECT_EQ(row.den, den);
  }
  EXPECT_EQ(0, assertions.failures());
}

struct RefusedCase {
  const char* name;
  double value;
};

const RefusedCase kRefusedCases[] = {
    {"FarAbove", 3000000000.5},
    {"FarBelow", -3000000000.5},
    {"OneAboveTheLargest", 2147483648.0},
    {"OneBelowTheSmallest", -2147483649.0},
    {"CarriedAboveTheLargest", 2147483647.9999998},
    {"CarriedBelowTheSmallest", -2147483648.9999998},
    {"TwoTo63", kTwoTo63},
    {"Infinity", kInfinity},
    {"MinusInfinity", -kInfinity},
    {"NaN", kNaN},
};

TEST(FracDouble32, RefusesAWholePartThatDoesNotFitAndLeavesTheOutputs) {
  const AssertionCounter assertions;
  for (const RefusedCase& row : kRefusedCases) {
    SCOPED_TRACE(row.name);
    int whole = 77;
    int num = 78;
    int den = 79;
    EXPECT_EQ(-1, MD::frac_double(row.value, whole, num, den));
    EXPECT_EQ(77, whole);
    EXPECT_EQ(78, num);
    EXPECT_EQ(79, den);
  }
  EXPECT_EQ(0, assertions.failures());
}

TEST(FracDoubleToString, PrintsPowersOfTenWithOneDecimal) {
  std::string digits = "1";
  for (int exponent = 0; exponent <= 18; ++exponent) {
    SCOPED_TRACE(exponent);
    const double power = std::strtod(digits.c_str(), nullptr);
    EXPECT_EQ(digits + ".0", MD::frac_double_to_string(power));
    EXPECT_EQ("-" + digits + ".0", MD::frac_double_to_string(-power));
    digits += '0';
  }
}

TEST(FracDouble, GivesNegativePowersOfTenTheNumeratorOne) {
  std::int64_t power = 1;
  for (int places = 1; places <= 14; ++places) {
    SCOPED_TRACE(places);
    power *= 10;
    const double value = std::strtod(("1e-" + std::to_string(places)).c_str(), nullptr);
    for (const int sign : {1, -1}) {
      std::int64_t whole = 77;
      std::int64_t num = 77;
      std::int64_t den = 77;
      EXPECT_EQ(places, MD::frac_double(sign * value, whole, num, den));
      EXPECT_EQ(0, whole);
      EXPECT_EQ(sign, num);
      EXPECT_EQ(power, den);
    }
  }
}

TEST(FracDoubleToString, PrintsPricesAsTheyWereQuoted) {
  for (const char* price :
       {"61837.63",         "0.0000001117",    "2682.62", "2682.6",  "0.00001234", "0.4213",
        "1.08457",          "152.345",         "5.0",     "5837.25", "99.921875",  "104.15625",
        "0.015625",         "100000.01",       "68000.1", "0.1",     "0.00000001", "2100000.12345678",
        "123456789.123456", "4503599627370.49"}) {
    SCOPED_TRACE(price);
    const double value = std::strtod(price, nullptr);
    EXPECT_EQ(price, MD::frac_double_to_string(value));
    EXPECT_EQ(std::string("-") + price, MD::frac_double_to_string(-value));
  }
}

TEST(BaseDoublePlaces, IsFifteen) { EXPECT_EQ(15, MD::base_double_places); }

// Another translation unit's static initialiser may use the fractions.
const std::string g_textMadeBeforeMain = MD::frac_double_to_string(0.05);

TEST(BaseDoublePlaces, IsSetBeforeStaticInitialisersRun) { EXPECT_EQ("0.05", g_textMadeBeforeMain); }

// The fraction worked out in decimal digits and exact integers: an independent account of the same rules.
__extension__ using Int128 = __int128;

struct Split {
  Int128 whole = 0;
  Int128 num = 0;
  std::string decimals = "0";
  bool isCarried = false;
  bool isRoundedToNothing = false;
  bool hasTurnedPositive = false;
};

Int128 tenTo(std::size_t exponent) {
  Int128 power = 1;
  for (std::size_t i = 0; i < exponent; ++i) {
    power *= 10;
  }
  return power;
}

std::string digitsOf(Int128 value) {
  std::string digits;
  for (Int128 rest = value < 0 ? -value : value; rest != 0 || digits.empty(); rest /= 10) {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(rest % 10)));
  }
  return digits;
}

Split modelOf(double value) {
  Split split;
  if (!(std::fabs(value) < kTwoTo63)) {
    split.whole = kInt64Min;
    return split;
  }
  const double integral = std::trunc(value);
  split.whole = static_cast<Int128>(integral);
  const std::size_t wholeDigits = digitsOf(split.whole).size();
  if (wholeDigits > 15) {
    return split;
  }
  const Int128 scaled = static_cast<Int128>((value - integral) * 1e15);
  if (scaled == 0) {
    return split;
  }

  const bool isNegative = scaled < 0;
  const Int128 size = isNegative ? -scaled : scaled;
  const Int128 unit = tenTo(wholeDigits);
  const Int128 units = size / unit;
  const Int128 doubledRest = 2 * (size - units * unit);
  const bool isUp = isNegative ? doubledRest > unit : doubledRest >= unit;
  const Int128 rounded = (units + (isUp ? 1 : 0)) * unit;
  const bool showsNegative = isNegative && units != 0;
  split.hasTurnedPositive = isNegative && !showsNegative && rounded != 0;

  if (rounded == tenTo(15)) {
    split.isCarried = true;
    split.whole += showsNegative ? -1 : 1;
    return split;
  }
  // All fifteen places, then without the trailing zeros. Nothing but zeros stays as it is.
  std::string decimals = digitsOf(rounded);
  decimals.insert(0, 15 - decimals.size(), '0');
  split.isRoundedToNothing = rounded == 0;
  if (!split.isRoundedToNothing) {
    decimals.erase(decimals.find_last_not_of('0') + 1);
  }
  split.decimals = decimals;
  for (const char digit : decimals) {
    split.num = split.num * 10 + (digit - '0');
  }
  if (showsNegative) {
    split.num = -split.num;
  }
  return split;
}

std::string textOf(const Split& split) {
  const bool isNegative = split.whole < 0 || split.num < 0;
  return (isNegative ? "-" : "") + digitsOf(split.whole) + "." + split.decimals;
}

// Empty when all three functions agree with the model, else what differs.
std::string differenceFromModel(double value, const Split& model) {
  const auto describe = [](Int128 whole, Int128 num, Int128 den, Int128 places) {
    std::string text;
    for (const Int128 part : {whole, num, den, places}) {
      text += (part < 0 ? " -" : " ") + digitsOf(part);
    }
    return text;
  };

  const Int128 places = static_cast<Int128>(model.decimals.size());
  const std::string expected = describe(model.whole, model.num, tenTo(model.decimals.size()), places);
  std::int64_t whole = 77;
  std::int64_t num = 77;
  std::int64_t den = 77;
  const int result = MD::frac_double(value, whole, num, den);
  const std::string actual = describe(whole, num, den, result);
  if (expected != actual) {
    return "64-bit: expected" + expected + ", got" + actual;
  }

  std::string expected32 = describe(77, 77, 77, -1);
  if (model.whole >= INT_MIN && model.whole <= INT_MAX) {
    const std::size_t places32 = std::min<std::size_t>(model.decimals.size(), 9);
    const Int128 num32 = model.num / tenTo(model.decimals.size() - places32);
    expected32 = describe(model.whole, num32, tenTo(places32), static_cast<Int128>(places32));
  }
  int whole32 = 77;
  int num32 = 77;
  int den32 = 77;
  const int result32 = MD::frac_double(value, whole32, num32, den32);
  const std::string actual32 = describe(whole32, num32, den32, result32);
  if (expected32 != actual32) {
    return "32-bit: expected" + expected32 + ", got" + actual32;
  }

  const std::string text = MD::frac_double_to_string(value);
  return text == textOf(model) ? "" : "text: expected " + textOf(model) + ", got " + text;
}

double signedAtRandom(std::mt19937_64& random, double value) { return random() % 2 == 0 ? value : -value; }

std::int64_t below(std::mt19937_64& random, std::int64_t limit) {
  return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(limit));
}

// Doubles of several kinds, the same on every run and platform.
std::vector<double> randomDoubles(std::size_t countOfEachKind) {
  std::mt19937_64 random(20240115);
  std::vector<double> values;
  for (std::size_t i = 0; i < countOfEachKind; ++i) {
    // Any magnitude from 2^-54 (below the scale) to 2^65 (beyond the whole part).
    const double mantissa = static_cast<double>(below(random, std::int64_t{1} << 53));
    values.push_back(signedAtRandom(random, std::ldexp(mantissa, static_cast<int>(below(random, 119)) - 106)));

    // Prices: a whole part of up to 12 digits and up to 8 decimals.
    const std::int64_t ticks = below(random, std::int64_t{1} << (1 + below(random, 50)));
    values.push_back(signedAtRandom(random, static_cast<double>(ticks) / static_cast<double>(tenTo(random() % 9))));

    // Next to an integer, where the fraction carries or vanishes.
    const std::int64_t whole = below(random, std::int64_t{1} << (1 + below(random, 49)));
    const double step = static_cast<double>(below(random, 40)) - 20.0;
    values.push_back(
        signedAtRandom(random, static_cast<double>(whole) + step * 1e-15 * static_cast<double>(whole + 1)));

    // A few units of 10^-15 alone, around the half of the last kept place.
    values.push_back(signedAtRandom(random, static_cast<double>(below(random, 200)) / 1e15));

    // Eighths and quarters, which are exact: ties with a whole part of 13 to 15 digits.
    values.push_back(signedAtRandom(random, static_cast<double>(below(random, std::int64_t{1} << 53)) / 8.0));

    // Any bit pattern, infinities and NaNs among them.
    const std::uint64_t bits = random();
    double any = 0.0;
    std::memcpy(&any, &bits, sizeof any);
    values.push_back(any);
  }
  return values;
}

TEST(FracDouble, AgreesWithAnExactModelOnRandomDoubles) {
  const AssertionCounter assertions;
  const std::vector<double> values = randomDoubles(35000);
  int carried = 0;
  int roundedToNothing = 0;
  int turnedPositive = 0;
  int differences = 0;
  for (const double value : values) {
    const Split model = modelOf(value);
    carried += model.isCarried ? 1 : 0;
    roundedToNothing += model.isRoundedToNothing ? 1 : 0;
    turnedPositive += model.hasTurnedPositive ? 1 : 0;
    const std::string difference = differenceFromModel(value, model);
    if (!difference.empty()) {
      char exact[64];
      std::snprintf(exact, sizeof exact, "%a (%.17g)", value, value);
      ADD_FAILURE() << exact << ": " << difference;
      ASSERT_LT(++differences, 10) << "further differences are not listed";
    }
  }
  EXPECT_EQ(0, assertions.failures());
  // The rare paths were executed, not only the usual ones.
  EXPECT_GT(carried, 1000);
  EXPECT_GT(roundedToNothing, 1000);
  EXPECT_GT(turnedPositive, 1000);
}

}  // namespace
