// Lines of any length from any kind of input.
#include <algorithm>

#include <gtest/gtest.h>

#include "text/line_reader.h"
#include "tools/tool_support.h"

namespace {

using MD::test::Pieces;
using MD::test::Reports;
using MD::tool::LineReader;

std::vector<std::string> linesOf(const std::string& text) {
  Reports reports;
  std::stringbuf in(text);
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

TEST(LineReader, GivesLinesThatAreNotBlankWithoutMarkAndCarriageReturn) {
  Reports reports;
  std::stringbuf in(
      "\xef\xbb\xbf \r\n\t\n\xef\xbb\xbf"
      "b \r\r\n\n c");
  LineReader reader(in, reports.out);
  std::vector<std::pair<std::uint64_t, std::string>> lines;
  for (std::string_view line; reader.nextFilled(line);) {
    lines.emplace_back(reader.lineNumber(), line);
  }
  // A mark further on is text, and so is a second carriage return.
  EXPECT_EQ(lines, (decltype(lines){{3,
                                     "\xef\xbb\xbf"
                                     "b \r"},
                                    {5, " c"}}));
}

TEST(LineReader, TakesLinesOfAnyLength) {
  const std::string longLine(300'000, 'x');
  EXPECT_EQ(linesOf("a\n" + longLine + "\nb\n" + longLine), Lines({"a", longLine, "b", longLine}));
}

TEST(LineReader, JoinsWhatArrivesInPieces) {
  Reports reports;
  Pieces pieces({"a", "b\nc", "\n", "d"}, reports.outText);
  LineReader reader(pieces, reports.out);
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
  LineReader reader(pieces, reports.out);
  std::string_view line;
  while (reader.next(line)) {
    reports.out.text().append(line).append("!\n");
    reports.out.lineDone();
  }
  EXPECT_EQ(pieces.writtenBefore, Lines({"", "a!\n", "a!\nb!\n"}));
}

}  // namespace
