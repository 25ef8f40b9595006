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
  EXPECT_EQ(errorOf(options), "--fields: field NOPE: not in the dictionary test dictionary");
  options.fields = {"QTY", "300"};
  EXPECT_EQ(errorOf(options), "--fields: field 300 is given twice");
}

TEST_F(SelectionTest, PseudoFieldsAreColumnsAndNoFields) {
  SelectionOptions options;
  options.fields = {"@time", " QTY", "@size"};
  const Selection selection(options, FieldNames());
  ASSERT_EQ(selection.columns().size(), 3U);
  EXPECT_EQ(selection.columns()[0].pseudo, PseudoField::Time);
  EXPECT_EQ(selection.columns()[1].field.id, 300);
  EXPECT_EQ(selection.columns()[2].pseudo, PseudoField::Size);
  ASSERT_EQ(selection.fields().size(), 1U);
  EXPECT_TRUE(selection.includes(300));
  EXPECT_FALSE(selection.includes(22));
  try {
    selection.refusePseudoFields("goes elsewhere");
    FAIL();
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), "--fields: @time goes elsewhere");
  }
  options.fields = {"@when"};
  EXPECT_EQ(errorOf(options),
            "--fields: field @when: it is not one of @time, @source, @destination, @packet, @file, @size, @encoding");
}

TEST_F(SelectionTest, AllFieldsAreThoseOfTheDictionaryByTheirIds) {
  SelectionOptions options;
  options.fields = {"all"};
  const FieldNames names;
  const Selection selection(options, names);
  std::string labels;
  for (const Column& column : selection.columns()) {
    labels += names.label(column.field.id) + ' ';
  }
  EXPECT_EQ(labels.substr(0, 16), "CH CH2 SEQ SEQ2 ");
  EXPECT_EQ(labels.find("RAWLY"), labels.npos);
}

/// Which of messages that were captured at these times are taken.
std::string takenAt(const SelectionOptions& options, const std::vector<std::int64_t>& timesNs) {
  Selection selection(options, FieldNames());
  const std::vector<std::uint8_t> bytes{6};
  std::string taken;
  for (std::size_t i = 0; i != timesNs.size(); ++i) {
    InputMessage input = MD::test::inputOf(bytes);
    input.timeNs = timesNs[i];
    input.hasEndpoints = true;
    taken += selection.takes(input) ? std::to_string(i) : "-";
  }
  return taken;
}

TEST_F(SelectionTest, TimesAreDatesTimesOfDayAndDurations) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  constexpr std::int64_t kStart = 1'717'407'000 * kSecond;  // 2024-06-03T09:30:00Z
  const std::vector<std::int64_t> times{kStart, kStart + kSecond / 2, kStart + kSecond, kStart + 3600 * kSecond,
                                        kStart + 86400 * kSecond};
  const struct {
    const char* from;
    const char* to;
    const char* zone;
    const char* taken;
  } cases[] = {
      {"2024-06-03T09:30:01Z", "", "UTC", "--234"},
      {"", "2024-06-03T09:30:01Z", "UTC", "01---"},
      {"2024-06-04", "", "UTC", "----4"},
      {"2024-06-03", "2024-06-04", "UTC", "0123-"},
      {"09:30:00.5", "10:30", "UTC", "-12--"},
      {"11:30:01", "", "+02:00", "--234"},
      {"500ms", "1h", "UTC", "-12--"},
      {"1d", "", "UTC", "----4"},
      {"", "0s", "UTC", "-----"},
      {"2024-06-03 15:00:01", "", "+05:30", "--234"},
  };
  for (const auto& [from, to, zone, taken] : cases) {
    SCOPED_TRACE(std::string(from) + ".." + to);
    SelectionOptions options;
    options.fromTime = from;
    options.toTime = to;
    options.zone = TimeZone::parse(zone);
    EXPECT_EQ(takenAt(options, times), taken);
  }
  SelectionOptions options;
  options.toTime = "soon";
  EXPECT_EQ(errorOf(options),
            "--to-time: \"soon\" is not a date, such as 2024-06-03 or 2024-06-03T09:30:00Z, a time of day, such as "
            "09:30:00.5, or a duration, such as 90s or 1h30m");
}

TEST_F(SelectionTest, TimesNeedMessagesThatWereCaptured) {
  SelectionOptions options;
  options.fromTime = "09:30";
  Selection selection(options, FieldNames());
  try {
    selection.takes(MD::test::inputOf({6}));
    FAIL();
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(),
                 "--from-time and --to-time require a capture; for other input, compare a field: 'FIELD >= "
                 "2024-06-03T09:30:00'");
  }
}

}  // namespace
