#include "md/md_price_output.h"

#include <cstdint>

#include <iomanip>
#include <ios>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/messages.h"

namespace MD::test {
namespace {

using Report = std::vector<std::string>;
constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kIntMin = std::numeric_limits<std::int32_t>::min();

class PricePrintOut : public testing::TestWithParam<Encoding> {
 protected:
  void SetUp() override {
    loadDictionary(
        "PX_WHOLE 1 INT PX_NUM 2 INT PX_DENOM 3 INT "
        "TICK_WHOLE 4 OPTI_PRICE TICK_NUM 5 OPTI_PRICE TICK_DENOM 6 OPTI_PRICE "
        "LONE_WHOLE 7 INT STRAY_NUM 8 INT STRAY_DENOM 9 INT "
        "DBL_WHOLE 10 DOUBLE DBL_NUM 11 INT DBL_DENOM 12 INT "
        "MIX_WHOLE 13 INT MIX_NUM 14 DOUBLE MIX_DENOM 15 STRING "
        "_WHOLE 16 INT _NUM 17 INT _DENOM 18 INT "
        "A_STEM_LONGER_THAN_22_CHARACTERS_WHOLE 19 INT "
        "px_whole 20 INT PX_WHOLES 21 INT WHOLE 22 INT NUM 23 INT PXDENOM 24 INT "
        "TWICE_WHOLE 25 INT TWICE_NUM 26 INT TWICE_NUM 27 INT "
        "PX_WHOLE_WHOLE 28 INT PX_WHOLE_NUM 29 INT "
        "PAIR_WHOLE 30 INT PAIR_WHOLE 31 INT PAIR_NUM 32 INT PAIR_DENOM 33 INT "
        "CH 40 CHAR QTY 41 INT SEQ 42 INT64 VOLA 43 FLOAT BID 44 DOUBLE SYMBOL 45 STRING BLOB 46 BUFFER "
        "WHEN 47 DATETIME RECV 48 EPOCH_NSEC THE_NAME_IS_22_LETTERS 49 INT HIGH 50000 INT END 65535 INT");
  }

  static std::string priceOf(const MD_Message& message) {
    std::ostringstream out;
    out << PriceOutput(message);
    return out.str();
  }

  static std::string plainOf(const MD_Message& message) {
    std::ostringstream out;
    out << message;
    return out.str();
  }

