// Counts by value and by endpoints, and sequence numbers.
#include "messages/groups.h"

#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace MD::tool;

std::string eventsOf(const SequenceCheck& check) {
  constexpr const char* kNames[] = {"gap", "duplicate", "late"};
  std::string text;
  for (const auto& event : check.events()) {
    text += std::string(kNames[static_cast<std::size_t>(event.kind)]) + ' ' + event.key + ' ' +
            std::to_string(event.first) + '-' + std::to_string(event.last) + " at " + event.place + '\n';
  }
  return text;
}

TEST(SequenceCheck, TellsMissingDuplicateAndLateApart) {
  SequenceCheck check;
  int place = 0;
  for (const std::int64_t number : {10, 11, 15, 16, 13, 13, 11, 20}) {
    ++place;
    check.add("", number, [&] { return std::to_string(place); });
  }
  EXPECT_EQ(check.numbers(), 8U);
  EXPECT_EQ(check.missing(), 5U);  // 12, 14, 17 to 19
  EXPECT_EQ(check.gaps(), 2U);
  EXPECT_EQ(check.late(), 1U);
  EXPECT_EQ(check.duplicates(), 2U);
  EXPECT_EQ(eventsOf(check),
            "gap  12-14 at 3\n"
            "late  13-13 at 5\n"
            "duplicate  13-13 at 6\n"
            "duplicate  11-11 at 7\n"
            "gap  17-19 at 8\n");
}

TEST(SequenceCheck, NumbersBeforeTheFirstAreLate) {
  SequenceCheck check;
  int place = 0;
  for (const std::int64_t number : {10, 9, 11, 5, 7, 9, 5}) {
    ++place;
    check.add("", number, [&] { return std::to_string(place); });
  }
  EXPECT_EQ(check.missing(), 2U);  // 6, 8
  EXPECT_EQ(check.gaps(), 1U);
  EXPECT_EQ(check.late(), 3U);
  EXPECT_EQ(check.duplicates(), 2U);
  EXPECT_EQ(eventsOf(check),
            "late  9-9 at 2\n"
            "late  5-5 at 4\n"
            "gap  6-8 at 4\n"
            "late  7-7 at 5\n"
            "duplicate  9-9 at 6\n"
            "duplicate  5-5 at 7\n");
  check.add("C", std::numeric_limits<std::int64_t>::max(), [] { return std::string("-"); });
  check.add("C", std::numeric_limits<std::int64_t>::min(), [] { return std::string("-"); });
  EXPECT_EQ(check.missing(), 2 + (std::numeric_limits<std::uint64_t>::max() - 1));
}

TEST(SequenceCheck, KeysAreCheckedApartAndExtremesDoNotOverflow) {
  SequenceCheck check;
  const auto nowhere = [] { return std::string("-"); };
  check.add("A", 1, nowhere);
  check.add("B", 7, nowhere);
  check.add("A", 2, nowhere);
  check.add("B", 8, nowhere);
  EXPECT_EQ(check.missing(), 0U);
  check.add("C", std::numeric_limits<std::int64_t>::min(), nowhere);
  check.add("C", std::numeric_limits<std::int64_t>::max(), nowhere);
  EXPECT_EQ(check.missing(), std::numeric_limits<std::uint64_t>::max() - 1);
  EXPECT_EQ(eventsOf(check), "gap C -9223372036854775807-9223372036854775806 at -\n");
}

TEST(SequenceCheck, GapsThatAreForgottenStayMissing) {
  SequenceCheck check;
  const auto nowhere = [] { return std::string(); };
  for (std::size_t i = 0; i != SequenceCheck::kMostGapsPerKey + 2; ++i) {
    check.add("", static_cast<std::int64_t>(2 * i), nowhere);
  }
  check.add("", 1, nowhere);
  EXPECT_EQ(check.duplicates(), 1U);
  check.add("", 3, nowhere);
  EXPECT_EQ(check.late(), 1U);
  EXPECT_EQ(check.events().size(), SequenceCheck::kMostEvents);
}

TEST(GroupTable, ShowsTheMostFrequentFirst) {
  GroupTable groups;
  groups.add("b", 10, 5);
  groups.add("c", 10, std::nullopt);
  groups.add("a", 10, 7);
  groups.add("c", 20, 9);
  groups.add("c", 30, 3);
  const auto rows = groups.top(2);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].first, "c");
  EXPECT_EQ(rows[0].second.messages, 3U);
  EXPECT_EQ(rows[0].second.bytes, 60U);
  EXPECT_EQ(rows[0].second.firstNs, 3);
  EXPECT_EQ(rows[0].second.lastNs, 9);
  EXPECT_EQ(rows[1].first, "a");
  EXPECT_EQ(groups.size(), 3U);
}

TEST(GroupTable, ValuesBeyondTheBoundAreCountedTogether) {
  GroupTable groups;
  for (std::size_t i = 0; i != GroupTable::kMostGroups + 3; ++i) {
    groups.add(std::to_string(i), 1, std::nullopt);
  }
  groups.add("0", 1, std::nullopt);
  EXPECT_EQ(groups.size(), GroupTable::kMostGroups);
  EXPECT_EQ(groups.others().messages, 3U);
  EXPECT_EQ(groups.top(1)[0].second.messages, 2U);
}

TEST(EndpointTable, CountsEachPair) {
  EndpointTable table;
  const Endpoint a = *parseEndpoint("10.0.0.1:5");
  const Endpoint b = *parseEndpoint("239.1.1.1:30001");
  const Endpoint c = *parseEndpoint("239.1.1.1:30002");
  table.add(a, b, 10, 1);
  table.add(a, c, 10, 2);
  table.add(a, c, 10, 3);
  const auto rows = table.top(5);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(textOf(rows[0].destination), "239.1.1.1:30002");
  EXPECT_EQ(rows[0].count.messages, 2U);
  EXPECT_EQ(rows[1].count.firstNs, 1);
}

}  // namespace
