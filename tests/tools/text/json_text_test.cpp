// Strings of JSON.
#include "text/json_text.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace MD::tool;

TEST(JsonText, EscapesWhatMustBe) {
  std::string text;
  EXPECT_TRUE(appendJsonString(std::string("a\"b\\c\n\r\t\x01\x1f\x7f\0z", 13), text));
  EXPECT_EQ(text, "\"a\\\"b\\\\c\\n\\r\\t\\u0001\\u001f\\u007f\\u0000z\"");
  text.clear();
  EXPECT_TRUE(appendJsonString("\xe2\x82\xac", text));
  EXPECT_EQ(text, "\"\xe2\x82\xac\"");
  text = "kept";
  EXPECT_FALSE(appendJsonString("\xff", text));
  EXPECT_EQ(text, "kept");
}

// What a terminal would obey, or shows in another order: C1, the controls of direction, and other ends of lines.
TEST(JsonText, EscapesTheControlsOfTerminals) {
  const struct {
    const char* text;
    const char* json;
  } kRows[] = {
      {"\xc2\x80\xc2\x9b"
       "2J\xc2\x9f",
       R"("\u0080\u009b2J\u009f")"},
      {"\xd8\x9c", R"("\u061c")"},
      {"\xe2\x80\x8e\xe2\x80\x8f", R"("\u200e\u200f")"},
      {"\xe2\x80\xa8\xe2\x80\xa9\xe2\x80\xaa\xe2\x80\xae", R"("\u2028\u2029\u202a\u202e")"},
      {"a\xe2\x81\xa6z\xe2\x81\xa9", R"("a\u2066z\u2069")"},
      // Their neighbours are text.
      {"\xc2\xa0\xd8\x9b\xd8\x9d", "\"\xc2\xa0\xd8\x9b\xd8\x9d\""},
      {"\xe2\x80\x8d\xe2\x80\x90\xe2\x80\xa7\xe2\x80\xaf", "\"\xe2\x80\x8d\xe2\x80\x90\xe2\x80\xa7\xe2\x80\xaf\""},
      {"\xe2\x81\xa5\xe2\x81\xaa\xe2\x82\xa8", "\"\xe2\x81\xa5\xe2\x81\xaa\xe2\x82\xa8\""},
      {"\xf0\x9f\x98\x80\"", "\"\xf0\x9f\x98\x80\\\"\""},
  };
  for (const auto& row : kRows) {
    std::string json;
    EXPECT_TRUE(appendJsonString(row.text, json));
    EXPECT_EQ(json, row.json);
  }
}

}  // namespace
