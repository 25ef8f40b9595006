#include "messages/record_walk.h"

#include <algorithm>
#include <string_view>

#include "base/encodings.h"
#include "md/md_datatypes.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr std::size_t kIdBytes = 2;

/// What is wrong with a value, all of which is there.
Flaw flawOf(const WireRecord& wire, const std::uint8_t* value) noexcept {
  switch (wire.value) {
    case WireRecord::Value::WrongSize:
      return Flaw::WrongSize;
    case WireRecord::Value::TooLong:
      return Flaw::TooLong;
    case WireRecord::Value::Truncated:
    case WireRecord::Value::NotCarried:
      return Flaw::None;
    case WireRecord::Value::Readable:
      break;
  }
  if (wire.type != DATATYPES::STRING) {
    return Flaw::None;
  }
  return wire.valueBytes == 0              ? Flaw::NoTerminator
         : value[wire.valueBytes - 1] != 0 ? Flaw::OtherTerminator
                                           : Flaw::None;
}

}  // namespace

std::uint64_t numberIn(const std::uint8_t* bytes, std::size_t sizeBytes, bool isBigEndian) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i != sizeBytes; ++i) {
    const std::size_t shift = 8 * (isBigEndian ? sizeBytes - 1 - i : i);
    value |= std::uint64_t{bytes[i]} << shift;
  }
  return value;
}

void RecordWalk::begin(const std::uint8_t* bytes, std::size_t sizeBytes) {
  m_bytes = bytes;
  m_sizeBytes = sizeBytes;
  m_at = 0;
  for (const std::uint16_t slot : m_slots) {
    m_lastRecords[slot] = 0;
  }
  m_slots.clear();
}

std::uint64_t RecordWalk::number(std::size_t sizeBytes) const noexcept {
  return numberIn(m_bytes + m_at, sizeBytes, m_bytes[0] == ENCODINGS::MSGT);
}

Part& RecordWalk::add(Record& record, Part::Kind kind, std::size_t sizeBytes, Flaw flaw) {
  record.parts.push_back({kind, flaw, m_at, sizeBytes, 0});
  m_at += sizeBytes;
  return record.parts.back();
}

/// A part and the number in it. @return false when the message ends before or in it
bool RecordWalk::addWhole(Record& record, Part::Kind kind, std::size_t sizeBytes) {
  if (left() < sizeBytes) {
    record.isTruncated = true;
    add(record, kind, left(), kind == Part::Kind::Id ? Flaw::HalfId : Flaw::EndsInRecord);
    return false;
  }
  const std::uint64_t value = number(sizeBytes);
  add(record, kind, sizeBytes).number = value;
  return true;
}

Record RecordWalk::header() {
  Record record;
  record.isHeader = true;
  const std::string_view header = encodingHeader(m_bytes[0]);
  add(record, Part::Kind::Code, 1, header.empty() ? Flaw::NoEncoding : Flaw::None);
  if (header.empty() && left() != 0) {
    add(record, Part::Kind::Rest, left());
  } else if (header.size() > 1 && left() != 0) {
    const std::string_view mark = header.substr(1);
    const std::size_t count = std::min(left(), mark.size());
    const auto* const there = m_bytes + m_at;
    const bool isMark = count == mark.size() && std::equal(mark.begin(), mark.end(), there, [](char a, std::uint8_t b) {
                          return static_cast<std::uint8_t>(a) == b;
                        });
    add(record, Part::Kind::Mark, count, isMark ? Flaw::None : Flaw::OtherMark);
  }
  return record;
}

Record RecordWalk::recordOf(const WireRecord& wire) {
  Record record;
  if (!addWhole(record, Part::Kind::Id, kIdBytes)) {
    return record;
  }
  addId(record, wire);
  if (wire.typeBytes != 0) {
    if (!addWhole(record, Part::Kind::Type, wire.typeBytes)) {
      return record;
    }
    Part& part = record.parts.back();
    part.flaw = wire.kind == WireRecord::Kind::OtherType ? Flaw::OtherType
                : part.number != wire.type               ? Flaw::TypeOutOfRange
                                                         : Flaw::None;
    part.number = wire.type;
    record.type = wire.type;
    record.hasType = true;
  }
  const std::size_t lengthBytes = wire.headBytes - kIdBytes - wire.typeBytes;
  if (lengthBytes == 0 || addWhole(record, Part::Kind::Length, lengthBytes)) {
    addValue(record, wire);
  }
  return record;
}

void RecordWalk::addId(Record& record, const WireRecord& wire) {
  record.id = wire.id;
  record.isKnown = record.hasType = wire.field.isKnown();
  record.type = record.dictionaryType = wire.field.type;
  Part& part = record.parts.back();
  part.number = 0;
  if (!record.isKnown) {
    part.flaw = Flaw::UnknownField;
  } else if (!isCarried(record.type)) {
    part.flaw = Flaw::NotCarried;
  } else if (wire.kind == WireRecord::Kind::Field) {
    std::size_t& last = m_lastRecords[wire.field.slot];
    if (last != 0) {
      part.flaw = Flaw::Repeated;
      record.earlier = last;
    } else {
      m_slots.push_back(wire.field.slot);
    }
    last = part.offset;
  }
}

void RecordWalk::addValue(Record& record, const WireRecord& wire) {
  if (wire.value == WireRecord::Value::Truncated) {
    record.isTruncated = true;
    add(record, Part::Kind::Value, left(), Flaw::EndsInValue);
  } else if (wire.valueBytes != 0 || wire.value != WireRecord::Value::NotCarried) {
    add(record, Part::Kind::Value, static_cast<std::size_t>(wire.valueBytes), flawOf(wire, m_bytes + m_at));
  } else {
    return;
  }
  record.parts.back().number = wire.valueBytes;
}

}  // namespace MD::tool
