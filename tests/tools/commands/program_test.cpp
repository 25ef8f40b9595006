// The program as its users run it: its output, its reports and its exit status, to the letter.
#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tools/program_support.h"

namespace {

using MD::test::ConfigurationFolder;
using MD::test::contentsOf;
using MD::test::dataFile;
#if defined(MDMSG_HAS_ZLIB)
#endif
using MD::test::Program;
using MD::test::Result;

constexpr const char* kAllTypesJson =
    R"({"CH":"B","QTY":-1,"SEQ":-9223372036854775808,"VOLA":0.5,"BID":-0.0,"SYMBOL":"A\"","BLOB":{"hex":"00ff"},)"
    R"("WHEN":{"date":20240115,"time":93000000,"offset":-300},"RECV":18446744073709551615})"
    "\n";

struct Golden {
  const char* encoding;
  const char* hex;
};

constexpr Golden kAllTypesHex[] = {
    {"mInt",
     "06"
     "0a000142"
     "2c0104ffffffff"
     "1400080000000000000080"
     "2800040000003f"
     "1600080000000000000080"
     "3c0003412200"
     "46000200ff"
     "50000840118bf5828fdaff"
     "5a0008ffffffffffffffff\n"},
    {"IterMap",
     "01"
     "0a0042"
     "2c01ffffffff"
     "14000000000000000080"
     "28000000003f"
     "16000000000000000080"
     "3c000300412200"
     "46000200000000ff"
     "500040118bf5828fdaff"
     "5a00ffffffffffffffff\n"},
    {"MsgT",
     "46515231"
     "000a00010000000142"
     "012c000200000004ffffffff"
     "00140013000000088000000000000000"
     "00280004000000043f000000"
     "00160005000000088000000000000000"
     "003c000600000003412200"
     "0046000e0000000200ff"
     "005000140000000840118bf5828fdaff"
     "005a001600000008ffffffffffffffff\n"},
};

TEST_F(Program, EncodesAndDecodesEveryTypeInEveryEncoding) {
  for (const auto& [encoding, hex] : kAllTypesHex) {
    SCOPED_TRACE(encoding);
    EXPECT_EQ(withFields(std::string("encode --encoding ") + encoding, kAllTypesJson), (Result{hex, "", 0}));
    EXPECT_EQ(withFields("decode --format json", hex), (Result{kAllTypesJson, "", 0}));
  }
}

TEST_F(Program, ConvertsBetweenAllEncodings) {
  std::string all;
  for (const auto& from : kAllTypesHex) {
    all += from.hex;
  }
  for (const auto& [encoding, hex] : kAllTypesHex) {
    SCOPED_TRACE(encoding);
    EXPECT_EQ(withFields(std::string("convert --encoding ") + encoding, all),
              (Result{std::string(hex) + hex + hex, "", 0}));
  }
}

TEST_F(Program, PrintsMessagesWithABlankLineBetween) {
  EXPECT_EQ(withFields("decode", "06 3c000341420016000800000000005059 40\n\n062C01 0105\r\n06\n"),
            (Result{"SYMBOL                 = AB\n"
                    "BID                    = 101.25\n"
                    "\n"
                    "QTY                    = 5\n"
                    "\n",
                    "", 0}));
  EXPECT_EQ(withFields("decode --format text", ""), (Result{"", "", 0}));
}

TEST_F(Program, PrintsPricesAsOneNumber) {
  const char* const hex = "06 9001010c 91010122 92010164 2c010105\n";
  EXPECT_EQ(withFields("decode --price", hex), (Result{"PX                     = 12.34\n"
                                                       "QTY                    = 5\n",
                                                       "", 0}));
  EXPECT_EQ(withFields("decode", hex), (Result{"PX_WHOLE               = 12\n"
                                               "PX_NUM                 = 34\n"
                                               "PX_DENOM               = 100\n"
                                               "QTY                    = 5\n",
                                               "", 0}));
}

