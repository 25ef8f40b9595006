#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

#include "base/diagnostics.h"
#include "dictionary/dictionary.h"
#include "messages/statistics.h"
#include "messages/statistics_text.h"
#include "text/json_text.h"

namespace MD::tool {
namespace {

constexpr std::size_t kLabelColumns = 22;
constexpr std::size_t kCountColumns = 12;

std::string padded(std::string_view text, std::size_t columns) {
  std::string out(text);
  // Columns are characters, not bytes.
  const auto shown = static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
  out.append(shown < columns ? columns - shown : 1, ' ');
  return out;
}

std::string rightAligned(std::string_view text, std::size_t columns) {
  return std::string(text.size() < columns ? columns - text.size() : 0, ' ') + std::string(text);
}

class Report {
 public:
  Report(const Statistics& statistics, const FieldNames& names, const ReportOptions& options, std::string& out)
      : m_statistics(statistics),
        m_names(names),
        m_options(options),
        m_zone(options.zone),
        m_columns(options.columns),
        m_out(out) {}

  void write() {
    if (m_statistics.capture) {
      packets();
    }
    messages();
    if (!m_statistics.times.isEmpty()) {
      times();
    }
    if (!m_statistics.sizes.isEmpty()) {
      sizes();
    }
    fields();
    groups();
    sequence();
    endpoints();
  }

 private:
  void line(std::string_view label, std::string_view value) {
    m_out += padded(label, kLabelColumns);
    m_out += value;
    m_out += '\n';
  }
  void counted(std::string_view label, std::uint64_t count, std::string_view rest = {}) {
    line(label, rightAligned(std::to_string(count), kCountColumns) + std::string(rest));
  }
  void countedIfAny(std::string_view label, std::uint64_t count) {
    if (count != 0) {
      counted(label, count);
    }
  }
  void title(std::string_view text) {
    m_out += m_out.empty() ? "" : "\n";
    m_out += text;
    m_out += '\n';
  }

  void packets() {
    const CaptureCounts& capture = *m_statistics.capture;
    counted("packets", capture.packets);
    counted("  UDP datagrams", capture.datagrams);
    countedIfAny("  not selected", capture.notSelected);
    countedIfAny("  TCP", capture.tcp);
    countedIfAny("  other protocols", capture.otherTransport);
    countedIfAny("  not IP", capture.notIp);
    countedIfAny("  fragments", capture.fragments);
    countedIfAny("  truncated", capture.cutShort);
    countedIfAny("  broken", capture.malformed);
  }

  void messages() {
    const Statistics& all = m_statistics;
    counted("messages", all.messages, ", " + std::to_string(all.bytes) + " bytes");
    for (std::size_t i = 0; i != all.encodings.size(); ++i) {
      const EncodingCount& encoding = all.encodings[i];
      if (encoding.messages != 0) {
        counted(std::string("  ") + ENCODINGS::kAll[i].name, encoding.messages,
                rightAligned(percent(encoding.messages, all.messages), 10) + ", " + std::to_string(encoding.bytes) +
                    " bytes, " + ratio(encoding.bytes, encoding.messages, 1) + " each");
      }
    }
    counted("malformed", all.malformed);
    counted("truncated", all.truncated);
    counted("with unknown fields", all.withUnknown,
            all.withUnknown != 0 ? unknownIds() + ", not in the " + dictionaryText() : "");
    counted("unrecognised", all.foreign);
  }

