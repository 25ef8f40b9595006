#include "messages/arrow_writer.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

#include "base/errors.h"
#include "messages/received.h"

#if defined(MDMSG_HAS_FLATBUFFERS)
#include <flatbuffers/flatbuffers.h>
#endif

namespace MD::tool {
namespace {

constexpr std::size_t kMostHeldBytes = std::size_t{64} << 20;

/// A schema or an array of the library's, released at the end.
template <class Structure>
struct Exported {
  Structure structure{};

  Exported() = default;
  Exported(const Exported&) = delete;
  Exported& operator=(const Exported&) = delete;
  ~Exported() {
    if (structure.release != nullptr) {
      structure.release(&structure);
    }
  }
};

#if defined(MDMSG_HAS_FLATBUFFERS)

// The tables of Arrow's Schema.fbs, Message.fbs and File.fbs: fields by their numbers there, as far as they are
// written.
using Builder = flatbuffers::FlatBufferBuilder;
using Table = flatbuffers::Offset<void>;

constexpr std::int16_t kVersion5 = 4;
enum MessageKind : std::uint8_t { kSchema = 1, kRecordBatch = 3 };
enum TypeKind : std::uint8_t { kInt = 2, kFloatingPoint = 3, kBinary = 4, kUtf8 = 5, kTimestamp = 10, kStruct = 13 };

FLATBUFFERS_MANUALLY_ALIGNED_STRUCT(8) FieldNode {
  std::int64_t length;
  std::int64_t nullCount;
};
FLATBUFFERS_STRUCT_END(FieldNode, 16);

FLATBUFFERS_MANUALLY_ALIGNED_STRUCT(8) BufferPlace {
  std::int64_t offset;
  std::int64_t length;
};
FLATBUFFERS_STRUCT_END(BufferPlace, 16);

FLATBUFFERS_MANUALLY_ALIGNED_STRUCT(8) FileBlock {
  std::int64_t offset;
  std::int32_t metadataBytes;
  std::int32_t padding;
  std::int64_t bodyBytes;
};
FLATBUFFERS_STRUCT_END(FileBlock, 24);

/// Writes the fields of one table, whose parts are there already.
class Fields {
 public:
  explicit Fields(Builder& builder) : m_builder(builder), m_start(builder.StartTable()) {}

  template <class T>
  Fields& value(std::uint16_t number, T value) {
    m_builder.AddElement<T>(flatbuffers::FieldIndexToOffset(number), value, T{});
    return *this;
  }
  template <class T>
  Fields& part(std::uint16_t number, flatbuffers::Offset<T> part) {
    m_builder.AddOffset(flatbuffers::FieldIndexToOffset(number), part);
    return *this;
  }
  Table end() { return Table(m_builder.EndTable(m_start)); }

 private:
  Builder& m_builder;
  flatbuffers::uoffset_t m_start;
};

std::pair<TypeKind, Table> typeTable(Builder& builder, std::string_view format) {
  const auto integer = [&builder](std::int32_t bits) {
    return std::pair(kInt, Fields(builder).value<std::int32_t>(0, bits).value<std::uint8_t>(1, true).end());
  };
  if (format == "s") {
    return integer(16);
  }
  if (format == "i") {
    return integer(32);
  }
  if (format == "l") {
    return integer(64);
  }
  if (format == "f" || format == "g") {
    return {kFloatingPoint, Fields(builder).value<std::int16_t>(0, format == "f" ? 1 : 2).end()};
  }
  if (format == "tsn:UTC") {
    constexpr std::int16_t kNanoseconds = 3;
    const auto zone = builder.CreateString("UTC");
    return {kTimestamp, Fields(builder).value(0, kNanoseconds).part(1, zone).end()};
  }
  return {format == "u" ? kUtf8 : format == "z" ? kBinary : kStruct, Fields(builder).end()};
}

Table fieldTable(Builder& builder, const ArrowSchema& schema);

flatbuffers::Offset<flatbuffers::Vector<Table>> fieldTables(Builder& builder, const ArrowSchema& schema) {
  std::vector<Table> children;
  for (std::int64_t i = 0; i != schema.n_children; ++i) {
    children.push_back(fieldTable(builder, *schema.children[i]));
  }
  return builder.CreateVector(children);
}

Table fieldTable(Builder& builder, const ArrowSchema& schema) {
  const auto children = fieldTables(builder, schema);
  const auto name = builder.CreateString(schema.name);
  const auto [kind, type] = typeTable(builder, schema.format);
  return Fields(builder)
      .part(0, name)
      .value<std::uint8_t>(1, (schema.flags & ARROW_FLAG_NULLABLE) != 0)
      .value<std::uint8_t>(2, kind)
      .part(3, type)
      .part(5, children)
      .end();
}

Table schemaTable(Builder& builder, const ArrowSchema& schema) {
  const auto fields = fieldTables(builder, schema);
  return Fields(builder).part(1, fields).end();
}

std::string finished(Builder& builder, Table root) {
  builder.Finish(root);
  return {reinterpret_cast<const char*>(builder.GetBufferPointer()), builder.GetSize()};
}

std::string messageMetadata(Builder& builder, MessageKind kind, Table header, std::int64_t bodyBytes) {
  return finished(
      builder,
      Fields(builder).value(0, kVersion5).value<std::uint8_t>(1, kind).part(2, header).value(3, bodyBytes).end());
}

/// The bytes of a batch, in the order in which they are written.
struct Body {
  std::vector<FieldNode> nodes;
  std::vector<BufferPlace> places;
  std::vector<std::string_view> buffers;
  std::int64_t sizeBytes = 0;