TEST_F(Program, EncodesCsv) {
  EXPECT_EQ(withFields("encode --encoding mInt --csv",
                       "SYMBOL,QTY,WHEN\r\n"
                       "\"A,\"\"B\n\",5,20240115 93000000 -300\r\n"
                       "C,,\r\n"
                       "D,x,\r\n"
                       "\"E\"E,1,\n"
                       "F,6,\n"
                       "G,7\n"
                       "\"H,8,\n"),
            (Result{"063c0006412c22420a00"
                    "2c010105"
                    "50000840118bf5828fdaff\n"
                    "063c00024300\n"
                    "063c000246002c010106\n",
                    "mdmsg: standard input:5: field QTY: \"x\" is not an integer\n"
                    "mdmsg: standard input:6: cell 1: text after the closing quote\n"
                    "mdmsg: standard input:8: the number of cells is 2, that of the header 3\n"
                    "mdmsg: standard input:9: cell 1: the quote is never closed\n",
                    1}));
}

TEST_F(Program, AnUnusableCsvHeaderLeavesItsInputOut) {
  write("bad.csv", "QTY,NOPE\n1,2\n");
  write("good.csv", "QTY\n5\n");
  write("empty.csv", "");
  EXPECT_EQ(withFields("encode --csv --encoding mInt bad.csv good.csv empty.csv"),
            (Result{"062c010105\n", "mdmsg: bad.csv:1: field NOPE: not in the dictionary fields.txt\n", 1}));
}

TEST_F(Program, GoesOnBehindALineThatItCannotUse) {
  EXPECT_EQ(withFields("encode --encoding mInt",
                       "{\"QTY\":5}\n"
                       "\n"
                       "{\"QTY\":1.5,\"CH\":\"B\"}\n"
                       "{\"QTY\":5\n"
                       "{\"CH\":\"B\"}"),
            (Result{"062c010105\n"
                    "060a000142\n",
                    "mdmsg: standard input:3: field QTY: \"1.5\" is not an integer\n"
                    "mdmsg: standard input:4: column 9: a comma or '}' is missing after the value\n",
                    1}));
  EXPECT_EQ(withFields("decode --format json", "062c010105\n062c01010\n062c0101zz\n07\n062c010106\n"),
            (Result{"{\"QTY\":5}\n"
                    "{\"QTY\":6}\n",
                    "mdmsg: standard input:2: column 9: odd number of hex digits, the last byte is incomplete\n"
                    "mdmsg: standard input:3: column 9: \"z\" is not a hex digit\n"
                    "mdmsg: standard input:4: unknown encoding byte 07 (01 IterMap, 06 mInt, 46 MsgT)\n",
                    1}));
}

TEST_F(Program, ShowsOfHostileBytesWhatCanBeRead) {
  // A type that no message carries, a repeated field, unknown fields, a truncated last record.
  const std::string hex = "06 c800020102 2c010105 2c010106 e7030411223344 16000800\n";
  const std::string unknown =
      "mdmsg: standard input:1: note: 7 bytes dropped: field 999 is not in the dictionary fields.txt\n";
  const std::string repeated = "mdmsg: standard input:1: note: field QTY: occurs 2 times; the last value is used\n";
  const std::string rest =
      "mdmsg: standard input:1: note: field SHORTY: values of type SHORT are not carried by messages\n"
      "mdmsg: standard input:1: note: field BID: the message is truncated within the value, of which it has 1 of 8 "
      "bytes\n";
  EXPECT_EQ(withFields("decode --format json", hex),
            (Result{"{\"SHORTY\":{\"unreadable\":\"0102\"},\"QTY\":6,\"BID\":{\"unreadable\":\"00\"}}\n",
                    unknown + repeated + rest, 1}));
  EXPECT_EQ(withFields("decode", hex), (Result{"SHORTY                 = <messages do not carry values of type SHORT>\n"
                                               "QTY                    = 6 <the last of 2 records>\n"
                                               "BID                    = <truncated: 1 of 8 bytes>\n",
                                               unknown + repeated + rest, 1}));
  EXPECT_EQ(withFields("decode --raw-text", hex),
            (Result{"QTY                    = 6\n", unknown + repeated + rest, 1}));
  EXPECT_EQ(withFields("convert --encoding IterMap", hex), (Result{"012c0106000000\n", unknown + repeated + rest, 1}));
}

