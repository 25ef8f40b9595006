#include "message_builder.h"

#include <limits>
#include <string>

#include "value_text.h"

namespace MD::tool {
namespace {

constexpr std::size_t kLongestView = std::numeric_limits<std::uint16_t>::max();

std::uint8_t typeOf(std::uint16_t id) { return MD_FieldMap::instance().packed(id).type; }

}  // namespace

const char* encodingName(const MD_Message& message) {
  switch (message.getPB()) {
    case 1:
      return "IterMap";
    case 6:
      return "mInt";
    case 70:
      return "MsgT";
    default:
      return "?";
  }
}

LineError tooLong(const MD_Message& message, std::uint16_t id, std::size_t sizeBytes) {
  return LineError(std::to_string(sizeBytes) + " bytes are too long for a " + typeName(typeOf(id)) + " of " +
                   encodingName(message));
}

template <class T>
void addValue(MD_Message& message, std::uint16_t id, T value) {
  if (!message.add(id, value)) {
    throw LineError(std::string(encodingName(message)) + " does not take this value");
  }
}

template void addValue(MD_Message&, std::uint16_t, char);
template void addValue(MD_Message&, std::uint16_t, std::int32_t);
template void addValue(MD_Message&, std::uint16_t, std::int64_t);
template void addValue(MD_Message&, std::uint16_t, float);
template void addValue(MD_Message&, std::uint16_t, double);
template void addValue(MD_Message&, std::uint16_t, MD_DateTime);
template void addValue(MD_Message&, std::uint16_t, MD_EpochNS);

void addString(MD_Message& message, std::uint16_t id, std::string_view text) {
  if (text.size() > kLongestView || !message.add(id, MD_Message::String(text)) || !isStoredWhole(message, id)) {
    throw tooLong(message, id, text.size());
  }
}

void addBuffer(MD_Message& message, std::uint16_t id, const std::uint8_t* bytes, std::size_t sizeBytes) {
  if (sizeBytes > kLongestView || !message.add(id, MD_Message::Buffer(bytes, static_cast<std::uint16_t>(sizeBytes)))) {
    throw tooLong(message, id, sizeBytes);
  }
}

void addInt(MD_Message& message, std::uint16_t id, std::int32_t value, std::uint64_t wantedBytes) {
  addValue(message, id, value);
  if (storedBytes(message, id) == wantedBytes) {
    return;
  }
  // A small integer is stored wide when it replaces one that needed the width.
  constexpr std::int32_t kWide = -1;
  message.eraseImpl(id);
  addValue(message, id, kWide);
  if (storedBytes(message, id) != wantedBytes || !message.update(id, value)) {
    throw LineError(std::string(encodingName(message)) + " does not store " + std::to_string(value) + " in " +
                    std::to_string(wantedBytes) + " bytes");
  }
}

std::uint32_t storedBytes(const MD_Message& message, std::uint16_t id) {
  std::uint8_t type = 0;
  std::uint32_t sizeBytes = 0;
  message.fieldData(id, type, sizeBytes);
  return sizeBytes;
}

bool isStoredWhole(const MD_Message& message, std::uint16_t id) {
  MD_Message::String text;
  if (typeOf(id) != DATATYPES::STRING || !message.get(id, text) || text.length != kLongestView) {
    return true;
  }
  return storedBytes(message, id) == kLongestView + 1;
}

}  // namespace MD::tool
