#include "columns.h"

#include <cerrno>
#include <cstring>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "fields.h"
#include "md/md_arrow.h"
#include "md/md_receiver.h"
#include "messages/received.h"
#include "reader_object.h"
#include "reading.h"
#include "text/value_text.h"
#include "values.h"

namespace MD::python {
namespace {

constexpr std::size_t kMostSkipped = 100'000;  // messages before signals are looked at

/// A batch of rows in the memory layout of Arrow: a struct array with a child per column.
class Batch {
 public:
  /// Takes the oldest one from the builder, where there is one.
  explicit Batch(ColumnBuilder& builder) { builder.exportBatch(&m_array); }
  ~Batch() {
    if (m_array.release != nullptr) {
      m_array.release(&m_array);
    }
  }
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  bool isThere() const noexcept { return m_array.release != nullptr; }
  std::size_t rows() const noexcept { return static_cast<std::size_t>(m_array.length); }
  const ArrowArray& array() const noexcept { return m_array; }
  const ArrowArray& column(std::size_t number) const noexcept { return *m_array.children[number]; }

 private:
  ArrowArray m_array{};
};
using SharedBatch = std::shared_ptr<const Batch>;

/// What the columns of several objects have in common.
struct Table {
  std::vector<tool::Field> fields;
  std::vector<bool> isEncoded;                 ///< by column: dictionary-encoded
  std::shared_ptr<const ColumnBuilder> types;  ///< describes the columns
  std::vector<SharedBatch> batches;
  std::size_t rows = 0;
};

// Arrays that refer to a batch, for as many consumers as ask
// -----------------------------------------------------------

struct SharedArray {
  SharedBatch batch;
  std::vector<ArrowArray> children;
  std::vector<ArrowArray*> pointers;
};

void releaseShared(ArrowArray* array) {
  // A consumer may have taken children out of the array, or released them.
  for (std::int64_t i = 0; i != array->n_children; ++i) {
    if (array->children[i]->release != nullptr) {
      array->children[i]->release(array->children[i]);
    }
  }
  if (array->dictionary != nullptr && array->dictionary->release != nullptr) {
    array->dictionary->release(array->dictionary);
  }
  array->release = nullptr;
  delete static_cast<SharedArray*>(array->private_data);
}

/// Describes the same buffers as `source`, which is a part of the batch. @throws std::bad_alloc, `out` unchanged
void shareArray(const ArrowArray& source, const SharedBatch& batch, ArrowArray* out) {
  const auto count = static_cast<std::size_t>(source.n_children);
  const bool hasDictionary = source.dictionary != nullptr;
  auto shared = std::make_unique<SharedArray>();
  shared->batch = batch;
  shared->children.resize(count + (hasDictionary ? 1 : 0));
  try {
    for (std::size_t i = 0; i != shared->children.size(); ++i) {
      shareArray(i < count ? *source.children[i] : *source.dictionary, batch, &shared->children[i]);
      shared->pointers.push_back(&shared->children[i]);
    }
  } catch (...) {
    for (ArrowArray& child : shared->children) {
      if (child.release != nullptr) {
        child.release(&child);
      }
    }
    throw;
  }
  *out = source;
  out->children = count != 0 ? shared->pointers.data() : nullptr;
  out->dictionary = hasDictionary ? shared->pointers[count] : nullptr;
  out->release = &releaseShared;
  out->private_data = shared.release();
}

struct SharedStream {
  std::shared_ptr<const ColumnBuilder> types;
  std::vector<SharedBatch> batches;
  std::size_t next = 0;
  const char* error = nullptr;
};

SharedStream& streamOf(ArrowArrayStream* stream) noexcept { return *static_cast<SharedStream*>(stream->private_data); }

/// Runs `f`; what it throws becomes an error number.
template <class F>
int asErrorNumber(ArrowArrayStream* stream, F f) noexcept {
  try {
    f();
    return 0;
  } catch (const std::bad_alloc&) {
    streamOf(stream).error = "out of memory";
    return ENOMEM;
  } catch (...) {
    streamOf(stream).error = "unexpected exception";
    return EINVAL;
  }
}

int streamSchema(ArrowArrayStream* stream, ArrowSchema* out) {
  return asErrorNumber(stream, [&] { streamOf(stream).types->exportSchema(out); });
}

int streamNext(ArrowArrayStream* stream, ArrowArray* out) {
  return asErrorNumber(stream, [&] {
    SharedStream& state = streamOf(stream);
    if (state.next == state.batches.size()) {
      *out = ArrowArray();
      return;
    }
    shareArray(state.batches[state.next]->array(), state.batches[state.next], out);
    ++state.next;
  });
}

const char* streamError(ArrowArrayStream* stream) { return streamOf(stream).error; }

void releaseStream(ArrowArrayStream* stream) {
  delete &streamOf(stream);
  stream->release = nullptr;
}

/// A capsule with one of Arrow's structures, which it releases unless a consumer has moved it out.
template <class Structure>
Ref capsuleOf(std::unique_ptr<Structure> structure, const char* name) {
  const auto destroy = [](PyObject* capsule) {
    auto* const held = static_cast<Structure*>(PyCapsule_GetPointer(capsule, PyCapsule_GetName(capsule)));
    if (held->release != nullptr) {
      held->release(held);
    }
    delete held;
  };
  PyObject* const capsule = PyCapsule_New(structure.get(), name, destroy);
  if (capsule == nullptr && structure->release != nullptr) {
    structure->release(structure.get());
  }
  Ref owned = own(capsule);
  static_cast<void>(structure.release());  // the capsule's now
  return owned;
}

// Columns
// ---------------------------------------------------------------------------------------------------------------

bool bitAt(const void* bits, std::size_t number) noexcept {
  return (static_cast<const std::uint8_t*>(bits)[number / 8] >> (number % 8) & 1) != 0;
}

bool isValid(const ArrowArray& array, std::size_t row) noexcept {
  return array.null_count == 0 || array.buffers[0] == nullptr || bitAt(array.buffers[0], row);
}

/// The format of a column in the buffer protocol, and the size of a value; of types of a fixed width.
struct Layout {
  const char* format = nullptr;
  std::size_t sizeBytes = 0;
};
Layout layoutOf(std::uint8_t type) noexcept {
  switch (type) {
    case DATATYPES::INT:
      return {"i", 4};
    case DATATYPES::INT64:
    case DATATYPES::EPOCH_NSEC:
      return {"q", 8};
    case DATATYPES::FLOAT:
      return {"f", 4};
    case DATATYPES::DOUBLE:
      return {"d", 8};
    default:
      return {};
  }
}

struct ColumnState {
  std::shared_ptr<Table> table;
  std::size_t number = 0;
  /// The values of all batches one after the other, and which of them are there; made when they are asked for.
  std::vector<std::uint8_t> values;
  std::vector<std::uint8_t> validity;
  Py_ssize_t rows = 0;
  Py_ssize_t strideBytes = 0;

