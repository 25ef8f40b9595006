/// @file
/// The common part of the encodings: a header, then contiguous records that are found through the field index. An
/// encoding derives from this template and adds its record layout; callers use `mInt`, `IterMap` and `MsgT`.
#ifndef MD_RECORD_MESSAGE_H
#define MD_RECORD_MESSAGE_H

#include <cstdint>

#include <memory>
#include <optional>
#include <set>
#include <type_traits>
#include <vector>

#include "md/detail/byte_range.h"
#include "md/detail/record_layout.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_api.h"
#include "md/md_field.h"
#include "md/md_fieldmap.h"
#include "md/md_message.h"
#include "md/md_value_types.h"

namespace MD {

namespace detail {
template <class Encoding, class Layout, class Rules>
class RecordReplacement;

/// Bytes from which a message can be created. Messages of another encoding are excluded: use copyReadable().
template <class Bytes>
using IfReceivedBytes = std::enable_if_t<kIsByteRange<Bytes> && !std::is_base_of_v<MD_Message, Bytes>, int>;
}  // namespace detail

/// Implements every virtual function of `MD_Message` with `Encoding::Layout`, which describes the bytes of an encoding
/// (checkLayout() lists its members), and `Encoding::Rules`, which contains the decisions and the diagnostics of the
/// encoding and is defined in its source.
// That source also instantiates this template (see record_message.h beside it). The headers do not declare this (extern
// template): programs would then look for the inline members in the library, and a DLL does not export those.
template <class Encoding>
class MD_API RecordMessage : public MD_Message {
 public:
  std::uint8_t getPB() const final;
  const std::uint8_t* fieldData(std::uint16_t id, std::uint8_t& type, std::uint32_t& sizeBytes) const final;
  std::unique_ptr<MD_Message> createEmpty() const final;
  std::unique_ptr<MD_Message> clone() const final;
  [[nodiscard]] std::unique_ptr<MD_Message> moveToNew() final;
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

  // The typed front end of MD_Message again: a message used through its own type is called directly. The inline code
  // handles the plain case, the only one that well-formed messages reach; all other cases continue in the library.
  using MD_Message::add;
  using MD_Message::get;
  using MD_Message::update;
#define MD_FRONT_END(T, name, code)                                                                             \
  [[nodiscard]] MD_ALWAYS_INLINE bool get(std::uint16_t id, T& out) const {                                     \
    return readPlain(id, out) || readChecked(id, out);                                                          \
  }                                                                                                             \
  MD_ALWAYS_INLINE bool add(std::uint16_t id, T value) { return addPlain(id, value) || addChecked(id, value); } \
  MD_ALWAYS_INLINE bool update(std::uint16_t id, T value) { return updatePlain(id, value) || updateChecked(id, value); }
  MD_VALUE_TYPES(MD_FRONT_END)
#undef MD_FRONT_END
  template <class T>
  [[nodiscard]] MD_ALWAYS_INLINE std::optional<detail::FieldValue<T>> get(Field<T> field) const {
    return detail::readField<T>(*this, field.id());
  }
  template <class T>
  [[nodiscard]] MD_ALWAYS_INLINE std::optional<detail::FieldValue<T>> get(std::uint16_t id) const {
    return get(Field<T>(id));
  }
  template <class T>
  [[nodiscard]] MD_ALWAYS_INLINE detail::FieldValue<T> value_or(Field<T> field, detail::FieldValue<T> otherwise) const {
    return get(field).value_or(otherwise);
  }
  template <class T, class Value>
  [[nodiscard]] MD_ALWAYS_INLINE bool add(Field<T> field, const Value& value) {
    T converted{};
    return detail::convertForField(value, converted) && add(field.id(), converted);
  }
  template <class T, class Value>
  [[nodiscard]] MD_ALWAYS_INLINE bool update(Field<T> field, const Value& value) {
    T converted{};
    return detail::convertForField(value, converted) &&
           (updateOwnPlain(field.id(), converted) || updateField(field.id(), converted));
  }

 protected:
  /// A message whose pooled objects are as the pools returned them; startEmpty() or setBinaryImpl() initialises it.
  explicit RecordMessage(const Allocator& allocator);
  ~RecordMessage() override;

  /// Resets the pooled objects to an empty message, including the header.
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
  template <class, class, class>
  friend class detail::RecordReplacement;

