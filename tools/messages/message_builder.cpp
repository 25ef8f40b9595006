#include "messages/message_builder.h"

#include <limits>
#include <string>
#include <vector>

#include "base/encodings.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr std::size_t kLongestView = std::numeric_limits<std::uint16_t>::max();

/// Replaces a value by other bytes of the same length. Only `mInt` lets a value of another type do that.
bool overwrite(MD_Message& message, std::uint16_t id, const std::uint8_t* bytes, std::size_t sizeBytes) {
  return message.getPB() == ENCODINGS::MINT && storedBytes(message, id) == sizeBytes &&
         message.update(id, MD_Message::Buffer(bytes, static_cast<std::uint16_t>(sizeBytes)));
}

std::uint8_t typeOf(std::uint16_t id) { return MD_FieldMap::instance().packed(id).type; }

}  // namespace

LineError tooLong(const MD_Message& message, std::uint16_t id, std::size_t sizeBytes) {
  return LineError(std::to_string(sizeBytes) + " bytes are too long for a " + typeName(typeOf(id)) + " of " +
                   encodingName(message.getPB()));
}

template <class T>
void addValue(MD_Message& message, std::uint16_t id, T value) {
  if (!message.add(id, value)) {
    throw LineError(std::string(encodingName(message.getPB())) + " does not take this value");
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

void addStringEndingIn(MD_Message& message, std::uint16_t id, std::string_view text, std::uint8_t end) {
  addString(message, id, text);
  std::vector<std::uint8_t> bytes(text.begin(), text.end());
  bytes.push_back(end);
  if (!overwrite(message, id, bytes.data(), bytes.size())) {
    throw LineError(std::string(encodingName(message.getPB())) +
                    " does not store a string that ends in another byte than NUL");
  }
}

void addInt(MD_Message& message, std::uint16_t id, std::int32_t value, std::uint64_t wantedBytes) {
  addValue(message, id, value);
  if (storedBytes(message, id) == wantedBytes) {
    return;
  }
  // A value that takes this width, and then the bytes of the one that would take another.
  message.eraseImpl(id);
  addValue(message, id, wantedBytes == 1 ? std::int32_t{0} : wantedBytes == 2 ? std::int32_t{128} : std::int32_t{-1});
  const auto bits = static_cast<std::uint32_t>(value);
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8),
                                static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 24)};
  std::int32_t stored = 0;
  if (wantedBytes > sizeof bytes || !overwrite(message, id, bytes, static_cast<std::size_t>(wantedBytes)) ||
      !message.get(id, stored) || stored != value) {
    throw LineError(std::string(encodingName(message.getPB())) + " does not store " + std::to_string(value) + " in " +
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