  const tool::Field& field() const noexcept { return table->fields[number]; }
  bool isEncoded() const noexcept { return table->isEncoded[number]; }
  std::size_t nulls() const noexcept {
    std::size_t count = 0;
    for (const SharedBatch& batch : table->batches) {
      count += static_cast<std::size_t>(batch->column(number).null_count);
    }
    return count;
  }
};

struct ColumnObject {
  PyObject_HEAD ColumnState state;
};

struct TableObject {
  PyObject_HEAD std::shared_ptr<Table> table;
};

PyTypeObject* g_columnType = nullptr;
PyTypeObject* g_tableType = nullptr;

ColumnState& columnOf(PyObject* self) noexcept { return reinterpret_cast<ColumnObject*>(self)->state; }
Table& tableOf(PyObject* self) noexcept { return *reinterpret_cast<TableObject*>(self)->table; }

template <class T>
T valueAt(const void* buffer, std::size_t row) noexcept {
  T value;
  std::memcpy(&value, static_cast<const std::uint8_t*>(buffer) + row * sizeof value, sizeof value);
  return value;
}

Ref textAt(const ArrowArray& array, std::size_t row, bool isBytes) {
  const auto first = valueAt<std::int32_t>(array.buffers[1], row);
  const auto sizeBytes = static_cast<std::size_t>(valueAt<std::int32_t>(array.buffers[1], row + 1) - first);
  const char* const text = static_cast<const char*>(array.buffers[2]) + first;
  return isBytes ? own(PyBytes_FromStringAndSize(text, static_cast<Py_ssize_t>(sizeBytes)))
                 : decodeText(text, sizeBytes);
}

/// Of a dictionary-encoded column: which of the batch's values a row has.
std::size_t numberAt(const ArrowArray& array, std::size_t row) noexcept {
  return static_cast<std::size_t>(valueAt<std::int32_t>(array.buffers[1], row));
}

Ref objectAt(const ArrowArray& array, std::uint8_t type, std::size_t row) {
  if (!isValid(array, row)) {
    return none();
  }
  switch (type) {
    case DATATYPES::INT:
      return toPython(valueAt<std::int32_t>(array.buffers[1], row));
    case DATATYPES::INT64:
    case DATATYPES::EPOCH_NSEC:
      return toPython(valueAt<std::int64_t>(array.buffers[1], row));
    case DATATYPES::FLOAT:
      return toPython(valueAt<float>(array.buffers[1], row));
    case DATATYPES::DOUBLE:
      return toPython(valueAt<double>(array.buffers[1], row));
    case DATATYPES::DATETIME:
      return toPython(MD_DateTime(valueAt<std::int32_t>(array.children[0]->buffers[1], row),
                                  valueAt<std::int32_t>(array.children[1]->buffers[1], row),
                                  valueAt<std::int16_t>(array.children[2]->buffers[1], row)));
    default:
      if (array.dictionary != nullptr) {
        return textAt(*array.dictionary, numberAt(array, row), false);
      }
      return textAt(array, row, type == DATATYPES::BUFFER);
  }
}

/// Copies the validity of the batches into one bitmap.
void fillValidity(ColumnState& column) {
  std::vector<std::uint8_t> bits((column.table->rows + 7) / 8);
  std::size_t row = 0;
  for (const SharedBatch& batch : column.table->batches) {
    const ArrowArray& array = batch->column(column.number);
    for (std::size_t i = 0; i != batch->rows(); ++i, ++row) {
      if (isValid(array, i)) {
        bits[row / 8] = static_cast<std::uint8_t>(bits[row / 8] | 1U << row % 8);
      }
    }
  }
  column.validity = std::move(bits);
}

int exportColumn(PyObject* self, Py_buffer* view, int flags) noexcept {
  return guarded([&] {
    view->obj = nullptr;
    ColumnState& column = columnOf(self);
    const Layout layout = layoutOf(column.field().type);
    if (layout.format == nullptr) {
      raise(PyExc_BufferError, labelOf(column.field().id) + ": values of this type have no fixed width; use to_list()");
    }
    if ((flags & PyBUF_WRITABLE) != 0) {
      raise(PyExc_BufferError, "a column cannot be written to");
    }
    const void* values = nullptr;
    if (column.table->batches.size() == 1) {
      values = column.table->batches[0]->column(column.number).buffers[1];
    } else {
      if (column.values.empty()) {
        std::vector<std::uint8_t> all;
        all.reserve(column.table->rows * layout.sizeBytes);
        for (const SharedBatch& batch : column.table->batches) {
          const auto* const first = static_cast<const std::uint8_t*>(batch->column(column.number).buffers[1]);
          all.insert(all.end(), first, first + batch->rows() * layout.sizeBytes);
        }
        column.values = std::move(all);
      }
      values = column.values.data();
    }
    column.rows = static_cast<Py_ssize_t>(column.table->rows);
    column.strideBytes = static_cast<Py_ssize_t>(layout.sizeBytes);
    void* const bytes = const_cast<void*>(values);
    check(PyBuffer_FillInfo(view, self, bytes, column.rows * column.strideBytes, 1, flags));
    if ((flags & PyBUF_FORMAT) == PyBUF_FORMAT) {
      view->format = const_cast<char*>(layout.format);
    }
    view->itemsize = column.strideBytes;
    if ((flags & PyBUF_ND) == PyBUF_ND) {
      view->shape = &column.rows;
    }
    if ((flags & PyBUF_STRIDES) == PyBUF_STRIDES) {
      view->strides = &column.strideBytes;
    }
    return 0;
  });
}

void destroyColumn(PyObject* self) noexcept {
  columnOf(self).~ColumnState();
  freeObject(self);
}

Py_ssize_t columnLength(PyObject* self) noexcept { return static_cast<Py_ssize_t>(columnOf(self).table->rows); }

/// @throws PythonError if the row is out of range
Ref valueAtRow(const ColumnState& column, Py_ssize_t row) {
  auto left = static_cast<std::size_t>(row);
  if (row >= 0) {
    for (const SharedBatch& batch : column.table->batches) {
      if (left < batch->rows()) {
        return objectAt(batch->column(column.number), column.field().type, left);
      }
      left -= batch->rows();
    }
  }
  raise(PyExc_IndexError, "row index out of range");
}

PyObject* columnItem(PyObject* self, Py_ssize_t row) noexcept {
  return guarded([&] { return valueAtRow(columnOf(self), row).release(); });
}

PyObject* columnSubscript(PyObject* self, PyObject* key) noexcept {
  return guarded([&] {
    const ColumnState& column = columnOf(self);
    const Py_ssize_t rows = columnLength(self);
    if (Py_TYPE(key) == &PySlice_Type) {
      Py_ssize_t row = 0;
      Py_ssize_t stop = 0;
      Py_ssize_t step = 0;
      check(PySlice_Unpack(key, &row, &stop, &step));
      const Py_ssize_t count = PySlice_AdjustIndices(rows, &row, &stop, step);
      Ref list = own(PyList_New(0));
      for (Py_ssize_t i = 0; i != count; ++i, row += step) {
        check(PyList_Append(list.get(), valueAtRow(column, row).get()));
      }
      return list.release();
    }
    const Py_ssize_t row = PyNumber_AsSsize_t(key, PyExc_IndexError);
    if (row == -1 && PyErr_Occurred() != nullptr) {
      throw PythonError();
    }
    return valueAtRow(column, row < 0 ? row + rows : row).release();
  });
}

PyObject* columnToList(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    const ColumnState& column = columnOf(self);
    Ref list = own(PyList_New(0));
    for (const SharedBatch& batch : column.table->batches) {
      for (std::size_t row = 0; row != batch->rows(); ++row) {
        check(PyList_Append(list.get(), objectAt(batch->column(column.number), column.field().type, row).get()));
      }
    }
    return list.release();
  });
}