  // The plain cases. Each returns true if it completed the operation, and false if it did nothing.
  template <class T>
  MD_ALWAYS_INLINE inline bool readPlain(std::uint16_t id, T& out) const;
  template <class T>
  MD_ALWAYS_INLINE inline bool addPlain(std::uint16_t id, T value);
  template <class T>
  MD_ALWAYS_INLINE inline bool updatePlain(std::uint16_t id, T value);
  template <class T>
  MD_ALWAYS_INLINE inline bool updateOwnPlain(std::uint16_t id, T value);
  template <class T>
  MD_ALWAYS_INLINE inline bool findPlain(std::uint16_t id, std::uint64_t lengthBytes, detail::RecordHead& head) const;

  // Any case.
#define MD_CHECKED(T, name, code)                           \
  MD_RARE bool readChecked(std::uint16_t id, T& out) const; \
  MD_RARE bool addChecked(std::uint16_t id, T value);       \
  MD_RARE bool updateChecked(std::uint16_t id, T value);
  MD_VALUE_TYPES(MD_CHECKED)
#undef MD_CHECKED

  // The parts of the operations, in the library only.
  MD_LOCAL void writeHeader(std::uint64_t first) noexcept;
  MD_ALWAYS_INLINE MD_LOCAL inline void assign(const std::uint8_t* source, std::uint64_t sizeBytes);
  MD_ALWAYS_INLINE MD_LOCAL inline void index(std::uint64_t position);
  MD_RARE MD_LOCAL void indexChecked(std::uint64_t position);
  MD_LOCAL std::uint64_t find(FIELDS::packed_rec field) const noexcept;
  MD_LOCAL void cutOut(FIELDS::packed_rec field, std::uint64_t position, std::uint64_t recordBytes);
  template <class T>
  MD_RARE MD_LOCAL bool readAt(std::uint64_t position, std::uint16_t id, T& out) const;
  template <class T>
  MD_RARE MD_LOCAL bool updateAt(std::uint64_t position, std::uint16_t id, T value);
  template <class T>
  MD_RARE MD_LOCAL bool append(std::uint16_t id, T value);
  template <class T>
  MD_LOCAL bool replace(std::uint16_t id, std::uint64_t position, std::uint64_t recordBytes, T value);
  template <class Ids>
  MD_LOCAL bool eraseMany(const Ids& ids);
  /// MD_Message::takeFields() from another message.
  MD_LOCAL void takeFields(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                           std::vector<std::uint16_t>* notCopied);
  MD_LOCAL bool canTakeAll(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                           const std::vector<std::uint16_t>& erased, bool& areIndependent) const;
  /// Updates a field whose record, if there is one, has the id of the field and holds a value of its type.
#define MD_UPDATE_OWN(T, name, code) MD_LOCAL bool updateOwn(std::uint16_t id, T value);
  MD_VALUE_TYPES(MD_UPDATE_OWN)
#undef MD_UPDATE_OWN
  template <class T>
  MD_RARE MD_LOCAL bool updateOwnAny(std::uint16_t id, T value);
};

template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::readPlain(std::uint16_t id, T& out) const {
  using Layout = typename Encoding::Layout;
  detail::RecordHead head;
  if (!findPlain<T>(id, Layout::template kHasOneWidth<T> ? sizeof(T) : 0, head)) {
    return false;
  }
  if constexpr (Layout::template kHasOneWidth<T>) {
    if (MD_UNLIKELY(head.valueBytes != sizeof(T))) {
      return false;
    }
  } else if (MD_UNLIKELY(head.position + head.bytes() > bytes().size())) {
    return false;
  }
  return Layout::decode(detail::WholeBytes(bytes().data()), head, out);
}

template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::addPlain(std::uint16_t id, T value) {
  using Layout = typename Encoding::Layout;
  // A field of this type is known: an unknown one has type 0.
  static_assert(detail::kTypeCode<T> != DATATYPES::RAW);
  const std::uint32_t slot = fieldMap().packed(id).slotIf(detail::kTypeCode<T>);
  Optimizer& table = positions();
  if (MD_UNLIKELY(!table.hasRoomFor(slot)) || MD_UNLIKELY(!table.isAbsent(slot))) {
    return false;
  }
  MsgData& data = bytes();
  const std::uint64_t position = data.size();
  const std::uint64_t lengthBytes = Layout::valueBytes(value);
  const std::uint64_t recordBytes = Layout::headBytes(detail::kTypeCode<T>) + lengthBytes;
  std::uint64_t neededBytes = recordBytes;
  if constexpr (Layout::kWritesAhead) {
    neededBytes = Layout::template aheadBytes<T>(lengthBytes);
  }
  // A buffer grows to 2^32 bytes at most, so a message that does not fill it is not too long.
  if (MD_UNLIKELY(position < detail::kHeaderBytes<Layout>) || MD_UNLIKELY(position + neededBytes >= data.capacity()) ||
      MD_UNLIKELY(lengthBytes > Layout::kMaxValueBytes)) {
    return false;
  }
  const detail::ByteWriter out(data.data() + position);
  data.setSize(position + recordBytes);
  table.placeAbsent(slot, position);
  if constexpr (Layout::kWritesAhead) {
    Layout::writeAhead(out, id, lengthBytes, value);
  } else {
    Layout::write(out, id, lengthBytes, value);
  }
  return true;
}

template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::updatePlain(std::uint16_t id, T value) {
  using Layout = typename Encoding::Layout;
  const std::uint64_t lengthBytes = Layout::bytesInPlace(value);
  detail::RecordHead head;
  if (!findPlain<T>(id, lengthBytes, head) || MD_UNLIKELY(head.valueBytes != lengthBytes)) {
    return false;
  }
  Layout::overwrite(detail::ByteWriter(bytes().data() + head.valuePosition()), value);
  return true;
}

/// updatePlain() of a record that has the id of the field, if the dictionary declares the type `T` for the id.
template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::updateOwnPlain(std::uint16_t id, T value) {
  using Layout = typename Encoding::Layout;
  constexpr std::uint8_t kType = detail::kTypeCode<T>;
  MsgData& data = bytes();
  const detail::WholeBytes whole(data.data());
  const Optimizer& table = positions();
  const std::uint32_t slot = fieldMap().packed(id).slotIf(kType);
  const std::uint64_t lengthBytes = Layout::bytesInPlace(value);
  if (MD_UNLIKELY(!table.hasRoomFor(slot))) {
    return false;
  }
  const std::uint64_t position = table.position(slot);
  if (MD_UNLIKELY(position + Layout::headBytes(kType) + lengthBytes > data.size()) ||
      MD_UNLIKELY(Layout::id(whole, position) != id)) {
    return false;
  }
  const detail::RecordHead head = Layout::head(whole, position, kType);
  if (MD_UNLIKELY(head.type != kType) || MD_UNLIKELY(head.valueBytes != lengthBytes)) {
    return false;
  }
  Layout::overwrite(detail::ByteWriter(data.data() + head.valuePosition()), value);
  return true;
}

/// Finds the record of a `T`. False if there is none, if the record that the field index refers to has another type,
/// and if the message ends within its header or the `lengthBytes` after that.
template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::findPlain(std::uint16_t id, std::uint64_t lengthBytes, detail::RecordHead& head) const {
  using Layout = typename Encoding::Layout;
  constexpr std::uint8_t kType = detail::kTypeCode<T>;
  const MsgData& data = bytes();
  const detail::WholeBytes whole(data.data());
  const Optimizer& table = positions();
  const MD_FieldMap& dictionary = fieldMap();
  const FIELDS::packed_rec field = dictionary.packed(id);
  const std::uint32_t slot = Layout::kComparesHeads ? field.slotIf(kType) : field.slot;
  if (MD_UNLIKELY(!table.hasRoomFor(slot))) {
    return false;
  }
  const std::uint64_t position = table.position(slot);
  if (MD_UNLIKELY(position + Layout::headBytes(kType) + lengthBytes > data.size())) {
    return false;
  }
  // An update of another record may have overwritten this one, so what is present now decides.
  if constexpr (Layout::kComparesHeads) {
    if (MD_UNLIKELY(!Layout::template hasHeadOf<T>(whole, position, id))) {
      return false;
    }
    if constexpr (Layout::template kHasOneWidth<T>) {
      head = {position, sizeof(T), Layout::headBytes(kType), kType};
      return true;
    }
  } else if constexpr (!Layout::kTypesAreOnTheWire) {
    if (MD_UNLIKELY(dictionary.packed(Layout::id(whole, position)).type != kType)) {
      return false;
    }
  }
  head = Layout::head(whole, position, kType);
  return !MD_UNLIKELY(head.type != kType);
}

}  // namespace MD

#endif
