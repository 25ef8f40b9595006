/// @file
/// The compact encoding, code 6.
#ifndef MD_MINT_H
#define MD_MINT_H

#include <cstdint>

#include <algorithm>
#include <type_traits>

#include "md/detail/value_codec.h"
#include "md/md_api.h"
#include "md/md_record_message.h"

namespace MD {

class MD_API mInt;

/// Records of field id (2 bytes), value length (1 byte) and value, little-endian, behind one header byte. Small
/// non-negative integers take 1 or 2 bytes instead of 4. A string holds at most 254 characters, a buffer 255 bytes.
class MD_API mInt final : public RecordMessage<mInt> {
 public:
  /// An empty message over the shared pools.
  mInt();
  ~mInt() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<mInt>;
  struct MD_LOCAL Layout;
  struct MD_LOCAL Rules;

  explicit mInt(const Allocator& allocator);
};

// Record: field id u16, value length u8, value; little-endian. The dictionary alone knows the type.
struct mInt::Layout : detail::ValueCodec<detail::ByteOrder::Little> {
  using Values = detail::ValueCodec<detail::ByteOrder::Little>;
  using Values::decode;
  using Values::valueBytes;

  static constexpr std::uint64_t kHeaderBytes = 1;
  static constexpr std::uint64_t kHeadBytes = 3;
  static constexpr std::uint64_t kMaxValueBytes = 255;

  template <class T>
  static constexpr bool kHasOneWidth = !detail::kIsView<T> && !std::is_same_v<T, std::int32_t>;

  template <class T>
  MD_ALWAYS_INLINE static bool isHeadOf(const detail::WholeBytes& bytes, std::uint64_t position) noexcept {
    return bytes.load<std::uint8_t>(position + 2) == sizeof(T);
  }

  template <class T>
  static constexpr std::uint32_t headBytes() noexcept {
    return kHeadBytes;
  }

  template <class T, class View>
  MD_ALWAYS_INLINE static Head headOf(const View& view, std::uint64_t position) noexcept {
    return head(view, position, detail::kTypeCode<T>);
  }

  template <class View>
  MD_ALWAYS_INLINE static Head head(const View& view, std::uint64_t position, std::uint8_t dictionaryType) noexcept {
    return {position, view.template load<std::uint8_t>(position + 2), kHeadBytes, dictionaryType};
  }

  // Small integers are stored short, negative ones never.
  static constexpr std::uint64_t valueBytes(std::int32_t value) noexcept {
    const auto word = static_cast<std::uint32_t>(value);
    return 1 + std::uint64_t{word > 0x7f} + 2 * std::uint64_t{word > 0x7fff};
  }

  // Only an integer of full width is overwritten: a shorter one moves to the end whatever its new value.
  static constexpr std::uint64_t bytesInPlace(std::int32_t value) noexcept { return sizeof value; }
  template <class T>
  static constexpr std::uint64_t bytesInPlace(const T& value) noexcept {
    return valueBytes(value);
  }

  static constexpr bool holds(std::uint64_t lengthBytes) noexcept { return lengthBytes <= kMaxValueBytes; }

  template <class T>
  MD_ALWAYS_INLINE static void write(detail::ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes,
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

  // Head and value of an integer are one word, and so are another record's head and first byte.
  template <class T>
  static constexpr std::uint64_t aheadBytes(std::uint64_t lengthBytes) noexcept {
    return std::is_same_v<T, std::int32_t> ? sizeof(std::uint64_t)
                                           : kHeadBytes + std::max<std::uint64_t>(lengthBytes, 1);
  }
  template <class T>
  MD_ALWAYS_INLINE static void writeAhead(detail::ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes,
                                          const T& value) noexcept {
    const auto head = static_cast<std::uint32_t>(id | lengthBytes << 16);
    if constexpr (std::is_same_v<T, std::int32_t>) {
      out.put(head | std::uint64_t{static_cast<std::uint32_t>(value)} << 24);
    } else {
      out.put(head);
      overwrite(out.back(1), value);
    }
  }

  template <class View>
  MD_ALWAYS_INLINE static bool decode(const View& view, const Head& head, std::int32_t& out) noexcept {
    if (head.valueBytes == 1) {
      out = view.template load<std::uint8_t>(head.valuePosition());
      return true;
    }
    if (head.valueBytes == 2) {
      out = view.template load<std::int16_t>(head.valuePosition());
      return true;
    }
    if (head.valueBytes == 4) {
      out = view.template load<std::int32_t>(head.valuePosition());
      return true;
    }
    return false;
  }

  template <class T>
  MD_ALWAYS_INLINE static bool isWhole(const Head& head) noexcept {
    return std::is_same_v<T, std::int32_t> || Values::isWhole<T>(head);
  }
};

}  // namespace MD

#endif
