#include "messages/record_walk.h"

#include <cstring>

#include <algorithm>
#include <string_view>

#include "base/encodings.h"
#include "md/md_datatypes.h"
#include "src/md_typemap.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr std::size_t kLongestView = 65535;

/// The number of bytes of a type without a length word: those that `IterMap` sets aside.
std::size_t widthOf(std::uint8_t type) noexcept {
  return type < detail::kIterMapWidths.size() ? detail::kIterMapWidths[type] : 0;
}

}  // namespace

std::size_t fixedSizeOf(std::uint8_t type) noexcept { return isCarried(type) ? widthOf(type) : 0; }

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

bool RecordWalk::next(Record& record) {
  record = {};
  if (left() == 0) {
    return false;
  }
  if (m_at == 0) {
    readHeader(record);
    return true;
  }
  switch (m_bytes[0]) {
    case ENCODINGS::MINT:
      readMInt(record);
      break;
    case ENCODINGS::ITERMAP:
      readIterMap(record);
      break;
    default:
      readMsgT(record);
  }
  return true;
}

std::uint64_t RecordWalk::number(std::size_t sizeBytes, bool isBigEndian) const noexcept {
  return numberIn(m_bytes + m_at, sizeBytes, isBigEndian);
}

Part& RecordWalk::add(Record& record, Part::Kind kind, std::size_t sizeBytes, Flaw flaw) {
  record.parts.push_back({kind, flaw, m_at, sizeBytes, 0});
  m_at += sizeBytes;
  return record.parts.back();
}

/// A part of which some bytes, or all, are missing at the end of the message.
void RecordWalk::cut(Record& record, Part::Kind kind, Flaw flaw) {
  record.isTruncated = true;
  add(record, kind, left(), flaw);
}

void RecordWalk::readHeader(Record& record) {
  record.isHeader = true;
  const bool isKnown = encodingName(m_bytes[0]) != nullptr;
  add(record, Part::Kind::Code, 1, isKnown ? Flaw::None : Flaw::NoEncoding);
  if (!isKnown && left() != 0) {
    add(record, Part::Kind::Rest, left());
  }
  if (m_bytes[0] == ENCODINGS::MSGT && left() != 0) {
    constexpr std::string_view kMark = "QR1";
    const std::size_t count = std::min(left(), kMark.size());
    const bool isMark = count == kMark.size() && std::memcmp(m_bytes + m_at, kMark.data(), count) == 0;
    add(record, Part::Kind::Mark, count, isMark ? Flaw::None : Flaw::OtherMark);
  }
}

void RecordWalk::readMInt(Record& record) {
  if (readId(record, false)) {
    readLengthAndValue(record, 1, false);
  }
}

void RecordWalk::readIterMap(Record& record) {
  if (!readId(record, false) || !record.isKnown) {
    return;
  }
  if (record.type == DATATYPES::STRING) {
    readLengthAndValue(record, 2, false);
  } else if (record.type == DATATYPES::BUFFER) {
    readLengthAndValue(record, 4, false);
  } else if (const std::size_t width = widthOf(record.type); width != 0) {
    readValue(record, width);
  }
}

void RecordWalk::readMsgT(Record& record) {
  constexpr std::size_t kTypeAt = 3;
  const std::uint8_t* const typeBehind = left() > kTypeAt ? m_bytes + m_at + kTypeAt : nullptr;
  if (!readId(record, true, typeBehind)) {
    return;
  }
  if (left() < 2) {
    cut(record, Part::Kind::Type, Flaw::EndsInRecord);
    return;
  }
  const std::uint64_t word = number(2, true);
  const auto type = static_cast<std::uint8_t>(word & 0xff);
  const Flaw flaw = record.isKnown && type != record.dictionaryType ? Flaw::OtherType
                    : word > 0xff                                   ? Flaw::TypeOutOfRange
                                                                    : Flaw::None;
  add(record, Part::Kind::Type, 2, flaw).number = type;
  record.type = type;
  record.hasType = true;
  readLengthAndValue(record, 4, true);
}

/// The id, or what is there of it. @return false when the message ends
/// @param typeBehind  the type code in the record, null where there is none: with another than the dictionary's the
///                    record is none of the field's
bool RecordWalk::readId(Record& record, bool isBigEndian, const std::uint8_t* typeBehind) {
  if (left() < 2) {
    cut(record, Part::Kind::Id, Flaw::HalfId);
    return false;
  }
  record.id = static_cast<std::uint16_t>(number(2, isBigEndian));
  const FIELDS::packed_rec field = m_map.packed(record.id);
  record.isKnown = record.hasType = field.isKnown();
  record.type = record.dictionaryType = field.type;
  Part& part = add(record, Part::Kind::Id, 2);
  if (!record.isKnown) {
    part.flaw = Flaw::UnknownField;
  } else if (!isCarried(record.type)) {
    part.flaw = Flaw::NotCarried;
  } else if (typeBehind == nullptr || *typeBehind == record.type) {
    std::size_t& last = m_lastRecords[field.slot];
    if (last != 0) {
      part.flaw = Flaw::Repeated;
      record.earlier = last;
    } else {
      m_slots.push_back(field.slot);
    }
    last = part.offset;
  }
  return true;
}

/// @param wordBytes  of the length
void RecordWalk::readLengthAndValue(Record& record, std::size_t wordBytes, bool isBigEndian) {
  if (left() < wordBytes) {
    cut(record, Part::Kind::Length, Flaw::EndsInRecord);
    return;
  }
  const std::uint64_t length = number(wordBytes, isBigEndian);
  add(record, Part::Kind::Length, wordBytes).number = length;
  readValue(record, length);
}

void RecordWalk::readValue(Record& record, std::uint64_t sizeBytes) {
  if (sizeBytes > left()) {
    cut(record, Part::Kind::Value, Flaw::EndsInValue);
  } else if (sizeBytes != 0 || (record.hasType && isCarried(record.type))) {
    const auto size = static_cast<std::size_t>(sizeBytes);
    const Flaw flaw = flawOfValue(record, size);
    add(record, Part::Kind::Value, size, flaw);
    record.isReadable = record.isKnown && record.type == record.dictionaryType && isCarried(record.type) &&
                        (flaw == Flaw::None || flaw == Flaw::NoTerminator || flaw == Flaw::OtherTerminator);
  } else {
    return;
  }
  record.parts.back().number = sizeBytes;
}

/// What is wrong with a value of this size, all of which is there.
Flaw RecordWalk::flawOfValue(const Record& record, std::size_t sizeBytes) const noexcept {
  if (!record.hasType || !isCarried(record.type)) {
    return Flaw::None;
  }
  const std::size_t width = fixedSizeOf(record.type);
  const bool isShortInt = record.type == DATATYPES::INT && m_bytes[0] == ENCODINGS::MINT;
  if (isShortInt ? sizeBytes != 1 && sizeBytes != 2 && sizeBytes != 4 : width != 0 && sizeBytes != width) {
    return Flaw::WrongSize;
  }
  const std::size_t longest = record.type == DATATYPES::STRING ? kLongestView + 1 : kLongestView;
  if (sizeBytes > longest) {
    return Flaw::TooLong;
  }
  if (record.type == DATATYPES::STRING) {
    return sizeBytes == 0                       ? Flaw::NoTerminator
           : m_bytes[m_at + sizeBytes - 1] != 0 ? Flaw::OtherTerminator
                                                : Flaw::None;
  }
  return Flaw::None;
}

}  // namespace MD::tool
