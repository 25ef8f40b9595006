// The program on captures and other binary forms: made here, and recorded ones where MD_TEST_DATA leads to them.
#include <cstdint>
#include <cstdlib>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "text/hex_reader.h"
#include "tools/gzip_support.h"
#include "tools/program_support.h"
#include "transport/capture.h"

namespace {

using MD::test::ConfigurationFolder;
using MD::test::contentsOf;
using MD::test::dataFile;
#if defined(MDMSG_HAS_ZLIB)
using MD::test::gzipped;
#endif
using MD::test::Program;
using MD::test::Result;

constexpr const char* kTwoQuotes =
    "{\"SYMBOL\":\"AB\",\"BID\":101.25,\"RECV\":1717407000173980747}\n"
    "{\"SYMBOL\":\"AC\",\"BID\":102.5,\"RECV\":1717407001000000000}\n";

class ProgramForms : public Program {};

TEST_F(ProgramForms, EveryFormComesBack) {
  write("quotes.json", kTwoQuotes);
  for (const char* encoding : {"mInt", "IterMap", "MsgT"}) {
    for (const char* form : {"hex", "u16le", "u16be", "u32le", "u32be"}) {
      SCOPED_TRACE(std::string(encoding) + ' ' + form);
      const Result encoded =
          withFields(std::string("encode --encoding ") + encoding + " --format " + form + " quotes.json");
      EXPECT_EQ(encoded.status, 0) << encoded.err;
      const std::string framing = std::string(form) == "hex" ? "" : std::string(" --framing ") + form;
      EXPECT_EQ(withFields("decode --format json" + framing, encoded.out), (Result{kTwoQuotes, "", 0}));
      EXPECT_EQ(withFields("convert --encoding " + std::string(encoding) + " --format " + form + framing, encoded.out),
                (Result{encoded.out, "", 0}));
    }
  }
  const Result raw = withFields("encode --encoding mInt --format raw --limit 1 quotes.json");
  EXPECT_EQ(withFields("decode --from raw --format json", raw.out),
            (Result{std::string(kTwoQuotes).substr(0, std::string(kTwoQuotes).find('\n') + 1), "", 0}));
  EXPECT_EQ(
      withFields("encode --encoding mInt --format raw quotes.json"),
      (Result{
          raw.out,
          "mdmsg: quotes.json:2: a raw output holds one message; u16le, u16be, u32le and u32be keep several apart\n",
          1}));
}

TEST_F(ProgramForms, InputsThatBreakOffGiveEverythingBefore) {
  write("cut.bin", std::string("\x05\x00\x06\x2c\x01\x01\x05\x05\x00\x06", 10));
  EXPECT_EQ(withFields("decode --format json --framing u16le cut.bin"),
            (Result{"{\"QTY\":5}\n",
                    "mdmsg: cut.bin: the input is truncated within message 2, of which it has 1 of 5 bytes; everything "
                    "before this was processed\n",
                    1}));
#if defined(MDMSG_HAS_ZLIB)
  std::string hex;
  for (int i = 0; i != 5000; ++i) {
    hex += "062c010105\n";
  }
  const std::string whole = gzipped(hex);
  write("whole.hex.gz", whole);
  const Result all = withFields("decode --format json whole.hex.gz");
  EXPECT_EQ(all.err, "");
  EXPECT_EQ(std::count(all.out.begin(), all.out.end(), '\n'), 5000);
  // Only the checksum is truncated.
  EXPECT_EQ(
      withFields("decode --format json", whole.substr(0, whole.size() - 8)),
      (Result{all.out,
              "mdmsg: standard input: the compressed data is truncated; everything before this was processed\n", 1}));
  EXPECT_EQ(
      withFields("encode --encoding mInt", gzipped("{\"QTY\":5}\n").substr(0, 20)),
      (Result{"", "mdmsg: standard input: the compressed data is truncated; everything before this was processed\n",
              1}));
#endif
}

TEST_F(ProgramForms, MessagesThatACaptureCannotHoldAreLeftOut) {
  const Result result = withFields("encode --encoding MsgT --format pcap --time-field RECV",
                                   "{\"SYMBOL\":\"" + std::string(65535, 'x') +
                                       "\"}\n{\"RECV\":18446744073709551615}\n{\"RECV\":4294967296000000000}\n");
  EXPECT_EQ(result.err,
            "mdmsg: standard input:1: 65548 bytes are too long for a datagram (65507)\n"
            "mdmsg: standard input:2: a capture cannot store the time 18446744073709551615 (years 1970 to 2106)\n"
            "mdmsg: standard input:3: a capture cannot store the time 4294967296000000000 (years 1970 to 2106)\n");
  EXPECT_EQ(result.out.size(), 24U);
  EXPECT_EQ(result.status, 1);
}

TEST_F(ProgramForms, FilesAreNotWrittenOverUnlessForced) {
  write("there.hex", "kept\n");
  write("in.hex", "062c010105\n");
  EXPECT_EQ(withFields("encode --encoding mInt --output there.hex", "{\"QTY\":5}\n"),
            (Result{"", "mdmsg: there.hex exists; --force overwrites it\n", 2}));
  EXPECT_EQ(contentsOf("there.hex"), "kept\n");
  EXPECT_EQ(withFields("encode --encoding mInt --output there.hex --force", "{\"QTY\":5}\n"), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("there.hex"), "062c010105\n");
  EXPECT_EQ(withFields("convert --encoding MsgT --output in.hex --force in.hex"),
            (Result{"", "mdmsg: in.hex is an input, too\n", 2}));
  EXPECT_EQ(contentsOf("in.hex"), "062c010105\n");
  EXPECT_EQ(withFields("decode --format json --output new.json in.hex"), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("new.json"), "{\"QTY\":5}\n");
  EXPECT_EQ(withFields("decode --output nowhere/new.json in.hex"),
            (Result{"", "mdmsg: cannot write nowhere/new.json: No such file or directory\n", 2}));
  EXPECT_EQ(withFields("decode --force --output fields.txt in.hex"),
            (Result{"", "mdmsg: fields.txt is the dictionary, too\n", 2}));
  EXPECT_EQ(withFields("stats --force --output new.txt --svg new.txt in.hex"),
            (Result{"", "mdmsg: new.txt is also the output\n", 2}));
#ifndef _WIN32
  const Result isInput{"", "mdmsg: stdin is an input, too\n", 2};
  EXPECT_EQ(withFields("decode --force --output stdin", "062c010105\n"), isInput);
  EXPECT_EQ(withFields("decode --force --output stdin in.hex -", "062c010105\n"), isInput);
  EXPECT_EQ(contentsOf("stdin"), "062c010105\n");
#endif
  // An option that cannot be used costs no file.
  write("old.csv", "QTY\n1\n2\n3\n");
  const Result noFields{
      "", "mdmsg: --format csv requires --fields, its columns, such as --fields SYMBOL,BID,ASK or --fields all\n", 2};
  EXPECT_EQ(withFields("decode --format csv --force --output old.csv in.hex"), noFields);
  EXPECT_EQ(contentsOf("old.csv"), "QTY\n1\n2\n3\n");
  EXPECT_EQ(withFields("decode --format csv --output new.csv in.hex"), noFields);
  EXPECT_EQ(withFields("decode --format csv --output new.csv --fields QTY in.hex"), (Result{"", "", 0}));
  EXPECT_EQ(withFields("decode --format csv --force --output old.csv --fields QTY in.hex"), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("old.csv"), "QTY\n5\n");
  EXPECT_EQ(withFields("decode --force --output old.csv --limit 0 in.hex"), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("old.csv"), "");
  write("picture.svg", "kept");
  EXPECT_EQ(withFields("stats --svg picture.svg in.hex"),
            (Result{"", "mdmsg: picture.svg exists; --force overwrites it\n", 2}));
  EXPECT_EQ(contentsOf("picture.svg"), "kept");
}

TEST_F(ProgramForms, OptionsThatDoNotGoTogetherAreBadUsage) {
  const struct {
    const char* arguments;
    const char* error;
  } cases[] = {
      {"decode --format csv",
       "--format csv requires --fields, its columns, such as --fields SYMBOL,BID,ASK or --fields all"},
      {"decode --format csv --price", "--price requires --format text"},
      {"decode --iso-time", "--iso-time requires --format json or csv"},
      {"decode --format arrow --iso-time", "--iso-time requires --format json or csv"},
      {"decode --format json --binary-text", "--binary-text requires --format arrow or arrow-file"},
      {"decode --time-format ms", "--time-format requires --format json or csv"},
      {"decode --json --iso-time --time-format ms", "--iso-time is --time-format iso, not ms"},
      {"decode --csv --fields QTY --time-format excel",
       "--time-format: \"excel\" is neither iso, spreadsheet, s, ms, us, ns nor a strftime format such as %H:%M:%S"},
      {"decode --csv --fields QTY --time-digits 4", "--time-digits is 0, 3, 6 or 9"},
      {"decode --json --no-header", "--no-header requires --format csv"},
      {"decode --separator tab", "--separator requires --format csv"},
      {"decode --csv --fields QTY --separator ab", "--separator: \"ab\" is not one character, nor tab"},
      {"decode --fields @time", "--fields: @time requires --format json or csv"},
      {"encode --encoding mInt --fields @size",
       "--fields: @size is a property of messages, which JSON and CSV input does not have"},
      {"decode --from-time 09:30",
       "--from-time and --to-time require a capture; for other input, compare a field: 'FIELD >= "
       "2024-06-03T09:30:00'"},
      {"decode --format json --iso-time --time-zone Mars",
       "unknown time zone \"Mars\" (UTC, local, an offset such as +05:30, or a name that the system knows)"},
      {"decode --framing u8", "unknown framing \"u8\" (u16le, u16be, u32le, u32be)"},
      {"decode --framing u16le --from raw", "--framing cannot be combined with --from"},
      {"decode --group nowhere", "--group: \"nowhere\" is not an address"},
      {"decode --group nowhere in.hex", "--group: \"nowhere\" is not an address"},
      {"decode --framing u8 in.hex in.hex", "unknown framing \"u8\" (u16le, u16be, u32le, u32be)"},
      {"decode --port 5", "--port, --group and --filter require a capture, which standard input is not"},
      {"decode --where QTY", "--where \"QTY\": column 4: expected one of = != < <= > >= ~ =~ or \"in\", found the end"},
      {"decode --fields NOPE", "--fields: field NOPE: not in the dictionary fields.txt"},
      {"encode --encoding mInt --format pcap --destination 5",
       "--destination: \"5\" is not an IPv4 address and a port, such as 239.192.0.1:30001"},
      {"encode --encoding mInt --format pcap --source [::1]:5",
       "--source: \"[::1]:5\" is not an IPv4 address and a port, such as 239.192.0.1:30001"},
      {"encode --encoding mInt --time-field NOPE", "--time-field: field NOPE: not in the dictionary fields.txt"},
      {"stats --time-field QTY", "--time-field: field QTY is not an EPOCH_NSEC"},
  };
  for (const auto& [arguments, error] : cases) {
    SCOPED_TRACE(arguments);
    EXPECT_EQ(withFields(arguments, "062c010105\n"), (Result{"", std::string("mdmsg: ") + error + "\n", 2}));
  }
}

TEST_F(ProgramForms, WhereAMessageIsFromIsSelectedAndShown) {
#if defined(MDMSG_HAS_PCAP)
  write("quotes.pcap", withFields("encode --encoding mInt --format pcap --time-field RECV", kTwoQuotes).out);
  EXPECT_EQ(
      withFields("decode --json --fields @time,@source,@destination,@packet,@file,@size,@encoding,BID quotes.pcap"),
      (Result{"{\"@time\":1717407000173980747,\"@source\":\"192.0.2.1:30000\",\"@destination\":"
              "\"239.192.0.1:30001\",\"@packet\":1,\"@file\":\"quotes.pcap\",\"@size\":29,\"@encoding\":\"mInt\","
              "\"BID\":101.25}\n"
              "{\"@time\":1717407001000000000,\"@source\":\"192.0.2.1:30000\",\"@destination\":"
              "\"239.192.0.1:30001\",\"@packet\":2,\"@file\":\"quotes.pcap\",\"@size\":29,\"@encoding\":\"mInt\","
              "\"BID\":102.5}\n",
              "", 0}));
  EXPECT_EQ(withFields("decode --csv --fields \"@packet, @time, SYMBOL\" --time-format spreadsheet --time-zone +02:00 "
                       "--separator \";\" --where \"@packet = 2 and @source = 192.0.2.1\" quotes.pcap"),
            (Result{"@packet;@time;SYMBOL\n2;2024-06-03 11:30:01.000;AC\n", "", 0}));
  EXPECT_EQ(withFields("decode --csv --no-header --fields SYMBOL,RECV --time-format ms --from-time 500ms quotes.pcap"),
            (Result{"AC,1717407001000\n", "", 0}));
  EXPECT_EQ(
      withFields("decode --csv --no-header --fields SYMBOL --from-time 11:30:00.5 --time-zone +02:00 quotes.pcap"),
      (Result{"AC\n", "", 0}));
  // Output of the program for a message is accepted as input without a diagnostic.
  const std::string json = withFields("decode --json --fields @time,@packet,SYMBOL,BID,RECV quotes.pcap").out;
  EXPECT_EQ(withFields("encode --encoding mInt", json).out, withFields("encode --encoding mInt", kTwoQuotes).out);
  const std::string csv = withFields("decode --csv --fields @time,SYMBOL,BID,RECV quotes.pcap").out;
  EXPECT_EQ(withFields("encode --encoding mInt --csv", csv).out, withFields("encode --encoding mInt", kTwoQuotes).out);
#else
  GTEST_SKIP() << "there is no libpcap";
#endif
}

TEST_F(ProgramForms, CsvComesInTheFormOfItsReader) {
  EXPECT_EQ(withFields("encode --encoding mInt --csv --separator tab", "SYMBOL\tQTY\nA,B\t5\n"),
            withFields("encode --encoding mInt --csv", "SYMBOL, QTY\n\"A,B\", 5\n"));
  const std::string hex = withFields("encode --encoding mInt", R"({"SYMBOL":"A,B;C","QTY":5})").out;
  EXPECT_EQ(withFields("decode --csv --fields SYMBOL,QTY --separator tab", hex).out, "SYMBOL\tQTY\nA,B;C\t5\n");
  EXPECT_EQ(withFields("decode --csv --fields SYMBOL,QTY --separator \";\"", hex).out, "SYMBOL;QTY\n\"A,B;C\";5\n");
  const std::string all = withFields("decode --csv --fields all", hex).out;
  EXPECT_EQ(all.substr(0, 17), "CH,CH2,SEQ,SEQ2,B");
  EXPECT_NE(all.find("\n,,,,,"), all.npos) << all;
}

TEST_F(ProgramForms, MessagesAndFieldsAreSelected) {
  std::string json;
  for (int i = 0; i != 6; ++i) {
    json += "{\"QTY\":" + std::to_string(i) + ",\"SYMBOL\":\"S" + std::to_string(i % 2) + "\",\"BID\":1}\n";
  }
  const std::string hex = withFields("encode --encoding MsgT", json).out;
  EXPECT_EQ(withFields("decode --format json --where \"SYMBOL=S1\" --skip 1 --limit 1 --fields QTY,SYMBOL", hex),
            (Result{"{\"QTY\":3,\"SYMBOL\":\"S1\"}\n", "", 0}));
  EXPECT_EQ(withFields("decode --where \"QTY>=4\" --fields BID", hex),
            (Result{"BID                    = 1.0\n\nBID                    = 1.0\n", "", 0}));
  EXPECT_EQ(withFields("convert --encoding mInt --fields QTY --skip 5", hex), (Result{"062c010105\n", "", 0}));
  EXPECT_EQ(withFields("encode --encoding mInt --fields QTY --where \"QTY<2\" --where \"QTY>0\"", json),
            (Result{"062c010101\n", "", 0}));
  EXPECT_EQ(withFields("decode --format json --limit 0", hex), (Result{"", "", 0}));
  // What is not taken is not reported on.
  EXPECT_EQ(withFields("decode --format json --skip 1", "06e703000a\n062c010105\n"), (Result{"{\"QTY\":5}\n", "", 0}));
  EXPECT_EQ(withFields("dump --limit 1 --where \"QTY=5\"", withFields("convert --encoding mInt --fields QTY", hex).out),
            (Result{"# standard input:6: mInt, 5 bytes\n"
                    "000000  06                       code                                     mInt\n"
                    "000001  2c 01                    id     QTY                    INT        300\n"
                    "000003  01                       length QTY                    INT        1\n"
                    "000004  05                       value  QTY                    INT        5\n",
                    "", 0}));
}

TEST_F(ProgramForms, CsvComesBack) {
  const std::string csv =
      "CH,QTY,SEQ,VOLA,BID,SYMBOL,BLOB,WHEN,RECV\n"
      "B,-1,-9223372036854775808,0.5,-0.0,\"A,\"\"B\n\",00ff,20240115 93000000 -300,18446744073709551615\n"
      "\",\",,,NaN,-Infinity,\"\",\"\",,0\n"
      ",5,,,,,,,\n";
  for (const char* encoding : {"mInt", "IterMap", "MsgT"}) {
    SCOPED_TRACE(encoding);
    const Result hex = withFields(std::string("encode --csv --encoding ") + encoding, csv);
    EXPECT_EQ(hex.status, 0) << hex.err;
    EXPECT_EQ(withFields("decode --format csv --fields CH,QTY,SEQ,VOLA,BID,SYMBOL,BLOB,WHEN,RECV", hex.out),
              (Result{csv, "", 0}));
  }
  EXPECT_EQ(withFields("decode --format csv --fields RECV,BID --iso-time --time-zone +01:00",
                       withFields("encode --encoding mInt", kTwoQuotes).out),
            (Result{"RECV,BID\n"
                    "2024-06-03T10:30:00.173980747+01:00,101.25\n"
                    "2024-06-03T10:30:01.000000000+01:00,102.5\n",
                    "", 0}));
  EXPECT_EQ(
      withFields("decode --format csv --fields QTY,BID", "06 2c010105 16000800\n"),
      (Result{
          "QTY,BID\n5,\n",
          "mdmsg: standard input:1: note: field BID: the message is truncated within the value, of which it has 1 of 8 "
          "bytes\n",
          1}));
}

TEST_F(ProgramForms, MomentsInJsonComeBackToo) {
  const std::string hex = withFields("encode --encoding IterMap", kTwoQuotes).out;
  const Result json = withFields("decode --format json --iso-time", hex);
  EXPECT_EQ(json, (Result{"{\"SYMBOL\":\"AB\",\"BID\":101.25,\"RECV\":\"2024-06-03T09:30:00.173980747Z\"}\n"
                          "{\"SYMBOL\":\"AC\",\"BID\":102.5,\"RECV\":\"2024-06-03T09:30:01.000000000Z\"}\n",
                          "", 0}));
  EXPECT_EQ(withFields("encode --encoding IterMap", json.out), (Result{hex, "", 0}));
}

TEST_F(ProgramForms, StatsTakeTheFarthestTimes) {
  const std::string hex = withFields("encode --encoding mInt", "{\"RECV\":9223372036854775807}\n{\"RECV\":0}\n").out;
  const Result result = withFields("stats --time-field RECV", hex);
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("\nmessages by time, 55555.555 h a bar\n  00:00:00.000                   1 #"),
            std::string::npos)
      << result;
}

