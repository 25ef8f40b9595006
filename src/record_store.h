// What the encodings share: finding, reading, appending, replacing, erasing and indexing records in a message's bytes.
//
// An encoding supplies rules, a structure derived from its layout (see md/detail/plain_records.h) with these static
// members more:
//
//   kHeader                        the bytes of an empty message, as an array
//   kAddRefused, kUpdateRefused    diagnostics (the second only where updateStep() refuses)
//   kEmptyMessageBeforeEmptyList   which of the two an erase of several fields tests first
//   kMoveLeavesEmptyMessage        whether moveToNew() leaves an empty message or the borrowed objects as they came
//   id(view, position)             a record's field id
//   head(view, position, type)     a record's head, given the dictionary's type for its id
//   step(bytes, position, type,    the end of a record whose head lies inside the message, for walking; false when the
//        next)                     type on the wire is not the dictionary's
//   kMaxHeadBytes                  how much step() may read
//   decode(view, head, out)        the layout's, for views too
//   refuseLength(lengthBytes)      what is said of a value that cannot be stored
//   refuseGet(id, head)            what is said of a failed read
//   updateStep(head, type, length) what an update of a present field does
#ifndef MD_SRC_RECORD_STORE_H
#define MD_SRC_RECORD_STORE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <algorithm>
#include <iterator>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "byte_view.h"
#include "md/detail/plain_records.h"
#include "md/md_datatypes.h"
#include "md/md_fieldmap.h"
#include "md/md_msgdata.h"
#include "md/md_optimizer.h"
#include "md/md_value_types.h"
#include "message_printer.h"
#include "report.h"

namespace MD::detail {

enum class UpdateStep { Overwrite, EraseAndAppend, Refuse };

/// For a step that follows a test of what a record holds. The next record's place depends on it: by a jump, which the
/// processor predicts, it runs ahead into the next record; computed, it waits. Keeps the compiler from computing.
inline std::uint64_t byJump(std::uint64_t next) noexcept {
#if defined(__GNUC__)
  __asm__("" : "+r"(next));
#endif
  return next;
}

/// A set of types of fields, whose codes are all below 64, is a word with these bits.
constexpr std::uint64_t typeBit(std::uint8_t type) noexcept { return std::uint64_t{1} << (type & 63); }
inline constexpr std::uint64_t kEightByteTypes = typeBit(DATATYPES::DOUBLE) | typeBit(DATATYPES::INT64) |
                                                 typeBit(DATATYPES::DATETIME) | typeBit(DATATYPES::EPOCH_NSEC);

// What a plain case leaves stands in a function of its own that is kept out of the way.
#define MD_RARE [[gnu::noinline, gnu::cold]]

/// The records of one message. A single pointer, and the rare cases take it by value: so a plain case keeps everything
/// in registers.
template <class Rules>
class RecordStore {
 public:
  static constexpr std::uint64_t kHeaderBytes = Rules::kHeaderBytes;
  static_assert(kHeaderBytes == std::size(Rules::kHeader));

  explicit RecordStore(const MD_Message& message) noexcept : m_message(&message) {}

  /// Whether there is nothing behind the header.
  bool isEmpty() const noexcept { return data().size() <= kHeaderBytes; }

  /// Makes an empty message of whatever the borrowed objects hold.
  void startEmpty() const {
    data().reserve(kHeaderBytes);
    writeHeader(0);
    clear();
  }

  /// Removes the records; the header stays as it is.
  void clear() const {
    MsgData& bytes = data();
    if (bytes.capacity() == 0) {
      bytes.reserve(kHeaderBytes);
      writeHeader(0);
    }
    bytes.setSize(kHeaderBytes);
    positions().clear();
  }

  /// Writes the header, from its byte `first` on, into the buffer's memory, whatever of that is in use.
  void writeHeader(std::uint64_t first) const noexcept {
    MsgData& bytes = data();
    if (first < kHeaderBytes && bytes.capacity() != 0) {
      std::memcpy(bytes.data() + first, std::data(Rules::kHeader) + first,
                  static_cast<std::size_t>(kHeaderBytes - first));
    }
  }

