#include <cstdint>

#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "commands/workers.h"
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

/// Counts messages; what depends on their order goes to `result` in that order.
class StatsWorker final : public Worker {
 public:
  /// @param isOneOfMany  whether other workers count at the same time
  StatsWorker(const Task& task, const StatsOptions& options, bool isOneOfMany, Statistics& result)
      : m_task(task), m_selection(task.selection, m_names), m_isOneOfMany(isOneOfMany), m_result(result) {
    if (!options.timeField.empty()) {
      m_timeField = timeFieldOf(options.timeField, m_names);
    }
  }

  std::function<void()> run() override {
    std::vector<std::int64_t> times;
    for (InputMessage input; readTaken(m_task, m_selection, input);) {
      m_counter.count(input, m_statistics);
      const std::optional<std::int64_t> timeNs =
          hasEncodingCode(input) ? timeOf(input, m_timeField) : std::optional<std::int64_t>();
      if (timeNs && m_isOneOfMany) {
        times.push_back(*timeNs);
      } else if (timeNs) {
        m_result.times.add(*timeNs);
      }
    }
    return [this, times = std::move(times)] {
      for (const std::int64_t timeNs : times) {
        m_result.times.add(timeNs);
      }
    };
  }

  void end() override { m_result += m_statistics; }

 private:
  const Task& m_task;
  const FieldNames m_names;
  Selection m_selection;
  std::optional<Field> m_timeField;
  MessageCounter m_counter{MD_FieldMap::instance()};
  Statistics m_statistics;
  bool m_isOneOfMany;
  Statistics& m_result;
};

}  // namespace

void stats(const Task& task, const StatsOptions& options) {
  Statistics statistics;
  runWorkers(task,
             [&](const Task& part) { return std::make_unique<StatsWorker>(part, options, task.jobs > 1, statistics); });
  if (const CaptureCounts* const counts = task.messages.counts()) {
    statistics.capture = *counts;
  }
  if (statistics.malformed + statistics.withUnknown + statistics.truncated + statistics.foreign != 0) {
    task.reporter.flawed();
  }
  appendReport(statistics, FieldNames(), options.zone, options.columns, task.out.text());
  task.out.lineDone();
  if (options.svg != nullptr) {
    options.svg->text() += svgOf(statistics, options.zone);
    options.svg->lineDone();
    options.svg->finish();
  }
}

}  // namespace MD::tool