TEST_F(ProgramForms, DumpsWhatCannotBeRead) {
  EXPECT_EQ(
      withFields("dump", "06 2c01 04 05\n\n07\nzz\n"),
      (Result{
          "# standard input:1: mInt, 5 bytes\n"
          "000000  06                       code                                     mInt\n"
          "000001  2c 01                    id     QTY                    INT        300\n"
          "000003  04                       length QTY                    INT        4\n"
          "000004  05                       value  QTY                    INT        ! the message is truncated within "
          "the value, of which it has 1 of 4 bytes\n"
          "\n"
          "# standard input:3: unknown encoding, 1 byte\n"
          "000000  07                       code                                     ! unknown encoding byte "
          "(01 IterMap, 06 mInt, 46 MsgT)\n",
          "mdmsg: standard input:4: column 1: \"z\" is not a hex digit\n", 1}));
  EXPECT_EQ(withFields("dump --color always", "06\n"),
            (Result{"# standard input:1: mInt, 1 byte\n"
                    "\x1b[2m000000\x1b[0m  06                       code                                     mInt\n",
                    "", 0}));
}

TEST_F(ProgramForms, CountsWithoutACapture) {
  const Result result =
      withFields("stats --time-field RECV", withFields("encode --encoding MsgT", kTwoQuotes).out +
                                                withFields("encode --encoding mInt", kTwoQuotes).out + "07\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out.substr(0, result.out.find("\n  09:30:00.193")),
            "messages                         4, 152 bytes\n"
            "  mInt                           2    50.0 %, 58 bytes, 29.0 each\n"
            "  MsgT                           2    50.0 %, 94 bytes, 47.0 each\n"
            "malformed                        0\n"
            "truncated                        0\n"
            "with unknown fields              0\n"
            "unrecognised                     1\n"
            "\n"
            "time\n"
            "  first               2024-06-03T09:30:00.173980747Z\n"
            "  last                2024-06-03T09:30:01.000000000Z\n"
            "  span                826.019 ms\n"
            "  mean rate           4.842 messages/s\n"
            "  peak rate           100 messages/s in 20 ms\n"
            "\n"
            "messages by time, 20 ms a bar\n"
            "  09:30:00.173                   2 #############################################");
  EXPECT_EQ(
      result.out.substr(result.out.find("\nsize in bytes")),
      "\n"
      "size in bytes\n"
      "  min                 29\n"
      "  median              29\n"
      "  p99                 47\n"
      "  max                 47\n"
      "\n"
      "messages by size\n"
      "  29                             2 #############################################\n"
      "  30                             0\n  31                             0\n  32                             0\n"
      "  33                             0\n  34                             0\n  35                             0\n"
      "  36                             0\n  37                             0\n  38                             0\n"
      "  39                             0\n  40                             0\n  41                             0\n"
      "  42                             0\n  43                             0\n  44                             0\n"
      "  45                             0\n  46                             0\n"
      "  47                             2 #############################################\n"
      "\n"
      "messages by field\n"
      "  BID                            4   100.0 %\n"
      "  SYMBOL                         4   100.0 %\n"
      "  RECV                           4   100.0 %\n");
}

