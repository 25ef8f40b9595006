// What the encodings share: finding, reading, appending, replacing, erasing and indexing records in a message's bytes.
//
// An encoding supplies a layout, a structure of static members:
//
//   kHeader                        the bytes of an empty message, as an array
//   kAddRefused, kUpdateRefused    diagnostics (the second only where updateStep() refuses)
//   kEmptyMessageBeforeEmptyList   which of the two an erase of several fields tests first
//   kMoveLeavesEmptyMessage        whether moveToNew() leaves an empty message or the borrowed objects as they came
//   id(view, position)             a record's field id
//   head(view, position, type)     a record's head, given the dictionary's type for its id
//   headBytes<T>()                 the length of the head that write() makes
//   valueBytes(value)              the length of a value as write() stores it
//   bytesInPlace(value)            the length a stored value must have to be overwritten
//   holds(lengthBytes)             whether a value of that length can be stored; if not, refuseLength() says so
//   write(out, id, length, value)  a whole record
//   overwrite(out, value)          a value in its place
//   decode(view, head, out)        a value that lies inside the message; false when it cannot be had
//   refuseGet(id, head)            the diagnostic of a failed read
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
#include "md/md_fieldmap.h"
#include "md/md_msgdata.h"
#include "md/md_optimizer.h"
#include "md/md_value_types.h"
#include "message_printer.h"
#include "report.h"

namespace MD::detail {

/// What a record's first bytes say.
struct RecordHead {
  std::uint64_t position;
  std::uint64_t valueBytes;  ///< as stored; the record may run past the end of the message
  std::uint32_t headBytes;
  std::uint8_t type;  ///< 0 when neither wire nor dictionary tell

  std::uint64_t valuePosition() const noexcept { return position + headBytes; }
  std::uint64_t bytes() const noexcept { return headBytes + valueBytes; }
};

enum class UpdateStep { Overwrite, EraseAndAppend, Refuse };

template <class T>
inline constexpr bool kIsView = std::is_same_v<T, StringView16> || std::is_same_v<T, BufferView16>;

/// The records of one message, for the time of one operation.
template <class Layout>
class RecordStore {
 public:
  static constexpr std::uint64_t kHeaderBytes = std::size(Layout::kHeader);

  /// @param message  what a dump of stripped fields prints
  RecordStore(const MD_Message& message, MsgData& bytes, Optimizer& positions, const MD_FieldMap& map) noexcept
      : m_message(message), m_bytes(bytes), m_positions(positions), m_map(map) {}

  /// Whether there is nothing behind the header.
  bool isEmpty() const noexcept { return m_bytes.size() <= kHeaderBytes; }

  /// Makes an empty message of whatever the borrowed objects hold.
  void startEmpty() {
    m_bytes.reserve(kHeaderBytes);
    writeHeader(0);
    clear();
  }

  /// Removes the records; the header stays as it is.
  void clear() {
    if (m_bytes.capacity() == 0) {
      m_bytes.reserve(kHeaderBytes);
      writeHeader(0);
    }
    m_bytes.setSize(kHeaderBytes);
    m_positions.clear();
  }

  /// Writes the header, from its byte `first` on, into the buffer's memory, whatever of that is in use.
  void writeHeader(std::uint64_t first) noexcept {
    if (first < kHeaderBytes && m_bytes.capacity() != 0) {
      std::memcpy(m_bytes.data() + first, std::data(Layout::kHeader) + first,
                  static_cast<std::size_t>(kHeaderBytes - first));
    }
  }

  /// Takes over a copy of `bytes`, which may be the buffer's own, and makes every field absent.
  void assign(const std::uint8_t* bytes, std::uint64_t sizeBytes) {
    const bool isOwn = m_bytes.owns(bytes);
    const std::ptrdiff_t offset = isOwn ? bytes - m_bytes.data() : 0;
    m_bytes.reserve(std::max(sizeBytes, kHeaderBytes));
    m_positions.fitDictionary();
    if (sizeBytes != 0) {
      std::memmove(m_bytes.data(), isOwn ? m_bytes.data() + offset : bytes, static_cast<std::size_t>(sizeBytes));
    }
    // A header that is cut short is completed behind the end, where an add or a clear brings it into use.
    writeHeader(sizeBytes);
    m_bytes.setSize(sizeBytes);
    m_positions.clear();
  }

  /// Replaces the contents by received bytes.
  void parse(const std::uint8_t* bytes, std::uint64_t sizeBytes) {
    assign(bytes, sizeBytes);
    index(kHeaderBytes);
  }

  bool exists(std::uint16_t id) const noexcept { return m_positions.get(id) != 0; }

