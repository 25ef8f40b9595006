#include "md/md_value_types.h"

#include <ostream>
#include <string>

namespace MD {

std::ostream& operator<<(std::ostream& out, MD_EpochNS time) { return out << time.get(); }

std::ostream& operator<<(std::ostream& out, StringView16 text) { return out << std::string_view(text); }

std::ostream& operator<<(std::ostream& out, BufferView16 bytes) {
  constexpr char kHexDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(std::size_t{bytes.length} * 2);
  for (std::uint16_t i = 0; i < bytes.length; ++i) {
    text += kHexDigits[bytes.data[i] >> 4];
    text += kHexDigits[bytes.data[i] & 15];
  }
  return out << text;
}

}  // namespace MD