/// The values of a dictionary-encoded column, each once, and their numbers in the rows, -1 for a null, as bytes; None
/// for other columns. Each batch has numbers of its own; here they are those of the whole column.
PyObject* columnEncoded(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    const ColumnState& column = columnOf(self);
    if (!column.isEncoded()) {
      return none().release();
    }
    std::vector<std::int32_t> rows;
    rows.reserve(column.table->rows);
    Ref values = own(PyList_New(0));
    Ref numbers = own(PyDict_New());
    for (const SharedBatch& batch : column.table->batches) {
      const ArrowArray& array = batch->column(column.number);
      std::vector<std::int32_t> numberOf;
      for (std::size_t i = 0; i != static_cast<std::size_t>(array.dictionary->length); ++i) {
        Ref value = textAt(*array.dictionary, i, false);
        PyObject* const known = PyDict_GetItemWithError(numbers.get(), value.get());
        if (known == nullptr) {
          check(PyErr_Occurred() != nullptr ? -1 : 0);
          numberOf.push_back(static_cast<std::int32_t>(PyList_Size(values.get())));
          check(PyList_Append(values.get(), value.get()));
          check(PyDict_SetItem(numbers.get(), value.get(), toPython(numberOf.back()).get()));
        } else {
          numberOf.push_back(static_cast<std::int32_t>(PyLong_AsLong(known)));
        }
      }
      for (std::size_t row = 0; row != batch->rows(); ++row) {
        rows.push_back(isValid(array, row) ? numberOf[numberAt(array, row)] : -1);
      }
    }
    const void* const bytes = rows.data();
    const Ref packed = own(PyBytes_FromStringAndSize(static_cast<const char*>(bytes),
                                                     static_cast<Py_ssize_t>(rows.size() * sizeof(std::int32_t))));
    return own(PyTuple_Pack(2, values.get(), packed.get())).release();
  });
}