#if defined(MDMSG_HAS_PCAP)

class ProgramCaptures : public Program {
 protected:
  static std::string payloadOf(const std::string& hex) {
    std::vector<std::uint8_t> bytes;
    MD::tool::parseHex(hex, MD::tool::Blanks::BetweenBytes, bytes);
    return {bytes.begin(), bytes.end()};
  }
};

TEST_F(ProgramCaptures, ACaptureComesBack) {
  for (const char* encoding : {"mInt", "IterMap", "MsgT"}) {
    SCOPED_TRACE(encoding);
    EXPECT_EQ(withFields(std::string("encode --format pcap --time-field RECV --source 10.0.0.1:5 --destination "
                                     "239.1.1.1:30001 --force --output quotes.pcap --encoding ") +
                             encoding,
                         kTwoQuotes),
              (Result{"", "", 0}));
    EXPECT_EQ(withFields("decode --format json quotes.pcap"), (Result{kTwoQuotes, "", 0}));
    EXPECT_EQ(withFields("decode --format json --from pcap", contentsOf("quotes.pcap")), (Result{kTwoQuotes, "", 0}));
    // Converted, the packets keep their times.
    EXPECT_EQ(
        withFields(std::string("convert --format pcap --source 10.0.0.1:5 --destination 239.1.1.1:30001 --encoding ") +
                   encoding + " quotes.pcap"),
        (Result{contentsOf("quotes.pcap"), "", 0}));
  }
  EXPECT_EQ(withFields("dump --limit 1 --fields QTY quotes.pcap").status, 2);
  const Result dumped = withFields("dump --skip 1 quotes.pcap");
  EXPECT_EQ(
      dumped.out.substr(0, dumped.out.find('\n')),
      "# quotes.pcap: packet 2 (byte 129), 2024-06-03T09:30:01.000000000Z, 10.0.0.1:5 to 239.1.1.1:30001: MsgT, 47 "
      "bytes");
}

