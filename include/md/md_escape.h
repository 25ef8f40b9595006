/// @file
/// Escapes text from untrusted parties for display. Keeps no state; thread-safe.
#ifndef MD_ESCAPE_H
#define MD_ESCAPE_H

#include <string>
#include <string_view>

#include "md/md_api.h"

namespace MD {

/// Appends `text` to `out` so that a terminal or a log displays every byte of it instead of executing control
/// characters. The escaped form is reversible:
///
/// - A backslash is written as two.
/// - A control character below 0x20, the byte 0x7f (DEL) and a byte that is not part of valid UTF-8 are written as
///   `\xNN`, two lower-case hex digits: `\x1b`.
/// - Multi-byte control characters are written as `\u{N}`, lower-case hex digits without leading zeros: `\u{202e}`.
///   These are U+0080 to U+009F (C1), the bidirectional controls (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to
///   U+2069), and the line and the paragraph separator (U+2028, U+2029).
/// - Any other character is unchanged.
///
/// Takes time proportional to the length of `text`; the result is at most four times as long.
MD_API void appendEscaped(std::string_view text, std::string& out);

/// `text` escaped as by appendEscaped().
inline std::string escaped(std::string_view text) {
  std::string out;
  appendEscaped(text, out);
  return out;
}

}  // namespace MD

#endif
