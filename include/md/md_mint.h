/// @file
/// The compact encoding, code 6.
#ifndef MD_MINT_H
#define MD_MINT_H

#include "md/md_api.h"
#include "md/md_record_message.h"

namespace MD {

class MD_API mInt;

/// Records of field id (2 bytes), value length (1 byte) and value, little-endian, behind one header byte. Small
/// non-negative integers take 1 or 2 bytes instead of 4. A string holds at most 254 characters, a buffer 255 bytes.
class MD_API mInt final : public RecordMessage<mInt> {
 public:
  mInt();
  ~mInt() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<mInt>;
  struct MD_LOCAL Layout;

  explicit mInt(const Allocator& allocator);
};

}  // namespace MD

#endif
