// Fills messages with values, and says why when a message does not take one.
#ifndef MDMSG_MESSAGE_BUILDER_H
#define MDMSG_MESSAGE_BUILDER_H

#include <cstddef>
#include <cstdint>

#include <string_view>

#include "base/diagnostics.h"
#include "md/md_message.h"

namespace MD::tool {

/// Each adds a field that `message` does not have. @throws LineError when the message does not take it
template <class T>
void addValue(MD_Message& message, std::uint16_t id, T value);
void addString(MD_Message& message, std::uint16_t id, std::string_view text);
void addBuffer(MD_Message& message, std::uint16_t id, const std::uint8_t* bytes, std::size_t sizeBytes);

/// Adds a string with another byte in the place of its NUL, which an update with a value of another type may leave.
void addStringEndingIn(MD_Message& message, std::uint16_t id, std::string_view text, std::uint8_t end);

/// Adds an integer so that it is stored in `storedBytes`, which need not be what an add takes.
void addInt(MD_Message& message, std::uint16_t id, std::int32_t value, std::uint64_t storedBytes);

/// The number of bytes that a present field's value is stored in.
std::uint32_t storedBytes(const MD_Message& message, std::uint16_t id);

/// Whether the bytes of a field just written contain its whole value. The length field of an `IterMap` cannot express
/// 65,535 characters: a message with such a string reads well and cannot be received.
bool isStoredWhole(const MD_Message& message, std::uint16_t id);

/// What to say about a value of `sizeBytes` that `message` does not take.
LineError tooLong(const MD_Message& message, std::uint16_t id, std::size_t sizeBytes);

}  // namespace MD::tool

#endif