PyObject* columnNulls(PyObject* self, void*) noexcept { return PyLong_FromSize_t(columnOf(self).nulls()); }
PyObject* columnType(PyObject* self, void*) noexcept {
  return PyUnicode_FromString(tool::typeName(columnOf(self).field().type));
}
PyObject* columnValidity(PyObject* self, void*) noexcept {
  return guarded([&] {
    ColumnState& column = columnOf(self);
    if (column.nulls() == 0) {
      return none().release();
    }
    if (column.validity.empty()) {
      fillValidity(column);
    }
    const void* const bits = column.validity.data();
    return PyBytes_FromStringAndSize(static_cast<const char*>(bits), static_cast<Py_ssize_t>(column.validity.size()));
  });
}

// The table
// ---------------------------------------------------------------------------------------------------------------

Ref newTable(std::shared_ptr<Table> table) {
  Ref self = own(PyType_GenericAlloc(g_tableType, 0));
  new (&reinterpret_cast<TableObject*>(self.get())->table) std::shared_ptr<Table>(std::move(table));
  return self;
}

void destroyTable(PyObject* self) noexcept {
  using Pointer = std::shared_ptr<Table>;
  reinterpret_cast<TableObject*>(self)->table.~Pointer();
  freeObject(self);
}

PyObject* tableColumn(PyObject* self, PyObject* arguments) noexcept {
  return guarded([&] {
    PyObject* type = nullptr;
    Py_ssize_t number = 0;
    if (PyArg_ParseTuple(arguments, "On", &type, &number) == 0) {
      throw PythonError();
    }
    const auto& table = reinterpret_cast<TableObject*>(self)->table;
    if (PyType_Check(type) == 0 || PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(type), g_columnType) == 0 ||
        number < 0 || static_cast<std::size_t>(number) >= table->fields.size()) {
      raise(PyExc_TypeError, "column() takes a class of columns and the number of a column");
    }
    const auto allocate =
        reinterpret_cast<allocfunc>(PyType_GetSlot(reinterpret_cast<PyTypeObject*>(type), Py_tp_alloc));
    Ref column = own(allocate(reinterpret_cast<PyTypeObject*>(type), 0));
    auto* const state = new (&columnOf(column.get())) ColumnState;
    state->table = table;
    state->number = static_cast<std::size_t>(number);
    return column.release();
  });
}

