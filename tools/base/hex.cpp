#include "base/hex.h"

namespace MD::tool {
void appendHex(const std::uint8_t* bytes, std::size_t sizeBytes, std::string& out) {
  constexpr char kText[] = "0123456789abcdef";
  const std::size_t start = out.size();
  out.resize(start + 2 * sizeBytes);
  char* to = &out[start];
  for (std::size_t i = 0; i != sizeBytes; ++i) {
    *to++ = kText[bytes[i] >> 4];
    *to++ = kText[bytes[i] & 15];
  }
}

std::string hexNumber(std::uint64_t number) {
  std::uint8_t bytes[sizeof number];
  for (std::size_t i = sizeof bytes; i-- != 0; number >>= 8) {
    bytes[i] = static_cast<std::uint8_t>(number);
  }
  std::string text = "0x";
  appendHex(bytes, sizeof bytes, text);
  return text;
}

}  // namespace MD::tool
