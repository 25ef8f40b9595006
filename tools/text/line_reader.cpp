#include "text/line_reader.h"

#include <cstring>

#include <algorithm>

#include "base/utf8.h"

namespace MD::tool {
namespace {

/// Whether there is nothing but spaces and tabs.
bool isBlankLine(std::string_view line) noexcept { return line.find_first_not_of(" \t") == line.npos; }

}  // namespace

bool LineReader::next(std::string_view& line) {
  std::size_t searched = 0;
  for (;;) {
    const char* const start = m_buffer.data() + m_begin;
    const std::size_t there = m_end - m_begin;
    if (const void* feed = there > searched ? std::memchr(start + searched, '\n', there - searched) : nullptr) {
      const auto length = static_cast<std::size_t>(static_cast<const char*>(feed) - start);
      line = {start, length};
      m_begin += length + 1;
      ++m_lineNumber;
      return true;
    }
    searched = there;
    if (!fill()) {
      if (there == 0) {
        return false;
      }
      line = {m_buffer.data() + m_begin, there};
      m_begin = m_end;
      ++m_lineNumber;
      return true;
    }
  }
}

bool LineReader::nextFilled(std::string_view& line) {
  do {
    if (!next(line)) {
      return false;
    }
    line = withoutCarriageReturn(line);
    if (m_lineNumber == 1) {
      line = withoutByteOrderMark(line);
    }
  } while (isBlankLine(line));
  return true;
}

/// Reads what the input has ready, at least a byte. @return false at the end
bool LineReader::fill() {
  if (m_begin != 0) {
    std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
  }
  if (m_end == m_buffer.size()) {
    m_buffer.resize(2 * m_buffer.size());
  }
  // A read for a whole buffer would wait until a slow writer has filled it; the stream buffer's own reads do not.
  if (m_in.in_avail() <= 0) {
    m_out.flush();
  }
  if (m_in.sgetc() == std::streambuf::traits_type::eof()) {
    return false;
  }
  const std::streamsize ready = std::max<std::streamsize>(m_in.in_avail(), 1);
  const auto room = static_cast<std::streamsize>(m_buffer.size() - m_end);
  m_end += static_cast<std::size_t>(m_in.sgetn(m_buffer.data() + m_end, std::min(ready, room)));
  return true;
}

}  // namespace MD::tool