PyObject* tableBatches(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    const Table& table = tableOf(self);
    Ref batches = own(PyList_New(0));
    for (const SharedBatch& batch : table.batches) {
      auto part = std::make_shared<Table>();
      part->fields = table.fields;
      part->isEncoded = table.isEncoded;
      part->types = table.types;
      part->batches.push_back(batch);
      part->rows = batch->rows();
      check(PyList_Append(batches.get(), newTable(std::move(part)).get()));
    }
    return batches.release();
  });
}

PyObject* tableStream(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    const Table& table = tableOf(self);
    auto state = std::make_unique<SharedStream>();
    state->types = table.types;
    state->batches = table.batches;
    auto stream = std::make_unique<ArrowArrayStream>();
    *stream = {&streamSchema, &streamNext, &streamError, &releaseStream, state.release()};
    return capsuleOf(std::move(stream), "arrow_array_stream").release();
  });
}

PyObject* tableSchema(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    auto schema = std::make_unique<ArrowSchema>();
    tableOf(self).types->exportSchema(schema.get());
    return capsuleOf(std::move(schema), "arrow_schema").release();
  });
}

PyObject* tableRows(PyObject* self, void*) noexcept { return PyLong_FromSize_t(tableOf(self).rows); }
PyObject* tableKeys(PyObject* self, void*) noexcept {
  return guarded([&] {
    Ref keys = own(PyList_New(0));
    for (const tool::Field& field : tableOf(self).fields) {
      check(PyList_Append(keys.get(), keyOf(field.id).get()));
    }
    return keys.release();
  });
}

