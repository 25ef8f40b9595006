// What the tests of the program share.
#ifndef MD_TESTS_TOOLS_TOOL_SUPPORT_H
#define MD_TESTS_TOOLS_TOOL_SUPPORT_H

#include <cstdint>

#include <deque>
#include <sstream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"
#include "support/dictionary.h"
#include "transport/message_source.h"

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

/// Gives out the pieces one by one, as a pipe does, and notes what had been written before each.
class Pieces : public std::streambuf {
 public:
  Pieces(std::deque<std::string> pieces, const std::ostringstream& written)
      : m_pieces(std::move(pieces)), m_written(written) {}

  std::vector<std::string> writtenBefore;

 protected:
  int_type underflow() override {
    writtenBefore.push_back(m_written.str());
    if (m_pieces.empty()) {
      return traits_type::eof();
    }
    m_piece = m_pieces.front();
    m_pieces.pop_front();
    setg(m_piece.data(), m_piece.data(), m_piece.data() + m_piece.size());
    return traits_type::to_int_type(m_piece[0]);
  }

 private:
  std::deque<std::string> m_pieces;
  std::string m_piece;
  const std::ostringstream& m_written;
};

}  // namespace MD::test

#endif
