// Single values as text.
#include <cmath>
#include <cstring>

#include <charconv>
#include <iterator>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "md/md_fieldmap.h"
#include "text/value_text.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::lineErrorOf;

template <class T>
std::string wholeText(T value) {
  std::string text;
  appendWhole(value, text);
  return text;
}

template <class T>
std::string realText(T value) {
  std::string text;
  appendReal(value, text);
  return text;
}

TEST(WholeNumber, KeepsEveryDigit) {
  EXPECT_EQ(parseWhole<std::int64_t>("-9223372036854775808", "INT64"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(parseWhole<std::uint64_t>("18446744073709551615", "x"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(wholeText(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(wholeText(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(wholeText(std::numeric_limits<std::int32_t>::min()), "-2147483648");
}

TEST(WholeNumber, RefusesWhatIsNotOneOrDoesNotFit) {
  const struct {
    const char* text;
    const char* error;
  } cases[] = {
      {"2147483648", "2147483648 does not fit INT (-2147483648 to 2147483647)"},
      {"-2147483649", "-2147483649 does not fit INT (-2147483648 to 2147483647)"},
      {"99999999999999999999999", "99999999999999999999999 does not fit INT (-2147483648 to 2147483647)"},
      {"1.5", "\"1.5\" is not an integer"},
      {"5 ", "\"5 \" is not an integer"},
      {" 5", "\" 5\" is not an integer"},
      {"+5", "\"+5\" is not an integer"},
      {"5x", "\"5x\" is not an integer"},
      {"0x10", "\"0x10\" is not an integer"},
      {"-", "\"-\" is not an integer"},
      {"", "\"\" is not an integer"},
      {"1e3", "\"1e3\" is not an integer"},
  };
  for (const auto& [text, error] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(lineErrorOf([value = text] { parseWhole<std::int32_t>(value, "INT"); }), error);
  }
  EXPECT_EQ(lineErrorOf([] { parseWhole<std::uint64_t>("-1", "EPOCH_NSEC"); }),
            "-1 does not fit EPOCH_NSEC (0 to 18446744073709551615)");
}

TEST(RealNumber, ShortestTextGivesTheSameValueBack) {
  const struct {
    double value;
    const char* text;
  } cases[] = {
      {0.0, "0"},
      {-0.0, "-0.0"},
      {0.1, "0.1"},
      {101.25, "101.25"},
      {-3.0, "-3"},
      {1e22, "1e+22"},
      {5e-324, "5e-324"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      {0.30000000000000004, "0.30000000000000004"},
  };
  for (const auto& [value, text] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(realText(value), text);
    const auto parsed = parseReal<double>(text);
    EXPECT_EQ(std::memcmp(&parsed, &value, sizeof value), 0);
  }
  EXPECT_EQ(realText(0.1F), "0.1");
  EXPECT_EQ(parseReal<float>("0.1"), 0.1F);
  EXPECT_EQ(realText(16777216.0F), "16777216");
}

TEST(RealNumber, AFloatIsRoundedOnce) {
  // By way of a double, the first of these would land on the tie and go to the even neighbour below.
  EXPECT_EQ(parseReal<float>("1.00000005960464477540"), std::nextafter(1.0F, 2.0F));
  EXPECT_EQ(parseReal<float>("1.000000059604644775390625"), 1.0F);
}

TEST(RealNumber, RefusesWhatIsNotOneOrDoesNotFit) {
  const struct {
    const char* text;
    const char* error;
  } cases[] = {
      {"1e999", "1e999 does not fit DOUBLE: too large, or too close to 0"},
      {"-1e999", "-1e999 does not fit DOUBLE: too large, or too close to 0"},
      {"1e-999", "1e-999 does not fit DOUBLE: too large, or too close to 0"},
      {"1.5x", "\"1.5x\" is not a number"},
      {"1.5 ", "\"1.5 \" is not a number"},
      {"1,5", "\"1,5\" is not a number"},
      {"inf", "\"inf\" is not a number"},
      {"-inf", "\"-inf\" is not a number"},
      {"nan", "\"nan\" is not a number"},
      {"0x1p3", "\"0x1p3\" is not a number"},
      {"", "\"\" is not a number"},
      {"-", "\"-\" is not a number"},
      {".", "\".\" is not a number"},
  };
  for (const auto& [text, error] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(lineErrorOf([value = text] { parseRealOrName<double>(value); }), error);
  }
  EXPECT_EQ(lineErrorOf([] { parseReal<float>("1e39"); }), "1e39 does not fit FLOAT: too large, or too close to 0");
}

TEST(RealNumber, NamesStandForWhatHasNoDigits) {
  EXPECT_TRUE(std::isnan(parseRealOrName<double>("NaN")));
  EXPECT_EQ(parseRealOrName<float>("Infinity"), std::numeric_limits<float>::infinity());
  EXPECT_EQ(parseRealOrName<double>("-Infinity"), -std::numeric_limits<double>::infinity());
}

TEST(DateTime, RefusesPartsThatThePackedWordCuts) {
  EXPECT_EQ(makeDateTime(20240115, 93000000, -300), MD::MD_DateTime(20240115, 93000000, -300));
  EXPECT_EQ(lineErrorOf([] { makeDateTime(18991231, 0, 0); }),
            "18991231 is not a date (years 1900 to 2155, months to 15, days to 31)");
  EXPECT_EQ(lineErrorOf([] { makeDateTime(20240132, 0, 0); }),
            "20240132 is not a date (years 1900 to 2155, months to 15, days to 31)");
  EXPECT_EQ(lineErrorOf([] { makeDateTime(20240115, 268435456, 0); }), "268435456 is not a time (0 to 268435455)");
  EXPECT_EQ(lineErrorOf([] { makeDateTime(20240115, -1, 0); }), "-1 is not a time (0 to 268435455)");
}

TEST(TypeCode, KnowsTheTypeNamesThatTheLibraryKnows) {
  constexpr const char* kNames[] = {"RAW",       "CHAR",       "INT",      "SHORT",      "FLOAT", "DOUBLE",
                                    "STRING",    "VECTOR",     "MSG_T",    "DATE",       "TIME",  "FRACTION",
                                    "CHILD_MSG", "FOLDED_INT", "BUFFER",   "OPTI_PRICE", "UINT",  "LONG_INT",
                                    "ULONG_INT", "INT64",      "DATETIME", "EPOCH_NSEC", "15",    "21",
                                    "int",       "Double",     "NOSUCH",   "?"};
  for (const char* const name : kNames) {
    SCOPED_TRACE(name);
    MD::test::loadDictionary(std::string("F 1 ") + name);
    const MD::FIELDS::packed_rec row = MD::MD_FieldMap::instance().packed(1);
    const auto code = typeCode(name);
    EXPECT_EQ(code.has_value(), row.isKnown());
    EXPECT_EQ(code.value_or(0), row.type);
  }
}

TEST(TypeName, IsTheDictionarysOwn) {
  EXPECT_STREQ(typeName(MD::DATATYPES::RAW), "RAW");
  EXPECT_STREQ(typeName(MD::DATATYPES::OPTI_PRICE), "INT");
  EXPECT_STREQ(typeName(MD::DATATYPES::EPOCH_NSEC), "EPOCH_NSEC");
  for (const int code : {15, 21, 23, 255}) {
    EXPECT_STREQ(typeName(static_cast<std::uint8_t>(code)), "?") << code;
  }
}

TEST(RealNumber, IsTheShortestTextWhateverWritesIt) {
  // Prices and sizes, which are written without a search, their neighbours, and any bits.
  std::mt19937_64 random(1);
  const auto expectShortest = [](double value) {
    char text[32];
    ASSERT_EQ(realText(value), std::string(text, std::to_chars(std::begin(text), std::end(text), value).ptr));
  };
  for (int i = 0; i != 20000; ++i) {
    const double price = static_cast<double>(random() % 100'000'000) / std::pow(10, static_cast<int>(random() % 9));
    if (price == 0) {
      continue;
    }
    expectShortest(price);
    expectShortest(-price);
    expectShortest(std::nextafter(price, 1e300));
    expectShortest(std::nextafter(price, -1e300));
    expectShortest(static_cast<double>(1 + random() % 2'000'000));
    double any = 0;
    const std::uint64_t bits = random();
    std::memcpy(&any, &bits, sizeof any);
    if (std::isfinite(any)) {
      expectShortest(any);
    }
  }
}

TEST(RealNumber, OrdinaryNumbersHaveNoExponent) {
  EXPECT_EQ(realText(2683.81), "2683.81");
  EXPECT_EQ(realText(-0.001), "-0.001");
  EXPECT_EQ(realText(0.0001), "1e-04");
  EXPECT_EQ(realText(0.30000000000000004), "0.30000000000000004");
  EXPECT_EQ(realText(99999.0), "99999");
  EXPECT_EQ(realText(100000.0), "1e+05");
  EXPECT_EQ(realText(123456.0), "123456");
  EXPECT_EQ(realText(999999999.999999), "999999999.999999");
  EXPECT_EQ(realText(1e9), "1e+09");
}

}  // namespace
