// --split-by: one file per value. merge: several inputs in order of time.
#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "messages/file_names.h"
#include "tools/run_support.h"
#include "transport/capture.h"

namespace {

using MD::test::contentsOf;
using MD::test::dataFile;
using MD::test::Result;
using MD::test::runTool;

/// The names of the files in a folder.
std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

class Split : public MD::test::ToolRun {
 protected:
  Split() { std::filesystem::create_directory("out"); }

  /// As a hex line, an mInt with these bytes as SYMBOL.
  static std::string symbolLine(const std::string& symbol) {
    write("symbol.json", "{\"SYMBOL\":" + symbol + "}\n");
    return mdmsg("encode --encoding MsgT symbol.json").out;
  }
};

TEST(NamePart, IsReversibleAndStaysInItsFolder) {
  const struct {
    std::string value;
    const char* name;
  } kRows[] = {{"BRK.B", "BRK.B"},
               {"EUR/USD", "EUR%2FUSD"},
               {"..", "%2E%2E"},
               {".", "%2E"},
               {"../../etc/passwd", "%2E.%2F..%2Fetc%2Fpasswd"},
               {"a.", "a%2E"},
               {"", "%"},
               {"%", "%25"},
               {"%-", "%25-"},
               {std::string("a\0b", 3), "a%00b"},
               {"a b\n", "a%20b%0A"},
               {"C:\\x*?\"<>|", "C%3A%5Cx%2A%3F%22%3C%3E%7C"},
               {"\xc3\xa9~", "%C3%A9%7E"},
               {"-_+=@,", "-_+=@,"}};
  for (const auto& row : kRows) {
    std::string name;
    MD::tool::appendNamePart(row.value, name);
    EXPECT_EQ(name, row.name);
  }
}

TEST_F(Split, HostileValuesStayInTheFolder) {
  std::string lines;
  for (const char* const symbol : {"\"../up\"", "\"/etc/x\"", "\"a\\u0000b\"", "\"\"", "\"..\"", "\"AB\"", "\"AB\""}) {
    lines += symbolLine(symbol);
  }
  write("q.json", "{\"BID\":5}\n");
  lines += mdmsg("encode --encoding mInt q.json").out;
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --output out/{SYMBOL}", lines), (Result{"", "", 0}));
  EXPECT_EQ(namesIn("out"), (std::set<std::string>{"%2E.%2Fup", "%2Fetc%2Fx", "a%00b", "%", "%2E%2E", "AB", "%-"}));
  EXPECT_EQ(contentsOf("out/AB"), symbolLine("\"AB\"") + symbolLine("\"AB\""));
}

TEST_F(Split, NamesOfDevicesAreEscaped) {
  const auto names = [](const std::string& output, const std::vector<const char*>& symbols) {
    std::string lines;
    for (const char* const symbol : symbols) {
      lines += symbolLine('"' + std::string(symbol) + '"');
    }
    EXPECT_EQ(mdmsg("filter --split-by SYMBOL --output " + output, lines), (Result{"", "", 0}));
    std::set<std::string> found = namesIn("out");
    for (const std::string& name : found) {
      std::filesystem::remove("out/" + name);
    }
    return found;
  };
  using Names = std::set<std::string>;
  EXPECT_EQ(names("out/{SYMBOL}.hex", {"NUL", "con", "Aux", "PRN", "COM1", "lpt9", "COM0"}),
            (Names{"%4EUL.hex", "%63on.hex", "%41ux.hex", "%50RN.hex", "%43OM1.hex", "%6Cpt9.hex", "%43OM0.hex"}));
  EXPECT_EQ(names("out/{SYMBOL}", {"NUL.a.b", "NUL.", "NUL ", "CON.", "COM1.x"}),
            (Names{"%4EUL.a.b", "NUL%2E", "NUL%20", "CON%2E", "%43OM1.x"}));
  EXPECT_EQ(names("out/{SYMBOL}.hex", {"NULL", "COM", "COM10", "COMX", "ACON", "LPT", "CONIN", "A.NUL"}),
            (Names{"NULL.hex", "COM.hex", "COM10.hex", "COMX.hex", "ACON.hex", "LPT.hex", "CONIN.hex", "A.NUL.hex"}));
  // It is the whole name that counts.
  EXPECT_EQ(names("out/x{SYMBOL}", {"NUL", "CON"}), (Names{"xNUL", "xCON"}));
  EXPECT_EQ(names("out/co{SYMBOL}.hex", {"n", "M5", "x"}), (Names{"co%6E.hex", "co%4D5.hex", "cox.hex"}));
  EXPECT_EQ(names("out/{SYMBOL}$", {"CONIN", "conout", "NUL"}), (Names{"%43ONIN$", "%63onout$", "NUL$"}));
}

TEST_F(Split, TemplatesThatNameADeviceAreRefused) {
  const auto split = [line = symbolLine("\"AB\"")](const std::string& name) {
    return runTool({"filter", "--split-by", "SYMBOL", "--output", "out/" + name}, line);
  };
  for (const std::string name : {"NUL.{SYMBOL}", "nul.x-{SYMBOL}.hex", "Con .{SYMBOL}", "COM7.{SYMBOL}",
                                 "conin$.{SYMBOL}", "LPT\xc2\xb3.{SYMBOL}", "aux:{SYMBOL}"}) {
    EXPECT_EQ(
        split(name),
        (Result{"", "mdmsg: --output \"out/" + name + "\": its files would have the name of a device on Windows\n",
                2}));
  }
  EXPECT_EQ(namesIn("out"), std::set<std::string>());
  for (const std::string name : {"NUL{SYMBOL}", "NUL-.{SYMBOL}", "NULL.{SYMBOL}", "COM10.{SYMBOL}", ".NUL{SYMBOL}"}) {
    EXPECT_EQ(split(name), (Result{"", "", 0}));
  }
  EXPECT_EQ(namesIn("out"), (std::set<std::string>{"NULAB", "NUL-.AB", "NULL.AB", "COM10.AB", ".NULAB"}));
}

TEST_F(Split, LongValuesAreReported) {
  const std::string longest(255, 'x');
  const std::string lines = symbolLine('"' + longest + '"') + symbolLine('"' + longest + "x\"");
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --output out/{SYMBOL}", lines),
            (Result{"", "mdmsg: standard input:2: the name of its file would be longer than 255 bytes\n", 1}));
  EXPECT_EQ(namesIn("out"), std::set<std::string>{longest});
}

