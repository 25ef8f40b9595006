/// @file
/// The encoding of fixed widths, code 1.
#ifndef MD_ITERMAP_H
#define MD_ITERMAP_H

#include <cstdint>

#include <type_traits>

#include "md/detail/value_codec.h"
#include "md/md_api.h"
#include "md/md_record_message.h"

namespace MD {

class MD_API IterMap;

/// Records of field id (2 bytes), a length word for strings (2 bytes) and buffers (4 bytes) only, and value,
/// little-endian, behind one header byte. Without the dictionary nobody knows where a record ends.
class MD_API IterMap final : public RecordMessage<IterMap> {
 public:
  class Field;

  /// An empty message over the shared pools.
  IterMap();
  ~IterMap() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<IterMap>;
  struct MD_LOCAL Layout;
  struct MD_LOCAL Rules;

  explicit IterMap(const Allocator& allocator);
};

// Record: field id u16, length word u16 (strings, NUL included) or u32 (buffers), value; little-endian.
struct IterMap::Layout : detail::FixedWidthCodec<IterMap::Layout, detail::ByteOrder::Little> {
  static constexpr std::uint64_t kHeaderBytes = 1;
  static constexpr std::uint32_t kIdBytes = sizeof(std::uint16_t);

  template <class T>
  MD_ALWAYS_INLINE static bool isHeadOf(const detail::WholeBytes&, std::uint64_t) noexcept {
    return true;
  }

  template <class T>
  static constexpr std::uint32_t headBytes() noexcept {
    return kIdBytes + (std::is_same_v<T, StringView16> ? sizeof(std::uint16_t) : 0) +
           (std::is_same_v<T, BufferView16> ? sizeof(std::uint32_t) : 0);
  }

  template <class T, class View>
  MD_ALWAYS_INLINE static Head headOf(const View& view, std::uint64_t position) noexcept {
    std::uint64_t lengthBytes = sizeof(T);
    if constexpr (std::is_same_v<T, StringView16>) {
      lengthBytes = view.template load<std::uint16_t>(position + kIdBytes);
    } else if constexpr (std::is_same_v<T, BufferView16>) {
      lengthBytes = view.template load<std::uint32_t>(position + kIdBytes);
    }
    return {position, lengthBytes, headBytes<T>(), detail::kTypeCode<T>};
  }

  template <class T>
  MD_ALWAYS_INLINE static void write(detail::ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes,
                                     const T& value) noexcept {
    out.put(id);
    if constexpr (std::is_same_v<T, StringView16>) {
      // 65,535 characters and their NUL make the word 0: the format keeps that wrap.
      out.put(static_cast<std::uint16_t>(lengthBytes));
    } else if constexpr (std::is_same_v<T, BufferView16>) {
      out.put(static_cast<std::uint32_t>(lengthBytes));
    }
    overwrite(out, value);
  }

  // A string's word of 0 may stand for 65,535 characters and their NUL.
  template <class T>
  MD_ALWAYS_INLINE static bool isWhole(const Head& head) noexcept {
    return std::is_same_v<T, StringView16> ? head.valueBytes != 0 : Values::isWhole<T>(head);
  }
};

/// A read-only cursor over one record. It does not know where the message ends: whoever makes one answers for the
/// record lying in memory as a whole. Each operation asserts that the cursor is valid; when the assertion's handler
/// returns, the result is 0, null or empty.
class MD_API IterMap::Field {
 public:
  /// @param record  the record's first byte, or null
  explicit Field(const char* record) noexcept : m_record(record) {}

  /// Whether there is a record.
  bool isValid() const noexcept { return m_record != nullptr; }

  /// The record's field id.
  std::uint16_t id() const;
  /// The dictionary's type for id(), 0 for an id that it does not know.
  std::uint8_t type() const;
  /// The length of the value in bytes: of a string with its NUL, 0 for an unknown id.
  std::uint32_t size() const;
  /// The first byte of the value.
  const char* data_ptr() const;

  /// @{
  /// The value. Each asserts that type() is the one asked for.
  operator char() const;
  operator int() const;
  operator std::int64_t() const;
  operator float() const;
  operator double() const;
  operator MD_Message::String() const;
  operator MD_Message::Buffer() const;
  operator MD_EpochNS() const;
  /// @}

 private:
  template <class T>
  T value(bool isOfType, const char* expression, unsigned line) const;

  const char* m_record;
};

}  // namespace MD

#endif
