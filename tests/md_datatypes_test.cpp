#include "md/md_datatypes.h"

#include <cstdint>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"

// These definitions are a static check: an enumerator of the same name in MD itself would be a redefinition.
namespace MD {
#define MD_NOT_AN_ENUMERATOR(name) inline constexpr const char* name = #name;
MD_NOT_AN_ENUMERATOR(RAW)
MD_NOT_AN_ENUMERATOR(CHAR)
MD_NOT_AN_ENUMERATOR(INT)
MD_NOT_AN_ENUMERATOR(OPTI_PRICE)
MD_NOT_AN_ENUMERATOR(SHORT)
MD_NOT_AN_ENUMERATOR(FLOAT)
MD_NOT_AN_ENUMERATOR(DOUBLE)
MD_NOT_AN_ENUMERATOR(STRING)
MD_NOT_AN_ENUMERATOR(VECTOR)
MD_NOT_AN_ENUMERATOR(MSG_T)
MD_NOT_AN_ENUMERATOR(DATE)
MD_NOT_AN_ENUMERATOR(TIME)
MD_NOT_AN_ENUMERATOR(FRACTION)
MD_NOT_AN_ENUMERATOR(CHILD_MSG)
MD_NOT_AN_ENUMERATOR(FOLDED_INT)
MD_NOT_AN_ENUMERATOR(BUFFER)
MD_NOT_AN_ENUMERATOR(UINT)
MD_NOT_AN_ENUMERATOR(LONG_INT)
MD_NOT_AN_ENUMERATOR(ULONG_INT)
MD_NOT_AN_ENUMERATOR(INT64)
MD_NOT_AN_ENUMERATOR(DATETIME)
MD_NOT_AN_ENUMERATOR(EPOCH_NSEC)
#undef MD_NOT_AN_ENUMERATOR
}  // namespace MD

namespace MD {
namespace {

TEST(DataTypes, HaveTheirFixedCodes) {
  struct Row {
    const char* name;
    std::uint8_t code;
    std::uint8_t expected;
  };
  const Row kRows[] = {
      {"RAW", DATATYPES::RAW, 0},
      {"CHAR", DATATYPES::CHAR, 1},
      {"INT", DATATYPES::INT, 2},
      {"OPTI_PRICE", DATATYPES::OPTI_PRICE, 2},
      {"SHORT", DATATYPES::SHORT, 3},
      {"FLOAT", DATATYPES::FLOAT, 4},
      {"DOUBLE", DATATYPES::DOUBLE, 5},
      {"STRING", DATATYPES::STRING, 6},
      {"VECTOR", DATATYPES::VECTOR, 7},
      {"MSG_T", DATATYPES::MSG_T, 8},
      {"DATE", DATATYPES::DATE, 9},
      {"TIME", DATATYPES::TIME, 10},
      {"FRACTION", DATATYPES::FRACTION, 11},
      {"CHILD_MSG", DATATYPES::CHILD_MSG, 12},
      {"FOLDED_INT", DATATYPES::FOLDED_INT, 13},
      {"BUFFER", DATATYPES::BUFFER, 14},
      {"UINT", DATATYPES::UINT, 16},
      {"LONG_INT", DATATYPES::LONG_INT, 17},
      {"ULONG_INT", DATATYPES::ULONG_INT, 18},
      {"INT64", DATATYPES::INT64, 19},
      {"DATETIME", DATATYPES::DATETIME, 20},
      {"EPOCH_NSEC", DATATYPES::EPOCH_NSEC, 22},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.code, row.expected);
  }
}

TEST(DataTypes, CompareWithAndConvertToOneByteWithoutACast) {
  static_assert(sizeof(DATATYPES::INT64) == 1);
  static_assert(std::is_convertible_v<decltype(DATATYPES::INT64), std::uint8_t>);
  const std::uint8_t code = DATATYPES::INT64;
  EXPECT_EQ(code, 19);
  EXPECT_TRUE(code == DATATYPES::INT64);
  EXPECT_TRUE(DATATYPES::INT64 == code);
  EXPECT_TRUE(code != DATATYPES::INT);
}

// What the table says is what messages say.
TEST(Encodings, AreAllMadeByTheFactoryAndHaveTheirFixedCodesAndNames) {
  const std::vector<std::pair<int, std::string>> expected = {{6, "mInt"}, {1, "IterMap"}, {70, "MsgT"}};
  std::vector<std::pair<int, std::string>> listed;
  for (const auto& [code, name] : ENCODINGS::kAll) {
    listed.emplace_back(code, name);
    const auto message = MD_Message::createFromPB(code);
    ASSERT_NE(message, nullptr) << name;
    EXPECT_EQ(message->getPB(), code);
  }
  EXPECT_EQ(listed, expected);
}

static_assert(ENCODINGS::ITERMAP == 1 && ENCODINGS::MINT == 6 && ENCODINGS::MSGT == 70);
static_assert(sizeof(ENCODINGS::MSGT) == 1 && std::is_convertible_v<ENCODINGS::Code, std::uint8_t>);

TEST(DataTypes, StayInTheirOwnScope) {
  EXPECT_STREQ(MD::INT, "INT");
  EXPECT_STREQ(MD::OPTI_PRICE, "OPTI_PRICE");
  EXPECT_TRUE(MD::DATATYPES::INT == MD::DATATYPES::OPTI_PRICE);
}

}  // namespace
}  // namespace MD
