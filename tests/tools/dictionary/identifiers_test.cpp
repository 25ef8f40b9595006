// Names of fields as identifiers.
#include "dictionary/identifiers.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace MD::tool;
using namespace std::string_view_literals;

TEST(Identifier, KeepsWhatIsOneAndWritesTheRestInHex) {
  const struct {
    std::string_view name;
    const char* identifier;
  } cases[] = {
      {"BID", "BID"},
      {"bid_2", "bid_2"},
      {"BID_SIZE_1", "BID_SIZE_1"},
      {"BID PRICE", "BID_x20_PRICE"},
      {"BID - PRICE", "BID_x202D20_PRICE"},
      {"BID.", "BID_x2E"},
      {"%CHANGE", "x25_CHANGE"},
      {"_BID", "x5F_BID"},
      {"BID_", "BID_x5F"},
      {"A__B", "A_x5F5F_B"},
      {"A_ B", "A_x5F20_B"},
      {"_", "x5F"},
      {"\xe4\xb9\xb0", "xE4B9B0"},
      {"A\xff"
       "B",
       "A_xFF_B"},
      {"A\0B"sv, "A_x00_B"},
      {"52W_HIGH", "n52W_HIGH"},
      {"1", "n1"},
      {"class", "class_"},
      {"Class", "Class"},
      {"None", "None_"},
      {"restrict", "restrict_"},
      {"xor", "xor_"},
      {"NULL", "NULL_"},
      {"check", "check_"},
      {"std", "std_"},
  };
  for (const auto& [name, identifier] : cases) {
    EXPECT_EQ(identifierOf(name), identifier) << name;
  }
}

TEST(Identifier, IsJudgedWithItsPrefix) {
  EXPECT_EQ(identifierOf("52W", "F_"), "F_52W");
  EXPECT_EQ(identifierOf("class", "F_"), "F_class");
  EXPECT_EQ(identifierOf("ass", "cl"), "class_");
  EXPECT_EQ(identifierOf("_A", "F_"), "F_x5F_A");
}

TEST(Identifier, OfOneMayBeThatOfAnother) {
  EXPECT_EQ(identifierOf("A B"), identifierOf("A_x20_B"));
  EXPECT_NE(identifierOf("class"), identifierOf("class_"));
  EXPECT_NE(identifierOf("A B"), identifierOf("A-B"));
}

TEST(Prefix, BeginsAnIdentifier) {
  for (const char* const prefix : {"F", "F_", "f2_x", "Field_"}) {
    EXPECT_TRUE(isPrefix(prefix)) << prefix;
  }
  for (const char* const prefix : {"", "_F", "2F", "F__", "F__A", "F-", "F ", "\xc3\x84"}) {
    EXPECT_FALSE(isPrefix(prefix)) << prefix;
  }
}

}  // namespace