TEST_F(Program, ReportsHostileBytesHoweverManyThereAre) {
  std::string hex;
  std::string json;
  std::string reports;
  for (int line = 1; line <= 250; ++line) {
    hex += "46515231 03e7000200000004000000ff 012c00020000000400000005\n";
    json += "{\"QTY\":5}\n";
    reports += "mdmsg: standard input:" + std::to_string(line) +
               ": note: 12 bytes dropped: field 999 is not in the dictionary fields.txt\n";
  }
  EXPECT_EQ(withFields("decode --format json --max-reports 250", hex), (Result{json, reports, 1}));
}

// The sanitizers' own memory is more than the limit.
#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Program, DumpAndStatsNeedNoMoreThanThreeTimesTheMessage) {
  constexpr std::size_t kMessageBytes = std::size_t{8} << 20;
  constexpr std::size_t kProgramBytes = std::size_t{40} << 20;
  const std::string limit = "ulimit -v " + std::to_string((kProgramBytes + 3 * kMessageBytes) / 1024) + "; ";
  const struct {
    const char* name;
    std::string head;
    std::string record;
    const char* dumpReport = "";
  } cases[] = {
      {"TinyRecords", "\x06", std::string("\x2c\x01\0", 3)},
      {"UnknownFields", "\x01", "\xff\xff",
       "mdmsg: unknown fields are those that are not in the dictionary fields.txt\n"},
      {"OneString", std::string("\x46QR1\0\x3c\0\x06\0\x7f\xff\xf4", 12), "x"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    std::string bytes("\0\x80\0\0", 4);
    for (bytes += row.head; bytes.size() + row.record.size() <= 4 + kMessageBytes;) {
      bytes += row.record;
    }
    bytes.resize(4 + kMessageBytes, '\0');
    write("message", bytes);
    for (const char* const command : {"dump", "stats"}) {
      SCOPED_TRACE(command);
      const int status = std::system((limit + "exec " MDMSG_PROGRAM " " + command +
                                      " --framing u32be --dictionary fields.txt message >/dev/null 2>stderr")
                                         .c_str());
      EXPECT_TRUE(WIFEXITED(status));
      EXPECT_EQ(WEXITSTATUS(status), 1) << "the message has flaws, and nothing else is wrong";
      EXPECT_EQ(contentsOf("stderr"), command == std::string("dump") ? row.dumpReport : "");
    }
  }
}
#endif

TEST_F(Program, TellsWhereRawTextEnds) {
  write("fields.txt", "LAST 65535 INT\nQTY 300 INT\n");
  EXPECT_EQ(withFields("decode", "06 2c010105 ffff0106 \n"),
            (Result{"QTY                    = 5\nLAST                   = 6\n", "", 0}));
  EXPECT_EQ(
      withFields("decode --raw-text", "06 2c010105 ffff0106 \n"),
      (Result{"QTY                    = 5\n",
              "mdmsg: standard input:1: note: field LAST: ends the raw text; omit --raw-text to see all fields\n", 1}));
  EXPECT_EQ(withFields("decode --format json", "06 2c010105 ffff0106\n"), (Result{"{\"QTY\":5,\"LAST\":6}\n", "", 0}));
}

TEST_F(Program, ConvertsOnlyWhatTheOtherEncodingHolds) {
  const std::string text(255, 'x');
  const Result encoded = withFields("encode --encoding MsgT", "{\"QTY\":5,\"SYMBOL\":\"" + text + "\"}\n{\"QTY\":6}\n");
  EXPECT_EQ(withFields("convert --encoding mInt", encoded.out),
            (Result{"062c010106\n",
                    "mdmsg: standard input:1: field SYMBOL: 255 bytes are too long for a STRING of mInt\n", 1}));
  const Result longest = withFields("encode --encoding MsgT", "{\"SYMBOL\":\"" + std::string(65535, 'x') + "\"}\n");
  EXPECT_EQ(
      withFields("convert --encoding IterMap", longest.out),
      (Result{"", "mdmsg: standard input:1: field SYMBOL: 65535 bytes are too long for a STRING of IterMap\n", 1}));
}

