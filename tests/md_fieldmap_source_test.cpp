// Where the dictionary came from, and what a load did not take over.
#include <cstdint>

#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_fieldmap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"

namespace MD {
namespace {

using test::ConfigurationFolder;
using test::xmlDefinitions;
using test::xmlEntry;

const MD_FieldMap& map() { return MD_FieldMap::instance(); }

template <class Operation>
std::string errorOf(Operation operation) {
  try {
    operation();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "(no exception)";
}

std::string requireError(const char* name) {
  return errorOf([&] { static_cast<void>(require(name)); });
}

TEST(FieldMapSource, NamesWhatWasLoadedLast) {
  const ConfigurationFolder folder;
  ConfigurationFolder::write("field_map.txt", "BID 22 DOUBLE\n");
  ConfigurationFolder::write("fields.xml", xmlDefinitions(xmlEntry("ASK", "25", "DOUBLE")));
  MD_FieldMap::reload("");
  EXPECT_EQ(map().source(), "./field_map.txt");
  MD_FieldMap::reload_xml("fields.xml");
  EXPECT_EQ(map().source(), "fields.xml");
  std::istringstream text("BID 22 DOUBLE");
  MD_FieldMap::reload_text(text, "fields of a test");
  EXPECT_EQ(map().source(), "fields of a test");
  // A name that goes with the rows, and one that is the source itself.
  MD_FieldMap::loadText("A 1 INT", map().source());
  EXPECT_EQ(map().source(), "fields of a test");

  EXPECT_THROW(MD_FieldMap::reload_text("none.txt"), std::runtime_error);
  EXPECT_EQ(map().source(), "");
  MD_FieldMap::loadTextFile("field_map.txt");
  EXPECT_EQ(map().source(), "field_map.txt");
  MD_FieldMap::reload_xml("");
  EXPECT_EQ(map().source(), "");
  ConfigurationFolder::remove("field_map.txt");
  MD_FieldMap::reload("");
  EXPECT_EQ(map().source(), "");
}

TEST(FieldLookUp, AnswersUnknownNamesWithoutAnException) {
  MD_FieldMap::loadText("BID 22 DOUBLE  LOW 5 INT  LOW 9 INT");
  EXPECT_EQ(lookUp("BID"), std::optional<std::uint16_t>(22));
  EXPECT_EQ(lookUp(std::string("BIDS").substr(0, 3)), std::optional<std::uint16_t>(22));
  EXPECT_EQ(lookUp("LOW"), std::optional<std::uint16_t>(9));
  EXPECT_EQ(lookUp("bid"), std::nullopt);
  EXPECT_EQ(lookUp(""), std::nullopt);
  EXPECT_EQ(map().lookUp("BID"), std::optional<std::uint16_t>(22));
  EXPECT_EQ(require("LOW"), 9);
}

TEST(FieldRequire, NamesFieldAndDictionary) {
  const ConfigurationFolder folder;
  MD_FieldMap::loadText("BID 22 DOUBLE", "fields of a test");
  EXPECT_EQ(requireError("BIDS"), "no field \"BIDS\" in the dictionary fields of a test (1 fields)");
  EXPECT_EQ(requireError("A\x1b\n"), "no field \"A\\x1b\\x0a\" in the dictionary fields of a test (1 fields)");
  EXPECT_THROW(static_cast<void>(require("BIDS")), std::domain_error);
  MD_FieldMap::loadText("# nothing", "a test");
  EXPECT_EQ(requireError("BID"), "no field \"BID\": the dictionary a test has no fields");
}

TEST(FieldRequire, NamesTheFoldersWhereNoDictionaryWasFound) {
  const ConfigurationFolder folder;
  MD_FieldMap::reload("");
  EXPECT_EQ(requireError("BID"),
            "no field \"BID\": no dictionary is loaded; field_map.txt, message/field_map.txt and FieldDefinition.xml "
            "are searched in . (CONFIG_PATH)");
#ifndef _WIN32  // where the program's folder is searched as well
  ConfigurationFolder::unsetSearchPath();
  EXPECT_EQ(requireError("BID"),
            "no field \"BID\": no dictionary is loaded; field_map.txt, message/field_map.txt and FieldDefinition.xml "
            "are searched in ./etc:.:/home/kvx/config/KVXconfig:./config_latest:./Config:./cfg (CONFIG_PATH is not "
            "set)");
#endif
}

struct ReportCase {
  const char* name;
  const char* text;
  std::size_t fieldCount;
  const char* report;
};

TEST(LoadReports, ListSkippedEntriesWithLineAndReason) {
  const ReportCase kCases[] = {
      {"Clean", "A 1 INT\nB 2 DOUBLE\n", 2, ""},
      {"Empty", "", 0, ""},
      {"OnlyBlanks", " \n\t\n", 0, ""},
      {"CompleteLastEntryWithoutLineEnd", "A 1 INT\nB 2 DOUBLE", 2, ""},
      {"UnknownType", "A 1 INT\nB 2 double\nC 3 CHAR\n", 2, "t:2: field B: \"double\" is not a type; skipped\n"},
      {"RepeatedId", "A 1 INT\n\nB 1 INT\n", 1, "t:3: field B: id 1 is used in line 1; skipped\n"},
      {"UnknownTypeDoesNotTakeTheId", "A 1 int\nB 1 INT\n", 1, "t:1: field A: \"int\" is not a type; skipped\n"},
      {"NoNumber", "A 1 INT\nB x INT\nC 3 INT\n", 1,
       "t:2: field B: the name is not followed by an id from 0 to 65535; nothing after it is read; skipped\n"},
      {"TooLarge", "A 65536 INT\n", 0,
       "t:1: field A: the name is not followed by an id from 0 to 65535; nothing after it is read; skipped\n"},
      {"NameAlone", "A 1 INT\nB", 1,
       "t:2: field B: the name is not followed by an id from 0 to 65535; nothing after it is read; skipped\n"},
      {"NoType", "A 1 INT\nB 2\n", 1, "t:2: field B: the text ends before the type; skipped\n"},
      {"DigitsThenLetters", "A 12abc 3 INT\n", 0,
       "t:1: field A: \"abc\" is not a type; skipped\n"
       "t:1: field 3: the name is not followed by an id from 0 to 65535; nothing after it is read; skipped\n"},
      {"Comment", "A 1 INT\n# the bid\nB 2 INT\n", 1,
       "t:2: field #: the name is not followed by an id from 0 to 65535; nothing after it is read (a line that begins "
       "with # is not a comment); skipped\n"},
      {"EntryThatWasToBeAComment", "A 1 INT\n#B 2 INT\n", 2,
       "t:2: field #B: a line that begins with # is not a comment\n"},
      {"EntryOverSeveralLines", "A 1 INT B\n2\nint\nC 3 INT", 2, "t:1: field B: \"int\" is not a type; skipped\n"},
      {"Hostile", "A\x1b 1 I\x1b\n", 0, "t:1: field A\\x1b: \"I\\x1b\" is not a type; skipped\n"},
  };
  for (const ReportCase& load : kCases) {
    const LoadReport report = MD_FieldMap::loadText(load.text, "t");
    EXPECT_EQ(to_string(report), load.report) << load.name;
    EXPECT_EQ(report.fieldCount, load.fieldCount) << load.name;
    EXPECT_EQ(map().size(), load.fieldCount) << load.name;
    EXPECT_EQ(report.source, "t") << load.name;
    EXPECT_EQ(report.isClean(), *load.report == '\0') << load.name;

    // The same dictionary as without a report.
    const std::uint64_t fingerprint = map().fingerprint();
    const std::uint16_t compactCount = map().compactCount();
    test::loadDictionary(load.text);
    EXPECT_EQ(map().fingerprint(), fingerprint) << load.name;
    EXPECT_EQ(map().compactCount(), compactCount) << load.name;
  }
}

TEST(LoadReports, ListAThousandProblemsAndCountAll) {
  std::string text;
  for (int i = 0; i < 1200; ++i) {
    text += "A " + std::to_string(i) + " int\n";
  }
  const LoadReport report = MD_FieldMap::loadText(text, "t");
  EXPECT_EQ(report.problems.size(), 1000u);
  EXPECT_EQ(report.problems.back().line, 1000u);
  EXPECT_EQ(report.problemCount, 1200u);
  const std::string last = "t: 200 more problems\n";
  const std::string written = to_string(report);
  EXPECT_EQ(written.substr(written.size() - last.size()), last);
}

TEST(LoadReports, AreMadeOfFiles) {
  const ConfigurationFolder folder;
  ConfigurationFolder::write("fields.txt", "A 1 INT\r\nB 2 DUOBLE\r\nC 3 INT\r\n");
  EXPECT_EQ(to_string(MD_FieldMap::loadTextFile("fields.txt")),
            "fields.txt:2: field B: \"DUOBLE\" is not a type; skipped\n");
  EXPECT_EQ(map().size(), 2u);
  EXPECT_EQ(errorOf([] { MD_FieldMap::loadTextFile("none.txt"); }), "Unable to open file: none.txt");
  EXPECT_EQ(map().size(), 0u);
  EXPECT_EQ(errorOf([] { MD_FieldMap::loadTextFile("."); }), "Unable to open file: .");
}

#ifdef __linux__
TEST(LoadReports, SayWhereAFileCannotBeReadAnyFurther) {
  EXPECT_EQ(to_string(MD_FieldMap::loadTextFile("/proc/self/mem")),
            "/proc/self/mem:1: field : the file cannot be read any further; skipped\n");
}
#endif

// A program with fields of its own starts whatever other dictionaries there are.
TEST(LoadedText, IsAFirstUseThatSearchesForNoFile) {
  test::expectInFreshProcess([] {
    const ConfigurationFolder folder;
    ConfigurationFolder::makeFolder("field_map.txt");
    MD_FieldMap::loadText("BID 22 DOUBLE");
    EXPECT_EQ(map().size(), 1u);
    EXPECT_EQ(require("BID"), 22);
    mInt message;
    EXPECT_TRUE(message.add(22, 1.5));
  });
}

struct FingerprintCase {
  const char* name;
  const char* text;
  std::uint64_t fingerprint;
};

TEST(Fingerprint, IsTheDocumentedHash) {
  const FingerprintCase kCases[] = {
      {"Empty", "", 0xcbf29ce484222325},
      {"One", "BID 22 DOUBLE", 0x971b738f62ef1d94},
      {"Three", "BID 22 DOUBLE SYMBOL 60 STRING QTY 300 INT", 0xba187ebc82721e10},
      {"AnotherOrder", "QTY 300 INT BID 22 DOUBLE SYMBOL 60 STRING", 0xba187ebc82721e10},
      {"OtherNameOfTheType", "QTY 300 OPTI_PRICE BID 22 DOUBLE SYMBOL 60 STRING", 0xba187ebc82721e10},
      {"LaterEntryOfAnId", "QTY 300 INT BID 22 DOUBLE SYMBOL 60 STRING X 22 INT", 0xba187ebc82721e10},
  };
  for (const FingerprintCase& dictionary : kCases) {
    MD_FieldMap::loadText(dictionary.text);
    EXPECT_EQ(map().fingerprint(), dictionary.fingerprint) << dictionary.name;
  }
  std::istringstream xml(xmlDefinitions(xmlEntry("SYMBOL", "60", "STRING") + xmlEntry("QTY", "300", "INT") +
                                        xmlEntry("BID", "22", "DOUBLE")));
  MD_FieldMap::reload_xml(xml, "XML");
  EXPECT_EQ(map().fingerprint(), 0xba187ebc82721e10);
}

TEST(Fingerprint, ChangesWithEachIdTypeAndName) {
  MD_FieldMap::loadText("BID 22 DOUBLE A 23 INT");
  const std::uint64_t before = map().fingerprint();
  for (const char* other : {"BID 21 DOUBLE A 23 INT", "BID 278 DOUBLE A 23 INT", "BID 22 FLOAT A 23 INT",
                            "BIE 22 DOUBLE A 23 INT", "BID 22 DOUBLE", "A 22 DOUBLE BID 23 INT", "BIDA 22 DOUBLE"}) {
    MD_FieldMap::loadText(other);
    EXPECT_NE(map().fingerprint(), before) << other;
  }
}

}  // namespace
}  // namespace MD
