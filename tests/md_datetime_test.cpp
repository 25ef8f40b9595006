#include "md/md_datetime.h"

#include <cstdint>
#include <cstring>

#include <iomanip>
#include <optional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/grouping_locale.h"

namespace MD {
namespace {

std::uint64_t word(const MD_DateTime& value) {
  char bytes[8];
  MD_DateTime::serialize(bytes, value);
  std::uint64_t result = 0;
  std::memcpy(&result, bytes, sizeof result);
  return result;
}

MD_DateTime fromWord(std::uint64_t packed) {
  char bytes[8];
  std::memcpy(bytes, &packed, sizeof bytes);
  MD_DateTime value;
  MD_DateTime::deserialize(value, bytes);
  return value;
}

TEST(DateTime, IsTheWordZeroByDefault) {
  const MD_DateTime value;
  EXPECT_EQ(word(value), 0u);
  EXPECT_EQ(value.date(), 19'000'000);
  EXPECT_EQ(value.time(), 0);
  EXPECT_EQ(value.exch_gmt_offset(), 0);
}

TEST(DateTime, GivesBackItsParts) {
  const MD_DateTime value(20240115, 93000000, -300);
  EXPECT_EQ(value.date(), 20240115);
  EXPECT_EQ(value.time(), 93000000);
  EXPECT_EQ(value.exch_gmt_offset(), -300);
}

TEST(DateTime, PacksEachPartIntoItsBits) {
  struct Row {
    const char* name;
    int date;
    int time;
    short offset;
    std::uint64_t packed;
  };
  constexpr Row kRows[] = {
      {"Nothing", 19000000, 0, 0, 0},
      {"Time", 19000000, 1, 0, std::uint64_t{1}},
      {"LargestTime", 19000000, 268435455, 0, std::uint64_t{0x0FFFFFFF}},
      {"Day", 19000001, 0, 0, std::uint64_t{1} << 28},
      {"LargestDay", 19000031, 0, 0, std::uint64_t{31} << 28},
      {"Month", 19000100, 0, 0, std::uint64_t{1} << 33},
      {"LargestMonth", 19001500, 0, 0, std::uint64_t{15} << 33},
      {"Year", 19010000, 0, 0, std::uint64_t{1} << 37},
      {"LargestYear", 21550000, 0, 0, std::uint64_t{255} << 37},
      {"Offset", 19000000, 0, 1, std::uint64_t{1} << 45},
      {"LargestOffset", 19000000, 0, 32767, std::uint64_t{32767} << 45},
      {"NegativeOffsetFillsTheTop", 19000000, 0, -1, std::uint64_t{0xFFFFE00000000000}},
      {"SmallestOffset", 19000000, 0, -32768, std::uint64_t{0xF000000000000000}},
      {"All", 20240115, 93000000, 300, std::uint64_t{0x00258F82F58B1140}},
      {"AllWithNegativeOffset", 20240115, 93000000, -300, std::uint64_t{0xFFDA8F82F58B1140}},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const MD_DateTime value(row.date, row.time, row.offset);
    EXPECT_EQ(word(value), row.packed);
    EXPECT_EQ(value.date(), row.date);
    EXPECT_EQ(value.time(), row.time);
    EXPECT_EQ(value.exch_gmt_offset(), row.offset);
  }
}

TEST(DateTime, CutsDatesOutOfRangeToTheirBits) {
  struct Row {
    const char* name;
    int date;
    int expected;
  };
  constexpr Row kRows[] = {
      {"FirstYear", 19000101, 19000101},
      {"LastYear", 21551231, 21551231},
      {"YearBeforeTheFirst", 18991231, 21551231},
      {"YearAfterTheLast", 21560101, 19000101},
      {"YearFarAfter", 99991231, 20631231},
      {"MonthThirteenFits", 20241315, 20241315},
      {"MonthSixteen", 20241615, 20240015},
      {"MonthSeventeen", 20241715, 20240115},
      {"MonthNinetyNine", 20249915, 20240315},
      {"DayThirtyTwo", 20240132, 20240100},
      {"DayNinetyNine", 20240199, 20240103},
      {"Zero", 0, 20480000},
      {"Negative", -1, 20480031},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const MD_DateTime value(row.date, 7, 8);
    EXPECT_EQ(value.date(), row.expected);
    EXPECT_EQ(value.time(), 7);
    EXPECT_EQ(value.exch_gmt_offset(), 8);
  }
}

TEST(DateTime, CutsTimesOutOfRangeToTheirBits) {
  struct Row {
    const char* name;
    int time;
    int expected;
  };
  constexpr Row kRows[] = {
      {"LargestThatFits", 268435455, 268435455},
      {"FirstThatDoesNot", 268435456, 0},
      {"HighBitsGo", 268435456 + 93000000, 93000000},
      {"LargestInt", 2147483647, 268435455},
      {"Negative", -1, 268435455},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const MD_DateTime value(20240115, row.time, -300);
    EXPECT_EQ(value.time(), row.expected);
    EXPECT_EQ(value.date(), 20240115);
    EXPECT_EQ(value.exch_gmt_offset(), -300);
  }
}

TEST(DateTime, ReadsAnyWordBackAsItIs) {
  constexpr std::uint64_t kWords[] = {
      0, 1, 0xFFDA8F82F58B1140, 0xE000000000000000, 0x0123456789ABCDEF, 0xFFFFFFFFFFFFFFFF};
  for (const std::uint64_t packed : kWords) {
    SCOPED_TRACE(packed);
    EXPECT_EQ(word(fromWord(packed)), packed);
  }
  EXPECT_EQ(fromWord(0xFFDA8F82F58B1140).date(), 20240115);
  // The offset is the low 16 of the bits after the year, whatever the higher bits are.
  EXPECT_EQ(fromWord(0xE000000000000000).exch_gmt_offset(), 0);
  EXPECT_EQ(fromWord(0x1FFFE00000000000).exch_gmt_offset(), -1);
}

TEST(DateTime, SerializesEightBytesInTheMachinesOrder) {
  char bytes[10];
  std::memset(bytes, '#', sizeof bytes);
  MD_DateTime::serialize(bytes + 1, MD_DateTime(20240115, 93000000, -300));
  EXPECT_EQ(std::string(bytes, sizeof bytes), std::string("#\x40\x11\x8B\xF5\x82\x8F\xDA\xFF#", 10));
}

TEST(DateTime, ComparesThePackedWord) {
  const MD_DateTime value(20240115, 93000000, -300);
  EXPECT_TRUE(value == MD_DateTime(20240115, 93000000, -300));
  EXPECT_FALSE(value != MD_DateTime(20240115, 93000000, -300));
  EXPECT_FALSE(value == MD_DateTime(20240116, 93000000, -300));
  EXPECT_TRUE(value != MD_DateTime(20240115, 93000001, -300));
  EXPECT_TRUE(value != MD_DateTime(20240115, 93000000, -301));
  // Equal parts, but not the same word.
  EXPECT_TRUE(fromWord(0xE000000000000000) != MD_DateTime());
}

TEST(DateTime, PrintsDateTimeAndOffset) {
  struct Row {
    MD_DateTime value;
    const char* text;
  };
  const Row kRows[] = {
      {MD_DateTime(20240115, 93000000, -300), "20240115 93000000 (-300)"},
      {MD_DateTime(20241231, 5, 60), "20241231 5 (60)"},
      {MD_DateTime(), "19000000 0 (0)"},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.text);
    std::ostringstream out;
    out << row.value << '|';
    EXPECT_EQ(out.str(), std::string(row.text) + "|");
  }
}

TEST(DateTime, PrintingLeavesTheStreamAsItWas) {
  std::ostringstream out;
  out << std::hex << std::showbase << std::left << std::setfill('*') << std::setw(9);
  const std::ios_base::fmtflags flags = out.flags();
  out << MD_DateTime(20240115, 93000000, -300);
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
}

TEST(DateTime, TheWidthIsThatOfTheWholeText) {
  const MD_DateTime value(20240115, 93000000, -300);
  std::ostringstream out;
  out << std::setfill('*') << std::left << std::setw(26) << value << '|' << std::right << std::setw(26) << value << '|'
      << std::internal << std::setw(25) << value << '|' << std::setw(24) << value << '|' << std::setw(9) << value << '|'
      << value;
  EXPECT_EQ(out.str(),
            "20240115 93000000 (-300)**|"
            "**20240115 93000000 (-300)|"
            "*20240115 93000000 (-300)|"
            "20240115 93000000 (-300)|"
            "20240115 93000000 (-300)|"
            "20240115 93000000 (-300)");
}

TEST(DateTime, NumbersFollowTheStreamWithAndWithoutAWidth) {
  const MD_DateTime value(20240115, 10, 1000);
  std::ostringstream out;
  out.imbue(test::groupingLocale());
  out << std::showpos << std::setw(30) << value << '|' << value << '|';
  out << std::noshowpos << std::hex << std::showbase << std::setw(30) << value << '|' << value;
  EXPECT_EQ(out.str(),
            "      +20.240.115 +10 (+1.000)|+20.240.115 +10 (+1.000)|"
            "       0x1.34d.6f3 0xa (0x3e8)|0x1.34d.6f3 0xa (0x3e8)");
}

struct DateCase {
  const char* name;
  int year;
  int month;
  int day;
  bool isDate;
};

TEST(DateTimeFromDate, TakesDatesOfTheCalendarOnly) {
  const DateCase kCases[] = {
      {"Ordinary", 2024, 6, 3, true},        {"First", 1900, 1, 1, true},
      {"Last", 2155, 12, 31, true},          {"YearBefore", 1899, 12, 31, false},
      {"YearAfter", 2156, 1, 1, false},      {"MonthZero", 2024, 0, 3, false},
      {"MonthThirteen", 2024, 13, 3, false}, {"DayZero", 2024, 6, 0, false},
      {"NegativeDay", 2024, 6, -1, false},   {"LeapDay", 2024, 2, 29, true},
      {"NoLeapDay", 2023, 2, 29, false},     {"NoLeapDayOfACentury", 2100, 2, 29, false},
      {"LeapDayOf2000", 2000, 2, 29, true},  {"NoLeapDayOf1900", 1900, 2, 29, false},
      {"LastOfFebruary", 2100, 2, 28, true}, {"YyyymmddForTheYear", 20240603, 6, 3, false},
  };
  for (const DateCase& row : kCases) {
    const auto value = MD_DateTime::fromDate(row.year, row.month, row.day);
    EXPECT_EQ(value.has_value(), row.isDate) << row.name;
    if (value) {
      EXPECT_TRUE(*value == MD_DateTime(row.year * 10000 + row.month * 100 + row.day, 0, 0)) << row.name;
      EXPECT_EQ(value->year(), row.year) << row.name;
      EXPECT_EQ(value->month(), row.month) << row.name;
      EXPECT_EQ(value->day(), row.day) << row.name;
    }
  }
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int month = 1; month <= 12; ++month) {
    EXPECT_TRUE(MD_DateTime::fromDate(2023, month, kDays[month - 1]).has_value()) << month;
    EXPECT_FALSE(MD_DateTime::fromDate(2023, month, kDays[month - 1] + 1).has_value()) << month;
  }
}

TEST(DateTimeFromDate, TakesTimesThatFit) {
  constexpr auto kValue = MD_DateTime::fromDate(2024, 6, 3, 93'000'000, -300);
  static_assert(kValue.has_value() && *kValue == MD_DateTime(20240603, 93'000'000, -300));
  EXPECT_EQ(MD_DateTime::fromDate(2024, 6, 3, (1 << 28) - 1)->time(), (1 << 28) - 1);
  EXPECT_EQ(MD_DateTime::fromDate(2024, 6, 3, 1 << 28), std::nullopt);
  EXPECT_EQ(MD_DateTime::fromDate(2024, 6, 3, -1), std::nullopt);
}

}  // namespace
}  // namespace MD
