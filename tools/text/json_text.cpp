#include "text/json_text.h"

#include <cstddef>
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

void appendCodeUnit(std::uint16_t codeUnit, std::string& out) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(codeUnit >> 8), static_cast<std::uint8_t>(codeUnit)};
  out += "\\u";
  appendHex(bytes, sizeof bytes, out);
}

/// A control character of several bytes; no bytes where there is none.
struct Control {
  std::uint16_t codeUnit;
  std::size_t lengthBytes;
};

/// The control that UTF-8 text begins with: C1 (U+0080 to U+009F), or one of those that change the direction of text
/// (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069) or end lines (U+2028, U+2029).
Control controlAt(std::string_view text) noexcept {
  const auto byteAt = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t lead = byteAt(0);
  if (lead == 0xc2 && byteAt(1) <= 0x9f) {
    return {byteAt(1), 2};
  }
  if (lead == 0xd8 && byteAt(1) == 0x9c) {
    return {0x061c, 2};
  }
  if (lead != 0xe2 || (byteAt(1) != 0x80 && byteAt(1) != 0x81)) {
    return {0, 0};
  }
  const auto low = static_cast<std::uint16_t>((byteAt(1) & 1) << 6 | (byteAt(2) & 0x3f));
  const bool isControl = low == 0x0e || low == 0x0f || (low >= 0x28 && low <= 0x2e) || (low >= 0x66 && low <= 0x69);
  return isControl ? Control{static_cast<std::uint16_t>(0x2000 | low), 3} : Control{0, 0};
}

}  // namespace

bool appendJsonString(std::string_view text, std::string& out) {
  bool needsEscape = false;
  bool isAscii = true;
  for (const char c : text) {
    const auto byte = static_cast<std::uint8_t>(c);
    needsEscape |= byte < 0x20 || byte == 0x7f || c == '"' || c == '\\';
    isAscii &= byte < 0x80;
  }
  if (!isAscii && !isUtf8(text)) {
    return false;
  }
  out += '"';
  if (needsEscape || !isAscii) {
    std::size_t done = 0;
    for (std::size_t i = 0; i != text.size();) {
      const auto byte = static_cast<std::uint8_t>(text[i]);
      const Control control = byte < 0x80 ? Control{0, 0} : controlAt(text.substr(i));
      if (control.lengthBytes == 0 && byte >= 0x20 && byte != 0x7f && byte != '"' && byte != '\\') {
        ++i;
        continue;
      }
      out.append(text, done, i - done);
      if (control.lengthBytes != 0) {
        appendCodeUnit(control.codeUnit, out);
        i += control.lengthBytes;
      } else {
        appendEscaped(text[i++], out);
      }
      done = i;
    }
    out += text.substr(done);
  } else {
    out += text;
  }
  out += '"';
  return true;
}

}  // namespace MD::tool
