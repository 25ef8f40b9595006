// Moments as text.
#include "text/time_text.h"

#include <cstdlib>

#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "base/diagnostics.h"

namespace {

using namespace MD::tool;

std::string isoText(std::uint64_t ns, const std::string& zone = "UTC") {
  std::string text;
  appendIsoTime(ns, TimeZone::parse(zone), text);
  return text;
}

struct Moment {
  std::uint64_t ns;
  const char* text;
};

constexpr Moment kMoments[] = {
    {0, "1970-01-01T00:00:00.000000000Z"},
    {1, "1970-01-01T00:00:00.000000001Z"},
    {951'782'399'000'000'000, "2000-02-28T23:59:59.000000000Z"},
    {951'782'400'000'000'000, "2000-02-29T00:00:00.000000000Z"},
    {1'717'407'000'173'980'747, "2024-06-03T09:30:00.173980747Z"},
    {4'107'542'400'000'000'000, "2100-03-01T00:00:00.000000000Z"},
    {std::numeric_limits<std::uint64_t>::max(), "2554-07-21T23:34:33.709551615Z"},
};

TEST(IsoTime, EveryMomentHasItsText) {
  for (const auto& [ns, text] : kMoments) {
    SCOPED_TRACE(text);
    EXPECT_EQ(isoText(ns), text);
    EXPECT_EQ(parseIsoTime(text), ns);
  }
}

TEST(IsoTime, StandsInATimeZone) {
  constexpr std::uint64_t kNs = 1'717'407'000'000'000'000;
  const struct {
    const char* zone;
    const char* text;
  } cases[] = {
    {"+05:30", "2024-06-03T15:00:00.000000000+05:30"},
    {"-04:00", "2024-06-03T05:30:00.000000000-04:00"},
    {"-23:59", "2024-06-02T09:31:00.000000000-23:59"},
    {"+00:00:01", "2024-06-03T09:30:01.000000000+00:00:01"},
#if defined(MDMSG_HAS_DATE_TZ)
    {"Europe/Vienna", "2024-06-03T11:30:00.000000000+02:00"},
    {"America/New_York", "2024-06-03T05:30:00.000000000-04:00"},
#endif
  };
  for (const auto& [zone, text] : cases) {
    SCOPED_TRACE(zone);
    EXPECT_EQ(isoText(kNs, zone), text);
    EXPECT_EQ(parseIsoTime(text), kNs);
  }
  EXPECT_EQ(isoText(0, "-01:00"), "1969-12-31T23:00:00.000000000-01:00");
  EXPECT_EQ(parseIsoTime("1969-12-31T23:00:00-01:00"), 0U);
}

TEST(IsoTime, ZonesThatThereAreNotAreRefused) {
  for (const char* const zone : {"", "utc", "Z5", "+5", "+05:60", "+24:00", "Mars/Olympus", "/etc/passwd", "../x"}) {
    SCOPED_TRACE(zone);
    EXPECT_THROW(TimeZone::parse(zone), UsageError);
  }
}

TEST(IsoTime, DecimalsMayBeLeftAway) {
  EXPECT_EQ(parseIsoTime("1970-01-01T00:00:01Z"), 1'000'000'000U);
  EXPECT_EQ(parseIsoTime("1970-01-01T00:00:01.5Z"), 1'500'000'000U);
  EXPECT_EQ(parseIsoTime("1970-01-01T00:00:01.000000001Z"), 1'000'000'001U);
}

TEST(IsoTime, AnythingElseIsRefused) {
  for (const char* const text : {"",
                                 "1970-01-01",
                                 "1970-01-01T00:00:00",
                                 "1970-01-01 00:00:00Z",
                                 "1970-1-1T00:00:00Z",
                                 "1970-13-01T00:00:00Z",
                                 "1970-00-01T00:00:00Z",
                                 "1970-01-00T00:00:00Z",
                                 "1970-01-32T00:00:00Z",
                                 "2023-02-29T00:00:00Z",
                                 "2024-04-31T00:00:00Z",
                                 "1970-01-01T24:00:00Z",
                                 "1970-01-01T00:60:00Z",
                                 "1970-01-01T00:00:60Z",
                                 "1970-01-01T00:00:00.Z",
                                 "1970-01-01T00:00:00.1234567890Z",
                                 "1970-01-01T00:00:00Zx",
                                 "1970-01-01T00:00:00+1",
                                 "1970-01-01T00:00Z",
                                 "1969-12-31T23:59:59Z",
                                 "2554-07-21T23:34:33.709551616Z",
                                 "9999-12-31T23:59:59Z"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(parseIsoTime(text));
  }
}

std::optional<std::uint64_t> timeIn(const char* zone, const char* text) {
  return parseTime(text, TimeZone::parse(zone));
}

TEST(TimeText, MayLackTheTimeAndTheOffset) {
  constexpr std::uint64_t kNs = 1'717'407'000'000'000'000;  // 2024-06-03T09:30:00Z
  EXPECT_EQ(timeIn("UTC", "2024-06-03T09:30:00Z"), kNs);
  EXPECT_EQ(timeIn("UTC", "2024-06-03T09:30:00"), kNs);
  EXPECT_EQ(timeIn("UTC", "2024-06-03 09:30"), kNs);
  EXPECT_EQ(timeIn("UTC", "2024-06-03 09:30:00.25"), kNs + 250'000'000);
  EXPECT_EQ(timeIn("+02:00", "2024-06-03T11:30:00"), kNs);
  EXPECT_EQ(timeIn("+02:00", "2024-06-03T09:30:00Z"), kNs);
  EXPECT_EQ(timeIn("UTC", "2024-06-03"), kNs - 34'200'000'000'000);
  EXPECT_EQ(timeIn("-04:00", "2024-06-03"), kNs - 34'200'000'000'000 + 14'400'000'000'000);
  for (const char* const text : {"", "2024-06-31", "2024-06-03T", "2024-06-03  09:30", "2024-06-03T9:30", "09:30",
                                 "2024-06-03T09:30:00X", "2024-06-03T09:30:00.", "1969-12-31", "2555-01-01"}) {
    EXPECT_FALSE(timeIn("UTC", text)) << text;
  }
}

#if defined(MDMSG_HAS_DATE_TZ)
TEST(TimeText, ClocksThatArePutForwardAndBack) {
  // Vienna, 2024: put forward on 31 March at 01:00 UTC, back on 27 October at 01:00 UTC.
  const auto text = [](const char* time) {
    std::string out;
    appendIsoTime(timeIn("Europe/Vienna", time).value(), TimeZone(), out, 0);
    return out;
  };
  EXPECT_EQ(text("2024-03-31T01:59:59"), "2024-03-31T00:59:59Z");
  EXPECT_EQ(text("2024-03-31T02:30:00"), "2024-03-31T01:30:00Z");
  EXPECT_EQ(text("2024-03-31T03:00:00"), "2024-03-31T01:00:00Z");
  EXPECT_EQ(text("2024-10-27T01:59:59"), "2024-10-26T23:59:59Z");
  EXPECT_EQ(text("2024-10-27T02:30:00"), "2024-10-27T00:30:00Z");
  EXPECT_EQ(text("2024-10-27T03:00:00"), "2024-10-27T02:00:00Z");
  EXPECT_EQ(isoText(1'711'846'799'000'000'000, "Europe/Vienna"), "2024-03-31T01:59:59.000000000+01:00");
  EXPECT_EQ(isoText(1'711'846'800'000'000'000, "Europe/Vienna"), "2024-03-31T03:00:00.000000000+02:00");
}

TEST(TimeText, ZonesDoNotChangeTheEnvironment) {
  const char* const before = std::getenv("TZ");
  const std::string zone = before != nullptr ? before : "none";
  const TimeZone vienna = TimeZone::parse("Europe/Vienna");
  const TimeZone newYork = TimeZone::parse("America/New_York");
  EXPECT_EQ(vienna.secondsEast(1'717'407'000), 7200);
  EXPECT_EQ(newYork.secondsEast(1'717'407'000), -14400);
  EXPECT_EQ(vienna.secondsEast(1'717'407'000), 7200);
  const char* const after = std::getenv("TZ");
  EXPECT_EQ(after != nullptr ? after : "none", zone);
}
#endif

TEST(TimeText, TimesOfDay) {
  EXPECT_EQ(parseTimeOfDay("00:00"), 0U);
  EXPECT_EQ(parseTimeOfDay("09:30"), 34'200'000'000'000U);
  EXPECT_EQ(parseTimeOfDay("23:59:59.999999999"), 86'399'999'999'999U);
  for (const char* const text : {"", "9:30", "24:00", "09:30Z", "09:30:00.", "0930"}) {
    EXPECT_FALSE(parseTimeOfDay(text)) << text;
  }
}

TEST(TimeText, Durations) {
  EXPECT_EQ(parseDuration("0s"), 0U);
  EXPECT_EQ(parseDuration("1ns"), 1U);
  EXPECT_EQ(parseDuration("2us"), 2'000U);
  EXPECT_EQ(parseDuration("250ms"), 250'000'000U);
  EXPECT_EQ(parseDuration("1.5s"), 1'500'000'000U);
  EXPECT_EQ(parseDuration("1h30m"), 5'400'000'000'000U);
  EXPECT_EQ(parseDuration("2d"), 172'800'000'000'000U);
  EXPECT_EQ(parseDuration("18446744073709551615ns"), 18'446'744'073'709'551'615U);
  for (const char* const text : {"", "5", "s", "-1s", "1.s.", "1x", "1s 2s", "1..5s", ".5s", "18446744073709551616ns",
                                 "999999999d", "18446744073709551615ns1ns"}) {
    EXPECT_FALSE(parseDuration(text)) << text;
  }
}

TEST(TimeFormat, EveryStyle) {
  constexpr std::uint64_t kNs = 1'717'407'000'173'980'747;
  const struct {
    const char* style;
    std::optional<unsigned> digits;
    const char* zone;
    const char* text;
    bool isNumber;
  } cases[] = {
      {"iso", {}, "UTC", "2024-06-03T09:30:00.173980747Z", false},
      {"iso", 0, "+02:00", "2024-06-03T11:30:00+02:00", false},
      {"iso", 6, "UTC", "2024-06-03T09:30:00.173980Z", false},
      {"spreadsheet", {}, "-04:00", "2024-06-03 05:30:00.173", false},
      {"spreadsheet", 9, "UTC", "2024-06-03 09:30:00.173980747", false},
      {"s", {}, "UTC", "1717407000", true},
      {"s", 3, "+02:00", "1717407000.173", true},
      {"ms", {}, "UTC", "1717407000173", true},
      {"us", {}, "UTC", "1717407000173980", true},
      {"ns", {}, "UTC", "1717407000173980747", true},
      {"%d.%m.%Y %H:%M:%S", {}, "+05:30", "03.06.2024 15:00:00", false},
      {"%T", 6, "UTC", "09:30:00.173980", false},
      {"%a %j %z %Z", {}, "-04:30", "Mon 155 -0430 -04:30", false},
      {"100%%", {}, "UTC", "100%", false},
  };
  for (const auto& [style, digits, zone, text, isNumber] : cases) {
    SCOPED_TRACE(style);
    const TimeFormat format(style, digits, TimeZone::parse(zone));
    std::string out;
    format.append(kNs, out);
    EXPECT_EQ(out, text);
    EXPECT_EQ(format.isNumber(), isNumber);
  }
  std::string latest;
  TimeFormat("%F %T", 9, TimeZone()).append(std::numeric_limits<std::uint64_t>::max(), latest);
  EXPECT_EQ(latest, "2554-07-21 23:34:33.709551615");
}

TEST(TimeFormat, AnythingElseIsRefused) {
  EXPECT_THROW(TimeFormat("excel", {}, TimeZone()), UsageError);
  EXPECT_THROW(TimeFormat("iso", 4, TimeZone()), UsageError);
  EXPECT_THROW(TimeFormat("ms", 3, TimeZone()), UsageError);
}

}  // namespace