// Reading
// ---------------------------------------------------------------------------------------------------------------

/// Reads messages into batches.
class ColumnReader {
 public:
  ColumnReader(Reading reading, const ColumnOptions& options) : m_reading(std::move(reading)) {
    std::vector<std::uint16_t> ids;
    for (const tool::Field& field : m_reading.selection->fields()) {
      const auto& encoded = options.dictionaryFields;
      m_fields.push_back(field);
      m_isEncoded.push_back(field.type == DATATYPES::STRING &&
                            std::find(encoded.begin(), encoded.end(), field.id) != encoded.end());
      ids.push_back(field.id);
    }
    m_builder = std::make_unique<ColumnBuilder>(ids, options);
    m_types = std::make_shared<const ColumnBuilder>(ids, options);
  }

  /// The next batch with the lock released while it reads; null at the end.
  SharedBatch next() {
    requireSameDictionary(m_reading);
    const DictionaryUse use;
    while (!m_isAtEnd && m_builder->completeBatches() == 0) {
      readUnlocked([&] { readSome(); });
      check(PyErr_CheckSignals());
      if (!m_problem.empty()) {
        raise(PyExc_ValueError, m_problem);
      }
    }
    auto batch = std::make_shared<const Batch>(*m_builder);
    return batch->isThere() ? batch : nullptr;
  }

  std::shared_ptr<Table> newTable() const {
    auto table = std::make_shared<Table>();
    table->fields = m_fields;
    table->isEncoded = m_isEncoded;
    table->types = m_types;
    return table;
  }
  const ReadCounts& counts() const noexcept { return m_reading.reader->counts(); }

 private:
  void readSome() {
    MessageReader& reader = *m_reading.reader;
    tool::Selection& selection = *m_reading.selection;
    for (std::size_t read = 0; read != kMostSkipped && m_builder->completeBatches() == 0; ++read) {
      if (selection.isDone()) {
        m_isAtEnd = true;
        return;
      }
      const Found found = reader.next();
      if (found.kind == Found::Kind::End) {
        m_isAtEnd = true;
        return;
      }
      if (found.kind == Found::Kind::Malformed) {
        continue;
      }
      append(found.input);
      if (!m_problem.empty()) {
        return;
      }
    }
  }

  void append(const tool::InputMessage& input) {
    tool::Selection& selection = *m_reading.selection;
    ReadCounts& counts = m_reading.reader->counts();
    if (!tool::hasEncodingCode(input) || input.sizeBytes > 0xffff'ffff) {
      ++counts.malformed;
      return;
    }
    ++counts.messages;
    const auto sizeBytes = static_cast<std::uint32_t>(input.sizeBytes);
    bool isAppended = true;
    if (selection.hasConditions()) {
      const MD_Message* const message = m_receiver.parse(input.data, sizeBytes);
      isAppended = message == nullptr || !selection.takes(*message) || m_builder->append(*message);
    } else {
      isAppended = !selection.takesUnreadable() || m_builder->append(input.data, sizeBytes);
    }
    if (!isAppended) {
      m_isAtEnd = true;
      m_problem = m_reading.reader->placeText() + ": " + m_builder->failure().reason;
    }
  }

  Reading m_reading;
  std::vector<tool::Field> m_fields;
  std::vector<bool> m_isEncoded;
  std::unique_ptr<ColumnBuilder> m_builder;
  std::shared_ptr<const ColumnBuilder> m_types;
  Receiver m_receiver;
  bool m_isAtEnd = false;
  std::string m_problem;
};

