// The structures of the Arrow C interfaces: created here, released by their receivers.
#ifndef MD_SRC_ARROW_EXPORT_H
#define MD_SRC_ARROW_EXPORT_H

#include <cstddef>
#include <cstdint>

#include <array>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "md/md_arrow.h"
#include "memory_block.h"

namespace MD::detail {

/// What a column is. Its field's type says the rest.
struct ColumnType {
  std::uint16_t id = 0;
  std::uint8_t type = 0;  ///< a `DATATYPES` code, as the dictionary had it
  bool isBinary = false;
  bool isEncoded = false;  ///< by a dictionary of its values
  std::string name;
};

using ColumnTypes = std::shared_ptr<const std::vector<ColumnType>>;

/// Owns an array: releases it, unless take() has passed it on.
class OwnedArray {
 public:
  OwnedArray() = default;
  OwnedArray(OwnedArray&& other) noexcept : m_array(other.take()) {}
  OwnedArray& operator=(OwnedArray&& other) noexcept {
    std::swap(m_array, other.m_array);
    return *this;
  }
  ~OwnedArray() {
    if (m_array.release != nullptr) {
      m_array.release(&m_array);
    }
  }

  ArrowArray& get() noexcept { return m_array; }
  ArrowArray take() noexcept { return std::exchange(m_array, ArrowArray()); }

 private:
  ArrowArray m_array{};
};

/// Makes an array without rows, whose children and dictionary, which are to be made the same way, have none of
/// anything. It has at most three buffers. @throws std::bad_alloc
void makeArray(ArrowArray& out, std::size_t buffers, std::size_t children, bool hasDictionary);

/// Gives an array of makeArray() its rows.
void setRows(ArrowArray& array, std::size_t rows, std::size_t nulls) noexcept;

/// Gives an array of makeArray() the buffer of that number. A buffer of no bytes has an address, too.
void setBuffer(ArrowArray& array, std::size_t number, MemoryBlock block) noexcept;

/// Describes a struct of these columns. @throws std::bad_alloc
void exportSchemaOf(const std::vector<ColumnType>& types, ArrowSchema* out);

/// What a stream gives out.
struct StreamHolder {
  ColumnTypes types;
  std::deque<OwnedArray> batches;
  const char* error = nullptr;  ///< the last one
};

void exportStreamOf(std::unique_ptr<StreamHolder> holder, ArrowArrayStream* out) noexcept;

}  // namespace MD::detail

#endif
