/// @file
/// The format of values in a record: fixed widths, strings with a terminating NUL, plain buffers. For the headers of
/// the library only.
#ifndef MD_DETAIL_VALUE_CODEC_H
#define MD_DETAIL_VALUE_CODEC_H

#include <cstdint>
#include <cstring>

#include <limits>
#include <type_traits>

#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_value_types.h"

namespace MD::detail {

#if defined(__BYTE_ORDER__)
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are written in the machine's own order, which the wire wants little-endian");
#endif

enum class ByteOrder { Little, Big };

/// The contents of a record header.
struct RecordHead {
  std::uint64_t position;
  std::uint64_t valueBytes;  ///< as stored; the record may run past the end of the message
  std::uint32_t headBytes;
  std::uint8_t type;  ///< 0 if neither the wire nor the dictionary contains it

  std::uint64_t valuePosition() const noexcept { return position + headBytes; }
  std::uint64_t bytes() const noexcept { return headBytes + valueBytes; }
};

template <class T>
inline constexpr bool kIsView = std::is_same_v<T, StringView16> || std::is_same_v<T, BufferView16>;

/// The members of a layout for values that most encodings share (see record_layout.h).
/// @tparam Numbers  the byte order of integers and floating-point numbers; date-times and timestamps are always stored
///                  as in memory
template <ByteOrder Numbers>
struct ValueCodec {
  using Head = RecordHead;

  static constexpr std::uint64_t kMaxValueBytes = std::numeric_limits<std::uint32_t>::max();
  static constexpr bool kWritesAhead = false;
  static constexpr bool kComparesHeads = false;

  template <class T>
  static constexpr bool kHasOneWidth = !kIsView<T>;

  static constexpr std::uint64_t valueBytes(StringView16 value) noexcept { return std::uint64_t{value.length} + 1; }
  static constexpr std::uint64_t valueBytes(BufferView16 value) noexcept { return value.length; }
  template <class T>
  static constexpr std::uint64_t valueBytes(T) noexcept {
    return sizeof(T);
  }

  template <class T>
  static constexpr std::uint64_t bytesInPlace(const T& value) noexcept {
    return valueBytes(value);
  }

  static void overwrite(ByteWriter out, StringView16 value) noexcept {
    out.put(value.data, value.length);
    out.put('\0');
  }
  static void overwrite(ByteWriter out, BufferView16 value) noexcept { out.put(value.data, value.length); }
  template <class T>
  MD_ALWAYS_INLINE static void overwrite(ByteWriter out, T value) noexcept {
    if constexpr (kSwaps<T>) {
      Word<T> word;
      std::memcpy(&word, &value, sizeof word);
      out.put(reversed(word));
    } else {
      out.put(value);
    }
  }

  // Lengths that do not fit the 16 bits of a view occur only in received bytes; no write creates them.
  template <class View>
  MD_ALWAYS_INLINE static bool decode(const View& view, const Head& head, StringView16& out) noexcept {
    const std::uint64_t length = head.valueBytes == 0 ? 0 : head.valueBytes - 1;
    if (length > std::numeric_limits<std::uint16_t>::max()) {
      return false;
    }
    out = {reinterpret_cast<const char*>(view.at(head.valuePosition())), static_cast<std::uint16_t>(length)};
    return true;
  }
  template <class View>
  MD_ALWAYS_INLINE static bool decode(const View& view, const Head& head, BufferView16& out) noexcept {
    if (head.valueBytes > std::numeric_limits<std::uint16_t>::max()) {
      return false;
    }
    out = {view.at(head.valuePosition()), static_cast<std::uint16_t>(head.valueBytes)};
    return true;
  }
  // The stored length is not compared with that of the type: a record that is too short is read past its end, into the
  // next ones.
  template <class View, class T>
  MD_ALWAYS_INLINE static bool decode(const View& view, const Head& head, T& out) noexcept {
    if constexpr (kSwaps<T>) {
      const auto word = reversed(view.template load<Word<T>>(head.valuePosition()));
      std::memcpy(&out, &word, sizeof out);
    } else {
      out = view.template load<T>(head.valuePosition());
    }
    return true;
  }

 private:
  template <class T>
  static constexpr bool kSwaps = Numbers == ByteOrder::Big&& std::is_arithmetic_v<T> && sizeof(T) != 1;
  template <class T>
  using Word = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
};

}  // namespace MD::detail

#endif
