#include "text/hex_reader.h"

#include <cstddef>
#include <cstdint>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/tool_support.h"

namespace {

using MD::test::lineErrorOf;
using MD::tool::Blanks;
using MD::tool::parseHex;
using Bytes = std::vector<std::uint8_t>;

TEST(Hex, IsReadInEitherCaseWithBlanksBetweenBytes) {
  const struct {
    const char* name;
    const char* text;
    Bytes bytes;
  } cases[] = {
      {"Nothing", "", {}},
      {"EitherCase", "0aFf9C", {0x0a, 0xff, 0x9c}},
      {"BlanksAndTabs", " 06 2c01\t0105 ", {0x06, 0x2c, 0x01, 0x01, 0x05}},
      {"BlanksAlone", "  \t", {}},
  };
  for (const auto& [name, text, expected] : cases) {
    SCOPED_TRACE(name);
    Bytes bytes{1, 2, 3};
    parseHex(text, Blanks::BetweenBytes, bytes);
    EXPECT_EQ(bytes, expected);
  }
}

TEST(Hex, ErrorsNameTheColumn) {
  const struct {
    const char* name;
    const char* text;
    Blanks blanks;
    const char* error;
  } cases[] = {
      {"OddNumber", "06 2c 0", Blanks::BetweenBytes, "column 7: odd number of hex digits, the last byte is incomplete"},
      {"OneDigit", "f", Blanks::Refused, "column 1: odd number of hex digits, the last byte is incomplete"},
      {"BlankInsideByte", "06 2 c0", Blanks::BetweenBytes, "column 5: space within a byte"},
      {"TabInsideByte", "0\t6", Blanks::BetweenBytes, "column 2: space within a byte"},
      {"BlankRefused", "06 2c", Blanks::Refused, "column 3: \" \" is not a hex digit"},
      {"FirstDigitWrong", "06g1", Blanks::BetweenBytes, "column 3: \"g\" is not a hex digit"},
      {"SecondDigitWrong", "06:1", Blanks::BetweenBytes, "column 3: \":\" is not a hex digit"},
      {"LastDigitWrong", "061/", Blanks::BetweenBytes, "column 4: \"/\" is not a hex digit"},
      {"LoneWrongCharacter", "06@", Blanks::BetweenBytes, "column 3: \"@\" is not a hex digit"},
      {"ControlCharacter", "\x01", Blanks::BetweenBytes, "column 1: \"\\x01\" is not a hex digit"},
      {"NotAscii", "06\xe9", Blanks::BetweenBytes, "column 3: \"\\xe9\" is not a hex digit"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    Bytes bytes;
    EXPECT_EQ(lineErrorOf([&] { parseHex(row.text, row.blanks, bytes); }), row.error);
  }
}

TEST(Hex, LongTextsAreReadAndRefusedAtEachPlace) {
  // Bytes are read in groups of eight; errors must be found in each byte of a group, and after the groups.
  for (std::size_t count = 1; count != 35; ++count) {
    std::string text;
    Bytes expected;
    for (std::size_t i = 0; i != count; ++i) {
      constexpr char kDigits[] = "0123456789abcdefABCDEF";
      const std::size_t high = i * 7 % 22;
      const std::size_t low = i * 5 % 22;
      text += kDigits[high];
      text += kDigits[low];
      expected.push_back(static_cast<std::uint8_t>((high < 16 ? high : high - 6) << 4 | (low < 16 ? low : low - 6)));
    }
    Bytes bytes;
    parseHex(text, Blanks::Refused, bytes);
    ASSERT_EQ(bytes, expected) << text;
    for (std::size_t wrong = 0; wrong != text.size(); ++wrong) {
      for (const char c : {'g', '\xff', ' '}) {
        std::string bad = text;
        bad[wrong] = c;
        const std::string error = lineErrorOf([&] { parseHex(bad, Blanks::Refused, bytes); });
        const bool isInByte = c == ' ' && wrong % 2 == 1;
        ASSERT_EQ(error.substr(0, error.find(':')), "column " + std::to_string(wrong + 1)) << bad;
        ASSERT_EQ(error.find("space within a byte") != error.npos, isInByte) << bad;
      }
    }
  }
}

}  // namespace
