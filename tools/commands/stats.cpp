#include <cstdint>

#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "commands/workers.h"
#include "dictionary/field_names.h"
#include "md/md_peek.h"
#include "messages/groups.h"
#include "messages/statistics.h"

namespace MD::tool {
namespace {

/// When a message was sent, if it says so.
std::optional<std::int64_t> sentTime(const InputMessage& input, const std::optional<Field>& timeField) {
  constexpr auto kLatest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  MD_EpochNS time;
  if (timeField && input.sizeBytes <= std::numeric_limits<std::uint32_t>::max() &&
      peek(input.data, static_cast<std::uint32_t>(input.sizeBytes), timeField->id, time) && time.get() <= kLatest) {
    return static_cast<std::int64_t>(time.get());
  }
  return std::nullopt;
}

/// What the order of the messages matters for.
class OrderedCounts {
 public:
  OrderedCounts(const StatsOptions& options, Statistics& result) : m_result(result) {
    const FieldNames names;
    if (options.intervalNs != 0) {
      m_result.times = RateHistogram(options.intervalNs);
    }
    for (const std::string& name : options.by) {
      m_by.push_back(names.match("--by", name));
      m_result.groups.emplace();
    }
    if (!options.sequenceField.empty()) {
      m_sequence = names.match("--sequence", options.sequenceField);
      if (m_sequence->type != DATATYPES::INT && m_sequence->type != DATATYPES::INT64) {
        throw UsageError("--sequence: field " + printable(options.sequenceField) + " is not an INT or INT64");
      }
      m_result.sequence.emplace();
      if (!options.sequencePer.empty()) {
        m_per = names.match("--per", options.sequencePer);
      }
    } else if (!options.sequencePer.empty()) {
      throw UsageError("--per requires --sequence");
    }
  }

  /// The names of the fields that messages are counted by.
  std::string groupedBy(const FieldNames& names) const {
    std::string text;
    for (const Field& field : m_by) {
      text += (text.empty() ? "" : ", ") + names.label(field.id);
    }
    return text;
  }

  /// Whether there is more to do than add().
  bool looksIntoMessages() const noexcept { return !m_by.empty() || m_sequence; }

  /// @param timeNs  when the message was sent or captured
  void add(std::size_t sizeBytes, const std::optional<std::int64_t>& timeNs, bool isMessage, const Endpoint& source,
           const Endpoint& destination) {
    if (isMessage && timeNs) {
      m_result.times.add(*timeNs);
    }
    if (source.port != 0 || destination.port != 0) {
      m_result.endpoints.add(source, destination, sizeBytes, timeNs);
    }
  }

  void lookInto(const InputMessage& input, std::optional<std::int64_t> timeNs, const Reporter& reporter) {
    if (!m_by.empty()) {
      m_key.clear();
      for (std::size_t i = 0; i != m_by.size(); ++i) {
        m_key += i == 0 ? "" : ", ";
        if (!appendPeekedValue(input, m_by[i], m_key)) {
          m_key += "(absent)";
        }
      }
      m_result.groups->add(m_key, input.sizeBytes, timeNs);
    }
    if (const std::optional<std::int64_t> number = m_sequence ? numberOf(input) : std::nullopt) {
      m_key.clear();
      if (!m_per || appendPeekedValue(input, *m_per, m_key)) {
        m_result.sequence->add(m_key, *number, [&] { return reporter.place(); });
      }
    }
  }

 private:
  std::optional<std::int64_t> numberOf(const InputMessage& input) const {
    if (input.sizeBytes > std::numeric_limits<std::uint32_t>::max()) {
      return std::nullopt;
    }
    const auto sizeBytes = static_cast<std::uint32_t>(input.sizeBytes);
    std::int64_t wide = 0;
    std::int32_t narrow = 0;
    if (m_sequence->type == DATATYPES::INT64) {
      return peek(input.data, sizeBytes, m_sequence->id, wide) ? std::optional(wide) : std::nullopt;
    }
    return peek(input.data, sizeBytes, m_sequence->id, narrow) ? std::optional<std::int64_t>(narrow) : std::nullopt;
  }

