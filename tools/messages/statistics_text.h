// Numbers of statistics as text, the same in each form of the report.
#ifndef MDMSG_STATISTICS_TEXT_H
#define MDMSG_STATISTICS_TEXT_H

#include <cstdint>

#include <string>

#include "messages/groups.h"
#include "text/time_text.h"

namespace MD::tool {

/// `value` * `factor` / `divisor`, rounded down; 0 for a divisor of 0.
std::uint64_t scaled(std::uint64_t value, std::uint64_t factor, std::uint64_t divisor);

/// `part` / `whole` with `decimals` digits after the point, rounded down.
std::string ratio(std::uint64_t part, std::uint64_t whole, unsigned decimals);
std::string percent(std::uint64_t part, std::uint64_t whole);

/// A duration in its largest unit, "1.5 s".
std::string durationText(std::int64_t ns);
/// A time in ISO form; one before 1970 in nanoseconds.
std::string momentText(std::int64_t ns, const TimeZone& zone);
/// In whole messages per second or, if there are few, with decimals.
std::string rateText(std::uint64_t count, std::int64_t ns);

const char* nameOf(SequenceCheck::Event::Kind kind) noexcept;
std::string eventText(const SequenceCheck::Event& event);

}  // namespace MD::tool

#endif