  const std::uint8_t* locate(std::uint16_t id, std::uint8_t& type, std::uint32_t& sizeBytes) const {
    const FIELDS::packed_rec field = m_map.packed(id);
    const std::uint64_t position = find(field);
    if (position == 0) {
      return nullptr;
    }
    const RecordHead head = Layout::head(view(), position, field.type);
    type = head.type;
    sizeBytes = static_cast<std::uint32_t>(head.valueBytes);
    return view().at(std::min(head.valuePosition(), m_bytes.size()));
  }

  template <class T>
  bool read(std::uint16_t id, T& out) const {
    const FIELDS::packed_rec field = m_map.packed(id);
    const std::uint64_t position = find(field);
    if (position == 0) {
      return false;
    }
    const ByteView bytes = view();
    const RecordHead head = Layout::head(bytes, position, field.type);
    if (head.type == kTypeCode<T> && bytes.fits(position, head.bytes()) && Layout::decode(bytes, head, out)) {
      return true;
    }
    Layout::refuseGet(id, head);
    return false;
  }

  template <class T>
  bool add(std::uint16_t id, T value) {
    const FIELDS::packed_rec field = m_map.packed(id);
    return m_positions.get(field) == 0 && append(id, field, value);
  }

  template <class T>
  bool update(std::uint16_t id, T value) {
    const FIELDS::packed_rec field = m_map.packed(id);
    const std::uint64_t position = find(field);
    if (position == 0) {
      return append(id, field, value);
    }
    const RecordHead head = Layout::head(view(), position, field.type);
    const std::uint64_t lengthBytes = Layout::bytesInPlace(value);
    switch (Layout::updateStep(head, kTypeCode<T>, lengthBytes)) {
      case UpdateStep::Refuse:
        reportField(Layout::kUpdateRefused, id, head.type, static_cast<std::size_t>(lengthBytes));
        return false;
      case UpdateStep::Overwrite:
        // A record that runs past the end of the message has no room for the value.
        if (view().fits(position, head.bytes())) {
          Layout::overwrite(ByteWriter(m_bytes.data() + head.valuePosition()), value);
          return true;
        }
        break;
      case UpdateStep::EraseAndAppend:
        break;
    }
    return eraseAndAppend(id, field, head, value);
  }

  bool erase(std::uint16_t id) {
    const FIELDS::packed_rec field = m_map.packed(id);
    const std::uint64_t position = find(field);
    if (isEmpty() || position == 0) {
      return false;
    }
    m_positions.fitDictionary();
    erase(field, Layout::head(view(), position, field.type));
    return true;
  }

  template <class Ids>
  bool eraseMany(const Ids& ids) {
    if (ids.empty()) {
      return !(Layout::kEmptyMessageBeforeEmptyList && isEmpty());
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
      const FIELDS::packed_rec field = m_map.packed(id);
      if (const std::uint64_t position = find(field)) {
        found.push_back({position, field});
      }
    }
    if (found.empty()) {
      return false;
    }
    m_positions.fitDictionary();
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.position < b.position; });

