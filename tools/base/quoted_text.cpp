#include "base/quoted_text.h"

#include <cstddef>
#include <cstdint>

#include "base/hex.h"
#include "base/utf8.h"

namespace MD::tool {
namespace {

constexpr std::size_t kLongestQuote = 200;

}  // namespace

std::string printable(std::string_view text) {
  const bool isCut = text.size() > kLongestQuote;
  if (isCut) {
    text = text.substr(0, kLongestQuote);
    // A character that the cut went through counts as left out.
    for (int i = 0; i < 3 && !text.empty() && !isUtf8(text); ++i) {
      text.remove_suffix(1);
    }
  }
  const bool keepsNonAscii = isUtf8(text);
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (byte < 0x20 || byte == 0x7f || (byte >= 0x80 && !keepsNonAscii)) {
      out += "\\x";
      appendHex(&byte, 1, out);
    } else {
      out += c;
    }
  }
  if (isCut) {
    out += "...";
  }
  return out;
}

std::string inQuotes(std::string_view text) { return '"' + printable(text) + '"'; }

std::string counted(std::uint64_t number, const char* one, const char* many) {
  return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

std::string counted(std::uint64_t number, const std::string& one) {
  return counted(number, one.c_str(), (one + 's').c_str());
}

}  // namespace MD::tool