TEST_F(ProgramCaptures, StatsCountWhatWasDamaged) {
  // Every twentieth datagram of 1,000 is corrupted, in one of four ways.
  MD::tool::CaptureWriter writer(*MD::tool::parseEndpoint("10.0.0.1:5"), *MD::tool::parseEndpoint("239.1.1.1:30001"));
  std::string capture;
  MD::tool::CaptureWriter::begin(capture);
  const std::string sound[] = {payloadOf("06 3c0003414200 1600080000000000505940 2c010105"),
                               payloadOf("01 3c000300414200 16000000000000505940 2c0105000000"),
                               payloadOf("46515231 003c000600000003414200 012c00020000000400000005")};
  const std::string damaged[] = {
      payloadOf("06 3c0003414200 1600080000000000"),   // truncated
      payloadOf("06 3c0003414200 e7030105 2c010105"),  // an unknown field
      payloadOf("46515231 003c000500000003414200"),    // another type
      payloadOf("08 00 01 01 00 00 00 00"),            // unrecognised
  };
  for (int i = 0; i != 1000; ++i) {
    const std::string& payload = i % 20 == 0 ? damaged[i / 20 % 4] : sound[i % 3];
    writer.append(1'717'407'000'000'000'000 + std::int64_t{i} * 1'000'000,
                  reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size(), capture);
  }
  write("damaged.pcap", capture);
  const Result result = withFields("stats --svg picture.svg damaged.pcap");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out.substr(0, result.out.find("\nmessages by time")),
            "packets                       1000\n"
            "  UDP datagrams               1000\n"
            "messages                       988, 23684 bytes\n"
            "  mInt                         343    34.7 %, 7364 bytes, 21.4 each\n"
            "  IterMap                      317    32.0 %, 7608 bytes, 24.0 each\n"
            "  MsgT                         328    33.1 %, 8712 bytes, 26.5 each\n"
            "malformed                       12\n"
            "truncated                       13\n"
            "with unknown fields             13, ids 999 (13), not in the dictionary fields.txt\n"
            "unrecognised                    12\n"
            "\n"
            "time\n"
            "  first               2024-06-03T09:30:00.000000000Z\n"
            "  last                2024-06-03T09:30:00.999000000Z\n"
            "  span                999 ms\n"
            "  mean rate           988 messages/s\n"
            "  peak rate           1000 messages/s in 20 ms\n");
  EXPECT_EQ(contentsOf("picture.svg").rfind("<svg ", 0), 0U);
}

