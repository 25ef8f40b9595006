#include "base/utf8.h"

#include <cstddef>
#include <cstdint>

namespace MD::tool {

bool isUtf8(std::string_view text) noexcept {
  const auto byteAt = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const auto isContinued = [&](std::size_t first, std::size_t count) {
    for (std::size_t i = first; i != first + count; ++i) {
      if (i >= text.size() || (byteAt(i) & 0xc0) != 0x80) {
        return false;
      }
    }
    return true;
  };
  for (std::size_t i = 0; i < text.size();) {
    const std::uint8_t lead = byteAt(i);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    // The second byte tells overlong forms (e0, f0), surrogates (ed) and what lies above the last character (f4).
    const std::uint8_t second = i + 1 < text.size() ? byteAt(i + 1) : std::uint8_t{0};
    std::size_t continued = 0;
    if (lead >= 0xc2 && lead <= 0xdf) {
      continued = 1;
    } else if ((lead & 0xf0) == 0xe0 && !(lead == 0xe0 && second < 0xa0) && !(lead == 0xed && second >= 0xa0)) {
      continued = 2;
    } else if (lead >= 0xf0 && lead <= 0xf4 && !(lead == 0xf0 && second < 0x90) && !(lead == 0xf4 && second >= 0x90)) {
      continued = 3;
    }
    if (continued == 0 || !isContinued(i + 1, continued)) {
      return false;
    }
    i += 1 + continued;
  }
  return true;
}

std::string_view withoutByteOrderMark(std::string_view text) noexcept {
  constexpr std::string_view kMark = "\xef\xbb\xbf";
  return text.substr(0, kMark.size()) == kMark ? text.substr(kMark.size()) : text;
}

}  // namespace MD::tool
