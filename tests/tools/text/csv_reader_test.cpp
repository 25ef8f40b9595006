// Records and cells of CSV.
#include "text/csv_reader.h"

#include <sstream>

#include <gtest/gtest.h>

#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::lineErrorOf;
using MD::test::Reports;

/// The records of a text, each as its line, a colon and its cells in brackets, or the error in its place.
std::vector<std::string> recordsOf(const std::string& text) {
  Reports reports;
  std::stringbuf in(text);
  LineReader lines(in, reports.out);
  CsvReader record(lines);
  std::vector<std::string> records;
  for (bool isMore = true; isMore;) {
    std::string shown;
    const std::string error = lineErrorOf([&] {
      isMore = record.next();
      for (std::size_t i = 0; isMore && i != record.size(); ++i) {
        shown += '[' + record[i] + ']';
      }
    });
    if (isMore) {
      records.push_back(std::to_string(record.line()) + ':' + (error == "nothing" ? shown : ' ' + error));
    }
  }
  return records;
}

using Records = std::vector<std::string>;

TEST(CsvReader, SplitsRecordsAndCells) {
  const struct {
    const char* name;
    const char* text;
    Records records;
  } cases[] = {
      {"Nothing", "", {}},
      {"PlainCells", "a,b\nc,d\n", {"1:[a][b]", "2:[c][d]"}},
      {"EmptyCells", ",\n,x,\n", {"1:[][]", "2:[][x][]"}},
      {"NoLastLineFeed", "a,b", {"1:[a][b]"}},
      {"CarriageReturns", "a,b\r\n\"c\",d\r\ne,\"f\"\r\n", {"1:[a][b]", "2:[c][d]", "3:[e][f]"}},
      {"EmptyLinesAreSkipped", "\na\n\r\n\nb\n", {"2:[a]", "5:[b]"}},
      {"Blanks", " a , b\n", {"1:[ a ][ b]"}},
      {"BlanksBeforeAQuote", "a,  \"b,c\", d\n", {"1:[a][b,c][ d]"}},
      {"Quotes", "\"a,b\",\"c\"\"d\",\"\"\n", {"1:[a,b][c\"d][]"}},
      {"LineFeedInQuotes", "\"a\nb\",c\nd\n", {"1:[a\nb][c]", "3:[d]"}},
      {"CarriageReturnInQuotes", "\"a\r\nb\",\"\r\n\"\r\n", {"1:[a\r\nb][\r\n]"}},
      {"ByteOrderMark", "\xef\xbb\xbf\"a\",b\n", {"1:[a][b]"}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(recordsOf(row.text), row.records);
  }
}

TEST(CsvReader, GoesOnBehindAMalformedRecord) {
  EXPECT_EQ(recordsOf("a,b\"c\nd\n"), Records({"1: cell 2: a quote inside a cell without quotes", "2:[d]"}));
  EXPECT_EQ(recordsOf("\"a\"b,c\nd\n"), Records({"1: cell 1: text after the closing quote", "2:[d]"}));
  EXPECT_EQ(recordsOf("a\nb,\"c\nd\n"), Records({"1:[a]", "2: cell 2: the quote is never closed"}));
  EXPECT_EQ(recordsOf("\"" + std::string(1'100'000, 'x') + "\"\nd\n"),
            Records({"1: cell 1 is longer than any value", "2:[d]"}));
}

}  // namespace
