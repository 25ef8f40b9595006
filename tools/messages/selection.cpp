#include "messages/selection.h"

#include <algorithm>
#include <limits>

#include "base/errors.h"
#include "base/quoted_text.h"
#include "md/md_fieldmap.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
/// A message is read about as fast as so many of its fields without one.
constexpr std::size_t kMostPeeked = 2;

std::string withoutSpaces(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == text.npos ? std::string() : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

TimeLimit::TimeLimit(const char* option, const std::string& text, const TimeZone& zone) : m_zone(zone) {
  if (const auto time = parseTime(text, zone)) {
    m_ns = *time;
  } else if (const auto ofDay = parseTimeOfDay(text)) {
    m_kind = Kind::OfDay;
    m_ns = *ofDay;
  } else if (const auto duration = parseDuration(text)) {
    m_kind = Kind::AfterFirst;
    m_ns = *duration;
  } else {
    throw UsageError(
        std::string(option) + ": " + inQuotes(text) +
        " is not a date, such as 2024-06-03 or 2024-06-03T09:30:00Z, a time of day, such as 09:30:00.5, or "
        "a duration, such as 90s or 1h30m");
  }
}

std::uint64_t TimeLimit::ns(std::uint64_t firstNs) const {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  switch (m_kind) {
    case Kind::Absolute:
      return m_ns;
    case Kind::AfterFirst:
      return firstNs <= kMost - m_ns ? firstNs + m_ns : kMost;
    case Kind::OfDay:
      break;
  }
  const std::int64_t midnight = clockMidnight(firstNs, m_zone);
  const std::int64_t seconds = m_zone.unixSeconds(midnight + static_cast<std::int64_t>(m_ns / kNsPerSecond));
  return seconds < 0 ? 0 : static_cast<std::uint64_t>(seconds) * kNsPerSecond + m_ns % kNsPerSecond;
}

Selection::Selection(const SelectionOptions& options, const FieldNames& names)
    : m_skip(options.skip), m_limit(options.limit) {
  for (const std::string& condition : options.where) {
    m_peeked += m_conditions.emplace_back(condition, names, options.zone).fieldCount();
  }
  if (!options.fromTime.empty()) {
    m_from.emplace("--from-time", options.fromTime, options.zone);
  }
  if (!options.toTime.empty()) {
    m_to.emplace("--to-time", options.toTime, options.zone);
  }
  if (options.fields == std::vector<std::string>{"all"}) {
    for (const FIELDS::field_rec& row : MD_FieldMap::instance()) {
      if (isCarried(row.type)) {
        addField({row.id, row.type});
      }
    }
    return;
  }
  for (const std::string& text : options.fields) {
    const std::string name = withoutSpaces(text);
    if (isPseudoName(name)) {
      try {
        m_columns.push_back({parsePseudoField(name), {}});
      } catch (const LineError& error) {
        throw UsageError("--fields: field " + printable(error.field()) + ": " + error.what());
      }
    } else if (!addField(names.match("--fields", name))) {
      throw UsageError("--fields: field " + printable(name) + " is given twice");
    }
  }
}

/// @return false when it is there already
bool Selection::addField(Field field) {
  m_isIncluded.resize(std::max<std::size_t>(m_isIncluded.size(), std::size_t{field.id} + 1));
  if (m_isIncluded[field.id]) {
    return false;
  }
  m_isIncluded[field.id] = true;
  m_fields.push_back(field);
  m_columns.push_back({std::nullopt, field});
  return true;
}

bool Selection::takes(const InputMessage& input) {
  if (m_peeked <= kMostPeeked || !hasEncodingCode(input)) {
    return meets(Candidate(input)) && count();
  }
  const auto message = MD_Message::createFromBytes(input.data, static_cast<std::uint32_t>(input.sizeBytes));
  return message != nullptr && meets(Candidate(*message, input)) && count();
}

bool Selection::meets(const Candidate& candidate) {
  if ((m_from || m_to) && !isInTime(candidate.input())) {
    return false;
  }
  for (const Condition& condition : m_conditions) {
    if (!condition.holds(candidate)) {
      return false;
    }
  }
  return true;
}

/// A message without a time is not.
bool Selection::isInTime(const InputMessage* input) {
  if (input == nullptr || (!input->hasEndpoints && input->packet == nullptr)) {
    throw UsageError(
        "--from-time and --to-time require a capture; for other input, compare a field: 'FIELD >= "
        "2024-06-03T09:30:00'");
  }
  if (!hasPseudoField(*input, PseudoField::Time)) {
    return false;
  }
  const auto ns = static_cast<std::uint64_t>(*input->timeNs);
  if (!m_time) {
    m_time.emplace(m_from ? m_from->ns(ns) : 0, m_to ? m_to->ns(ns) : std::numeric_limits<std::uint64_t>::max());
  }
  return ns >= m_time->first && ns < m_time->second;
}

void Selection::refusePseudoFields(const std::string& why) const {
  for (const Column& column : m_columns) {
    if (column.pseudo) {
      throw UsageError("--fields: " + std::string(pseudoName(*column.pseudo)) + ' ' + why);
    }
  }
}

bool Selection::takesUnreadable() { return !hasConditions() && count(); }

bool Selection::count() {
  if (m_skip != 0) {
    --m_skip;
    return false;
  }
  if (isDone()) {
    return false;
  }
  ++m_taken;
  return true;
}

bool Selection::includes(std::uint16_t id) const {
  return !hasFields() || (id < m_isIncluded.size() && m_isIncluded[id]);
}

void Selection::keepIncluded(std::vector<std::uint16_t>& ids) const {
  ids.erase(std::remove_if(ids.begin(), ids.end(), [this](std::uint16_t id) { return !includes(id); }), ids.end());
}

void Selection::keepFields(MD_Message& message) const {
  if (!hasFields()) {
    return;
  }
  std::vector<std::uint16_t> ids;
  message.get_field_ids(ids);
  ids.erase(std::remove_if(ids.begin(), ids.end(), [this](std::uint16_t id) { return includes(id); }), ids.end());
  message.eraseArrayImpl(ids);
}

}  // namespace MD::tool
