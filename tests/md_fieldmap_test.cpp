#include "md/md_fieldmap.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <cstddef>
#include <cstdint>

#include <fstream>
#include <ios>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_file_search.h"
#include "md/md_mint.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/grouping_locale.h"

namespace MD {
namespace {

using test::ConfigurationFolder;
using test::xmlDefinitions;
using test::xmlEntry;

const MD_FieldMap& map() { return MD_FieldMap::instance(); }

/// The rows as "name id type #compact", in the order of their ids.
std::vector<std::string> rows() {
  std::vector<std::string> lines;
  for (const FIELDS::field_rec& row : map()) {
    lines.push_back(row.name + " " + std::to_string(row.id) + " " + std::to_string(row.type) + " #" +
                    std::to_string(row.compact));
  }
  return lines;
}

using Rows = std::vector<std::string>;

/// What `operation` throws as an `Exception`, or what it did instead.
template <class Exception, class Operation>
std::string errorOf(Operation operation) {
  try {
    operation();
  } catch (const Exception& error) {
    return error.what();
  } catch (...) {
    return "(another exception)";
  }
  return "(no exception)";
}

/// Expects that no lookup finds a field by any of these.
void expectUnknown(std::uint16_t id, const std::string& name) {
  EXPECT_TRUE(map().findById(id) == map().end());
  EXPECT_TRUE(map().findByCompact(0) == map().end());
  EXPECT_TRUE(map().findByName(name) == map().end());
  EXPECT_THROW(map().idToType(id), std::domain_error);
  EXPECT_THROW(map().idToName(id), std::domain_error);
  EXPECT_THROW(map().nameToId(name), std::domain_error);
  EXPECT_THROW(map().nameToType(name), std::domain_error);
  EXPECT_FALSE(map().packed(id).isKnown());
}

/// `count` accepted text entries, with the ids from 0 on, again from 0 after 65535.
std::string textEntries(std::uint32_t count) {
  std::string text;
  for (std::uint32_t i = 0; i < count; ++i) {
    text += "F" + std::to_string(i) + " " + std::to_string(i % 65'536) + " INT\n";
  }
  return text;
}

// Each test runs in an empty folder, which is all of the configuration search path.
class FieldMap : public testing::Test {
 protected:
  FieldMap() { test::loadDictionary(test::kDictionary); }

  ConfigurationFolder m_folder;
};

// Lookups ------------------------------------------------------------------------------------------------------------

TEST_F(FieldMap, FindsRowsByIdNameAndCompactNumber) {
  struct Row {
    const char* name;
    std::uint16_t id;
    std::uint8_t type;
    std::uint16_t compact;
  };
  constexpr Row kRows[] = {
      {"CH", 10, 1, 0},     {"QTY", 300, 2, 2},    {"SEQ", 20, 19, 4},    {"VOLA", 40, 4, 6},
      {"BID", 22, 5, 8},    {"SYMBOL", 60, 6, 10}, {"BLOB", 70, 14, 12},  {"WHEN", 80, 20, 14},
      {"RECV", 90, 22, 16}, {"TICK", 100, 2, 18},  {"RAWLY", 201, 0, 20}, {"HIGH", 40000, 2, 22},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const auto found = map().findById(row.id);
    ASSERT_TRUE(found != map().end());
    EXPECT_EQ(found->id, row.id);
    EXPECT_EQ(found->compact, row.compact);
    EXPECT_EQ(found->type, row.type);
    EXPECT_EQ(found->name, row.name);
    EXPECT_TRUE(map().findByName(row.name) == found);
    EXPECT_TRUE(map().findByCompact(row.compact) == found);

    EXPECT_EQ(map().idToType(row.id), row.type);
    EXPECT_EQ(map().idToName(row.id), row.name);
    EXPECT_EQ(map().nameToId(row.name), row.id);
    EXPECT_EQ(map().nameToType(row.name), row.type);
    EXPECT_TRUE(map().packed(row.id).isKnown());
    EXPECT_EQ(map().packed(row.id).type, row.type);
  }
}

TEST_F(FieldMap, FindsNoRowOfAnUnknownId) {
  struct Row {
    const char* name;
    std::uint16_t id;
  };
  constexpr Row kRows[] = {
      {"Zero", 0},
      {"BelowTheLargest", 999},
      {"OneAboveTheLargest", 40001},
      {"LargestOfAll", 65535},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    EXPECT_TRUE(map().findById(row.id) == map().end());
    EXPECT_FALSE(map().packed(row.id).isKnown());
    EXPECT_EQ(errorOf<std::domain_error>([&] { map().idToType(row.id); }),
              "Invalid id passed to MD_FieldMap::idToType()");
    EXPECT_EQ(errorOf<std::domain_error>([&] { map().idToName(row.id); }),
              "Invalid id passed to MD_FieldMap::idToName()");
  }
}

TEST_F(FieldMap, FindsNoRowOfAnUnknownName) {
  for (const char* name : {"", "bid", "BID ", "BI", "NOBODY", "10"}) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(map().findByName(name) == map().end());
    EXPECT_EQ(errorOf<std::domain_error>([&] { map().nameToId(name); }),
              "Invalid id passed to MD_FieldMap::nameToId()");
    EXPECT_EQ(errorOf<std::domain_error>([&] { map().nameToType(name); }),
              "Invalid id passed to MD_FieldMap::nameToType()");
  }
}

TEST_F(FieldMap, FindsNoRowOfACompactNumberThatWasNotHandedOut) {
  ASSERT_EQ(map().compactCount(), 23);
  EXPECT_TRUE(map().findByCompact(22) != map().end());
  EXPECT_TRUE(map().findByCompact(23) == map().end());
  EXPECT_TRUE(map().findByCompact(24) == map().end());
  EXPECT_TRUE(map().findByCompact(65535) == map().end());
}

TEST_F(FieldMap, ListsItsRowsInTheOrderOfTheirIds) {
  test::loadDictionary("C 30 INT\nA 10 CHAR\nB 20 DOUBLE\n");
  EXPECT_EQ(rows(), (Rows{"A 10 1 #1", "B 20 5 #2", "C 30 2 #0"}));
  EXPECT_EQ(map().size(), 3u);
  EXPECT_EQ(std::distance(map().begin(), map().end()), 3);
}

TEST_F(FieldMap, RowsAreOrderedByIdAlone) {
  const FIELDS::field_rec a{5, 9, 9, "z"};
  const FIELDS::field_rec b{6, 0, 0, "a"};
  const FIELDS::field_rec sameId{5, 0, 0, "a"};
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_FALSE(a < sameId);
  EXPECT_FALSE(sameId < a);
}

TEST_F(FieldMap, HoldsTheSmallestAndTheLargestId) {
  test::loadDictionary("LOW 0 INT\nTOP 65535 CHAR\n");
  EXPECT_EQ(map().idToName(0), "LOW");
  EXPECT_EQ(map().idToName(65535), "TOP");
  EXPECT_EQ(map().nameToId("LOW"), 0);
  EXPECT_TRUE(map().findById(65534) == map().end());
  EXPECT_TRUE(map().packed(0).isKnown());
}

TEST_F(FieldMap, TheFirstRowOfAnIdWinsAndALaterOneUsesUpACompactNumber) {
  test::loadDictionary(
      "FIRST 10 INT\n"
      "SECOND 10 DOUBLE\n"
      "NEXT 11 CHAR\n");
  EXPECT_EQ(rows(), (Rows{"FIRST 10 2 #0", "NEXT 11 1 #2"}));
  EXPECT_EQ(map().compactCount(), 3);
  EXPECT_TRUE(map().findByCompact(1) == map().end());
  EXPECT_EQ(map().findByCompact(2)->name, "NEXT");
  EXPECT_TRUE(map().findByCompact(3) == map().end());
  EXPECT_TRUE(map().findByName("SECOND") == map().end());
  EXPECT_EQ(map().idToType(10), DATATYPES::INT);
}

TEST_F(FieldMap, OfTwoRowsWithOneNameTheHigherIdWins) {
  for (const char* text : {"SAME 5 INT\nSAME 9 DOUBLE\n", "SAME 9 DOUBLE\nSAME 5 INT\n"}) {
    SCOPED_TRACE(text);
    test::loadDictionary(text);
    EXPECT_EQ(map().nameToId("SAME"), 9);
    EXPECT_EQ(map().nameToType("SAME"), DATATYPES::DOUBLE);
    EXPECT_EQ(map().idToName(5), "SAME");
    EXPECT_EQ(map().size(), 2u);
  }
}

TEST_F(FieldMap, ClearsItsDataStructures) {
  MD_FieldMap::clear_data_structures(const_cast<MD_FieldMap*>(&map()));
  EXPECT_EQ(map().size(), 0u);
  EXPECT_TRUE(map().begin() == map().end());
  expectUnknown(22, "BID");
  expectUnknown(0, "");
  expectUnknown(40000, "HIGH");
  test::loadDictionary("A 1 INT\n");
  EXPECT_EQ(rows(), (Rows{"A 1 2 #0"}));
}

TEST_F(FieldMap, ClearingNoneDoesNothing) {
  MD_FieldMap::clear_data_structures(nullptr);
  EXPECT_EQ(map().nameToId("BID"), 22);
}

TEST_F(FieldMap, MessagesHaveNoFieldsWhileItIsEmpty) {
  MD_FieldMap::clear_data_structures(const_cast<MD_FieldMap*>(&map()));
  mInt message;
  int value = 7;
  EXPECT_FALSE(message.existsImpl(22));
  EXPECT_FALSE(message.get(22, value));
  EXPECT_EQ(value, 7);
}

// Text files ----------------------------------------------------------------------------------------------------------

struct FormatCase {
  const char* name;
  std::string text;
  Rows rows;
};

void PrintTo(const FormatCase& row, std::ostream* out) { *out << row.name; }

std::string repeated(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

std::string attributes(std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) {
    all += " a" + std::to_string(i) + "='b'";
  }
  return all;
}

std::string nameOfCase(const testing::TestParamInfo<FormatCase>& info) { return info.param.name; }

class TextFormat : public FieldMap, public testing::WithParamInterface<FormatCase> {};

TEST_P(TextFormat, FromAFile) {
  ConfigurationFolder::write("fields.txt", GetParam().text);
  MD_FieldMap::reload_text("fields.txt");
  EXPECT_EQ(rows(), GetParam().rows);
}

TEST_P(TextFormat, FromAStream) {
  std::istringstream stream(GetParam().text);
  MD_FieldMap::reload_text(stream, "a stream");
  EXPECT_EQ(rows(), GetParam().rows);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TextFormat,
    testing::Values(
        FormatCase{"OneLineAnEntry", "A 1 INT\nB 2 DOUBLE\n", {"A 1 2 #0", "B 2 5 #1"}}, FormatCase{"Empty", "", {}},
        FormatCase{"OnlyWhitespace", " \n\t\r\n", {}},
        FormatCase{"AnyWhitespaceSeparates",
                   "\n  A\t1\v INT B\n2\n\nDOUBLE\r\nC 3 CHAR",
                   {"A 1 2 #0", "B 2 5 #1", "C 3 1 #2"}},
        FormatCase{"NoLineEndBehindTheLastEntry", "A 1 INT\nB 2 DOUBLE", {"A 1 2 #0", "B 2 5 #1"}},
        FormatCase{"LastEntryWithoutType", "A 1 INT\nB 2", {"A 1 2 #0"}},
        FormatCase{"LastEntryWithoutTypeButALineEnd", "A 1 INT\nB 2\n", {"A 1 2 #0"}},
        FormatCase{"LastEntryWithoutId", "A 1 INT\nB", {"A 1 2 #0"}},
        FormatCase{
            "UnknownTypeIsSkippedWithoutANumber", "A 1 INT\nB 2 NOSUCHTYPE\nC 3 DOUBLE\n", {"A 1 2 #0", "C 3 5 #1"}},
        FormatCase{"TypesAreCaseSensitive", "A 1 double\nB 2 Int\nC 3 DOUBLE\n", {"C 3 5 #0"}},
        FormatCase{"IdThatIsNotANumberEndsIt", "A 1 INT\nB x INT\nC 3 INT\n", {"A 1 2 #0"}},
        FormatCase{"LargestId", "A 65535 INT\n", {"A 65535 2 #0"}},
        FormatCase{"IdAboveTheLargestEndsIt", "A 1 INT\nB 65536 INT\nC 3 INT\n", {"A 1 2 #0"}},
        FormatCase{"HugeIdEndsIt", "A 1 INT\nB 99999999999999999999999 INT\nC 3 INT\n", {"A 1 2 #0"}},
        FormatCase{"LettersBehindAnIdBeginTheNextToken", "A 12abc B 13INT C 14 INT\n", {"B 13 2 #0", "C 14 2 #1"}},
        FormatCase{"LettersBehindAnIdTakeTheTypesPlace", "A 12abc INT\nB 2 INT\nC 3 INT\n", {}},
        FormatCase{"IdsAreDecimal", "A 010 INT\nB 0x10 INT\n", {"A 10 2 #0"}},
        FormatCase{"NoComments", "# 1 INT\n// 2 CHAR\n", {"# 1 2 #0", "// 2 1 #1"}},
        FormatCase{"PriceIsAnInt", "TICK 100 OPTI_PRICE\n", {"TICK 100 2 #0"}},
        FormatCase{"EveryType",
                   "A 0 RAW B 1 CHAR C 2 INT D 3 SHORT E 4 FLOAT F 5 DOUBLE G 6 STRING H 7 VECTOR I 8 MSG_T J 9 DATE "
                   "K 10 TIME L 11 FRACTION M 12 CHILD_MSG N 13 FOLDED_INT O 14 BUFFER P 15 OPTI_PRICE Q 16 UINT "
                   "R 17 LONG_INT S 18 ULONG_INT T 19 INT64 U 20 DATETIME V 21 EPOCH_NSEC",
                   {"A 0 0 #0",    "B 1 1 #1",    "C 2 2 #2",    "D 3 3 #3",   "E 4 4 #4",    "F 5 5 #5",
                    "G 6 6 #6",    "H 7 7 #7",    "I 8 8 #8",    "J 9 9 #9",   "K 10 10 #10", "L 11 11 #11",
                    "M 12 12 #12", "N 13 13 #13", "O 14 14 #14", "P 15 2 #15", "Q 16 16 #16", "R 17 17 #17",
                    "S 18 18 #18", "T 19 19 #19", "U 20 20 #20", "V 21 22 #21"}}),
    nameOfCase);

TEST_F(FieldMap, ReadsTextFilesAlikeWhateverTheGlobalLocale) {
  ConfigurationFolder::write("fields.txt", "A 12.500 INT\nB 2 INT\n");
  const test::GroupingGlobalLocale global;
  MD_FieldMap::reload_text("fields.txt");
  // The id 12, then ".500" in the type's place, then "INT" as a name without an id.
  EXPECT_EQ(rows(), Rows{});
}

// XML files -----------------------------------------------------------------------------------------------------------

class XmlFormat : public FieldMap, public testing::WithParamInterface<FormatCase> {};

TEST_P(XmlFormat, FromAFile) {
  ConfigurationFolder::write("fields.xml", GetParam().text);
  MD_FieldMap::reload_xml("fields.xml");
  EXPECT_EQ(rows(), GetParam().rows);
}

TEST_P(XmlFormat, FromAStream) {
  std::istringstream stream(GetParam().text);
  MD_FieldMap::reload_xml(stream, "a stream");
  EXPECT_EQ(rows(), GetParam().rows);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, XmlFormat,
    testing::Values(
        FormatCase{"Entries",
                   xmlDefinitions(xmlEntry("A", "1", "INT") + xmlEntry("B", "2", "DOUBLE")),
                   {"A 1 2 #0", "B 2 5 #1"}},
        FormatCase{"NoEntries", xmlDefinitions(""), {}},
        FormatCase{"NoDeclaration",
                   "<Any><FieldDefinition>" + xmlEntry("A", "1", "INT") + "</FieldDefinition></Any>",
                   {"A 1 2 #0"}},
        FormatCase{
            "RootMayHaveTheNameOfTheChild",
            "<FieldDefinition><FieldDefinition>" + xmlEntry("A", "1", "INT") + "</FieldDefinition></FieldDefinition>",
            {"A 1 2 #0"}},
        FormatCase{"EntriesDirectlyBelowTheRootDoNotCount",
                   "<FieldDefinition>" + xmlEntry("A", "1", "INT") + "</FieldDefinition>",
                   {}},
        FormatCase{"OtherChildrenOfTheRootAreIgnored",
                   "<Any><Entries>" + xmlEntry("X", "9", "INT") + "</Entries>" + xmlEntry("Y", "8", "INT") +
                       "<FieldDefinition>" + xmlEntry("A", "1", "INT") + "</FieldDefinition></Any>",
                   {"A 1 2 #0"}},
        FormatCase{"OnlyTheFirstFieldDefinitionCounts",
                   "<Any><FieldDefinition>" + xmlEntry("A", "1", "INT") + "</FieldDefinition><FieldDefinition>" +
                       xmlEntry("B", "2", "INT") + "</FieldDefinition></Any>",
                   {"A 1 2 #0"}},
        FormatCase{"AnEmptyFirstFieldDefinitionCountsToo",
                   "<Any><FieldDefinition/><FieldDefinition>" + xmlEntry("B", "2", "INT") + "</FieldDefinition></Any>",
                   {}},
        FormatCase{"NoFieldDefinition", "<Any><Other/></Any>", {}},
        FormatCase{"OtherChildrenAmongTheEntriesAreIgnored",
                   xmlDefinitions("<Field/>" + xmlEntry("A", "1", "INT") + "<!-- B --><Note>text</Note>" +
                                  xmlEntry("C", "3", "CHAR")),
                   {"A 1 2 #0", "C 3 1 #1"}},
        FormatCase{"PartsInAnyOrder",
                   xmlDefinitions("<Entry><Type>INT</Type><Other>x</Other><Code>1</Code><Name>A</Name></Entry>"),
                   {"A 1 2 #0"}},
        FormatCase{"TheFirstOfEachPartCounts",
                   xmlDefinitions("<Entry><Name>A</Name><Name>B</Name><Code>1</Code><Code>2</Code><Type>INT</Type>"
                                  "<Type>CHAR</Type></Entry>"),
                   {"A 1 2 #0"}},
        FormatCase{"AttributesAreNotUsed",
                   xmlDefinitions("<Entry Name=\"X\" Code=\"9\" Type=\"CHAR\"><Name id=\"3\">A</Name><Code>1</Code>"
                                  "<Type>INT</Type></Entry><Entry Name=\"Y\" Code=\"8\" Type=\"CHAR\"/>"),
                   {"A 1 2 #0"}},
        FormatCase{"UnknownTypeIsSkippedWithoutANumber",
                   xmlDefinitions(xmlEntry("A", "1", "NOSUCHTYPE") + xmlEntry("B", "2", "double") +
                                  xmlEntry("C", "3", "DOUBLE")),
                   {"C 3 5 #0"}},
        FormatCase{"PriceIsAnInt", xmlDefinitions(xmlEntry("TICK", "100", "OPTI_PRICE")), {"TICK 100 2 #0"}},
        FormatCase{"TheFirstRowOfAnIdWinsAndALaterOneUsesUpANumber",
                   xmlDefinitions(xmlEntry("A", "1", "INT") + xmlEntry("B", "1", "CHAR") + xmlEntry("C", "2", "CHAR")),
                   {"A 1 2 #0", "C 2 1 #2"}},
        FormatCase{"CodeStopsAtTheFirstNonDigit", xmlDefinitions(xmlEntry("A", "12abc", "INT")), {"A 12 2 #0"}},
        FormatCase{"CodeIsCutTo16Bits", xmlDefinitions(xmlEntry("A", "70000", "INT")), {"A 4464 2 #0"}},
        FormatCase{"CodeWithoutDigitsIsZero", xmlDefinitions(xmlEntry("A", "abc", "INT")), {"A 0 2 #0"}},
        FormatCase{"CodeBehindWhitespace", xmlDefinitions(xmlEntry("A", "\n  7", "INT")), {"A 7 2 #0"}},
        FormatCase{"CodeIsDecimal",
                   xmlDefinitions(xmlEntry("A", "010", "INT") + xmlEntry("B", "0x10", "INT")),
                   {"B 0 2 #1", "A 10 2 #0"}},
        FormatCase{"NegativeCodeIsCutTo16Bits", xmlDefinitions(xmlEntry("A", "-1", "INT")), {"A 65535 2 #0"}},
        FormatCase{"MissingNameIsSkippedWithoutANumber",
                   xmlDefinitions("<Entry><Code>1</Code><Type>INT</Type></Entry>" + xmlEntry("B", "2", "INT")),
                   {"B 2 2 #0"}},
        FormatCase{"MissingCodeIsSkippedWithoutANumber",
                   xmlDefinitions("<Entry><Name>A</Name><Type>INT</Type></Entry>" + xmlEntry("B", "2", "INT")),
                   {"B 2 2 #0"}},
        FormatCase{"MissingTypeIsSkippedWithoutANumber",
                   xmlDefinitions("<Entry><Name>A</Name><Code>1</Code></Entry>" + xmlEntry("B", "2", "INT")),
                   {"B 2 2 #0"}},
        FormatCase{"EmptyPartsAreSkippedWithoutANumber",
                   xmlDefinitions(xmlEntry("", "1", "INT") + xmlEntry("A", "", "INT") + xmlEntry("A", "1", "") +
                                  "<Entry><Name/><Code>1</Code><Type>INT</Type></Entry>" + "<Entry/>" +
                                  xmlEntry("B", "2", "INT")),
                   {"B 2 2 #0"}},
        FormatCase{"AHundredElementsDeep",
                   xmlDefinitions(repeated(98, "<A>") + repeated(98, "</A>") + xmlEntry("A", "1", "INT")),
                   {"A 1 2 #0"}},
        FormatCase{"AnElementOfAHundredAttributes",
                   xmlDefinitions("<Note" + attributes(100) + "/>" + xmlEntry("A", "1", "INT")),
                   {"A 1 2 #0"}},
        FormatCase{
            "ManyElementsSideBySide",
            xmlDefinitions(repeated(1000, "<Note a=\"/>\" b='>'/><Note c='\">'></Note>") + xmlEntry("A", "1", "INT")),
            {"A 1 2 #0"}},
        FormatCase{"TagsInCommentsAndCharacterData",
                   xmlDefinitions("<!-- " + repeated(1000, "<A>") + " --><Note><![CDATA[" + repeated(1000, "<A>") +
                                  "]]></Note>" + xmlEntry("A", "1", "INT")),
                   {"A 1 2 #0"}},
        FormatCase{
            "NamesMayHoldBlanksAndEntities", xmlDefinitions(xmlEntry("A &amp; B", "1", "INT")), {"A & B 1 2 #0"}}),
    nameOfCase);

// Reloads -------------------------------------------------------------------------------------------------------------

TEST_F(FieldMap, AReloadReplacesEverything) {
  ConfigurationFolder::write("fields.txt", "A 1 INT\nBID 22 CHAR\n");
  ConfigurationFolder::write("fields.xml", xmlDefinitions(xmlEntry("B", "2", "DOUBLE")));
  const MD_FieldMap* const before = &map();

  MD_FieldMap::reload_text("fields.txt");
  EXPECT_EQ(rows(), (Rows{"A 1 2 #0", "BID 22 1 #1"}));
  EXPECT_EQ(map().idToType(22), DATATYPES::CHAR);
  EXPECT_TRUE(map().findByName("ASK") == map().end());
  EXPECT_TRUE(map().findById(40000) == map().end());

  MD_FieldMap::reload_xml("fields.xml");
  EXPECT_EQ(rows(), (Rows{"B 2 5 #0"}));
  EXPECT_TRUE(map().findByName("A") == map().end());
  EXPECT_FALSE(map().packed(1).isKnown());
  EXPECT_EQ(&map(), before);
}

TEST_F(FieldMap, ReloadTakesAPathForAnXmlFileWhateverItsName) {
  ConfigurationFolder::write("fields.txt", xmlDefinitions(xmlEntry("B", "2", "DOUBLE")));
  MD_FieldMap::reload("fields.txt");
  EXPECT_EQ(rows(), (Rows{"B 2 5 #0"}));

  ConfigurationFolder::write("text.xml", "A 1 INT\n");
  EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload("text.xml"); }),
            "Failed to load field def file: text.xml");
}

