#include "md/md_mint.h"

#include <string>

#include "record_message.h"

namespace MD {

struct mInt::Rules {
  static constexpr const char* kAddRefused = "mInt Error: Attempting to ADD a field with incorrect id!";
  static constexpr const char* kMessageFull =
      "mInt Error: Attempting to ADD a field to a message that would exceed 4294967295 bytes!";
  static constexpr const char* kGetRefused = nullptr;
  static constexpr bool kFieldDataTypeOfRequestedId = true;
  static constexpr detail::UpdateTest kUpdateTest = detail::UpdateTest::Length;
  static constexpr bool kEmptyMessageBeforeEmptyList = true;
  static constexpr bool kMoveLeavesEmptyMessage = false;

  static std::string tooLong(std::uint64_t lengthBytes) {
    return "mInt Error: Attempting to ADD field of length " + std::to_string(lengthBytes) + " which is > max length " +
           std::to_string(Layout::kMaxValueBytes) + "\n";
  }
};

mInt::mInt() : RecordMessage(DEFAULT_ALLOCATOR) { startEmpty(); }

mInt::mInt(const Allocator& allocator) : RecordMessage(allocator) {}

mInt::~mInt() = default;

template class RecordMessage<mInt>;

}  // namespace MD
