// Which messages and fields are taken.
#include "messages/selection.h"

#include <gtest/gtest.h>

#include "messages/json_reader.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::MD_Message;

class SelectionTest : public testing::Test {
 protected:
  SelectionTest() { MD::test::loadDictionary(MD::test::kDictionary); }

  static std::unique_ptr<MD_Message> messageOf(const std::string& json) {
    auto message = MD_Message::createFromPB(6);
    const FieldNames names;
    JsonReader(names).read(json, *message);
    return message;
  }

  static std::string errorOf(const SelectionOptions& options) {
    try {
      Selection(options, FieldNames());
    } catch (const UsageError& error) {
      return error.what();
    }
    return "nothing";
  }
};

constexpr const char* kMessage =
    R"({"CH":"B","QTY":-1,"SEQ":-9223372036854775808,"VOLA":0.1,"BID":101.25,"SYMBOL":"NEB/USD","BLOB":{"hex":"00ff"},)"
    R"("WHEN":{"date":20240115,"time":93000000,"offset":-300},"RECV":18446744073709551615})";

TEST_F(SelectionTest, AValueInQuotesIsReadAsACsvCell) {
  const auto message = messageOf(R"({"SYMBOL":"a\"b, c"})");
  const FieldNames names;
  for (const char* const condition :
       {R"(SYMBOL = "a""b, c")", R"(SYMBOL = a"b, c)", R"(SYMBOL ~ """")", R"(SYMBOL ~ "a""")"}) {
    EXPECT_TRUE(Condition(condition, names).holds(*message)) << condition;
  }
}

TEST_F(SelectionTest, AValueMayBeginLikeAnOperatorBehindABlank) {
  const auto message = messageOf(R"({"SYMBOL":"<>"})");
  for (const char* const condition : {"SYMBOL= <>", "SYMBOL =\"<>\"", "SYMBOL ~ >", "SYMBOL > ;"}) {
    EXPECT_TRUE(Condition(condition, FieldNames()).holds(*message)) << condition;
  }
}

TEST_F(SelectionTest, ConditionsCompareByTheType) {
  const auto message = messageOf(kMessage);
  const FieldNames names;
  const struct {
    const char* condition;
    bool holds;
  } cases[] = {
      {"CH = B", true},
      {"CH != B", false},
      {"CH>A", true},
      {"QTY = -1", true},
      {"QTY == -1", true},
      {"300 < 0", true},
      {"QTY >= 0", false},
      {"QTY < 3000000000", true},
      {"SEQ = -9223372036854775808", true},
      {"SEQ <= -9223372036854775807", true},
      {"VOLA = 0.1", true},
      {"VOLA != 0.1", false},
      {"BID > 101.2", true},
      {"BID > 101.25", false},
      {"BID >= 101.25", true},
      {"BID < Infinity", true},
      {"BID = NaN", false},
      {"BID != NaN", true},
      {"SYMBOL = NEB/USD", true},
      {"SYMBOL = \"NEB/USD\"", true},
      {"SYMBOL ~ /", true},
      {"SYMBOL ~ EUR", false},
      {"SYMBOL ~", true},
      {"SYMBOL > NEB", true},
      {"SYMBOL < NEC", true},
      {"BLOB = 00ff", true},
      {"BLOB != 00FF", false},
      {"BLOB < 0100", true},
      {"WHEN = 20240115 93000000 0", true},
      {"WHEN < 20240115 93000001 0", true},
      {"WHEN > 20240116 0 0", false},
      {"RECV = 18446744073709551615", true},
      {"RECV > 2024-06-03T09:30:00Z", true},
      {"  QTY   <0  ", true},
      // A field that is not there meets no condition.
      {"ASK < 1", false},
      {"ASK >= 1", false},
      {"ASK != 1", false},
  };
  for (const auto& [condition, holds] : cases) {
    SCOPED_TRACE(condition);
    EXPECT_EQ(Condition(condition, names).holds(*message), holds);
  }
}

