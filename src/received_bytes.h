// Reading received bytes without a message: which encoding they are in, and values of records where they are.
#ifndef MD_SRC_RECEIVED_BYTES_H
#define MD_SRC_RECEIVED_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <algorithm>
#include <limits>
#include <type_traits>

#include "md/detail/layouts.h"
#include "md/detail/record_layout.h"
#include "md/detail/record_walk.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_datatypes.h"
#include "md/md_fieldmap.h"

namespace MD::detail {

/// The dictionary; null when this is its first use and it cannot be loaded.
inline const MD_FieldMap* dictionaryOrNull() noexcept {
  try {
    return &MD_FieldMap::instance();
  } catch (...) {
    return nullptr;
  }
}

/// Whether the value of a record of type `T` continues in the bytes after the record.
template <class T>
constexpr bool readsOn(const RecordHead& head) noexcept {
  return !kIsView<T> && head.valueBytes < sizeof(T);
}

/// readValue() of a record for which readsOn(). A message has dropped the records between this one and the next field.
template <class Layout, class T>
MD_RARE bool readValueBeyond(const ByteView& bytes, const RecordHead& head, const MD_FieldMap& dictionary, T& out) {
  if (head.type != kTypeCode<T> || !bytes.fits(head.position, head.bytes())) {
    return false;
  }
  std::uint8_t joined[Layout::kMaxHeadBytes + sizeof(T)];
  const auto needed = static_cast<std::size_t>(head.headBytes) + sizeof(T);
  auto joinedBytes = static_cast<std::size_t>(head.bytes());
  std::memcpy(joined, bytes.at(head.position), joinedBytes);
  RecordWalk<Layout> walk(bytes, dictionary, head.position + head.bytes());
  for (WalkedRecord record; joinedBytes < needed && walk.next(record);) {
    if (record.kind == WalkedRecord::Kind::Field) {
      const auto count =
          static_cast<std::size_t>(std::min<std::uint64_t>(record.end - record.head.position, needed - joinedBytes));
      std::memcpy(joined + joinedBytes, bytes.at(record.head.position), count);
      joinedBytes += count;
    }
  }
  return Layout::decode(ByteView(joined, joinedBytes), {0, head.valueBytes, head.headBytes, head.type}, out);
}

/// Reads the value of the record with this head, which is a field, as a message that was built from the bytes does. A
/// string whose decoding takes the end of the message into account is decoded as if that were the record's end.
template <class Layout, class T>
MD_ALWAYS_INLINE inline bool readRecord(const ByteView& bytes, const RecordHead& head, const MD_FieldMap& dictionary,
                                        T& out) {
  if (MD_UNLIKELY(readsOn<T>(head))) {
    return readValueBeyond<Layout>(bytes, head, dictionary, out);
  }
  if constexpr (std::is_same_v<T, StringView16>) {
    const std::uint64_t end = std::min(bytes.size(), head.position + head.bytes());
    return readValue<Layout>(ByteView(bytes.at(0), end), head, out);
  } else {
    return readValue<Layout>(bytes, head, out);
  }
}

/// Reads a string with the length field 0 as a message does: in one encoding that may mean the longest string,
/// which consists of whatever the message has kept of the bytes after it.
template <class Layout>
MD_RARE bool readLongestString(const ByteView& bytes, const RecordHead& head, const MD_FieldMap& dictionary,
                               StringView16& out) {
  if (head.type != kTypeCode<StringView16> || !bytes.fits(head.position, head.bytes())) {
    return false;
  }
  constexpr std::uint64_t kNeeded = std::uint64_t{std::numeric_limits<std::uint16_t>::max()} + 1;
  std::uint64_t kept = 0;
  bool isContiguous = true;
  RecordWalk<Layout> walk(bytes, dictionary, head.position + head.bytes());
  for (WalkedRecord record; kept < kNeeded && walk.next(record);) {
    if (record.kind == WalkedRecord::Kind::Field) {
      kept += record.end - record.head.position;
    } else {
      isContiguous = false;
    }
  }
  return (isContiguous || kept < kNeeded) &&
         Layout::decode(ByteView(bytes.at(0), head.valuePosition() + kept), head, out);
}

/// Reads the value of the field whose record is at `position` as a message that was built from the bytes does.
template <class Layout, class T>
MD_RARE bool readAsMessage(const ByteView& bytes, std::uint64_t position, const MD_FieldMap& dictionary, T& out) {
  const RecordHead head = Layout::head(bytes, position, kTypeCode<T>);
  if constexpr (std::is_same_v<T, StringView16>) {
    if (head.valueBytes == 0) {
      return readLongestString<Layout>(bytes, head, dictionary, out);
    }
  }
  return readRecord<Layout>(bytes, head, dictionary, out);
}

/// Whether the value of a complete record is within it, so that Layout::decode() reads it as a message does.
template <class Layout, class T>
constexpr bool isPlain(const RecordHead& head) noexcept {
  constexpr bool kIsString = std::is_same_v<T, StringView16>;
  constexpr std::uint64_t kLeastBytes = kIsString ? 1 : Layout::template kHasOneWidth<T> ? sizeof(T) : 0;
  return head.valueBytes >= kLeastBytes;
}

}  // namespace MD::detail

#endif