  /// The most frequent ids that the dictionary does not have, with the number of their records.
  std::string unknownIds() const {
    constexpr std::size_t kMost = 10;
    std::vector<std::pair<std::uint16_t, std::uint64_t>> ids(m_statistics.unknownIds.begin(),
                                                             m_statistics.unknownIds.end());
    std::stable_sort(ids.begin(), ids.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    std::string text;
    for (std::size_t i = 0; i != std::min(ids.size(), kMost); ++i) {
      text += (i == 0 ? ", ids " : ", ") + std::to_string(ids[i].first) + " (" + std::to_string(ids[i].second) + ')';
    }
    return ids.size() > kMost ? text + " and " + std::to_string(ids.size() - kMost) + " more" : text;
  }

  void times() {
    const RateHistogram& times = m_statistics.times;
    const auto span = static_cast<std::int64_t>(static_cast<std::uint64_t>(times.lastNs()) -
                                                static_cast<std::uint64_t>(times.firstNs()));
    title("time");
    line("  first", momentText(times.firstNs(), m_zone));
    line("  last", momentText(times.lastNs(), m_zone));
    line("  span", durationText(span));
    std::uint64_t total = 0;
    for (const std::uint64_t count : times.counts()) {
      total += count;
    }
    if (span > 0) {
      line("  mean rate", rateText(total, span));
    }
    const std::uint64_t most = *std::max_element(times.counts().begin(), times.counts().end());
    line("  peak rate", rateText(most, times.widthNs()) + " in " + durationText(times.widthNs()));

    title("messages by time, " + durationText(times.widthNs()) + " a bar");
    for (std::size_t i = 0; i != times.counts().size(); ++i) {
      bar("  " + timeOfDay(times.barBeginNs(i)), times.counts()[i], most);
    }
  }

  /// The moment without its date.
  std::string timeOfDay(std::int64_t ns) const {
    const std::string text = momentText(ns, m_zone);
    const std::size_t clock = text.find('T');
    constexpr std::size_t kUpToMilliseconds = 12;
    return clock == text.npos ? text : text.substr(clock + 1, kUpToMilliseconds);
  }

  void sizes() {
    const SizeHistogram& sizes = m_statistics.sizes;
    title("size in bytes");
    line("  min", std::to_string(sizes.smallest()));
    line("  median", std::to_string(sizes.percentile(50)));
    line("  p99", std::to_string(sizes.percentile(99)));
    line("  max", std::to_string(sizes.largest()));

    constexpr std::size_t kMostBars = 20;
    const auto bars = sizes.bars(kMostBars);
    std::uint64_t most = 0;
    for (const auto& row : bars) {
      most = std::max(most, row.count);
    }
    title("messages by size");
    for (const auto& row : bars) {
      const std::string range =
          row.from == row.to ? std::to_string(row.from) : std::to_string(row.from) + '-' + std::to_string(row.to);
      bar("  " + range, row.count, most);
    }
  }

  void fields() {
    std::vector<std::pair<std::uint16_t, std::uint64_t>> rows;
    for (std::size_t id = 0; id != m_statistics.fields.size(); ++id) {
      if (m_statistics.fields[id] != 0) {
        rows.emplace_back(static_cast<std::uint16_t>(id), m_statistics.fields[id]);
      }
    }
    if (rows.empty()) {
      return;
    }
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    title("messages by field");
    for (const auto& [id, count] : rows) {
      const std::string label = "  " + printable(m_names.label(id));
      m_out += padded(label, kLabelColumns + 2) + rightAligned(std::to_string(count), kCountColumns - 2) +
               rightAligned(percent(count, m_statistics.messages), 10) + '\n';
    }
  }

  void countRow(const std::string& label, const GroupCount& count) {
    std::string text = padded("  " + label, kLabelColumns + 2) +
                       rightAligned(std::to_string(count.messages), kCountColumns - 2) + ", " +
                       std::to_string(count.bytes) + " bytes";
    if (count.firstNs) {
      text += ", " + momentText(*count.firstNs, m_zone) + " to " + momentText(*count.lastNs, m_zone);
    }
    m_out += text + '\n';
  }

  void othersRow(std::size_t shown, std::size_t all, const GroupCount& others) {
    if (shown != all) {
      m_out += "  and " + std::to_string(all - shown) + " more (--top)\n";
    }
    if (others.messages != 0) {
      countRow("(further values)", others);
    }
  }

  void groups() {
    if (!m_statistics.groups) {
      return;
    }
    title("messages by " + printable(m_options.groupedBy) + ", " + std::to_string(m_statistics.groups->size()) +
          " values");
    const auto rows = m_statistics.groups->top(m_options.top);
    for (const auto& [key, count] : rows) {
      countRow(printable(key), count);
    }
    othersRow(rows.size(), m_statistics.groups->size(), m_statistics.groups->others());
  }

  void endpoints() {
    if (m_statistics.endpoints.size() == 0) {
      return;
    }
    title("endpoints");
    const auto rows = m_statistics.endpoints.top(m_options.top);
    for (const auto& row : rows) {
      countRow(textOf(row.source) + " to " + textOf(row.destination) +
                   (isMulticast(row.destination.address) ? " (multicast)" : ""),
               row.count);
    }
    othersRow(rows.size(), m_statistics.endpoints.size(), m_statistics.endpoints.others());
  }

  void sequence() {
    if (!m_statistics.sequence) {
      return;
    }
    const SequenceCheck& check = *m_statistics.sequence;
    title("sequence numbers");
    counted("  checked", check.numbers());
    counted("  missing", check.missing(), ", " + std::to_string(check.gaps()) + " gaps");
    counted("  duplicate", check.duplicates());
    counted("  late", check.late());
    countedIfAny("  not checked", check.unchecked());
    for (const auto& event : check.events()) {
      m_out += "  " + pathText(event.place) + ": " + (event.key.empty() ? "" : printable(event.key) + ' ') +
               eventText(event) + '\n';
    }
  }

  /// A bar as long as its share of the longest.
  void bar(const std::string& label, std::uint64_t count, std::uint64_t most) {
    const std::size_t used = kLabelColumns + kCountColumns + 1;
    const std::size_t room = std::clamp<std::size_t>(m_columns, used + 10, used + 100) - used;
    const auto length = static_cast<std::size_t>(scaled(count, room, most));
    std::string text = padded(label, kLabelColumns) + rightAligned(std::to_string(count), kCountColumns);
    if (count != 0) {
      text += ' ' + std::string(std::max<std::size_t>(length, 1), '#');
    }
    m_out += text + '\n';
  }

  const Statistics& m_statistics;
  const FieldNames& m_names;
  const ReportOptions& m_options;
  const TimeZone& m_zone;
  std::size_t m_columns;
  std::string& m_out;
};

/// The same numbers for programs: a record each, of a section, a key, a count, and what else there is.
class Rows {
 public:
  Rows(bool isJson, const TimeZone& zone, std::string& out) : m_isJson(isJson), m_zone(zone), m_out(out) {
    if (!isJson) {
      m_out += "section,key,count,bytes,first,last\n";
    }
  }

