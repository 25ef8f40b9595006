#include "messages/statistics.h"

#include <algorithm>
#include <iterator>

namespace MD::tool {
namespace {

/// Where an encoding stands among all.
std::size_t indexOf(std::uint8_t code) noexcept {
  const auto* const found = std::find_if(std::begin(ENCODINGS::kAll), std::end(ENCODINGS::kAll),
                                         [&](const auto& encoding) { return encoding.code == code; });
  return static_cast<std::size_t>(found - std::begin(ENCODINGS::kAll));
}

}  // namespace

void RateHistogram::add(std::int64_t timeNs) {
  if (m_counts.empty()) {
    m_beginNs = m_firstNs = m_lastNs = timeNs;
  }
  m_firstNs = std::min(m_firstNs, timeNs);
  m_lastNs = std::max(m_lastNs, timeNs);
  // Unsigned, since the span between any two times may be more than a signed number holds.
  const auto distance = [this](std::int64_t time) {
    return (static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(m_beginNs)) /
           static_cast<std::uint64_t>(m_widthNs);
  };
  if (timeNs < m_beginNs) {
    moveBegin(timeNs);
  }
  while (distance(timeNs) >= kMostBars) {
    widen();
  }
  const auto bar = static_cast<std::size_t>(distance(timeNs));
  m_counts.resize(std::max(m_counts.size(), bar + 1));
  ++m_counts[bar];
}

/// Joins each two bars, or each five, so that the widths are round: 1, 2, 10, 20, 100 milliseconds and so on.
void RateHistogram::widen() {
  const std::size_t factor = m_isNextFive ? 5 : 2;
  std::vector<std::uint64_t> joined((m_counts.size() + factor - 1) / factor);
  for (std::size_t i = 0; i != m_counts.size(); ++i) {
    joined[i / factor] += m_counts[i];
  }
  m_counts = std::move(joined);
  m_widthNs *= static_cast<std::int64_t>(factor);
  m_isNextFive = !m_isNextFive;
}

/// Puts bars in front, so that an earlier time finds one.
void RateHistogram::moveBegin(std::int64_t timeNs) {
  for (;;) {
    const std::uint64_t gap = static_cast<std::uint64_t>(m_beginNs) - static_cast<std::uint64_t>(timeNs);
    const std::uint64_t bars = (gap - 1) / static_cast<std::uint64_t>(m_widthNs) + 1;
    if (bars + m_counts.size() <= kMostBars) {
      m_counts.insert(m_counts.begin(), static_cast<std::size_t>(bars), 0);
      // Unsigned again: the bars may begin before 1970, by less than the width of one.
      m_beginNs = static_cast<std::int64_t>(static_cast<std::uint64_t>(m_beginNs) -
                                            bars * static_cast<std::uint64_t>(m_widthNs));
      return;
    }
    widen();
  }
}

std::int64_t RateHistogram::barBeginNs(std::size_t index) const noexcept {
  const std::uint64_t begin = static_cast<std::uint64_t>(m_beginNs) + index * static_cast<std::uint64_t>(m_widthNs);
  return std::max<std::int64_t>(static_cast<std::int64_t>(begin), 0);
}

std::uint64_t SizeHistogram::percentile(unsigned percent) const {
  // As many as this, rounded up, are to be no larger.
  const std::uint64_t wanted = m_total / 100 * percent + (m_total % 100 * percent + 99) / 100;
  std::uint64_t seen = 0;
  for (const auto& [size, count] : m_counts) {
    seen += count;
    if (seen >= wanted) {
      return size;
    }
  }
  return largest();
}

std::vector<SizeHistogram::Bar> SizeHistogram::bars(std::size_t most) const {
  if (isEmpty()) {
    return {};
  }
  const std::uint64_t width = (largest() - smallest()) / most + 1;
  std::vector<Bar> bars(static_cast<std::size_t>((largest() - smallest()) / width + 1));
  for (std::size_t i = 0; i != bars.size(); ++i) {
    bars[i].from = smallest() + i * width;
    bars[i].to = std::min(bars[i].from + width - 1, largest());
  }
  for (const auto& [size, count] : m_counts) {
    bars[static_cast<std::size_t>((size - smallest()) / width)].count += count;
  }
  return bars;
}

void MessageCounter::count(const InputMessage& input, std::optional<std::int64_t> timeNs, Statistics& statistics) {
  if (!hasEncodingCode(input)) {
    ++statistics.foreign;
    return;
  }
  ++statistics.messages;
  statistics.bytes += input.sizeBytes;
  EncodingCount& encoding = statistics.encodings[indexOf(input.data[0])];
  ++encoding.messages;
  encoding.bytes += input.sizeBytes;
  statistics.sizes.add(input.sizeBytes);
  if (timeNs) {
    statistics.times.add(*timeNs);
  }
  countRecords(input, statistics);
}

void MessageCounter::countRecords(const InputMessage& input, Statistics& statistics) {
  bool isSound = true;
  bool isTruncated = false;
  for (m_walk.begin(input.data, input.sizeBytes); m_walk.next(m_record);) {
    if (m_record.isHeader) {
      continue;
    }
    isTruncated = m_record.isTruncated;
    isSound = isSound && m_record.isReadable && m_record.parts[0].flaw != Flaw::Repeated;
    if (m_record.isKnown && m_record.type == m_record.dictionaryType) {
      // Of a repeated field the last record counts.
      State& state = m_states[m_record.id];
      if (state == State::Absent) {
        m_ids.push_back(m_record.id);
      }
      state = m_record.isReadable ? State::Readable : State::Unreadable;
    }
  }
  for (const std::uint16_t id : m_ids) {
    statistics.fields[id] += m_states[id] == State::Readable ? 1U : 0U;
    m_states[id] = State::Absent;
  }
  m_ids.clear();
  if (!isSound) {
    ++(isTruncated ? statistics.truncated : statistics.bad);
  }
}

}  // namespace MD::tool
