// A look at a message of received bytes before it is shown: every field is tried, and what cannot be read is noted.
#ifndef MDMSG_RECEIVED_H
#define MDMSG_RECEIVED_H

#include <cstdint>

#include <memory>
#include <vector>

#include "base/diagnostics.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "transport/message_source.h"

namespace MD::tool {

/// The text for bytes with an unknown encoding byte.
LineError notOurs(const InputMessage& input);

/// @throws LineError if no message can be built: the encoding byte is unknown, or there are too many bytes
inline void requireEncoding(const InputMessage& input) {
  if (!hasEncodingCode(input)) {
    throw notOurs(input);
  }
}

/// Makes a message of received bytes.
/// @throws LineError if the first byte is not a known encoding id
std::unique_ptr<MD_Message> receive(const InputMessage& input);

/// Notes what the library dropped of the bytes that it made `message` of, and why.
void noteLeftOut(const MD_Message& message, const InputMessage& input, Reporter& reporter);

/// Lists the fields of a message in `ids`, each once: a repeated one is noted and listed where its last record, the one
/// that counts, is.
/// @return whether there was no repeated one
bool listFields(const MD_Message& message, const FieldNames& names, Reporter& reporter,
                std::vector<std::uint16_t>& ids);

/// Whether the field can be read as the type that the dictionary gives it.
bool isReadable(const MD_Message& message, std::uint16_t id, std::uint8_t type);

/// The bytes that are there of a field's value.
struct StoredBytes {
  const std::uint8_t* data = nullptr;
  std::uint32_t sizeBytes = 0;
};
StoredBytes valueBytes(const MD_Message& message, std::uint16_t id);

/// Notes why a field cannot be read.
void noteUnreadable(const MD_Message& message, std::uint16_t id, const FieldNames& names, Reporter& reporter);

}  // namespace MD::tool

#endif
