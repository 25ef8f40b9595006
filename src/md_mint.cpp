#include "md/md_mint.h"

#include <limits>
#include <string>

#include "record_message.h"

namespace MD {

// Record: field id u16, value length u8, value; little-endian, the machine's own order.
struct mInt::Layout {
  static constexpr std::uint8_t kHeader[] = {6};
  static constexpr const char* kAddRefused = "mInt Error: Attempting to ADD a field with incorrect id!";
  static constexpr const char* kUpdateRefused = "";
  static constexpr bool kEmptyMessageBeforeEmptyList = true;
  static constexpr bool kMoveLeavesEmptyMessage = false;
  static constexpr std::uint64_t kMaxValueBytes = 255;

  using View = detail::ByteView;
  using Head = detail::RecordHead;

  static std::uint16_t id(const View& view, std::uint64_t position) noexcept {
    return view.load<std::uint16_t>(position);
  }

  static Head head(const View& view, std::uint64_t position, std::uint8_t dictionaryType) noexcept {
    return {position, view.load<std::uint8_t>(position + 2), headBytes<char>(), dictionaryType};
  }

  template <class T>
  static constexpr std::uint32_t headBytes() noexcept {
    return 3;
  }

  static constexpr std::uint64_t valueBytes(std::int32_t value) noexcept {
    if (value < 0 || value > std::numeric_limits<std::int16_t>::max()) {
      return 4;
    }
    return value > std::numeric_limits<std::int8_t>::max() ? 2 : 1;
  }
  static constexpr std::uint64_t valueBytes(StringView16 value) noexcept { return std::uint64_t{value.length} + 1; }
  static constexpr std::uint64_t valueBytes(BufferView16 value) noexcept { return value.length; }
  template <class T>
  static constexpr std::uint64_t valueBytes(T) noexcept {
    return sizeof(T);
  }

  // Only an integer of full width is overwritten: a shorter one moves to the end whatever its new value.
  static constexpr std::uint64_t bytesInPlace(std::int32_t value) noexcept { return sizeof value; }
  template <class T>
  static constexpr std::uint64_t bytesInPlace(const T& value) noexcept {
    return valueBytes(value);
  }

  static constexpr bool holds(std::uint64_t lengthBytes) noexcept { return lengthBytes <= kMaxValueBytes; }

  static void refuseLength(std::uint64_t lengthBytes) {
    detail::report("mInt Error: Attempting to ADD field of length " + std::to_string(lengthBytes) +
                   " which is > max length " + std::to_string(kMaxValueBytes) + "\n");
  }

  template <class T>
  static void write(detail::ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes, const T& value) noexcept {
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

  static void overwrite(detail::ByteWriter out, StringView16 value) noexcept {
    out.put(value.data, value.length);
    out.put('\0');
  }
  static void overwrite(detail::ByteWriter out, BufferView16 value) noexcept { out.put(value.data, value.length); }
  template <class T>
  static void overwrite(detail::ByteWriter out, T value) noexcept {
    out.put(value);
  }

  static bool decode(const View& view, const Head& head, std::int32_t& out) noexcept {
    switch (head.valueBytes) {
      case 4:
        out = view.load<std::int32_t>(head.valuePosition());
        return true;
      case 2:
        out = view.load<std::int16_t>(head.valuePosition());
        return true;
      case 1:
        out = view.load<std::uint8_t>(head.valuePosition());
        return true;
      default:
        return false;
    }
  }
  static bool decode(const View& view, const Head& head, StringView16& out) noexcept {
    const auto length = static_cast<std::uint16_t>(head.valueBytes == 0 ? 0 : head.valueBytes - 1);
    out = {reinterpret_cast<const char*>(view.at(head.valuePosition())), length};
    return true;
  }
  static bool decode(const View& view, const Head& head, BufferView16& out) noexcept {
    out = {view.at(head.valuePosition()), static_cast<std::uint16_t>(head.valueBytes)};
    return true;
  }
  // The stored length is not compared with the type's: a record that is too short reads on into the next ones.
  template <class T>
  static bool decode(const View& view, const Head& head, T& out) noexcept {
    out = view.load<T>(head.valuePosition());
    return true;
  }

  static void refuseGet(std::uint16_t, const Head&) noexcept {}

  // The type of the stored field is not tested: bytes of the same length are overwritten.
  static detail::UpdateStep updateStep(const Head& stored, std::uint8_t, std::uint64_t lengthBytes) noexcept {
    return stored.valueBytes == lengthBytes ? detail::UpdateStep::Overwrite : detail::UpdateStep::EraseAndAppend;
  }
};

mInt::mInt() : RecordMessage(DEFAULT_ALLOCATOR) { startEmpty(); }

mInt::mInt(const Allocator& allocator) : RecordMessage(allocator) {}

mInt::~mInt() = default;

template class RecordMessage<mInt>;

}  // namespace MD
