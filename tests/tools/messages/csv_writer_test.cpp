// CSV whose text a spreadsheet does not run.
#include <string>

#include <gtest/gtest.h>

#include "tools/run_support.h"

namespace {

using MD::test::Result;

class CsvWriter : public MD::test::ToolRun {};

TEST_F(CsvWriter, MarksTextThatASpreadsheetCouldRun) {
  const struct {
    const char* symbol;  ///< as JSON
    const char* plain;
    const char* safe;
  } cases[] = {
      {"=1+1", "=1+1", "'=1+1"},
      {"+1", "+1", "'+1"},
      {"-1", "-1", "'-1"},
      {"@SUM(A1)", "@SUM(A1)", "'@SUM(A1)"},
      {"\\t=1", "\t=1", "'\t=1"},
      {"\\r=1", "\"\r=1\"", "\"'\r=1\""},
      {"\\n=1", "\"\n=1\"", "\"'\n=1\""},
      {"=HYPERLINK(\\\"a,b\\\")", "\"=HYPERLINK(\"\"a,b\"\")\"", "\"'=HYPERLINK(\"\"a,b\"\")\""},
      // What begins with the mark has it, too, so that one that is removed leaves the text.
      {"'=1", "'=1", "''=1"},
      {"'", "'", "''"},
      // No formula begins here.
      {"AB", "AB", "AB"},
      {"A=1", "A=1", "A=1"},
      {" =1", " =1", " =1"},
      {"", "\"\"", "\"\""},
  };
  for (const auto& [symbol, plain, safe] : cases) {
    SCOPED_TRACE(symbol);
    const std::string hex = mdmsg("encode --encoding mInt", std::string("{\"SYMBOL\":\"") + symbol + "\"}").out;
    EXPECT_EQ(mdmsg("decode --csv --no-header --fields SYMBOL", hex).out, std::string(plain) + '\n');
    EXPECT_EQ(mdmsg("decode --csv --no-header --csv-safe --fields SYMBOL", hex).out, std::string(safe) + '\n');
  }
}

TEST_F(CsvWriter, LeavesNumbersAsTheyAre) {
  const std::string hex =
      mdmsg("encode --encoding mInt", "{\"BID\":-1.5,\"ASK\":\"-Infinity\",\"SEQ\":-7,\"SIDE\":\"=\"}").out;
  EXPECT_EQ(mdmsg("decode --csv --csv-safe --fields BID,ASK,SEQ,SIDE,@packet,@encoding", hex).out,
            "BID,ASK,SEQ,SIDE,'@packet,'@encoding\n-1.5,-Infinity,-7,'=,1,mInt\n");
}

TEST_F(CsvWriter, IsSafeInCsvAlone) {
  EXPECT_EQ(mdmsg("decode --json --csv-safe", ""), (Result{"", "mdmsg: --csv-safe requires --format csv\n", 2}));
}

}  // namespace