TEST_F(SelectionTest, ConditionsThatMakeNoSenseAreRefused) {
  const struct {
    const char* condition;
    const char* error;
  } cases[] = {
      {"", "--where \"\" is not a field, one of = != < <= > >= ~, and a value"},
      {"QTY", "--where \"QTY\" is not a field, one of = != < <= > >= ~, and a value"},
      {"= 5", "--where \"= 5\" is not a field, one of = != < <= > >= ~, and a value"},
      {"QTY is 5", "--where \"QTY is 5\" is not a field, one of = != < <= > >= ~, and a value"},
      {"QTY ! 5", "--where \"QTY ! 5\" is not a field, one of = != < <= > >= ~, and a value"},
      {"SYMBOL<>AB",
       "--where \"SYMBOL<>AB\": \"<>\" is none of = != < <= > >= ~; put a space before a value that begins with "
       "\">\""},
      {"QTY =< 5",
       "--where \"QTY =< 5\": \"=<\" is none of = != < <= > >= ~; put a space before a value that begins with \"<\""},
      {"SYMBOL===AB",
       "--where \"SYMBOL===AB\": \"===\" is none of = != < <= > >= ~; put a space before a value that begins with "
       "\"=\""},
      {"NOPE = 5", "--where \"NOPE = 5\": field NOPE: the dictionary has no field of this name"},
      {"RAWLY = 5", "--where \"RAWLY = 5\": field RAWLY: values of type RAW are carried by no message"},
      {"QTY = x", "--where \"QTY = x\": \"x\" is not an integer"},
      {"QTY = 1.5", "--where \"QTY = 1.5\": \"1.5\" is not an integer"},
      {"QTY ~ 1", "--where \"QTY ~ 1\": ~ requires a STRING, not INT"},
      {"CH = AB", "--where \"CH = AB\": \"AB\" is 2 bytes, a CHAR is one"},
      {"BID = x", "--where \"BID = x\": \"x\" is not a number"},
      {"BLOB = 0", "--where \"BLOB = 0\": column 1: odd number of hex digits, the last byte is incomplete"},
      {"WHEN = x", "--where \"WHEN = x\": \"x\" is not a date, a time and an offset with spaces between"},
      {"RECV = yesterday",
       "--where \"RECV = yesterday\": \"yesterday\" is neither an integer nor a timestamp such as "
       "2024-06-03T09:30:00Z"},
  };
  for (const auto& [condition, error] : cases) {
    SCOPED_TRACE(condition);
    SelectionOptions options;
    options.where = {condition};
    EXPECT_EQ(errorOf(options), error);
  }
}

TEST_F(SelectionTest, SkipAndLimitCountWhatTheConditionsLetThrough) {
  SelectionOptions options;
  options.where = {"QTY > 0", "QTY < 6"};
  options.skip = 1;
  options.limit = 2;
  Selection selection(options, FieldNames());
  std::string taken;
  for (int quantity = -2; quantity != 9; ++quantity) {
    const auto message = messageOf("{\"QTY\":" + std::to_string(quantity) + "}");
    taken += selection.takes(*message) ? std::to_string(quantity) + ' ' : "";
  }
  EXPECT_EQ(taken, "2 3 ");
  EXPECT_TRUE(selection.isDone());
}

TEST_F(SelectionTest, FieldsAreKeptAndTheOthersErased) {
  SelectionOptions options;
  options.fields = {"SYMBOL", "300"};
  const FieldNames names;
  const Selection selection(options, names);
  const auto message = messageOf(kMessage);
  selection.keepFields(*message);
  std::vector<std::uint16_t> ids;
  message->get_field_ids(ids);
  EXPECT_EQ(ids, (std::vector<std::uint16_t>{300, 60}));
  EXPECT_TRUE(selection.includes(60));
  EXPECT_FALSE(selection.includes(22));
  EXPECT_FALSE(selection.includes(65535));
}

TEST_F(SelectionTest, FieldsThatMakeNoSenseAreRefused) {
  SelectionOptions options;
  options.fields = {"NOPE"};
  EXPECT_EQ(errorOf(options), "--fields: field NOPE: the dictionary has no field of this name");
  options.fields = {"QTY", "300"};
  EXPECT_EQ(errorOf(options), "--fields: field 300 is given twice");
}

}  // namespace
