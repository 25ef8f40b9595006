// The one way in which received bytes are read.
#ifndef MD_SRC_BYTE_VIEW_H
#define MD_SRC_BYTE_VIEW_H

#include <cstdint>
#include <cstring>

#include "md/detail/wire_bytes.h"

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
  /// The same bytes, for reads that are known to fit.
  WholeBytes whole() const noexcept { return WholeBytes(m_data); }

  /// The `T` at `position`, in the machine's byte order.
  template <class T>
  T load(std::uint64_t position) const noexcept {
    if (fits(position, sizeof(T))) {
      return whole().load<T>(position);
    }
    T value{};
    if (const std::uint64_t there = left(position)) {
      std::memcpy(static_cast<void*>(&value), m_data + position, static_cast<std::size_t>(there));
    }
    return value;
  }

 private:
  const std::uint8_t* m_data;
  std::uint64_t m_size;
};

}  // namespace MD::detail

#endif
