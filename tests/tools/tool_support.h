// What the tests of the program share.
#ifndef MD_TESTS_TOOLS_TOOL_SUPPORT_H
#define MD_TESTS_TOOLS_TOOL_SUPPORT_H

#include <cstdint>

#include <sstream>
#include <string>
#include <vector>

#include "diagnostics.h"
#include "message_source.h"
#include "output.h"
#include "support/dictionary.h"

namespace MD::test {

/// An output and a reporter that write to strings.
struct Reports {
  std::ostringstream outText;
  std::ostringstream errText;
  tool::Output out{outText};
  tool::Reporter reporter{errText, out};

  std::string text() const { return errText.str(); }
};

/// What `use` throws as a LineError, as "field: reason"; "nothing" when it returns.
template <class Use>
std::string lineErrorOf(Use use) {
  try {
    use();
  } catch (const tool::LineError& error) {
    return error.field().empty() ? error.what() : error.field() + ": " + error.what();
  }
  return "nothing";
}

inline tool::InputMessage inputOf(const std::vector<std::uint8_t>& bytes) {
  tool::InputMessage input;
  input.data = bytes.data();
  input.sizeBytes = bytes.size();
  return input;
}

inline std::vector<std::uint8_t> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

}  // namespace MD::test

#endif
