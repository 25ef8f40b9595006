#include "messages/groups.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "base/hex.h"
#include "md/md_message.h"
#include "md/md_peek.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

void appendPlain(char value, std::string& out) { out += value; }
void appendPlain(std::int32_t value, std::string& out) { appendWhole(value, out); }
void appendPlain(std::int64_t value, std::string& out) { appendWhole(value, out); }
void appendPlain(float value, std::string& out) { appendRealOrName(value, out); }
void appendPlain(double value, std::string& out) { appendRealOrName(value, out); }
void appendPlain(MD_Message::String value, std::string& out) { out.append(value.data, value.length); }
void appendPlain(MD_Message::Buffer value, std::string& out) { appendHex(value.data, value.length, out); }
void appendPlain(MD_DateTime value, std::string& out) {
  appendWhole(std::int32_t{value.date()}, out);
  out += ' ';
  appendWhole(std::int32_t{value.time()}, out);
  out += ' ';
  appendWhole(std::int16_t{value.exch_gmt_offset()}, out);
}
void appendPlain(MD_EpochNS value, std::string& out) { appendWhole(value.get(), out); }

/// The `most` rows with the largest counts; of equal ones in the order that they have.
template <class Row, class Count>
void keepTop(std::vector<Row>& rows, std::size_t most, Count count) {
  std::stable_sort(rows.begin(), rows.end(), [&](const Row& a, const Row& b) { return count(a) > count(b); });
  if (rows.size() > most) {
    rows.resize(most);
  }
}

}  // namespace

bool appendPeekedValue(const InputMessage& input, Field field, std::string& out) {
  if (input.sizeBytes > std::numeric_limits<std::uint32_t>::max()) {
    return false;
  }
  switch (field.type) {
#define MD_CASE(T, name, code)                                                             \
  case code: {                                                                             \
    T value{};                                                                             \
    if (!peek(input.data, static_cast<std::uint32_t>(input.sizeBytes), field.id, value)) { \
      return false;                                                                        \
    }                                                                                      \
    appendPlain(value, out);                                                               \
    return true;                                                                           \
  }
    MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
    default:
      return false;
  }
}

void GroupCount::add(std::size_t sizeBytes, const std::optional<std::int64_t>& timeNs) {
  ++messages;
  bytes += sizeBytes;
  if (timeNs) {
    firstNs = std::min(firstNs.value_or(*timeNs), *timeNs);
    lastNs = std::max(lastNs.value_or(*timeNs), *timeNs);
  }
}

void GroupTable::add(const std::string& key, std::size_t sizeBytes, const std::optional<std::int64_t>& timeNs) {
  const auto found = m_groups.find(key);
  if (found != m_groups.end()) {
    found->second.add(sizeBytes, timeNs);
  } else if (m_groups.size() == kMostGroups) {
    m_others.add(sizeBytes, timeNs);
  } else {
    m_groups[key].add(sizeBytes, timeNs);
  }
}

std::vector<GroupTable::Row> GroupTable::top(std::size_t most) const {
  std::vector<Row> rows(m_groups.begin(), m_groups.end());
  std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.first < b.first; });
  keepTop(rows, most, [](const Row& row) { return row.second.messages; });
  return rows;
}

EndpointTable::Key EndpointTable::keyOf(const Endpoint& source, const Endpoint& destination) {
  return {textOf(source), textOf(destination)};
}

void EndpointTable::add(const Endpoint& source, const Endpoint& destination, std::size_t sizeBytes,
                        const std::optional<std::int64_t>& timeNs) {
  const auto isSame = [](const Endpoint& a, const Endpoint& b) { return a.port == b.port && a.address == b.address; };
  if (m_last == nullptr || !isSame(m_last->source, source) || !isSame(m_last->destination, destination)) {
    Key key = keyOf(source, destination);
    const auto found = m_pairs.find(key);
    if (found == m_pairs.end() && m_pairs.size() == kMostPairs) {
      m_others.add(sizeBytes, timeNs);
      return;
    }
    m_last = found != m_pairs.end() ? &found->second
                                    : &m_pairs.emplace(std::move(key), Row{source, destination, {}}).first->second;
  }
  m_last->count.add(sizeBytes, timeNs);
}

std::vector<EndpointTable::Row> EndpointTable::top(std::size_t most) const {
  std::vector<Row> rows;
  for (const auto& [key, row] : m_pairs) {
    rows.push_back(row);
  }
  keepTop(rows, most, [](const Row& row) { return row.count.messages; });
  return rows;
}

void SequenceCheck::add(const std::string& key, std::int64_t number, const std::function<std::string()>& place) {
  auto found = m_states.find(key);
  if (found == m_states.end()) {
    if (m_states.size() == kMostKeys) {
      ++m_unchecked;
      return;
    }
    ++m_numbers;
    m_states.emplace(key, State{number, number, {}});
    return;
  }
  ++m_numbers;
  State& state = found->second;
  if (number > state.highest) {
    addGap(key, state.highest, number, place, state);
    state.highest = number;
    return;
  }
  if (number < state.lowest) {
    // It was expected before the first message, and the numbers between them as well.
    ++m_late;
    note(Event::Kind::Late, key, number, number, place);
    addGap(key, number, state.lowest, place, state);
    state.lowest = number;
    return;
  }
  auto gap = state.missing.upper_bound(number);
  if (gap == state.missing.begin() || (--gap)->second < number) {
    ++m_duplicates;
    note(Event::Kind::Duplicate, key, number, number, place);
    return;
  }
  const auto [first, last] = *gap;
  state.missing.erase(gap);
  if (first != number) {
    state.missing.emplace(first, number - 1);
  }
  if (last != number) {
    state.missing.emplace(number + 1, last);
  }
  --m_missing;
  ++m_late;
  note(Event::Kind::Late, key, number, number, place);
}

/// The numbers between two others are missing.
void SequenceCheck::addGap(const std::string& key, std::int64_t before, std::int64_t after,
                           const std::function<std::string()>& place, State& state) {
  // Unsigned, since two numbers may be farther apart than a signed one holds.
  const std::uint64_t skipped = static_cast<std::uint64_t>(after) - static_cast<std::uint64_t>(before) - 1;
  if (skipped == 0) {
    return;
  }
  m_missing += skipped;
  ++m_gaps;
  note(Event::Kind::Gap, key, before + 1, after - 1, place);
  state.missing.emplace(before + 1, after - 1);
  if (state.missing.size() > kMostGapsPerKey) {
    state.missing.erase(state.missing.begin());
  }
}

void SequenceCheck::note(Event::Kind kind, const std::string& key, std::int64_t first, std::int64_t last,
                         const std::function<std::string()>& place) {
  if (m_events.size() != kMostEvents) {
    m_events.push_back({kind, key, first, last, place()});
  }
}

}  // namespace MD::tool
