// Messages of a stream that are in memory, and blocks of them.
#include "transport/frame_cursor.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tools/source_support.h"
#include "tools/tool_support.h"
#include "transport/message_block.h"

namespace {

using namespace MD::tool;
using MD::test::formed;
using MD::test::Reports;

const std::uint8_t* bytesOf(const std::string& text) {
  const void* const bytes = text.data();
  return static_cast<const std::uint8_t*>(bytes);
}

std::string textOf(const InputMessage& message) {
  const void* const bytes = message.data;
  return {static_cast<const char*>(bytes), message.sizeBytes};
}

TEST(FrameCursor, StepsOverMessagesThatAreComplete) {
  const std::string bytes("\x01\0a\0\0\x02\0bc\x03\0de", 13);
  FrameCursor frames({2, false}, 100);
  InputMessage message;
  message.input = 7;
  EXPECT_FALSE(frames.next(message));
  frames.continueIn(bytesOf(bytes), bytes.size(), 1000);
  std::string text;
  while (frames.next(message)) {
    text += std::to_string(message.number) + '@' + std::to_string(frames.place().offset) + '=' + textOf(message) + ' ';
  }
  EXPECT_EQ(text, "1@1000=a 2@1003= 3@1005=bc ");
  EXPECT_EQ(message.input, 7U);
  EXPECT_EQ(frames.passedBytes(), 9U);
  EXPECT_EQ(frames.sizeBytes(), 4U);
}

TEST(FrameCursor, StopsBeforeAMessageThatIsTooLong) {
  const std::string bytes(
      "\0\0\0\x02"
      "ab"
      "\0\0\0\x03"
      "cde"
      "\0\0\0\x01"
      "f",
      18);
  FrameCursor frames({4, true}, 2);
  frames.continueIn(bytesOf(bytes), bytes.size(), 0);
  InputMessage message;
  EXPECT_TRUE(frames.next(message));
  EXPECT_EQ(textOf(message), "ab");
  EXPECT_FALSE(frames.next(message));
  EXPECT_EQ(textOf(message), "ab");
  EXPECT_EQ(frames.passedBytes(), 6U);
  // A length of nearly all bits is not added up to a small one.
  const std::string huge(
      "\xff\xff\xff\xff"
      "a",
      5);
  FrameCursor others({4, true}, 0xffffffff);
  others.continueIn(bytesOf(huge), huge.size(), 0);
  EXPECT_FALSE(others.next(message));
}

TEST(FrameCursor, SourceAndCursorTakeTurns) {
  Reports reports;
  const std::string bytes("\x01\0a\x01\0b\x01\0c\x01\0d\x01\0e\x01\0f", 18);
  std::stringbuf buffer(bytes);
  InputBuffer in(buffer);
  const auto source = openMessages(in, formed(InputForm::Framed, {2, false}), reports.out, reports.reporter);
  InputMessage message;
  ASSERT_NE(source->frames(), nullptr);
  EXPECT_FALSE(source->frames()->next(message));
  // The first bytes are read by themselves, to see whether they are compressed.
  for (const char* const text : {"a", "b", "c"}) {
    EXPECT_TRUE(source->next(message));
    EXPECT_EQ(textOf(message), text);
  }
  EXPECT_EQ(in.in_avail(), 9);
  EXPECT_TRUE(source->frames()->next(message));
  EXPECT_EQ(textOf(message), "d");
  EXPECT_TRUE(source->next(message));
  EXPECT_EQ(textOf(message), "e");
  EXPECT_EQ(in.in_avail(), 3);
  EXPECT_EQ(reports.reporter.at().number, 5U);
  EXPECT_EQ(reports.reporter.at().offset, 12U);
  EXPECT_TRUE(source->frames()->next(message));
  EXPECT_EQ(textOf(message), "f");
  EXPECT_FALSE(source->frames()->next(message));
  EXPECT_FALSE(source->next(message));
}

TEST(MessageBlock, HoldsMessagesRunsAndErrorsInTheirOrder) {
  Reports reports;
  std::string bytes("\x01\0a\x01\0b\x01\0c", 9);
  FrameCursor frames({2, false}, 100);
  frames.continueIn(bytesOf(bytes), bytes.size(), 50);
  InputMessage first;
  frames.next(first);
  first.input = 3;
  MessageBlock block;
  block.begin("f");
  block.add(first, frames.place());
  block.addAll(first, frames);
  block.addAll(first, frames);
  EXPECT_EQ(frames.sizeBytes(), 0U);
  block.add(LineError("lost"), {Place::Kind::Message, 4, 59});
  const std::string other = "z";
  first.data = bytesOf(other);
  block.add(first, {Place::Kind::Message, 5, 70});
  bytes.assign(bytes.size(), 'x');

  BlockSource source(reports.reporter);
  source.begin(block);
  std::string text;
  InputMessage message;
  for (bool isThere = true; isThere;) {
    try {
      isThere = source.next(message);
      text += isThere ? reports.reporter.place() + '=' + textOf(message) + std::to_string(message.input) + '\n' : "";
    } catch (const LineError& error) {
      text += reports.reporter.place() + '=' + error.what() + '\n';
    }
  }
  EXPECT_EQ(text,
            "f: message 1 (byte 50)=a3\nf: message 2 (byte 53)=b3\nf: message 3 (byte 56)=c3\n"
            "f: message 4 (byte 59)=lost\nf: message 5 (byte 70)=z3\n");
}

}  // namespace
