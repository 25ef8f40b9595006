// The command "filter": what is selected goes out with the same bytes.
#include <cstdint>
#include <cstdlib>

#include <algorithm>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tools/run_support.h"
#include "transport/capture.h"

namespace {

using MD::test::dataFile;
using MD::test::Result;

class Filter : public MD::test::ToolRun {
 protected:
  static std::string generated(const std::string& form, const std::string& options = "--count 300") {
    return mdmsg("generate --format " + form + ' ' + options).out;
  }
};

TEST_F(Filter, LinesStayAsTheyAre) {
  const std::string lines = "06 1C00 01 05\n061c000106\n\n06 1c 00 01 07";
  EXPECT_EQ(mdmsg("filter", lines), (Result{"06 1C00 01 05\n061c000106\n06 1c 00 01 07\n", "", 0}));
  EXPECT_EQ(mdmsg("filter --where 28=6", "\xef\xbb\xbf 061C000106\r\n061c000105\r\n"),
            (Result{" 061C000106\n", "", 0}));
  EXPECT_EQ(mdmsg("filter --skip 1 --limit 1", lines), (Result{"061c000106\n", "", 0}));
}

TEST_F(Filter, FramingAndRawStayAsTheyAre) {
  for (const std::string form : {"u16le", "u16be", "u32le", "u32be"}) {
    SCOPED_TRACE(form);
    const std::string feed = generated(form);
    EXPECT_EQ(mdmsg("filter --framing " + form, feed), (Result{feed, "", 0}));
  }
  const std::string message = generated("raw", "--count 1");
  EXPECT_EQ(mdmsg("filter --from raw", message), (Result{message, "", 0}));
  write("one", message);
  EXPECT_EQ(
      mdmsg("filter --from raw one one"),
      (Result{message, "mdmsg: one: a raw output holds one message; u16le, u16be, u32le and u32be keep several apart\n",
              1}));
}

TEST_F(Filter, UnknownFieldsAndTruncatedMessagesGoOutUnchanged) {
  const std::string lines = "06e703000a1c000105\n061c0001\n";
  EXPECT_EQ(mdmsg("filter", lines), (Result{lines, "", 0}));
}

TEST_F(Filter, WhatIsNoMessageIsReportedAndNotWritten) {
  EXPECT_EQ(mdmsg("filter --where 28=5", "061c000105\nzz\n07\n061c000106\n"),
            (Result{"061c000105\n",
                    "mdmsg: standard input:2: column 1: \"z\" is not a hex digit\n"
                    "mdmsg: standard input:3: unknown encoding byte 07 (01 IterMap, 06 mInt, 46 MsgT)\n",
                    1}));
  EXPECT_EQ(mdmsg("filter --framing u16be", std::string("\0\5\x06\x1c\0\1\5\0\5\x06", 10)),
            (Result{std::string("\0\5\x06\x1c\0\1\5", 7),
                    "mdmsg: standard input: the input is truncated within message 2, of which it has 1 of 5 bytes; "
                    "everything before this was processed\n",
                    1}));
}

#if defined(MDMSG_HAS_PCAP)

/// The capture in another format: the header is exchanged, and so are the headers of the packets.
std::string inFormat(const std::string& capture, const MD::tool::CaptureFormat& format) {
  constexpr std::size_t kHeaderBytes = 24;
  std::string out;
  MD::tool::appendCaptureHeader(format, out);
  const auto number = [&](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- != 0;) {
      value = value << 8 | static_cast<std::uint8_t>(capture[at + i]);
    }
    return value;
  };
  for (std::size_t at = kHeaderBytes; at != capture.size();) {
    const std::int64_t timeNs = std::int64_t{number(at)} * 1'000'000'000 + number(at + 4);
    MD::tool::CapturedPacket packet;
    packet.sizeBytes = number(at + 8);
    packet.wireBytes = number(at + 12);
    const void* const bytes = capture.data() + at + 16;
    packet.data = static_cast<const std::uint8_t*>(bytes);
    MD::tool::appendPacket(packet, format, timeNs, out);
    at += 16 + packet.sizeBytes;
  }
  return out;
}

TEST_F(Filter, CapturesOfEveryFormatStayAsTheyAre) {
  const std::string capture = generated("pcap", "--count 50");
  MD::tool::CaptureFormat format;
  for (const bool isNanosecond : {false, true}) {
    for (const bool isBigEndian : {false, true}) {
      format.isNanosecond = isNanosecond;
      format.isBigEndian = isBigEndian;
      format.zone = 7;
      format.significantFigures = 9;
      format.snapshotBytes = 65535;
      const std::string other = inFormat(capture, format);
      write("f.pcap", other);
      EXPECT_EQ(mdmsg("filter f.pcap"), (Result{other, "", 0}));
      EXPECT_EQ(mdmsg("filter f.pcap f.pcap"), (Result{other + other.substr(24), "", 0}));
      EXPECT_EQ(mdmsg("filter --limit 0 f.pcap"), (Result{other.substr(0, 24), "", 0}));
    }
  }
}

