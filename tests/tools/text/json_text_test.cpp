// Strings of JSON.
#include "text/json_text.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace MD::tool;

TEST(JsonText, EscapesWhatMustBe) {
  std::string text;
  EXPECT_TRUE(appendJsonString(std::string("a\"b\\c\n\r\t\x01\x1f\x7f\0z", 13), text));
  EXPECT_EQ(text, "\"a\\\"b\\\\c\\n\\r\\t\\u0001\\u001f\x7f\\u0000z\"");
  text.clear();
  EXPECT_TRUE(appendJsonString("\xe2\x82\xac", text));
  EXPECT_EQ(text, "\"\xe2\x82\xac\"");
  text = "kept";
  EXPECT_FALSE(appendJsonString("\xff", text));
  EXPECT_EQ(text, "kept");
}

}  // namespace
