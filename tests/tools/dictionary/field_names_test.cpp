// Keys of fields.
#include "dictionary/field_names.h"

#include <string>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;

using MD::test::lineErrorOf;

TEST(FieldNames, LeadToTheFieldAndBack) {
  MD::test::loadDictionary(
      "BID 22 DOUBLE\n"
      "TWICE 30 INT\n"
      "TWICE 31 INT\n"
      "77 32 INT\n"
      "CAF\xe9 33 INT\n"
      "A\"B 34 INT\n"
      "RAWLY 35 RAW\n");
  const FieldNames names;
  EXPECT_EQ(names.jsonKey(22), "\"BID\":");
  EXPECT_EQ(names.jsonKey(30), "\"30\":");
  EXPECT_EQ(names.jsonKey(31), "\"TWICE\":");
  EXPECT_EQ(names.jsonKey(32), "\"32\":");
  EXPECT_EQ(names.jsonKey(33), "\"33\":");
  EXPECT_EQ(names.jsonKey(34), "\"A\\\"B\":");
  EXPECT_EQ(names.label(22), "BID");
  EXPECT_EQ(names.label(30), "30");
  EXPECT_EQ(names.label(999), "999");

  EXPECT_EQ(names.find("BID").id, 22);
  EXPECT_EQ(names.find("22").type, MD::DATATYPES::DOUBLE);
  EXPECT_EQ(names.find("TWICE").id, 31);
  EXPECT_EQ(names.find("32").id, 32);
  EXPECT_EQ(lineErrorOf([&] { names.find("77"); }), "77: not in the dictionary test dictionary");
  EXPECT_EQ(lineErrorOf([&] { names.find("65558"); }), "65558: not in the dictionary test dictionary");
  EXPECT_EQ(lineErrorOf([&] { names.find("bid"); }), "bid: not in the dictionary test dictionary");
  EXPECT_EQ(lineErrorOf([&] { names.find(""); }), "\"\": not in the dictionary test dictionary");
  EXPECT_EQ(lineErrorOf([&] { names.find("RAWLY"); }), "RAWLY: values of type RAW are not carried by messages");
}

TEST(FieldNames, AreFoundInAnotherCaseWhereThatIsUnambiguous) {
  MD::test::loadDictionary(
      "BID 22 DOUBLE\n"
      "Ask 23 DOUBLE\n"
      "ASK 24 DOUBLE\n"
      "TWICE 30 INT\n"
      "TWICE 31 INT\n"
      "RAWLY 35 RAW\n");
  const FieldNames names;
  const struct {
    const char* key;
    std::uint16_t id;
  } found[] = {{"BID", 22}, {"bid", 22}, {"Bid", 22}, {"Ask", 23}, {"ASK", 24}, {"twice", 31}, {"24", 24}};
  for (const auto& [key, id] : found) {
    EXPECT_EQ(names.match(key).id, id) << key;
  }
  const struct {
    const char* key;
    const char* error;
  } refused[] = {
      {"ask", "ask: several fields have this name in another case: Ask, ASK"},
      {"rawly", "rawly: values of type RAW are not carried by messages"},
      {"BIDS", "BIDS: not in the dictionary test dictionary; did you mean BID?"},
      {"tiwce", "tiwce: not in the dictionary test dictionary; did you mean TWICE?"},
      {"VOLUME", "VOLUME: not in the dictionary test dictionary"},
      {"25", "25: not in the dictionary test dictionary"},
      {"", "\"\": not in the dictionary test dictionary"},
  };
  for (const auto& [key, error] : refused) {
    EXPECT_EQ(lineErrorOf([&, text = key] { names.match(text); }), error);
  }
  try {
    names.match("--by", "BDI");
    ADD_FAILURE() << "no error";
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), "--by: field BDI: not in the dictionary test dictionary; did you mean BID?");
  }
}

}  // namespace