TEST_F(Filter, AConditionAndItsOppositeShareTheMessages) {
  const std::string capture = generated("pcap", "--count 400 --damaged 20");
  write("f.pcap", capture);
  write("kept.pcap", mdmsg("filter --where SYMBOL~EUR f.pcap").out);
  write("rest.pcap", MD::test::runTool({"filter", "--where", "not SYMBOL ~ EUR", "f.pcap"}).out);
  const std::string kept = mdmsg("decode --csv --no-header --fields @time kept.pcap").out;
  const std::string rest = mdmsg("decode --csv --no-header --fields @time rest.pcap").out;
  const std::string all = mdmsg("decode --csv --no-header --fields @time f.pcap").out;
  EXPECT_FALSE(kept.empty());
  EXPECT_FALSE(rest.empty());
  std::string merged;  // in order of time, which the digits are of
  std::istringstream keptLines(kept);
  std::istringstream restLines(rest);
  std::string a;
  std::string b;
  bool hasA = static_cast<bool>(std::getline(keptLines, a));
  bool hasB = static_cast<bool>(std::getline(restLines, b));
  while (hasA || hasB) {
    const bool isA = hasA && (!hasB || a < b);
    merged += (isA ? a : b) + '\n';
    (isA ? hasA : hasB) = static_cast<bool>(isA ? std::getline(keptLines, a) : std::getline(restLines, b));
  }
  EXPECT_EQ(merged, all);
}

TEST_F(Filter, SelectsDatagramsAndTimes) {
  write("f.pcap", generated("pcap", "--count 10 --start 2024-06-03T09:30:00Z"));
  const std::string first = mdmsg("filter --to-time 09:30:00.000001 f.pcap").out;
  EXPECT_EQ(first.size(), mdmsg("filter --limit 1 f.pcap").out.size());
  EXPECT_EQ(mdmsg("filter --port 9 f.pcap").out.size(), 24U);
  EXPECT_EQ(MD::test::runTool({"filter", "--filter", "udp port 30001", "--where", "@packet = 3", "f.pcap"}).out,
            mdmsg("filter --skip 2 --limit 1 f.pcap").out);
}

