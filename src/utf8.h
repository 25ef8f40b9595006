// Which bytes are UTF-8.
#ifndef MD_SRC_UTF8_H
#define MD_SRC_UTF8_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <string_view>

namespace MD::detail {

/// A character of UTF-8.
struct Character {
  std::uint32_t codePoint;
  std::size_t lengthBytes;  ///< 0: no character starts here
};

/// The character of several bytes at the start of `text`: neither overlong, nor a surrogate, nor above U+10FFFF.
inline Character longCharacter(std::string_view text) noexcept {
  const auto lead = static_cast<std::uint8_t>(text[0]);
  const std::size_t length = lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
  if (length == 0 || length > text.size()) {
    return {0, 0};
  }
  std::uint32_t codePoint = lead & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<std::uint8_t>(text[i]);
    if ((byte & 0xc0) != 0x80) {
      return {0, 0};
    }
    codePoint = codePoint << 6 | (byte & 0x3fU);
  }
  constexpr std::uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  if (codePoint < kLeast[length] || codePoint > 0x10ffff || (codePoint >= 0xd800 && codePoint <= 0xdfff)) {
    return {0, 0};
  }
  return {codePoint, length};
}

/// Whether all bytes are below 0x80.
inline bool isAscii(std::string_view text) noexcept {
  const char* const first = text.data();
  const std::size_t size = text.size();
  const auto word = [first](std::size_t position) {
    std::uint64_t bytes;
    std::memcpy(&bytes, first + position, sizeof bytes);
    return bytes;
  };
  const auto half = [first](std::size_t position) {
    std::uint32_t bytes;
    std::memcpy(&bytes, first + position, sizeof bytes);
    return bytes;
  };
  // Loads that overlap, instead of bytes one by one.
  std::uint64_t all = 0;
  if (size >= 8) {
    for (std::size_t position = 0; position < size - 8; position += 8) {
      all |= word(position);
    }
    all |= word(size - 8);
  } else if (size >= 4) {
    all = half(0) | half(size - 4);
  } else if (size != 0) {
    all = static_cast<std::uint8_t>(first[0] | first[size / 2] | first[size - 1]);
  }
  return (all & 0x8080808080808080) == 0;
}

/// The position of the first byte that is not part of valid UTF-8, the length of `text` when there is none.
inline std::size_t validUtf8Bytes(std::string_view text) noexcept {
  if (isAscii(text)) {  // as most text is
    return text.size();
  }
  std::size_t position = 0;
  while (position < text.size()) {
    std::size_t lengthBytes = 1;
    if (static_cast<std::uint8_t>(text[position]) >= 0x80) {
      lengthBytes = longCharacter(text.substr(position)).lengthBytes;
      if (lengthBytes == 0) {
        break;
      }
    }
    position += lengthBytes;
  }
  return position;
}

}  // namespace MD::detail

#endif