TEST_F(ProgramCaptures, WhatIsNoCaptureIsSaid) {
  EXPECT_EQ(withFields("decode --from pcap", "062c010105\n062c010105\n062c010105\n"),
            (Result{"", "mdmsg: standard input: not a readable capture: unknown file format\n", 1}));
  write("quotes.pcap", withFields("encode --encoding mInt --format pcap", kTwoQuotes).out);
  EXPECT_EQ(withFields("decode --filter \"udp and and\" quotes.pcap"),
            (Result{"", "mdmsg: --filter \"udp and and\": can't parse filter expression: syntax error\n", 2}));
}

class RecordedCaptures : public Program {};

TEST_F(RecordedCaptures, ForeignDatagramsAreCountedAndNothingIsInvented) {
  const std::string path = dataFile("udp_realtime.pcap");
  if (path.empty()) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with udp_realtime.pcap";
  }
  write("realtime.pcap", contentsOf(path));
  const std::string report =
      "mdmsg: realtime.pcap: 739 of 739 datagrams have an unknown encoding byte (packets 1-739): byte 08 (720), "
      "28 (5), 1c (4), 30 (4), 1e (2), ...\n";
  for (const char* command : {"decode", "decode --format json", "convert --encoding mInt"}) {
    SCOPED_TRACE(command);
    EXPECT_EQ(withFields(std::string(command) + " realtime.pcap"), (Result{"", report, 1}));
  }
  EXPECT_EQ(withFields("stats realtime.pcap"),
            (Result{"packets                        739\n"
                    "  UDP datagrams                739\n"
                    "messages                         0, 0 bytes\n"
                    "malformed                        0\n"
                    "truncated                        0\n"
                    "with unknown fields              0\n"
                    "unrecognised                   739\n"
                    "\n"
                    "endpoints\n"
                    "  127.0.0.1:41337 to 239.39.62.190:32001 (multicast)        375, 3655 bytes, "
                    "2014-09-01T02:06:39.282409000Z to 2014-09-01T02:13:25.081552000Z\n"
                    "  127.0.0.1:41508 to 239.39.62.191:32001 (multicast)        364, 2912 bytes, "
                    "2014-09-01T02:06:40.221090000Z to 2014-09-01T02:13:24.421905000Z\n",
                    "", 1}));
  EXPECT_EQ(withFields("decode --group 239.39.62.190 realtime.pcap").err.substr(0, 73),
            "mdmsg: realtime.pcap: 375 of 375 datagrams have an unknown encoding byte ");
  EXPECT_EQ(withFields("decode --port 5 realtime.pcap"),
            (Result{"",
                    "mdmsg: realtime.pcap: no UDP datagram that matches the options in 739 packets (739 not "
                    "selected)\n",
                    1}));
}

