// Counts over many messages.
#include "messages/statistics.h"
#include "messages/bar_chart.h"

#include <limits>
#include <map>
#include <numeric>

#include <gtest/gtest.h>

#include "text/hex_reader.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;

TEST(RateHistogram, GrowsWithTheSpan) {
  RateHistogram times;
  EXPECT_TRUE(times.isEmpty());
  times.add(1'000'000'000);
  EXPECT_EQ(times.counts(), (std::vector<std::uint64_t>{1}));
  times.add(1'000'999'999);
  times.add(1'001'000'000);
  EXPECT_EQ(times.counts(), (std::vector<std::uint64_t>{2, 1}));
  EXPECT_EQ(times.widthNs(), 1'000'000);
  times.add(1'060'000'000);  // the 61st millisecond
  EXPECT_EQ(times.widthNs(), 2'000'000);
  EXPECT_EQ(times.counts().size(), 31U);
  EXPECT_EQ(times.counts().front(), 3U);
  EXPECT_EQ(times.counts().back(), 1U);
  times.add(1'120'000'000);  // the 61st bar: five are joined
  EXPECT_EQ(times.widthNs(), 10'000'000);
  EXPECT_EQ(times.counts(), (std::vector<std::uint64_t>{3, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1}));
}

TEST(RateHistogram, TakesTimesInAnyOrder) {
  RateHistogram times;
  times.add(1'000'000'000);
  times.add(999'999'999);
  EXPECT_EQ(times.barBeginNs(0), 999'000'000);
  EXPECT_EQ(times.counts(), (std::vector<std::uint64_t>{1, 1}));
  times.add(0);
  times.add(2'000'000'000);
  EXPECT_EQ(times.firstNs(), 0);
  EXPECT_EQ(times.lastNs(), 2'000'000'000);
  EXPECT_LE(times.counts().size(), 60U);
  EXPECT_EQ(std::accumulate(times.counts().begin(), times.counts().end(), std::uint64_t{0}), 4U);
}

TEST(RateHistogram, TakesTheFarthestTimes) {
  RateHistogram times;
  times.add(0);
  times.add(std::numeric_limits<std::int64_t>::max());
  times.add(std::numeric_limits<std::int64_t>::max() / 2);
  EXPECT_LE(times.counts().size(), 60U);
  EXPECT_EQ(std::accumulate(times.counts().begin(), times.counts().end(), std::uint64_t{0}), 3U);
}

TEST(RateHistogram, NoBarBeginsBefore1970) {
  constexpr std::int64_t kLatest = std::numeric_limits<std::int64_t>::max();
  RateHistogram times;
  times.add(kLatest);
  times.add(0);
  EXPECT_EQ(times.widthNs(), 200'000'000'000'000'000);
  ASSERT_EQ(times.counts().size(), 48U);
  EXPECT_EQ(times.barBeginNs(0), 0);
  EXPECT_EQ(times.barBeginNs(1), 23'372'036'854'775'807);
  EXPECT_EQ(times.barBeginNs(47), kLatest);
}

TEST(SizeHistogram, GivesPercentilesThatOccur) {
  SizeHistogram sizes;
  for (std::uint64_t size = 1; size <= 200; ++size) {
    sizes.add(size);
  }
  EXPECT_EQ(sizes.smallest(), 1U);
  EXPECT_EQ(sizes.percentile(50), 100U);
  EXPECT_EQ(sizes.percentile(99), 198U);
  EXPECT_EQ(sizes.percentile(100), 200U);
  EXPECT_EQ(sizes.largest(), 200U);
  SizeHistogram one;
  one.add(7);
  EXPECT_EQ(one.percentile(50), 7U);
  EXPECT_EQ(one.percentile(99), 7U);
}

TEST(SizeHistogram, BarsHoldEverySize) {
  SizeHistogram sizes;
  for (const std::uint64_t size : {10U, 11U, 12U, 31U, 109U}) {
    sizes.add(size);
  }
  const auto bars = sizes.bars(20);
  ASSERT_EQ(bars.size(), 20U);
  EXPECT_EQ(bars[0].from, 10U);
  EXPECT_EQ(bars[0].to, 14U);
  EXPECT_EQ(bars[0].count, 3U);
  EXPECT_EQ(bars[4].count, 1U);
  EXPECT_EQ(bars[19].from, 105U);
  EXPECT_EQ(bars[19].to, 109U);
  EXPECT_EQ(bars[19].count, 1U);
  EXPECT_TRUE(SizeHistogram().bars(20).empty());
}

TEST(Statistics, TellsWhatIsWrongApart) {
  MD::test::loadDictionary(MD::test::kDictionary);
  const QuietLibrary quiet;
  MessageCounter counter(MD::MD_FieldMap::instance());
  const struct {
    const char* name;
    const char* hex;
    std::uint64_t messages;
    std::uint64_t malformed;
    std::uint64_t truncated;
    std::uint64_t withUnknown;
    std::uint64_t foreign;
    std::uint64_t fields;
  } cases[] = {
      {"Sound", "06 2c010105 3c00024100", 1, 0, 0, 0, 0, 2},
      {"Empty", "06", 1, 0, 0, 0, 0, 0},
      {"UnknownField", "06 e7030105 2c010105", 1, 0, 0, 1, 0, 1},
      {"UnknownFieldAndAWrongSize", "06 e7030105 2c0103010203", 1, 0, 0, 1, 0, 0},
      {"OtherType", "46515231 012c0006000000024100", 1, 1, 0, 0, 0, 0},
      {"Repeated", "06 2c010105 2c010106", 1, 1, 0, 0, 0, 1},
      {"RepeatedLastNotReadable", "06 2c010105 2c0103010203", 1, 1, 0, 0, 0, 0},
      {"RepeatedFirstNotReadable", "06 2c0103010203 2c010105", 1, 1, 0, 0, 0, 1},
      {"OddInt", "06 2c0103010203", 1, 1, 0, 0, 0, 0},
      {"WrongSizeOfAType", "06 16000411223344 2c010105", 1, 1, 0, 0, 0, 1},
      {"CutInTheValue", "06 2c010105 16000800", 1, 0, 1, 0, 0, 1},
      {"CutInTheHead", "46515231 012c0002", 1, 0, 1, 0, 0, 0},
      {"CutInTheId", "06 2c010105 16", 1, 0, 1, 0, 0, 1},
      {"CutBehindAnUnknownField", "06 e7030105 16000800", 1, 0, 1, 0, 0, 0},
      {"Foreign", "07 2c010105", 0, 0, 0, 0, 1, 0},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    std::vector<std::uint8_t> bytes;
    parseHex(row.hex, Blanks::BetweenBytes, bytes);
    Statistics statistics;
    counter.count(MD::test::inputOf(bytes), statistics);
    EXPECT_EQ(statistics.messages, row.messages);
    EXPECT_EQ(statistics.malformed, row.malformed);
    EXPECT_EQ(statistics.truncated, row.truncated);
    EXPECT_EQ(statistics.withUnknown, row.withUnknown);
    EXPECT_EQ(statistics.foreign, row.foreign);
    EXPECT_EQ(std::accumulate(statistics.fields.begin(), statistics.fields.end(), std::uint64_t{0}), row.fields);
  }
}

TEST(Statistics, NamesTheUnknownIds) {
  MD::test::loadDictionary(MD::test::kDictionary);
  MessageCounter counter(MD::MD_FieldMap::instance());
  Statistics statistics;
  // After an unknown id of IterMap the next two bytes are read as an id.
  for (const char* const hex : {"06 e7030105 e8030105", "06 e7030105", "01 e703 e903", "01 e703 ea03"}) {
    std::vector<std::uint8_t> bytes;
    parseHex(hex, Blanks::BetweenBytes, bytes);
    counter.count(MD::test::inputOf(bytes), statistics);
  }
  EXPECT_EQ(statistics.unknownIds, (std::map<std::uint16_t, std::uint64_t>{{999, 4}, {1000, 1}}));
}

TEST(SizeHistogram, CountsLargeSizesToo) {
  SizeHistogram sizes;
  for (const std::uint64_t size : {5U, 2047U, 2048U, 70000U, 70000U}) {
    sizes.add(size);
  }
  EXPECT_EQ(sizes.smallest(), 5U);
  EXPECT_EQ(sizes.largest(), 70000U);
  EXPECT_EQ(sizes.percentile(60), 2048U);
  EXPECT_EQ(sizes.percentile(61), 70000U);
}

TEST(Statistics, APictureIsDrawnOfWhatThereIs) {
  Statistics statistics;
  const std::string empty = svgOf(statistics, TimeZone());
  EXPECT_NE(empty.find(">no data</text>"), empty.npos);
  for (int i = 0; i != 10; ++i) {
    statistics.sizes.add(static_cast<std::uint64_t>(20 + i % 3));
    statistics.times.add(1'717'407'000'000'000'000 + i * 1'000'000);
  }
  const std::string svg = svgOf(statistics, TimeZone());
  EXPECT_EQ(svg.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\"", 0), 0U);
  EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
  for (const char* const part : {
           "<title>2024-06-03T09:30:00.000000000Z: 1</title>",
           "<title>20 to 20 bytes: 4</title>",
           ">messages per 1 ms</text>",
           ">messages per size</text>",
           ">time, 2024-06-03T09:30:00.000000000Z to 2024-06-03T09:30:00.009000000Z</text>",
           ">size in bytes</text>",
           ">messages</text>",
           ">09:30:00.004</text>",
           ">21</text>",
       }) {
    EXPECT_NE(svg.find(part), svg.npos) << part;
  }
}

struct TickCase {
  const char* name;
  std::int64_t lastNs;  ///< after 2024-06-03T09:30:00Z
  const char* zone;
  const char* ticks;
};

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr TickCase kTickCases[] = {
    {"Milliseconds", 40'000'000, "UTC", "09:30:00.000 09:30:00.010 09:30:00.020 09:30:00.030 09:30:00.040 "},
    {"Seconds", 25 * kSecond, "UTC", "09:30:00 09:30:05 09:30:10 09:30:15 09:30:20 09:30:25 "},
    {"Minutes", 3600 * kSecond, "UTC", "09:30 09:40 09:50 10:00 10:10 10:20 10:30 "},
    {"HoursOfTheZone", 20 * 3600 * kSecond, "+05:30", "15:00 18:00 21:00 00:00 03:00 06:00 09:00 "},
    {"Days", 5 * 86400 * kSecond, "UTC", "2024-06-04 2024-06-05 2024-06-06 2024-06-07 2024-06-08 "},
};

TEST(Statistics, TicksOfTimeAreRound) {
  for (const TickCase& row : kTickCases) {
    SCOPED_TRACE(row.name);
    RateHistogram times;
    times.add(1'717'407'000 * kSecond);
    times.add(1'717'407'000 * kSecond + row.lastNs);
    std::string ticks;
    double last = -1;
    for (const auto& tick : rateChart(times, TimeZone::parse(row.zone)).ticks) {
      ticks += tick.label + ' ';
      EXPECT_GT(tick.share, last);
      EXPECT_LT(tick.share, 1);
      last = tick.share;
    }
    EXPECT_EQ(ticks, row.ticks);
  }
}

}  // namespace
