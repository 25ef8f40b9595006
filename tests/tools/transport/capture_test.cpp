// Captures read and written.
#include "transport/capture.h"

#include <sstream>

#include <gtest/gtest.h>

#include "text/hex_reader.h"
#include "tools/gzip_support.h"
#include "tools/source_support.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::formed;
using MD::test::messagesOf;
using MD::test::Reports;
#if defined(MDMSG_HAS_ZLIB)
using MD::test::gzipped;
#endif

std::string captureOf(const std::vector<std::string>& payloads, const char* destination = "239.1.1.1:30001") {
  CaptureWriter writer(*parseEndpoint("10.0.0.1:5"), *parseEndpoint(destination));
  std::string capture;
  CaptureWriter::begin(capture);
  for (const std::string& payload : payloads) {
    writer.append(1'000'000'001, reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size(), capture);
  }
  return capture;
}

TEST(CaptureWriter, WritesWhatTheFormatSays) {
  std::string hex;
  const std::string capture = captureOf({std::string("\x06\x07")});
  appendHex(reinterpret_cast<const std::uint8_t*>(capture.data()), capture.size(), hex);
  EXPECT_EQ(hex,
            "4d3cb2a1"
            "0200"
            "0400"
            "00000000"
            "00000000"
            "00000400"
            "01000000"
            "01000000"
            "01000000"
            "2c000000"
            "2c000000"
            "01005e01010102000a0000010800"
            "4500001e000040004011"
            "40cc"
            "0a000001ef010101"
            "00057531000a"
            "8a99"
            "0607");
}

TEST(CaptureWriter, RefusesWhatACaptureCannotSay) {
  CaptureWriter writer(*parseEndpoint("10.0.0.1:5"), *parseEndpoint("239.1.1.1:30001"));
  std::string capture;
  const std::vector<std::uint8_t> payload(65508);
  EXPECT_EQ(MD::test::lineErrorOf([&] { writer.append(0, payload.data(), payload.size(), capture); }),
            "65508 bytes are too long for a datagram (65507)");
  EXPECT_EQ(MD::test::lineErrorOf([&] { writer.append(-1, payload.data(), 1, capture); }),
            "a capture cannot store the time -1 (years 1970 to 2106)");
  EXPECT_EQ(MD::test::lineErrorOf([&] { writer.append(4'294'967'296'000'000'000, payload.data(), 1, capture); }),
            "a capture cannot store the time 4294967296000000000 (years 1970 to 2106)");
  EXPECT_EQ(capture, "");
  writer.append(4'294'967'295'999'999'999, payload.data(), 65507, capture);
  EXPECT_EQ(capture.size(), 16U + 14 + 20 + 8 + 65507);
}

#if defined(MDMSG_HAS_PCAP)

TEST(Capture, IsRecognisedByItsFirstBytes) {
  EXPECT_EQ(messagesOf(captureOf({"\x06", "\x46", std::string("\x01\x02", 2)}), formed(InputForm::Recognised)),
            "06\n46\n0102\n");
#if defined(MDMSG_HAS_ZLIB)
  EXPECT_EQ(messagesOf(gzipped(captureOf({"\x06"})), formed(InputForm::Recognised)), "06\n");
#endif
}

TEST(Capture, TellsTimeAndEndpoints) {
  Reports reports;
  std::stringbuf source(captureOf({"\x06"}));
  InputBuffer in(source);
  const auto messages = openMessages(in, {}, reports.out, reports.reporter);
  InputMessage message;
  ASSERT_TRUE(messages->next(message));
  EXPECT_EQ(message.timeNs, 1'000'000'001);
  EXPECT_EQ(textOf(message.source), "10.0.0.1:5");
  EXPECT_EQ(textOf(message.destination), "239.1.1.1:30001");
}

TEST(Capture, WhatIsNotOursIsCounted) {
  EXPECT_EQ(messagesOf(captureOf({"\x06", "x", "y", "", "\x46", "x"}), {}),
            "06\n46\nmdmsg: f: 4 of 6 datagrams have an unknown encoding byte (packets 2-4, 6): byte 78 (2), 79 "
            "(1), empty (1)\n");
  SourceOptions options;
  options.takesForeign = true;
  EXPECT_EQ(messagesOf(captureOf({"\x06", "x", ""}), options), "06\n78\n\n");
}

TEST(Capture, DatagramsAreSelectedByTheirDestination) {
  const std::string capture = captureOf({"\x06"});
  const struct {
    const char* name;
    std::optional<std::uint16_t> port;
    const char* group;
    const char* filter;
    const char* content;
  } cases[] = {
      {"Port", std::uint16_t{30001}, "", "", "06\n"},
      {"OtherPort", std::uint16_t{5}, "", "",
       "mdmsg: f: no UDP datagram that matches the options in 1 packet (1 not selected)\n"},
      {"Group", {}, "239.1.1.1", "", "06\n"},
      {"OtherGroup",
       {},
       "239.1.1.2",
       "",
       "mdmsg: f: no UDP datagram that matches the options in 1 packet (1 not selected)\n"},
      {"Filter", {}, "", "udp dst port 30001 and src host 10.0.0.1", "06\n"},
      {"OtherFilter",
       {},
       "",
       "tcp",
       "mdmsg: f: no UDP datagram that matches the options in 1 packet (1 not selected)\n"},
      {"BadFilter",
       {},
       "",
       "udp and and",
       "mdmsg: --filter \"udp and and\": can't parse filter expression: syntax error\n"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    SourceOptions options;
    options.port = row.port;
    options.group = parseAddress(row.group);
    options.filter = row.filter;
    EXPECT_EQ(messagesOf(capture, options), row.content);
  }
}

std::string bytesOfHex(const std::string& hex) {
  std::vector<std::uint8_t> bytes;
  parseHex(hex, Blanks::BetweenBytes, bytes);
  return {bytes.begin(), bytes.end()};
}

/// A packet of a big-endian capture.
std::string bigEndianPacket(const std::string& frameHex, std::size_t missing = 0) {
  const std::string frame = bytesOfHex(frameHex);
  const auto word = [](std::size_t value) {
    return std::string{'\0', '\0', static_cast<char>(value >> 8), static_cast<char>(value & 0xff)};
  };
  return word(0) + word(0) + word(frame.size() - missing) + word(frame.size()) +
         frame.substr(0, frame.size() - missing);
}

constexpr const char* kUdpFrame =
    "01005e010101 02000a000001 0800 4500001e00004000401178ac0a000001ef010101 00057531000a8ea90607";
constexpr const char* kTcpFrame =
    "01005e010101 02000a000001 0800 4500001e00004000400678ac0a000001ef010101 00057531000a8ea90607";
constexpr const char* kFragmentFrame =
    "01005e010101 02000a000001 0800 4500001e00002000401178ac0a000001ef010101 00057531000a8ea90607";
constexpr const char* kBrokenFrame =
    "01005e010101 02000a000001 0800 4500001e00004000401178ac0a000001ef010101 0005753100078ea90607";
constexpr const char* kArpFrame = "01005e010101 02000a000001 0806 0001";

std::string bigEndianCapture(const std::string& packets, int link = 1) {
  return bytesOfHex("a1b2c3d4 0002 0004 00000000 00000000 0000ffff 000000") + static_cast<char>(link) + packets;
}

TEST(Capture, SaysWhatHoldsNoDatagram) {
  EXPECT_EQ(
      messagesOf(bigEndianCapture(bigEndianPacket(kTcpFrame) + bigEndianPacket(kTcpFrame) + bigEndianPacket(kArpFrame)),
                 {}),
      "mdmsg: f: no UDP datagram in 3 packets (2 TCP, 1 not IP)\n");
  EXPECT_EQ(messagesOf(bigEndianCapture(""), {}), "mdmsg: f: no UDP datagram in 0 packets\n");
}

TEST(Capture, FragmentsAndBrokenPacketsAreSaidAndNothingIsInvented) {
  const std::string packets = bigEndianPacket(kUdpFrame) + bigEndianPacket(kFragmentFrame) +
                              bigEndianPacket(kFragmentFrame) + bigEndianPacket(kBrokenFrame) +
                              bigEndianPacket(kUdpFrame, 1) + bigEndianPacket(kUdpFrame);
  EXPECT_EQ(messagesOf(bigEndianCapture(packets), {}),
            "0607\n0607\n"
            "mdmsg: f: packet 4 (byte 204): malformed packet: the UDP length does not fit the IP packet\n"
            "mdmsg: f: packet 5 (byte 264): the capture contains only a part of this datagram; skipped\n"
            "mdmsg: f: 2 packets are fragments, which are not reassembled (packets 2-3)\n");
}

TEST(Capture, OneCutInTheMiddleOfAPacketGivesEverythingBefore) {
  const std::string whole = bigEndianCapture(bigEndianPacket(kUdpFrame) + bigEndianPacket(kUdpFrame));
  EXPECT_EQ(messagesOf(whole.substr(0, whole.size() - 1), {}),
            "0607\nmdmsg: f: packet 2 (byte 84) cannot be read: truncated dump file; tried to read 44 captured bytes, "
            "only got 43\n");
  EXPECT_EQ(messagesOf(whole.substr(0, 94), {}),
            "0607\nmdmsg: f: packet 2 (byte 84) cannot be read: truncated dump file; tried to read 16 header bytes, "
            "only got 10\n");
  EXPECT_EQ(messagesOf(whole.substr(0, 84), {}), "0607\n");
  EXPECT_EQ(messagesOf(whole.substr(0, 20), {}),
            "mdmsg: f: not a readable capture: truncated dump file; tried to read 24 file header bytes, only got "
            "16\n");
}

TEST(Capture, LinkTypesThatAreNotKnownAreSaid) {
  EXPECT_EQ(messagesOf(bigEndianCapture("", 105), {}), "mdmsg: f: unsupported link type of its packets: IEEE802_11\n");
}

TEST(Capture, ReadsPcapng) {
  // A section header, an interface with Ethernet and nanoseconds, and an enhanced packet.
  const std::string section = "0a0d0d0a 1c000000 4d3c2b1a 0100 0000 ffffffffffffffff 1c000000";
  const std::string interface = "01000000 20000000 0100 0000 00000400 0900 0100 09000000 0000 0000 20000000";
  const std::string packet =
      "06000000 4c000000 00000000 00000000 05000000 2c000000 2c000000" + std::string(kUdpFrame) + "4c000000";
  const std::string capture = bytesOfHex(section + interface + packet);
  EXPECT_EQ(messagesOf(capture, {}), "0607\n");
}

#endif

}  // namespace
