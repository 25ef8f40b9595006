/// @file
/// What the encodings have in common: a header, then records back to back, each found through the field table. An
/// encoding derives from this template and adds its record layout; callers use `mInt`, `IterMap` and `MsgT`.
#ifndef MD_RECORD_MESSAGE_H
#define MD_RECORD_MESSAGE_H

#include <cstdint>

#include <memory>
#include <set>
#include <vector>

#include "md/detail/plain_records.h"
#include "md/md_api.h"
#include "md/md_message.h"

namespace MD {

/// Implements every slot of `MD_Message` over `Encoding::Layout`, how records lie in it, and `Encoding::Rules`, what
/// else there is to an encoding, which its own source defines.
// That source also instantiates it. The headers do not say so (extern template): programs would then look for the
// inline members in the library, and a DLL does not export those.
template <class Encoding>
class MD_API RecordMessage : public MD_Message {
 public:
  std::uint8_t getPB() const final;
  const std::uint8_t* fieldData(std::uint16_t id, std::uint8_t& type, std::uint32_t& sizeBytes) const final;
  std::unique_ptr<MD_Message> createEmpty() const final;
  std::unique_ptr<MD_Message> clone() const final;
  std::unique_ptr<MD_Message> moveToNew() final;
  bool eraseArrayImpl(const std::vector<std::uint16_t>& ids) final;
  bool eraseSetImpl(const std::set<std::uint16_t>& ids) final;
  bool eraseImpl(std::uint16_t id) final;
  void clearImpl() final;
  bool emptyImpl() const final;
  bool existsImpl(std::uint16_t id) const final;
  const std::uint8_t* getBinary() const final { return bytes().data(); }
  bool setBinaryImpl(const std::uint8_t* bytes, std::uint32_t sizeBytes) final;
  std::uint32_t getSizeImpl() const final { return static_cast<std::uint32_t>(bytes().size()); }
  void getFieldIdsImpl(std::vector<std::uint16_t>& out) const final;

  // The typed front end of MD_Message once more: a message used through its own type is called directly, and what is
  // not the plain case goes on in the library.
  using MD_Message::add;
  using MD_Message::get;
  using MD_Message::update;
#define MD_FRONT_END(T, name, code)                                                                                   \
  MD_ALWAYS_INLINE bool get(std::uint16_t id, T& out) const {                                                         \
    using Plain = detail::PlainRecords<typename Encoding::Layout>;                                                    \
    return Plain::read(bytes(), positions(), fieldMap().packed(id), out) || RecordMessage::getImpl(id, out);          \
  }                                                                                                                   \
  MD_ALWAYS_INLINE bool add(std::uint16_t id, T value) {                                                              \
    using Plain = detail::PlainRecords<typename Encoding::Layout>;                                                    \
    return Plain::add(bytes(), positions(), fieldMap().packed(id), id, value) || RecordMessage::addImpl(id, value);   \
  }                                                                                                                   \
  MD_ALWAYS_INLINE bool update(std::uint16_t id, T value) {                                                           \
    using Plain = detail::PlainRecords<typename Encoding::Layout>;                                                    \
    return Plain::update(bytes(), positions(), fieldMap().packed(id), value) || RecordMessage::updateImpl(id, value); \
  }
  MD_VALUE_TYPES(MD_FRONT_END)
#undef MD_FRONT_END

 protected:
  /// A message with borrowed objects as the pools gave them; startEmpty() or setBinaryImpl() makes it usable.
  explicit RecordMessage(const Allocator& allocator);
  ~RecordMessage() override;

  /// Resets the borrowed objects to an empty message, header included.
  void startEmpty();

#define MD_SLOT(T, name, code) bool getImpl(std::uint16_t id, T& out) const final;
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
#define MD_SLOT(T, name, code) bool addImpl(std::uint16_t id, T value) final;
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
#define MD_SLOT(T, name, code) bool updateImpl(std::uint16_t id, T value) final;
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT

 private:
  friend class MD_Message;

  /// copyMsg() of these fields of another message.
  MD_LOCAL void takeFields(const MD_Message& source, const std::vector<std::uint16_t>& ids);

  struct MD_LOCAL Records;
  friend struct Records;
};

}  // namespace MD

#endif
