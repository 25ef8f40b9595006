/// @file
/// The growable byte buffer that holds a message's serialised bytes. It owns its memory; not safe for concurrent use.
#ifndef MD_MSGDATA_H
#define MD_MSGDATA_H

#include <cstdint>

#include "md/md_api.h"

namespace MD {

/// Raw memory with a size and a capacity. It grows to the next multiple of 1024 bytes and never shrinks, so that a
/// pooled buffer soon allocates nothing. A failed allocation throws std::bad_alloc and changes nothing.
class MD_API MsgData {
 public:
  /// No memory.
  MsgData() noexcept = default;
  ~MsgData();
  MsgData(const MsgData&) = delete;
  MsgData& operator=(const MsgData&) = delete;

  /// @{
  /// The first byte in use, and the one behind the last.
  std::uint8_t* data() noexcept { return m_data; }
  const std::uint8_t* data() const noexcept { return m_data; }
  std::uint8_t* begin() noexcept { return m_data; }
  const std::uint8_t* begin() const noexcept { return m_data; }
  std::uint8_t* end() noexcept { return m_data + m_size; }
  const std::uint8_t* end() const noexcept { return m_data + m_size; }
  /// @}
  /// Bytes in use.
  std::uint64_t size() const noexcept { return m_size; }
  /// Bytes allocated.
  std::uint64_t capacity() const noexcept { return m_capacity; }

  /// Inserts [first, last) before `pos`, which points into this buffer or at its end. The bytes may be this buffer's
  /// own.
  void insert(std::uint8_t* pos, const std::uint8_t* first, const std::uint8_t* last);

  /// Removes [first, last).
  /// @return first
  std::uint8_t* erase(std::uint8_t* first, std::uint8_t* last);

  /// Makes room for `bytes` in all.
  void reserve(std::uint64_t bytes) {
    if (bytes > m_capacity) {
      grow(bytes);
    }
  }

  /// Sets the bytes in use, at most the capacity; bytes that come into use keep whatever the memory holds.
  void setSize(std::uint64_t bytes) noexcept { m_size = bytes; }

  /// Tells whether `bytes` points into this buffer's memory, so that growing or moving would pull it away.
  bool owns(const void* bytes) const noexcept;

 private:
  void grow(std::uint64_t bytes);

  std::uint8_t* m_data = nullptr;
  std::uint64_t m_capacity = 0;
  std::uint64_t m_size = 0;
};

}  // namespace MD

#endif
