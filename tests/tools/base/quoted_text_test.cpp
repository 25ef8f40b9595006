// Text of others in reports.
#include "base/quoted_text.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace MD::tool;

TEST(Printable, KeepsAReportOnOneReadableLine) {
  EXPECT_EQ(printable("a\nb\x1b[31m\x7f"), "a\\x0ab\\x1b[31m\\x7f");
  EXPECT_EQ(printable("\xe2\x82\xac"), "\xe2\x82\xac");
  EXPECT_EQ(printable("\xe2\x82"), "\\xe2\\x82");
  EXPECT_EQ(printable(std::string(200, 'x')), std::string(200, 'x'));
  EXPECT_EQ(printable(std::string(201, 'x')), std::string(200, 'x') + "...");
  EXPECT_EQ(printable(std::string(199, 'x') + "\xe2\x82\xac"), std::string(199, 'x') + "...");
}

TEST(Printable, IsReversible) {
  EXPECT_EQ(printable("\\x0a"), "\\\\x0a");
  EXPECT_EQ(printable("\xc2\x9b\xe2\x80\xae"), "\\u{9b}\\u{202e}");
}

TEST(Harmless, EscapesWhatIsNotEscapedYet) {
  EXPECT_EQ(harmless("in\x1b[2J: " + printable("\x07\\") + " \xc2\x85"), "in\\x1b[2J: \\x07\\\\ \\u{85}");
  EXPECT_EQ(harmless("ends in \\"), "ends in \\");
  EXPECT_EQ(harmless(""), "");
}

}  // namespace
