// Comma-separated records, or records with another separator: cells with separators, quotes or line breaks are in
// double quotes, a quote inside is doubled. Spaces between a separator and a quote are skipped.
#ifndef MDMSG_CSV_READER_H
#define MDMSG_CSV_READER_H

#include <cstddef>
#include <cstdint>

#include <string>
#include <string_view>
#include <vector>

#include "text/line_reader.h"

namespace MD::tool {

class CsvReader {
 public:
  /// @param longestBytes  the longest record that is read, over all its lines
  explicit CsvReader(LineReader& lines, std::uint64_t longestBytes = kLongestMessage, char separator = ',')
      : m_lines(lines), m_longestBytes(longestBytes), m_separator(separator) {}

  /// Reads the next record; lines without a character between records are skipped.
  /// @return false at the end of the input
  /// @throws LineError if the record is malformed; the next one can still be read
  bool next();

  /// The line on which the record begins.
  std::uint64_t line() const noexcept { return m_line; }

  std::size_t size() const noexcept { return m_size; }
  /// Whether the cell is a pair of quotes with nothing between.
  bool isQuotedEmpty(std::size_t column) const noexcept { return m_cells[column].empty() && m_isQuoted[column]; }
  const std::string& operator[](std::size_t column) const noexcept { return m_cells[column]; }

 private:
  /// Longer than any value's text; what is longer is not kept.
  static constexpr std::size_t kLongestCell = std::size_t{1} << 20;

  /// More than there can be columns: a field is a column once.
  static constexpr std::size_t kMostCells = std::size_t{1} << 16;
  /// What a cell keeps for the next record.
  static constexpr std::size_t kKeptBytes = 256;

  bool nextLine(std::string_view& line);
  std::string& newCell();
  bool readQuoted(std::string_view& rest, std::string& cell);
  void append(std::string_view text, std::string& cell);

  LineReader& m_lines;
  std::uint64_t m_longestBytes;
  char m_separator;
  std::uint64_t m_recordBytes = 0;
  std::vector<std::string> m_cells;
  std::vector<bool> m_isQuoted;
  std::size_t m_size = 0;
  std::uint64_t m_line = 0;
  bool m_isTooLong = false;
};

}  // namespace MD::tool

#endif
