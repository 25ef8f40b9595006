/// @file
/// The compact encoding, encoding id 6.
#ifndef MD_MINT_H
#define MD_MINT_H

#include <cstdint>

#include <algorithm>
#include <type_traits>

#include "md/detail/record_layout.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_datatypes.h"
#include "md/md_record_message.h"

namespace MD {
namespace detail {

// Record: field id u16, value length u8, value; little-endian. Only the dictionary contains the type.
struct MIntLayout : ValueCodec<ByteOrder::Little> {
  using Values = ValueCodec<ByteOrder::Little>;
  using Values::decode;
  using Values::valueBytes;

  static constexpr std::uint8_t kHeader[] = {ENCODINGS::MINT};
  static constexpr bool kTypesAreOnTheWire = false;
  static constexpr std::uint64_t kMaxHeadBytes = 3;
  static constexpr std::uint64_t kMaxValueBytes = 255;

  template <class Bytes>
  MD_ALWAYS_INLINE static std::uint16_t id(const Bytes& bytes, std::uint64_t position) noexcept {
    return bytes.template load<std::uint16_t>(position);
  }

  static constexpr std::uint32_t headBytes(std::uint8_t) noexcept { return kMaxHeadBytes; }

  template <class Bytes>
  MD_ALWAYS_INLINE static Head head(const Bytes& bytes, std::uint64_t position, std::uint8_t type) noexcept {
    return {position, bytes.template load<std::uint8_t>(position + 2), headBytes(type), type};
  }

  static constexpr bool kComparesHeads = true;
  template <class T>
  MD_ALWAYS_INLINE static bool hasHeadOf(const WholeBytes& bytes, std::uint64_t position, std::uint16_t id) noexcept {
    if constexpr (kHasOneWidth<T>) {
      // The word is inside: a value has at least one byte.
      return (bytes.load<std::uint32_t>(position) & 0xffffff) == (id | sizeof(T) << 16);
    } else {
      return MIntLayout::id(bytes, position) == id;
    }
  }

  // The length of types that always have eight bytes is predicted, so that the next record need not wait for it.
  // Strings have this length only by chance. Compilers leave this a jump by themselves; byJump() would cost ARM an
  // instruction.
  MD_ALWAYS_INLINE static bool step(const WholeBytes& bytes, std::uint64_t position, std::uint8_t type,
                                    std::uint64_t& next) noexcept {
    const std::uint64_t lengthBytes = head(bytes, position, type).valueBytes;
    if (lengthBytes == 8 && (typeBit(type) & kEightByteTypes) != 0) {
      next = position + kMaxHeadBytes + 8;
    } else {
      next = position + kMaxHeadBytes + lengthBytes;
    }
    return true;
  }

  // Small integers are stored short, negative ones never.
  template <class T>
  static constexpr bool kHasOneWidth = !kIsView<T> && !std::is_same_v<T, std::int32_t>;

  static constexpr std::uint64_t valueBytes(std::int32_t value) noexcept {
    const auto word = static_cast<std::uint32_t>(value);
    return 1 + std::uint64_t{word > 0x7f} + 2 * std::uint64_t{word > 0x7fff};
  }

  // Only an integer of full width is overwritten: a shorter one moves to the end regardless of its new value.
  using Values::bytesInPlace;
  static constexpr std::uint64_t bytesInPlace(std::int32_t value) noexcept { return sizeof value; }

  template <class T>
  MD_ALWAYS_INLINE static void write(ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes,
                                     const T& value) noexcept {
    out.put(id);
    out.put(static_cast<std::uint8_t>(lengthBytes));
    if constexpr (std::is_same_v<T, std::int32_t>) {
      if (lengthBytes == 1) {
        out.put(static_cast<std::uint8_t>(value));
        return;
      }
      if (lengthBytes == 2) {
        out.put(static_cast<std::int16_t>(value));
        return;
      }
    }
    overwrite(out, value);
  }

  // Record header and value of an integer are one word, and so are header and first byte of any other record.
  static constexpr bool kWritesAhead = true;
  template <class T>
  static constexpr std::uint64_t aheadBytes(std::uint64_t lengthBytes) noexcept {
    return std::is_same_v<T, std::int32_t> ? sizeof(std::uint64_t)
                                           : kMaxHeadBytes + std::max<std::uint64_t>(lengthBytes, 1);
  }
  template <class T>
  MD_ALWAYS_INLINE static void writeAhead(ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes,
                                          const T& value) noexcept {
    const auto head = static_cast<std::uint32_t>(id | lengthBytes << 16);
    if constexpr (std::is_same_v<T, std::int32_t>) {
      out.put(head | std::uint64_t{static_cast<std::uint32_t>(value)} << 24);
    } else {
      out.put(head);
      overwrite(out.back(1), value);
    }
  }

  template <class Bytes>
  MD_ALWAYS_INLINE static bool decode(const Bytes& bytes, const Head& head, std::int32_t& out) noexcept {
    if (head.valueBytes == 1) {
      out = bytes.template load<std::uint8_t>(head.valuePosition());
      return true;
    }
    if (head.valueBytes == 2) {
      out = bytes.template load<std::int16_t>(head.valuePosition());
      return true;
    }
    return head.valueBytes == sizeof out && Values::decode(bytes, head, out);
  }
};

}  // namespace detail

class MD_API mInt;

/// Records of field id (2 bytes), value length (1 byte) and value, little-endian, after one header byte. Small
/// non-negative integers take 1 or 2 bytes instead of 4. A string holds at most 254 characters, a buffer 255 bytes.
class MD_API mInt final : public RecordMessage<mInt> {
 public:
  /// An empty message over the shared pools.
  mInt();
  /// A message of contiguous received bytes, such as a std::vector<std::uint8_t> or a std::string_view. Empty if
  /// parse() would refuse them; for bytes of any encoding see createFromBytes().
  template <class Bytes, detail::IfReceivedBytes<Bytes> = 0>
  explicit mInt(const Bytes& bytes) : mInt() {
    static_cast<void>(this->parse(bytes));
  }
  ~mInt() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<mInt>;
  using Layout = detail::MIntLayout;
  struct MD_LOCAL Rules;

  explicit mInt(const Allocator& allocator);
};

}  // namespace MD

#endif