struct ScanObject {
  PyObject_HEAD ColumnReader* reader;
  bool isBusy;
};

PyTypeObject* g_scanType = nullptr;

ScanObject& scanOf(PyObject* self) noexcept { return *reinterpret_cast<ScanObject*>(self); }

std::vector<std::uint16_t> idsOf(PyObject* keys) {
  std::vector<std::uint16_t> ids;
  if (keys != Py_None) {
    const Ref all = own(PySequence_Tuple(keys));
    for (Py_ssize_t i = 0; i != PyTuple_Size(all.get()); ++i) {
      ids.push_back(requireField(PyTuple_GetItem(all.get(), i)).id);
    }
  }
  return ids;
}

PyObject* createScan(PyTypeObject* type, PyObject* arguments, PyObject*) noexcept {
  return guarded([&] {
    PyObject *source = nullptr, *where = nullptr, *fields = nullptr, *limit = nullptr, *framing = nullptr,
             *binary = nullptr, *encoded = nullptr;
    Py_ssize_t batchRows = 0;
    if (PyArg_ParseTuple(arguments, "OOOOOOOn", &source, &where, &fields, &limit, &framing, &binary, &encoded,
                         &batchRows) == 0) {
      throw PythonError();
    }
    if (batchRows < 1) {
      raise(PyExc_ValueError, "batch_rows is a number of rows, 1 or more");
    }
    ColumnOptions options;
    options.batchRows = static_cast<std::size_t>(batchRows);
    options.binaryFields = idsOf(binary);
    options.dictionaryFields = idsOf(encoded);
    auto reader = std::make_unique<ColumnReader>(makeReading(source, where, fields, limit, framing), options);
    Ref self = own(PyType_GenericAlloc(type, 0));
    scanOf(self.get()).reader = reader.release();
    return self.release();
  });
}

void destroyScan(PyObject* self) noexcept {
  delete scanOf(self).reader;
  freeObject(self);
}

/// The next `most` batches as a table, null at the end.
Ref readTable(PyObject* self, std::size_t most, bool isNullAtEnd) {
  ScanObject& scan = scanOf(self);
  if (scan.isBusy) {
    raise(PyExc_ValueError, "the reader is in use in another thread");
  }
  struct Turn {
    bool& isBusy;
    ~Turn() { isBusy = false; }
  } const turn{scan.isBusy};
  scan.isBusy = true;
  auto table = scan.reader->newTable();
  while (table->batches.size() != most) {
    SharedBatch batch = scan.reader->next();
    if (batch == nullptr) {
      break;
    }
    table->rows += batch->rows();
    table->batches.push_back(std::move(batch));
  }
  return table->batches.empty() && isNullAtEnd ? Ref() : newTable(std::move(table));
}

PyObject* nextTable(PyObject* self) noexcept {
  return guarded([&] { return readTable(self, 1, true).release(); });
}
PyObject* readAll(PyObject* self, PyObject*) noexcept {
  return guarded([&] { return readTable(self, static_cast<std::size_t>(-1), false).release(); });
}
PyObject* scanCounts(PyObject* self, void*) noexcept {
  return guarded([&] { return countsOf(scanOf(self).reader->counts()).release(); });
}

PyMethodDef g_columnMethods[] = {
    {"to_list", &columnToList, METH_NOARGS, "to_list($self, /)\n--\n\nReturns the values as a list, nulls as None."},
    {"_encoded", &columnEncoded, METH_NOARGS,
     "_encoded($self, /)\n--\n\nReturns the values of a dictionary-encoded column and the index of each row."},
    {nullptr, nullptr, 0, nullptr}};
