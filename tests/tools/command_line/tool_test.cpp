// The program in process: what it does to the streams around it.
#include "command_line/tool.h"

#include <cerrno>

#include <iostream>

#include <gtest/gtest.h>

#include "md/md_assert.h"
#include "support/configuration.h"
#include "tools/run_support.h"
#include "tools/tool_support.h"

namespace {

using MD::test::ConfigurationFolder;
using MD::test::Result;
using MD::test::runTool;
using MD::tool::run;

TEST(Tool, LeavesStandardErrorAndAssertionsAsItFoundThem) {
  ConfigurationFolder folder;
  ConfigurationFolder::write("fields.txt", MD::test::kDictionary);
  std::ostringstream cerrText;
  std::streambuf* const cerrBuffer = std::cerr.rdbuf(cerrText.rdbuf());
  const MD::AssertionHandler handler = [](const char*, const char*, unsigned) {};
  MD::set_assertion_handler(handler);
  const MD::ReportHandler reportHandler = [](const char*, std::size_t) {};
  MD::set_report_handler(reportHandler);

  const Result result = runTool({"decode", "--dictionary", "fields.txt"}, "06e703000a\n");

  EXPECT_EQ(std::cerr.rdbuf(cerrBuffer), cerrText.rdbuf());
  EXPECT_EQ(MD::set_assertion_handler(nullptr), handler);
  EXPECT_EQ(MD::set_report_handler(nullptr), reportHandler);
  EXPECT_EQ(cerrText.str(), "");
  EXPECT_EQ(result.err,
            "mdmsg: standard input:1: note: 4 bytes dropped: field 999 is not in the dictionary fields.txt; "
            "the last byte is not a field id\n");
  EXPECT_EQ(result.status, 1);
}

TEST(Tool, EachRunLoadsItsOwnDictionary) {
  ConfigurationFolder folder;
  ConfigurationFolder::write("one.txt", "A 1 INT\n");
  ConfigurationFolder::write("two.txt", "B 1 INT\nC 2 INT\n");
  const char* const hex = "060100017f\n";
  const auto decode = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments{"decode", "--format", "json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runTool(arguments, hex).out;
  };
  EXPECT_EQ(decode({"--dictionary", "one.txt"}), "{\"A\":127}\n");
  EXPECT_EQ(decode({"--dictionary", "two.txt"}), "{\"B\":127}\n");
  EXPECT_EQ(decode({"--dictionary", "one.txt"}), "{\"A\":127}\n");
  ConfigurationFolder::write("field_map.txt", "D 1 INT\n");
  EXPECT_EQ(decode({}), "{\"D\":127}\n");
}

/// Takes some writes, then fails with an error number.
class FullBuffer : public std::stringbuf {
 public:
  FullBuffer(int writes, int code) : m_writes(writes), m_code(code) {}

 protected:
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    if (m_writes-- > 0) {
      return std::stringbuf::xsputn(text, count);
    }
    errno = m_code;
    return 0;
  }

 private:
  int m_writes;
  int m_code;
};

Result runInto(FullBuffer& buffer, const std::string& input) {
  ConfigurationFolder folder;
  ConfigurationFolder::write("fields.txt", MD::test::kDictionary);
  std::istringstream in(input);
  std::ostream out(&buffer);
  std::ostringstream err;
  const int status = run({"decode", "--format", "json", "--dictionary", "fields.txt"}, {in, out, err});
  return {buffer.str(), err.str(), status};
}

TEST(Tool, EndsQuietlyWhenItsReaderHasGone) {
  FullBuffer buffer(1, EPIPE);
  // The report on the second line comes after the first write and before the second.
  const Result result = runInto(buffer, "062c010105\n07\n062c010106\n");
  EXPECT_EQ(result.out, "{\"QTY\":5}\n");
  EXPECT_EQ(result.err, "mdmsg: standard input:2: unknown encoding byte 07 (01 IterMap, 06 mInt, 46 MsgT)\n");
  EXPECT_EQ(result.status, 1);
}

TEST(Tool, ReportsOutputThatCannotBeWritten) {
  FullBuffer buffer(0, ENOSPC);
  const Result result = runInto(buffer, "062c010105\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err.rfind("mdmsg: cannot write standard output: ", 0), 0U) << result.err;
  EXPECT_EQ(result.status, 2);
}

/// Gives a line, then fails as a file does whose medium cannot be read.
class BrokenInput : public std::streambuf {
 protected:
  int_type underflow() override {
    if (m_isRead) {
      throw std::ios_base::failure("cannot read");
    }
    m_isRead = true;
    setg(m_text, m_text, m_text + sizeof m_text - 1);
    return traits_type::to_int_type(m_text[0]);
  }

 private:
  bool m_isRead = false;
  char m_text[12] = "062c010105\n";
};

TEST(Tool, ReportsInputThatCannotBeReadToItsEnd) {
  ConfigurationFolder folder;
  ConfigurationFolder::write("fields.txt", MD::test::kDictionary);
  BrokenInput buffer;
  std::istream in(&buffer);
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(run({"decode", "--format", "json", "--dictionary", "fields.txt"}, {in, out, err}), 2);
  EXPECT_EQ(out.str(), "{\"QTY\":5}\n");
  EXPECT_EQ(err.str(), "mdmsg: cannot read standard input\n");
}

}  // namespace