TEST_F(RecordedCaptures, TcpYieldsNoDatagram) {
  const struct {
    const char* name;
    const char* report;
  } cases[] = {
      {"tcp_gap.pcap", "mdmsg: capture.pcap: no UDP datagram in 42 packets (42 TCP)\n"},
      {"tcp_spin.pcap", "mdmsg: capture.pcap: no UDP datagram in 33 packets (33 TCP)\n"},
  };
  for (const auto& [name, report] : cases) {
    const std::string path = dataFile(name);
    if (path.empty()) {
      GTEST_SKIP() << "MD_TEST_DATA names no folder with " << name;
    }
    write("capture.pcap", contentsOf(path));
    EXPECT_EQ(withFields("decode capture.pcap"), (Result{"", report, 1}));
    EXPECT_EQ(withFields("dump capture.pcap"), (Result{"", report, 1}));
  }
}

TEST_F(RecordedCaptures, ACutInsideAPacketGivesEverythingBefore) {
  const std::string path = dataFile("udp_realtime.pcap");
  if (path.empty()) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with udp_realtime.pcap";
  }
  write("cut.pcap", contentsOf(path).substr(0, 40'000));
  EXPECT_EQ(withFields("decode cut.pcap"),
            (Result{"",
                    "mdmsg: cut.pcap: packet 598 (byte 39957) cannot be read: truncated dump file; tried to read 50 "
                    "captured bytes, only got 27; everything before this was processed\n"
                    "mdmsg: cut.pcap: 597 of 597 datagrams have an unknown encoding byte (packets 1-597): byte 08 "
                    "(583), 28 (5), 30 (3), 1c (2), 21 (1), ...\n",
                    1}));
}

#else

TEST_F(ProgramForms, ACaptureCannotBeReadWithoutItsLibrary) {
  write("quotes.json", kTwoQuotes);
  EXPECT_EQ(withFields("encode --format pcap --output quotes.pcap --encoding mInt quotes.json").status, 0);
  EXPECT_EQ(withFields("decode quotes.pcap"),
            (Result{"", "mdmsg: captures cannot be read: this mdmsg was built without libpcap\n", 2}));
}

#endif

class RecordedMessages : public Program {
 protected:
  /// Sends JSON lines through encode and decode in every encoding.
  static void expectWayBack(const std::string& dictionary, const std::string& json) {
    write("recorded.txt", dictionary);
    for (const char* encoding : {"mInt", "IterMap", "MsgT"}) {
      SCOPED_TRACE(encoding);
      const std::string encode = std::string("encode --dictionary recorded.txt --encoding ") + encoding;
      const Result hex = mdmsg(encode, json);
      EXPECT_EQ(hex.status, 0) << hex.err.substr(0, 1000);
      const Result decoded = mdmsg("decode --format json --dictionary recorded.txt", hex.out);
      EXPECT_EQ(decoded.status, 0) << decoded.err.substr(0, 1000);
      const Result again = mdmsg(encode, decoded.out);
      EXPECT_EQ(again.status, 0) << again.err.substr(0, 1000);
      EXPECT_TRUE(again.out == hex.out) << "the way back gives other bytes";
      EXPECT_FALSE(hex.out.empty());
    }
  }
};

/// The value of a wide message as JSON of its field's type.
nlohmann::json jsonOf(const std::string& type, const std::string& value) {
  if (type == "string") {
    return value;
  }
  if (type == "bool") {
    return value == "true" ? "Y" : "N";
  }
  if (type == "null") {
    return nlohmann::json{{"hex", ""}};
  }
  return nlohmann::json::parse(value);
}

TEST_F(RecordedMessages, WideOnesComeBackByteForByte) {
  const std::string path = dataFile("wide.tsv");
  if (path.empty()) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with wide.tsv";
  }
  const std::map<std::string, const char*> typeNames = {
      {"string", "STRING"}, {"real", "DOUBLE"}, {"int", "INT64"}, {"bool", "CHAR"}, {"null", "BUFFER"}};
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  std::map<std::string, std::size_t> ids;
  std::string dictionary;
  std::string json;
  std::string current;
  std::size_t messages = 0;
  while (std::getline(file, line)) {
    std::vector<std::string> cells;
    std::istringstream row(line + '\t');
    for (std::string cell; std::getline(row, cell, '\t');) {
      cells.push_back(cell);
    }
    ASSERT_EQ(cells.size(), 7U) << line;
    // The same name has different types at different venues.
    const std::string name = cells[4] + ':' + cells[5];
    if (ids.emplace(name, ids.size() + 1).second) {
      dictionary += name + ' ' + std::to_string(ids.size()) + ' ' + typeNames.at(cells[5]) + '\n';
    }
    json += cells[0] != current ? (current.empty() ? "{" : "}\n{") : ",";
    messages += cells[0] != current ? 1U : 0U;
    current = cells[0];
    json += nlohmann::json(name).dump() + ':' + jsonOf(cells[5], cells[6]).dump();
  }
  EXPECT_EQ(messages, 1019U);
  expectWayBack(dictionary, json + "}\n");
}

}  // namespace
