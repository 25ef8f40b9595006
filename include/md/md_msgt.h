/// @file
/// The self-describing encoding, code 70.
#ifndef MD_MSGT_H
#define MD_MSGT_H

#include <cstdint>

#include "md/detail/value_codec.h"
#include "md/md_api.h"
#include "md/md_record_message.h"

namespace MD {

class MD_API MsgT;

/// Records of field id (2 bytes), type code (2 bytes), value length (4 bytes) and value, big-endian, behind a magic of
/// four bytes. Date-times and epoch times are little-endian.
class MD_API MsgT final : public RecordMessage<MsgT> {
 public:
  /// An empty message over the shared pools.
  MsgT();
  ~MsgT() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<MsgT>;
  struct MD_LOCAL Layout;
  struct MD_LOCAL Rules;

  explicit MsgT(const Allocator& allocator);
};

// Record: field id u16, type code u16 (readers look at its low byte alone), value length u32, value; numbers
// big-endian.
struct MsgT::Layout : detail::FixedWidthCodec<MsgT::Layout, detail::ByteOrder::Big> {
  static constexpr std::uint64_t kHeaderBytes = 4;
  static constexpr std::uint64_t kHeadBytes = 8;

  template <class T>
  MD_ALWAYS_INLINE static bool isHeadOf(const detail::WholeBytes& bytes, std::uint64_t position) noexcept {
    // Type and length are the last five bytes.
    constexpr std::uint64_t kExpected = detail::reversed(std::uint64_t{detail::kTypeCode<T>} << 32 | sizeof(T)) >> 24;
    return bytes.load<std::uint64_t>(position) >> 24 == kExpected;
  }

  template <class T>
  static constexpr std::uint32_t headBytes() noexcept {
    return kHeadBytes;
  }

  template <class T, class View>
  MD_ALWAYS_INLINE static Head headOf(const View& view, std::uint64_t position) noexcept {
    return head(view, position, detail::kTypeCode<T>);
  }

  template <class View>
  MD_ALWAYS_INLINE static Head head(const View& view, std::uint64_t position, std::uint8_t) noexcept {
    return {position, detail::reversed(view.template load<std::uint32_t>(position + 4)), kHeadBytes,
            view.template load<std::uint8_t>(position + 3)};
  }

  template <class T>
  MD_ALWAYS_INLINE static void write(detail::ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes,
                                     const T& value) noexcept {
    out.put(detail::reversed(id));
    out.put(detail::reversed(std::uint16_t{detail::kTypeCode<T>}));
    out.put(detail::reversed(static_cast<std::uint32_t>(lengthBytes)));
    overwrite(out, value);
  }
};

}  // namespace MD

#endif
