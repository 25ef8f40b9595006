// Conditions over messages: fields by their types, pseudo-fields, and what cannot be compared.
#include "messages/condition.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/errors.h"
#include "messages/json_reader.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::MD_Message;

class ConditionTest : public testing::Test {
 protected:
  ConditionTest() { MD::test::loadDictionary(MD::test::kDictionary); }

  static std::unique_ptr<MD_Message> messageOf(const std::string& json, std::uint8_t code = 6) {
    auto message = MD_Message::createFromPB(code);
    const FieldNames names;
    JsonReader(names).read(json, *message);
    return message;
  }

  static bool holds(const std::string& condition, const MD_Message& message) {
    return Condition(condition, FieldNames(), TimeZone()).holds(message);
  }

  static std::string errorOf(const std::string& condition) {
    try {
      Condition(condition, FieldNames(), TimeZone());
    } catch (const UsageError& error) {
      return error.what();
    }
    return "nothing";
  }
};

constexpr const char* kMessage =
    R"({"CH":"B","QTY":-1,"SEQ":-9223372036854775808,"VOLA":0.1,"BID":101.25,"SYMBOL":"NEB/USD","BLOB":{"hex":"00ff"},)"
    R"("WHEN":{"date":20240115,"time":93000000,"offset":-300},"RECV":1717407000000000000})";

constexpr struct {
  const char* condition;
  bool holds;
} kCases[] = {
    {"CH = B", true},
    {"CH != B", false},
    {"CH>A", true},
    {"CH in (A, B)", true},
    {"QTY = -1", true},
    {"QTY == -1", true},
    {"300 < 0", true},
    {"QTY >= 0", false},
    {"QTY < 3000000000", true},
    {"QTY in (7, -1, 3)", true},
    {"QTY in (7, 3)", false},
    {"SEQ = -9223372036854775808", true},
    {"SEQ <= -9223372036854775807", true},
    {"VOLA = 0.1", true},
    {"VOLA != 0.1", false},
    {"VOLA in (NaN, 0.1, -1)", true},
    {"BID > 101.2", true},
    {"BID > 9", true},
    {"BID > 101.25", false},
    {"BID >= 101.25", true},
    {"BID < Infinity", true},
    {"BID = NaN", false},
    {"BID != NaN", true},
    {"BID in (NaN)", false},
    {"SYMBOL = NEB/USD", true},
    {"SYMBOL = \"NEB/USD\"", true},
    {"SYMBOL = 'NEB/USD'", true},
    {"SYMBOL ~ /", true},
    {"SYMBOL ~ EUR", false},
    {"SYMBOL ~ \"\"", true},
    {"SYMBOL > NEB", true},
    {"SYMBOL < NEC", true},
    {"SYMBOL in (AB, NEB/USD)", true},
    {"SYMBOL in (AB, NEB)", false},
    {"BLOB = 00ff", true},
    {"BLOB != 00FF", false},
    {"BLOB < 0100", true},
    {"BLOB in (01, 00FF)", true},
    {"WHEN = \"20240115 93000000 0\"", true},
    {"WHEN < '20240115 93000001 0'", true},
    {"WHEN > '20240116 0 0'", false},
    {"RECV = 1717407000000000000", true},
    {"RECV >= 2024-06-03T09:30:00Z", true},
    {"RECV = 2024-06-03T09:30:00", true},
    {"RECV = '2024-06-03 09:30'", true},
    {"RECV > 2024-06-03", true},
    {"RECV > 2024-06-03T11:30:00.5+02:00", false},
    {"exists(QTY)", true},
    {"exists(300)", true},
    {"exists(ASK)", false},
    {"not exists(ASK)", true},
    {"  QTY   <0  ", true},
    {"QTY = 5 or SYMBOL = NEB/USD", true},
    {"QTY = 5 or SYMBOL = AB", false},
    {"QTY = -1 and SYMBOL = NEB/USD", true},
    {"(QTY = 5 or BID > 100) and not SYMBOL = AB", true},
    // A missing field satisfies no comparison.
    {"ASK < 1", false},
    {"ASK >= 1", false},
    {"ASK != 1", false},
    {"ASK in (1, 2)", false},
    {"not ASK = 1", true},
};