  std::unique_ptr<MD_Message> messageOf(const std::vector<std::pair<std::uint16_t, std::int32_t>>& fields) const {
    auto message = emptyOf(GetParam());
    for (const auto& [field, value] : fields) {
      EXPECT_TRUE(message->add(field, value)) << field;
    }
    return message;
  }
};

INSTANTIATE_TEST_SUITE_P(Encodings, PricePrintOut, eachEncoding(), nameOfEncoding);

TEST_P(PricePrintOut, PricesStandInOneLine) {
  struct Row {
    const char* name;
    std::vector<std::pair<std::uint16_t, std::int32_t>> fields;
    const char* printOut;
  };
  const Row kRows[] = {
      {"AllThree", {{1, 12}, {2, 34}, {3, 100}}, "PX                     = 12.34\n"},
      {"NoDenominator", {{1, 12}, {2, 34}}, "PX                     = 12.34\n"},
      {"NoNumerator", {{1, 12}, {3, 8}}, "PX                     = 12.0\n"},
      {"WholeOnly", {{1, 12}}, "PX                     = 12.0\n"},
      {"Eighths", {{1, 12}, {2, 5}, {3, 8}}, "PX                     = 12.625\n"},
      {"Thirds", {{1, 12}, {2, 1}, {3, 3}}, "PX                     = 12.3333333333333\n"},
      {"NoWholeUnits", {{1, 0}, {2, 5}, {3, 100}}, "PX                     = 0.05\n"},
      {"Nothing", {{1, 0}, {2, 0}, {3, 100}}, "PX                     = 0.0\n"},
      {"NegativeWhole", {{1, -12}, {2, 34}, {3, 100}}, "PX                     = -11.66\n"},
      {"NegativeNumerator", {{1, 0}, {2, -34}, {3, 100}}, "PX                     = -0.34\n"},
      {"NegativeBoth", {{1, -12}, {2, -34}, {3, 100}}, "PX                     = -12.34\n"},
      {"ZeroDenominator", {{1, 12}, {2, 34}, {3, 0}}, "PX                     = 0.0\n"},
      {"NegativeDenominator", {{1, 12}, {2, 34}, {3, -100}}, "PX                     = 0.0\n"},
      {"DenominatorOfOne", {{1, 12}, {2, 3}, {3, 1}}, "PX                     = 15.0\n"},
      {"TheLargest", {{1, kIntMax}, {2, kIntMax}, {3, 1}}, "PX                     = 4294967294.0\n"},
      {"TheSmallest", {{1, kIntMin}, {2, kIntMin}, {3, 1}}, "PX                     = -4294967296.0\n"},
      {"TheLargestDenominator", {{1, 0}, {2, 1}, {3, kIntMax}}, "PX                     = 0.00000000046566\n"},
      {"ThePriceStandsWhereItsWholePartDoes",
       {{3, 100}, {41, 7}, {2, 34}, {1, 12}, {50000, 8}},
       "QTY                    = 7\n"
       "PX                     = 12.34\n"
       "HIGH                   = 8\n"},
      {"DeclaredAsOptiPrice", {{4, 99}, {5, 1}, {6, 2}}, "TICK                   = 99.5\n"},
      {"SeveralPrices",
       {{1, 12}, {4, 99}, {2, 34}, {5, 1}, {6, 2}, {3, 100}},
       "PX                     = 12.34\n"
       "TICK                   = 99.5\n"},
      {"CompanionsUnknownToTheDictionary", {{7, 12}}, "LONE                   = 12.0\n"},
      {"WithoutItsWholePart",
       {{2, 34}, {3, 100}},
       "PX_NUM                 = 34\n"
       "PX_DENOM               = 100\n"},
      {"WithItsWholePartUnknownToTheDictionary",
       {{8, 34}, {9, 100}},
       "STRAY_NUM              = 34\n"
       "STRAY_DENOM            = 100\n"},
      {"OfAnotherStem",
       {{1, 12}, {5, 34}, {6, 100}},
       "PX                     = 12.0\n"
       "TICK_NUM               = 34\n"
       "TICK_DENOM             = 100\n"},
      {"AnEmptyStem", {{16, 12}, {17, 34}, {18, 1000}}, "                       = 12.034\n"},
      {"ALongStem", {{19, 12}}, "A_STEM_LONGER_THAN_22_CHARACTERS = 12.0\n"},
      {"NamesThatOnlyLookAlike",
       {{20, 1}, {21, 2}, {22, 3}, {23, 4}, {24, 5}},
       "px_whole               = 1\n"
       "PX_WHOLES              = 2\n"
       "WHOLE                  = 3\n"
       "NUM                    = 4\n"
       "PXDENOM                = 5\n"},
      {"OfTwoFieldsOfOneNameThePriceShowsTheHigher",
       {{25, 12}, {26, 34}, {27, 56}},
       "TWICE                  = 12.56\n"
       "TWICE_NUM              = 34\n"},
      {"TheLowerOfThemIsNotThePrices",
       {{25, 12}, {26, 34}},
       "TWICE                  = 12.0\n"
       "TWICE_NUM              = 34\n"},
      {"OfTwoWholePartsOfOneNameTheLowerShowsThePriceToo",
       {{30, 12}, {32, 34}, {33, 100}},
       "PAIR                   = 12.34\n"},
      {"TheHigherOfTwoWholePartsOfOneName", {{32, 34}, {33, 100}, {31, 12}}, "PAIR                   = 12.34\n"},
      {"BothWholePartsOfOneName",
       {{30, 12}, {32, 34}, {31, 56}},
       "PAIR                   = 12.34\n"
       "PAIR                   = 56.34\n"},
      {"OnlyTheLastSuffixCounts",
       {{28, 12}, {29, 34}, {1, 56}},
       "PX_WHOLE               = 12.34\n"
       "PX                     = 56.0\n"},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    CapturedErrors errors;
    const RecordedAssertions assertions;
    const auto message = messageOf(row.fields);
    EXPECT_EQ(priceOf(*message), row.printOut);
    EXPECT_EQ(errors.take(), "");
    EXPECT_EQ(RecordedAssertions::entries(), Report{});
  }
}

// Id 65535 ends the formatted text: a price after it is not printed, so its companions are.
TEST_P(PricePrintOut, APriceBehindTheEndOfIterationIsNotPrinted) {
  EXPECT_EQ(priceOf(*messageOf({{2, 34}, {65535, 7}, {1, 12}, {3, 100}})), "PX_NUM                 = 34\n");
}

TEST_P(PricePrintOut, AnEmptyMessagePrintsNothing) { EXPECT_EQ(priceOf(*emptyOf(GetParam())), ""); }

TEST_P(PricePrintOut, AWholePartThatIsNoIntPrintsPlainlyAndSoDoItsCompanions) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{11}, 34));
  ASSERT_TRUE(message->add(std::uint16_t{10}, 12.5));
  ASSERT_TRUE(message->add(std::uint16_t{12}, 100));
  CapturedErrors errors;
  EXPECT_EQ(priceOf(*message),
            "DBL_NUM                = 34\n"
            "DBL_WHOLE              = 12.5\n"
            "DBL_DENOM              = 100\n");
  EXPECT_EQ(errors.take(), "");
}