TEST_F(Program, ReadsFilesAndStandardInputInTheirOrder) {
  write("one.hex", "062c010101\n07\n");
  write("two.hex",
        "\xef\xbb\xbf"
        "062c010103");
  EXPECT_EQ(withFields("decode --format json one.hex - two.hex", "08\n062c010102\n"),
            (Result{"{\"QTY\":1}\n{\"QTY\":2}\n{\"QTY\":3}\n",
                    "mdmsg: one.hex:2: unknown encoding byte 07 (01 IterMap, 06 mInt, 46 MsgT)\n"
                    "mdmsg: standard input:1: unknown encoding byte 08 (01 IterMap, 06 mInt, 46 MsgT)\n",
                    1}));
}

TEST_F(Program, AFileThatCannotBeReadIsBadUsage) {
  write("one.hex", "062c010101\n");
  ConfigurationFolder::makeFolder("folder");
  EXPECT_EQ(withFields("decode --format json missing.hex folder one.hex"),
            (Result{"{\"QTY\":1}\n",
                    "mdmsg: cannot open missing.hex: No such file or directory\n"
                    "mdmsg: cannot read folder: it is a directory\n",
                    2}));
}

TEST_F(Program, WritesThePreferredEncoding) {
  EXPECT_EQ(withFields("encode --encoding preferred", "{\"QTY\":5}\n").out, "46515231012c00020000000400000005\n");
  write("message/preferred.conf", "1\n");
  EXPECT_EQ(withFields("encode --encoding preferred", "{\"QTY\":5}\n").out, "012c0105000000\n");
  EXPECT_EQ(withFields("convert --encoding preferred", "062c010105\n").out, "012c0105000000\n");
  write("message/preferred.conf", "2\n");
  EXPECT_EQ(withFields("encode --encoding preferred", "{\"QTY\":5}\n"),
            (Result{"", "mdmsg: unknown encoding \"preferred\"\n", 2}));
}

TEST_F(Program, TakesTheDictionaryFromTheSearchPathElseItsOwn) {
  EXPECT_EQ(mdmsg("encode --encoding mInt", "{\"SYMBOL\":\"AB\",\"BID\":101.25,\"PX_WHOLE\":12}\n"),
            (Result{"06"
                    "010003414200"
                    "1600080000000000505940"
                    "6400010c\n",
                    "", 0}));
  write("field_map.txt", "SYMBOL 7 STRING\n");
  EXPECT_EQ(mdmsg("encode --encoding mInt", "{\"SYMBOL\":\"AB\"}\n"), (Result{"06070003414200\n", "", 0}));
  write("field_map.txt", "");
  EXPECT_EQ(mdmsg("encode --encoding mInt", "{\"SYMBOL\":\"AB\"}\n"), (Result{"06010003414200\n", "", 0}));
}

TEST_F(Program, ANamedDictionaryWorksWhateverLiesOnTheSearchPath) {
  ConfigurationFolder::makeFolder("field_map.txt");
  EXPECT_EQ(mdmsg("decode --format json", "062c010105\n"),
            (Result{"",
                    "mdmsg: cannot load the dictionary on the configuration search path (name another with "
                    "--dictionary): Unable to "
                    "open file: ./field_map.txt\n",
                    2}));
  EXPECT_EQ(withFields("decode --format json", "062c010105\n"), (Result{"{\"QTY\":5}\n", "", 0}));
  write("fields.xml", " \n" + MD::test::xmlDefinitions(MD::test::xmlEntry("AMOUNT", "300", "INT")));
  EXPECT_EQ(mdmsg("decode --format json --dictionary fields.xml", "062c010105\n").out, "{\"AMOUNT\":5}\n");
}