// The rows, and their names with them, go before the file is read.
TEST_F(FieldMap, TheNameOfARowMayBeThePath) {
  const std::string path = "fields_whose_path_is_the_name_of_a_field_and_is_long";
  const auto loadRowNamedLikeThePath = [&] { test::loadDictionary(path + " 1 INT\n"); };

  ConfigurationFolder::write(path, xmlDefinitions(xmlEntry("B", "2", "DOUBLE")));
  for (const auto reload : {&MD_FieldMap::reload, &MD_FieldMap::reload_xml}) {
    loadRowNamedLikeThePath();
    EXPECT_EQ(errorOf<std::runtime_error>([&] { reload(map().idToName(1)); }), "(no exception)");
    EXPECT_EQ(rows(), (Rows{"B 2 5 #0"}));
  }

  ConfigurationFolder::write(path, "C 3 CHAR\n");
  loadRowNamedLikeThePath();
  EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload_text(map().idToName(1)); }), "(no exception)");
  EXPECT_EQ(rows(), (Rows{"C 3 1 #0"}));

  ConfigurationFolder::remove(path);
  loadRowNamedLikeThePath();
  EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload_text(map().idToName(1)); }),
            "Unable to open file: " + path);

  loadRowNamedLikeThePath();
  std::istringstream tooMany(textEntries(65'536));
  EXPECT_EQ(errorOf<std::runtime_error>([&] { MD_FieldMap::reload_text(tooMany, map().idToName(1)); }),
            "Too many fields (more than 65535) in field def file: " + path);
}

TEST_F(FieldMap, AnEmptyXmlPathLoadsNothingAndReportsNothing) {
  MD_FieldMap::reload_xml("");
  EXPECT_EQ(rows(), Rows{});
  expectUnknown(22, "BID");
}

struct FailureCase {
  const char* name;
  void (*load)();
  const char* error;
};

std::string nameOfFailure(const testing::TestParamInfo<FailureCase>& info) { return info.param.name; }

class FailedReload : public FieldMap, public testing::WithParamInterface<FailureCase> {};

TEST_P(FailedReload, ThrowsAndLeavesEveryFieldUnknown) {
  ConfigurationFolder::makeFolder("folder");
  ConfigurationFolder::write("empty.xml", "");
  ConfigurationFolder::write("cut.xml", "<Any><FieldDefinition>" + xmlEntry("BID", "22", "DOUBLE") + "<Entry><Na");
  ConfigurationFolder::write("unclosed.xml", "<Any><FieldDefinition>" + xmlEntry("BID", "22", "DOUBLE") + "</Any>");

  EXPECT_EQ(errorOf<std::runtime_error>(GetParam().load), GetParam().error);
  EXPECT_EQ(map().size(), 0u);
  expectUnknown(22, "BID");
  expectUnknown(40000, "HIGH");

  test::loadDictionary("A 1 INT\n");
  EXPECT_EQ(rows(), (Rows{"A 1 2 #0"}));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FailedReload,
    testing::Values(
        FailureCase{"MissingTextFile", [] { MD_FieldMap::reload_text("missing.txt"); },
                    "Unable to open file: missing.txt"},
        FailureCase{"EmptyTextPath", [] { MD_FieldMap::reload_text(""); }, "Unable to open file: "},
        FailureCase{"FolderAsTextFile", [] { MD_FieldMap::reload_text("folder"); }, "Unable to open file: folder"},
        FailureCase{"MissingXmlFile", [] { MD_FieldMap::reload_xml("missing.xml"); },
                    "Failed to load field def file: missing.xml"},
        FailureCase{"MissingFile", [] { MD_FieldMap::reload("missing.txt"); },
                    "Failed to load field def file: missing.txt"},
        FailureCase{"FolderAsXmlFile", [] { MD_FieldMap::reload_xml("folder"); },
                    "Failed to load field def file: folder"},
        FailureCase{"FolderAsFile", [] { MD_FieldMap::reload("folder"); }, "Failed to load field def file: folder"},
        FailureCase{"EmptyXmlFile", [] { MD_FieldMap::reload_xml("empty.xml"); },
                    "Failed to load field def file: empty.xml"},
        FailureCase{"XmlFileThatIsCutOff", [] { MD_FieldMap::reload_xml("cut.xml"); },
                    "Failed to load field def file: cut.xml"},
        FailureCase{"XmlFileThatIsNotWellFormed", [] { MD_FieldMap::reload_xml("unclosed.xml"); },
                    "Failed to load field def file: unclosed.xml"}),
    nameOfFailure);

TEST_F(FieldMap, HoldsAsManyEntriesAsThereAreCompactNumbers) {
  test::loadDictionary(textEntries(65'535) + "SKIPPED 1 NOSUCHTYPE\n");
  EXPECT_EQ(map().size(), 65'535u);
  EXPECT_EQ(map().compactCount(), 65'535);
  EXPECT_EQ(map().findById(65'534)->compact, 65'534);
  EXPECT_EQ(map().findByCompact(65'534)->id, 65'534);
  EXPECT_TRUE(map().findByCompact(65'535) == map().end());
  EXPECT_EQ(map().nameToId("F0"), 0);
}

TEST_F(FieldMap, CountsRepeatedIdsTowardsTheLimit) {
  std::string text = "FIRST 7 INT\n";
  for (int i = 0; i < 65'533; ++i) {
    text += "SAME 7 INT\n";
  }
  test::loadDictionary(text + "LAST 8 CHAR\n");
  EXPECT_EQ(rows(), (Rows{"FIRST 7 2 #0", "LAST 8 1 #65534"}));
  EXPECT_THROW(test::loadDictionary(text + "LAST 8 CHAR\nONE_TOO_MANY 9 CHAR\n"), std::runtime_error);
}

TEST_F(FieldMap, RefusesATextFileWithMoreEntriesThanCompactNumbers) {
  ConfigurationFolder::write("too_many.txt", textEntries(65'536));
  const std::string error = errorOf<std::runtime_error>([] { MD_FieldMap::reload_text("too_many.txt"); });
  EXPECT_NE(error.find("too_many.txt"), std::string::npos) << error;
  EXPECT_EQ(map().size(), 65'535u) << "the entries read before stay in the dictionary's rows";
  expectUnknown(0, "F0");
  expectUnknown(65'534, "F65534");
  EXPECT_TRUE(map().findByCompact(65'535) == map().end());

  mInt message;
  int value = 7;
  EXPECT_FALSE(message.get(22, value));

  test::loadDictionary("A 1 INT\n");
  EXPECT_EQ(rows(), (Rows{"A 1 2 #0"}));
}

TEST_F(FieldMap, NamesTheStreamWithMoreEntriesThanCompactNumbers) {
  std::istringstream stream(textEntries(65'536));
  const std::string error = errorOf<std::runtime_error>([&] { MD_FieldMap::reload_text(stream, "fields of the day"); });
  EXPECT_NE(error.find("fields of the day"), std::string::npos) << error;
  expectUnknown(0, "F0");
}

TEST_F(FieldMap, RefusesAnXmlFileWithMoreEntriesThanCompactNumbers) {
  std::string entries;
  for (std::uint32_t i = 0; i < 65'536; ++i) {
    entries += xmlEntry("F", std::to_string(i), "INT");
  }
  ConfigurationFolder::write("too_many.xml", xmlDefinitions(entries));
  const std::string error = errorOf<std::runtime_error>([] { MD_FieldMap::reload_xml("too_many.xml"); });
  EXPECT_NE(error.find("too_many.xml"), std::string::npos) << error;
  expectUnknown(0, "F");
}

// A file may be hostile, and its parser recursive.
TEST_F(FieldMap, RefusesAnXmlFileThatNestsTooDeep) {
  struct Row {
    const char* name;
    std::string text;
  };
  const Row kRows[] = {
      {"OneTooDeep", repeated(101, "<A>") + repeated(101, "</A>")},
      {"OpeningTagsOnly", repeated(1'000'000, "<A>")},
      {"BehindADeclaration", "<?xml version=\"1.0\"?><!DOCTYPE A>" + repeated(200'000, "<A b='/>'>")},
      {"BetweenCommentsAndClosedElements", repeated(200'000, "<!-- --><A><B/><C></C>")},
      // What the parser reads otherwise than it looks: quotes that quote nothing, quoted values that go on.
      {"BetweenQuotesOfNoElement", "<D><1 '>" + repeated(200'000, "<A>") + "'></D>"},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    test::loadDictionary(test::kDictionary);
    ConfigurationFolder::write("deep.xml", row.text);
    const std::string error = errorOf<std::runtime_error>([] { MD_FieldMap::reload_xml("deep.xml"); });
    EXPECT_EQ(error, "Failed to load field def file: deep.xml: elements nested deeper than 100");
    EXPECT_EQ(map().size(), 0u);
    expectUnknown(22, "BID");
  }
}

// The parser may take what follows for the rest of the value or for tags.
TEST_F(FieldMap, RefusesAnXmlFileWithADeclarationThatEndsInsideAValue) {
  struct Row {
    const char* name;
    std::string text;
  };
  const Row kRows[] = {
      {"AtTheEndOfTheFile", "<?xml version=\"1.0"},
      {"AtTheSignThatEndsTags", "<?xml version='1.0>'?><D/>"},
      {"BeforeClosingTags",
       "<D>" + repeated(4'000, repeated(50, "<A>") + "<?xml version=\">" + repeated(50, "</A>") + "\"?>") + "</D>"},
      {"BeforeAComment", "<?XML version= '><!-- '?><D>" + repeated(200'000, "<A>") + "--></D>"},
      {"BeforeACommentBehindAMark",
       "\xEF\xBB\xBF<?xml encoding=\"\" version=\xEF\xBB\xBF\"><!-- \"?><D>" + repeated(200'000, "<A>") + "--></D>"},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    test::loadDictionary(test::kDictionary);
    ConfigurationFolder::write("cut.xml", row.text);
    EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload_xml("cut.xml"); }),
              "Failed to load field def file: cut.xml: an XML declaration that ends inside a quoted value");
    EXPECT_EQ(map().size(), 0u);
    expectUnknown(22, "BID");
  }
}

// The parser takes whatever follows for the rest of a character that is cut: a closing tag, or memory after the end.
TEST_F(FieldMap, ReadsAnXmlFileWithCutCharactersByteByByte) {
  const std::string utf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
  for (const char* name : {"CAF\xC3", "CAF\xE9", "\xF0\x9F", "\xC3\xC3\xA9"}) {
    SCOPED_TRACE(name);
    ConfigurationFolder::write("cut.xml",
                               utf8 + "<D><FieldDefinition>" + xmlEntry(name, "7", "INT") + "</FieldDefinition></D>");
    MD_FieldMap::reload_xml("cut.xml");
    EXPECT_EQ(rows(), (Rows{name + std::string(" 7 2 #0")}));
  }
  ConfigurationFolder::write("cut.xml", utf8 + "<D>" + repeated(200'000, "<A>\xF0</A>") + "</D>");
  MD_FieldMap::reload_xml("cut.xml");
  EXPECT_EQ(rows(), Rows{});
  ConfigurationFolder::write("cut.xml", utf8 + "<D>\xF0");
  EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload_xml("cut.xml"); }),
            "Failed to load field def file: cut.xml");
}

// A mark would have TinyXML read UTF-8, and is passed over by nothing else.
TEST_F(FieldMap, ReadsAnXmlFileWithCutCharactersBehindAByteOrderMark) {
  const std::string mark = "\xEF\xBB\xBF";
  const std::string entry = xmlEntry("CAF\xC3\xA9", "7", "INT");
  const char* const starts[] = {"<!-- caf\xE9 -->", "\r\n<!-- caf\xE9 -->", "<?xml version=\"1.0\"?><!-- caf\xE9 -->",
                                "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!-- caf\xE9 -->"};
  for (const char* start : starts) {
    SCOPED_TRACE(start);
    ConfigurationFolder::write("cut.xml", mark + start + "<D><FieldDefinition>" + entry + "</FieldDefinition></D>");
    EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload_xml("cut.xml"); }), "(no exception)");
    EXPECT_EQ(rows(), (Rows{"CAF\xC3\xA9 7 2 #0"}));
  }
  ConfigurationFolder::write(
      "cut.xml", mark + "<D><FieldDefinition>" + xmlEntry("CAF\xE9", "7", "INT") + "</FieldDefinition></D>");
  EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload_xml("cut.xml"); }), "(no exception)");
  EXPECT_EQ(rows(), (Rows{"CAF\xE9 7 2 #0"}));
  for (const char* malformed : {"\xE9", "<D>\xE9", "<D>\xE9</E>"}) {
    SCOPED_TRACE(malformed);
    ConfigurationFolder::write("cut.xml", mark + malformed);
    EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload_xml("cut.xml"); }),
              "Failed to load field def file: cut.xml");
    EXPECT_EQ(rows(), Rows{});
  }
}

TEST_F(FieldMap, NamesTheXmlStreamThatCannotBeLoaded) {
  const auto errorOfText = [](const std::string& text, std::ios_base::iostate state) {
    std::istringstream stream(text);
    stream.setstate(state);
    return errorOf<std::runtime_error>([&] { MD_FieldMap::reload_xml(stream, "a stream"); });
  };
  const std::string whole = xmlDefinitions(xmlEntry("A", "1", "INT"));
  EXPECT_EQ(errorOfText(whole, std::ios_base::goodbit), "(no exception)");
  EXPECT_EQ(rows(), (Rows{"A 1 2 #0"}));
  EXPECT_EQ(errorOfText(whole, std::ios_base::badbit), "Failed to load field def file: a stream");
  EXPECT_EQ(rows(), Rows{});
  EXPECT_EQ(errorOfText("", std::ios_base::goodbit), "Failed to load field def file: a stream");
  EXPECT_EQ(errorOfText(repeated(101, "<A>"), std::ios_base::goodbit),
            "Failed to load field def file: a stream: elements nested deeper than 100");
  EXPECT_EQ(rows(), Rows{});
}

#if !defined(_WIN32)

// Files that can be read once. Reading them twice, to check and then to parse, would read something else the second
// time, or wait for it.

/// A named pipe, and a thread that writes `text` into it once someone reads.
class Pipe {
 public:
  Pipe(const char* path, const std::string& text) : m_path(path) {
    EXPECT_EQ(mkfifo(path, 0600), 0);
    m_writer = std::thread([this, text] { std::ofstream(m_path, std::ios::binary) << text; });
  }
  ~Pipe() { m_writer.join(); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

 private:
  const char* m_path;
  std::thread m_writer;
};

TEST_F(FieldMap, LoadsPipesThatAreNamed) {
  {
    const Pipe pipe("fields.xml", xmlDefinitions(xmlEntry("A", "1", "INT")));
    MD_FieldMap::reload_xml("fields.xml");
    EXPECT_EQ(rows(), (Rows{"A 1 2 #0"}));
  }
  {
    // What is checked is what is parsed.
    const Pipe pipe("deep.xml", repeated(200'000, "<A>"));
    EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload_xml("deep.xml"); }),
              "Failed to load field def file: deep.xml: elements nested deeper than 100");
  }
  {
    const Pipe pipe("fields.txt", "B 2 DOUBLE\n");
    MD_FieldMap::reload_text("fields.txt");
    EXPECT_EQ(rows(), (Rows{"B 2 5 #0"}));
  }
}

// A pipe on the configuration search path has nobody who writes to it: opening it would wait for ever.
TEST(FieldMapDeathTest, RefusesPipesOnTheSearchPath) {
  test::expectInFreshProcess([] {
    constexpr unsigned kHangsAfterS = 20;
    alarm(kHangsAfterS);
    const ConfigurationFolder folder;
    ASSERT_EQ(mkdir("message", 0700), 0);
    ASSERT_EQ(mkfifo("message/preferred.conf", 0600), 0);
    EXPECT_EQ(MD_Message::createPreferred(false)->getPB(), 70);

    ASSERT_EQ(mkfifo("field_map.txt", 0600), 0);
    EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload(""); }), "Unable to open file: ./field_map.txt");
    ConfigurationFolder::remove("field_map.txt");
    ASSERT_EQ(mkfifo("FieldDefinition.xml", 0600), 0);
    EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload(""); }),
              "Failed to load field def file: ./FieldDefinition.xml");
    // The search itself goes by existence alone.
    EXPECT_EQ(file_search("FieldDefinition.xml", CONFIG_PATH, nullptr, "Korvane"), "./FieldDefinition.xml");
  });
}

#endif

// The default search --------------------------------------------------------------------------------------------------

TEST_F(FieldMap, SearchesTheThreeDefinitionFilesInTheirOrder) {
  ConfigurationFolder::write("field_map.txt", "A 1 INT\n");
  ConfigurationFolder::write("message/field_map.txt", "B 2 CHAR\n");
  ConfigurationFolder::write("FieldDefinition.xml", xmlDefinitions(xmlEntry("C", "3", "DOUBLE")));

  MD_FieldMap::reload("");
  EXPECT_EQ(rows(), (Rows{"A 1 2 #0"}));

  ConfigurationFolder::remove("field_map.txt");
  MD_FieldMap::reload("");
  EXPECT_EQ(rows(), (Rows{"B 2 1 #0"}));

  ConfigurationFolder::remove("message/field_map.txt");
  MD_FieldMap::reload("");
  EXPECT_EQ(rows(), (Rows{"C 3 5 #0"}));

  ConfigurationFolder::remove("FieldDefinition.xml");
  MD_FieldMap::reload("");
  EXPECT_EQ(rows(), Rows{});
  expectUnknown(3, "C");
}

TEST_F(FieldMap, SearchesEveryFolderForOneFileBeforeTheNextFile) {
  ConfigurationFolder::setSearchPath("one:two");
  ConfigurationFolder::write("one/FieldDefinition.xml", xmlDefinitions(xmlEntry("C", "3", "DOUBLE")));
  ConfigurationFolder::write("one/message/field_map.txt", "B 2 CHAR\n");
  ConfigurationFolder::write("two/field_map.txt", "A 1 INT\n");
  MD_FieldMap::reload("");
  EXPECT_EQ(rows(), (Rows{"A 1 2 #0"}));

  ConfigurationFolder::write("one/field_map.txt", "D 4 INT\n");
  MD_FieldMap::reload("");
  EXPECT_EQ(rows(), (Rows{"D 4 2 #0"}));
}

TEST_F(FieldMap, AnEmptyTextFileThatIsFoundEndsTheSearch) {
  ConfigurationFolder::write("field_map.txt", "");
  ConfigurationFolder::write("FieldDefinition.xml", xmlDefinitions(xmlEntry("C", "3", "DOUBLE")));
  MD_FieldMap::reload("");
  EXPECT_EQ(rows(), Rows{});
}

TEST_F(FieldMap, AFoundFileThatCannotBeLoadedIsNamed) {
  ConfigurationFolder::write("FieldDefinition.xml", "<Any>");
  EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload(""); }),
            "Failed to load field def file: ./FieldDefinition.xml");
  expectUnknown(22, "BID");

  ConfigurationFolder::makeFolder("field_map.txt");
  EXPECT_EQ(errorOf<std::runtime_error>([] { MD_FieldMap::reload(""); }), "Unable to open file: ./field_map.txt");
  expectUnknown(22, "BID");
}

}  // namespace
}  // namespace MD
