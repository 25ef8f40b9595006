#include <cstdint>

#include <limits>
#include <optional>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "dictionary/field_names.h"
#include "md/md_peek.h"
#include "messages/statistics.h"

namespace MD::tool {
namespace {

/// When a message was sent, or else captured.
std::optional<std::int64_t> timeOf(const InputMessage& input, const std::optional<Field>& timeField) {
  constexpr auto kLatest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  MD_EpochNS time;
  if (timeField && input.sizeBytes <= std::numeric_limits<std::uint32_t>::max() &&
      peek(input.data, static_cast<std::uint32_t>(input.sizeBytes), timeField->id, time) && time.get() <= kLatest) {
    return static_cast<std::int64_t>(time.get());
  }
  return input.timeNs;
}

}  // namespace

void stats(const Task& task, const StatsOptions& options) {
  const FieldNames names;
  Selection selection(task.selection, names);
  std::optional<Field> timeField;
  if (!options.timeField.empty()) {
    timeField = timeFieldOf(options.timeField, names);
  }
  MessageCounter counter(MD_FieldMap::instance());
  Statistics statistics;
  for (InputMessage input; readTaken(task, selection, input);) {
    counter.count(input, timeOf(input, timeField), statistics);
  }
  if (const CaptureCounts* const counts = task.messages.counts()) {
    statistics.capture = *counts;
  }
  if (statistics.malformed + statistics.withUnknown + statistics.truncated + statistics.foreign != 0) {
    task.reporter.flawed();
  }
  appendReport(statistics, names, options.zone, options.columns, task.out.text());
  task.out.lineDone();
  if (options.svg != nullptr) {
    options.svg->text() += svgOf(statistics, options.zone);
    options.svg->lineDone();
    options.svg->finish();
  }
}

}  // namespace MD::tool
