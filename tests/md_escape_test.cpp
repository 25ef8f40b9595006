#include "md/md_escape.h"

#include <cstdint>

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace MD {
namespace {

using namespace std::string_view_literals;

struct EscapeCase {
  const char* name;
  std::string_view text;
  std::string_view written;
};

TEST(Escape, ShowsEveryByteAndObeysNone) {
  const EscapeCase kCases[] = {
      {"Nothing", "", ""},
      {"Plain", "NEB/USD 184.15 ~", "NEB/USD 184.15 ~"},
      {"Backslash", "a\\b\\\\", "a\\\\b\\\\\\\\"},
      {"TerminalTitle", "\x1b]0;owned\x07", "\\x1b]0;owned\\x07"},
      {"NewLineAndTab", "a\r\nb\tc", "a\\x0d\\x0ab\\x09c"},
      {"NulAndDel", "\0\x7f"sv, "\\x00\\x7f"},
      {"LastControl", "\x1f ", "\\x1f "},
      {"Letters", "Z\xc3\xbcrich \xe2\x82\xac \xf0\x9f\x93\x88", "Z\xc3\xbcrich \xe2\x82\xac \xf0\x9f\x93\x88"},
      {"FirstC1", "\xc2\x80", "\\u{80}"},
      {"ControlSequenceIntroducer",
       "\xc2\x9b"
       "31m",
       "\\u{9b}31m"},
      {"LastC1ThenNoBreakSpace", "\xc2\x9f\xc2\xa0", "\\u{9f}\xc2\xa0"},
      {"ArabicLetterMark", "\xd8\x9c", "\\u{61c}"},
      {"ZeroWidthJoinerIsALetter", "\xe2\x80\x8d", "\xe2\x80\x8d"},
      {"Marks", "\xe2\x80\x8e\xe2\x80\x8f", "\\u{200e}\\u{200f}"},
      {"HyphenIsALetter", "\xe2\x80\x90", "\xe2\x80\x90"},
      {"Separators", "\xe2\x80\xa8\xe2\x80\xa9", "\\u{2028}\\u{2029}"},
      {"Overrides", "\xe2\x80\xaa\xe2\x80\xae\xe2\x80\xaf", "\\u{202a}\\u{202e}\xe2\x80\xaf"},
      {"Isolates", "\xe2\x81\xa5\xe2\x81\xa6\xe2\x81\xa9\xe2\x81\xaa", "\xe2\x81\xa5\\u{2066}\\u{2069}\xe2\x81\xaa"},
      {"LoneContinuation", "a\x80", "a\\x80"},
      {"CutCharacter", "\xe2\x82", "\\xe2\\x82"},
      {"CutCharacterBeforeAnother", "\xe2\x82z", "\\xe2\\x82z"},
      {"Overlong", "\xc0\xaf\xe0\x9f\xbf\xf0\x8f\xbf\xbf", "\\xc0\\xaf\\xe0\\x9f\\xbf\\xf0\\x8f\\xbf\\xbf"},
      {"ShortestOfEachLength", "\xc2\xa1\xe0\xa0\x80\xf0\x90\x80\x80", "\xc2\xa1\xe0\xa0\x80\xf0\x90\x80\x80"},
      {"Surrogates", "\xed\x9f\xbf\xed\xa0\x80\xed\xbf\xbf\xee\x80\x80",
       "\xed\x9f\xbf\\xed\\xa0\\x80\\xed\\xbf\\xbf\xee\x80\x80"},
      {"BeyondUnicode", "\xf4\x8f\xbf\xbf\xf4\x90\x80\x80\xf5\xff", "\xf4\x8f\xbf\xbf\\xf4\\x90\\x80\\x80\\xf5\\xff"},
  };
  for (const EscapeCase& escape : kCases) {
    EXPECT_EQ(escaped(escape.text), escape.written) << escape.name;
  }
}

TEST(Escape, AppendsToWhatIsThere) {
  std::string out = "SYMBOL = ";
  appendEscaped("a\n", out);
  EXPECT_EQ(out, "SYMBOL = a\\x0a");
}

/// The reverse of the written form, by its description.
std::string unescaped(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
    } else if (text[++i] == '\\') {
      out += '\\';
    } else if (text[i] == 'x') {
      out += static_cast<char>(std::stoul(std::string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      const std::size_t end = text.find('}', i);
      const auto codePoint =
          static_cast<unsigned>(std::stoul(std::string(text.substr(i + 2, end - i - 2)), nullptr, 16));
      if (codePoint < 0x800) {
        out += static_cast<char>(0xc0 | codePoint >> 6);
      } else {
        out += static_cast<char>(0xe0 | codePoint >> 12);
        out += static_cast<char>(0x80 | (codePoint >> 6 & 0x3f));
      }
      out += static_cast<char>(0x80 | (codePoint & 0x3f));
      i = end;
    }
  }
  return out;
}

TEST(Escape, CanBeReversedForEveryPairOfBytesAndEveryStartOfAThreeByteCharacter) {
  for (unsigned pair = 0; pair < 65536; ++pair) {
    for (const char* prefix : {"", "\xe2", "\\"}) {
      std::string text = prefix;
      text += static_cast<char>(pair >> 8);
      text += static_cast<char>(pair & 255);
      const std::string written = escaped(text);
      ASSERT_EQ(unescaped(written), text) << pair;
      for (const char c : written) {
        const auto byte = static_cast<std::uint8_t>(c);
        ASSERT_TRUE(byte >= 0x20 && byte != 0x7f) << pair;
      }
    }
  }
}

}  // namespace
}  // namespace MD
