// Messages in hex lines, raw and length-prefixed.
#include "transport/open_messages.h"

#include <sstream>

#include <gtest/gtest.h>

#include "tools/source_support.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::formed;
using MD::test::messagesOf;
using MD::test::Pieces;
using MD::test::Reports;

TEST(MessageSource, ReadsHexLines) {
  EXPECT_EQ(messagesOf("0601\n\n zz\n07", formed(InputForm::Recognised)),
            "0601\n07\nmdmsg: f:3: column 2: \"z\" is not a hex digit\n");
  EXPECT_EQ(messagesOf("", formed(InputForm::Recognised)), "");
}

TEST(MessageSource, ReadsOneRawMessage) {
  EXPECT_EQ(messagesOf(std::string("\x06\n\0z", 4), formed(InputForm::Raw)), "060a007a\n");
  EXPECT_EQ(messagesOf("", formed(InputForm::Raw)), "mdmsg: f: the input is empty\n");
}

struct FramingCase {
  const char* name;
  Framing framing;
  const char* length;  // of 3 bytes
};

constexpr FramingCase kFramings[] = {
    {"u16le", {2, false}, "\x03\x00"},
    {"u16be", {2, true}, "\x00\x03"},
    {"u32le", {4, false}, "\x03\x00\x00\x00"},
    {"u32be", {4, true}, "\x00\x00\x00\x03"},
};

TEST(MessageSource, ReadsLengthsOfEveryKind) {
  for (const FramingCase& row : kFramings) {
    SCOPED_TRACE(row.name);
    const Framing framing = parseFraming(row.name);
    EXPECT_EQ(framing.sizeBytes, row.framing.sizeBytes);
    EXPECT_EQ(framing.isBigEndian, row.framing.isBigEndian);
    const std::string prefix(row.length, framing.sizeBytes);
    const std::string none(framing.sizeBytes, '\0');
    const SourceOptions options = formed(InputForm::Framed, framing);
    EXPECT_EQ(messagesOf("", options), "");
    EXPECT_EQ(messagesOf(prefix + "abc" + none + prefix + "def", options), "616263\n\n646566\n");
    EXPECT_EQ(messagesOf(prefix + "abc" + prefix + "de", options),
              "616263\nmdmsg: f: the input is truncated within message 2, of which it has 2 of 3 bytes\n");
    EXPECT_EQ(messagesOf(prefix + "abc" + prefix.substr(1), options),
              "616263\nmdmsg: f: the input is truncated within the length of message 2\n");
  }
  EXPECT_THROW(parseFraming("u8"), UsageError);
}

TEST(MessageSource, WritesWhatIsDoneBeforeItWaitsForTheRestOfAFrame) {
  Reports reports;
  Pieces pieces({std::string("\x01\x00\x61\x02\x00\x62", 6), "\x63\x01", std::string("\x00\x64", 2)}, reports.outText);
  InputBuffer in(pieces);
  const auto source = openMessages(in, formed(InputForm::Framed, {2, false}), reports.out, reports.reporter);
  for (InputMessage message; source->next(message);) {
    reports.out.text() += std::to_string(message.sizeBytes);
    reports.out.lineDone();
  }
  ASSERT_GE(pieces.writtenBefore.size(), 4U);
  EXPECT_EQ(pieces.writtenBefore[1], "1");
  EXPECT_EQ(pieces.writtenBefore[2], "12");
  EXPECT_EQ(pieces.writtenBefore[3], "121");
}

TEST(MessageSource, AFrameThatClaimsMuchTakesNoMemoryForIt) {
  EXPECT_EQ(messagesOf("\xff\xff\xff\xff"
                       "abc",
                       formed(InputForm::Framed, {4, false})),
            "mdmsg: f: the input is truncated within message 1, of which it has 3 of 4294967295 bytes\n");
}

TEST(MessageSource, DatagramOptionsGoWithCaptures) {
  SourceOptions options;
  options.port = std::uint16_t{5};
  EXPECT_EQ(messagesOf("06\n", options), "mdmsg: --port, --group and --filter require a capture, which f is not\n");
}

}  // namespace
