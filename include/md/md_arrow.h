/// @file
/// Messages as columns in the memory layout of Apache Arrow, exported through the Arrow C data and C stream interfaces.
/// Programs such as polars, DuckDB, pandas and pyarrow import these without a copy; no Arrow library is needed here. A
/// builder belongs to one thread at a time; different builders are independent.
#ifndef MD_ARROW_H
#define MD_ARROW_H

#include <cstddef>
#include <cstdint>

#include <memory>
#include <string>
#include <vector>

#include "md/md_api.h"

/// @cond
// The structures of the Arrow C data interface and of the Arrow C stream interface. Their layout never changes. All
// copies use the same guards, so a program may include several.
#ifndef ARROW_C_DATA_INTERFACE
#define ARROW_C_DATA_INTERFACE

#define ARROW_FLAG_DICTIONARY_ORDERED 1
#define ARROW_FLAG_NULLABLE 2
#define ARROW_FLAG_MAP_KEYS_SORTED 4

extern "C" {

struct ArrowSchema {
  const char* format;
  const char* name;
  const char* metadata;
  int64_t flags;
  int64_t n_children;
  struct ArrowSchema** children;
  struct ArrowSchema* dictionary;
  void (*release)(struct ArrowSchema*);
  void* private_data;
};

struct ArrowArray {
  int64_t length;
  int64_t null_count;
  int64_t offset;
  int64_t n_buffers;
  int64_t n_children;
  const void** buffers;
  struct ArrowArray** children;
  struct ArrowArray* dictionary;
  void (*release)(struct ArrowArray*);
  void* private_data;
};

}  // extern "C"

#endif

#ifndef ARROW_C_STREAM_INTERFACE
#define ARROW_C_STREAM_INTERFACE

extern "C" {

struct ArrowArrayStream {
  int (*get_schema)(struct ArrowArrayStream*, struct ArrowSchema* out);
  int (*get_next)(struct ArrowArrayStream*, struct ArrowArray* out);
  const char* (*get_last_error)(struct ArrowArrayStream*);
  void (*release)(struct ArrowArrayStream*);
  void* private_data;
};

}  // extern "C"

#endif
/// @endcond

namespace MD {

class MD_Message;

namespace detail {
class ColumnTable;
}  // namespace detail

/// Options of a ColumnBuilder.
struct ColumnOptions {
  /// The number of rows per batch, at least 1 and effectively at most 2^31 - 1.
  std::size_t batchRows = 65536;
  /// A batch ends before one of its columns would hold more bytes of strings or buffers than this. Effectively at most
  /// 2^31 - 1, the limit of 32-bit offsets.
  std::size_t batchTextBytes = 2147483647;
  /// CHAR and STRING fields whose columns are binary and accept any bytes. Other fields are ignored.
  std::vector<std::uint16_t> binaryFields;
  /// STRING fields whose columns are dictionary-encoded: each batch holds every distinct value once, and a 32-bit index
  /// in each row. For fields with few values, such as symbols and venues. Other fields are ignored.
  std::vector<std::uint16_t> dictionaryFields;
};

/// The reason why an append() failed.
struct ColumnFailure {
  std::uint64_t message = 0;  ///< the number of that append(), counted from 1; 0 if none failed
  std::uint16_t field = 0;    ///< the field whose value the column cannot hold; 0 if the reason is not one field
  std::string reason;  ///< with the name of the field, such as "field SYMBOL (60): byte 0xff at offset 2 is not UTF-8"
};

/// The number of the message and the reason: "message 3: field SYMBOL (60): byte 0xff at offset 2 is not UTF-8". Empty
/// if no append() failed.
MD_API std::string to_string(const ColumnFailure& failure);

/// Collects chosen fields of messages as columns, one row per message. Rows form batches of ColumnOptions::batchRows.
/// A column has the name of its field. The type of the field in the dictionary determines the type of the column. Every
/// value may be null:
///
/// | field | column | Arrow format |
/// |---|---|---|
/// | CHAR | utf8, of one character | `u`, binary: `z` |
/// | INT | int32 | `i` |
/// | INT64 | int64 | `l` |
/// | FLOAT | float32 | `f` |
/// | DOUBLE | float64 | `g` |
/// | STRING | utf8 | `u`, binary: `z`, dictionary-encoded: `i` with a dictionary of one of these |
/// | BUFFER | binary | `z` |
/// | EPOCH_NSEC | timestamp in nanoseconds, UTC | `tsn:UTC` |
/// | DATETIME | struct of `date` (int32, the number yyyymmdd), `time` (int32) and `offset` (int16) | `+s` |
///
/// An operation that throws or returns false leaves the builder unchanged.
///
///     MD::ColumnBuilder columns({MD::require("SYMBOL"), MD::require("BID")});
///     while (receive(datagram)) {
///       if (!columns.append(datagram.data(), datagram.size())) { ... columns.failure() ... }
///     }
///     ArrowArrayStream stream;
///     columns.exportStream(&stream);  // for a consumer of Arrow, which calls stream.release() at the end
class MD_API ColumnBuilder {
 public:
  /// @param fields  the columns, in this order. The dictionary must not be reloaded while the builder exists.
  /// @throws std::domain_error      for a field that is not in the dictionary or has a type that messages do not carry
  /// @throws std::invalid_argument  for a field that is listed twice, for more than 65,535 fields, and for 0 rows per
  ///                                batch
  explicit ColumnBuilder(const std::vector<std::uint16_t>& fields, const ColumnOptions& options = {});
  ~ColumnBuilder();
  /// @{
  /// A moved-from builder can only be assigned to and destroyed.
  ColumnBuilder(ColumnBuilder&& other) noexcept;
  ColumnBuilder& operator=(ColumnBuilder&& other) noexcept;
  /// @}

  /// Appends a row with the values that get() of the message returns. A field that is absent or cannot be read is null.
  /// Writes no diagnostics.
  /// @return false for a string that is not valid UTF-8 where the column is not binary, and for an EPOCH_NSEC from 2^63
  ///         nanoseconds on, which a timestamp cannot hold; failure() describes it
  bool append(const MD_Message& message);

  /// Appends the row of the message that MD_Message::createFromBytes() would build from these bytes, without building
  /// it. Allocates nothing per row and writes no diagnostics. There is one exception, as with peek(): an `IterMap`
  /// string that is not contiguous in the bytes is null. Costs one pass over the records, and another one per column
  /// whose value is not contiguous.
  /// @return as above; false also for an unknown encoding byte, and for null or no bytes
  bool append(const std::uint8_t* bytes, std::uint32_t sizeBytes);

  /// The number of rows that are not exported yet.
  std::size_t rows() const noexcept;
  /// The number of complete batches that are not exported yet.
  std::size_t completeBatches() const noexcept;
  /// The last append() that returned false.
  ColumnFailure failure() const;

  /// The type of the batches: a struct of the columns. The receiver calls `out->release`.
  void exportSchema(ArrowSchema* out) const;

  /// Moves the oldest batch out of the builder: a complete batch or, if there is none, the remaining rows. The receiver
  /// owns the memory and calls `out->release`, from any thread, also after the builder is destroyed.
  /// @return false, with `out->release` null, if there are no rows
  bool exportBatch(ArrowArray* out);

  /// Moves all rows out of the builder, as a stream of batches. The receiver owns the memory and calls `out->release`,
  /// from any thread, also after the builder is destroyed. The builder is then empty.
  void exportStream(ArrowArrayStream* out);

 private:
  std::unique_ptr<detail::ColumnTable> m_table;
};

}  // namespace MD

#endif