  void add(const ArrowSchema& schema, const ArrowArray& array) {
    const std::string_view format = schema.format;
    const std::int64_t rows = array.length;
    nodes.push_back({rows, array.null_count});
    addBuffer(array.buffers[0], array.null_count != 0 ? (rows + 7) / 8 : 0);
    if (format == "u" || format == "z") {
      std::int32_t end = 0;
      std::copy_n(static_cast<const char*>(array.buffers[1]) + rows * 4, 4, reinterpret_cast<char*>(&end));
      addBuffer(array.buffers[1], (rows + 1) * 4);
      addBuffer(array.buffers[2], end);
    } else if (format != "+s") {
      const bool isWide = format == "l" || format == "g" || format == "tsn:UTC";
      addBuffer(array.buffers[1], rows * (isWide ? 8 : format == "s" ? 2 : 4));
    }
    for (std::int64_t i = 0; i != array.n_children; ++i) {
      add(*schema.children[i], *array.children[i]);
    }
  }

 private:
  void addBuffer(const void* data, std::int64_t lengthBytes) {
    places.push_back({sizeBytes, lengthBytes});
    buffers.emplace_back(static_cast<const char*>(data), static_cast<std::size_t>(lengthBytes));
    sizeBytes += (lengthBytes + kAlignment - 1) / kAlignment * kAlignment;
  }