  Statistics& m_result;
  std::vector<Field> m_by;
  std::optional<Field> m_sequence;
  std::optional<Field> m_per;
  std::string m_key;
};

/// Counts messages; what depends on their order is added up in that order.
class StatsWorker final : public Worker {
 public:
  /// @param isOneOfMany  whether other workers count at the same time
  StatsWorker(const Task& task, const StatsOptions& options, bool isOneOfMany, OrderedCounts& ordered,
              Statistics& result)
      : m_task(task),
        m_reader(task),
        m_selection(task.selection, m_names),
        m_isOneOfMany(isOneOfMany),
        m_ordered(ordered),
        m_result(result) {
    if (!options.timeField.empty()) {
      m_timeField = timeFieldOf(options.timeField, m_names);
    }
  }

  std::function<void()> run() override {
    std::vector<Seen> all;
    while (const InputMessage* const next = m_reader.nextTaken(m_selection)) {
      const InputMessage& input = *next;
      m_counter.count(input, m_statistics);
      const std::optional<std::int64_t> sentNs = sentTime(input, m_timeField);
      const std::optional<std::int64_t>& timeNs = sentNs ? sentNs : input.timeNs;
      const bool isMessage = hasEncodingCode(input);
      if (m_isOneOfMany) {
        all.push_back({input.sizeBytes, timeNs, isMessage, input.source, input.destination});
        continue;
      }
      m_ordered.add(input.sizeBytes, timeNs, isMessage, input.source, input.destination);
      if (isMessage && m_ordered.looksIntoMessages()) {
        m_ordered.lookInto(input, timeNs, m_task.reporter);
      }
    }
    if (all.empty()) {
      return {};
    }
    return [this, all = std::move(all)] {
      for (const Seen& seen : all) {
        m_ordered.add(seen.sizeBytes, seen.timeNs, seen.isMessage, seen.source, seen.destination);
      }
    };
  }

  void end() override { m_result += m_statistics; }

 private:
  /// What OrderedCounts adds of a message later.
  struct Seen {
    std::size_t sizeBytes;
    std::optional<std::int64_t> timeNs;
    bool isMessage;
    Endpoint source;
    Endpoint destination;
  };

  const Task& m_task;
  MessageReader m_reader;
  const FieldNames m_names;
  Selection m_selection;
  std::optional<Field> m_timeField;
  MessageCounter m_counter{MD_FieldMap::instance()};
  Statistics m_statistics;
  bool m_isOneOfMany;
  OrderedCounts& m_ordered;
  Statistics& m_result;
};

void finish(Output& out, const std::string& text) {
  out.text() += text;
  out.lineDone();
  out.finish();
}

}  // namespace

void stats(const Task& task, const StatsOptions& options) {
  Statistics statistics;
  OrderedCounts ordered(options, statistics);
  Task shared = task;
  shared.jobs = ordered.looksIntoMessages() ? 1 : task.jobs;
  runWorkers(shared, [&](const Task& part) {
    return std::make_unique<StatsWorker>(part, options, shared.jobs > 1, ordered, statistics);
  });
  if (const CaptureCounts* const counts = task.messages.counts()) {
    statistics.capture = *counts;
  }
  if (statistics.malformed + statistics.withUnknown + statistics.truncated + statistics.foreign != 0) {
    task.reporter.flawed();
  }
  const FieldNames names;
  ReportOptions report = options.report;
  report.groupedBy = ordered.groupedBy(names);
  appendReport(statistics, names, report, task.out.text());
  task.out.lineDone();
  if (options.svg != nullptr) {
    finish(*options.svg, svgOf(statistics, options.report.zone));
  }
  if (options.html != nullptr) {
    finish(*options.html, pageOf(statistics, names, report));
  }
}

}  // namespace MD::tool
