// JSON texts, parsed in place.
#include "text/json_parser.h"

#include <random>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tools/tool_support.h"

namespace {

using namespace MD::tool;

/// Writes down what it receives.
struct Events {
  std::string text;

  bool null() { return add("null"); }
  bool boolean(bool value) { return add(value ? "true" : "false"); }
  bool number(std::string_view number) { return add("#" + std::string(number)); }
  bool string(std::string_view string) { return add('"' + std::string(string) + '"'); }
  bool key(std::string_view key) { return add(std::string(key) + ':'); }
  bool startObject() { return add("{"); }
  bool endObject() { return add("}"); }
  bool startArray() { return add("["); }
  bool endArray() { return add("]"); }

  bool add(const std::string& event) {
    text += (text.empty() ? "" : " ") + event;
    return event != "\"stop\"";
  }
};

template <JsonNesting nesting = JsonNesting::Any>
std::string parsed(std::string text) {
  Events events;
  const std::string error = MD::test::lineErrorOf([&] {
    if (!parseJson<nesting>(text, events)) {
      events.text += " stopped";
    }
  });
  return error == "nothing" ? events.text : error;
}

TEST(JsonParser, PassesEveryPartInItsOrder) {
  constexpr const char* kText = R"( {"a":[1,-0,2.50e+3,{}],"b\u00e9":"x\n\"","c":{"d":null},"e":true,"f":false} )";
  constexpr const char* kEvents = "{ a: [ #1 #-0 #2.50e+3 { } ] b\xc3\xa9: \"x\n\"\" c: { d: null } e: true f: false }";
  EXPECT_EQ(parsed(kText), kEvents);
  EXPECT_EQ(parsed<JsonNesting::Handled>(kText), kEvents);
  EXPECT_EQ(parsed("18446744073709551616123456789"), "#18446744073709551616123456789");
  EXPECT_EQ(parsed(R"(["a","stop",1])"), "[ \"a\" \"stop\" stopped");
}

TEST(JsonParser, TakesAnyNesting) {
  const std::string text = std::string(1'000'000, '[') + std::string(1'000'000, ']');
  EXPECT_EQ(parsed(text).size(), 2 * text.size() - 1);
}

TEST(JsonParser, TakesWhatAnotherParserTakes) {
  const std::string text =
      R"({"SYMBOL":"A\u00e9\ud83d\ude00é€😀\\","BID":-1.25e-3,"QTY":[0,10,{"hex":"0aff"},null],"CH":true,"X":false})";
  const std::string alphabet = "{}[]\",:\\/ub09-+.eE \t\n\x01\x7f\x80\xbf\xc3\xa9\xed\xa0\xe2\x82\xf0\x9f\xf5ntfDd8";
  std::mt19937 random(1);
  std::size_t taken = 0;
  for (int i = 0; i != 50'000; ++i) {
    std::string changed = text;
    for (auto changes = random() % 3 + 1; changes != 0; --changes) {
      const std::size_t at = random() % changed.size();
      const char c = alphabet[random() % alphabet.size()];
      switch (random() % 3) {
        case 0:
          changed[at] = c;
          break;
        case 1:
          changed.insert(at, 1, c);
          break;
        default:
          changed.erase(at, random() % 3 + 1);
      }
    }
    SCOPED_TRACE(changed);
    Events events;
    std::string copy = changed;
    const bool isTaken = MD::test::lineErrorOf([&] { parseJson<JsonNesting::Any>(copy, events); }) == "nothing";
    ASSERT_EQ(isTaken, nlohmann::json::accept(changed));
    taken += isTaken ? 1 : 0;
  }
  EXPECT_GT(taken, 1'000U);
  EXPECT_LT(taken, 49'000U);
}

}  // namespace
