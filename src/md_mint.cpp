#include "md/md_mint.h"

#include <string>

#include "record_message.h"

namespace MD {

struct mInt::Rules : mInt::Layout {
  static constexpr std::uint8_t kHeader[] = {ENCODINGS::MINT};
  static constexpr const char* kAddRefused = "mInt Error: Attempting to ADD a field with incorrect id!";
  static constexpr const char* kUpdateRefused = "";  // no update is
  static constexpr bool kEmptyMessageBeforeEmptyList = true;
  static constexpr bool kMoveLeavesEmptyMessage = false;
  static constexpr std::uint64_t kMaxHeadBytes = kHeadBytes;

  template <class View>
  static std::uint16_t id(const View& view, std::uint64_t position) noexcept {
    return view.template load<std::uint16_t>(position);
  }

  // Of the types that are always eight bytes long the length is guessed, so that the next record need not wait for it.
  // Strings are that long by chance.
  static bool step(const detail::WholeBytes& bytes, std::uint64_t position, std::uint8_t type,
                   std::uint64_t& next) noexcept {
    const std::uint64_t lengthBytes = bytes.load<std::uint8_t>(position + 2);
    if (lengthBytes == 8 && (detail::typeBit(type) & detail::kEightByteTypes) != 0) {
      next = detail::byJump(position + kHeadBytes + 8);
    } else {
      next = position + kHeadBytes + lengthBytes;
    }
    return true;
  }

  static void refuseLength(std::uint64_t lengthBytes) {
    detail::report([lengthBytes] {
      return "mInt Error: Attempting to ADD field of length " + std::to_string(lengthBytes) +
             " which is > max length " + std::to_string(kMaxValueBytes) + "\n";
    });
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
