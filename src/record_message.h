// The algorithms of RecordMessage. An encoding's source defines `Encoding::Rules` (see record_rules.h), includes this
// header and instantiates `RecordMessage<Encoding>`.
#ifndef MD_SRC_RECORD_MESSAGE_H
#define MD_SRC_RECORD_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "field_copy.h"
#include "field_update.h"
#include "md/detail/record_layout.h"
#include "md/detail/record_walk.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_fieldmap.h"
#include "md/md_msgdata.h"
#include "md/md_optimizer.h"
#include "md/md_record_message.h"
#include "md/md_value_types.h"
#include "message_printer.h"
#include "record_changes.h"
#include "record_cuts.h"
#include "record_replacement.h"
#include "record_rules.h"
#include "report.h"
#include "value_dispatch.h"

namespace MD {

template <class Encoding>
RecordMessage<Encoding>::RecordMessage(const Allocator& allocator) : MD_Message(allocator) {
  static_assert(detail::checkLayout<typename Encoding::Layout>());
}

template <class Encoding>
RecordMessage<Encoding>::~RecordMessage() = default;

template <class Encoding>
std::uint8_t RecordMessage<Encoding>::getPB() const {
  return Encoding::Layout::kHeader[0];
}

// The message as a whole ----------------------------------------------------------------------------------------------

template <class Encoding>
bool RecordMessage<Encoding>::emptyImpl() const {
  return bytes().size() <= detail::kHeaderBytes<typename Encoding::Layout>;
}

/// Writes the header, starting at its byte `first`, into the memory of the buffer, regardless of the bytes in use.
template <class Encoding>
void RecordMessage<Encoding>::writeHeader(std::uint64_t first) noexcept {
  constexpr const auto& kHeader = Encoding::Layout::kHeader;
  if (first < sizeof kHeader && bytes().capacity() != 0) {
    std::memcpy(bytes().data() + first, kHeader + first, sizeof kHeader - static_cast<std::size_t>(first));
  }
}

template <class Encoding>
void RecordMessage<Encoding>::startEmpty() {
  bytes().reserve(detail::kHeaderBytes<typename Encoding::Layout>);
  writeHeader(0);
  clearImpl();
}

template <class Encoding>
void RecordMessage<Encoding>::clearImpl() {
  constexpr std::uint64_t kHeaderBytes = detail::kHeaderBytes<typename Encoding::Layout>;
  if (bytes().capacity() == 0) {
    bytes().reserve(kHeaderBytes);
    writeHeader(0);
  }
  bytes().setSize(kHeaderBytes);
  positions().clear();
}

/// Takes over a copy of `source`, which may be the buffer's own, and makes every field absent.
template <class Encoding>
void RecordMessage<Encoding>::assign(const std::uint8_t* source, std::uint64_t sizeBytes) {
  MsgData& data = bytes();
  const std::uint64_t neededBytes = std::max(sizeBytes, detail::kHeaderBytes<typename Encoding::Layout>);
  if (neededBytes > data.capacity()) {
    source = detail::growUnder(data, neededBytes, source);
  }
  positions().fitDictionary();
  if (sizeBytes != 0) {
    std::memmove(data.data(), source, static_cast<std::size_t>(sizeBytes));
  }
  // A truncated header is completed after the end, where an add or a clear makes it valid.
  writeHeader(sizeBytes);
  data.setSize(sizeBytes);
  positions().clear();
}

template <class Encoding>
bool RecordMessage<Encoding>::setBinaryImpl(const std::uint8_t* received, std::uint32_t sizeBytes) {
  if (received == nullptr) {
    return false;
  }
  assign(received, sizeBytes);
  index(detail::kHeaderBytes<typename Encoding::Layout>);
  return true;
}

/// Registers the records from `position` to the end. There must be room for every field of the dictionary.
template <class Encoding>
void RecordMessage<Encoding>::index(std::uint64_t position) {
  detail::RecordWalk<typename Encoding::Layout> walk(detail::viewOf(bytes()), fieldMap(), position);
  {
    Optimizer::Filling table(positions());
    walk.passWholeFields(
        [&table](FIELDS::packed_rec field, std::uint16_t, std::uint64_t at) { table.place(field, at); });
  }
  if (!walk.isAtEnd()) {
    indexChecked(walk.position());
  }
}

/// Any records: those that are no fields are reported and stripped, and the rest closes up, each byte moved once.
template <class Encoding>
void RecordMessage<Encoding>::indexChecked(std::uint64_t position) {
  MsgData& data = bytes();
  std::uint64_t kept = position;
  detail::RecordWalk<typename Encoding::Layout> walk(detail::viewOf(data), fieldMap(), position);
  for (detail::WalkedRecord record; walk.next(record);) {
    if (record.kind == detail::WalkedRecord::Kind::Field) {
      positions().place(record.field, kept);
      detail::keep(data, record.head.position, record.end, kept);
    } else {
      detail::reportBadField<Encoding>(record.id, record.head.type, record.head.valueBytes);
    }
  }
  if (kept != data.size()) {
    data.setSize(kept);
    if (detail::g_badFieldReports<Encoding>.isBelowLimit()) {
      detail::reportRemainder(*this);
    }
  }
}

template <class Encoding>
void RecordMessage<Encoding>::getFieldIdsImpl(std::vector<std::uint16_t>& out) const {
  if (out.empty()) {
    out.reserve(positions().get_field_count());
  }
  detail::RecordWalk<typename Encoding::Layout> walk(detail::viewOf(bytes()), fieldMap());
  for (detail::WalkedRecord record; walk.next(record);) {
    if (record.kind != detail::WalkedRecord::Kind::LoneByte) {
      const std::uint16_t id = record.id;  // the record itself stays in registers
      out.push_back(id);
    }
  }
}

template <class Encoding>
std::unique_ptr<MD_Message> RecordMessage<Encoding>::createEmpty() const {
  return std::make_unique<Encoding>();
}

template <class Encoding>
std::unique_ptr<MD_Message> RecordMessage<Encoding>::clone() const {
  std::unique_ptr<Encoding> copy(new Encoding(DEFAULT_ALLOCATOR));
  RecordMessage& target = *copy;
  target.assign(bytes().data(), bytes().size());
  Optimizer& table = target.positions();
  detail::RecordWalk<typename Encoding::Layout> walk(detail::viewOf(bytes()), fieldMap());
  for (detail::WalkedRecord record; walk.next(record);) {
    if (const std::uint64_t position = positions().get(record.field)) {
      table.place(record.field, position);
    }
  }
  // A record that another one covers, or that only an earlier dictionary contains, was not found.
  if (table.get_field_count() != positions().get_field_count()) {
    table = positions();
  }
  return copy;
}

template <class Encoding>
std::unique_ptr<MD_Message> RecordMessage<Encoding>::moveToNew() {
  std::unique_ptr<Encoding> moved(new Encoding(DEFAULT_ALLOCATOR));
  RecordMessage& target = *moved;
  if constexpr (Encoding::Rules::kMoveLeavesEmptyMessage) {
    target.startEmpty();
  } else {
    // A clear keeps the header as it is, and the pool's buffer may have served another encoding.
    target.writeHeader(0);
  }
  swap(target);
  return moved;
}

// One field -----------------------------------------------------------------------------------------------------------

/// The position of a field's record, 0 when it is absent. Positions can outlive their bytes: records overlap after an
/// add to a message that ends in a truncated one, and a dictionary may change under a message.
template <class Encoding>
std::uint64_t RecordMessage<Encoding>::find(FIELDS::packed_rec field) const noexcept {
  const Optimizer& table = positions();
  const std::uint64_t position = table.hasRoomFor(field) ? table.position(field) : 0;
  return position < bytes().size() ? position : 0;
}

template <class Encoding>
bool RecordMessage<Encoding>::existsImpl(std::uint16_t id) const {
  return positions().get(id) != 0;
}

template <class Encoding>
const std::uint8_t* RecordMessage<Encoding>::fieldData(std::uint16_t id, std::uint8_t& type,
                                                       std::uint32_t& sizeBytes) const {
  const FIELDS::packed_rec field = fieldMap().packed(id);
  const std::uint64_t position = find(field);
  if (position == 0) {
    return nullptr;
  }
  const detail::ByteView view = detail::viewOf(bytes());
  const detail::RecordHead head = detail::headAt<typename Encoding::Layout>(view, position, fieldMap());
  type = Encoding::Rules::kFieldDataTypeOfRequestedId ? field.type : head.type;
  sizeBytes = static_cast<std::uint32_t>(head.valueBytes);
  return view.at(std::min(head.valuePosition(), view.size()));
}

template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::append(std::uint16_t id, T value) {
  using Layout = typename Encoding::Layout;
  using Rules = typename Encoding::Rules;
  constexpr std::uint8_t kType = detail::kTypeCode<T>;
  const FIELDS::packed_rec field = fieldMap().packed(id);
  const std::uint64_t lengthBytes = Layout::valueBytes(value);
  if (!field.isKnown() || field.type != kType) {
    detail::reportField(Rules::kAddRefused, id, kType, static_cast<std::size_t>(lengthBytes));
    return false;
  }
  if constexpr (Layout::kMaxValueBytes < detail::kLongestValueBytes) {
    if (lengthBytes > Layout::kMaxValueBytes) {
      detail::report([lengthBytes] { return Rules::tooLong(lengthBytes); });
      // The erase of an update may have set the offset of the field to a record in the following bytes.
      positions().erase(field);
      return false;
    }
  }
  MsgData& data = bytes();
  // After the whole header, also in a message that was given less than that.
  const std::uint64_t position = std::max(data.size(), detail::kHeaderBytes<Layout>);
  const std::uint64_t end = position + Layout::headBytes(kType) + lengthBytes;
  if (end > detail::kMaxMessageBytes) {
    detail::reportField(Rules::kMessageFull, id, kType, static_cast<std::size_t>(lengthBytes));
    return false;
  }
  positions().fitDictionary();
  if constexpr (detail::kIsView<T>) {
    if (end > data.capacity()) {
      value.data = reinterpret_cast<decltype(value.data)>(
          detail::growUnder(data, end, reinterpret_cast<const std::uint8_t*>(value.data)));
    }
  } else {
    data.reserve(end);
  }
  Layout::write(detail::ByteWriter(data.data() + position), id, lengthBytes, value);
  data.setSize(end);
  positions().place(field, position);
  return true;
}

/// Erases the record at `position`, of which `recordBytes` are there, and appends its new value.
template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::replace(std::uint16_t id, std::uint64_t position, std::uint64_t recordBytes, T value) {
  using Layout = typename Encoding::Layout;
  constexpr std::uint8_t kType = detail::kTypeCode<T>;
  const FIELDS::packed_rec field = fieldMap().packed(id);
  MsgData& data = bytes();
  // Whatever can fail for want of memory or room comes before the first change, and so does a copy of a view into the
  // bytes that are about to move.
  std::string copy;
  if constexpr (detail::kIsView<T>) {
    if (data.owns(value.data)) {
      copy.assign(reinterpret_cast<const char*>(value.data), value.length);
      value.data = reinterpret_cast<decltype(value.data)>(copy.data());
    }
  }
  const std::uint64_t lengthBytes = Layout::valueBytes(value);
  if (field.type == kType && lengthBytes <= Layout::kMaxValueBytes) {
    const std::uint64_t end = data.size() - recordBytes + Layout::headBytes(kType) + lengthBytes;
    if (end > detail::kMaxMessageBytes) {
      detail::reportField(Encoding::Rules::kMessageFull, id, kType, static_cast<std::size_t>(lengthBytes));
      return false;
    }
    data.reserve(end);
  }
  positions().fitDictionary();
  cutOut(field, position, recordBytes);
  return append(id, value);
}

template <class Encoding>
bool RecordMessage<Encoding>::eraseImpl(std::uint16_t id) {
  const FIELDS::packed_rec field = fieldMap().packed(id);
  const std::uint64_t position = find(field);
  if (emptyImpl() || position == 0) {
    return false;
  }
  positions().fitDictionary();
  const detail::ByteView view = detail::viewOf(bytes());
  cutOut(field, position,
         detail::presentBytes(view, detail::headAt<typename Encoding::Layout>(view, position, fieldMap())));
  return true;
}

/// Removes the `recordBytes` of the record of a field and indexes the following records.
template <class Encoding>
void RecordMessage<Encoding>::cutOut(FIELDS::packed_rec field, std::uint64_t position, std::uint64_t recordBytes) {
  MsgData& data = bytes();
  std::uint64_t kept = position;
  detail::keep(data, position + recordBytes, data.size(), kept);
  data.setSize(kept);
  positions().erase(field);
  index(position);
}

// Several fields ------------------------------------------------------------------------------------------------------

template <class Encoding>
template <class Ids>
bool RecordMessage<Encoding>::eraseMany(const Ids& ids) {
  if (ids.empty()) {
    return !(Encoding::Rules::kEmptyMessageBeforeEmptyList && emptyImpl());
  }
  if (emptyImpl()) {
    return false;
  }
  boost::container::small_vector<detail::RecordCut, 32> found;
  for (const std::uint16_t id : ids) {
    const FIELDS::packed_rec field = fieldMap().packed(id);
    if (const std::uint64_t position = find(field)) {
      found.push_back({position, field});
    }
  }
  if (found.empty()) {
    return false;
  }
  positions().fitDictionary();
  index(detail::removeRecords<typename Encoding::Layout>(found.data(), found.data() + found.size(), bytes(),
                                                         positions(), fieldMap()));
  return found.size() == ids.size();
}

template <class Encoding>
bool RecordMessage<Encoding>::eraseArrayImpl(const std::vector<std::uint16_t>& ids) {
  return eraseMany(ids);
}

template <class Encoding>
bool RecordMessage<Encoding>::eraseSetImpl(const std::set<std::uint16_t>& ids) {
  return eraseMany(ids);
}

template <class Encoding>
void RecordMessage<Encoding>::takeFields(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                                         std::vector<std::uint16_t>* notCopied) {
  using Layout = typename Encoding::Layout;
  using Rules = typename Encoding::Rules;
  detail::RecordReplacement<Encoding, Layout, Rules> fields(*this, ids.size());
  detail::copyFields(source, fieldMap(), ids, notCopied,
                     [&fields](std::uint16_t id, auto value) { return fields.put(id, value); });
}

/// Whether each of the fields can be read in another message and stored here.
/// @param[out] areIndependent  whether this still holds after fields are erased and the others are stored. A change may
///                             overwrite the header of a record that overlaps, or move its bytes.
template <class Encoding>
bool RecordMessage<Encoding>::canTakeAll(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                                         const std::vector<std::uint16_t>& erased, bool& areIndependent) const {
  using Layout = typename Encoding::Layout;
  using Rules = typename Encoding::Rules;
  // Whatever the header is then, the record is updated.
  constexpr bool kNeverRefuses = Rules::kUpdateTest == detail::UpdateTest::Length;
  const detail::ByteView view = detail::viewOf(bytes());
  boost::container::small_vector<detail::ChangedRecord, 32> changed;
  if constexpr (!kNeverRefuses) {
    for (const std::uint16_t id : erased) {
      const FIELDS::packed_rec field = fieldMap().packed(id);
      if (const std::uint64_t position = find(field)) {
        const detail::RecordHead head = detail::headAt<Layout>(view, position, fieldMap());
        changed.push_back({position, position + head.bytes(), field, true});
      }
    }
  }
  for (const std::uint16_t id : ids) {
    const FIELDS::packed_rec field = fieldMap().packed(id);
    const bool canBeTaken = detail::withValueType(field.type, [&](auto value) {
      if (!source.get(id, value) || detail::storedBytes(value) > Layout::kMaxValueBytes) {
        return false;
      }
      const std::uint64_t position = positions().get(field);
      if (position == 0 || position >= view.size()) {
        return position == 0;
      }
      if constexpr (!kNeverRefuses) {
        const detail::RecordHead head = detail::headAt<Layout>(view, position, fieldMap());
        if (head.type != field.type) {
          return false;
        }
        const bool isErased = head.valueBytes != Layout::bytesInPlace(value) || !view.fits(position, head.bytes());
        changed.push_back({position, position + head.bytes(), field, isErased});
      }
      return true;
    });
    if (!canBeTaken) {
      return false;
    }
  }
  areIndependent = kNeverRefuses ||
                   detail::areIndependent<Layout>(changed.data(), changed.data() + changed.size(), view, fieldMap());
  return true;
}

// The typed operations, once for each type ----------------------------------------------------------------------------

/// Reads the field `id` from the record at `position`.
template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::readAt(std::uint64_t position, std::uint16_t id, T& out) const {
  using Layout = typename Encoding::Layout;
  using Rules = typename Encoding::Rules;
  const detail::ByteView view = detail::viewOf(bytes());
  const detail::RecordHead head = detail::headAt<Layout>(view, position, fieldMap());
  if (detail::readValue<Layout>(view, head, out)) {
    return true;
  }
  if constexpr (Rules::kGetRefused != nullptr) {
    detail::reportField(Rules::kGetRefused, Rules::kGetReportsStoredId ? Layout::id(view, position) : id, head.type,
                        static_cast<std::size_t>(head.valueBytes));
  }
  return false;
}

/// Updates the field `id`, whose record is at `position`.
template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::updateAt(std::uint64_t position, std::uint16_t id, T value) {
  using Layout = typename Encoding::Layout;
  using Rules = typename Encoding::Rules;
  const detail::ByteView view = detail::viewOf(bytes());
  const detail::RecordHead head = detail::headAt<Layout>(view, position, fieldMap());
  const std::uint64_t lengthBytes = Layout::bytesInPlace(value);
  const detail::UpdateStep step = detail::updateStep<Rules>(head, detail::kTypeCode<T>, lengthBytes);
  if constexpr (Rules::kUpdateTest != detail::UpdateTest::Length) {
    if (step == detail::UpdateStep::Refuse) {
      detail::reportField(Rules::kUpdateRefused, id, head.type, static_cast<std::size_t>(lengthBytes));
      return false;
    }
  }
  // A record that runs past the end of the message has no room for the value.
  if (step == detail::UpdateStep::Overwrite && view.fits(position, head.bytes())) {
    Layout::overwrite(detail::ByteWriter(bytes().data() + head.valuePosition()), value);
    return true;
  }
  return replace(id, position, detail::presentBytes(view, head), value);
}

/// update() of a typed field.
template <class Encoding>
template <class T>
bool RecordMessage<Encoding>::updateOwnAny(std::uint16_t id, T value) {
  using Layout = typename Encoding::Layout;
  constexpr std::uint8_t kType = detail::kTypeCode<T>;
  const FIELDS::packed_rec field = fieldMap().packed(id);
  const std::uint64_t lengthBytes = Layout::valueBytes(value);
  if (field.type != kType) {
    return detail::refuseUpdate(detail::kUpdateOfOtherType, id, kType, lengthBytes);
  }
  if (lengthBytes > Layout::kMaxValueBytes) {
    return detail::refuseUpdate(detail::kUpdateIsTooLong, id, kType, lengthBytes);
  }
  const std::uint64_t position = find(field);
  if (position == 0) {
    return append(id, value);
  }
  const detail::ByteView view = detail::viewOf(bytes());
  const detail::RecordHead head = detail::headAt<Layout>(view, position, fieldMap());
  if (Layout::id(view, position) != id || head.type != kType || !detail::isLengthOf<Layout, T>(head.valueBytes)) {
    return detail::refuseUpdate(detail::kUpdateOfOtherRecord, id, head.type, lengthBytes);
  }
  return updateAt(position, id, value);
}

#define MD_SLOT(T, name, code)                                                \
  template <class Encoding>                                                   \
  bool RecordMessage<Encoding>::updateOwn(std::uint16_t id, T value) {        \
    return updateOwnPlain(id, value) || updateOwnAny(id, value);              \
  }                                                                           \
  template <class Encoding>                                                   \
  bool RecordMessage<Encoding>::readChecked(std::uint16_t id, T& out) const { \
    const std::uint64_t position = find(fieldMap().packed(id));               \
    return position != 0 && readAt(position, id, out);                        \
  }                                                                           \
  template <class Encoding>                                                   \
  bool RecordMessage<Encoding>::addChecked(std::uint16_t id, T value) {       \
    return !existsImpl(id) && append(id, value);                              \
  }                                                                           \
  template <class Encoding>                                                   \
  bool RecordMessage<Encoding>::updateChecked(std::uint16_t id, T value) {    \
    const std::uint64_t position = find(fieldMap().packed(id));               \
    return position != 0 ? updateAt(position, id, value) : append(id, value); \
  }                                                                           \
  template <class Encoding>                                                   \
  bool RecordMessage<Encoding>::getImpl(std::uint16_t id, T& out) const {     \
    return get(id, out);                                                      \
  }                                                                           \
  template <class Encoding>                                                   \
  bool RecordMessage<Encoding>::addImpl(std::uint16_t id, T value) {          \
    return add(id, value);                                                    \
  }                                                                           \
  template <class Encoding>                                                   \
  bool RecordMessage<Encoding>::updateImpl(std::uint16_t id, T value) {       \
    return update(id, value);                                                 \
  }
MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT

}  // namespace MD

#endif
