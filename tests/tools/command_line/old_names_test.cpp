// The names that options had in 1.0.0 work for one more version, and are not shown.
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "tools/run_support.h"

namespace {

using MD::test::Result;
using MD::test::ToolRun;

constexpr const char* kHex = "0614000165\n";  // BID_QTY 101, as mInt
constexpr const char* kJson = "{\"BID_QTY\":101}\n";

struct OldNameCase {
  const char* name;
  const char* command;
  const char* oldOption;
  const char* before;  ///< the arguments with the old name
  const char* now;     ///< the same with the new one
  const char* input;
  const char* output;  ///< a part of it, or of the reports
  int status = 0;
};

constexpr OldNameCase kCases[] = {
    {"EncodeTo", "encode", "--to", "encode --encoding mInt --to u16be", "encode --encoding mInt --format u16be", kJson,
     "\x06"},
    {"EncodeFraming", "encode", "--framing", "encode --encoding mInt --framing=u32le",
     "encode --encoding mInt --format=u32le", kJson, "\x06"},
    {"ConvertTo", "convert", "--to", "convert --to MsgT", "convert --encoding MsgT", kHex, "46"},
    {"ConvertAs", "convert", "--as", "convert --to IterMap --as raw", "convert --encoding IterMap --format raw", kHex,
     "\x01"},
    {"GenerateTo", "generate", "--to", "generate --count 2 --to pcap", "generate --count 2 --format pcap", "",
     "\x4d\x3c\xb2\xa1"},
    {"ReplayTo", "replay", "--to", "replay --to 127.0.0.1", "replay --destination 127.0.0.1", "",
     "\"127.0.0.1\" is not HOST:PORT", 2},
    {"DictConvertTo", "dict convert", "--to", "dict convert --to text field_map.txt",
     "dict convert --format text field_map.txt", "", "BID_QTY                  20  INT"},
    {"DictDeriveTo", "dict derive", "--to", "dict derive --to xml", "dict derive --format xml", "A\n1\n",
     "<Name>A</Name>"},
};

class OldNames : public ToolRun, public testing::WithParamInterface<OldNameCase> {
 protected:
  OldNames() { write("field_map.txt", "BID_QTY 20 INT\nSYMBOL 9 STRING\n"); }
};

TEST_P(OldNames, DoAsTheNewOnesDo) {
  const OldNameCase& row = GetParam();
  const Result now = mdmsg(row.now, row.input);
  EXPECT_EQ(now.status, row.status);
  EXPECT_NE((now.out + now.err).find(row.output), std::string::npos) << now.out << now.err;
  EXPECT_EQ(mdmsg(row.before, row.input), now);
}

TEST_P(OldNames, AreNotShown) {
  const OldNameCase& row = GetParam();
  const std::regex option(std::string(row.oldOption) + "(?![-a-z])");
  const Result help = mdmsg(row.command + std::string(" --help"));
  EXPECT_EQ(help.status, 0);
  EXPECT_FALSE(std::regex_search(help.out, option)) << help.out;
}

INSTANTIATE_TEST_SUITE_P(All, OldNames, testing::ValuesIn(kCases),
                         [](const auto& tested) { return std::string(tested.param.name); });

class OldNamesElsewhere : public ToolRun {};

TEST_F(OldNamesElsewhere, AreInNeitherManualPageNorCompletions) {
  // --framing is a current name of other commands.
  const std::regex option("(--|\\\\-\\\\-|-l )(to|as)(?![-a-z\\\\])");
  for (const char* const form : {"man", "bash", "zsh", "fish"}) {
    SCOPED_TRACE(form);
    const Result shown = mdmsg(std::string("describe ") + form);
    EXPECT_EQ(shown.status, 0);
    EXPECT_FALSE(std::regex_search(shown.out, option));
  }
}

TEST_F(OldNamesElsewhere, AreCheckedAsTheNewOnes) {
  const struct {
    const char* arguments;
    const char* error;
  } cases[] = {
      {"encode --encoding mInt --to yaml", "--format: yaml not in {hex,raw,u16le,u16be,u32le,u32be,pcap}"},
      {"convert --to Morse", "--encoding: Morse not in {mInt,IterMap,MsgT,preferred}"},
      {"convert --to mInt --encoding MsgT", "--encoding: At Most 1 required but received 2"},
      {"replay --to", "--to: 1 required TEXT missing"},
      {"decode --to json", "The following argument was not expected: --to"},
  };
  for (const auto& [arguments, error] : cases) {
    SCOPED_TRACE(arguments);
    EXPECT_EQ(mdmsg(arguments), (Result{"", std::string("mdmsg: ") + error + "\nTry \"mdmsg --help\".\n", 2}));
  }
}

constexpr const char* kNoFields =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Dictionary>\n  <FieldDefinition>\n  "
    "</FieldDefinition>\n</Dictionary>\n";

/// A value that looks like an old name is a value.
TEST_F(OldNamesElsewhere, AreNoNamesWhereAValueIsExpected) {
  EXPECT_EQ(mdmsg("dict derive --format xml -- --to"),
            (Result{kNoFields, "mdmsg: cannot open --to: No such file or directory\n", 2}));
  EXPECT_EQ(mdmsg("dict show --search --to"), (Result{"", "mdmsg: dictionary: no field matches\n", 1}));
}

}  // namespace