TEST_F(Filter, UnrecognisedDatagramsAreReportedOrKept) {
  const MD::tool::Endpoint endpoint = *MD::tool::parseEndpoint("192.0.2.1:1000");
  MD::tool::CaptureWriter writer(endpoint, endpoint);
  std::string capture;
  MD::tool::CaptureWriter::begin(capture);
  const std::uint8_t message[] = {0x06, 0x1c, 0, 1, 5};
  const std::uint8_t other[] = {0xff};
  writer.append(1'000'000'000, message, sizeof message, capture);
  const std::string one = capture;
  writer.append(2'000'000'000, other, sizeof other, capture);
  std::string arp(40, '\0');
  arp[12] = '\x08';
  arp[13] = '\x06';
  MD::tool::CapturedPacket packet;
  const void* const bytes = arp.data();
  packet.data = static_cast<const std::uint8_t*>(bytes);
  packet.sizeBytes = packet.wireBytes = 40;
  MD::tool::appendPacket(packet, {}, 3'000'000'000, capture);
  write("f.pcap", capture);
  EXPECT_EQ(mdmsg("filter f.pcap"),
            (Result{one,
                    "mdmsg: f.pcap: 1 of 2 datagrams have an unknown encoding byte (packets 2): byte ff (1)\n"
                    "mdmsg: 1 packet contains no UDP datagram and is not written (--all-packets)\n",
                    1}));
  EXPECT_EQ(mdmsg("filter --all-packets f.pcap"), (Result{capture, "", 0}));
  EXPECT_EQ(mdmsg("filter --all-packets --where 28=5 f.pcap"), (Result{one, "", 0}));
  EXPECT_EQ(mdmsg("filter --all-packets --to-time 1500ms f.pcap").out.size(), one.size() + 16 + 43);
  // libpcap returns a part of a packet that is longer than the limit in the header.
  packet.format.snapshotBytes = 39;
  std::string cut;
  MD::tool::appendCaptureHeader(packet.format, cut);
  MD::tool::appendPacket(packet, packet.format, 0, cut);
  write("cut.pcap", cut);
  EXPECT_EQ(mdmsg("filter --all-packets cut.pcap"), (Result{cut.substr(0, 24),
                                                            "mdmsg: cut.pcap: packet 1 (byte 24): the packet is longer "
                                                            "than the 39 bytes of the snapshot length of the capture\n",
                                                            1}));
}

TEST_F(Filter, InputsOfOneRunAreOfOneKind) {
  const std::string capture = generated("pcap", "--count 2");
  write("f.pcap", capture);
  write("f.hex", "061c000105\n");
  const auto refused = [](const char* name, const char* what) {
    return "mdmsg: " + std::string(name) + what + " than the input before it; one output cannot hold both\n";
  };
  EXPECT_EQ(mdmsg("filter f.pcap f.hex").err, refused("f.hex", " is of another kind"));
  EXPECT_EQ(mdmsg("filter f.hex f.pcap"), (Result{"061c000105\n", refused("f.pcap", " is of another kind"), 2}));
  MD::tool::CaptureFormat format;
  format.isNanosecond = false;
  write("us.pcap", inFormat(capture, format));
  EXPECT_EQ(mdmsg("filter us.pcap f.pcap").err, refused("f.pcap", " has more precise timestamps"));
  EXPECT_EQ(mdmsg("filter f.pcap us.pcap").status, 0);
  format = {};
  format.link = MD::tool::kLinkIpv4;
  write("ip.pcap", inFormat(capture, format));
  EXPECT_EQ(mdmsg("filter --all-packets f.pcap ip.pcap").err, refused("ip.pcap", " has packets of another link type"));
  format = {};
  format.snapshotBytes = 60;
  MD::tool::CapturedPacket packet;
  const std::uint8_t bytes[40] = {};
  packet.data = bytes;
  packet.sizeBytes = packet.wireBytes = sizeof bytes;
  std::string shorter;
  MD::tool::appendCaptureHeader(format, shorter);
  MD::tool::appendPacket(packet, format, 0, shorter);
  write("short.pcap", shorter);
  EXPECT_EQ(mdmsg("filter --all-packets short.pcap f.pcap"),
            (Result{shorter, refused("f.pcap", " has longer packets"), 2}));
}

TEST_F(Filter, RecordedCapturesStayAsTheyAre) {
  const std::string path = dataFile("udp_realtime.pcap");
  if (path.empty()) {
    GTEST_SKIP() << "MD_TEST_DATA leads to no recorded data";
  }
  for (const char* const name : {"udp_realtime.pcap", "tcp_gap.pcap", "tcp_spin.pcap"}) {
    SCOPED_TRACE(name);
    const std::string capture = MD::test::contentsOf(dataFile(name));
    EXPECT_TRUE(mdmsg("filter --all-packets " + dataFile(name)) == (Result{capture, "", 0}));
  }
  const Result one = MD::test::runTool({"filter", "--all-packets", "--where", "@destination = 239.39.62.190", path});
  const Result rest =
      MD::test::runTool({"filter", "--all-packets", "--where", "not @destination = 239.39.62.190", path});
  EXPECT_EQ(one.out.size() + rest.out.size() - 24, MD::test::contentsOf(path).size());
  EXPECT_EQ(one.out, mdmsg("filter --all-packets --group 239.39.62.190 " + path).out);
}

#ifndef _WIN32
/// The output of tshark for the packets of a capture.
std::string dissected(const std::string& arguments) {
  const std::string command =
      "tshark " + arguments +
      " -T fields -e frame.time_epoch -e frame.len -e eth.src -e ip.src -e ip.dst -e udp.srcport"
      " -e udp.dstport -e udp.payload >tshark.out 2>tshark.err";
  return std::system(command.c_str()) == 0 ? MD::test::contentsOf("tshark.out") : "tshark failed";
}

TEST_F(Filter, TsharkSeesTheSamePackets) {
  const std::string path = dataFile("udp_realtime.pcap");
  if (path.empty()) {
    GTEST_SKIP() << "MD_TEST_DATA leads to no recorded data";
  }
  if (std::system("tshark -v >tshark.out 2>&1") != 0) {
    GTEST_SKIP() << "there is no tshark";
  }
  EXPECT_EQ(mdmsg("filter --all-packets --group 239.39.62.191 --output kept.pcap " + path), (Result{"", "", 0}));
  const std::string kept = dissected("-r kept.pcap");
  EXPECT_EQ(std::count(kept.begin(), kept.end(), '\n'), 364);
  EXPECT_EQ(kept, dissected("-r " + path + " -Y 'ip.dst == 239.39.62.191'"));
}
#endif

#endif

}  // namespace
