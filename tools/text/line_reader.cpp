#include "text/line_reader.h"

#include <cstring>

#include <algorithm>
#include <new>

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
    const void* const feed = there > searched ? std::memchr(start + searched, '\n', there - searched) : nullptr;
    std::size_t length = there;
    if (feed != nullptr) {
      length = static_cast<std::size_t>(static_cast<const char*>(feed) - start);
    }
    if (length > m_longestBytes) {
      skipLine();
      throw tooLongToRead("the line", m_longestBytes);
    }
    bool isMore = feed == nullptr;
    try {
      isMore = isMore && fill();
    } catch (const std::bad_alloc&) {
      skipLine();
      throw outOfMemory();
    }
    if (isMore) {
      searched = there;
      continue;
    }
    if (feed == nullptr && there == 0) {
      return false;
    }
    // A line that does not end came to its end with the input.
    line = {m_buffer.data() + m_begin, length};
    m_begin = feed != nullptr ? m_begin + length + 1 : m_end;
    ++m_lineNumber;
    return true;
  }
}

/// Skips the line that begins here, which need not be in memory as a whole.
void LineReader::skipLine() {
  ++m_lineNumber;
  for (;;) {
    const char* const start = m_buffer.data() + m_begin;
    if (const void* const feed = std::memchr(start, '\n', m_end - m_begin)) {
      m_begin += static_cast<std::size_t>(static_cast<const char*>(feed) - start) + 1;
      return;
    }
    m_begin = m_end = 0;
    if (!fill()) {
      return;
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

bool LineReader::nextFilled(std::string_view& line, Reporter& reporter) {
  try {
    const bool isThere = nextFilled(line);
    reporter.setLine(m_lineNumber);
    return isThere;
  } catch (const LineError&) {
    reporter.setLine(m_lineNumber);
    throw;
  }
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
