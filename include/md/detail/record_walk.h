/// @file
/// The walk over the records of received bytes: which of them are fields, which are dropped, and where each ends. It
/// needs no message: the parser, and whoever reads received bytes without one, use the same walk. For the library's own
/// headers.
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

/// The head of the record at `position`: its own id decides which type the dictionary gives it.
template <class Layout, class Bytes>
MD_ALWAYS_INLINE inline RecordHead headAt(const Bytes& bytes, std::uint64_t position, const MD_FieldMap& dictionary) {
  return Layout::head(bytes, position, dictionary.packed(Layout::id(bytes, position)).type);
}

/// Reads the value of a record. @return false, `out` unchanged, when it is no `T`, runs past the end, or cannot be had
template <class Layout, class Bytes, class T>
MD_ALWAYS_INLINE inline bool readValue(const Bytes& bytes, const RecordHead& head, T& out) {
  return head.type == kTypeCode<T> && bytes.fits(head.position, head.bytes()) && Layout::decode(bytes, head, out);
}

/// What the walk meets.
struct WalkedRecord {
  enum class Kind : std::uint8_t {
    Field,     ///< kept: the dictionary holds the id, and gives it the type of the record
    BadField,  ///< dropped: an unknown id, or another type on the wire
    LoneByte,  ///< dropped: less than a field id remains
  };

  RecordHead head;
  std::uint64_t end;         ///< of the bytes that are kept or dropped, where the next record starts
  FIELDS::packed_rec field;  ///< the entry of the id in the dictionary
  std::uint16_t id;          ///< of a lone byte, that byte
  Kind kind;

  /// Whether the bytes end within the record, which is then the last.
  bool isTruncated() const noexcept { return head.bytes() > end - head.position; }
};

/// Goes from record to record. Every record ends where its own head says, also one that is dropped; of an encoding
/// whose records do not say so, a record of an unknown id is its id alone, and the walk goes on behind that.
template <class Layout>
class RecordWalk {
 public:
  /// @param bytes     a serialised message; its first header bytes are not looked at
  /// @param position  where a record starts
  RecordWalk(ByteView bytes, const MD_FieldMap& dictionary, std::uint64_t position = kHeaderBytes<Layout>) noexcept
      : m_bytes(bytes), m_dictionary(&dictionary), m_position(position) {}

  /// Where the next record starts.
  std::uint64_t position() const noexcept { return m_position; }
  bool isAtEnd() const noexcept { return m_position >= m_bytes.size(); }

  /// Fast: calls `use(field, id, position)` for one record after another, as long as they are fields and whole. The
  /// first that is not is left to next(). A `use` that returns a bool ends it, before the record, by false.
  // Where the next record starts is known sooner from this one's start than from its length.
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

  /// Any record. @return false when there is none left
  MD_ALWAYS_INLINE bool next(WalkedRecord& record) noexcept {
    const std::uint64_t left = m_bytes.left(m_position);
    if (left == 0) {
      return false;
    }
    if (left < sizeof(std::uint16_t)) {
      record = {{m_position, 0, 0, 0}, m_position + left, {}, *m_bytes.at(m_position), WalkedRecord::Kind::LoneByte};
    } else {
      // Nearly always the head is inside the message.
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
