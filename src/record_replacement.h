// Replaces many fields of one message by values of other lengths in linear time, as copies between messages do.
#ifndef MD_SRC_RECORD_REPLACEMENT_H
#define MD_SRC_RECORD_REPLACEMENT_H

#include <cstddef>
#include <cstdint>

#include <algorithm>
#include <iterator>
#include <new>
#include <tuple>
#include <vector>

#include "md/detail/record_walk.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_fieldmap.h"
#include "md/md_msgdata.h"
#include "md/md_optimizer.h"
#include "md/md_record_message.h"
#include "record_rules.h"

namespace MD::detail {

/// Puts fields into one message, each with the result, the reports and the place that an add and, where that fails, an
/// update give it. An update that erases a record moves all bytes after it; here such records stay where they are
/// until the end, when the message closes up once. Until then nothing else may use the message.
///
/// This is so while the message's records follow each other whole, from the header to the end, and each field leads to
/// the last record of its id. Otherwise an erase changes what the bytes after it are read as, and each is done at
/// once.
///
/// Parsing leaves a record that another one of its id follows in the bytes. It comes into use by an erase of any record
/// before it, if its field is absent then.
template <class Encoding, class Layout, class Rules>
class RecordReplacement {
 public:
  /// @param mostFields  how many fields will be put
  RecordReplacement(RecordMessage<Encoding>& message, std::size_t mostFields)
      : m_message(message), m_mostFields(mostFields) {}
  ~RecordReplacement() { closeUp(); }
  RecordReplacement(const RecordReplacement&) = delete;
  RecordReplacement& operator=(const RecordReplacement&) = delete;

  /// A field that is put once more has the same value again.
  template <class T>
  bool put(std::uint16_t id, T value) {
    if (m_message.addPlain(id, value)) {
      keepWhole<T>(id);
      return true;
    }
    return m_message.updatePlain(id, value) || putChecked(id, value);
  }

 private:
  template <class T>
  bool putChecked(std::uint16_t id, T value) {
    const FIELDS::packed_rec field = map().packed(id);
    if (positions().get(field) == 0) {
      if (m_message.addChecked(id, value)) {
        keepWhole<T>(id);
        return true;
      }
      return m_message.updateChecked(id, value);
    }
    const std::uint64_t position = m_message.find(field);
    const RecordHead head = headAt<Layout>(view(), position, map());
    if (position == 0 ||
        updateStep<Rules>(head, kTypeCode<T>, Layout::bytesInPlace(value)) != UpdateStep::EraseAndAppend ||
        !isRegular()) {
      return m_message.updateChecked(id, value);
    }
    // What can fail for want of memory or room comes before the first change.
    if (const std::uint64_t valueBytes = Layout::valueBytes(value); valueBytes <= Layout::kMaxValueBytes) {
      const std::uint64_t end = view().size() + Layout::headBytes(kTypeCode<T>) + valueBytes;
      if (end > kMaxMessageBytes) {
        closeUp();
        m_state = State::Irregular;
        return m_message.updateChecked(id, value);
      }
      m_message.bytes().reserve(end);
    }
    eraseLater(field, head);
    const bool isAppended = m_message.append(id, value);
    if (isAppended) {
      keepWhole<T>(id);
    } else {
      addUnused(field, position);
    }
    if (m_erasedBytes > view().size() / 2) {
      closeUp();
      m_state = State::Unknown;
    }
    return isAppended;
  }

  const MD_FieldMap& map() const noexcept { return m_message.fieldMap(); }
  Optimizer& positions() noexcept { return m_message.positions(); }
  ByteView view() noexcept { return viewOf(m_message.bytes()); }

  /// A record of a field.
  struct Record {
    std::uint64_t position;
    FIELDS::packed_rec field;
  };
  struct Erased {
    std::uint64_t position;
    std::uint64_t lengthBytes;
  };
  enum class State { Unknown, Regular, Irregular };

  static bool isEarlier(const Erased& a, const Erased& b) noexcept { return a.position < b.position; }
  static bool isBefore(const Record& a, const Record& b) noexcept { return a.position < b.position; }
  static bool isOrdered(const Record& a, const Record& b) noexcept {
    return std::tie(a.field.slot, a.position) < std::tie(b.field.slot, b.position);
  }

  /// Whether erased records may stay for now.
  bool isRegular() {
    // Listing the records costs more than a few erases.
    constexpr unsigned kErasedAtOnce = 8;
    if (m_erasedAtOnce != kErasedAtOnce) {
      ++m_erasedAtOnce;
      return false;
    }
    if (m_state == State::Unknown) {
      try {
        m_state = listRecords() ? State::Regular : State::Irregular;
      } catch (const std::bad_alloc&) {
        m_state = State::Irregular;
      }
    }
    return m_state == State::Regular;
  }

