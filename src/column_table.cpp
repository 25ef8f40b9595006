#include "column_table.h"

#include <cstring>

#include <algorithm>
#include <bitset>
#include <limits>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "md/md_escape.h"
#include "md/md_fieldmap.h"
#include "own_class.h"
#include "received_bytes.h"
#include "report.h"
#include "utf8.h"

namespace MD::detail {
namespace {

constexpr std::size_t kMostOffset = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t kFirstRows = 1024;  // room for so many where it is not known whether there are more

/// Whether values of a type of the dictionary have a place in a column.
bool hasColumn(std::uint8_t type) noexcept {
#define MD_HAS_COLUMN(T, name, code) || type == (code)
  return false MD_VALUE_TYPES(MD_HAS_COLUMN);
#undef MD_HAS_COLUMN
}

/// What a row takes of ColumnTable::Column::values.
std::size_t valueBytesOf(const ColumnType& column) noexcept {
  const bool isWide = (typeBit(column.type) & kEightByteTypes) != 0 && column.type != DATATYPES::DATETIME;
  return isWide ? sizeof(std::int64_t) : sizeof(std::int32_t);
}

bool holdsText(const ColumnType& column) noexcept {
  return column.type == DATATYPES::CHAR || column.type == DATATYPES::BUFFER ||
         (column.type == DATATYPES::STRING && !column.isEncoded);
}

std::size_t bitmapBytes(std::size_t rows) noexcept { return rows / 8 + (rows % 8 != 0 ? 1 : 0); }

std::size_t absentRows(const MemoryBlock& isPresent, std::size_t rows) noexcept {
  constexpr std::size_t kWordRows = 64;
  std::size_t present = 0;
  for (std::size_t first = 0; first < rows; first += kWordRows) {
    const std::size_t count = std::min(kWordRows, rows - first);
    std::uint64_t word = 0;
    std::memcpy(&word, isPresent.data() + first / 8, bitmapBytes(count));
    if (count != kWordRows) {
      word &= (std::uint64_t{1} << count) - 1;  // a row that failed may have left its bit
    }
    present += std::bitset<kWordRows>(word).count();
  }
  return rows - present;
}

std::vector<ColumnType> typesOf(const std::vector<std::uint16_t>& fields, const ColumnOptions& options) {
  const MD_FieldMap& dictionary = MD_FieldMap::instance();
  const auto isAmong = [](const std::vector<std::uint16_t>& ids, std::uint16_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  };
  std::vector<ColumnType> types;
  types.reserve(fields.size());
  for (const std::uint16_t id : fields) {
    const auto row = dictionary.findById(id);
    if (row == dictionary.end()) {
      throw std::domain_error("ColumnBuilder: the dictionary has no field with the id " + std::to_string(id));
    }
    if (!hasColumn(row->type)) {
      throw std::domain_error("ColumnBuilder: field " + escaped(row->name) + " (" + std::to_string(id) +
                              ") has a type that messages do not carry");
    }
    // Names are UTF-8 in Arrow.
    const bool isName = validUtf8Bytes(row->name) == row->name.size();
    types.push_back({id, row->type, isAmong(options.binaryFields, id),
                     row->type == DATATYPES::STRING && isAmong(options.dictionaryFields, id),
                     isName ? row->name : escaped(row->name)});
  }
  return types;
}

/// The fields of a live message.
template <class Message>
struct MessageFields {
  const Message& message;
  const std::vector<ColumnType>& types;

  template <class T>
  MD_ALWAYS_INLINE bool read(std::size_t column, T& out) const {
    return message.get(types[column].id, out);
  }
};

/// The fields of received bytes.
template <class RecordLayout>
struct RecordFields {
  using Layout = RecordLayout;

  ByteView bytes;
  const MD_FieldMap& dictionary;
  const ColumnType* types;
  const std::uint32_t* positions;
  bool isWellFormed;  ///< all records are whole fields

