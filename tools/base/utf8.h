// Which bytes are text.
#ifndef MDMSG_UTF8_H
#define MDMSG_UTF8_H

#include <string_view>

namespace MD::tool {

/// Whether all bytes of `text` are below 0x80.
bool isAscii(std::string_view text) noexcept;

/// Whether `text` is well-formed UTF-8: no overlong form, no surrogate, nothing above U+10FFFF.
bool isUtf8(std::string_view text) noexcept;

/// `text` without the byte-order mark that some editors put in front.
std::string_view withoutByteOrderMark(std::string_view text) noexcept;

}  // namespace MD::tool

#endif