    // What lies between the erased records moves down, each byte once. An id that is listed twice leaves nothing to do
    // the second time.
    std::uint64_t kept = found.front().position;
    std::uint64_t done = kept;
    for (const Found& record : found) {
      const std::uint64_t start = std::max(record.position, done);
      keep(done, start, kept);
      const RecordHead head = Layout::head(view(), record.position, record.field.type);
      done = std::max(done, record.position + std::min(head.bytes(), view().left(record.position)));
      m_positions.erase(record.field);
    }
    keep(done, m_bytes.size(), kept);
    m_bytes.setSize(kept);
    index(found.front().position);
    return found.size() == ids.size();
  }

  /// Appends the ids of all records in wire order.
  void ids(std::vector<std::uint16_t>& out) const {
    const ByteView bytes = view();
    std::uint64_t position = kHeaderBytes;
    while (bytes.left(position) >= sizeof(std::uint16_t)) {
      const std::uint16_t id = Layout::id(bytes, position);
      out.push_back(id);
      position += Layout::head(bytes, position, m_map.packed(id).type).bytes();
    }
  }

 private:
  ByteView view() const noexcept { return {m_bytes.data(), m_bytes.size()}; }

  /// A present field's position, 0 for an absent one.
  std::uint64_t find(FIELDS::packed_rec field) const noexcept {
    const std::uint64_t position = m_positions.get(field);
    // Positions outlive their bytes only when the dictionary changes under a message.
    return position < m_bytes.size() ? position : 0;
  }

  /// Moves the bytes [first, last) down to `kept` and steps that behind them.
  void keep(std::uint64_t first, std::uint64_t last, std::uint64_t& kept) noexcept {
    if (kept != first && first < last) {
      std::memmove(m_bytes.data() + kept, m_bytes.data() + first, static_cast<std::size_t>(last - first));
    }
    kept += last - first;
  }

  template <class T>
  bool append(std::uint16_t id, FIELDS::packed_rec field, T value) {
    const std::uint64_t lengthBytes = Layout::valueBytes(value);
    if (!field.isKnown() || field.type != kTypeCode<T>) {
      reportField(Layout::kAddRefused, id, kTypeCode<T>, static_cast<std::size_t>(lengthBytes));
      return false;
    }
    // Behind the whole header, also in a message that was given less than that.
    const std::uint64_t position = std::max(m_bytes.size(), kHeaderBytes);
    m_positions.set(field, position);
    if (!Layout::holds(lengthBytes)) {
      Layout::refuseLength(lengthBytes);
      m_positions.erase(field);
      return false;
    }
    const std::uint64_t end = position + Layout::template headBytes<T>() + lengthBytes;
    if (end > m_bytes.capacity()) {
      growForAppend(end, field, value);
    }
    Layout::write(ByteWriter(m_bytes.data() + position), id, lengthBytes, value);
    m_bytes.setSize(end);
    return true;
  }

  /// Grows the buffer; a view into it moves along.
  template <class T>
  void growForAppend(std::uint64_t end, FIELDS::packed_rec field, [[maybe_unused]] T& value) {
    try {
      if constexpr (kIsView<T>) {
        if (m_bytes.owns(value.data)) {
          const auto offset = reinterpret_cast<const std::uint8_t*>(value.data) - m_bytes.data();
          m_bytes.reserve(end);
          value.data = reinterpret_cast<decltype(value.data)>(m_bytes.data() + offset);
          return;
        }
      }
      m_bytes.reserve(end);
    } catch (const std::bad_alloc&) {
      m_positions.erase(field);
      throw;
    }
  }

  template <class T>
  bool eraseAndAppend(std::uint16_t id, FIELDS::packed_rec field, const RecordHead& head, T value) {
    // Whatever can fail for want of memory comes before the first change, and so does a copy of a view into the bytes
    // that are about to move.
    std::string copy;
    if constexpr (kIsView<T>) {
      if (m_bytes.owns(value.data)) {
        copy.assign(reinterpret_cast<const char*>(value.data), value.length);
        value.data = reinterpret_cast<decltype(value.data)>(copy.data());
      }
    }
    const std::uint64_t lengthBytes = Layout::valueBytes(value);
    if (field.type == kTypeCode<T> && Layout::holds(lengthBytes)) {
      m_bytes.reserve(m_bytes.size() - std::min(head.bytes(), view().left(head.position)) +
                      Layout::template headBytes<T>() + lengthBytes);
    }
    m_positions.fitDictionary();
    erase(field, head);
    return append(id, field, value);
  }

  void erase(FIELDS::packed_rec field, const RecordHead& head) {
    std::uint64_t kept = head.position;
    keep(head.position + std::min(head.bytes(), view().left(head.position)), m_bytes.size(), kept);
    m_bytes.setSize(kept);
    m_positions.erase(field);
    index(head.position);
  }

  /// Registers the records from `position` to the end. Those that the dictionary does not know, or knows with another
  /// type than the wire says, are reported and stripped; the rest closes up, each byte moved once.
  void index(std::uint64_t position) {
    const std::uint64_t end = m_bytes.size();
    if (position >= end) {
      return;
    }
    const ByteView bytes = view();
    std::uint64_t kept = position;
    while (position < end) {
      if (end - position < sizeof(std::uint16_t)) {
        reportBadField(*bytes.at(position), {position, 0, 0, 0});
        break;
      }
      const std::uint16_t id = Layout::id(bytes, position);
      const FIELDS::packed_rec field = m_map.packed(id);
      const RecordHead head = Layout::head(bytes, position, field.type);
      const std::uint64_t next = position + std::min(head.bytes(), end - position);
      if (field.isKnown() && head.type == field.type) {
        m_positions.set(field, kept);
        keep(position, next, kept);
      } else {
        reportBadField(id, head);
      }
      position = next;
    }
    if (kept != end) {
      m_bytes.setSize(kept);
      if (s_badFieldReports.isBelowLimit()) {
        reportRemainder(m_message);
      }
    }
  }

  static void reportBadField(std::uint16_t id, const RecordHead& head) {
    if (s_badFieldReports.admit()) {
      reportField("Error: Bad Field on wire!  Skipping!", id, head.type, static_cast<std::size_t>(head.valueBytes));
    }
  }

  static inline BadFieldReports s_badFieldReports;

  const MD_Message& m_message;
  MsgData& m_bytes;
  Optimizer& m_positions;
  const MD_FieldMap& m_map;
};

}  // namespace MD::detail

#endif
