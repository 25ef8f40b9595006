// The columns of a ColumnBuilder (md/md_arrow.h). Everything about the rows of the current batch follows from their
// number: a row that fails halfway has written after the last one, and the next row overwrites that.
#ifndef MD_SRC_COLUMN_TABLE_H
#define MD_SRC_COLUMN_TABLE_H

#include <cstddef>
#include <cstdint>

#include <array>
#include <deque>
#include <string>
#include <vector>

#include "arrow_export.h"
#include "md/md_arrow.h"
#include "md/md_message.h"
#include "md/md_value_types.h"
#include "memory_block.h"
#include "value_dictionary.h"

namespace MD::detail {

class ColumnTable {
 public:
  /// @see ColumnBuilder::ColumnBuilder()
  ColumnTable(const std::vector<std::uint16_t>& fields, const ColumnOptions& options);

  bool append(const MD_Message& message);
  bool append(const std::uint8_t* bytes, std::uint32_t sizeBytes);

  std::size_t rows() const noexcept { return m_completeRows + m_rows; }
  std::size_t completeBatches() const noexcept { return m_complete.size() + (m_rows == m_batchRows ? 1 : 0); }
  ColumnFailure failure() const;

  void exportSchema(ArrowSchema* out) const { exportSchemaOf(*m_types, out); }
  bool exportBatch(ArrowArray* out);
  void exportStream(ArrowArrayStream* out);

 private:
  enum class Row { Done, Failed, BatchIsFull };
  enum class Reason { None, NoEncoding, NotUtf8, NoTimestamp };

  /// A column of the current batch. What a row takes of `values` depends on the type: the value, the number of the
  /// value in the dictionary, the date of a date-time, or, one entry ahead, where text ends.
  struct Column {
    MemoryBlock isPresent;  ///< bits
    MemoryBlock values;
    MemoryBlock times;    ///< of a date-time
    MemoryBlock offsets;  ///< of a date-time
    MemoryBlock text;
    ValueDictionary dictionary;
    std::string_view newValue;    ///< of the current row, for the dictionary
    std::size_t textRoomBytes{};  ///< what a batch is likely to take
  };

  struct Failed {
    std::uint64_t message = 0;
    Reason reason = Reason::None;
    std::size_t column = 0;
    std::size_t position = 0;
    std::uint64_t value = 0;
  };

  template <class Source>
  bool appendRow(const Source& source);
  template <class Source>
  Row writeRow(const Source& source);
  template <class T, class Source>
  void writeValue(std::size_t number, const Source& source);
  template <class Source>
  Row writeChar(std::size_t number, const Source& source);
  template <class Source>
  Row writeString(std::size_t number, const Source& source);
  template <class Source>
  Row writeBuffer(std::size_t number, const Source& source);
  template <class Source>
  Row writeTimestamp(std::size_t number, const Source& source);
  template <class Source>
  void writeDateTime(std::size_t number, const Source& source);
  Row writeText(Column& column, bool isPresent, std::string_view text);
  Row writeEncoded(std::size_t number, bool isPresent, std::string_view text);
  bool isText(std::size_t number, std::string_view text);
  void markPresence(Column& column, bool isPresent) noexcept;
  bool fail(Reason reason, std::size_t column = 0, std::size_t position = 0, std::uint64_t value = 0) noexcept;

  void makeRoom();
  void completeBatch();
  OwnedArray takeBatch();
  void fillArray(std::size_t number, ArrowArray& array) noexcept;

  ColumnTypes m_types;
  std::vector<Column> m_columns;
  std::vector<std::uint16_t> m_columnOf;  ///< by field id; for fields without a column, their number
  std::vector<std::uint32_t>
      m_positions;                       ///< of the records of the current row by column, 0 for none; one for the rest
  std::vector<std::size_t> m_newValues;  ///< columns whose dictionaries the current row adds to
  std::size_t m_batchRows;
  std::size_t m_batchTextBytes;

  std::size_t m_rows = 0;      ///< of the current batch
  std::size_t m_capacity = 0;  ///< rows for which there is room
  std::deque<OwnedArray> m_complete;
  std::size_t m_completeRows = 0;
  std::uint64_t m_messages = 0;  ///< appends, in vain or not
  Failed m_failed;
};

}  // namespace MD::detail

#endif
