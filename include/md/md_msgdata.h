/// @file
/// The growable buffer of the serialised bytes of a message. It owns its memory; not safe for concurrent use.
#ifndef MD_MSGDATA_H
#define MD_MSGDATA_H

#include <cstdint>

#include "md/md_api.h"

namespace MD {

/// Raw memory with a size and a capacity. It grows to the next multiple of 1024 bytes and never shrinks, so a pooled
/// buffer soon stops allocating. A failed allocation throws std::bad_alloc and changes nothing.
class MD_API MsgData {
 public:
  /// No memory.
  MsgData() noexcept = default;
  ~MsgData();
  MsgData(const MsgData&) = delete;
  MsgData& operator=(const MsgData&) = delete;

  /// @{
  /// The first byte in use, and the one after the last.
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

  /// Inserts [first, last) before `pos`, which points into this buffer or at its end. The bytes may belong to this
  /// buffer.
  void insert(std::uint8_t* pos, const std::uint8_t* first, const std::uint8_t* last);

  /// Removes [first, last).
  /// @return first
  std::uint8_t* erase(std::uint8_t* first, std::uint8_t* last);

  /// Increases the capacity to at least `bytes`.
  void reserve(std::uint64_t bytes) {
    if (bytes > m_capacity) {
      grow(bytes);
    }
  }

  /// Sets the number of bytes in use, at most the capacity; additional bytes are not initialised.
  void setSize(std::uint64_t bytes) noexcept { m_size = bytes; }

  /// Whether `bytes` points into the memory of this buffer, so that growing or moving would invalidate it.
  bool owns(const void* bytes) const noexcept;

 private:
  void grow(std::uint64_t bytes);

  std::uint8_t* m_data = nullptr;
  std::uint64_t m_capacity = 0;
  std::uint64_t m_size = 0;
};

}  // namespace MD

#endif
