// The one way in which received bytes are read.
#ifndef MD_SRC_BYTE_VIEW_H
#define MD_SRC_BYTE_VIEW_H

#include <cstdint>
#include <cstring>

#include <type_traits>

namespace MD::detail {

/// The bytes of a message. Positions beyond the end are valid arguments: bytes there read as zero.
class ByteView {
 public:
  ByteView(const std::uint8_t* data, std::uint64_t sizeBytes) noexcept : m_data(data), m_size(sizeBytes) {}

  std::uint64_t size() const noexcept { return m_size; }
  /// Bytes from `position` to the end.
  std::uint64_t left(std::uint64_t position) const noexcept { return position < m_size ? m_size - position : 0; }
  bool fits(std::uint64_t position, std::uint64_t lengthBytes) const noexcept {
    return position <= m_size && lengthBytes <= m_size - position;
  }
  /// `position` is at most size().
  const std::uint8_t* at(std::uint64_t position) const noexcept { return m_data + position; }

  /// The `T` at `position`, in the machine's byte order.
  template <class T>
  T load(std::uint64_t position) const noexcept {
    static_assert(std::is_trivially_copyable_v<T>);
    T value{};
    if (fits(position, sizeof(T))) {
      std::memcpy(static_cast<void*>(&value), m_data + position, sizeof(T));
    } else {
      copyWhatIsThere(&value, position);
    }
    return value;
  }

 private:
  void copyWhatIsThere(void* out, std::uint64_t position) const noexcept {
    if (const std::uint64_t there = left(position)) {
      std::memcpy(out, m_data + position, static_cast<std::size_t>(there));
    }
  }

  const std::uint8_t* m_data;
  std::uint64_t m_size;
};

/// Writes records into memory that has been made large enough.
class ByteWriter {
 public:
  explicit ByteWriter(std::uint8_t* out) noexcept : m_out(out) {}

  template <class T>
  void put(T value) noexcept {
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(m_out, &value, sizeof value);
    m_out += sizeof value;
  }
  /// The bytes may be part of what is written over.
  void put(const void* bytes, std::size_t lengthBytes) noexcept {
    if (lengthBytes != 0) {
      std::memmove(m_out, bytes, lengthBytes);
      m_out += lengthBytes;
    }
  }

 private:
  std::uint8_t* m_out;
};

}  // namespace MD::detail

#endif