  /// Takes over a copy of `source`, which may be the buffer's own, and makes every field absent.
  void assign(const std::uint8_t* source, std::uint64_t sizeBytes) const {
    MsgData& bytes = data();
    const std::uint64_t needed = std::max(sizeBytes, kHeaderBytes);
    if (needed > bytes.capacity()) {
      source = growUnder(bytes, needed, source);
    }
    positions().fitDictionary();
    if (sizeBytes != 0) {
      std::memmove(bytes.data(), source, static_cast<std::size_t>(sizeBytes));
    }
    // A header that is cut short is completed behind the end, where an add or a clear brings it into use.
    writeHeader(sizeBytes);
    bytes.setSize(sizeBytes);
    positions().clear();
  }

  /// Replaces the contents by received bytes.
  void parse(const std::uint8_t* source, std::uint64_t sizeBytes) const {
    assign(source, sizeBytes);
    index(kHeaderBytes);
  }

  bool exists(std::uint16_t id) const noexcept { return positions().get(id) != 0; }

  const std::uint8_t* locate(std::uint16_t id, std::uint8_t& type, std::uint32_t& sizeBytes) const {
    const FIELDS::packed_rec field = map().packed(id);
    const std::uint64_t position = find(field);
    if (position == 0) {
      return nullptr;
    }
    const RecordHead head = Rules::head(view(), position, field.type);
    type = head.type;
    sizeBytes = static_cast<std::uint32_t>(head.valueBytes);
    return view().at(std::min(head.valuePosition(), data().size()));
  }

  template <class T>
  bool read(std::uint16_t id, T& out) const {
    const FIELDS::packed_rec field = map().packed(id);
    return Plain::read(data(), positions(), field, out) || readChecked(*this, id, field, out);
  }

  template <class T>
  bool add(std::uint16_t id, T value) const {
    const FIELDS::packed_rec field = map().packed(id);
    return Plain::add(data(), positions(), field, id, value) || addChecked(*this, id, field, value);
  }

  template <class T>
  bool update(std::uint16_t id, T value) const {
    const FIELDS::packed_rec field = map().packed(id);
    return Plain::update(data(), positions(), field, value) || updateChecked(*this, id, field, value);
  }

  bool erase(std::uint16_t id) const {
    const FIELDS::packed_rec field = map().packed(id);
    const std::uint64_t position = find(field);
    if (isEmpty() || position == 0) {
      return false;
    }
    positions().fitDictionary();
    erase(field, Rules::head(view(), position, field.type));
    return true;
  }

  template <class Ids>
  bool eraseMany(const Ids& ids) const {
    if (ids.empty()) {
      return !(Rules::kEmptyMessageBeforeEmptyList && isEmpty());
    }
    if (isEmpty()) {
      return false;
    }
    struct Found {
      std::uint64_t position;
      FIELDS::packed_rec field;
    };
    boost::container::small_vector<Found, 32> found;
    for (const std::uint16_t id : ids) {
      const FIELDS::packed_rec field = map().packed(id);
      if (const std::uint64_t position = find(field)) {
        found.push_back({position, field});
      }
    }
    if (found.empty()) {
      return false;
    }
    positions().fitDictionary();
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.position < b.position; });

