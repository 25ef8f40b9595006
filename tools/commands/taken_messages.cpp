#include "commands/taken_messages.h"

#include <cstdint>

#include "base/encodings.h"

namespace MD::tool {
std::unique_ptr<MD_Message> createMessage(const std::string& encoding) {
  auto message =
      encoding == "preferred" ? MD_Message::createPreferred(true) : MD_Message::createFromPB(encodingCode(encoding));
  if (message == nullptr) {
    throw UsageError("there is no encoding for " + inQuotes(encoding));
  }
  return message;
}

bool takesBytes(Selection& selection, const InputMessage& input) {
  if (!selection.hasConditions()) {
    return selection.takesUnreadable();
  }
  const auto message = MD_Message::createFromBytes(input.data, static_cast<std::uint32_t>(input.sizeBytes));
  return message != nullptr && selection.takes(*message);
}

}  // namespace MD::tool
