#include "base/utf8.h"

#include <cstdint>

#include <boost/nowide/utf/utf.hpp>

namespace MD::tool {

namespace utf = boost::nowide::utf;

bool isAscii(std::string_view text) noexcept {
  // Without an end before that of the text, so that compilers look at many bytes at once.
  unsigned all = 0;
  for (const char c : text) {
    all |= static_cast<std::uint8_t>(c);
  }
  return all < 0x80;
}

bool isUtf8(std::string_view text) noexcept {
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    const utf::code_point character = utf::utf_traits<char>::decode(at, end);
    if (character == utf::illegal || character == utf::incomplete) {
      return false;
    }
  }
  return true;
}

std::string_view withoutByteOrderMark(std::string_view text) noexcept {
  constexpr std::string_view kMark = "\xef\xbb\xbf";
  return text.substr(0, kMark.size()) == kMark ? text.substr(kMark.size()) : text;
}

}  // namespace MD::tool
