// Memory that grows.
#ifndef MD_SRC_MEMORY_BLOCK_H
#define MD_SRC_MEMORY_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <memory>
#include <new>
#include <utility>

namespace MD::detail {

class MemoryBlock {
 public:
  MemoryBlock() = default;
  MemoryBlock(MemoryBlock&& other) noexcept
      : m_data(std::move(other.m_data)), m_capacity(std::exchange(other.m_capacity, 0)) {}
  MemoryBlock& operator=(MemoryBlock&& other) noexcept {
    m_data = std::move(other.m_data);
    m_capacity = std::exchange(other.m_capacity, 0);
    return *this;
  }

  const std::uint8_t* data() const noexcept { return m_data.get(); }
  std::uint8_t* data() noexcept { return m_data.get(); }
  std::size_t capacity() const noexcept { return m_capacity; }

  /// The `T` at `index`, which is within the capacity.
  template <class T>
  T load(std::size_t index) const noexcept {
    T value;
    std::memcpy(&value, m_data.get() + index * sizeof value, sizeof value);
    return value;
  }
  template <class T>
  void store(std::size_t index, T value) noexcept {
    std::memcpy(m_data.get() + index * sizeof value, &value, sizeof value);
  }

  /// Grows, where it has less, to `bytes`. @throws std::bad_alloc, and has changed nothing then
  void reserve(std::size_t bytes) {
    if (bytes > m_capacity && !resize(bytes)) {
      throw std::bad_alloc();
    }
  }
  /// Releases what is beyond `bytes`, where that is worth it.
  void shrink(std::size_t bytes) noexcept {
    if (bytes != 0 && m_capacity - bytes > bytes / 8) {
      static_cast<void>(resize(bytes));
    }
  }

 private:
  struct Free {
    void operator()(std::uint8_t* data) const noexcept { std::free(data); }
  };

  bool resize(std::size_t bytes) noexcept {
    auto* const data = static_cast<std::uint8_t*>(std::realloc(m_data.get(), bytes));
    if (data == nullptr) {
      return false;
    }
    static_cast<void>(m_data.release());  // which realloc() has freed, or kept
    m_data.reset(data);
    m_capacity = bytes;
    return true;
  }

  std::unique_ptr<std::uint8_t, Free> m_data;
  std::size_t m_capacity = 0;
};

}  // namespace MD::detail

#endif
