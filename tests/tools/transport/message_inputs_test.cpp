// The messages of several inputs.
#include "transport/message_inputs.h"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/hex.h"
#include "support/configuration.h"
#include "tools/tool_support.h"
#include "transport/capture.h"

namespace {

using namespace MD::tool;
using MD::test::Reports;

class MessageInputsTest : public testing::Test {
 protected:
  static void write(const char* path, const std::string& text) { MD::test::ConfigurationFolder::write(path, text); }

  /// A capture of these datagrams, all to one port.
  static std::string captureOf(const std::vector<std::string>& payloads) {
    CaptureWriter writer(*parseEndpoint("10.0.0.1:5"), *parseEndpoint("239.1.1.1:30001"));
    std::string capture;
    CaptureWriter::begin(capture);
    for (const std::string& payload : payloads) {
      writer.append(1, reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size(), capture);
    }
    return capture;
  }

  /// Each message as the number of its input and hex, or its problem, followed by the diagnostics.
  std::string messagesOf(const std::vector<std::string>& files, const std::string& standardInput = {}) {
    Reports reports;
    std::istringstream in(standardInput);
    Inputs inputs(files, in, false, reports.reporter);
    MessageInputs messages(inputs, m_options, reports.out, reports.reporter);
    std::string text;
    InputMessage message;
    for (bool isThere = true; isThere;) {
      try {
        isThere = messages.next(message);
        if (isThere) {
          text += std::to_string(message.input) + ' ' + reports.reporter.place() + ' ';
          appendHex(message.data, message.sizeBytes, text);
          text += '\n';
        }
      } catch (const LineError& error) {
        text += std::string(error.what()) + '\n';
      }
    }
    m_datagrams = messages.counts() != nullptr ? static_cast<int>(messages.counts()->datagrams) : -1;
    return text + reports.text();
  }

  SourceOptions m_options;
  int m_datagrams = -1;

 private:
  MD::test::ConfigurationFolder m_folder;
};

TEST_F(MessageInputsTest, AreThoseOfStandardInputWithoutAFile) {
  EXPECT_EQ(messagesOf({}, "06\n07\n"), "1 standard input:1 06\n1 standard input:2 07\n");
  EXPECT_EQ(m_datagrams, -1);
}

TEST_F(MessageInputsTest, ComeFromAllFilesInTheirOrder) {
  write("a", "0a\nx\n0b\n");
  write("empty", "");
  write("c", "0c\n");
  EXPECT_EQ(messagesOf({"a", "missing", "-", "empty", ".", "c"}, "00\n"),
            "1 a:1 0a\n"
            "column 1: \"x\" is not a hex digit\n"
            "1 a:3 0b\n"
            "2 standard input:1 00\n"
            "4 c:1 0c\n"
            "mdmsg: cannot open missing: No such file or directory\n"
            "mdmsg: cannot read .: it is a directory\n");
}

TEST_F(MessageInputsTest, GoOnBehindAnInputThatBreaksOff) {
  m_options.form = InputForm::Framed;
  m_options.framing = {2, true};
  write("cut", std::string("\0\1\6\0\5\6", 6));
  write("whole", std::string("\0\1\7", 3));
  EXPECT_EQ(messagesOf({"cut", "whole"}),
            "1 cut: message 1 (byte 0) 06\n"
            "2 whole: message 1 (byte 0) 07\n"
            "mdmsg: cut: the input is truncated within message 2, of which it has 1 of 5 bytes; everything before this "
            "was processed\n");
}

#if defined(MDMSG_HAS_PCAP)
TEST_F(MessageInputsTest, OfCapturesAreCountedTogether) {
  const std::string capture = captureOf({"\x06", "\x46"});
  write("a", capture);
  write("b", "06\n");
  write("cut", capture.substr(0, capture.size() - 1));
  write("header", capture.substr(0, 20));
  messagesOf({"a", "b", "cut", "header"});
  EXPECT_EQ(m_datagrams, 3);
}
#endif

}  // namespace
