// Bytes as hex text.
#ifndef MDMSG_HEX_H
#define MDMSG_HEX_H

#include <cstddef>
#include <cstdint>

#include <string>
#include <string_view>
#include <vector>

namespace MD::tool {

/// Appends two lower-case digits a byte.
void appendHex(const std::uint8_t* bytes, std::size_t sizeBytes, std::string& out);

enum class Blanks { Refused, BetweenBytes };

/// Replaces `out` by the bytes that `text` spells in upper- or lower-case digits.
/// @param blanks  whether blanks and tabs may stand between bytes, and around all of them
/// @throws LineError with the column, counted from 1
void parseHex(std::string_view text, Blanks blanks, std::vector<std::uint8_t>& out);

}  // namespace MD::tool

#endif
