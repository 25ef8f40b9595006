// Messages written in every form.
#include "messages/message_sink.h"

#include <gtest/gtest.h>

#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::Reports;

struct SinkCase {
  const char* name;
  OutputForm form;
  Framing framing;
  std::string bytes;
};

TEST(MessageSink, WritesEveryForm) {
  MD::test::loadDictionary(MD::test::kDictionary);
  const FieldNames names;
  const auto message = MD::MD_Message::createFromPB(6);
  const SinkCase cases[] = {
      {"Hex", OutputForm::HexLines, {}, "06\n"},
      {"Raw", OutputForm::Raw, {}, "\x06"},
      {"u16le", OutputForm::Framed, {2, false}, std::string("\x01\x00\x06", 3)},
      {"u16be", OutputForm::Framed, {2, true}, std::string("\x00\x01\x06", 3)},
      {"u32le", OutputForm::Framed, {4, false}, std::string("\x01\x00\x00\x00\x06", 5)},
      {"u32be", OutputForm::Framed, {4, true}, std::string("\x00\x00\x00\x01\x06", 5)},
  };
  for (const SinkCase& row : cases) {
    SCOPED_TRACE(row.name);
    Reports reports;
    SinkOptions options;
    options.form = row.form;
    options.framing = row.framing;
    MessageSink sink(options, names, reports.out);
    sink.append(*message, std::nullopt);
    EXPECT_EQ(reports.out.text(), row.bytes);
  }
}

TEST(MessageSink, SaysWhatTheOutputCannotHold) {
  MD::test::loadDictionary(MD::test::kDictionary);
  const FieldNames names;
  Reports reports;
  const auto message = MD::MD_Message::createFromPB(70);
  SinkOptions options;
  options.form = OutputForm::Raw;
  MessageSink raw(options, names, reports.out);
  raw.append(*message, std::nullopt);
  EXPECT_EQ(MD::test::lineErrorOf([&] { raw.append(*message, std::nullopt); }),
            "a raw output holds one message; u16le, u16be, u32le and u32be keep several apart");
  message->addString(MD::test::id::kString, std::string(65535, 'x'));
  options.form = OutputForm::Framed;
  options.framing = {2, false};
  EXPECT_EQ(MD::test::lineErrorOf([&] { MessageSink(options, names, reports.out).append(*message, std::nullopt); }),
            "65548 bytes are too long for a length of 2 bytes");
}

}  // namespace
