// Which bytes are text.
#include "base/utf8.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace MD::tool;

TEST(Utf8, TellsTextFromBytes) {
  const struct {
    const char* name;
    std::string text;
    bool isText;
  } cases[] = {
      {"Empty", "", true},
      {"Ascii", "AB", true},
      {"TwoBytes", "\xc2\x80\xdf\xbf", true},
      {"ThreeBytes", "\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf", true},
      {"FourBytes", "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", true},
      {"LoneContinuation", "\x80", false},
      {"OverlongTwo", "\xc0\x80", false},
      {"OverlongTwoHigh", "\xc1\xbf", false},
      {"OverlongThree", "\xe0\x9f\xbf", false},
      {"OverlongFour", "\xf0\x8f\xbf\xbf", false},
      {"Surrogate", "\xed\xa0\x80", false},
      {"TooHigh", "\xf4\x90\x80\x80", false},
      {"NoSuchLead", "\xf5\x80\x80\x80", false},
      {"CutShort", "\xe2\x82", false},
      {"LeadAtTheEnd", "A\xe2", false},
      {"WrongThird", "\xe2\x82G", false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(isUtf8(row.text), row.isText);
  }
}

}  // namespace