TEST_F(Program, RefusesDictionariesThatItCannotUse) {
  write("empty.txt", "");
  write("prose.txt", "These are the fields: none\n");
  write("broken.xml", "<Definitions><FieldDefinition>");
  write("empty.xml", MD::test::xmlDefinitions(""));
  ConfigurationFolder::makeFolder("folder");
  const struct {
    const char* file;
    const char* error;
  } cases[] = {
      {"missing.txt", "mdmsg: cannot open dictionary missing.txt: No such file or directory\n"},
      {"folder", "mdmsg: cannot read dictionary folder: it is a directory\n"},
      {"empty.txt", "mdmsg: dictionary empty.txt contains no fields\n"},
      {"prose.txt",
       "mdmsg: prose.txt:1:7: note: field These: \"are\" is not an id from 0 to 65535; the library stops reading here\n"
       "mdmsg: dictionary prose.txt contains no fields\n"},
      {"broken.xml", "mdmsg: cannot load the dictionary: Failed to load field def file: broken.xml\n"},
      {"empty.xml", "mdmsg: dictionary empty.xml contains no fields\n"},
  };
  for (const auto& [file, error] : cases) {
    SCOPED_TRACE(file);
    EXPECT_EQ(mdmsg(std::string("decode --dictionary ") + file, "062c010105\n"), (Result{"", error, 2}));
  }
}

TEST_F(Program, HintsAtDictionaryEntriesThatAreLeftOut) {
  const std::string json = "{\"QTY\":5}\n";
  write("fields.txt",
        "QTY 300 INT\n"
        "ODD 301 NOSUCH\n"
        "AGAIN 300 INT\n"
        "\n"
        "BID 22\n"
        "DOUBLE BID 23 DOUBLE\n"
        "HIGH 65536 INT\n"
        "LOST 5 INT\n");
  EXPECT_EQ(
      withFields("decode --format json", "062c010105\n"),
      (Result{json,
              "mdmsg: fields.txt:2:1: note: field ODD: \"NOSUCH\" is not a type; the library skips the entry\n"
              "mdmsg: fields.txt:3:1: note: field AGAIN: id 300 is that of QTY (line 1); the library keeps that "
              "one and skips this one\n"
              "mdmsg: fields.txt:6:8: note: field BID: the name of id 23 is that of id 22 too (line 5); the name "
              "resolves to id 23\n"
              "mdmsg: fields.txt:7:6: note: field HIGH: \"65536\" is not an id from 0 to 65535; the library stops "
              "reading here, 1 entry too early\n",
              0}));
  write("fields.txt", "\xef\xbb\xbfQTY 300 INT\nBID 22");
  EXPECT_EQ(
      withFields("decode --format json", "062c010105\n"),
      (Result{json, "mdmsg: fields.txt:2:1: note: field BID: the file ends before its type; the library skips it\n",
              0}));
}

TEST_F(Program, RefusesACommandLineThatItCannotUse) {
  const struct {
    const char* arguments;
    const char* error;
  } cases[] = {
      {"", "A subcommand is required"},
      {"frobnicate", "unknown command or option \"frobnicate\""},
      {"decoed", "unknown command or option \"decoed\"; did you mean decode?"},
      {"decode --farmat=json", "The following argument was not expected: --farmat=json; did you mean --format?"},
      {"--frobnicate", "unknown command or option \"--frobnicate\""},
      {"encode", "--encoding is required"},
      {"encode --encoding Morse", "--encoding: Morse not in {mInt,IterMap,MsgT,preferred}"},
      {"encode --encoding mInt --price", "The following argument was not expected: --price"},
      {"decode --format yaml", "--format: yaml not in {text,json,csv,arrow,arrow-file}"},
      {"decode --skip -1", "--skip: \"-1\" is not an integer"},
      {"decode --limit x", "--limit: \"x\" is not an integer"},
      {"decode --port -5", "--port: \"-5\" is not an integer"},
      {"decode --port 65536", "--port: 65536 is more than 65535"},
      {"decode --from yaml", "--from: yaml not in {auto,hex,raw,pcap}"},
      {"encode --encoding mInt --format yaml", "--format: yaml not in {hex,raw,u16le,u16be,u32le,u32be,pcap}"},
      {"dump --color blue", "--color: blue not in {auto,always,never}"},
      {"dump --fields QTY", "The following argument was not expected: --fields"},
      {"decode --dictionary", "--dictionary: 1 required FILE missing"},
      {"convert", "--encoding is required"},
  };
  for (const auto& [arguments, error] : cases) {
    SCOPED_TRACE(arguments);
    EXPECT_EQ(mdmsg(arguments), (Result{"", std::string("mdmsg: ") + error + "\nTry \"mdmsg --help\".\n", 2}));
  }
  EXPECT_EQ(mdmsg("decode --format json --price"), (Result{"", "mdmsg: --price requires --format text\n", 2}));
}

