// Diagnostics about the dictionary, unknown fields, and input of another kind.
#include <string>

#include <gtest/gtest.h>

#include "tools/run_support.h"

namespace {

using MD::test::Result;
using MD::test::runTool;
using MD::test::ToolRun;

class ClearWords : public ToolRun {
 protected:
  ClearWords() { write("fields.txt", "BID 22 DOUBLE\nBID_QTY 20 INT\nSYMBOL 9 STRING\nSEQ 11 INT64\n"); }

  static Result withFields(const std::string& arguments, const std::string& input = {}) {
    return mdmsg(arguments + " --dictionary fields.txt", input);
  }

  static std::string repeated(unsigned count, const std::string& text) {
    std::string all;
    for (unsigned i = 0; i != count; ++i) {
      all += text;
    }
    return all;
  }
};

constexpr const char* kQuantity = "0614000165\n";                   // BID_QTY 101, as mInt
constexpr const char* kUnknown = "0614000165e7030105e803010545\n";  // and 999, 1000 and a lone byte

TEST_F(ClearWords, VerboseRunsTellTheDictionary) {
  EXPECT_EQ(withFields("decode --json --verbose", kQuantity),
            (Result{"{\"BID_QTY\":101}\n", "mdmsg: dictionary fields.txt: 4 fields\n", 0}));
  EXPECT_EQ(withFields("dict show --fingerprint --verbose").err, "mdmsg: dictionary fields.txt: 4 fields\n");
  const std::string builtIn = mdmsg("stats --verbose").err;
  EXPECT_EQ(builtIn.rfind("mdmsg: built-in dictionary: ", 0), 0U) << builtIn;
  write("field_map.txt", "A 1 INT\n");
  const std::string found = mdmsg("stats --verbose").err;
  EXPECT_NE(found.find("field_map.txt: 1 field\n"), std::string::npos) << found;
  EXPECT_EQ(mdmsg("generate --count 0").err.find("dictionary"), std::string::npos);
}

TEST_F(ClearWords, DroppedBytesNameFieldsAndDictionary) {
  const struct {
    const char* hex;
    const char* report;
  } cases[] = {
      {kUnknown,
       "9 bytes dropped: fields 999, 1000 are not in the dictionary fields.txt; the last byte is not a field id"},
      {"0614000165e703010514000166e7030107\n", "8 bytes dropped: field 999 is not in the dictionary fields.txt"},
      {"4651523100140005000000040000000500160002000000040000000503e700020000000400000005\n",
       "36 bytes dropped: field 999 is not in the dictionary fields.txt; fields 20, 22 have another type in the "
       "dictionary fields.txt"},
  };
  for (const auto& [hex, report] : cases) {
    SCOPED_TRACE(hex);
    const Result result = withFields("decode", hex);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.substr(0, result.err.find('\n')), std::string("mdmsg: standard input:1: note: ") + report);
  }
  EXPECT_EQ(withFields("dump", kUnknown).err,
            "mdmsg: unknown fields are those that are not in the dictionary fields.txt\n");
  EXPECT_EQ(withFields("dump", kQuantity).err, "");
  EXPECT_NE(withFields("stats", "0614000165e7030105e8030105\n")
                .out.find("1, ids 999 (1), 1000 (1), not in the dictionary fields.txt\n"),
            std::string::npos);
  std::string hex = "06";
  for (const char* const id : {"01", "02", "03", "04", "05", "06", "07", "08", "0a", "0c", "0d", "0e"}) {
    hex += std::string(id) + "100100";
  }
  EXPECT_EQ(withFields("decode", hex + '\n').err,
            "mdmsg: standard input:1: note: 48 bytes dropped: fields 4097, 4098, 4099, 4100, 4101, 4102, 4103, 4104, "
            "4106, 4108 and 2 more are not in the dictionary fields.txt\n");
}

TEST_F(ClearWords, UnknownFieldsAreSummedUpById) {
  const std::string one = "0614000165e703010514000166e7030107\n";
  const Result result = withFields("decode --json --max-reports 1", one + kUnknown + one + kQuantity);
  const std::string repeatedField =
      "mdmsg: standard input:1: note: field BID_QTY: occurs 2 times; the last value is used\n";
  EXPECT_EQ(result.err,
            "mdmsg: standard input:1: note: 8 bytes dropped: field 999 is not in the dictionary fields.txt\n" +
                repeatedField +
                "mdmsg: standard input: not reported individually: 2 messages with dropped bytes, 1 repeated field "
                "(--max-reports)\n"
                "mdmsg: standard input: fields that are not in the dictionary fields.txt, with the number of messages: "
                "999 (3), 1000 (1)\n");
  std::string hex;
  for (unsigned id = 0; id != 30; ++id) {
    const std::string low = {"0123456789abcdef"[id / 16], "0123456789abcdef"[id % 16]};
    hex += "06" + low + "10010506\n";
  }
  const std::string err = withFields("decode --quiet", hex).err;
  EXPECT_NE(err.find(" messages: 4096 (1), 4097 (1), "), err.npos) << err;
  EXPECT_NE(err.find(", 4115 (1) and 10 more\n"), err.npos) << err;
}

TEST_F(ClearWords, SeveralThreadsSayTheSame) {
  write("feed.hex", repeated(3000, kUnknown) + repeated(3000, kQuantity) + "zz\n");
  for (const char* const command : {"decode --json feed.hex", "decode --quiet feed.hex", "stats feed.hex"}) {
    const Result alone = withFields(command + std::string(" --jobs 1"));
    EXPECT_EQ(withFields(command + std::string(" --jobs 3")), alone);
    EXPECT_EQ(alone.status, 1);
  }
}

