// The properties of received bytes.
#ifndef MD_FUZZ_RECEIVED_MESSAGE_H
#define MD_FUZZ_RECEIVED_MESSAGE_H

#include <cstddef>
#include <cstdint>

#include <map>
#include <memory>
#include <string>

#include "md/md_message.h"
#include "support/messages.h"

namespace MD::fuzz {

constexpr std::uint8_t kEncodings[] = {1, 6, 70};

/// The readable fields of a message, as the types that the dictionary gives them. `isWhole` is whether those are all
/// that it lists.
struct Values {
  std::map<std::uint16_t, std::string> raw;
  bool isWhole = true;
};
Values valuesOf(const MD_Message& message);

/// A message of bytes from a heap block of exactly their length, gone afterwards, in a buffer that held other bytes.
std::unique_ptr<MD_Message> receive(std::uint8_t code, const test::Bytes& bytes);

/// Parses the bytes as encoding `code` and checks that
/// - the message equals that of the reference model: bytes, ids, every read of every type, text, diagnostics;
/// - views are inside the message;
/// - the price layout is the plain one where there is no price;
/// - a clone and what it is moved to are the same;
/// - its bytes parsed again are the same message, and nothing is reported;
/// - a copy into each encoding holds every value that can be read and fits, and nothing else; so do the copy's bytes
///   parsed again, and a copy of it back;
/// - no assertion fails if every field can be read.
void checkReceived(std::uint8_t code, const test::Bytes& bytes);

}  // namespace MD::fuzz

#endif
