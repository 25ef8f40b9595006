#include "messages/statistics_text.h"

#include <limits>

namespace MD::tool {

std::uint64_t scaled(std::uint64_t value, std::uint64_t factor, std::uint64_t divisor) {
  if (divisor == 0) {
    return 0;
  }
  // Not in long double, whose precision depends on the platform.
  __extension__ using Wide = unsigned __int128;
  const Wide result = Wide{value} * factor / divisor;
  constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
  return result > kMost ? kMost : static_cast<std::uint64_t>(result);
}

std::string ratio(std::uint64_t part, std::uint64_t whole, unsigned decimals) {
  std::uint64_t factor = 1;
  for (unsigned i = 0; i != decimals; ++i) {
    factor *= 10;
  }
  const std::uint64_t value = scaled(part, factor, whole);
  const std::string rest = std::to_string(value % factor);
  return std::to_string(value / factor) + '.' + std::string(decimals - rest.size(), '0') + rest;
}

std::string percent(std::uint64_t part, std::uint64_t whole) { return ratio(part * 100, whole, 1) + " %"; }

namespace {

/// With up to three decimals.
std::string shortRatio(std::uint64_t part, std::uint64_t whole) {
  std::string text = ratio(part, whole, 3);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') {
    text.pop_back();
  }
  return text;
}

}  // namespace

std::string durationText(std::int64_t ns) {
  constexpr struct {
    std::int64_t ns;
    const char* unit;
  } kUnits[] = {{3600'000'000'000, "h"}, {60'000'000'000, "min"}, {1'000'000'000, "s"}, {1'000'000, "ms"}};
  for (const auto& [unitNs, unit] : kUnits) {
    if (ns >= unitNs) {
      return shortRatio(static_cast<std::uint64_t>(ns), static_cast<std::uint64_t>(unitNs)) + ' ' + unit;
    }
  }
  return std::to_string(ns) + " ns";
}

std::string momentText(std::int64_t ns, const TimeZone& zone) {
  std::string text;
  if (ns >= 0) {
    appendIsoTime(static_cast<std::uint64_t>(ns), zone, text);
  } else {
    text = std::to_string(ns) + " ns";
  }
  return text;
}

std::string rateText(std::uint64_t count, std::int64_t ns) {
  constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
  constexpr std::uint64_t kFew = 100;
  const auto duration = static_cast<std::uint64_t>(ns);
  const std::uint64_t whole = scaled(count, kNsPerSecond, duration);
  return (whole < kFew ? shortRatio(scaled(count, 1000 * kNsPerSecond, duration), 1000) : std::to_string(whole)) +
         " messages/s";
}

const char* nameOf(SequenceCheck::Event::Kind kind) noexcept {
  return kind == SequenceCheck::Event::Kind::Gap         ? "missing"
         : kind == SequenceCheck::Event::Kind::Duplicate ? "duplicate"
                                                         : "late";
}

std::string eventText(const SequenceCheck::Event& event) {
  std::string text = std::string(nameOf(event.kind)) + ' ' + std::to_string(event.first);
  return event.last == event.first ? text : text + " to " + std::to_string(event.last);
}

}  // namespace MD::tool
