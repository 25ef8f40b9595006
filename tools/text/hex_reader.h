// Bytes out of hex text.
#ifndef MDMSG_HEX_READER_H
#define MDMSG_HEX_READER_H

#include <cstdint>

#include <string_view>
#include <vector>

namespace MD::tool {

enum class Blanks { Refused, BetweenBytes };

/// Replaces `out` by the bytes that `text` spells in upper- or lower-case digits.
/// @param spaces  whether spaces and tabs are allowed between and around the bytes
/// @throws LineError with the column, counted from 1
void parseHex(std::string_view text, Blanks blanks, std::vector<std::uint8_t>& out);

}  // namespace MD::tool

#endif
