/// @file
/// The records of received bytes as a range, without building a message. Nothing is copied, allocated, locked or
/// reported. Thread-safe while the dictionary is not reloaded.
#ifndef MD_RECORD_RANGE_H
#define MD_RECORD_RANGE_H

#include <cstddef>
#include <cstdint>

#include <iterator>

#include "md/md_api.h"
#include "md/md_value_types.h"

namespace MD {

/// One record of received bytes; it refers to these bytes.
struct RecordView {
  std::uint16_t id = 0;                ///< the field
  std::uint8_t type = 0;               ///< its type, one of `DATATYPES`
  const std::uint8_t* data = nullptr;  ///< the value in wire format: a string with its NUL
  std::uint32_t sizeBytes = 0;         ///< number of value bytes present; in a truncated record less than its length
  bool isTruncated = false;            ///< whether the bytes end within the record, which is then the last

  /// Reads the value as a message with this record would, except that an `IterMap` string with the length field 0 reads
  /// as empty.
  /// @tparam T  one of the nine value types
  /// @return false, `out` unchanged, if the record is of another type or truncated
  template <class T>
  bool get(T& out) const noexcept {
    return read(out);
  }

 private:
  friend class RecordRange;

#define MD_READ(T, name, code) MD_API bool read(T& out) const noexcept;
  MD_VALUE_TYPES(MD_READ)
#undef MD_READ

  const std::uint8_t* m_bytes = nullptr;
  std::uint32_t m_sizeBytes = 0;
  std::uint32_t m_position = 0;
};

/// The records of the message that MD_Message::createFromBytes() would build from these bytes, in wire order, including
/// repeated fields. Records of unknown fields and of types that the dictionary does not declare are skipped. Empty for
/// an unknown encoding byte, for null or no bytes, and if no dictionary can be loaded.
class MD_API RecordRange {
 public:
  /// @param bytes  a serialised message in any encoding; they must outlive the range, its iterators and records
  RecordRange(const std::uint8_t* bytes, std::uint32_t sizeBytes) noexcept : m_bytes(bytes), m_sizeBytes(sizeBytes) {}

  /// A forward iterator.
  class const_iterator {
   public:
    /// @{
    /// Required by the standard library.
    using iterator_category = std::forward_iterator_tag;
    using value_type = RecordView;
    using difference_type = std::ptrdiff_t;
    using pointer = const RecordView*;
    using reference = const RecordView&;
    /// @}

    /// Equal to the end of a range over null bytes.
    const_iterator() = default;

    /// @{
    /// The record, valid until the iterator advances.
    reference operator*() const noexcept { return m_record; }
    pointer operator->() const noexcept { return &m_record; }
    /// @}
    /// @{
    /// Advances to the next record.
    const_iterator& operator++() noexcept {
      nextRecord(m_record.m_bytes, m_record.m_sizeBytes, m_next, m_record);
      return *this;
    }
    const_iterator operator++(int) noexcept {
      const const_iterator before = *this;
      ++*this;
      return before;
    }
    /// @}
    /// @{
    /// Equal at the same record of the same bytes.
    friend bool operator==(const const_iterator& a, const const_iterator& b) noexcept { return a.isAt(b); }
    friend bool operator!=(const const_iterator& a, const const_iterator& b) noexcept { return !(a == b); }
    /// @}

   private:
    friend class RecordRange;

    bool isAt(const const_iterator& other) const noexcept {
      return m_record.m_bytes == other.m_record.m_bytes && m_record.m_position == other.m_record.m_position;
    }

    RecordView m_record;
    std::uint32_t m_next = 0;  ///< start of the search for the next record
  };

  /// @{
  /// The first record, and the end after the last one.
  const_iterator begin() const noexcept {
    const_iterator first = end();
    first.m_next = 0;
    return ++first;
  }
  const_iterator end() const noexcept {
    const_iterator last;
    last.m_record.m_bytes = m_bytes;
    last.m_record.m_sizeBytes = m_sizeBytes;
    last.m_next = m_sizeBytes;
    return last;
  }
  /// @}

  /// The encoding, one of `ENCODINGS`; 0 for an unknown encoding byte, and for null or no bytes.
  std::uint8_t encoding() const noexcept;

  /// Finds a record without a range, for callers that keep the position themselves.
  /// @param[in,out] position  0 for the first record; set to the start of the search for the following one
  /// @param[out]    record    empty if there is no further record
  /// @return whether there was a record
  static bool nextRecord(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint32_t& position,
                         RecordView& record) noexcept;

 private:
  const std::uint8_t* m_bytes;
  std::uint32_t m_sizeBytes;
};

}  // namespace MD

#endif
