// Fields that a program was compiled with, compared with the dictionary that it finds.
#include "md/md_field_check.h"

#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "md/md_fieldmap.h"
#include "support/configuration.h"
#include "support/fresh_process.h"

namespace MD {
namespace {

constexpr ExpectedField kFields[] = {
    {"SYMBOL", 1, DATATYPES::STRING},
    {"BID", 22, DATATYPES::DOUBLE},
    {"TICK", 30, DATATYPES::INT},
};

std::string errorOf(const ExpectedField* fields, std::size_t count) {
  try {
    checkFields(fields, count);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

std::string errorWith(const std::string& dictionary) {
  MD_FieldMap::loadText(dictionary, "d.txt");
  return errorOf(kFields, std::size(kFields));
}

TEST(FieldCheck, AcceptsADictionaryWithTheseFieldsAndOthers) {
  EXPECT_EQ(errorWith("TICK 30 OPTI_PRICE  BID 22 DOUBLE  SYMBOL 1 STRING"), "");
  EXPECT_EQ(errorWith("SYMBOL 1 STRING  ASK 2 INT  BID 22 DOUBLE  BID 23 INT  TICK 30 INT"), "");
  EXPECT_EQ(errorOf(kFields, 0), "");
  EXPECT_EQ(errorOf(nullptr, 0), "");
}

TEST(FieldCheck, NamesFieldAndDifference) {
  const struct {
    const char* name;
    const char* dictionary;
    const char* differences;
  } cases[] = {
      {"OtherId", "SYMBOL 1 STRING  BID 23 DOUBLE  TICK 30 INT", "BID: expected id 22 DOUBLE, found id 23 DOUBLE"},
      {"OtherType", "SYMBOL 1 STRING  BID 22 FLOAT  TICK 30 INT", "BID: expected id 22 DOUBLE, found id 22 FLOAT"},
      {"IdOfAnotherName", "SYMBOL 1 STRING  ASK 22 DOUBLE  TICK 30 INT",
       "BID: expected id 22 DOUBLE, found no field of this name"},
      {"Missing", "SYMBOL 1 STRING  TICK 30 INT", "BID: expected id 22 DOUBLE, found no field of this name"},
      {"Several", "SYMBOL 22 STRING  BID 1 CHAR  TICK 30 INT64",
       "SYMBOL: expected id 1 STRING, found id 22 STRING; BID: expected id 22 DOUBLE, found id 1 CHAR; "
       "TICK: expected id 30 INT, found id 30 INT64"},
      {"OtherCase", "SYMBOL 1 STRING  bid 22 DOUBLE  TICK 30 INT",
       "BID: expected id 22 DOUBLE, found no field of this name"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(errorWith(row.dictionary),
              "the dictionary d.txt does not match the fields of this program: " + std::string(row.differences));
  }
}

TEST(FieldCheck, EscapesNamesAndListsTenDifferences) {
  MD_FieldMap::loadText("A 1 INT", "d\n.txt");
  const std::vector<ExpectedField> fields(12, {"A\x1b", 1, 99});
  std::string expected = "the dictionary d\\x0a.txt does not match the fields of this program: ";
  for (int i = 0; i != 10; ++i) {
    expected += "A\\x1b: expected id 1 of type code 99, found no field of this name; ";
  }
  EXPECT_EQ(errorOf(fields.data(), 12), expected + "and 2 more");
  EXPECT_EQ(errorOf(fields.data(), 10), expected.substr(0, expected.size() - 2));
}

TEST(FieldCheck, SaysWhereADictionaryWasLookedFor) {
  const test::ConfigurationFolder folder;
  MD_FieldMap::reload("");
  EXPECT_EQ(errorOf(kFields, 1),
            "no field \"SYMBOL\": no dictionary is loaded; field_map.txt, message/field_map.txt and "
            "FieldDefinition.xml are searched in . (CONFIG_PATH)");
  MD_FieldMap::loadText("", "empty.txt");
  EXPECT_EQ(errorOf(kFields, 1), "no field \"SYMBOL\": the dictionary empty.txt has no fields");
}

TEST(FieldCheck, LoadsTheDictionaryOnFirstUse) {
  test::expectInFreshProcess([] {
    const test::ConfigurationFolder folder;
    test::ConfigurationFolder::write("field_map.txt", "SYMBOL 1 STRING BID 22 INT TICK 30 INT");
    EXPECT_EQ(errorOf(kFields, std::size(kFields)),
              "the dictionary ./field_map.txt does not match the fields of this program: BID: expected id 22 DOUBLE, "
              "found id 22 INT");
  });
}

}  // namespace
}  // namespace MD