TEST_F(ConditionTest, ComparesByTheTypeOfTheField) {
  const auto message = messageOf(kMessage);
  for (const auto& [condition, isMet] : kCases) {
    SCOPED_TRACE(condition);
    EXPECT_EQ(holds(condition, *message), isMet);
  }
}

TEST_F(ConditionTest, BytesGiveTheAnswersOfTheirMessage) {
  const FieldNames names;
  for (const auto code : {MD::ENCODINGS::ITERMAP, MD::ENCODINGS::MINT, MD::ENCODINGS::MSGT}) {
    const auto message = messageOf(kMessage, code);
    InputMessage input;
    input.data = message->getBinary();
    input.sizeBytes = message->getSizeImpl();
    for (const auto& [condition, isMet] : kCases) {
      SCOPED_TRACE(condition);
      EXPECT_EQ(Condition(condition, names, TimeZone()).holds(Candidate(input)), isMet) << int{code};
    }
  }
}

TEST_F(ConditionTest, TimesWithoutAnOffsetAreThoseOfTheZone) {
  const auto message = messageOf(kMessage);
  const FieldNames names;
  EXPECT_TRUE(Condition("RECV = 2024-06-03T15:00:00", names, TimeZone::parse("+05:30")).holds(*message));
  EXPECT_FALSE(Condition("RECV = 2024-06-03T09:30:00", names, TimeZone::parse("+05:30")).holds(*message));
  EXPECT_TRUE(Condition("RECV = 2024-06-03T09:30:00Z", names, TimeZone::parse("+05:30")).holds(*message));
}

TEST_F(ConditionTest, PseudoFieldsAreThoseOfTheInput) {
  const std::string file = "ticks of june.pcap";
  const auto message = messageOf(R"({"QTY":5})");
  InputMessage input;
  input.data = message->getBinary();
  input.sizeBytes = message->getSizeImpl();
  input.timeNs = 1'717'407'000'000'000'000;
  input.source = *parseEndpoint("10.0.0.1:5000");
  input.destination = *parseEndpoint("[ff02::1]:30001");
  input.hasEndpoints = true;
  input.file = &file;
  input.number = 17;
  const FieldNames names;
  const struct {
    const char* condition;
    bool isMet;
  } cases[] = {
      {"@time = 2024-06-03T09:30:00", true},
      {"@time < 2024-06-03", false},
      {"@time in (1717407000000000000, 5)", true},
      {"@source = 10.0.0.1", true},
      {"@source = 10.0.0.1:5000", true},
      {"@source = 10.0.0.1:5001", false},
      {"@source != 10.0.0.1:5001", true},
      {"@source in (10.0.0.2, 10.0.0.1)", true},
      {"@source ~ 10.0.", true},
      {"@destination = ff02::1", true},
      {"@destination = [ff02::1]:30001", true},
      {"@packet = 17", true},
      {"@packet > 17", false},
      {"@file ~ june", true},
      {"@file = 'ticks of june.pcap'", true},
      {"@size = 5", true},
      {"@size < 5", false},
      {"@encoding = mInt", true},
      {"@encoding in (MsgT, IterMap)", false},
      {"exists(@time)", true},
      {"exists(@source) and QTY = 5", true},
  };
  for (const auto& [condition, isMet] : cases) {
    SCOPED_TRACE(condition);
    EXPECT_EQ(Condition(condition, names, TimeZone()).holds(Candidate(input)), isMet);
  }
  const InputMessage line = MD::test::inputOf({6});
  for (const char* const condition :
       {"exists(@time)", "exists(@source)", "exists(@file)", "@time >= 0", "@source != 1.2.3.4"}) {
    EXPECT_FALSE(Condition(condition, names, TimeZone()).holds(Candidate(line))) << condition;
  }
}

