#include "md/md_escape.h"

#include <cstddef>
#include <cstdint>

#include "utf8.h"

namespace MD {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

/// Whether a multi-byte character can control a terminal or change the displayed text.
bool isControl(std::uint32_t codePoint) noexcept {
  const auto isWithin = [codePoint](std::uint32_t first, std::uint32_t last) {
    return codePoint >= first && codePoint <= last;
  };
  return isWithin(0x80, 0x9f) || codePoint == 0x61c || isWithin(0x200e, 0x200f) || isWithin(0x2028, 0x202e) ||
         isWithin(0x2066, 0x2069);
}

void appendByte(std::uint8_t byte, std::string& out) {
  out += "\\x";
  out += kHexDigits[byte >> 4];
  out += kHexDigits[byte & 15];
}

void appendCodePoint(std::uint32_t codePoint, std::string& out) {
  out += "\\u{";
  unsigned shift = 20;
  while (codePoint >> shift == 0) {
    shift -= 4;
  }
  for (;; shift -= 4) {
    out += kHexDigits[codePoint >> shift & 15];
    if (shift == 0) {
      break;
    }
  }
  out += '}';
}

}  // namespace

void appendEscaped(std::string_view text, std::string& out) {
  while (!text.empty()) {
    const auto byte = static_cast<std::uint8_t>(text[0]);
    std::size_t lengthBytes = 1;
    if (byte >= 0x80) {
      const detail::Character character = detail::longCharacter(text);
      lengthBytes = character.lengthBytes != 0 ? character.lengthBytes : 1;
      if (character.lengthBytes == 0) {
        appendByte(byte, out);
      } else if (isControl(character.codePoint)) {
        appendCodePoint(character.codePoint, out);
      } else {
        out.append(text, 0, lengthBytes);
      }
    } else if (byte < 0x20 || byte == 0x7f) {
      appendByte(byte, out);
    } else {
      out.append(byte == '\\' ? 2 : 1, text[0]);
    }
    text.remove_prefix(lengthBytes);
  }
}

}  // namespace MD
