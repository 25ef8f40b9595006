/// @file
/// Bytes of records, read and written in place. For the headers of the library only.
#ifndef MD_DETAIL_WIRE_BYTES_H
#define MD_DETAIL_WIRE_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <type_traits>

#include "md/md_api.h"

namespace MD::detail {

// Compilers turn these into one instruction.
MD_ALWAYS_INLINE constexpr std::uint16_t reversed(std::uint16_t word) noexcept {
  return static_cast<std::uint16_t>(word << 8 | word >> 8);
}
MD_ALWAYS_INLINE constexpr std::uint32_t reversed(std::uint32_t word) noexcept {
  return word << 24 | (word & 0xff00) << 8 | (word >> 8 & 0xff00) | word >> 24;
}
MD_ALWAYS_INLINE constexpr std::uint64_t reversed(std::uint64_t word) noexcept {
  return std::uint64_t{reversed(static_cast<std::uint32_t>(word))} << 32 |
         reversed(static_cast<std::uint32_t>(word >> 32));
}

/// Bytes of a message whose presence the caller has checked.
class WholeBytes {
 public:
  static constexpr bool kKnowsItsEnd = false;

  explicit WholeBytes(const std::uint8_t* data) noexcept : m_data(data) {}

  MD_ALWAYS_INLINE const std::uint8_t* at(std::uint64_t position) const noexcept { return m_data + position; }

  /// The `T` at `position`, in the machine's byte order.
  template <class T>
  MD_ALWAYS_INLINE T load(std::uint64_t position) const noexcept {
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(static_cast<void*>(&value), m_data + position, sizeof(T));
    return value;
  }

 private:
  const std::uint8_t* m_data;
};

/// The bytes of a message, and the only way to read unchecked received bytes. Positions beyond the end are valid
/// arguments: bytes there read as zero.
class ByteView {
 public:
  static constexpr bool kKnowsItsEnd = true;

  ByteView(const std::uint8_t* data, std::uint64_t sizeBytes) noexcept : m_data(data), m_size(sizeBytes) {}

  std::uint64_t size() const noexcept { return m_size; }
  /// Bytes from `position` to the end.
  std::uint64_t left(std::uint64_t position) const noexcept { return position < m_size ? m_size - position : 0; }
  bool fits(std::uint64_t position, std::uint64_t lengthBytes) const noexcept {
    return position <= m_size && lengthBytes <= m_size - position;
  }
  /// `position` is at most size().
  const std::uint8_t* at(std::uint64_t position) const noexcept { return m_data + position; }
  /// The same bytes, for reads that are known to be inside.
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

/// Writes records into memory that has been made large enough.
class ByteWriter {
 public:
  explicit ByteWriter(std::uint8_t* out) noexcept : m_out(out) {}

  template <class T>
  MD_ALWAYS_INLINE void put(T value) noexcept {
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(m_out, &value, sizeof value);
    m_out += sizeof value;
  }

  /// Overwrites the last `lengthBytes`.
  ByteWriter back(std::size_t lengthBytes) const noexcept { return ByteWriter(m_out - lengthBytes); }

  /// The bytes may be part of the overwritten ones.
  void put(const void* bytes, std::size_t lengthBytes) noexcept {
    // The strings of market data are short: two loads and two stores that overlap beat a call.
    if (lengthBytes > 16) {
      std::memmove(m_out, bytes, lengthBytes);
    } else if (lengthBytes >= 8) {
      putEnds<std::uint64_t>(bytes, lengthBytes);
    } else if (lengthBytes >= 4) {
      putEnds<std::uint32_t>(bytes, lengthBytes);
    } else if (lengthBytes != 0) {
      const auto* from = static_cast<const std::uint8_t*>(bytes);
      const std::uint8_t middle = from[lengthBytes / 2];
      const std::uint8_t last = from[lengthBytes - 1];
      m_out[0] = from[0];
      m_out[lengthBytes / 2] = middle;
      m_out[lengthBytes - 1] = last;
    }
    m_out += lengthBytes;
  }

 private:
  /// Copies between one and two `Word`s.
  template <class Word>
  void putEnds(const void* bytes, std::size_t lengthBytes) noexcept {
    const auto* from = static_cast<const std::uint8_t*>(bytes);
    Word first;
    Word last;
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&last, from + lengthBytes - sizeof last, sizeof last);
    std::memcpy(m_out, &first, sizeof first);
    std::memcpy(m_out + lengthBytes - sizeof last, &last, sizeof last);
  }

  std::uint8_t* m_out;
};

}  // namespace MD::detail

#endif