TEST_F(Split, FilesAreBoundedAndNotOverwritten) {
  std::string lines;
  for (int i = 0; i != 5; ++i) {
    lines += symbolLine('"' + std::to_string(i) + '"');
  }
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --max-files 3 --output out/{SYMBOL}", lines),
            (Result{"",
                    "mdmsg: --split-by needs more than 3 files (--max-files)\n"
                    "mdmsg: the files of --split-by hold only a part of the output\n",
                    2}));
  EXPECT_EQ(namesIn("out"), (std::set<std::string>{"0", "1", "2"}));
  EXPECT_EQ(contentsOf("out/2"), symbolLine("\"2\""));
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --output out/{SYMBOL}", lines).err,
            "mdmsg: out/0 exists; --force overwrites it\n");
  std::filesystem::remove("out/0");
  std::filesystem::remove("out/1");
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --output out/{SYMBOL}", lines),
            (Result{"",
                    "mdmsg: out/2 exists; --force overwrites it\n"
                    "mdmsg: the files of --split-by hold only a part of the output\n",
                    2}));
  EXPECT_EQ(contentsOf("out/0"), symbolLine("\"0\""));
  EXPECT_EQ(contentsOf("out/1"), symbolLine("\"1\""));
  write("out/0", "longer than what is written into it, by far: longer than what is written into it, by far\n");
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --force --output out/{SYMBOL}", lines), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("out/0"), symbolLine("\"0\""));
#ifndef _WIN32
  std::filesystem::remove("out/1");
  std::filesystem::create_symlink("../symbol.json", "out/1");
  EXPECT_EQ(
      mdmsg("filter --split-by SYMBOL --output out/{SYMBOL}", lines.substr(lines.size() / 5, lines.size() / 5)).err,
      "mdmsg: out/1 exists; --force overwrites it\n");
