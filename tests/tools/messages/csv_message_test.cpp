#include "messages/csv_message.h"

#include <gtest/gtest.h>

#include "base/hex.h"
#include "md/md_message.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::lineErrorOf;
using MD::test::Reports;

class CsvMessage : public testing::Test {
 protected:
  CsvMessage() { MD::test::loadDictionary(MD::test::kDictionary); }

  /// The mInt of the record under the header, as hex, or the error.
  static std::string encoded(const std::string& text) {
    const QuietLibrary quiet;
    Reports reports;
    std::stringbuf in(text);
    LineReader lines(in, reports.out);
    CsvReader record(lines);
    const FieldNames names;
    const auto message = MD::MD_Message::createFromPB(6);
    const std::string error = lineErrorOf([&] {
      EXPECT_TRUE(record.next());
      const auto columns = readCsvHeader(record, names);
      EXPECT_TRUE(record.next());
      readCsvRecord(record, columns, names, *message);
    });
    std::string hex;
    appendHex(message->getBinary(), message->getSizeImpl(), hex);
    return error == "nothing" ? hex : error;
  }
};

TEST_F(CsvMessage, TakesEveryTypeAsPlainText) {
  EXPECT_EQ(encoded("CH,QTY,SEQ,VOLA,BID,SYMBOL,BLOB,WHEN,RECV\n"
                    "B,300,-2,0.5,-0.0,\"A,B\",00fF,20240115 93000000 -300,18446744073709551615\n"),
            "06"
            "0a000142"
            "2c01022c01"
            "140008feffffffffffffff"
            "2800040000003f"
            "1600080000000000000080"
            "3c0004412c4200"
            "46000200ff"
            "50000840118bf5828fdaff"
            "5a0008ffffffffffffffff");
}

TEST_F(CsvMessage, DoesNotSendEmptyCells) { EXPECT_EQ(encoded("CH,QTY,60,BID\n,,x,\"\"\n"), "063c00027800"); }

TEST_F(CsvMessage, RefusesHeadersAndCellsThatDoNotFit) {
  const struct {
    const char* name;
    const char* text;
    const char* error;
  } cases[] = {
      {"UnknownName", "QTY,NOPE\n1,2\n", "NOPE: not in the dictionary test dictionary"},
      {"UncarriedType", "SHORTY\n1\n", "SHORTY: values of type SHORT are not carried by messages"},
      {"NameTwice", "QTY,BID,QTY\n1,2,3\n", "QTY: is given twice"},
      {"NameAndId", "QTY,300\n1,2\n", "300: is given twice"},
      {"TooFewCells", "QTY,BID\n1\n", "the number of cells is 1, that of the header 2"},
      {"TooManyCells", "QTY\n1,2\n", "the number of cells is 2, that of the header 1"},
      {"Char", "CH\nBB\n", "CH: \"BB\" is 2 bytes, a CHAR is one"},
      {"Int", "QTY\n1.0\n", "QTY: \"1.0\" is not an integer"},
      {"IntRange", "TICK\n3000000000\n", "TICK: 3000000000 does not fit INT (-2147483648 to 2147483647)"},
      {"Int64", "SEQ\n1 \n", "SEQ: \"1 \" is not an integer"},
      {"Float", "VOLA\n1e39\n", "VOLA: 1e39 does not fit FLOAT: too large, or too close to 0"},
      {"Double", "BID\nabc\n", "BID: \"abc\" is not a number"},
      {"Buffer", "BLOB\n0f0\n", "BLOB: column 3: odd number of hex digits, the last byte is incomplete"},
      {"DateTimeParts", "WHEN\n20240115 93000000\n",
       "WHEN: \"20240115 93000000\" is not a date, a time and an offset with spaces between"},
      {"DateTimeBlanks", "WHEN\n20240115  93000000 -300\n",
       "WHEN: \"20240115  93000000 -300\" is not a date, a time and an offset with spaces between"},
      {"DateTimeTime", "WHEN\n20240115 9x -300\n", "WHEN: \"9x\" is not an integer"},
      {"DateTimeOffset", "WHEN\n20240115 93000000 40000\n", "WHEN: 40000 does not fit the offset (-32768 to 32767)"},
      {"DateTimeDate", "WHEN\n18000115 0 0\n",
       "WHEN: 18000115 is not a date (years 1900 to 2155, months to 15, days to 31)"},
      {"EpochNSWithoutZone", "RECV\n2024-06-03T09:30:00\n",
       "RECV: \"2024-06-03T09:30:00\" is neither an integer nor a timestamp such as 2024-06-03T09:30:00Z"},
      {"EpochNS", "RECV\n-1\n", "RECV: -1 does not fit EPOCH_NSEC (0 to 18446744073709551615)"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(encoded(row.text), row.error);
  }
  EXPECT_EQ(encoded("SYMBOL\n" + std::string(255, 'x') + "\n"), "SYMBOL: 255 bytes are too long for a STRING of mInt");
}

}  // namespace
