// Moments as text.
#include "text/time_text.h"

#include <limits>

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
#ifndef _WIN32
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

}  // namespace
