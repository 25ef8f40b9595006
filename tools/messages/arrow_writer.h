// Messages as Apache Arrow IPC: the stream format, or the file format, whose end lists the batches.
#ifndef MDMSG_ARROW_WRITER_H
#define MDMSG_ARROW_WRITER_H

#include <cstddef>
#include <cstdint>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"
#include "dictionary/field_names.h"
#include "md/md_arrow.h"
#include "md/md_message.h"

namespace MD::tool {

struct ArrowOptions {
  bool isFile = false;        ///< the file format
  bool isTextBinary = false;  ///< CHAR and STRING columns are binary
  std::size_t batchRows = 65536;
};

/// Writes a batch as soon as it is complete, so that no more than one is in memory.
///
/// The columns are the fields that are chosen or, when none are, those of the first batch of messages (or of the first
/// 64 MiB of them), in the order of their ids. A field that occurs later only is noted once, and is no column.
class ArrowWriter {
 public:
  /// @throws UsageError when the program was built without what this takes
  ArrowWriter(const std::vector<Field>& columns, const FieldNames& names, const ArrowOptions& options, Output& out,
              Reporter& reporter);
  ~ArrowWriter();

  /// A field that the message does not have is null. One that cannot be read is noted and null.
  /// @throws LineError when the message has no place in the columns
  void append(const MD_Message& message);

  /// Writes what is left, and the end.
  void finish();

 private:
  struct Held {
    std::string input;
    Place place;
    std::size_t endBytes;
  };
  struct Block {
    std::int64_t offset;
    std::int32_t metadataBytes;
    std::int64_t bodyBytes;
  };

  void hold(const MD_Message& message);
  void begin();
  void appendRow(const MD_Message& message);
  void noteOthers(const MD_Message& message);
  void writeBatch();
  void writeMessage(const std::string& metadata, const std::vector<std::string_view>& buffers);
  void appendWord(std::uint32_t word);
  void written(std::size_t begin);

  const FieldNames& m_names;
  ArrowOptions m_options;
  Output& m_out;
  Reporter& m_reporter;
  std::vector<Field> m_columns;
  bool m_isChosen;
  std::vector<bool> m_isColumn;  // by id; fields that have been noted count as well
  std::unique_ptr<ColumnBuilder> m_builder;

  std::vector<Held> m_held;  // messages of the first batch, until the columns are known
  std::vector<std::uint8_t> m_heldBytes;

  std::vector<std::uint16_t> m_ids;
  std::vector<Block> m_blocks;
  std::int64_t m_writtenBytes = 0;
};

}  // namespace MD::tool

#endif
