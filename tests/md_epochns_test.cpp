#include "md/md_epochns.h"

#include <cstdint>

#include <chrono>
#include <iomanip>
#include <optional>
#include <ratio>
#include <sstream>
#include <type_traits>

#include <gtest/gtest.h>

namespace MD {
namespace {

constexpr std::uint64_t kMax = 18'446'744'073'709'551'615u;

TEST(EpochNS, IsZeroByDefault) { EXPECT_EQ(MD_EpochNS().get(), 0u); }

TEST(EpochNS, IsMadeFromNanosecondsOnPurposeOnly) {
  EXPECT_EQ(MD_EpochNS(1'705'312'800'123'456'789u).get(), 1'705'312'800'123'456'789u);
  static_assert(std::is_constructible_v<MD_EpochNS, std::uint64_t>);
  static_assert(!std::is_convertible_v<std::uint64_t, MD_EpochNS>);
}

struct SetCase {
  const char* name;
  void (MD_EpochNS::*set)(std::uint64_t);
  std::uint64_t value;
  std::uint64_t nanoseconds;
};

TEST(EpochNS, SetsFromEachUnitAndWraps) {
  constexpr SetCase kCases[] = {
      {"Nanoseconds", &MD_EpochNS::set, 5, 5},
      {"LargestNanoseconds", &MD_EpochNS::set, kMax, kMax},
      {"Seconds", &MD_EpochNS::set_s, 5, 5'000'000'000},
      {"LargestSecondsThatFit", &MD_EpochNS::set_s, 18'446'744'073, 18'446'744'073'000'000'000u},
      {"SecondsWrap", &MD_EpochNS::set_s, 18'446'744'074, 290'448'384},
      {"Milliseconds", &MD_EpochNS::set_ms, 5, 5'000'000},
      {"MillisecondsWrap", &MD_EpochNS::set_ms, kMax, 18'446'744'073'708'551'616u},
      {"Microseconds", &MD_EpochNS::set_us, 5, 5'000},
      {"MicrosecondsWrap", &MD_EpochNS::set_us, kMax, 18'446'744'073'709'550'616u},
  };
  for (const SetCase& row : kCases) {
    SCOPED_TRACE(row.name);
    MD_EpochNS time(77);
    (time.*row.set)(row.value);
    EXPECT_EQ(time.get(), row.nanoseconds);
  }
}

struct GetCase {
  const char* name;
  std::uint64_t (MD_EpochNS::*get)() const;
  std::uint64_t nanoseconds;
  std::uint64_t value;
};

TEST(EpochNS, GetsInEachUnitAndTruncates) {
  constexpr GetCase kCases[] = {
      {"Nanoseconds", &MD_EpochNS::get, 1'999'999, 1'999'999},
      {"Seconds", &MD_EpochNS::get_s, 2'999'999'999, 2},
      {"LessThanASecond", &MD_EpochNS::get_s, 999'999'999, 0},
      {"LargestInSeconds", &MD_EpochNS::get_s, kMax, 18'446'744'073},
      {"Milliseconds", &MD_EpochNS::get_ms, 1'999'999, 1},
      {"LargestInMilliseconds", &MD_EpochNS::get_ms, kMax, 18'446'744'073'709},
      {"Microseconds", &MD_EpochNS::get_us, 1'999'999, 1'999},
      {"LargestInMicroseconds", &MD_EpochNS::get_us, kMax, 18'446'744'073'709'551},
  };
  for (const GetCase& row : kCases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ((MD_EpochNS(row.nanoseconds).*row.get)(), row.value);
  }
}

TEST(EpochNS, ComparesAsUnsignedNumbers) {
  const MD_EpochNS low(1);
  const MD_EpochNS high(std::uint64_t{1} << 63);  // negative, were it signed
  const MD_EpochNS same(1);

  EXPECT_TRUE(low < high);
  EXPECT_FALSE(high < low);
  EXPECT_FALSE(low < same);

  EXPECT_TRUE(high > low);
  EXPECT_FALSE(low > high);
  EXPECT_FALSE(low > same);

  EXPECT_TRUE(low <= high);
  EXPECT_TRUE(low <= same);
  EXPECT_FALSE(high <= low);

  EXPECT_TRUE(high >= low);
  EXPECT_TRUE(low >= same);
  EXPECT_FALSE(low >= high);

  EXPECT_TRUE(low == same);
  EXPECT_FALSE(low == high);

  EXPECT_TRUE(low != high);
  EXPECT_FALSE(low != same);
}

using std::chrono::system_clock;
using std::chrono::time_point;

template <class Duration>
std::optional<MD_EpochNS> fromCount(typename Duration::rep count) {
  return MD_EpochNS::fromTimePoint(time_point<system_clock, Duration>(Duration(count)));
}

TEST(EpochNSTimePoints, AreTakenInEveryUnitThatIsAMultipleOfANanosecond) {
  using namespace std::chrono;
  EXPECT_EQ(fromCount<nanoseconds>(1'717'407'000'173'980'747), MD_EpochNS(1'717'407'000'173'980'747));
  EXPECT_EQ(fromCount<microseconds>(5), MD_EpochNS(5'000));
  EXPECT_EQ(fromCount<milliseconds>(5), MD_EpochNS(5'000'000));
  EXPECT_EQ(fromCount<seconds>(5), MD_EpochNS(5'000'000'000));
  EXPECT_EQ(fromCount<hours>(1), MD_EpochNS(3'600'000'000'000));
  EXPECT_EQ((fromCount<duration<int, std::ratio<1, 250>>>(3)), MD_EpochNS(12'000'000));
  EXPECT_EQ((fromCount<duration<std::uint8_t>>(255)), MD_EpochNS(255'000'000'000));
  EXPECT_EQ((fromCount<duration<std::uint64_t, std::nano>>(kMax)), MD_EpochNS(kMax));
}

TEST(EpochNSTimePoints, OutOfRangeAreNone) {
  using namespace std::chrono;
  EXPECT_EQ(fromCount<nanoseconds>(0), MD_EpochNS(0));
  EXPECT_EQ(fromCount<nanoseconds>(-1), std::nullopt);
  EXPECT_EQ(fromCount<seconds>(18'446'744'073), MD_EpochNS(18'446'744'073'000'000'000u));
  EXPECT_EQ(fromCount<seconds>(18'446'744'074), std::nullopt);
  EXPECT_EQ(fromCount<seconds>(-1), std::nullopt);
  EXPECT_EQ((fromCount<duration<std::uint64_t, std::ratio<86400>>>(kMax)), std::nullopt);
}

TEST(EpochNSTimePoints, AreGivenBackWhereTheyFit) {
  constexpr std::uint64_t kLast = 9'223'372'036'854'775'807;
  EXPECT_EQ(MD_EpochNS(0).toTimePoint(), MD_EpochNS::TimePoint());
  EXPECT_EQ(MD_EpochNS(kLast).toTimePoint(), MD_EpochNS::TimePoint::max());
  EXPECT_EQ(MD_EpochNS(kLast + 1).toTimePoint(), std::nullopt);
  constexpr MD_EpochNS kTime(1'717'407'000'173'980'747);
  static_assert(MD_EpochNS::fromTimePoint(*kTime.toTimePoint()) == kTime);
}

TEST(EpochNS, PrintsItsNanoseconds) {
  std::ostringstream out;
  out << MD_EpochNS(kMax) << '|' << std::setw(4) << MD_EpochNS(5) << '|';
  EXPECT_EQ(out.str(), "18446744073709551615|   5|");
}

}  // namespace
}  // namespace MD
