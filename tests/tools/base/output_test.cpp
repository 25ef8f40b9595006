// Whole lines, and failures to write them.
#include "base/output.h"

#include <cerrno>

#include <streambuf>

#include <gtest/gtest.h>

#include "tools/tool_support.h"

namespace {

using MD::test::Reports;
using MD::tool::Output;
using MD::tool::OutputError;
using MD::tool::ReportKind;

TEST(Output, WritesWholeLinesOnly) {
  Reports reports;
  reports.out.text() += "one\n";
  reports.out.lineDone();
  reports.out.text() += "tw";
  reports.reporter.setInput("f");
  reports.reporter.setLine(2);
  reports.reporter.note(ReportKind::Repeated, "BID", "odd");
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
