// Inputs of tests, and what the tool reads from them.
#ifndef MD_TESTS_TOOLS_INPUT_SUPPORT_H
#define MD_TESTS_TOOLS_INPUT_SUPPORT_H

#include <cstddef>

#include <sstream>
#include <string>

#include "base/errors.h"
#include "transport/input_buffer.h"

namespace MD::test {

/// Reads to the end, or to the truncation point; the text of the error then follows a "|".
inline std::string readAll(const std::string& bytes) {
  std::stringbuf source(bytes);
  tool::InputBuffer in(source);
  std::string read;
  try {
    for (int c = in.sbumpc(); c != std::char_traits<char>::eof(); c = in.sbumpc()) {
      read += static_cast<char>(c);
    }
  } catch (const tool::InputError& error) {
    return read + '|' + error.what();
  }
  return read;
}

/// Lines that do not compress well, at least `bytes` in total.
inline std::string manyLines(std::size_t bytes) {
  std::string text;
  for (unsigned i = 0; text.size() < bytes; ++i) {
    text += std::to_string(i * 2654435761U) + '\n';
  }
  return text;
}

}  // namespace MD::test

#endif