#endif
  write("out/in", lines);
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --force --output out/i{SYMBOL} out/in", "").status, 0);
  write("out/x3", lines);
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --force --output out/x{SYMBOL} out/x3").err.substr(0, 34),
            "mdmsg: out/x3 is an input, too\nmdm");
}

TEST_F(Split, TemplatesAreChecked) {
  const auto refused = [](const char* by, const char* output) {
    return mdmsg(std::string("filter --split-by ") + by + " --output " + output, "062c010105\n").err;
  };
  EXPECT_EQ(refused("SYMBOL", "out/x"), "mdmsg: --output \"out/x\": it lacks {SYMBOL}, a field of --split-by\n");
  EXPECT_EQ(refused("SYMBOL", "{SYMBOL}/x"),
            "mdmsg: --output \"{SYMBOL}/x\": the values are part of the file's name, not of its folder\n");
  EXPECT_EQ(refused("SYMBOL", "{SYMBOL}{BID}"),
            "mdmsg: --output \"{SYMBOL}{BID}\": \"BID\" is not a field of --split-by\n");
  EXPECT_EQ(refused("SYMBOL", "{SYMBOL"), "mdmsg: --output \"{SYMBOL\": a brace is not closed\n");
  EXPECT_EQ(refused("NOPE", "{NOPE}").substr(0, 31), "mdmsg: --split-by: field NOPE: ");
  EXPECT_NE(mdmsg("filter --split-by SYMBOL", "").err.find("--output"), std::string::npos);
}

TEST_F(Split, ManyFilesInAnyOrderHoldEverything) {
  // More values than descriptors, and blocks that are written in several turns.
  std::string lines;
  std::string expected;
  for (int i = 0; i != 3000; ++i) {
    const std::string symbol = std::to_string(i % 1500);
    lines += "{\"SYMBOL\":\"" + symbol + "\",\"BID\":" + std::to_string(i) + "}\n";
  }
  write("q.json", lines);
  write("q.hex", mdmsg("encode --encoding mInt q.json").out);
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --max-files 1500 --output out/{SYMBOL}.hex q.hex"), (Result{"", "", 0}));
  EXPECT_EQ(namesIn("out").size(), 1500U);
  EXPECT_EQ(mdmsg("decode --json out/7.hex").out, "{\"SYMBOL\":\"7\",\"BID\":7}\n{\"SYMBOL\":\"7\",\"BID\":1507}\n");
}

