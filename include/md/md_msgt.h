/// @file
/// The self-describing encoding, code 70.
#ifndef MD_MSGT_H
#define MD_MSGT_H

#include "md/md_api.h"
#include "md/md_record_message.h"

namespace MD {

class MD_API MsgT;

/// Records of field id (2 bytes), type code (2 bytes), value length (4 bytes) and value, big-endian, behind a magic of
/// four bytes. Date-times and epoch times are little-endian.
class MD_API MsgT final : public RecordMessage<MsgT> {
 public:
  MsgT();
  ~MsgT() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<MsgT>;
  struct MD_LOCAL Layout;

  explicit MsgT(const Allocator& allocator);
};

}  // namespace MD

#endif