  template <class T>
  MD_ALWAYS_INLINE bool read(std::size_t column, T& out) const {
    const std::uint64_t position = positions[column];
    // A dictionary that was reloaded may have another type.
    if (position == 0 || MD_UNLIKELY(dictionary.packed(types[column].id).type != kTypeCode<T>)) {
      return false;
    }
    if (isWellFormed) {
      const RecordHead head = Layout::head(bytes.whole(), position, kTypeCode<T>);
      if (isPlain<Layout, T>(head)) {
        return Layout::decode(bytes.whole(), head, out);
      }
    }
    return readAsMessage<Layout>(bytes, position, dictionary, out);
  }
};

}  // namespace

ColumnTable::ColumnTable(const std::vector<std::uint16_t>& fields, const ColumnOptions& options)
    : m_batchRows(std::min(options.batchRows, kMostOffset)),
      m_batchTextBytes(std::min(options.batchTextBytes, kMostOffset)) {
  if (m_batchRows == 0) {
    throw std::invalid_argument("ColumnBuilder: a batch has at least one row");
  }
  constexpr std::size_t kMostColumns = std::numeric_limits<std::uint16_t>::max();
  if (fields.size() > kMostColumns) {
    throw std::invalid_argument("ColumnBuilder: more than 65535 fields");
  }
  const auto others = static_cast<std::uint16_t>(fields.size());
  m_columnOf.assign(std::size_t{kMostColumns} + 1, others);
  for (std::size_t i = 0; i != fields.size(); ++i) {
    if (m_columnOf[fields[i]] != others) {
      throw std::invalid_argument("ColumnBuilder: field " + std::to_string(fields[i]) + " is there twice");
    }
    m_columnOf[fields[i]] = static_cast<std::uint16_t>(i);
  }
  m_types = std::make_shared<const std::vector<ColumnType>>(typesOf(fields, options));
  m_columns.resize(fields.size());
  m_positions.resize(fields.size() + 1);
  m_newValues.reserve(fields.size());
}

// Rows ----------------------------------------------------------------------------------------------------------------

bool ColumnTable::append(const MD_Message& message) {
  const SilentReports silence;
  bool isAppended = false;
  const auto append = [this, &isAppended](const auto& typed) {
    isAppended = appendRow(MessageFields<std::decay_t<decltype(typed)>>{typed, *m_types});
  };
  if (!withOwnClass(message, append)) {
    append(message);
  }
  return isAppended;
}

bool ColumnTable::append(const std::uint8_t* data, std::uint32_t sizeBytes) {
  const MD_FieldMap& dictionary = MD_FieldMap::instance();
  bool hasEncoding = false;
  const bool isAppended = withLayout(data, sizeBytes, [&](auto layout) {
    using Layout = typename decltype(layout)::Layout;
    const ByteView bytes(data, sizeBytes);
    hasEncoding = true;
    std::fill(m_positions.begin(), m_positions.end(), 0);
    // Of a repeated field the last record counts.
    const auto note = [positions = m_positions.data(), columnOf = m_columnOf.data()](std::uint16_t id,
                                                                                     std::uint64_t position) {
      positions[columnOf[id]] = static_cast<std::uint32_t>(position);
    };
    RecordWalk<Layout> walk(bytes, dictionary);
    walk.passWholeFields([note](FIELDS::packed_rec, std::uint16_t id, std::uint64_t at) { note(id, at); });
    const bool isWellFormed = walk.position() == sizeBytes;
    if (!isWellFormed) {
      for (WalkedRecord record; walk.next(record);) {
        if (record.kind == WalkedRecord::Kind::Field) {
          note(record.id, record.head.position);
        }
      }
    }
    return appendRow(RecordFields<Layout>{bytes, dictionary, m_types->data(), m_positions.data(), isWellFormed});
  });
  if (!hasEncoding) {
    ++m_messages;
    return fail(Reason::NoEncoding);
  }
  return isAppended;
}

template <class Source>
bool ColumnTable::appendRow(const Source& source) {
  Row result = Row::BatchIsFull;
  while (result == Row::BatchIsFull) {
    if (m_rows == m_capacity) {
      makeRoom();
    }
    result = writeRow(source);
    if (MD_UNLIKELY(result == Row::BatchIsFull)) {
      completeBatch();
    }
  }
  ++m_messages;
  if (MD_UNLIKELY(result == Row::Failed)) {
    m_failed.message = m_messages;
    return false;
  }
  for (const std::size_t number : m_newValues) {
    Column& column = m_columns[number];
    column.values.store(m_rows, column.dictionary.insert(column.newValue));
  }
  ++m_rows;
  return true;
}

template <class Source>
ColumnTable::Row ColumnTable::writeRow(const Source& source) {
  m_newValues.clear();
  const std::size_t count = m_columns.size();
  for (std::size_t number = 0; number != count; ++number) {
    Row result = Row::Done;
    switch ((*m_types)[number].type) {
      case DATATYPES::CHAR:
        result = writeChar(number, source);
        break;
      case DATATYPES::INT:
        writeValue<std::int32_t>(number, source);
        break;
      case DATATYPES::INT64:
        writeValue<std::int64_t>(number, source);
        break;
      case DATATYPES::FLOAT:
        writeValue<float>(number, source);
        break;
      case DATATYPES::DOUBLE:
        writeValue<double>(number, source);
        break;
      case DATATYPES::STRING:
        result = writeString(number, source);
        break;
      case DATATYPES::BUFFER:
        result = writeBuffer(number, source);
        break;
      case DATATYPES::EPOCH_NSEC:
        result = writeTimestamp(number, source);
        break;
      default:  // DATETIME
        writeDateTime(number, source);
        break;
    }
    if (MD_UNLIKELY(result != Row::Done)) {
      return result;
    }
  }
  return Row::Done;
}

template <class T, class Source>
void ColumnTable::writeValue(std::size_t number, const Source& source) {
  Column& column = m_columns[number];
  T value{};
  markPresence(column, source.read(number, value));
  column.values.store(m_rows, value);
}

template <class Source>
ColumnTable::Row ColumnTable::writeChar(std::size_t number, const Source& source) {
  char value = 0;
  const bool isPresent = source.read(number, value);
  const std::string_view text(&value, 1);
  if (isPresent && !isText(number, text)) {
    return Row::Failed;
  }
  return writeText(m_columns[number], isPresent, text);
}

template <class Source>
ColumnTable::Row ColumnTable::writeString(std::size_t number, const Source& source) {
  StringView16 value;
  const bool isPresent = source.read(number, value);
  if (isPresent && !isText(number, value)) {
    return Row::Failed;
  }
  return (*m_types)[number].isEncoded ? writeEncoded(number, isPresent, value)
                                      : writeText(m_columns[number], isPresent, value);
}

template <class Source>
ColumnTable::Row ColumnTable::writeBuffer(std::size_t number, const Source& source) {
  BufferView16 value;
  const bool isPresent = source.read(number, value);
  return writeText(m_columns[number], isPresent, {reinterpret_cast<const char*>(value.data), value.length});
}

template <class Source>
ColumnTable::Row ColumnTable::writeTimestamp(std::size_t number, const Source& source) {
  Column& column = m_columns[number];
  MD_EpochNS value;
  const bool isPresent = source.read(number, value);
  if (MD_UNLIKELY(value.get() > std::uint64_t{std::numeric_limits<std::int64_t>::max()})) {
    fail(Reason::NoTimestamp, number, 0, value.get());
    return Row::Failed;
  }
  markPresence(column, isPresent);
  column.values.store(m_rows, static_cast<std::int64_t>(value.get()));
  return Row::Done;
}

template <class Source>
void ColumnTable::writeDateTime(std::size_t number, const Source& source) {
  Column& column = m_columns[number];
  MD_DateTime value;
  const bool isPresent = source.read(number, value);
  markPresence(column, isPresent);
  column.values.store(m_rows, isPresent ? std::int32_t{value.date()} : 0);
  column.times.store(m_rows, isPresent ? std::int32_t{value.time()} : 0);
  column.offsets.store(m_rows, isPresent ? std::int16_t{value.exch_gmt_offset()} : std::int16_t{0});
}

ColumnTable::Row ColumnTable::writeText(Column& column, bool isPresent, std::string_view text) {
  const auto begin = static_cast<std::size_t>(column.values.load<std::int32_t>(m_rows));
  std::size_t end = begin;
  if (isPresent) {
    end += text.size();
    if (MD_UNLIKELY(end > column.text.capacity())) {
      if (end > m_batchTextBytes && m_rows != 0) {
        return Row::BatchIsFull;
      }
      column.text.reserve(std::max(end, std::min(std::max(column.textRoomBytes, 2 * begin), m_batchTextBytes)));
    }
    ByteWriter(column.text.data() + begin).put(text.data(), text.size());
  }
  markPresence(column, isPresent);
  column.values.store(m_rows + 1, static_cast<std::int32_t>(end));
  return Row::Done;
}

ColumnTable::Row ColumnTable::writeEncoded(std::size_t number, bool isPresent, std::string_view text) {
  Column& column = m_columns[number];
  std::int32_t index = 0;
  if (isPresent) {
    index = column.dictionary.find(text);
    if (index == ValueDictionary::kAbsent) {
      if (column.dictionary.valueBytes() + text.size() > m_batchTextBytes && m_rows != 0) {
        return Row::BatchIsFull;
      }
      column.dictionary.makeRoom(text);
      column.newValue = text;
      m_newValues.push_back(number);
    }
  }
  markPresence(column, isPresent);
  column.values.store(m_rows, index);
  return Row::Done;
}

bool ColumnTable::isText(std::size_t number, std::string_view text) {
  if ((*m_types)[number].isBinary) {
    return true;
  }
  const std::size_t valid = validUtf8Bytes(text);
  return valid == text.size() || fail(Reason::NotUtf8, number, valid, static_cast<std::uint8_t>(text[valid]));
}

void ColumnTable::markPresence(Column& column, bool isPresent) noexcept {
  const unsigned bit = m_rows % 8;
  std::uint8_t& bits = column.isPresent.data()[m_rows / 8];
  bits = static_cast<std::uint8_t>((bits & ((1U << bit) - 1)) | unsigned{isPresent} << bit);
}

// Failures ------------------------------------------------------------------------------------------------------------

bool ColumnTable::fail(Reason reason, std::size_t column, std::size_t position, std::uint64_t value) noexcept {
  m_failed = {m_messages, reason, column, position, value};
  return false;
}

ColumnFailure ColumnTable::failure() const {
  if (m_failed.reason == Reason::None) {
    return {};
  }
  if (m_failed.reason == Reason::NoEncoding) {
    return {m_failed.message, 0, "no bytes of a known encoding"};
  }
  const ColumnType& column = (*m_types)[m_failed.column];
  std::string reason = "field " + escaped(column.name) + " (" + std::to_string(column.id) + "): ";
  if (m_failed.reason == Reason::NotUtf8) {
    constexpr char kDigits[] = "0123456789abcdef";
    reason += "byte 0x";
    reason += kDigits[m_failed.value >> 4 & 15];
    reason += kDigits[m_failed.value & 15];
    reason += " at offset " + std::to_string(m_failed.position) + " is not UTF-8";
  } else {
    reason += std::to_string(m_failed.value) + " ns is later than a timestamp can be";
  }
  return {m_failed.message, column.id, reason};
}

// Batches -------------------------------------------------------------------------------------------------------------

/// Makes room for another row.
void ColumnTable::makeRoom() {
  if (m_rows == m_batchRows) {
    completeBatch();
  }
  const std::size_t wanted = m_capacity != 0 ? 2 * m_capacity : m_complete.empty() ? kFirstRows : m_batchRows;
  const std::size_t capacity = std::min(wanted, m_batchRows);
  for (std::size_t i = 0; i != m_columns.size(); ++i) {
    const ColumnType& type = (*m_types)[i];
    Column& column = m_columns[i];
    column.isPresent.reserve(bitmapBytes(capacity));
    column.values.reserve((capacity + (holdsText(type) ? 1 : 0)) * valueBytesOf(type));
    if (m_rows == 0 && holdsText(type)) {
      column.values.store(0, std::int32_t{0});
    }
    if (type.type == DATATYPES::DATETIME) {
      column.times.reserve(capacity * sizeof(std::int32_t));
      column.offsets.reserve(capacity * sizeof(std::int16_t));
    }
  }
  m_capacity = capacity;
}

/// Appends the rows of the current batch to the complete batches.
void ColumnTable::completeBatch() {
  const std::size_t rows = m_rows;
  m_complete.emplace_back();
  try {
    m_complete.back() = takeBatch();
  } catch (...) {
    m_complete.pop_back();
    throw;
  }
  m_completeRows += rows;
}

/// Makes an array of the rows of the current batch, and starts anew.
OwnedArray ColumnTable::takeBatch() {
  OwnedArray batch;
  makeArray(batch.get(), 1, m_columns.size(), false);
  for (std::size_t i = 0; i != m_columns.size(); ++i) {
    const ColumnType& type = (*m_types)[i];
    ArrowArray& array = *batch.get().children[i];
    if (type.type == DATATYPES::DATETIME) {
      makeArray(array, 1, 3, false);
      for (std::size_t part = 0; part != 3; ++part) {
        makeArray(*array.children[part], 2, 0, false);
      }
    } else if (type.isEncoded) {
      makeArray(array, 2, 0, true);
      makeArray(*array.dictionary, 3, 0, false);
    } else {
      makeArray(array, holdsText(type) ? 3 : 2, 0, false);
    }
  }
  setRows(batch.get(), m_rows, 0);
  for (std::size_t i = 0; i != m_columns.size(); ++i) {
    fillArray(i, *batch.get().children[i]);
  }
  m_rows = 0;
  m_capacity = 0;
  return batch;
}

void ColumnTable::fillArray(std::size_t number, ArrowArray& array) noexcept {
  const ColumnType& type = (*m_types)[number];
  Column& column = m_columns[number];
  const auto give = [](ArrowArray& owner, std::size_t buffer, MemoryBlock& block, std::size_t bytes) {
    block.shrink(bytes);
    setBuffer(owner, buffer, std::move(block));
  };
  const std::size_t absent = absentRows(column.isPresent, m_rows);
  setRows(array, m_rows, absent);
  if (absent != 0) {
    give(array, 0, column.isPresent, bitmapBytes(m_rows));
  }
  if (type.type == DATATYPES::DATETIME) {
    MemoryBlock* const parts[] = {&column.values, &column.times, &column.offsets};
    const std::size_t widths[] = {sizeof(std::int32_t), sizeof(std::int32_t), sizeof(std::int16_t)};
    for (std::size_t i = 0; i != 3; ++i) {
      setRows(*array.children[i], m_rows, 0);
      give(*array.children[i], 1, *parts[i], m_rows * widths[i]);
    }
    return;
  }
  if (holdsText(type)) {
    const auto bytes = static_cast<std::size_t>(column.values.load<std::int32_t>(m_rows));
    column.textRoomBytes = bytes;
    give(array, 2, column.text, bytes);
  } else if (type.isEncoded) {
    setRows(*array.dictionary, column.dictionary.size(), 0);
    auto [offsets, bytes] = column.dictionary.take();
    setBuffer(*array.dictionary, 1, std::move(offsets));
    setBuffer(*array.dictionary, 2, std::move(bytes));
  }
  give(array, 1, column.values, (m_rows + (holdsText(type) ? 1 : 0)) * valueBytesOf(type));
}

bool ColumnTable::exportBatch(ArrowArray* out) {
  *out = {};
  if (!m_complete.empty()) {
    *out = m_complete.front().take();
    m_complete.pop_front();
    m_completeRows -= static_cast<std::size_t>(out->length);
    return true;
  }
  if (m_rows == 0) {
    return false;
  }
  *out = takeBatch().take();
  return true;
}

void ColumnTable::exportStream(ArrowArrayStream* out) {
  auto stream = std::make_unique<StreamHolder>();
  if (m_rows != 0) {
    completeBatch();
  }
  stream->types = m_types;
  stream->batches.swap(m_complete);
  m_completeRows = 0;
  exportStreamOf(std::move(stream), out);
}

}  // namespace MD::detail