TEST_F(ConditionTest, RegularExpressionsSearchInLinearTime) {
#if defined(MDMSG_HAS_RE2)
  const auto message = messageOf("{\"SYMBOL\":\"" + std::string(60000, 'a') + "b\"}", MD::ENCODINGS::ITERMAP);
  EXPECT_TRUE(holds("SYMBOL =~ '^a*b$'", *message));
  EXPECT_TRUE(holds("SYMBOL =~ ab", *message));
  EXPECT_FALSE(holds("SYMBOL =~ '^(a|aa)+$'", *message));
  EXPECT_FALSE(holds("SYMBOL =~ '(a*)*c'", *message));
  EXPECT_EQ(errorOf("SYMBOL =~ '[a'"),
            "--where \"SYMBOL =~ '[a'\": column 11: \"[a\" is not a regular expression: missing ]: [a");
  EXPECT_EQ(errorOf("SYMBOL =~ '(a)\\1'"),
            "--where \"SYMBOL =~ '(a)\\\\1'\": column 11: \"(a)\\\\1\" is not a regular expression: invalid escape "
            "sequence: \\1");
#else
  EXPECT_EQ(errorOf("SYMBOL =~ a"),
            "--where \"SYMBOL =~ a\": column 11: the regular expression \"a\" cannot be used: this mdmsg was built "
            "without RE2");
#endif
}

TEST_F(ConditionTest, WhatMakesNoSenseIsRefusedWithItsColumn) {
  const struct {
    const char* condition;
    const char* error;
  } cases[] = {
      {"", "--where \"\": column 1: expected a field, \"not\", \"exists\" or \"(\", found the end"},
      {"SYMBOL = A or SYMBOL = B C",
       "--where \"SYMBOL = A or SYMBOL = B C\": column 26: expected \"and\", \"or\" or the end, found \"C\"; values "
       "with spaces, parentheses, commas or operators go in double quotes"},
      {"QTY = 1 and NOPE = 5",
       "--where \"QTY = 1 and NOPE = 5\": column 13: field NOPE: not in the dictionary test dictionary"},
      {"RAWLY = 5", "--where \"RAWLY = 5\": column 1: field RAWLY: values of type RAW are not carried by messages"},
      {"QTY = x", "--where \"QTY = x\": column 7: \"x\" is not an integer"},
      {"QTY = 1.5", "--where \"QTY = 1.5\": column 7: \"1.5\" is not an integer"},
      {"QTY ~ 1", "--where \"QTY ~ 1\": column 7: ~ requires text, not INT"},
      {"@size =~ 1", "--where \"@size =~ 1\": column 10: =~ requires text, not a number"},
      {"CH = AB", "--where \"CH = AB\": column 6: \"AB\" is 2 bytes, a CHAR is one"},
      {"BID = x", "--where \"BID = x\": column 7: \"x\" is not a number"},
      {"BLOB = 0", "--where \"BLOB = 0\": column 8: column 1: odd number of hex digits, the last byte is incomplete"},
      {"WHEN = x", "--where \"WHEN = x\": column 8: \"x\" is not a date, a time and an offset with spaces between"},
      {"RECV = yesterday",
       "--where \"RECV = yesterday\": column 8: \"yesterday\" is neither an integer nor a timestamp such as "
       "2024-06-03T09:30:00Z"},
      {"@sender = 5",
       "--where \"@sender = 5\": column 1: field @sender: it is not one of @time, @source, @destination, @packet, "
       "@file, "
       "@size, @encoding"},
      {"@source = here",
       "--where \"@source = here\": column 11: \"here\" is not an address, nor an address and a port"},
      {"@source < 10.0.0.1",
       "--where \"@source < 10.0.0.1\": column 11: addresses are compared by =, !=, in, ~ and =~"},
      {"@encoding = XML",
       "--where \"@encoding = XML\": column 13: unknown encoding \"XML\" (01 IterMap, 06 mInt, 46 MsgT)"},
  };
  for (const auto& [condition, error] : cases) {
    SCOPED_TRACE(condition);
    EXPECT_EQ(errorOf(condition), error);
  }
}

}  // namespace
