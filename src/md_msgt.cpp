#include "md/md_msgt.h"

#include "record_message.h"

namespace MD {

struct MsgT::Rules : MsgT::Layout {
  static constexpr std::uint8_t kHeader[] = {ENCODINGS::MSGT, 'Q', 'R', '1'};
  static constexpr const char* kAddRefused = "MsgT Error: Attempting to ADD a field with incorrect id or type!";
  static constexpr const char* kUpdateRefused = "MsgT Error: Attempting to UPDATE a field with an incorrect type!";
  static constexpr bool kEmptyMessageBeforeEmptyList = false;
  static constexpr bool kMoveLeavesEmptyMessage = true;
  static constexpr std::uint64_t kMaxHeadBytes = kHeadBytes;

  template <class View>
  static std::uint16_t id(const View& view, std::uint64_t position) noexcept {
    return detail::reversed(view.template load<std::uint16_t>(position));
  }

  static bool step(const detail::WholeBytes& bytes, std::uint64_t position, std::uint8_t type,
                   std::uint64_t& next) noexcept {
    const Head stored = head(bytes, position, type);
    if (stored.valueBytes == 8) {
      next = detail::byJump(position + kHeadBytes + 8);
    } else if (stored.valueBytes == 4) {
      next = detail::byJump(position + kHeadBytes + 4);
    } else {
      next = position + stored.bytes();
    }
    return stored.type == type;
  }

  static void refuseLength(std::uint64_t) noexcept {}

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
