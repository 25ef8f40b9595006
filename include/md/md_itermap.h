/// @file
/// The encoding with fixed widths, encoding id 1.
#ifndef MD_ITERMAP_H
#define MD_ITERMAP_H

#include <cstdint>

#include <iterator>
#include <limits>
#include <type_traits>

#include "md/detail/record_layout.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_datatypes.h"
#include "md/md_record_message.h"
#include "md/md_value_types.h"

namespace MD {
namespace detail {

// Record: field id u16, length field u16 (strings, including the NUL) or u32 (buffers), value; little-endian. Only the
// dictionary contains the type, and with it the length of any other value.
struct IterMapLayout : ValueCodec<ByteOrder::Little> {
  using Values = ValueCodec<ByteOrder::Little>;
  using Values::decode;

  static constexpr std::uint8_t kHeader[] = {ENCODINGS::ITERMAP};
  static constexpr bool kTypesAreOnTheWire = false;
  static constexpr std::uint64_t kMaxHeadBytes = 6;

  // Value widths by type code, 0 for types with a length field.
  static constexpr std::uint8_t kWidths[] = {0, 1, 4, 2, 4, 8, 0, 0, 0, 4, 4, 12, 0, 0, 0, 4, 4, 4, 4, 8, 8, 0, 8, 0};

  template <class Bytes>
  MD_ALWAYS_INLINE static std::uint16_t id(const Bytes& bytes, std::uint64_t position) noexcept {
    return bytes.template load<std::uint16_t>(position);
  }

  static constexpr std::uint32_t headBytes(std::uint8_t type) noexcept {
    return type == DATATYPES::STRING ? 4 : type == DATATYPES::BUFFER ? 6 : 2;
  }

  template <class Bytes>
  MD_ALWAYS_INLINE static Head head(const Bytes& bytes, std::uint64_t position, std::uint8_t type) noexcept {
    std::uint64_t lengthBytes = 0;
    switch (type) {
      case DATATYPES::STRING:
        lengthBytes = bytes.template load<std::uint16_t>(position + 2);
        break;
      case DATATYPES::BUFFER:
        lengthBytes = bytes.template load<std::uint32_t>(position + 2);
        break;
      default:
        lengthBytes = type < std::size(kWidths) ? kWidths[type] : 0;
    }
    return {position, lengthBytes, headBytes(type), type};
  }

  // A table of widths would wait for the result of the dictionary before every record.
  MD_ALWAYS_INLINE static bool step(const WholeBytes& bytes, std::uint64_t position, std::uint8_t type,
                                    std::uint64_t& next) noexcept {
    const std::uint64_t bit = typeBit(type);
    if ((bit & kEightByteTypes) != 0) {
      next = byJump(position + 2 + 8);
    } else if ((bit & kFourByteTypes) != 0) {
      next = byJump(position + 2 + 4);
    } else {
      next = position + head(bytes, position, type).bytes();
    }
    return true;
  }

  template <class T>
  MD_ALWAYS_INLINE static void write(ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes,
                                     const T& value) noexcept {
    out.put(id);
    if constexpr (std::is_same_v<T, StringView16>) {
      // The length field of 65,535 characters and their NUL wraps to 0, as the format requires.
      out.put(static_cast<std::uint16_t>(lengthBytes));
    } else if constexpr (std::is_same_v<T, BufferView16>) {
      out.put(static_cast<std::uint32_t>(lengthBytes));
    }
    overwrite(out, value);
  }

  // A length field of 0 means 65,535 characters if the message contains that many.
  template <class Bytes>
  MD_ALWAYS_INLINE static bool decode(const Bytes& bytes, const Head& head, StringView16& out) noexcept {
    constexpr std::uint16_t kLongest = std::numeric_limits<std::uint16_t>::max();
    if (head.valueBytes != 0) {
      return Values::decode(bytes, head, out);
    }
    if constexpr (Bytes::kKnowsItsEnd) {
      const bool isLongest = bytes.fits(head.valuePosition(), std::uint64_t{kLongest} + 1);
      out = {reinterpret_cast<const char*>(bytes.at(head.valuePosition())), isLongest ? kLongest : std::uint16_t{0}};
    }
    return Bytes::kKnowsItsEnd;
  }
};

}  // namespace detail

class MD_API IterMap;

/// Records of field id (2 bytes), a length field for strings (2 bytes) and buffers (4 bytes) only, and value,
/// little-endian, after one header byte. A reader needs the dictionary to find record boundaries.
class MD_API IterMap final : public RecordMessage<IterMap> {
 public:
  class Field;

  /// An empty message over the shared pools.
  IterMap();
  /// A message of contiguous received bytes, such as a std::vector<std::uint8_t> or a std::string_view. Empty if
  /// parse() would refuse them; for bytes of any encoding see createFromBytes().
  template <class Bytes, detail::IfReceivedBytes<Bytes> = 0>
  explicit IterMap(const Bytes& bytes) : IterMap() {
    static_cast<void>(this->parse(bytes));
  }
  ~IterMap() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<IterMap>;
  using Layout = detail::IterMapLayout;
  struct MD_LOCAL Rules;

  explicit IterMap(const Allocator& allocator);
};

/// A read-only cursor over one record. It does not know the end of the message: the caller guarantees that the complete
/// record is in memory. Each operation aborts if the cursor is invalid; if the assertion handler returns, the result is
/// 0, null or empty.
class MD_API IterMap::Field {
 public:
  /// @param record  the first byte of the record, or null
  explicit Field(const char* record) noexcept : m_record(record) {}

  /// Whether there is a record.
  bool isValid() const noexcept { return m_record != nullptr; }

  /// The field id of the record.
  std::uint16_t id() const;
  /// The type of id() in the dictionary, 0 if it does not contain the id.
  std::uint8_t type() const;
  /// The length of the value in bytes, including the NUL of a string; 0 for an unknown id.
  std::uint32_t size() const;
  /// The first byte of the value.
  const char* data_ptr() const;

  /// @{
  /// The value. Each function aborts if type() is another type.
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
  MD_LOCAL T value(bool isOfType, const char* expression, unsigned line) const;

  const char* m_record;
};

}  // namespace MD

#endif