  void add(std::string_view section, std::string_view key, const GroupCount& count, bool hasBytes = true) {
    const auto time = [&](const std::optional<std::int64_t>& ns) {
      return ns ? momentText(*ns, m_zone) : std::string();
    };
    if (!m_isJson) {
      m_out.append(section) += ',';
      cell(key);
      m_out += ',' + std::to_string(count.messages) + ',' + (hasBytes ? std::to_string(count.bytes) : "") + ',' +
               time(count.firstNs) + ',' + time(count.lastNs) + '\n';
      return;
    }
    m_out.append("{\"section\":\"").append(section) += "\",\"key\":";
    if (!appendJsonString(key, m_out)) {
      appendJsonString(printable(key), m_out);
    }
    m_out += ",\"count\":" + std::to_string(count.messages);
    m_out += hasBytes ? ",\"bytes\":" + std::to_string(count.bytes) : "";
    m_out += count.firstNs ? ",\"first\":\"" + time(count.firstNs) + "\",\"last\":\"" + time(count.lastNs) + '"' : "";
    m_out += "}\n";
  }
  void add(std::string_view section, std::string_view key, std::uint64_t count) {
    add(section, key, GroupCount{count, 0, {}, {}}, false);
  }

 private:
  void cell(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == text.npos) {
      m_out += text;
      return;
    }
    m_out += '"';
    for (const char c : text) {
      m_out += c;
      m_out += c == '"' ? "\"" : "";
    }
    m_out += '"';
  }

  bool m_isJson;
  const TimeZone& m_zone;
  std::string& m_out;
};

void appendRows(const Statistics& all, const FieldNames& names, const ReportOptions& options, std::string& out) {
  Rows rows(options.format == StatsFormat::Json, options.zone, out);
  GroupCount total{all.messages, all.bytes, {}, {}};
  if (!all.times.isEmpty()) {
    total.firstNs = all.times.firstNs();
    total.lastNs = all.times.lastNs();
  }
  rows.add("total", "messages", total);
  if (all.capture) {
    rows.add("total", "packets", all.capture->packets);
    rows.add("total", "datagrams", all.capture->datagrams);
  }
  for (std::size_t i = 0; i != all.encodings.size(); ++i) {
    rows.add("encoding", ENCODINGS::kAll[i].name, {all.encodings[i].messages, all.encodings[i].bytes, {}, {}});
  }
  rows.add("problem", "malformed", all.malformed);
  rows.add("problem", "truncated", all.truncated);
  rows.add("problem", "with unknown fields", all.withUnknown);
  rows.add("problem", "unrecognised", all.foreign);
  for (const auto& [id, count] : all.unknownIds) {
    rows.add("unknown id", std::to_string(id), count);
  }
  for (std::size_t i = 0; i != all.times.counts().size(); ++i) {
    rows.add("time", momentText(all.times.barBeginNs(i), options.zone), all.times.counts()[i]);
  }
  constexpr std::size_t kMostSizes = 1000;
  for (const auto& size : all.sizes.bars(kMostSizes)) {
    if (size.count != 0) {
      rows.add("size", std::to_string(size.from) + (size.to == size.from ? "" : '-' + std::to_string(size.to)),
               size.count);
    }
  }
  for (std::size_t id = 0; id != all.fields.size(); ++id) {
    if (all.fields[id] != 0) {
      rows.add("field", names.label(static_cast<std::uint16_t>(id)), all.fields[id]);
    }
  }
  if (all.groups) {
    for (const auto& [key, count] : all.groups->top(options.top)) {
      rows.add("group", key, count);
    }
  }
  if (all.sequence) {
    rows.add("sequence", "checked", all.sequence->numbers());
    rows.add("sequence", "missing", all.sequence->missing());
    rows.add("sequence", "duplicate", all.sequence->duplicates());
    rows.add("sequence", "late", all.sequence->late());
    for (const auto& event : all.sequence->events()) {
      const auto numbers = static_cast<std::uint64_t>(event.last) - static_cast<std::uint64_t>(event.first) + 1;
      rows.add(nameOf(event.kind), event.place + ": " + (event.key.empty() ? "" : event.key + ' ') + eventText(event),
               numbers);
    }
  }
  for (const auto& row : all.endpoints.top(options.top)) {
    rows.add("endpoints", textOf(row.source) + " to " + textOf(row.destination), row.count);
  }
}

}  // namespace

void appendReport(const Statistics& statistics, const FieldNames& names, const ReportOptions& options,
                  std::string& out) {
  if (options.format == StatsFormat::Text) {
    Report(statistics, names, options, out).write();
  } else {
    appendRows(statistics, names, options, out);
  }
}

}  // namespace MD::tool