TEST_F(ClearWords, QuietRunsCountOnly) {
  const std::string bad = repeated(3, "07\n") + repeated(2, "zz\n") + kQuantity;
  EXPECT_EQ(withFields("decode --json --quiet", bad),
            (Result{"{\"BID_QTY\":101}\n",
                    "mdmsg: standard input: 2 malformed messages, 3 messages of unknown encoding\n", 1}));
  EXPECT_EQ(withFields("decode --json --quiet", kQuantity).err, "");
  EXPECT_EQ(withFields("decode --quiet --max-reports 5", bad).err,
            "mdmsg: --max-reports excludes --quiet\nTry \"mdmsg --help\".\n");
}

TEST_F(ClearWords, BinaryInputIsNamedOnce) {
  const std::string binary("\x05\x06\x14\0\x01\x65\n\x05\x06\x14\0\x01\x65\n\n\x05", 15);
  const std::string advice = "looks binary, not like hex lines; try --framing or --from raw\n";
  for (const char* const command : {"decode", "dump", "convert --encoding mInt"}) {
    EXPECT_EQ(withFields(command, binary), (Result{"", "mdmsg: standard input: " + advice, 1})) << command;
  }
  // The next input is read.
  write("binary", binary);
  write("good.hex", kQuantity);
  EXPECT_EQ(withFields("decode --json binary good.hex"),
            (Result{"{\"BID_QTY\":101}\n", "mdmsg: binary: " + advice, 1}));
  // So are hex lines after a first line that is corrupt.
  EXPECT_EQ(withFields("decode --json", binary.substr(0, 7) + kQuantity + kQuantity),
            (Result{"{\"BID_QTY\":101}\n{\"BID_QTY\":101}\n", "mdmsg: standard input: " + advice, 1}));
  // Text that is not hex, and a broken line among good ones, are reported by line.
  EXPECT_EQ(withFields("decode", "# quotes\n").err, "mdmsg: standard input:1: column 1: \"#\" is not a hex digit\n");
  EXPECT_EQ(withFields("decode --json", kQuantity + binary.substr(0, 7) + kQuantity),
            (Result{"{\"BID_QTY\":101}\n{\"BID_QTY\":101}\n",
                    "mdmsg: standard input:2: column 1: \"\\x05\" is not a hex digit\n", 1}));
}

TEST_F(ClearWords, NamesOfFieldsMayBeInAnotherCase) {
  const std::string messages =
      mdmsg("encode --encoding mInt --dictionary fields.txt",
            "{\"SYMBOL\":\"AB\",\"SEQ\":1,\"BID\":5}\n{\"SYMBOL\":\"AB\",\"SEQ\":3,\"BID\":6}\n")
          .out;
  EXPECT_EQ(withFields("decode --csv --fields symbol,Bid", messages).out, "SYMBOL,BID\nAB,5\nAB,6\n");
  EXPECT_EQ(runTool({"decode", "--json", "--fields", "BID", "--where", "seq > 1 and exists(bid)", "--dictionary",
                     "fields.txt"},
                    messages)
                .out,
            "{\"BID\":6}\n");
  EXPECT_EQ(withFields("stats --by symbol --sequence seq --per Symbol", messages),
            withFields("stats --by SYMBOL --sequence SEQ --per SYMBOL", messages));
  EXPECT_EQ(withFields("dict show bid"), withFields("dict show BID"));
  // Keys of data are as the dictionary has them.
  EXPECT_EQ(
      withFields("encode --encoding mInt", "{\"bid\":5}\n"),
      (Result{"", "mdmsg: standard input:1: field bid: not in the dictionary fields.txt; did you mean BID?\n", 1}));
}

TEST_F(ClearWords, UnknownNamesAreAnsweredWithTheNearest) {
  const struct {
    const char* arguments;
    const char* report;
  } cases[] = {
      {"decode --fields SYMBL", "--fields: field SYMBL: not in the dictionary fields.txt; did you mean SYMBOL?"},
      {"decode --where BIT=5",
       "--where \"BIT=5\": column 1: field BIT: not in the dictionary fields.txt; did you mean BID?"},
      {"stats --by BDI", "--by: field BDI: not in the dictionary fields.txt; did you mean BID?"},
      {"diff --key SEQU - fields.txt", "--key: field SEQU: not in the dictionary fields.txt; did you mean SEQ?"},
      {"dict show simbol", "field simbol: not in the dictionary fields.txt; did you mean SYMBOL?"},
      {"decode --fields VOLUME", "--fields: field VOLUME: not in the dictionary fields.txt"},
  };
  for (const auto& [arguments, report] : cases) {
    EXPECT_EQ(withFields(arguments).err, std::string("mdmsg: ") + report + '\n') << arguments;
  }
  write("fields.txt", "Bid 1 DOUBLE\nBID 2 DOUBLE\n");
  EXPECT_EQ(withFields("decode --fields bid"),
            (Result{"", "mdmsg: --fields: field bid: several fields have this name in another case: Bid, BID\n", 2}));
}

/// Each question is a comparison with all names, and the input decides how many there are.
TEST_F(ClearWords, OnlySomeUnknownKeysAreCompared) {
  const std::string err = withFields("encode --encoding mInt --max-reports 1000", repeated(300, "{\"BIDS\":1}\n")).err;
  std::size_t questions = 0;
  for (std::size_t at = err.find("did you mean BID?"); at != err.npos; at = err.find("did you mean BID?", at + 1)) {
    ++questions;
  }
  EXPECT_EQ(questions, 10U);
  EXPECT_NE(err.find("standard input:300: field BIDS: not in the dictionary fields.txt\n"), err.npos);
}

}  // namespace