PyGetSetDef g_columnAttributes[] = {
    {"null_count", &columnNulls, nullptr, "The number of rows without a value.", nullptr},
    {"type", &columnType, nullptr, "The type of the field, such as 'DOUBLE'.", nullptr},
    {"validity", &columnValidity, nullptr,
     "A bitmap of the rows that have a value, the first row in the lowest bit of the first byte; None if all rows have "
     "one.",
     nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};
char g_columnDoc[] =
    "One field of all rows. INT, INT64, FLOAT, DOUBLE and EPOCH_NSEC columns support the buffer protocol; nulls are "
    "zeros.";
PyType_Slot g_columnSlots[] = {{Py_tp_dealloc, asSlot(&destroyColumn)},  {Py_tp_doc, g_columnDoc},
                               {Py_tp_methods, g_columnMethods},         {Py_tp_getset, g_columnAttributes},
                               {Py_sq_length, asSlot(&columnLength)},    {Py_sq_item, asSlot(&columnItem)},
                               {Py_mp_length, asSlot(&columnLength)},    {Py_mp_subscript, asSlot(&columnSubscript)},
                               {Py_bf_getbuffer, asSlot(&exportColumn)}, {0, nullptr}};
PyType_Spec g_columnSpec = {"md_message._md_message._Column", sizeof(ColumnObject), 0,
                            Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION,
                            g_columnSlots};

PyMethodDef g_tableMethods[] = {
    {"column", &tableColumn, METH_VARARGS, "column($self, cls, number, /)\n--\n\nReturns a column."},
    {"batches", &tableBatches, METH_NOARGS, "batches($self, /)\n--\n\nReturns the batches as tables."},
    {"stream", &tableStream, METH_NOARGS, "stream($self, /)\n--\n\nReturns a capsule with an Arrow stream."},
    {"schema", &tableSchema, METH_NOARGS, "schema($self, /)\n--\n\nReturns a capsule with an Arrow schema."},
    {nullptr, nullptr, 0, nullptr}};
PyGetSetDef g_tableAttributes[] = {{"rows", &tableRows, nullptr, "The number of rows.", nullptr},
                                   {"keys", &tableKeys, nullptr, "The fields.", nullptr},
                                   {nullptr, nullptr, nullptr, nullptr, nullptr}};
PyType_Slot g_tableSlots[] = {{Py_tp_dealloc, asSlot(&destroyTable)},
                              {Py_tp_methods, g_tableMethods},
                              {Py_tp_getset, g_tableAttributes},
                              {0, nullptr}};
PyType_Spec g_tableSpec = {"md_message._md_message._Table", sizeof(TableObject), 0,
                           Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, g_tableSlots};

PyMethodDef g_scanMethods[] = {
    {"read", &readAll, METH_NOARGS, "read($self, /)\n--\n\nReads the remaining rows as one table."},
    {nullptr, nullptr, 0, nullptr}};
PyGetSetDef g_scanAttributes[] = {
    {"counts", &scanCounts, nullptr, "The numbers of messages and packets read so far.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};
PyType_Slot g_scanSlots[] = {{Py_tp_new, asSlot(&createScan)},
                             {Py_tp_dealloc, asSlot(&destroyScan)},
                             {Py_tp_methods, g_scanMethods},
                             {Py_tp_getset, g_scanAttributes},
                             {Py_tp_iter, asSlot(&PyObject_SelfIter)},
                             {Py_tp_iternext, asSlot(&nextTable)},
                             {0, nullptr}};
PyType_Spec g_scanSpec = {"md_message._md_message._Scan", sizeof(ScanObject), 0, Py_TPFLAGS_DEFAULT, g_scanSlots};

PyTypeObject* makeType(PyType_Spec& spec) {
  return reinterpret_cast<PyTypeObject*>(own(PyType_FromSpec(&spec)).release());
}

}  // namespace

void addColumnTypes(PyObject* module) {
  if (g_scanType == nullptr) {
    g_columnType = makeType(g_columnSpec);
    g_tableType = makeType(g_tableSpec);
    g_scanType = makeType(g_scanSpec);
  }
  for (PyTypeObject* const type : {g_columnType, g_tableType, g_scanType}) {
    check(PyModule_AddType(module, type));
  }
}

}  // namespace MD::python