  /// Lists the records that no field refers to, and reserves memory for all later entries.
  /// @return whether the message is as the class comment asks
  bool listRecords() {
    m_others.clear();
    std::size_t found = 0;
    RecordWalk<Layout> walk(view(), map());
    for (WalkedRecord record; walk.next(record);) {
      const std::uint64_t used = positions().get(record.field);
      if (record.kind != WalkedRecord::Kind::Field || record.isTruncated() ||
          (used != 0 && used < record.head.position)) {
        return false;
      }
      if (used == record.head.position) {
        ++found;
      } else {
        m_others.push_back({record.head.position, record.field});
      }
    }
    if (found != positions().get_field_count()) {
      return false;
    }
    m_erased.reserve(m_mostFields);
    std::sort(m_others.begin(), m_others.end(), &isOrdered);
    m_unused.clear();
    m_unused.reserve(2 * m_others.size());
    for (std::size_t i = 0; i != m_others.size(); ++i) {
      const bool isLast = i + 1 == m_others.size() || m_others[i + 1].field.slot != m_others[i].field.slot;
      if (isLast && positions().get(m_others[i].field) == 0) {
        m_unused.push_back(m_others[i]);
      }
    }
    std::make_heap(m_unused.begin(), m_unused.end(), &isBefore);
    return true;
  }

  void eraseLater(FIELDS::packed_rec field, const RecordHead& head) noexcept {
    m_erased.push_back({head.position, head.bytes()});
    m_erasedBytes += head.bytes();
    positions().erase(field);
    for (; !m_unused.empty() && m_unused.front().position > head.position; m_unused.pop_back()) {
      const Record& last = m_unused.front();
      if (positions().get(last.field) == 0) {
        positions().place(last.field, last.position);
      }
      std::pop_heap(m_unused.begin(), m_unused.end(), &isBefore);
    }
  }

  /// The field has become absent by the erase of its record at `position`.
  void addUnused(FIELDS::packed_rec field, std::uint64_t position) noexcept {
    const auto next = std::lower_bound(m_others.begin(), m_others.end(), Record{position, field}, &isOrdered);
    if (next != m_others.begin() && std::prev(next)->field.slot == field.slot) {
      m_unused.push_back(*std::prev(next));
      std::push_heap(m_unused.begin(), m_unused.end(), &isBefore);
    }
  }

  /// After an append: the next erase reads a string without a valid length field as further records.
  template <class T>
  void keepWhole(std::uint16_t id) noexcept {
    if constexpr (kIsView<T>) {
      if (m_state == State::Regular) {
        const RecordHead head = headAt<Layout>(view(), positions().get(id), map());
        if (head.bytes() != view().left(head.position)) {
          closeUp();
          m_state = State::Irregular;
        }
      }
    }
  }

  /// Moves the bytes between the erased records down, each byte once.
  void closeUp() noexcept {
    if (m_erased.empty()) {
      return;
    }
    std::sort(m_erased.begin(), m_erased.end(), &isEarlier);
    const std::uint64_t end = view().size();
    std::uint64_t kept = m_erased.front().position;
    for (auto erased = m_erased.begin(); erased != m_erased.end(); ++erased) {
      const std::uint64_t first = erased->position + erased->lengthBytes;
      const std::uint64_t last = std::next(erased) != m_erased.end() ? std::next(erased)->position : end;
      moveFields(first, last, first - kept);
      keep(m_message.bytes(), first, last, kept);
    }
    m_message.bytes().setSize(kept);
    m_erased.clear();
    m_erasedBytes = 0;
  }

  /// Lowers the offsets of the fields of the records from `position` to `last` by `byBytes`.
  void moveFields(std::uint64_t position, std::uint64_t last, std::uint64_t byBytes) noexcept {
    const ByteView bytes = view();
    while (position < last) {
      const FIELDS::packed_rec field = map().packed(Layout::id(bytes, position));
      if (positions().get(field) == position) {
        positions().place(field, position - byBytes);
      }
      position += Layout::head(bytes, position, field.type).bytes();
    }
  }

  RecordMessage<Encoding>& m_message;
  std::size_t m_mostFields;
  unsigned m_erasedAtOnce = 0;
  State m_state = State::Unknown;
  std::vector<Erased> m_erased;
  std::uint64_t m_erasedBytes = 0;
  std::vector<Record> m_others;  ///< that no field led to when they were listed, by field and then position
  std::vector<Record> m_unused;  ///< the last records of fields that are absent, or were: a heap, the last on top
};

}  // namespace MD::detail

#endif
