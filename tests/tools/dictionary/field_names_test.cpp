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
  EXPECT_EQ(lineErrorOf([&] { names.find("77"); }), "77: the dictionary has no field of this id");
  EXPECT_EQ(lineErrorOf([&] { names.find("65558"); }), "65558: the dictionary has no field of this id");
  EXPECT_EQ(lineErrorOf([&] { names.find("bid"); }), "bid: the dictionary has no field of this name");
  EXPECT_EQ(lineErrorOf([&] { names.find(""); }), "\"\": the dictionary has no field of this name");
  EXPECT_EQ(lineErrorOf([&] { names.find("RAWLY"); }), "RAWLY: values of type RAW are carried by no message");
}

}  // namespace
