// Prices read from their whole part, numerator and denominator.
#include <cmath>
#include <cstdint>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/messages.h"
#include "support/scripted_message.h"

namespace MD::test {
namespace {

class ReadPrice : public testing::TestWithParam<Encoding> {
 protected:
  static constexpr std::uint16_t kWhole = 1, kNum = 2, kDenom = 3;

  void SetUp() override {
    loadDictionary(
        "PX_WHOLE 1 INT PX_NUM 2 INT PX_DENOM 3 OPTI_PRICE DBL 4 DOUBLE TEXT 5 STRING LONG 6 INT64 TEXT2 7 STRING");
  }
};

INSTANTIATE_TEST_SUITE_P(Encodings, ReadPrice, eachEncoding(), nameOfEncoding);

constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kIntMin = std::numeric_limits<std::int32_t>::min();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST_P(ReadPrice, IsWholeAndNumeratorByDenominator) {
  struct Row {
    const char* name;
    std::vector<std::pair<std::uint16_t, std::int32_t>> fields;
    double price;
  };
  const Row kRows[] = {
      {"AllThree", {{kWhole, 12}, {kNum, 5}, {kDenom, 8}}, 12.625},
      {"NoDenominator", {{kWhole, 12}, {kNum, 5}}, 12.05},
      {"NumeratorOnly", {{kNum, 5}}, 0.05},
      {"WholeOnly", {{kWhole, 12}}, 12.0},
      {"DenominatorOnly", {{kDenom, 8}}, 0.0},
      {"WholeAndDenominator", {{kWhole, 12}, {kDenom, 8}}, 12.0},
      {"NumeratorAndDenominator", {{kNum, 5}, {kDenom, 8}}, 0.625},
      {"AllZeroButTheDenominator", {{kWhole, 0}, {kNum, 0}, {kDenom, 1}}, 0.0},
      {"NegativeWhole", {{kWhole, -12}, {kNum, 5}, {kDenom, 8}}, -11.375},
      {"NegativeNumerator", {{kWhole, 12}, {kNum, -5}, {kDenom, 8}}, 11.375},
      {"NegativeDenominator", {{kWhole, 12}, {kNum, 5}, {kDenom, -8}}, 11.375},
      {"NumeratorAboveTheDenominator", {{kWhole, 1}, {kNum, 250}, {kDenom, 100}}, 3.5},
      {"ZeroDenominator", {{kWhole, 12}, {kNum, 5}, {kDenom, 0}}, kInfinity},
      {"ZeroDenominatorNegativeNumerator", {{kWhole, 12}, {kNum, -5}, {kDenom, 0}}, -kInfinity},
      {"ZeroByZero", {{kWhole, 12}, {kNum, 0}, {kDenom, 0}}, kNaN},
      {"ZeroDenominatorNoNumerator", {{kWhole, 12}, {kDenom, 0}}, kNaN},
      {"ZeroDenominatorOnly", {{kDenom, 0}}, kNaN},
      {"NothingWrapsAtTheTop", {{kWhole, kIntMax}, {kNum, kIntMax}, {kDenom, 1}}, 4294967294.0},
      {"NothingWrapsAtTheBottom", {{kWhole, kIntMin}, {kNum, kIntMin}, {kDenom, 1}}, -4294967296.0},
      {"TheSmallestByMinusOne", {{kNum, kIntMin}, {kDenom, -1}}, 2147483648.0},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const auto message = emptyOf(GetParam());
    for (const auto& [field, value] : row.fields) {
      ASSERT_TRUE(message->add(field, value));
    }
    CapturedErrors errors;
    double price = -1.0;
    EXPECT_TRUE(message->getWND(kWhole, kNum, kDenom, price));
    if (std::isnan(row.price)) {
      EXPECT_TRUE(std::isnan(price)) << price;
    } else {
      EXPECT_EQ(price, row.price);
    }
    EXPECT_EQ(errors.take(), "");
  }
}

TEST_P(ReadPrice, FailsQuietlyWithoutAnyOfTheThree) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{4}, 1.5));
  CapturedErrors errors;
  double price = -1.0;
  EXPECT_FALSE(message->getWND(kWhole, kNum, kDenom, price));
  EXPECT_FALSE(message->getWND(999, 50000, 65535, price));  // the dictionary knows none of them
  EXPECT_EQ(price, -1.0);
  EXPECT_EQ(errors.take(), "");
}

/// The report of an int get of a field of another type; an mInt makes none.
std::string getError(const Encoding& encoding, std::uint16_t field, std::uint8_t type, std::size_t size) {
  switch (encoding.code) {
    case ENCODINGS::ITERMAP:
      return report("IterMap Error: Attempting to GET a field of incorrect type OR overflow error", field, type, size);
    case ENCODINGS::MSGT:
      return report("MsgT Error: Attempting to GET a field of incorrect type!", field, type, size);
    default:
      return "";
  }
}

TEST_P(ReadPrice, AFieldOfAnotherTypeCountsAsNotRead) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{4}, 1.5));
  ASSERT_TRUE(message->add(std::uint16_t{5}, "12"));
  ASSERT_TRUE(message->add(std::uint16_t{6}, std::int64_t{7}));
  CapturedErrors errors;
  double price = -1.0;
  EXPECT_FALSE(message->getWND(4, 5, 6, price));
  EXPECT_EQ(price, -1.0);
  // All three are tried, in this order.
  const std::string expected =
      getError(GetParam(), 4, 5, 8) + getError(GetParam(), 5, 6, 3) + getError(GetParam(), 6, 19, 8);
  EXPECT_EQ(errors.take(), expected);

  ASSERT_TRUE(message->add(kWhole, 12));
  EXPECT_TRUE(message->getWND(kWhole, 4, kDenom, price));
  EXPECT_EQ(price, 12.0);
  EXPECT_EQ(errors.take(), getError(GetParam(), 4, 5, 8));

  ASSERT_TRUE(message->add(kNum, 5));
  EXPECT_TRUE(message->getWND(kWhole, kNum, 6, price));
  EXPECT_EQ(price, 12.05);
  EXPECT_EQ(errors.take(), getError(GetParam(), 6, 19, 8));
}

TEST_P(ReadPrice, OneFieldMayServeThreeTimes) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(kWhole, 5));
  double price = -1.0;
  EXPECT_TRUE(message->getWND(kWhole, kWhole, kWhole, price));
  EXPECT_EQ(price, 6.0);
}

TEST(ReadPriceSlots, AllThreeReadsAreMadeInOrder) {
  std::vector<std::string> calls;
  ScriptedMessage message(calls);
  message.m_isReadable = false;
  double price = -1.0;
  EXPECT_FALSE(message.getWND(7, 5, 6, price));
  EXPECT_EQ(price, -1.0);
  EXPECT_EQ(calls, (std::vector<std::string>{"get Int 7", "get Int 5", "get Int 6"}));
}
}  // namespace
}  // namespace MD::test
