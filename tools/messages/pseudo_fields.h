// What is known of a message besides its fields: when and where it was captured, and where it is in the input. It goes
// by names that begin with "@".
#ifndef MDMSG_PSEUDO_FIELDS_H
#define MDMSG_PSEUDO_FIELDS_H

#include <cstdint>

#include <optional>
#include <string>
#include <string_view>

#include "text/time_text.h"
#include "transport/message_source.h"

namespace MD::tool {

enum class PseudoField : std::uint8_t { Time, Source, Destination, Packet, File, Size, Encoding };

/// Whether a text is meant as the name of one.
inline bool isPseudoName(std::string_view name) noexcept { return !name.empty() && name[0] == '@'; }

/// "@time", "@source", "@destination", "@packet", "@file", "@size" or "@encoding".
/// @throws LineError for any other text
PseudoField parsePseudoField(std::string_view name);
/// The name, with its "@".
const char* pseudoName(PseudoField field) noexcept;

/// Whether a message of this input has it: the first three are known of captures and received datagrams alone, an
/// encoding of messages that begin with the byte of one.
bool hasPseudoField(const InputMessage& input, PseudoField field) noexcept;

/// The value of Packet, the number of the packet, message or line, or of Size, in bytes.
std::uint64_t pseudoNumber(const InputMessage& input, PseudoField field) noexcept;

/// Whether the value is a number: that of Packet and Size is, and so is that of Time in some formats.
bool isPseudoNumber(PseudoField field, const TimeFormat& format) noexcept;

/// Appends the value; nothing where the message does not have it.
void appendPseudoField(const InputMessage& input, PseudoField field, const TimeFormat& format, std::string& out);

}  // namespace MD::tool

#endif
