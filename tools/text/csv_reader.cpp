#include "text/csv_reader.h"

#include "base/diagnostics.h"
#include "base/utf8.h"

namespace MD::tool {

bool CsvReader::next() {
  std::string_view rest;
  do {
    m_line = m_lines.lineNumber() + 1;
    m_recordBytes = 0;
    if (!nextLine(rest)) {
      return false;
    }
    if (m_line == 1) {
      rest = withoutByteOrderMark(rest);
    }
  } while (withoutCarriageReturn(rest).empty());

  m_size = 0;
  m_isTooLong = false;
  for (;;) {
    std::string& cell = newCell();
    const bool isQuoted = !rest.empty() && rest[0] == '"';
    m_isQuoted[m_size - 1] = isQuoted;
    if (isQuoted) {
      if (!readQuoted(rest, cell)) {
        throw LineError("cell " + std::to_string(m_size) + ": the quote is never closed");
      }
      if (!rest.empty() && rest[0] != m_separator) {
        throw LineError("cell " + std::to_string(m_size) + ": text after the closing quote");
      }
    } else {
      const std::size_t end = rest.find(m_separator);
      const std::string_view text = end != rest.npos ? rest.substr(0, end) : withoutCarriageReturn(rest);
      if (text.find('"') != text.npos) {
        throw LineError("cell " + std::to_string(m_size) + ": a quote inside a cell without quotes");
      }
      append(text, cell);
      rest = end != rest.npos ? rest.substr(end) : std::string_view();
    }
    if (m_isTooLong) {
      throw LineError("cell " + std::to_string(m_size) + " is longer than any value");
    }
    if (rest.empty()) {
      return true;
    }
    rest.remove_prefix(1);
    if (const std::size_t first = rest.find_first_not_of(' '); first != rest.npos && rest[first] == '"') {
      rest.remove_prefix(first);
    }
  }
}

/// Reads a line of the record.
bool CsvReader::nextLine(std::string_view& line) {
  if (!m_lines.next(line)) {
    return false;
  }
  m_recordBytes += line.size() + 1;
  if (m_recordBytes > m_longestBytes + 1) {
    throw tooLongToRead("the record", m_longestBytes);
  }
  return true;
}

std::string& CsvReader::newCell() {
  if (m_size == kMostCells) {
    throw LineError("the record has more than " + std::to_string(kMostCells) + " cells");
  }
  if (m_size == m_cells.size()) {
    m_cells.emplace_back();
    m_isQuoted.push_back(false);
  }
  std::string& cell = m_cells[m_size++];
  if (cell.capacity() > kKeptBytes) {
    std::string().swap(cell);
  }
  cell.clear();
  return cell;
}

/// Reads a quoted cell, which may go on over several lines, and leaves what follows it on its last line in `rest`.
/// @return false when the input ends before the cell does
bool CsvReader::readQuoted(std::string_view& rest, std::string& cell) {
  rest.remove_prefix(1);
  for (;;) {
    const std::size_t quote = rest.find('"');
    if (quote == rest.npos) {
      append(rest, cell);
      // Inside quotes the line's end, a carriage return included, belongs to the value.
      if (!nextLine(rest)) {
        return false;
      }
      append("\n", cell);
      continue;
    }
    append(rest.substr(0, quote), cell);
    rest.remove_prefix(quote + 1);
    if (rest.empty() || rest[0] != '"') {
      if (rest == "\r") {
        rest = {};
      }
      return true;
    }
    append("\"", cell);
    rest.remove_prefix(1);
  }
}

void CsvReader::append(std::string_view text, std::string& cell) {
  if (cell.size() + text.size() > kLongestCell) {
    m_isTooLong = true;
  } else {
    cell += text;
  }
}

}  // namespace MD::tool
