#include "messages/json_writer.h"

#include <cmath>
#include <cstring>

#include <algorithm>
#include <limits>
#include <type_traits>

#include "base/hex.h"
#include "messages/message_builder.h"
#include "messages/received.h"
#include "text/json_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

void appendMember(const char* name, const void* bytes, std::size_t sizeBytes, std::string& out) {
  out.append("{\"").append(name).append("\":\"");
  appendHex(static_cast<const std::uint8_t*>(bytes), sizeBytes, out);
  out += "\"}";
}

void appendValue(char value, std::string& out) {
  if (!appendJsonString({&value, 1}, out)) {
    appendMember("hex", &value, 1, out);
  }
}

template <class T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
void appendValue(T value, std::string& out) {
  appendWhole(value, out);
}

template <class T>
auto bitsOf(T value) {
  std::conditional_t<sizeof(T) == sizeof(std::uint32_t), std::uint32_t, std::uint64_t> bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

template <class T, std::enable_if_t<std::is_floating_point_v<T>, int> = 0>
void appendValue(T value, std::string& out) {
  if (std::isfinite(value)) {
    appendReal(value, out);
    return;
  }
  auto bits = bitsOf(value);
  for (const char* const name : {"NaN", "Infinity", "-Infinity"}) {
    T named{};
    parseRealName(name, named);
    if (bitsOf(named) == bits) {
      out.append("\"").append(name).append("\"");
      return;
    }
  }
  std::uint8_t bytes[sizeof bits];
  for (std::size_t i = sizeof bits; i-- != 0; bits = static_cast<decltype(bits)>(bits >> 8)) {
    bytes[i] = static_cast<std::uint8_t>(bits);
  }
  appendMember("bits", bytes, sizeof bytes, out);
}

void appendValue(MD_Message::String value, std::string& out) {
  if (!appendJsonString(value, out)) {
    appendMember("hex", value.data, value.length, out);
  }
}

void appendValue(MD_Message::Buffer value, std::string& out) { appendMember("hex", value.data, value.length, out); }

void appendValue(MD_DateTime value, std::string& out) {
  out += "{\"date\":";
  appendWhole(std::int32_t{value.date()}, out);
  out += ",\"time\":";
  appendWhole(std::int32_t{value.time()}, out);
  out += ",\"offset\":";
  appendWhole(std::int16_t{value.exch_gmt_offset()}, out);
  if (MD_DateTime(value.date(), value.time(), value.exch_gmt_offset()) != value) {
    char bytes[sizeof(std::uint64_t)];
    MD_DateTime::serialize(bytes, value);
    std::uint64_t packed = 0;
    std::memcpy(&packed, bytes, sizeof packed);
    out += ",\"packed\":";
    appendWhole(packed, out);
  }
  out += '}';
}

void appendValue(MD_EpochNS value, std::string& out) { appendWhole(value.get(), out); }

void appendUnreadableValue(const MD_Message& message, std::uint16_t id, std::string& out) {
  const StoredBytes there = valueBytes(message, id);
  appendMember("unreadable", there.data, there.sizeBytes, out);
}

}  // namespace

bool appendJsonValue(const MD_Message& message, std::uint16_t id, std::uint8_t type, std::string& out) {
  switch (type) {
#define MD_CASE(T, name, code)    \
  case code: {                    \
    T value{};                    \
    if (message.get(id, value)) { \
      appendValue(value, out);    \
      return true;                \
    }                             \
    break;                        \
  }
    MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
    default:
      break;
  }
  appendUnreadableValue(message, id, out);
  return false;
}

void JsonWriter::append(const MD_Message& message, std::string& out, const InputMessage* input) {
  bool isWhole = listFields(message, m_names, m_reporter, m_ids);
  if (m_selection != nullptr && m_selection->hasFields()) {
    m_selection->keepIncluded(m_ids);
    isWhole = false;
  }
  if (m_copy == nullptr || m_copy->getPB() != message.getPB()) {
    m_copy = message.createEmpty();
  }
  m_copy->clearImpl();
  char separator = '{';
  if (input != nullptr && m_selection != nullptr) {
    appendPseudoFields(*input, separator, out);
  }
  for (const std::uint16_t id : m_ids) {
    out += separator;
    separator = ',';
    out += m_names.jsonKey(id);
    if (!appendFieldOfType(message, id, m_names.type(id), out)) {
      appendUnreadable(message, id, out);
      isWhole = false;
    }
  }
  out += separator == '{' ? "{}" : "}";
  if (isWhole) {
    noteOtherBytes(message);
  }
}

