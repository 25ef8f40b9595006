// The records of a message, sound or not.
#include "messages/record_walk.h"

#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "text/hex_reader.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;

class RecordWalkTest : public testing::Test {
 protected:
  RecordWalkTest() { MD::test::loadDictionary(MD::test::kDictionary); }

  static const char* nameOf(Part::Kind kind) {
    constexpr const char* kNames[] = {"code", "mark", "rest", "id", "type", "length", "value"};
    return kNames[static_cast<std::size_t>(kind)];
  }

  static const char* nameOf(Flaw flaw) {
    constexpr const char* kNames[] = {
        "",         "NoEncoding",   "OtherMark",   "HalfId",    "Unknown", "NotCarried", "Repeated", "OtherType",
        "HighType", "EndsInRecord", "EndsInValue", "WrongSize", "NoNul",   "OtherEnd",   "TooLong"};
    return kNames[static_cast<std::size_t>(flaw)];
  }

  /// A line for each record: "300: id 1+2, length 3+1 =4, value 4+4 =4;".
  static std::string walked(const std::string& hex) {
    std::vector<std::uint8_t> bytes;
    parseHex(hex, Blanks::BetweenBytes, bytes);
    // In a block of the message's own size, so that a read beyond it is found.
    const std::vector<std::uint8_t> block(bytes);
    RecordWalk walk(MD::MD_FieldMap::instance());
    std::string text;
    // Twice, since what is kept from one message to the next must not show in it.
    for (int round = 0; round != 2; ++round) {
      text.clear();
      walk.forEach(block.data(), block.size(), [&](const Record& record) {
        text += record.isHeader ? "header:" : std::to_string(record.id) + ':';
        for (const Part& part : record.parts) {
          text += std::string(" ") + nameOf(part.kind) + ' ' + std::to_string(part.offset) + '+' +
                  std::to_string(part.sizeBytes);
          text += part.number != 0 ? " =" + std::to_string(part.number) : "";
          text += part.flaw != Flaw::None ? std::string(" ") + nameOf(part.flaw) : "";
          text += ',';
        }
        text.back() = ';';
        text += record.isTruncated ? " truncated" : "";
        text += record.earlier != 0 ? " earlier at " + std::to_string(record.earlier) : "";
        text += '\n';
      });
    }
    return text;
  }
};

TEST_F(RecordWalkTest, GivesEveryPartOfEveryEncoding) {
  EXPECT_EQ(walked("06 2c01 02 2c01 3c00 02 4100"),
            "header: code 0+1;\n"
            "300: id 1+2, length 3+1 =2, value 4+2 =2;\n"
            "60: id 6+2, length 8+1 =2, value 9+2 =2;\n");
  EXPECT_EQ(walked("01 2c01 05000000 3c00 0200 4100 4600 01000000 ff"),
            "header: code 0+1;\n"
            "300: id 1+2, value 3+4 =4;\n"
            "60: id 7+2, length 9+2 =2, value 11+2 =2;\n"
            "70: id 13+2, length 15+4 =1, value 19+1 =1;\n");
  EXPECT_EQ(walked("46515231 012c 0002 00000004 00000005"),
            "header: code 0+1, mark 1+3;\n"
            "300: id 4+2, type 6+2 =2, length 8+4 =4, value 12+4 =4;\n");
}

TEST_F(RecordWalkTest, TellsWhatIsWrongWhereItIs) {
  const struct {
    const char* name;
    const char* hex;
    const char* records;  ///< after the header, or with it where the header is wrong
  } cases[] = {
      {"NoEncoding", "07 0102", "header: code 0+1 NoEncoding, rest 1+2;\n"},
      {"OtherMark", "46515232", "header: code 0+1, mark 1+3 OtherMark;\n"},
      {"HalfId", "06 2c", "0: id 1+1 HalfId; truncated\n"},
      {"Unknown", "06 e703 01 05", "999: id 1+2 Unknown, length 3+1 =1, value 4+1 =1;\n"},
      {"UnknownWithoutLength", "01 e703", "999: id 1+2 Unknown;\n"},
      {"Repeated", "06 2c01 01 05 2c01 01 06",
       "300: id 1+2, length 3+1 =1, value 4+1 =1;\n"
       "300: id 5+2 Repeated, length 7+1 =1, value 8+1 =1; earlier at 1\n"},
      {"OtherType", "46515231 012c 0006 00000002 4100",
       "300: id 4+2, type 6+2 =6 OtherType, length 8+4 =2, value 12+2 =2;\n"},
      {"HighType", "46515231 012c 0102 00000004 00000005",
       "300: id 4+2, type 6+2 =2 HighType, length 8+4 =4, value 12+4 =4;\n"},
      {"NoType", "46515231 012c", "300: id 4+2, type 6+0 EndsInRecord; truncated\n"},
      {"NoLength", "06 2c01", "300: id 1+2, length 3+0 EndsInRecord; truncated\n"},
      {"HalfAValue", "06 2c01 04 0102", "300: id 1+2, length 3+1 =4, value 4+2 =4 EndsInValue; truncated\n"},
      {"WrongSize", "06 2c01 03 010203", "300: id 1+2, length 3+1 =3, value 4+3 =3 WrongSize;\n"},
      {"NoNul", "06 3c00 00", "60: id 1+2, length 3+1, value 4+0 NoNul;\n"},
      {"OtherEnd", "06 3c00 01 41", "60: id 1+2, length 3+1 =1, value 4+1 =1 OtherEnd;\n"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    std::string text = walked(row.hex);
    if (std::string(row.records).rfind("header", 0) != 0) {
      text.erase(0, text.find('\n') + 1);
    }
    EXPECT_EQ(text, row.records);
  }
}

TEST_F(RecordWalkTest, ALengthBeyondWhatAReadReturnsIsAFlaw) {
  std::string hex = "46515231 0046 000e 00010000";  // 65,536 bytes
  for (int i = 0; i != 65536; ++i) {
    hex += "00";
  }
  EXPECT_EQ(walked(hex),
            "header: code 0+1, mark 1+3;\n"
            "70: id 4+2, type 6+2 =14, length 8+4 =65536, value 12+65536 =65536 TooLong;\n");
}

TEST_F(RecordWalkTest, NothingHasNoRecords) { EXPECT_EQ(walked(""), ""); }

}  // namespace