TEST_P(PricePrintOut, CompanionsThatAreNoIntsCountAsAbsentAndPrintPlainly) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{13}, 12));
  ASSERT_TRUE(message->add(std::uint16_t{14}, 0.5));
  ASSERT_TRUE(message->add(std::uint16_t{15}, "8"));
  CapturedErrors errors;
  EXPECT_EQ(priceOf(*message),
            "MIX                    = 12.0\n"
            "MIX_NUM                = 0.5\n"
            "MIX_DENOM              = 8\n");
  EXPECT_EQ(errors.take(), "");
}

TEST_P(PricePrintOut, OtherFieldsPrintAsInThePlainLayout) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{40}, 'x'));
  ASSERT_TRUE(message->add(std::uint16_t{41}, -5));
  ASSERT_TRUE(message->add(std::uint16_t{42}, std::numeric_limits<std::int64_t>::min()));
  ASSERT_TRUE(message->add(std::uint16_t{43}, 1.5F));
  ASSERT_TRUE(message->add(std::uint16_t{44}, 123.456));
  ASSERT_TRUE(message->add(std::uint16_t{45}, "IBM"));
  ASSERT_TRUE(message->add(std::uint16_t{46}, bufferOf("bytes")));
  ASSERT_TRUE(message->add(std::uint16_t{47}, MD_DateTime(20240115, 93000000, -300)));
  ASSERT_TRUE(message->add(std::uint16_t{48}, MD_EpochNS(std::numeric_limits<std::uint64_t>::max())));
  ASSERT_TRUE(message->add(std::uint16_t{49}, 1));
  const std::string expected =
      "CH                     = x\n"
      "QTY                    = -5\n"
      "SEQ                    = -9223372036854775808\n"
      "VOLA                   = 1.5\n"
      "BID                    = 123.456\n"
      "SYMBOL                 = IBM\n"
      "BLOB                   = bytes\n"
      "WHEN                   = 20240115 93000000 (-300)\n"
      "RECV                   = 18446744073709551615\n"
      "THE_NAME_IS_22_LETTERS = 1\n";
  EXPECT_EQ(priceOf(*message), expected);
  EXPECT_EQ(plainOf(*message), expected);
}

TEST_P(PricePrintOut, ThePlainLayoutKnowsNoPrices) {
  EXPECT_EQ(plainOf(*messageOf({{1, 12}, {2, 34}, {3, 100}})),
            "PX_WHOLE               = 12\n"
            "PX_NUM                 = 34\n"
            "PX_DENOM               = 100\n");
}

