#include "md/md_msgt.h"

#include "record_message.h"

namespace MD {

struct MsgT::Rules {
  static constexpr const char* kAddRefused = "MsgT Error: Attempting to ADD a field with incorrect id or type!";
  static constexpr const char* kMessageFull =
      "MsgT Error: Attempting to ADD a field to a message that would exceed 4294967295 bytes!";
  static constexpr const char* kGetRefused = "MsgT Error: Attempting to GET a field of incorrect type!";
  static constexpr bool kGetReportsStoredId = true;
  static constexpr bool kFieldDataTypeOfRequestedId = false;
  static constexpr const char* kUpdateRefused = "MsgT Error: Attempting to UPDATE a field with an incorrect type!";
  static constexpr detail::UpdateTest kUpdateTest = detail::UpdateTest::TypeThenLength;
  static constexpr bool kEmptyMessageBeforeEmptyList = false;
  static constexpr bool kMoveLeavesEmptyMessage = true;
};

MsgT::MsgT() : RecordMessage(DEFAULT_ALLOCATOR) { startEmpty(); }

MsgT::MsgT(const Allocator& allocator) : RecordMessage(allocator) {}

MsgT::~MsgT() = default;

template class RecordMessage<MsgT>;

}  // namespace MD
