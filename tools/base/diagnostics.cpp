#include "base/diagnostics.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "base/end_watch.h"
#include "md/md_assert.h"

namespace MD::tool {
namespace {

void ignore(const char*, std::size_t) {}

void goOn(const char*, const char*, unsigned) {}

/// The text after the input's name.
std::string textOf(const Place& place) {
  const auto withOffset = [&](const char* what) {
    return std::string(": ") + what + ' ' + std::to_string(place.number) + " (byte " + std::to_string(place.offset) +
           ')';
  };
  switch (place.kind) {
    case Place::Kind::Line:
      return ':' + std::to_string(place.number);
    case Place::Kind::Message:
      return withOffset("message");
    case Place::Kind::Packet:
      return withOffset("packet");
    case Place::Kind::Datagram:
      return ": datagram " + std::to_string(place.number);
    case Place::Kind::Whole:
      break;
  }
  return {};
}

/// What the messages and fields are that are only counted.
constexpr struct {
  const char* one;
  const char* many;
} kKindNames[kReportKinds] = {
    {"malformed message", "malformed messages"},
    {"message of unknown encoding", "messages of unknown encoding"},
    {"message that is too long", "messages that are too long"},
    {"message too large for the available memory", "messages too large for the available memory"},
    {"message that the output cannot hold", "messages that the output cannot hold"},
    {"message with a field of unknown name", "messages with fields of unknown names"},
    {"message with dropped bytes", "messages with dropped bytes"},
    {"repeated field", "repeated fields"},
    {"value that cannot be read", "values that cannot be read"},
    {"message that encode writes with other bytes", "messages that encode writes with other bytes"},
    {"entry of a dictionary", "entries of a dictionary"},
};

/// "999 (12), 24 (3)": the most frequent ids.
std::string textOfFrequent(const std::map<std::uint16_t, std::uint64_t>& counts) {
  constexpr std::size_t kMost = 20;
  std::vector<std::pair<std::uint16_t, std::uint64_t>> ids(counts.begin(), counts.end());
  std::stable_sort(ids.begin(), ids.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
  std::string text;
  for (std::size_t i = 0; i != std::min(ids.size(), kMost); ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string(ids[i].first) + " (" + std::to_string(ids[i].second) + ')';
  }
  return ids.size() > kMost ? text + " and " + std::to_string(ids.size() - kMost) + " more" : text;
}

}  // namespace

std::string Reporter::place() const { return m_input + textOf(m_place); }

void Reporter::setInput(std::string name) {
  bringOutBefore();
  finish();
  m_input = std::move(name);
}

void Reporter::error(const LineError& error) { reportLine(error.kind(), "", error.field(), error.what()); }

void Reporter::note(ReportKind kind, std::string_view field, std::string_view text) {
  reportLine(kind, "note: ", field, text);
}

void Reporter::noteDropped(std::string_view text, const std::vector<std::uint16_t>& unknownIds) {
  reportLine(ReportKind::Dropped, "note: ", {}, text);
  if (m_kept != nullptr) {
    m_kept->back().unknownIds = unknownIds;
  } else {
    countUnknown(unknownIds);
  }
}

void Reporter::countUnknown(const std::vector<std::uint16_t>& ids) {
  for (const std::uint16_t id : ids) {
    ++m_unknownIds[id];
  }
}

void Reporter::replay(const KeptReport& report) {
  m_place = report.place;
  reportLine(report.kind, report.label, report.field, report.text);
  countUnknown(report.unknownIds);
}

void Reporter::entry(std::string_view place, std::string_view text, bool isLeftOut) {
  if (isLeftOut) {
    raise(kBadData);
  }
  if (isToBeWritten(ReportKind::Dictionary)) {
    write(std::string(place) + (isLeftOut ? ": " : ": note: ") + std::string(text));
  }
}

void Reporter::reportLine(ReportKind kind, std::string_view label, std::string_view field, std::string_view text) {
  raise(kBadData);
  if (m_kept != nullptr) {
    m_kept->push_back({m_out.completeBytes(), m_place, kind, label, std::string(field), std::string(text), {}});
    return;
  }
  if (!isToBeWritten(kind)) {
    return;
  }
  std::string report = pathText(m_input) + textOf(m_place) + ": ";
  report += label;
  if (!field.empty()) {
    report.append("field ").append(printable(field)).append(": ");
  }
  report += text;
  if (kind == ReportKind::Unknown && m_dictionary.question && m_questions != kMostQuestions) {
    ++m_questions;
    report += m_dictionary.question(std::string(field));
  }
  write(report);
}

void Reporter::wholeInput(std::string_view text) {
  write(pathText(m_input) + ": " + std::string(text));
  raise(kBadData);
}

void Reporter::hint(std::string_view place, std::string_view text) {
  write(std::string(place) + ": note: " + std::string(text));
}

void Reporter::unusable(std::string_view text, std::string_view advice) {
  write(text, advice);
  raise(kBadUsage);
}

void Reporter::finish() {
  std::string text;
  const bool isUnknownMissing = m_counts[static_cast<std::size_t>(ReportKind::Dropped)] > m_most;
  for (std::size_t kind = 0; kind != kReportKinds; ++kind) {
    const std::uint64_t count = std::exchange(m_counts[kind], 0);
    if (count > m_most) {
      text += text.empty() ? "" : ", ";
      text += counted(count - m_most, kKindNames[kind].one, kKindNames[kind].many);
    }
  }
  if (!text.empty()) {
    write(pathText(m_input) +
          (m_most == 0 ? ": " + text : ": not reported individually: " + text + " (--max-reports)"));
  }
  if (isUnknownMissing && !m_unknownIds.empty()) {
    write(pathText(m_input) + ": fields that are not in the " + m_dictionary.text +
          ", with the number of messages: " + textOfFrequent(m_unknownIds));
  }
  m_unknownIds.clear();
}

void Reporter::write(std::string_view text, std::string_view advice) {
  bringOutBefore();
  m_out.flush();
  if (m_progress != nullptr) {
    m_progress->clear();
  }
  std::string lines = "mdmsg: " + harmless(text) + '\n';
  if (!advice.empty()) {
    lines.append(advice) += '\n';
  }
  const BlockingWrite blocking;
  m_err->clear();  // a report that could not be written does not keep the next one back
  m_err->write(lines.data(), static_cast<std::streamsize>(lines.size())).flush();
}

QuietLibrary::QuietLibrary()
    : m_reportHandler(set_report_handler(&ignore)), m_assertionHandler(set_assertion_handler(&goOn)) {}

QuietLibrary::~QuietLibrary() {
  set_assertion_handler(m_assertionHandler);
  set_report_handler(m_reportHandler);
}

}  // namespace MD::tool