TEST_F(Program, TellsItsVersion) { EXPECT_EQ(mdmsg("--version"), (Result{"mdmsg " MDMSG_VERSION "\n", "", 0})); }

TEST_F(Program, EveryCommandHelpsWithExamples) {
  const struct {
    const char* arguments;
    std::vector<const char*> parts;
  } cases[] = {
      {"--help", {"Usage: mdmsg [OPTIONS] SUBCOMMAND\n", "Exit status"}},
      {"encode --help", {"Usage: mdmsg encode [OPTIONS] [FILE...]\n", "--encoding ENCODING", "--format FORMAT"}},
      {"decode --help", {"Usage: mdmsg decode [OPTIONS] [FILE...]\n", "--format FORMAT", "--iso-time"}},
      {"convert --help", {"Usage: mdmsg convert [OPTIONS] [FILE...]\n", "--encoding ENCODING", "--format FORMAT"}},
      {"dump --help", {"Usage: mdmsg dump [OPTIONS] [FILE...]\n", "--color WHEN", "--where CONDITION"}},
      {"stats --help", {"Usage: mdmsg stats [OPTIONS] [FILE...]\n", "--svg FILE", "--time-zone ZONE"}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.arguments);
    const Result result = mdmsg(row.arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const char* const part : row.parts) {
      EXPECT_NE(result.out.find(part), std::string::npos) << part << "\nis not in\n" << result.out;
    }
    const std::size_t examples = result.out.find("\nExamples:\n");
    ASSERT_NE(examples, std::string::npos) << result.out;
    std::istringstream lines(result.out.substr(examples + 11));
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line) && !line.empty(); ++count) {
      EXPECT_NE(line.find("mdmsg "), std::string::npos) << line;
    }
    EXPECT_GE(count, 3U);
  }
}

TEST_F(Program, TakesFileNamesOutsideAscii) {
#ifdef _WIN32
  const std::filesystem::path folder = L"caf\u00e9 \u20ac";
  const std::string name = "caf\xe9 \x80";  // in the code page 1252
#else
  const std::string name = "caf\xc3\xa9 \xe2\x82\xac";
  const std::filesystem::path folder = name;
#endif
  ConfigurationFolder::write(folder / "map.txt", "QTY 300 INT\n");
  ConfigurationFolder::write(folder / "in.hex", "062c010105\n");
  EXPECT_EQ(mdmsg("decode --format json --dictionary \"" + name + "/map.txt\" \"" + name + "/in.hex\""),
            (Result{"{\"QTY\":5}\n", "", 0}));
}

TEST_F(Program, LineEndsAreTheSameEverywhere) {
  // In binary mode no carriage return comes in front of a line feed, and a character 26 ends nothing.
  EXPECT_EQ(withFields("decode --raw-text", "062c010105\n060a00011a\n"),
            (Result{"QTY                    = 5\n\nCH                     = \x1a\n", "", 0}));
  EXPECT_EQ(
      withFields("decode --format json", "062c010105\n\x1a\n062c010106\n"),
      (Result{"{\"QTY\":5}\n{\"QTY\":6}\n", "mdmsg: standard input:2: column 1: \"\\x1a\" is not a hex digit\n", 1}));
}