bool JsonWriter::appendFieldOfType(const MD_Message& message, std::uint16_t id, std::uint8_t type, std::string& out) {
  switch (type) {
#define MD_CASE(T, name, code) \
  case code:                   \
    return appendField<T>(message, id, out);
    MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
    default:
      return false;
  }
}

template <class T>
bool JsonWriter::appendField(const MD_Message& message, std::uint16_t id, std::string& out) {
  T value{};
  if (!message.get(id, value)) {
    return false;
  }
  m_copy->add(id, value);
  if constexpr (std::is_same_v<T, std::int32_t>) {
    if (appendOddInt(message, id, value, out)) {
      return true;
    }
  }
  if constexpr (std::is_same_v<T, MD_Message::String>) {
    if (appendOddString(message, id, value, out)) {
      return true;
    }
  }
  if constexpr (std::is_same_v<T, MD_EpochNS>) {
    if (m_time.isNumber()) {
      m_time.append(value.get(), out);
    } else {
      std::string text;
      m_time.append(value.get(), text);
      appendJsonString(text, out);
    }
    return true;
  }
  appendValue(value, out);
  return true;
}

void JsonWriter::appendPseudoFields(const InputMessage& input, char& separator, std::string& out) const {
  for (const Column& column : m_selection->columns()) {
    if (!column.pseudo || !hasPseudoField(input, *column.pseudo)) {
      continue;
    }
    out += separator;
    separator = ',';
    out.append("\"").append(pseudoName(*column.pseudo)).append("\":");
    std::string value;
    appendPseudoField(input, *column.pseudo, m_time, value);
    if (isPseudoNumber(*column.pseudo, m_time)) {
      out += value;
    } else if (!appendJsonString(value, out)) {
      appendMember("hex", value.data(), value.size(), out);
    }
  }
}

/// An integer that was updated in place may be stored in another width than an added one. Writes the form for this.
/// @return false, and nothing done, when it is stored as an added one
bool JsonWriter::appendOddInt(const MD_Message& message, std::uint16_t id, std::int32_t value, std::string& out) {
  const std::uint32_t bytes = storedBytes(message, id);
  if (message.getPB() != ENCODINGS::MINT || storedBytes(*m_copy, id) == bytes) {
    return false;
  }
  m_copy->eraseImpl(id);
  addInt(*m_copy, id, value, bytes);
  out += "{\"value\":";
  appendWhole(value, out);
  out += ",\"bytes\":";
  appendWhole(std::uint64_t{bytes}, out);
  out += '}';
  return true;
}

/// The same for a string of `mInt` that such a change left without the NUL at its end.
bool JsonWriter::appendOddString(const MD_Message& message, std::uint16_t id, MD_Message::String value,
                                 std::string& out) {
  if (message.getPB() != ENCODINGS::MINT) {
    return false;
  }
  const StoredBytes there = valueBytes(message, id);
  if (there.sizeBytes != value.length + 1U || there.data[value.length] == 0) {
    return false;
  }
  m_copy->eraseImpl(id);
  addStringEndingIn(*m_copy, id, value, there.data[value.length]);
  out += "{\"hex\":\"";
  appendHex(there.data, value.length, out);
  out += "\",\"end\":\"";
  appendHex(there.data + value.length, 1, out);
  out += "\"}";
  return true;
}

void JsonWriter::appendUnreadable(const MD_Message& message, std::uint16_t id, std::string& out) {
  appendUnreadableValue(message, id, out);
  noteUnreadable(message, id, m_names, m_reporter);
}

/// Notes when the values do not give the message's bytes back: it holds something that no add writes.
void JsonWriter::noteOtherBytes(const MD_Message& message) {
  const std::uint32_t sizeBytes = message.getSizeImpl();
  const std::uint8_t* const received = message.getBinary();
  const std::uint8_t* const copied = m_copy->getBinary();
  if (sizeBytes == m_copy->getSizeImpl() && std::memcmp(received, copied, sizeBytes) == 0) {
    return;
  }
  const auto difference = std::mismatch(received, received + sizeBytes, copied, copied + m_copy->getSizeImpl()).first;
  const auto isBefore = [&](std::uint16_t id) {
    const StoredBytes there = valueBytes(message, id);
    return there.data + there.sizeBytes <= difference;
  };
  const auto field = std::find_if_not(m_ids.begin(), m_ids.end(), isBefore);
  m_reporter.note(ReportKind::OtherBytes, field != m_ids.end() ? m_names.label(*field) : std::string(),
                  "encode writes other bytes than these, from byte " + std::to_string(difference - received) + " on");
}

}  // namespace MD::tool
