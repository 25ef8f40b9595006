#include "md/md_msgt.h"

#include "record_message.h"
#include "value_codec.h"

namespace MD {

// Record: field id u16, type code u16 (readers look at its low byte alone), value length u32, value; numbers
// big-endian.
struct MsgT::Layout : detail::ValueCodec<boost::endian::order::big> {
  static constexpr std::uint8_t kHeader[] = {70, 'Q', 'R', '1'};
  static constexpr const char* kAddRefused = "MsgT Error: Attempting to ADD a field with incorrect id or type!";
  static constexpr const char* kUpdateRefused = "MsgT Error: Attempting to UPDATE a field with an incorrect type!";
  static constexpr bool kEmptyMessageBeforeEmptyList = false;
  static constexpr bool kMoveLeavesEmptyMessage = true;

  static constexpr std::uint64_t kMaxHeadBytes = 8;

  template <class View>
  static std::uint16_t id(const View& view, std::uint64_t position) noexcept {
    return boost::endian::big_to_native(view.template load<std::uint16_t>(position));
  }

  template <class View>
  static Head head(const View& view, std::uint64_t position, std::uint8_t) noexcept {
    return {position, boost::endian::big_to_native(view.template load<std::uint32_t>(position + 4)), kMaxHeadBytes,
            view.template load<std::uint8_t>(position + 3)};
  }

  static bool step(const detail::WholeBytes& bytes, std::uint64_t position, std::uint8_t type,
                   std::uint64_t& recordBytes) noexcept {
    const Head stored = head(bytes, position, type);
    recordBytes = stored.bytes();
    return stored.type == type;
  }

  template <class T>
  static constexpr std::uint32_t headBytes() noexcept {
    return kMaxHeadBytes;
  }

  template <class T>
  static constexpr std::uint64_t bytesInPlace(const T& value) noexcept {
    return valueBytes(value);
  }

  static constexpr bool holds(std::uint64_t) noexcept { return true; }
  static void refuseLength(std::uint64_t) noexcept {}

  template <class T>
  static void write(detail::ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes, const T& value) noexcept {
    out.put(boost::endian::native_to_big(id));
    out.put(boost::endian::native_to_big(std::uint16_t{detail::kTypeCode<T>}));
    out.put(boost::endian::native_to_big(static_cast<std::uint32_t>(lengthBytes)));
    overwrite(out, value);
  }

  static void refuseGet(std::uint16_t id, const Head& head) {
    detail::reportField("MsgT Error: Attempting to GET a field of incorrect type!", id, head.type,
                        static_cast<std::size_t>(head.valueBytes));
  }

  // The type is tested before the length.
  static detail::UpdateStep updateStep(const Head& stored, std::uint8_t type, std::uint64_t lengthBytes) noexcept {
    if (stored.type != type) {
      return detail::UpdateStep::Refuse;
    }
    return stored.valueBytes == lengthBytes ? detail::UpdateStep::Overwrite : detail::UpdateStep::EraseAndAppend;
  }
};

MsgT::MsgT() : RecordMessage(DEFAULT_ALLOCATOR) { startEmpty(); }

MsgT::MsgT(const Allocator& allocator) : RecordMessage(allocator) {}

MsgT::~MsgT() = default;

template class RecordMessage<MsgT>;

}  // namespace MD