    // What lies between the erased records moves down, each byte once. An id that is listed twice leaves nothing to do
    // the second time.
    std::uint64_t kept = found.front().position;
    std::uint64_t done = kept;
    for (const Found& record : found) {
      keep(done, std::max(record.position, done), kept);
      const RecordHead head = Rules::head(view(), record.position, record.field.type);
      done = std::max(done, record.position + std::min(head.bytes(), view().left(record.position)));
      positions().erase(record.field);
    }
    keep(done, data().size(), kept);
    data().setSize(kept);
    index(found.front().position);
    return found.size() == ids.size();
  }

  /// Makes the field table like that of a message with the same bytes, when every field here is absent.
  void copyPositions(const RecordStore& other) const {
    forEachRecord([&](std::uint16_t id) {
      const FIELDS::packed_rec field = map().packed(id);
      if (const std::uint64_t position = other.positions().get(field)) {
        positions().place(field, position);
      }
    });
    // A record that another one covers, or that an earlier dictionary knew, was not met.
    if (positions().get_field_count() != other.positions().get_field_count()) {
      positions() = other.positions();
    }
  }

  /// Appends the ids of all records in wire order.
  void ids(std::vector<std::uint16_t>& out) const {
    forEachRecord([&](std::uint16_t id) { out.push_back(id); });
  }

 private:
  template <class>
  friend class RecordReplacement;

  using Plain = PlainRecords<Rules>;

  MsgData& data() const noexcept { return m_message->bytes(); }
  Optimizer& positions() const noexcept { return m_message->positions(); }
  const MD_FieldMap& map() const noexcept { return m_message->fieldMap(); }
  ByteView view() const noexcept { return {data().data(), data().size()}; }

  /// Calls `use` with the ids of all records in wire order.
  template <class Use>
  void forEachRecord(Use use) const {
    const ByteView bytes = view();
    std::uint64_t position = kHeaderBytes;
    while (bytes.left(position) >= sizeof(std::uint16_t)) {
      const std::uint16_t id = Rules::id(bytes, position);
      use(id);
      position += Rules::head(bytes, position, map().packed(id).type).bytes();
    }
  }

  /// A present field's position, 0 for an absent one.
  std::uint64_t find(FIELDS::packed_rec field) const noexcept {
    const std::uint64_t position = positions().get(field);
    // Positions can outlive their bytes: records overlap after an add behind a truncated one, and a dictionary may
    // change under a message.
    return position < data().size() ? position : 0;
  }

  /// Moves the bytes [first, last) down to `kept` and steps that behind them.
  void keep(std::uint64_t first, std::uint64_t last, std::uint64_t& kept) const noexcept {
    if (kept != first && first < last) {
      std::uint8_t* const bytes = data().data();
      std::memmove(bytes + kept, bytes + first, static_cast<std::size_t>(last - first));
    }
    kept += last - first;
  }

  template <class T>
  MD_RARE static bool readChecked(RecordStore store, std::uint16_t id, FIELDS::packed_rec field, T& out) {
    const std::uint64_t position = store.find(field);
    if (position == 0) {
      return false;
    }
    const ByteView bytes = store.view();
    const RecordHead head = Rules::head(bytes, position, field.type);
    if (head.type == kTypeCode<T> && bytes.fits(position, head.bytes()) && Rules::decode(bytes, head, out)) {
      return true;
    }
    Rules::refuseGet(id, head);
    return false;
  }

  template <class T>
  MD_RARE static bool addChecked(RecordStore store, std::uint16_t id, FIELDS::packed_rec field, T value) {
    return store.positions().get(field) == 0 && store.append(id, field, value);
  }

  template <class T>
  MD_RARE static bool updateChecked(RecordStore store, std::uint16_t id, FIELDS::packed_rec field, T value) {
    const std::uint64_t position = store.find(field);
    if (position == 0) {
      return store.append(id, field, value);
    }
    const RecordHead head = Rules::head(store.view(), position, field.type);
    const std::uint64_t lengthBytes = Rules::bytesInPlace(value);
    switch (Rules::updateStep(head, kTypeCode<T>, lengthBytes)) {
      case UpdateStep::Refuse:
        reportField(Rules::kUpdateRefused, id, head.type, static_cast<std::size_t>(lengthBytes));
        return false;
      case UpdateStep::Overwrite:
        // A record that runs past the end of the message has no room for the value.
        if (store.view().fits(position, head.bytes())) {
          Rules::overwrite(ByteWriter(store.data().data() + head.valuePosition()), value);
          return true;
        }
        break;
      case UpdateStep::EraseAndAppend:
        break;
    }
    return store.eraseAndAppend(id, field, head, value);
  }

  template <class T>
  bool append(std::uint16_t id, FIELDS::packed_rec field, T value) const {
    const std::uint64_t lengthBytes = Rules::valueBytes(value);
    if (!field.isKnown() || field.type != kTypeCode<T>) {
      reportField(Rules::kAddRefused, id, kTypeCode<T>, static_cast<std::size_t>(lengthBytes));
      return false;
    }
    MsgData& bytes = data();
    // Behind the whole header, also in a message that was given less than that.
    const std::uint64_t position = std::max(bytes.size(), kHeaderBytes);
    positions().set(field, position);
    if (!Rules::holds(lengthBytes)) {
      Rules::refuseLength(lengthBytes);
      positions().erase(field);
      return false;
    }
    const std::uint64_t end = position + Rules::template headBytes<T>() + lengthBytes;
    if (end > bytes.capacity()) {
      growForAppend(end, field, value);
    }
    Rules::write(ByteWriter(bytes.data() + position), id, lengthBytes, value);
    bytes.setSize(end);
    return true;
  }

  /// Grows the buffer. @return where `source`, which may lie in it, is now
  MD_RARE static const std::uint8_t* growUnder(MsgData& bytes, std::uint64_t neededBytes, const std::uint8_t* source) {
    const bool isOwn = bytes.owns(source);
    const std::ptrdiff_t offset = isOwn ? source - bytes.data() : 0;
    bytes.reserve(neededBytes);
    return isOwn ? bytes.data() + offset : source;
  }

  /// Grows the buffer for a field that is being added; a view into it moves along.
  template <class T>
  void growForAppend(std::uint64_t end, FIELDS::packed_rec field, [[maybe_unused]] T& value) const {
    try {
      if constexpr (kIsView<T>) {
        value.data = reinterpret_cast<decltype(value.data)>(
            growUnder(data(), end, reinterpret_cast<const std::uint8_t*>(value.data)));
      } else {
        data().reserve(end);
      }
    } catch (const std::bad_alloc&) {
      positions().erase(field);
      throw;
    }
  }

  template <class T>
  bool eraseAndAppend(std::uint16_t id, FIELDS::packed_rec field, const RecordHead& head, T value) const {
    MsgData& bytes = data();
    // Whatever can fail for want of memory comes before the first change, and so does a copy of a view into the bytes
    // that are about to move.
    std::string copy;
    if constexpr (kIsView<T>) {
      if (bytes.owns(value.data)) {
        copy.assign(reinterpret_cast<const char*>(value.data), value.length);
        value.data = reinterpret_cast<decltype(value.data)>(copy.data());
      }
    }
    const std::uint64_t lengthBytes = Rules::valueBytes(value);
    if (field.type == kTypeCode<T> && Rules::holds(lengthBytes)) {
      bytes.reserve(bytes.size() - std::min(head.bytes(), view().left(head.position)) + Rules::template headBytes<T>() +
                    lengthBytes);
    }
    positions().fitDictionary();
    erase(field, head);
    return append(id, field, value);
  }

  void erase(FIELDS::packed_rec field, const RecordHead& head) const {
    std::uint64_t kept = head.position;
    keep(head.position + std::min(head.bytes(), view().left(head.position)), data().size(), kept);
    data().setSize(kept);
    positions().erase(field);
    index(head.position);
  }

  /// Registers the records from `position` to the end. Those that the dictionary does not know, or knows with another
  /// type than the wire says, are reported and stripped; the rest closes up, each byte moved once.
  void index(std::uint64_t position) const {
    const std::uint64_t end = data().size();
    if (position >= end) {
      return;
    }
    {
      const MD_FieldMap& dictionary = map();
      const WholeBytes bytes(data().data());
      Optimizer::Filling table(positions());
      // Where the next record starts is known sooner from this one's start than from its length.
      while (end - position >= Rules::kMaxHeadBytes) {
        const FIELDS::packed_rec field = dictionary.packed(Rules::id(bytes, position));
        std::uint64_t next = 0;
        if (!field.isKnown() || !Rules::step(bytes, position, field.type, next) || next > end) {
          break;
        }
        table.place(field, position);
        position = next;
      }
    }
    if (position != end) {
      indexChecked(*this, position);
    }
  }

  MD_RARE static void indexChecked(RecordStore store, std::uint64_t position) {
    const ByteView bytes = store.view();
    const std::uint64_t end = bytes.size();
    std::uint64_t kept = position;
    while (position < end) {
      if (end - position < sizeof(std::uint16_t)) {
        reportBadField(*bytes.at(position), {position, 0, 0, 0});
        break;
      }
      const std::uint16_t id = Rules::id(bytes, position);
      const FIELDS::packed_rec field = store.map().packed(id);
      const RecordHead head = Rules::head(bytes, position, field.type);
      const std::uint64_t next = position + std::min(head.bytes(), end - position);
      if (field.isKnown() && head.type == field.type) {
        store.positions().place(field, kept);
        store.keep(position, next, kept);
      } else {
        reportBadField(id, head);
      }
      position = next;
    }
    if (kept != end) {
      store.data().setSize(kept);
      if (s_badFieldReports.isBelowLimit()) {
        reportRemainder(*store.m_message);
      }
    }
  }

  static void reportBadField(std::uint16_t id, const RecordHead& head) {
    if (s_badFieldReports.admit()) {
      reportField("Error: Bad Field on wire!  Skipping!", id, head.type, static_cast<std::size_t>(head.valueBytes));
    }
  }

  static inline BadFieldReports s_badFieldReports;

  const MD_Message* m_message;
};

#undef MD_RARE

}  // namespace MD::detail

#endif