TEST_F(Split, LargeFilesAreWrittenInSeveralBlocks) {
  const std::string lines = mdmsg("generate --symbols A,B --count 3000").out;
  EXPECT_GT(lines.size(), 400'000U);
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --output out/{SYMBOL}.hex", lines), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("out/A.hex"), mdmsg("filter --where SYMBOL=A", lines).out);
  EXPECT_EQ(contentsOf("out/B.hex"), mdmsg("filter --where SYMBOL=B", lines).out);
#if defined(MDMSG_HAS_ZSTD)
  EXPECT_EQ(mdmsg("filter --split-by SYMBOL --output out/{SYMBOL}.hex.zst", lines), (Result{"", "", 0}));
  EXPECT_EQ(mdmsg("filter out/A.hex.zst").out, contentsOf("out/A.hex"));
  EXPECT_LT(contentsOf("out/A.hex.zst").size(), contentsOf("out/A.hex").size() / 2);
#endif
}

class Merge : public Split {};

TEST_F(Merge, LinesAreInOrderOfAField) {
  write("a.json", "{\"RECV_TIME\":1}\n{\"RECV_TIME\":5,\"SYMBOL\":\"a\"}\n{\"BID\":1}\n{\"RECV_TIME\":9}\n");
  write("b.json", "{\"RECV_TIME\":2}\n{\"RECV_TIME\":5,\"SYMBOL\":\"b\"}\n{\"RECV_TIME\":7}\n{\"RECV_TIME\":6}\n");
  write("a.hex", mdmsg("encode --encoding mInt a.json").out);
  write("b.hex", mdmsg("encode --encoding MsgT b.json").out);
  const Result merged = mdmsg("merge --time-field RECV_TIME a.hex b.hex");
  EXPECT_EQ(merged.err, "mdmsg: b.hex: 1 message is earlier than the one before; inputs are not sorted\n");
  EXPECT_EQ(merged.status, 1);
  EXPECT_EQ(mdmsg("decode --json", merged.out).out,
            "{\"RECV_TIME\":1}\n{\"RECV_TIME\":2}\n{\"RECV_TIME\":5,\"SYMBOL\":\"a\"}\n{\"BID\":1}\n"
            "{\"RECV_TIME\":5,\"SYMBOL\":\"b\"}\n{\"RECV_TIME\":7}\n{\"RECV_TIME\":6}\n{\"RECV_TIME\":9}\n");
  EXPECT_EQ(mdmsg("merge a.hex b.hex"),
            (Result{"", "mdmsg: a.hex is not a capture and has no timestamps; name a field with --time-field\n", 2}));
  EXPECT_EQ(mdmsg("merge --time-field SYMBOL a.hex").err, "mdmsg: --time-field: field SYMBOL is not an EPOCH_NSEC\n");
  EXPECT_EQ(mdmsg("merge - -").err, "mdmsg: only one of the inputs can be standard input\n");
  const std::string broken = "zz\n" + contentsOf("b.hex");
  EXPECT_EQ(mdmsg("merge --time-field RECV_TIME a.hex -", broken).out, merged.out);
  EXPECT_EQ(mdmsg("merge --time-field RECV_TIME a.hex -", broken).err,
            "mdmsg: standard input:1: column 1: \"z\" is not a hex digit\n"
            "mdmsg: standard input: 1 message is earlier than the one before; inputs are not sorted\n");
  EXPECT_EQ(mdmsg("merge --time-field RECV_TIME a.hex none.hex").status, 2);
}

TEST_F(Merge, FramingStays) {
  const std::string feed = mdmsg("generate --format u16be --count 20").out;
  EXPECT_EQ(mdmsg("merge --framing u16be --time-field SEND_TIME", feed), (Result{feed, "", 0}));
}

#if defined(MDMSG_HAS_PCAP)

TEST_F(Merge, PutsSplitCapturesTogetherAgain) {
  const std::string capture = mdmsg("generate --format pcap --count 3000 --damaged 10").out;
  write("f.pcap", capture);
  EXPECT_EQ(mdmsg("filter --all-packets --split-by SYMBOL,@encoding --output out/{SYMBOL}.{@encoding}.pcap f.pcap"),
            (Result{"", "", 0}));
  std::vector<std::string> arguments{"merge"};
  for (const std::string& name : namesIn("out")) {
    arguments.push_back("out/" + name);
  }
  EXPECT_GT(arguments.size(), 10U);
  const Result merged = runTool(arguments);
  EXPECT_EQ(merged.err, "");
  EXPECT_TRUE(merged.out == capture);
}

TEST_F(Merge, InputsWithoutAMessageFitAnyOther) {
  const std::string capture = mdmsg("generate --format pcap --count 5").out;
  write("f.pcap", capture);
  write("quiet.pcap", capture.substr(0, 24));
  write("empty", "");
  EXPECT_EQ(mdmsg("merge quiet.pcap"), (Result{capture.substr(0, 24), "", 0}));
  EXPECT_EQ(mdmsg("merge quiet.pcap f.pcap empty"), (Result{capture, "", 0}));
  write("cut.pcap", capture.substr(0, 30));
  const Result merged = mdmsg("merge f.pcap cut.pcap");
  EXPECT_EQ(merged.out, capture);
  EXPECT_EQ(merged.err.rfind("mdmsg: cut.pcap: packet 1 (byte 24) cannot be read: ", 0), 0U) << merged.err;
  EXPECT_EQ(merged.status, 1);
  write("other.pcap", mdmsg("generate --format pcap --count 5 --destination 239.192.0.1:40001").out);
  const Result selected = mdmsg("merge --port 40001 f.pcap other.pcap");
  EXPECT_EQ(selected.out, contentsOf("other.pcap"));
  EXPECT_EQ(selected.err, "mdmsg: f.pcap: no UDP datagram that matches the options in 5 packets (5 not selected)\n");
  EXPECT_EQ(selected.status, 1);
  write("a.hex", mdmsg("generate --count 2").out);
  EXPECT_EQ(mdmsg("merge --time-field SEND_TIME f.pcap a.hex").err,
            "mdmsg: a.hex is of another kind than the input before it; one output cannot hold both\n");
}

TEST_F(Merge, CapturesOfSeveralFormats) {
  using namespace MD::tool;
  const auto captureOf = [](const CaptureFormat& format, std::int64_t timeNs, std::size_t sizeBytes) {
    std::string out;
    appendCaptureHeader(format, out);
    const std::uint8_t bytes[100] = {};
    CapturedPacket packet;
    packet.data = bytes;
    packet.sizeBytes = packet.wireBytes = static_cast<std::uint32_t>(sizeBytes);
    appendPacket(packet, format, timeNs, out);
    return out;
  };
  CaptureFormat us;
  us.isNanosecond = false;
  us.isBigEndian = true;
  us.snapshotBytes = 70;
  CaptureFormat ns;
  ns.snapshotBytes = 90;
  write("us.pcap", captureOf(us, 2'000'001'000, 60));
  write("ns.pcap", captureOf(ns, 1'000'000'001, 80));
  std::string expected = captureOf(ns, 1'000'000'001, 80) + captureOf(ns, 2'000'001'000, 60).substr(24);
  EXPECT_EQ(mdmsg("merge us.pcap ns.pcap"), (Result{expected, "", 0}));
  EXPECT_EQ(mdmsg("merge us.pcap us.pcap").out,
            captureOf(us, 2'000'001'000, 60) + captureOf(us, 2'000'001'000, 60).substr(24));
  CaptureFormat ip;
  ip.link = kLinkIpv4;
  write("ip.pcap", captureOf(ip, 0, 40));
  EXPECT_EQ(
      mdmsg("merge us.pcap ip.pcap"),
      (Result{"", "mdmsg: ip.pcap has packets of another link type than the captures before it; pcap holds one type\n",
              2}));
  write("f.hex", "061c000105\n");
  EXPECT_EQ(mdmsg("merge us.pcap f.hex"),
            (Result{"", "mdmsg: f.hex is not a capture and has no timestamps; name a field with --time-field\n", 2}));
}

TEST_F(Merge, RecordedCapturesComeTogetherAgain) {
  const std::string path = dataFile("udp_realtime.pcap");
  if (path.empty()) {
    GTEST_SKIP() << "MD_TEST_DATA leads to no recorded data";
  }
  const std::string original = contentsOf(path);
  EXPECT_EQ(mdmsg("filter --all-packets --split-by @destination,@size --output out/{@destination}-{@size} " + path),
            (Result{"", "", 0}));
  const std::set<std::string> names = namesIn("out");
  EXPECT_EQ(names.count("239.39.62.190%3A32001-8"), 1U);
  std::vector<std::string> arguments{"merge"};
  for (const std::string& name : names) {
    arguments.push_back("out/" + name);
  }
  const Result merged = runTool(arguments);
  EXPECT_EQ(merged.err, "");
  ASSERT_EQ(merged.out.size(), original.size());
  // Packets of one timestamp may be in another order.
  EXPECT_EQ(mdmsg("merge " + path).out, original);
  for (const char* const name : {"tcp_gap.pcap", "tcp_spin.pcap"}) {
    EXPECT_TRUE(mdmsg("merge " + dataFile(name)).out == contentsOf(dataFile(name)));
  }
}

#endif

}  // namespace