#if defined(__linux__)
TEST_F(Program, ReportsFilesThatCannotBeWrittenToTheirEnd) {
  write("in.hex", "062c010105\n");
  EXPECT_EQ(withFields("decode --output /dev/full --force in.hex"),
            (Result{"", "mdmsg: cannot write /dev/full: No space left on device\n", 2}));
  EXPECT_EQ(withFields("stats --svg /dev/full --force in.hex").err,
            "mdmsg: cannot write /dev/full: No space left on device\n");
  const auto statusOnFullDevice = [](const char* arguments) {
    const int status =
        std::system(("\"" MDMSG_PROGRAM "\" " + std::string(arguments) + " >/dev/full 2>stderr").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  for (const char* const arguments : {"--help", "decode --help", "--version"}) {
    SCOPED_TRACE(arguments);
    EXPECT_EQ(statusOnFullDevice(arguments), 2);
    EXPECT_EQ(contentsOf("stderr"), "mdmsg: cannot write standard output: No space left on device\n");
  }
}
#endif

#ifndef _WIN32
TEST_F(Program, ReportsDoNotGoIntoFilesWhenStandardStreamsAreClosed) {
  write("in.hex", "062c010105\nzz\n");
  const std::string decode = "\"" MDMSG_PROGRAM "\" decode --format json --dictionary fields.txt ";
  EXPECT_NE(std::system((decode + "--output out.json in.hex 2>&-").c_str()), 0);
  EXPECT_EQ(contentsOf("out.json"), "{\"QTY\":5}\n");
  EXPECT_NE(std::system((decode + "- in.hex <&- >out.json 2>stderr").c_str()), 0);
  EXPECT_EQ(contentsOf("stderr"),
            "mdmsg: cannot read standard input\nmdmsg: in.hex:2: column 1: \"z\" is not a hex digit\n");
  EXPECT_NE(std::system((decode + "in.hex >&- 2>stderr").c_str()), 0);
  EXPECT_EQ(contentsOf("stderr"), "mdmsg: cannot write standard output: Bad file descriptor\n");
}

TEST_F(Program, EndsQuietlyWhenItsReaderGoes) {
  std::string hex;
  for (int line = 0; line != 20'000; ++line) {
    hex += "062c010105\n";
  }
  write("many.hex", hex);
  write("stderr", "not run");
  std::FILE* const pipe =
      popen("\"" MDMSG_PROGRAM "\" decode --format json --dictionary fields.txt many.hex 2>stderr", "r");
  ASSERT_NE(pipe, nullptr);
  char line[100];
  ASSERT_NE(std::fgets(line, sizeof line, pipe), nullptr);
  EXPECT_STREQ(line, "{\"QTY\":5}\n");
  const int status = pclose(pipe);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(contentsOf("stderr"), "");
}

TEST_F(Program, AnswersEachLineOfAPipeBeforeTheNextOneComes) {
  // The second line is sent only once the first one has been answered.
  write("talk.sh",
        "mkfifo questions\n"
        "\"" MDMSG_PROGRAM
        "\" decode --format json --dictionary fields.txt <questions | {\n"
        "  exec 3>questions\n"
        "  echo 062c010105 >&3\n"
        "  read -r answer\n"
        "  echo \"$answer\"\n"
        "  echo 062c010106 >&3\n"
        "  exec 3>&-\n"
        "  cat\n"
        "}\n");
  EXPECT_EQ(std::system("sh talk.sh >stdout"), 0);
  EXPECT_EQ(contentsOf("stdout"), "{\"QTY\":5}\n{\"QTY\":6}\n");
}
#endif

/// The columns of recorded quotes and trades, as fields.
constexpr const char* kTickFields =
    "recv_ns 1 EPOCH_NSEC venue 2 STRING symbol 3 STRING kind 4 CHAR event_ms 5 INT64 txn_ms 6 INT64 seq 7 INT64 "
    "bid 20 DOUBLE bid_size 21 DOUBLE ask 22 DOUBLE ask_size 23 DOUBLE price 24 DOUBLE size 25 DOUBLE side 26 CHAR "
    "ord_type 27 STRING";

std::vector<std::string> cellsOf(const std::string& line) {
  std::vector<std::string> cells(1);
  for (const char c : line) {
    if (c == ',') {
      cells.emplace_back();
    } else if (c != '\r') {
      cells.back() += c;
    }
  }
  return cells;
}

/// Compares a decoded message with the row that it was made of.
void expectRow(const nlohmann::json& message, const std::vector<std::string>& names,
               const std::vector<std::string>& cells) {
  ASSERT_EQ(cells.size(), names.size());
  std::size_t sent = 0;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (cells[i].empty()) {
      EXPECT_FALSE(message.contains(names[i])) << names[i];
      continue;
    }
    ++sent;
    ASSERT_TRUE(message.contains(names[i])) << names[i];
    const nlohmann::json& value = message[names[i]];
    if (value.is_string()) {
      EXPECT_EQ(value.get<std::string>(), cells[i]) << names[i];
    } else if (cells[i].find('.') == std::string::npos) {
      EXPECT_EQ(value.dump(), cells[i]) << names[i];  // every digit of a big integer
    } else {
      EXPECT_EQ(value.get<double>(), std::strtod(cells[i].c_str(), nullptr)) << names[i];
    }
  }
  EXPECT_EQ(message.size(), sent);
}

class ProgramEndToEnd : public Program {
 protected:
  /// Sends the rows of a CSV through encode and decode in every encoding.
  /// @return the number of rows
  static std::size_t sendThroughPipes(const std::string& csv) {
    write("tick_fields.txt", kTickFields);
    std::size_t rows = 0;
    for (const char* encoding : {"mInt", "IterMap", "MsgT"}) {
      SCOPED_TRACE(encoding);
      const std::string encode = std::string("encode --dictionary tick_fields.txt --encoding ") + encoding;
      const Result hex = mdmsg(encode + " --csv", csv);
      EXPECT_EQ(hex.status, 0) << hex.err;
      const Result json = mdmsg("decode --format json --dictionary tick_fields.txt", hex.out);
      EXPECT_EQ(json.status, 0) << json.err;
      const Result again = mdmsg(encode, json.out);
      EXPECT_EQ(again.status, 0) << again.err;
      EXPECT_TRUE(again.out == hex.out) << "the way back gives other bytes";

      std::istringstream lines(csv);
      std::istringstream messages(json.out);
      std::string line;
      std::getline(lines, line);
      const std::vector<std::string> names = cellsOf(line);
      rows = 0;
      for (std::string message; std::getline(lines, line) && std::getline(messages, message); ++rows) {
        expectRow(nlohmann::json::parse(message), names, cellsOf(line));
        if (HasFailure()) {
          return rows;
        }
      }
      EXPECT_FALSE(std::getline(lines, line)) << "rows without a message";
      EXPECT_FALSE(std::getline(messages, line)) << "messages without a row";
    }
    return rows;
  }
};

TEST_F(ProgramEndToEnd, TheSampleQuotesComeBackAsTheyWere) {
  EXPECT_EQ(sendThroughPipes(contentsOf(QUOTES_SAMPLE)), 30u);
}

TEST_F(ProgramEndToEnd, RecordedQuotesComeBackAsTheyWere) {
  const std::string csv = dataFile("ticks_small.csv");
  if (csv.empty()) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with ticks_small.csv";
  }
  EXPECT_EQ(sendThroughPipes(contentsOf(csv)), 11983u);
}

#if defined(MDMSG_HAS_ZLIB)

TEST_F(ProgramEndToEnd, CompressedRecordedQuotesComeBackByteForByte) {
  const std::string csv = dataFile("ticks.csv.gz");
  if (csv.empty()) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with ticks.csv.gz";
  }
  write("tick_fields.txt", kTickFields);
  for (const char* encoding : {"mInt", "IterMap", "MsgT"}) {
    SCOPED_TRACE(encoding);
    const std::string encode = std::string("encode --dictionary tick_fields.txt --encoding ") + encoding;
    const Result hex = mdmsg(encode + " --csv --skip 200000 --limit 10000 \"" + csv + '"');
    EXPECT_EQ(hex.status, 0) << hex.err;
    EXPECT_EQ(std::count(hex.out.begin(), hex.out.end(), '\n'), 10'000);
    const Result json = mdmsg("decode --format json --dictionary tick_fields.txt", hex.out);
    EXPECT_EQ(json.status, 0) << json.err;
    const Result again = mdmsg(encode, json.out);
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_TRUE(again.out == hex.out) << "the way back gives other bytes";
  }
}

#endif

}  // namespace
