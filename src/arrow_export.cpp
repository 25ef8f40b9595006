#include "arrow_export.h"

#include <cerrno>

#include <new>

#include "md/md_datatypes.h"

namespace MD::detail {
namespace {

constexpr std::size_t kMostBuffers = 3;

// The parts of an array or a schema: those that the structure points to.
template <class Structure>
struct Parts {
  std::vector<Structure> children;
  std::vector<Structure*> childPointers;
  std::unique_ptr<Structure> dictionary;

  Parts(std::size_t childCount, bool hasDictionary)
      : children(childCount), dictionary(hasDictionary ? std::make_unique<Structure>() : nullptr) {
    childPointers.reserve(childCount);
    for (Structure& child : children) {
      childPointers.push_back(&child);
    }
  }
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;
  // A consumer may have moved a part away, and releases it then.
  ~Parts() {
    for (Structure& child : children) {
      release(&child);
    }
    release(dictionary.get());
  }

  void attachTo(Structure& owner) noexcept {
    owner.n_children = static_cast<std::int64_t>(children.size());
    owner.children = childPointers.data();
    owner.dictionary = dictionary.get();
  }

 private:
  static void release(Structure* part) noexcept {
    if (part != nullptr && part->release != nullptr) {
      part->release(part);
    }
  }
};

struct ArrayHolder {
  ArrayHolder(std::size_t children, bool hasDictionary) : parts(children, hasDictionary) {}

  std::array<MemoryBlock, kMostBuffers> blocks;
  std::array<const void*, kMostBuffers> buffers{};
  Parts<ArrowArray> parts;
};

struct SchemaHolder {
  SchemaHolder(std::string ownName, std::size_t children, bool hasDictionary)
      : name(std::move(ownName)), parts(children, hasDictionary) {}

  std::string name;
  Parts<ArrowSchema> parts;
};

template <class Structure, class Holder>
void releaseHeld(Structure* structure) {
  delete static_cast<Holder*>(structure->private_data);
  structure->release = nullptr;
}

/// @param format  outlives the schema
SchemaHolder& makeSchema(ArrowSchema& out, const char* format, std::string name, std::size_t children = 0,
                         bool hasDictionary = false) {
  auto holder = std::make_unique<SchemaHolder>(std::move(name), children, hasDictionary);
  out = {};
  out.format = format;
  out.name = holder->name.c_str();
  out.flags = ARROW_FLAG_NULLABLE;
  holder->parts.attachTo(out);
  out.release = releaseHeld<ArrowSchema, SchemaHolder>;
  out.private_data = holder.get();
  return *holder.release();
}

void describeColumn(const ColumnType& type, ArrowSchema& out) {
  const char* const text = type.isBinary ? "z" : "u";
  switch (type.type) {
    case DATATYPES::CHAR:
      makeSchema(out, text, type.name);
      break;
    case DATATYPES::INT:
      makeSchema(out, "i", type.name);
      break;
    case DATATYPES::INT64:
      makeSchema(out, "l", type.name);
      break;
    case DATATYPES::FLOAT:
      makeSchema(out, "f", type.name);
      break;
    case DATATYPES::DOUBLE:
      makeSchema(out, "g", type.name);
      break;
    case DATATYPES::STRING:
      if (type.isEncoded) {
        makeSchema(*makeSchema(out, "i", type.name, 0, true).parts.dictionary, text, "");
      } else {
        makeSchema(out, text, type.name);
      }
      break;
    case DATATYPES::BUFFER:
      makeSchema(out, "z", type.name);
      break;
    case DATATYPES::EPOCH_NSEC:
      makeSchema(out, "tsn:UTC", type.name);
      break;
    default: {  // DATETIME
      auto& parts = makeSchema(out, "+s", type.name, 3).parts.children;
      makeSchema(parts[0], "i", "date");
      makeSchema(parts[1], "i", "time");
      makeSchema(parts[2], "s", "offset");
      for (ArrowSchema& part : parts) {
        part.flags = 0;
      }
      break;
    }
  }
}

StreamHolder& holderOf(ArrowArrayStream* stream) { return *static_cast<StreamHolder*>(stream->private_data); }

int getSchema(ArrowArrayStream* stream, ArrowSchema* out) {
  StreamHolder& holder = holderOf(stream);
  try {
    exportSchemaOf(*holder.types, out);
  } catch (const std::bad_alloc&) {
    holder.error = "out of memory";
    return ENOMEM;
  }
  return 0;
}

int getNext(ArrowArrayStream* stream, ArrowArray* out) {
  StreamHolder& holder = holderOf(stream);
  *out = {};
  if (!holder.batches.empty()) {
    *out = holder.batches.front().take();
    holder.batches.pop_front();
  }
  return 0;
}

const char* getLastError(ArrowArrayStream* stream) { return holderOf(stream).error; }

}  // namespace

void makeArray(ArrowArray& out, std::size_t buffers, std::size_t children, bool hasDictionary) {
  auto holder = std::make_unique<ArrayHolder>(children, hasDictionary);
  out = {};
  out.n_buffers = static_cast<std::int64_t>(buffers);
  out.buffers = holder->buffers.data();
  holder->parts.attachTo(out);
  out.release = releaseHeld<ArrowArray, ArrayHolder>;
  out.private_data = holder.release();
}

void setRows(ArrowArray& array, std::size_t rows, std::size_t nulls) noexcept {
  array.length = static_cast<std::int64_t>(rows);
  array.null_count = static_cast<std::int64_t>(nulls);
}

void setBuffer(ArrowArray& array, std::size_t number, MemoryBlock block) noexcept {
  // Consumers may take a null pointer for a bitmap that is not needed, and for nothing else.
  static constexpr std::uint64_t kNoBytes = 0;
  auto& holder = *static_cast<ArrayHolder*>(array.private_data);
  holder.buffers[number] = block.data() != nullptr ? static_cast<const void*>(block.data()) : &kNoBytes;
  holder.blocks[number] = std::move(block);
}

void exportSchemaOf(const std::vector<ColumnType>& types, ArrowSchema* out) {
  ArrowSchema schema{};
  struct Releaser {
    ArrowSchema& schema;
    ~Releaser() {
      if (schema.release != nullptr) {
        schema.release(&schema);
      }
    }
  } const releaser{schema};
  auto& columns = makeSchema(schema, "+s", "", types.size()).parts.children;
  schema.flags = 0;
  for (std::size_t i = 0; i != types.size(); ++i) {
    describeColumn(types[i], columns[i]);
  }
  *out = std::exchange(schema, ArrowSchema());
}

void exportStreamOf(std::unique_ptr<StreamHolder> holder, ArrowArrayStream* out) noexcept {
  *out = {};
  out->get_schema = getSchema;
  out->get_next = getNext;
  out->get_last_error = getLastError;
  out->release = releaseHeld<ArrowArrayStream, StreamHolder>;
  out->private_data = holder.release();
}

}  // namespace MD::detail
