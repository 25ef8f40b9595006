// Any bytes as a name.
#ifndef MDMSG_PERCENT_TEXT_H
#define MDMSG_PERCENT_TEXT_H

#include <cstddef>

#include <string>
#include <string_view>

namespace MD::tool {

/// Appends `value` with '%' and two upper-case hex digits in the place of each byte that is not kept. No bytes at all
/// become "%". Different bytes give different texts.
/// @param isKept  (std::size_t index) -> bool; false for each '%'
template <class IsKept>
void appendPercentText(std::string_view value, IsKept isKept, std::string& out) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  if (value.empty()) {
    out += '%';
  }
  for (std::size_t i = 0; i != value.size(); ++i) {
    const auto byte = static_cast<unsigned char>(value[i]);
    if (isKept(i)) {
      out += value[i];
    } else {
      out += '%';
      out += kHexDigits[byte >> 4];
      out += kHexDigits[byte & 0xf];
    }
  }
}

/// The text for a missing value, which appendPercentText() never produces.
constexpr std::string_view kNoValue = "%-";

}  // namespace MD::tool

#endif
