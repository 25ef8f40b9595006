#include "md/md_mint.h"

#include <limits>
#include <string>

#include "record_message.h"
#include "value_codec.h"

namespace MD {

// Record: field id u16, value length u8, value; little-endian. The dictionary alone knows the type.
struct mInt::Layout : detail::ValueCodec<boost::endian::order::little> {
  using Values = detail::ValueCodec<boost::endian::order::little>;
  using Values::decode;
  using Values::valueBytes;

  static constexpr std::uint8_t kHeader[] = {6};
  static constexpr const char* kAddRefused = "mInt Error: Attempting to ADD a field with incorrect id!";
  static constexpr const char* kUpdateRefused = "";  // no update is
  static constexpr bool kEmptyMessageBeforeEmptyList = true;
  static constexpr bool kMoveLeavesEmptyMessage = false;
  static constexpr std::uint64_t kMaxValueBytes = 255;
  static constexpr std::uint64_t kMaxHeadBytes = 3;

  template <class View>
  static std::uint16_t id(const View& view, std::uint64_t position) noexcept {
    return view.template load<std::uint16_t>(position);
  }

  template <class View>
  static Head head(const View& view, std::uint64_t position, std::uint8_t dictionaryType) noexcept {
    return {position, view.template load<std::uint8_t>(position + 2), kMaxHeadBytes, dictionaryType};
  }

  static bool step(const detail::WholeBytes& bytes, std::uint64_t position, std::uint8_t,
                   std::uint64_t& recordBytes) noexcept {
    recordBytes = kMaxHeadBytes + bytes.load<std::uint8_t>(position + 2);
    return true;
  }

  template <class T>
  static constexpr std::uint32_t headBytes() noexcept {
    return kMaxHeadBytes;
  }

  // Small integers are stored short, negative ones never.
  static constexpr std::uint64_t valueBytes(std::int32_t value) noexcept {
    if (value < 0 || value > std::numeric_limits<std::int16_t>::max()) {
      return 4;
    }
    return value > std::numeric_limits<std::int8_t>::max() ? 2 : 1;
  }

  // Only an integer of full width is overwritten: a shorter one moves to the end whatever its new value.
  static constexpr std::uint64_t bytesInPlace(std::int32_t value) noexcept { return sizeof value; }
  template <class T>
  static constexpr std::uint64_t bytesInPlace(const T& value) noexcept {
    return valueBytes(value);
  }

  static constexpr bool holds(std::uint64_t lengthBytes) noexcept { return lengthBytes <= kMaxValueBytes; }

  static void refuseLength(std::uint64_t lengthBytes) {
    detail::report([lengthBytes] {
      return "mInt Error: Attempting to ADD field of length " + std::to_string(lengthBytes) +
             " which is > max length " + std::to_string(kMaxValueBytes) + "\n";
    });
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

  template <class View>
  static bool decode(const View& view, const Head& head, std::int32_t& out) noexcept {
    switch (head.valueBytes) {
      case 4:
        out = view.template load<std::int32_t>(head.valuePosition());
        return true;
      case 2:
        out = view.template load<std::int16_t>(head.valuePosition());
        return true;
      case 1:
        out = view.template load<std::uint8_t>(head.valuePosition());
        return true;
      default:
        return false;
    }
  }

  template <class T>
  static bool isWhole(const Head& head) noexcept {
    return std::is_same_v<T, std::int32_t> || Values::isWhole<T>(head);
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
