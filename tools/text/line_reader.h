// Lines of an input, in memory that follows the longest line up to a bound.
#ifndef MDMSG_LINE_READER_H
#define MDMSG_LINE_READER_H

#include <cstddef>
#include <cstdint>

#include <streambuf>
#include <string_view>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"

namespace MD::tool {

class LineReader {
 public:
  /// @param out  written out before each wait for more input, so that a line that arrives through a pipe is answered
  ///             before the next one comes
  /// @param longestBytes  the longest line that is read
  LineReader(std::streambuf& in, Output& out, std::uint64_t longestBytes = kLongestMessage)
      : m_in(in), m_out(out), m_longestBytes(longestBytes), m_buffer(kBufferBytes) {}

  /// Sets `line`, valid until the next call, to the next line without its line feed; a carriage return stays.
  /// @return false at the end of the input
  /// @throws LineError when the line is too long, or longer than the memory; the next one can be read
  /// @throws std::ios_base::failure when the input cannot be read
  bool next(std::string_view& line);

  /// The same with the next line that is not empty, without the byte-order mark of the first line and without a
  /// carriage return at the end.
  bool nextFilled(std::string_view& line);
  /// The same, and the reporter gets the number of the line.
  bool nextFilled(std::string_view& line, Reporter& reporter);

  /// The number of the line that was given last, from 1.
  std::uint64_t lineNumber() const noexcept { return m_lineNumber; }

 private:
  static constexpr std::size_t kBufferBytes = std::size_t{1} << 16;

  bool fill();
  void skipLine();

  std::streambuf& m_in;
  Output& m_out;
  std::uint64_t m_longestBytes;
  std::vector<char> m_buffer;
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
  std::uint64_t m_lineNumber = 0;
};

/// `line` without the carriage return that ends lines of some systems.
inline std::string_view withoutCarriageReturn(std::string_view line) noexcept {
  return !line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1) : line;
}

}  // namespace MD::tool

#endif
