#include "text/json_text.h"

#include <cstdint>

#include "base/hex.h"
#include "base/utf8.h"

namespace MD::tool {
namespace {

void appendEscaped(char c, std::string& out) {
  const auto byte = static_cast<std::uint8_t>(c);
  out += '\\';
  switch (c) {
    case '"':
    case '\\':
      out += c;
      break;
    case '\n':
      out += 'n';
      break;
    case '\r':
      out += 'r';
      break;
    case '\t':
      out += 't';
      break;
    default:
      out += "u00";
      appendHex(&byte, 1, out);
  }
}

}  // namespace

bool appendJsonString(std::string_view text, std::string& out) {
  bool needsEscape = false;
  bool isAscii = true;
  for (const char c : text) {
    const auto byte = static_cast<std::uint8_t>(c);
    needsEscape |= byte < 0x20 || c == '"' || c == '\\';
    isAscii &= byte < 0x80;
  }
  if (!isAscii && !isUtf8(text)) {
    return false;
  }
  out += '"';
  if (needsEscape) {
    for (const char c : text) {
      if (static_cast<std::uint8_t>(c) < 0x20 || c == '"' || c == '\\') {
        appendEscaped(c, out);
      } else {
        out += c;
      }
    }
  } else {
    out += text;
  }
  out += '"';
  return true;
}

}  // namespace MD::tool
