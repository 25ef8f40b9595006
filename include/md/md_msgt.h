/// @file
/// The self-describing encoding, encoding id 70.
#ifndef MD_MSGT_H
#define MD_MSGT_H

#include <cstdint>

#include "md/detail/record_layout.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_datatypes.h"
#include "md/md_record_message.h"
#include "md/md_value_types.h"

namespace MD {
namespace detail {

// Record: field id u16, type code u16 (readers use only its low byte), value length u32, value; numbers big-endian.
struct MsgTLayout : ValueCodec<ByteOrder::Big> {
  static constexpr std::uint8_t kHeader[] = {ENCODINGS::MSGT, 'Q', 'R', '1'};
  static constexpr bool kTypesAreOnTheWire = true;
  static constexpr std::uint64_t kMaxHeadBytes = 8;

  template <class Bytes>
  MD_ALWAYS_INLINE static std::uint16_t id(const Bytes& bytes, std::uint64_t position) noexcept {
    return reversed(bytes.template load<std::uint16_t>(position));
  }

  static constexpr std::uint32_t headBytes(std::uint8_t) noexcept { return kMaxHeadBytes; }

  template <class Bytes>
  MD_ALWAYS_INLINE static Head head(const Bytes& bytes, std::uint64_t position, std::uint8_t) noexcept {
    return {position, reversed(bytes.template load<std::uint32_t>(position + 4)), kMaxHeadBytes,
            bytes.template load<std::uint8_t>(position + 3)};
  }

  MD_ALWAYS_INLINE static bool step(const WholeBytes& bytes, std::uint64_t position, std::uint8_t type,
                                    std::uint64_t& next) noexcept {
    const Head stored = head(bytes, position, type);
    if (stored.valueBytes == 8) {
      next = byJump(position + kMaxHeadBytes + 8);
    } else if (stored.valueBytes == 4) {
      next = byJump(position + kMaxHeadBytes + 4);
    } else {
      next = position + stored.bytes();
    }
    return stored.type == type;
  }

  template <class T>
  MD_ALWAYS_INLINE static void write(ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes,
                                     const T& value) noexcept {
    out.put(reversed(id));
    out.put(reversed(std::uint16_t{kTypeCode<T>}));
    out.put(reversed(static_cast<std::uint32_t>(lengthBytes)));
    overwrite(out, value);
  }
};

}  // namespace detail

class MD_API MsgT;

/// Records of field id (2 bytes), type code (2 bytes), value length (4 bytes) and value, big-endian, after a magic of
/// four bytes. Date-times and nanosecond timestamps are little-endian.
class MD_API MsgT final : public RecordMessage<MsgT> {
 public:
  /// An empty message over the shared pools.
  MsgT();
  /// A message of contiguous received bytes, such as a std::vector<std::uint8_t> or a std::string_view. Empty if
  /// parse() would refuse them; for bytes of any encoding see createFromBytes().
  template <class Bytes, detail::IfReceivedBytes<Bytes> = 0>
  explicit MsgT(const Bytes& bytes) : MsgT() {
    static_cast<void>(this->parse(bytes));
  }
  ~MsgT() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<MsgT>;
  using Layout = detail::MsgTLayout;
  struct MD_LOCAL Rules;

  explicit MsgT(const Allocator& allocator);
};

}  // namespace MD

#endif