TEST_P(PricePrintOut, FollowsTheMessage) {
  const auto message = messageOf({{1, 12}, {2, 34}});
  const PriceOutput price(*message);
  std::ostringstream out;
  out << price;
  ASSERT_TRUE(message->update(std::uint16_t{2}, 35));
  out << price << PriceOutput(*messageOf({{4, 1}})) << "end";
  EXPECT_EQ(out.str(),
            "PX                     = 12.34\n"
            "PX                     = 12.35\n"
            "TICK                   = 1.0\n"
            "end");
}

// A whole part that is truncated is no int to print: it and its companions print plainly.
TEST_P(PricePrintOut, AWholePartThatCannotBeReadPrintsAsAnEmptyValue) {
  Bytes bytes = bytesOf(*messageOf({{2, 34}, {3, 100}, {1, 100000}}));
  bytes.pop_back();
  const auto message = received(bytes);
  ASSERT_EQ(idsOf(*message), (Ids{2, 3, 1}));
  CapturedErrors errors;
  const RecordedAssertions assertions;
  EXPECT_EQ(priceOf(*message),
            "PX_NUM                 = 34\n"
            "PX_DENOM               = 100\n"
            "PX_WHOLE               = <VARIANT>\n");
  EXPECT_EQ(RecordedAssertions::entries().size(), 1U);  // the iterator's
}

// What to_string() makes of any bytes: nothing is asserted or reported, each id comes once.
TEST_P(PricePrintOut, ReadyForAnyBytes) {
  Bytes bytes = bytesOf(*messageOf({{1, 12}, {2, 5}, {3, 8}, {4, 1}, {41, 255}}));
  const Bytes once = bytesOf(*messageOf({{41, 7}, {1, 13}}));
  bytes.insert(bytes.end(), once.begin() + emptyOf(GetParam())->getSizeImpl(), once.end());
  CapturedErrors errors;
  const RecordedAssertions assertions;
  EXPECT_EQ(to_string(PriceOutput(*received(bytes))),
            "TICK                   = 1.0\n"
            "QTY                    = 7 <the last of 2 records>\n"
            "PX                     = 13.625 <the last of 2 records>\n");
  bytes.pop_back();
  const std::string text = to_string(PriceOutput(*received(bytes)));
  EXPECT_EQ(text.find("PX_NUM                 = 5\nPX_DENOM               = 8\n"), 0U) << text;
  EXPECT_NE(text.find("\nPX_WHOLE               = <truncated: "), text.npos) << text;
  EXPECT_EQ(errors.take(), "");
  EXPECT_TRUE(RecordedAssertions::entries().empty());
}

TEST_P(PricePrintOut, StreamsComeBackAsTheyWere) {
  const auto message = messageOf({{1, 12}, {2, 34}, {3, 100}, {41, 255}});
  std::ostringstream out;
  out << std::hex << std::showbase << std::uppercase << std::right << std::showpos << std::setfill('*')
      << std::setprecision(3) << std::setw(30);
  const std::ios_base::fmtflags flags = out.flags();
  out << PriceOutput(*message);
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
  EXPECT_EQ(out.precision(), 3);
  // The caller's width and fill pad nothing, and prices are texts; other numbers follow the stream.
  EXPECT_EQ(out.str(),
            "PX                     = 12.34\n"
            "QTY                    = 0XFF\n");

  out.str({});
  out << std::setw(30) << *message;
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
  EXPECT_EQ(out.str(),
            "PX_WHOLE               = 0XC\n"
            "PX_NUM                 = 0X22\n"
            "PX_DENOM               = 0X64\n"
            "QTY                    = 0XFF\n");

  out.str({});
  out << std::setw(30) << PriceOutput(*emptyOf(GetParam()));
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
  EXPECT_EQ(out.str(), "");
}
}  // namespace
}  // namespace MD::test
