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

}  // namespace