  static constexpr std::int64_t kAlignment = 64;
};

#endif

}  // namespace

ArrowWriter::ArrowWriter(const std::vector<Field>& columns, const FieldNames& names, const ArrowOptions& options,
                         Output& out, Reporter& reporter)
    : m_names(names),
      m_options(options),
      m_out(out),
      m_reporter(reporter),
      m_columns(columns),
      m_isChosen(!columns.empty()),
      m_isColumn(std::size_t{std::numeric_limits<std::uint16_t>::max()} + 1) {
#if !defined(MDMSG_HAS_FLATBUFFERS)
  throw UsageError("this mdmsg was built without FlatBuffers, which --format arrow takes");
#endif
  if (m_isChosen) {
    begin();
  }
}

ArrowWriter::~ArrowWriter() = default;

void ArrowWriter::append(const MD_Message& message) {
  if (m_builder == nullptr) {
    hold(message);
  } else {
    if (!m_isChosen) {
      noteOthers(message);
    }
    appendRow(message);
  }
}

void ArrowWriter::appendRow(const MD_Message& message) {
  for (const Field column : m_columns) {
    if (message.existsImpl(column.id) && !isReadable(message, column.id, column.type)) {
      noteUnreadable(message, column.id, m_names, m_reporter);
    }
  }
  if (!m_builder->append(message)) {
    throw LineError(m_builder->failure().reason, {}, ReportKind::NotHeld);
  }
  if (m_builder->completeBatches() != 0) {
    writeBatch();
  }
}

/// Keeps a message until the columns are known.
void ArrowWriter::hold(const MD_Message& message) {
  message.get_field_ids(m_ids);
  for (const std::uint16_t id : m_ids) {
    m_isColumn[id] = true;
  }
  const std::uint8_t* const bytes = message.getBinary();
  m_heldBytes.insert(m_heldBytes.end(), bytes, bytes + message.getSizeImpl());
  m_held.push_back({m_reporter.input(), m_reporter.at(), m_heldBytes.size()});
  if (m_held.size() == m_options.batchRows || m_heldBytes.size() >= kMostHeldBytes) {
    begin();
  }
}

/// Notes fields that became known too late to be columns.
void ArrowWriter::noteOthers(const MD_Message& message) {
  message.get_field_ids(m_ids);
  for (const std::uint16_t id : m_ids) {
    if (!m_isColumn[id]) {
      m_isColumn[id] = true;
      m_reporter.note(ReportKind::NotHeld, m_names.label(id),
                      "is not a column, because no message of the first batch has it; choose columns with --fields");
    }
  }
}

#if defined(MDMSG_HAS_FLATBUFFERS)

/// The columns are known: writes the schema, and the messages that were held.
void ArrowWriter::begin() {
  if (!m_isChosen) {
    for (std::size_t id = 0; id != m_isColumn.size(); ++id) {
      if (m_isColumn[id]) {
        m_columns.push_back({static_cast<std::uint16_t>(id), m_names.type(static_cast<std::uint16_t>(id))});
      }
    }
  }
  std::vector<std::uint16_t> fields;
  for (const Field column : m_columns) {
    fields.push_back(column.id);
  }
  ColumnOptions options;
  options.batchRows = m_options.batchRows;
  if (m_options.isTextBinary) {
    options.binaryFields = fields;
  }
  m_builder = std::make_unique<ColumnBuilder>(fields, options);

  if (m_options.isFile) {
    const std::size_t first = m_out.text().size();
    m_out.text().append("ARROW1\0\0", 8);
    written(first);
  }
  Exported<ArrowSchema> schema;
  m_builder->exportSchema(&schema.structure);
  Builder builder;
  const Table table = schemaTable(builder, schema.structure);
  writeMessage(messageMetadata(builder, kSchema, table, 0), {});

  const auto held = std::exchange(m_held, {});
  const auto bytes = std::exchange(m_heldBytes, {});
  if (held.empty()) {
    return;
  }
  const Held now = {m_reporter.input(), m_reporter.at(), 0};
  std::size_t first = 0;
  for (const Held& one : held) {
    m_reporter.setInput(one.input);
    m_reporter.setPlace(one.place);
    try {
      appendRow(*MD_Message::createFromBytes(bytes.data() + first, static_cast<std::uint32_t>(one.endBytes - first)));
    } catch (const LineError& error) {
      m_reporter.error(error);
    }
    first = one.endBytes;
  }
  m_reporter.setInput(now.input);
  m_reporter.setPlace(now.place);
}

void ArrowWriter::writeBatch() {
  Exported<ArrowSchema> schema;
  Exported<ArrowArray> batch;
  m_builder->exportSchema(&schema.structure);
  if (!m_builder->exportBatch(&batch.structure)) {
    return;
  }
  Body body;
  for (std::int64_t i = 0; i != batch.structure.n_children; ++i) {
    body.add(*schema.structure.children[i], *batch.structure.children[i]);
  }
  Builder builder;
  const auto nodes = builder.CreateVectorOfStructs(body.nodes);
  const auto places = builder.CreateVectorOfStructs(body.places);
  const Table table = Fields(builder).value(0, batch.structure.length).part(1, nodes).part(2, places).end();
  const std::int64_t offset = m_writtenBytes;
  writeMessage(messageMetadata(builder, kRecordBatch, table, body.sizeBytes), body.buffers);
  m_blocks.push_back({offset, static_cast<std::int32_t>(m_writtenBytes - offset - body.sizeBytes), body.sizeBytes});
}

/// Writes a message: its length, its metadata and its buffers, each filled up to a multiple of 64 bytes.
void ArrowWriter::writeMessage(const std::string& metadata, const std::vector<std::string_view>& buffers) {
  std::string& text = m_out.text();
  const std::size_t begin = text.size();
  const std::size_t metadataBytes = (metadata.size() + 7) / 8 * 8;
  appendWord(0xffffffff);
  appendWord(static_cast<std::uint32_t>(metadataBytes));
  text += metadata;
  text.append(metadataBytes - metadata.size(), '\0');
  for (const std::string_view buffer : buffers) {
    text += buffer;
    text.append((buffer.size() + 63) / 64 * 64 - buffer.size(), '\0');
  }
  written(begin);
}

void ArrowWriter::finish() {
  if (m_builder == nullptr) {
    begin();
  }
  while (m_builder->rows() != 0) {
    writeBatch();
  }
  const std::size_t begin = m_out.text().size();
  appendWord(0xffffffff);
  appendWord(0);
  if (m_options.isFile) {
    Exported<ArrowSchema> schema;
    m_builder->exportSchema(&schema.structure);
    Builder builder;
    std::vector<FileBlock> batches;
    for (const Block& block : m_blocks) {
      batches.push_back({block.offset, block.metadataBytes, 0, block.bodyBytes});
    }
    const Table table = schemaTable(builder, schema.structure);
    const auto dictionaries = builder.CreateVectorOfStructs(std::vector<FileBlock>());
    const auto blocks = builder.CreateVectorOfStructs(batches);
    const std::string footer = finished(
        builder, Fields(builder).value(0, kVersion5).part(1, table).part(2, dictionaries).part(3, blocks).end());
    m_out.text() += footer;
    appendWord(static_cast<std::uint32_t>(footer.size()));
    m_out.text() += "ARROW1";
  }
  written(begin);
}

#else

void ArrowWriter::begin() {}
void ArrowWriter::writeBatch() {}
void ArrowWriter::finish() {}

#endif

void ArrowWriter::appendWord(std::uint32_t word) {
  for (unsigned shift = 0; shift != 32; shift += 8) {
    m_out.text() += static_cast<char>(word >> shift & 0xff);
  }
}

/// What has been put out from `begin` on is complete.
void ArrowWriter::written(std::size_t begin) {
  m_writtenBytes += static_cast<std::int64_t>(m_out.text().size() - begin);
  m_out.lineDone();
}

}  // namespace MD::tool
