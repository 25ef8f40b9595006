// Reading lines, writing them, and the order of both.
#include <cerrno>

#include <algorithm>

#include <gtest/gtest.h>

#include "text/line_reader.h"
#include "tools/tool_support.h"

namespace {

using MD::test::Pieces;
using MD::test::Reports;
using MD::tool::LineReader;
using MD::tool::Output;
using MD::tool::OutputError;

std::vector<std::string> linesOf(const std::string& text) {
  Reports reports;
  std::istringstream in(text);
  LineReader reader(in, reports.out);
  std::vector<std::string> lines;
  std::string_view line;
  while (reader.next(line)) {
    lines.emplace_back(line);
    EXPECT_EQ(reader.lineNumber(), lines.size());
  }
  return lines;
}

using Lines = std::vector<std::string>;

TEST(LineReader, GivesLinesWithoutTheirLineFeeds) {
  EXPECT_EQ(linesOf(""), Lines());
  EXPECT_EQ(linesOf("a\n"), Lines({"a"}));
  EXPECT_EQ(linesOf("a\nb"), Lines({"a", "b"}));
  EXPECT_EQ(linesOf("\n\nb\r\n"), Lines({"", "", "b\r"}));
  EXPECT_EQ(linesOf(std::string("a\0b\n", 4)), Lines({std::string("a\0b", 3)}));
}

TEST(LineReader, TakesLinesOfAnyLength) {
  const std::string longLine(300'000, 'x');
  EXPECT_EQ(linesOf("a\n" + longLine + "\nb\n" + longLine), Lines({"a", longLine, "b", longLine}));
}

TEST(LineReader, JoinsWhatArrivesInPieces) {
  Reports reports;
  Pieces pieces({"a", "b\nc", "\n", "d"}, reports.outText);
  std::istream in(&pieces);
  LineReader reader(in, reports.out);
  std::string_view line;
  Lines lines;
  while (reader.next(line)) {
    lines.emplace_back(line);
  }
  EXPECT_EQ(lines, Lines({"ab", "c", "d"}));
}

TEST(LineReader, WritesWhatIsDoneBeforeItWaits) {
  Reports reports;
  Pieces pieces({"a\n", "b\n"}, reports.outText);
  std::istream in(&pieces);
  LineReader reader(in, reports.out);
  std::string_view line;
  while (reader.next(line)) {
    reports.out.text().append(line).append("!\n");
    reports.out.lineDone();
  }
  EXPECT_EQ(pieces.writtenBefore, Lines({"", "a!\n", "a!\nb!\n"}));
}

TEST(Output, WritesWholeLinesOnly) {
  Reports reports;
  reports.out.text() += "one\n";
  reports.out.lineDone();
  reports.out.text() += "tw";
  reports.reporter.setInput("f");
  reports.reporter.setLine(2);
  reports.reporter.note("BID", "odd");
  EXPECT_EQ(reports.outText.str(), "one\n");
  EXPECT_EQ(reports.text(), "mdmsg: f:2: note: field BID: odd\n");
  reports.out.dropLine();
  reports.out.text() += "three\n";
  reports.out.lineDone();
  reports.out.flush();
  EXPECT_EQ(reports.outText.str(), "one\nthree\n");
}

TEST(Output, WritesByItselfWhenMuchHasComeTogether) {
  Reports reports;
  const std::string line(1000, 'x');
  for (int i = 0; i < 66; ++i) {
    reports.out.text() += line;
    reports.out.lineDone();
  }
  EXPECT_EQ(reports.outText.str().size(), 66'000U);
}

/// Fails every write with an error number.
class FailingBuffer : public std::streambuf {
 public:
  explicit FailingBuffer(int code) : m_code(code) {}

 protected:
  std::streamsize xsputn(const char*, std::streamsize) override {
    errno = m_code;
    return 0;
  }

 private:
  int m_code;
};

TEST(Output, TellsAReaderThatHasGoneFromAFailure) {
  for (const auto& [code, isBrokenPipe] : {std::pair(EPIPE, true), std::pair(ENOSPC, false)}) {
    FailingBuffer buffer(code);
    std::ostream stream(&buffer);
    Output out(stream);
    out.text() += "x\n";
    out.lineDone();
    try {
      out.flush();
      ADD_FAILURE() << "no error";
    } catch (const OutputError& error) {
      EXPECT_EQ(error.isBrokenPipe(), isBrokenPipe);
      EXPECT_EQ(std::string(error.what()).rfind("cannot write standard output: ", 0), 0U);
    }
  }
}

}  // namespace
