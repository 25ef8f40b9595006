// Bytes as hex text.
#ifndef MDMSG_HEX_H
#define MDMSG_HEX_H

#include <cstddef>
#include <cstdint>

#include <string>

namespace MD::tool {

/// Appends two lower-case digits a byte.
void appendHex(const std::uint8_t* bytes, std::size_t sizeBytes, std::string& out);

/// "0x" and 16 lower-case digits.
std::string hexNumber(std::uint64_t number);

}  // namespace MD::tool

#endif
