/// @file
/// Messages as columns in the memory layout of Apache Arrow, exported through the Arrow C data and C stream interfaces:
/// readable by everything that imports these, such as polars, DuckDB, pandas and pyarrow, without a copy and without an
/// Arrow library here. A builder belongs to one thread at a time; different builders are independent.
#ifndef MD_ARROW_H
#define MD_ARROW_H

#include <cstddef>
#include <cstdint>

#include <memory>
#include <string>
#include <vector>

#include "md/md_api.h"

/// @cond
// The structures of the Arrow C data interface and of the Arrow C stream interface. Their layout never changes, and
// the guards are those of every other copy of them, so that a program may include several.
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

/// How a ColumnBuilder builds.
struct ColumnOptions {
  /// The rows of a batch: from 1 on; more than 2^31 - 1 are that many.
  std::size_t batchRows = 65536;
  /// A batch ends before a column of it would hold more bytes of strings or buffers than this. More than 2^31 - 1,
  /// which is what offsets of 32 bits allow, are that many.
  std::size_t batchTextBytes = 2147483647;
  /// CHAR and STRING fields of `fields` whose columns are binary: any bytes are accepted. Others are not looked at.
  std::vector<std::uint16_t> binaryFields;
  /// STRING fields of `fields` whose columns are dictionary-encoded: each batch holds every distinct value once, and
  /// its number, a 32-bit integer, in each row. For fields with few values, such as symbols and venues. Others are not
  /// looked at.
  std::vector<std::uint16_t> dictionaryFields;
};

/// Why an append() has failed.
struct ColumnFailure {
  std::uint64_t message = 0;  ///< the number of that append(), counted from 1; 0: none has failed
  std::uint16_t field = 0;    ///< the field that has no place in its column; 0 when it is not one field
  std::string reason;  ///< with the field's name, such as "field SYMBOL (60): byte 0xff at offset 2 is not UTF-8"
};

/// The number of the message and the reason: "message 3: field SYMBOL (60): byte 0xff at offset 2 is not UTF-8". Empty
/// when nothing has failed.
MD_API std::string to_string(const ColumnFailure& failure);

/// Collects chosen fields of messages as columns, one row per message. Rows form batches of ColumnOptions::batchRows.
/// A column is named after its field. The type of the field in the dictionary decides the type of the column, of which
/// every value may be null:
///
/// | field | column | Arrow format |
/// |---|---|---|
/// | CHAR | utf8, of one character | `u`, binary: `z` |
/// | INT | int32 | `i` |
/// | INT64 | int64 | `l` |
/// | FLOAT | float32 | `f` |
/// | DOUBLE | float64 | `g` |
/// | STRING | utf8 | `u`, binary: `z`, dictionary-encoded: `i` with a dictionary of these |
/// | BUFFER | binary | `z` |
/// | EPOCH_NSEC | timestamp in nanoseconds, UTC | `tsn:UTC` |
/// | DATETIME | struct of `date` (int32, the number yyyymmdd), `time` (int32) and `offset` (int16) | `+s` |
///
/// Fails without an effect: an operation that throws, or returns false, leaves the builder as it was.
///
///     MD::ColumnBuilder columns({MD::require("SYMBOL"), MD::require("BID")});
///     while (receive(datagram)) {
///       if (!columns.append(datagram.data(), datagram.size())) { ... columns.failure() ... }
///     }
///     ArrowArrayStream stream;
///     columns.exportStream(&stream);  // for whoever reads Arrow; who calls stream.release() when done
class MD_API ColumnBuilder {
 public:
  /// @param fields  the columns, in this order. The dictionary must not be reloaded while the builder exists.
  /// @throws std::domain_error      for a field that the dictionary does not hold, or of a type that no message carries
  /// @throws std::invalid_argument  for a field that is there twice, for more than 65,535 fields, and for batches of no
  ///                                rows
  explicit ColumnBuilder(const std::vector<std::uint16_t>& fields, const ColumnOptions& options = {});
  ~ColumnBuilder();
  /// @{
  /// A builder that was moved from can be assigned to and destroyed, no more.
  ColumnBuilder(ColumnBuilder&& other) noexcept;
  ColumnBuilder& operator=(ColumnBuilder&& other) noexcept;
  /// @}

  /// Appends a row with the values that get() of the message returns. A field that the message does not have, or that
  /// cannot be read, is null. Reports nothing.
  /// @return false for a string that is not valid UTF-8 where the column is not binary, and for an EPOCH_NSEC from 2^63
  ///         nanoseconds on, which a timestamp cannot hold; failure() describes it
  bool append(const MD_Message& message);

  /// Appends the row that the message which MD_Message::createFromBytes() builds from these bytes would give, without
  /// building it. Nothing is allocated per row, nothing is reported. The one exception is that of peek(): an `IterMap`
  /// string that would be split into several parts is null. Costs one pass over the records, and another one per column
  /// for values that are split into several parts.
  /// @return as above; false also for bytes of no encoding, and for null or no bytes
  bool append(const std::uint8_t* bytes, std::uint32_t sizeBytes);

  /// The rows that are not exported yet.
  std::size_t rows() const noexcept;
  /// The batches that are complete and not exported yet.
  std::size_t completeBatches() const noexcept;
  /// The last append() that returned false.
  ColumnFailure failure() const;

  /// The type of the batches: a struct of the columns. The receiver calls `out->release`.
  void exportSchema(ArrowSchema* out) const;

  /// Takes the oldest batch out of the builder: a complete one or, when there is none, the rows since. The memory goes
  /// with it: the receiver calls `out->release`, from any thread, also after the builder's end.
  /// @return false, `out->release` null, when there are no rows
  bool exportBatch(ArrowArray* out);

  /// Takes all rows out of the builder, as a stream of batches. The memory goes with it: the receiver calls
  /// `out->release`, from any thread, also after the builder's end. The builder starts anew.
  void exportStream(ArrowArrayStream* out);

 private:
  std::unique_ptr<detail::ColumnTable> m_table;
};

}  // namespace MD

#endif
