/// @file
/// The scan of the records of received bytes: which of them are fields, which are dropped, and where each ends. It does
/// not need a message: the parser and the functions that read received bytes without a message use the same scan. For
/// the headers of the library only.
#ifndef MD_DETAIL_RECORD_WALK_H
#define MD_DETAIL_RECORD_WALK_H

#include <cstdint>

#include <algorithm>
#include <type_traits>

#include "md/detail/record_layout.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_fieldmap.h"
#include "md/md_value_types.h"

namespace MD::detail {

/// The header of the record at `position`. Its id determines its type in the dictionary.
template <class Layout, class Bytes>
MD_ALWAYS_INLINE inline RecordHead headAt(const Bytes& bytes, std::uint64_t position, const MD_FieldMap& dictionary) {
  return Layout::head(bytes, position, dictionary.packed(Layout::id(bytes, position)).type);
}

/// Reads the value of a record. @return false, `out` unchanged, if it is not a `T`, is truncated, or cannot be read
template <class Layout, class Bytes, class T>
MD_ALWAYS_INLINE inline bool readValue(const Bytes& bytes, const RecordHead& head, T& out) {
  return head.type == kTypeCode<T> && bytes.fits(head.position, head.bytes()) && Layout::decode(bytes, head, out);
}

/// A record found by the scan.
struct WalkedRecord {
  enum class Kind : std::uint8_t {
    Field,     ///< kept: the dictionary contains the id with the type of the record
    BadField,  ///< dropped: an unknown id, or another type on the wire
    LoneByte,  ///< dropped: less than a field id remains
  };

  RecordHead head;
  std::uint64_t end;         ///< end of the bytes that are kept or dropped: start of the next record
  FIELDS::packed_rec field;  ///< the entry of the id in the dictionary
  std::uint16_t id;          ///< for a LoneByte, that byte
  Kind kind;

  /// Whether the bytes end within the record, which is then the last.
  bool isTruncated() const noexcept { return head.bytes() > end - head.position; }
};

/// Advances from record to record. The header of a record determines where it ends, also if it is dropped. If the
/// encoding does not store lengths, a record of an unknown id consists of its id only, and the scan resumes after it.
template <class Layout>
class RecordWalk {
 public:
  /// @param bytes     a serialised message; its message header is not checked
  /// @param position  start of a record
  RecordWalk(ByteView bytes, const MD_FieldMap& dictionary, std::uint64_t position = kHeaderBytes<Layout>) noexcept
      : m_bytes(bytes), m_dictionary(&dictionary), m_position(position) {}

  /// The start of the next record.
  std::uint64_t position() const noexcept { return m_position; }
  bool isAtEnd() const noexcept { return m_position >= m_bytes.size(); }

  /// The fast path: calls `use(field, id, position)` for each record, up to the first one that is not a complete field,
  /// which next() handles. If `use` returns a bool, false ends the scan before that record.
  // The start of the next record is known sooner from the start of this one than from its length.
  template <class Use>
  MD_ALWAYS_INLINE void passWholeFields(Use use) {
    const WholeBytes bytes = m_bytes.whole();
    const std::uint64_t end = m_bytes.size();
    const MD_FieldMap& dictionary = *m_dictionary;
    std::uint64_t position = m_position;
    if (position < end) {
      while (end - position >= Layout::kMaxHeadBytes) {
        const std::uint16_t id = Layout::id(bytes, position);
        const FIELDS::packed_rec field = dictionary.packed(id);
        std::uint64_t next = 0;
        if (!field.isKnown() || !Layout::step(bytes, position, field.type, next) || next > end) {
          break;
        }
        if constexpr (std::is_same_v<decltype(use(field, id, position)), bool>) {
          if (!use(field, id, position)) {
            break;
          }
        } else {
          use(field, id, position);
        }
        position = next;
      }
    }
    m_position = position;
  }

  /// Any record. @return false if there is none left
  MD_ALWAYS_INLINE bool next(WalkedRecord& record) noexcept {
    const std::uint64_t left = m_bytes.left(m_position);
    if (left == 0) {
      return false;
    }
    if (left < sizeof(std::uint16_t)) {
      record = {{m_position, 0, 0, 0}, m_position + left, {}, *m_bytes.at(m_position), WalkedRecord::Kind::LoneByte};
    } else {
      // The header is nearly always inside the message.
      left >= Layout::kMaxHeadBytes ? read(m_bytes.whole(), left, record) : read(m_bytes, left, record);
    }
    m_position = record.end;
    return true;
  }

 private:
  template <class Bytes>
  MD_ALWAYS_INLINE void read(const Bytes& bytes, std::uint64_t left, WalkedRecord& record) const noexcept {
    const std::uint16_t id = Layout::id(bytes, m_position);
    const FIELDS::packed_rec field = m_dictionary->packed(id);
    const RecordHead head = Layout::head(bytes, m_position, field.type);
    record = {head, m_position + std::min(head.bytes(), left), field, id,
              field.isKnown() && head.type == field.type ? WalkedRecord::Kind::Field : WalkedRecord::Kind::BadField};
  }

  ByteView m_bytes;
  const MD_FieldMap* m_dictionary;
  std::uint64_t m_position;
};

}  // namespace MD::detail

#endif
