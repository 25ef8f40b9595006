#include "messages/statistics.h"

#include <algorithm>

#include "base/encodings.h"
#include "base/errors.h"
#include "md/md_datatypes.h"
#include "md/md_wire_record.h"

namespace MD::tool {

void RateHistogram::add(std::int64_t timeNs) {
  if (timeNs < m_barBeginNs || timeNs >= m_barEndNs) {
    findBar(timeNs);
  }
  m_lastNs = std::max(m_lastNs, timeNs);
  m_firstNs = std::min(m_firstNs, timeNs);
  ++m_counts[m_bar];
}

/// Finds the bar of a time, or makes one, so that the next times need no search.
void RateHistogram::findBar(std::int64_t timeNs) {
  if (m_counts.empty()) {
    m_beginNs = m_firstNs = m_lastNs = timeNs;
    if (m_isFixed) {
      m_beginNs -= timeNs % m_widthNs;
    }
  }
  // Unsigned, since the span between any two times may be more than a signed number holds.
  const auto distance = [this](std::int64_t time) {
    return (static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(m_beginNs)) /
           static_cast<std::uint64_t>(m_widthNs);
  };
  if (timeNs < m_beginNs) {
    moveBegin(timeNs);
  }
  while (distance(timeNs) >= (m_isFixed ? kMostFixedBars : kMostBars)) {
    widen();
  }
  m_bar = static_cast<std::size_t>(distance(timeNs));
  m_counts.resize(std::max(m_counts.size(), m_bar + 1));
  m_barBeginNs = barBeginNs(m_bar);
  // The last bar may end after the greatest time; it is then looked up each time.
  const auto end = static_cast<std::int64_t>(static_cast<std::uint64_t>(m_beginNs) +
                                             (m_bar + 1) * static_cast<std::uint64_t>(m_widthNs));
  m_barEndNs = std::max(end, m_barBeginNs);
}

/// Joins each two bars, or each five, so that the widths are round: 1, 2, 10, 20, 100 milliseconds.
void RateHistogram::widen() {
  if (m_isFixed) {
    throw UsageError("--interval is too short: there would be more than " + std::to_string(kMostFixedBars) +
                     " intervals");
  }
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
    if (bars + m_counts.size() <= (m_isFixed ? kMostFixedBars : kMostBars)) {
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

template <class Use>
void SizeHistogram::forEach(Use use) const {
  for (std::size_t size = 0; size != m_small.size(); ++size) {
    if (m_small[size] != 0) {
      use(size, m_small[size]);
    }
  }
  for (const auto& [size, count] : m_large) {
    use(size, count);
  }
}

std::uint64_t SizeHistogram::smallest() const {
  const auto first = std::find_if(m_small.begin(), m_small.end(), [](std::uint64_t count) { return count != 0; });
  return first != m_small.end() ? static_cast<std::uint64_t>(first - m_small.begin()) : m_large.begin()->first;
}

std::uint64_t SizeHistogram::largest() const {
  std::uint64_t last = 0;
  forEach([&](std::uint64_t size, std::uint64_t) { last = size; });
  return last;
}

std::uint64_t SizeHistogram::percentile(unsigned percent) const {
  // As many as this, rounded up, are to be no larger.
  const std::uint64_t wanted = m_total / 100 * percent + (m_total % 100 * percent + 99) / 100;
  std::uint64_t seen = 0;
  std::uint64_t found = 0;
  forEach([&](std::uint64_t size, std::uint64_t count) {
    found = seen < wanted ? size : found;
    seen += count;
  });
  return found;
}

std::vector<SizeHistogram::Bar> SizeHistogram::bars(std::size_t most) const {
  if (isEmpty()) {
    return {};
  }
  const std::uint64_t first = smallest();
  const std::uint64_t last = largest();
  const std::uint64_t width = (last - first) / most + 1;
  std::vector<Bar> bars(static_cast<std::size_t>((last - first) / width + 1));
  for (std::size_t i = 0; i != bars.size(); ++i) {
    bars[i].from = first + i * width;
    bars[i].to = std::min(bars[i].from + width - 1, last);
  }
  forEach([&](std::uint64_t size, std::uint64_t count) {
    bars[static_cast<std::size_t>((size - first) / width)].count += count;
  });
  return bars;
}

void SizeHistogram::add(const SizeHistogram& others) {
  others.forEach([this](std::uint64_t size, std::uint64_t count) {
    (size < m_small.size() ? m_small[static_cast<std::size_t>(size)] : m_large[size]) += count;
  });
  m_total += others.m_total;
}

Statistics& Statistics::operator+=(const Statistics& others) {
  for (std::size_t i = 0; i != encodings.size(); ++i) {
    encodings[i].messages += others.encodings[i].messages;
    encodings[i].bytes += others.encodings[i].bytes;
  }
  messages += others.messages;
  bytes += others.bytes;
  foreign += others.foreign;
  truncated += others.truncated;
  withUnknown += others.withUnknown;
  malformed += others.malformed;
  for (const auto& [id, count] : others.unknownIds) {
    unknownIds[id] += count;
  }
  for (std::size_t id = 0; id != fields.size(); ++id) {
    fields[id] += others.fields[id];
  }
  sizes.add(others.sizes);
  return *this;
}

void MessageCounter::count(const InputMessage& input, Statistics& statistics) {
  if (!hasEncodingCode(input)) {
    ++statistics.foreign;
    return;
  }
  ++statistics.messages;
  statistics.bytes += input.sizeBytes;
  EncodingCount& encoding = statistics.encodings[kEncodingIndices[input.data[0]]];
  ++encoding.messages;
  encoding.bytes += input.sizeBytes;
  statistics.sizes.add(input.sizeBytes);
  countRecords(input, statistics);
}

void MessageCounter::countRecords(const InputMessage& input, Statistics& statistics) {
  ++m_message;
  bool isTruncated = false;
  bool isMalformed = false;
  bool hasUnknown = false;
  std::uint64_t* const fields = statistics.fields.data();
  const auto countField = [&](FIELDS::packed_rec field, std::uint16_t id, bool isReadable) {
    std::uint64_t& lastSeen = m_lastSeen[field.slot];
    if (lastSeen / 2 == m_message) {
      // Of a repeated field the last record counts.
      isMalformed = true;
      fields[id] -= lastSeen % 2;
    }
    fields[id] += isReadable ? 1U : 0U;
    lastSeen = 2 * m_message + (isReadable ? 1U : 0U);
  };
  const auto countReadable = [&](FIELDS::packed_rec field, std::uint16_t id) { countField(field, id, true); };
  forEachWireRecord(input.data, input.sizeBytes, m_map, countReadable, [&](const WireRecord& record) {
    isTruncated = record.value == WireRecord::Value::Truncated;
    isMalformed = true;
    if (record.kind == WireRecord::Kind::Field) {
      countField(record.field, record.id, false);
    } else if (record.kind == WireRecord::Kind::UnknownField) {
      // After one of unknown length, ids are whatever the bytes contain.
      if (!hasUnknown || input.data[0] != ENCODINGS::ITERMAP) {
        ++statistics.unknownIds[record.id];
      }
      hasUnknown = true;
    }
  });
  if (isTruncated) {
    ++statistics.truncated;
  } else if (hasUnknown) {
    ++statistics.withUnknown;
  } else if (isMalformed) {
    ++statistics.malformed;
  }
}

}  // namespace MD::tool
