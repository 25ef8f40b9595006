#include "base/hex.h"

#include <cstring>

#include <array>

namespace MD::tool {
namespace {

using Pair = std::array<char, 2>;

/// The two digits of each byte, which go out as one word.
constexpr std::array<Pair, 256> kPairs = [] {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<Pair, 256> pairs{};
  for (std::size_t byte = 0; byte != pairs.size(); ++byte) {
    pairs[byte] = {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return pairs;
}();

}  // namespace

void appendHex(const std::uint8_t* bytes, std::size_t sizeBytes, std::string& out) {
  const std::size_t start = out.size();
  out.resize(start + 2 * sizeBytes);
  char* to = out.data() + start;
  for (std::size_t i = 0; i != sizeBytes; ++i, to += sizeof(Pair)) {
    std::memcpy(to, kPairs[bytes[i]].data(), sizeof(Pair));
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
