/// @file
/// Messages that say what has changed between two states of a message, removals included. One `Delta` belongs to one
/// thread at a time.
#ifndef MD_DELTA_H
#define MD_DELTA_H

#include <cstdint>

#include <vector>

#include "md/md_api.h"
#include "md/md_field.h"
#include "md/md_message.h"

namespace MD {

/// Makes deltas and applies them. A delta is an ordinary message, of any encoding: it holds the fields that are new or
/// have another value, and a `BUFFER` field that lists the ids of removed fields, two bytes each, low byte first (the
/// field is absent when there is none).
///
///     Delta delta(Field<MD_Message::Buffer>(REMOVED_FIELDS), {SYMBOL.id()});
///     delta.diff(before, after, message);   // the publisher, which sends message.data()
///     delta.apply(message, state);          // the receiver: if `state` was as `before`, it is as `after`
///
/// After diff() of `before` and `after` and apply() to a message that has the same fields as `before`, that message has
/// the same fields as `after`, in the sense of sameFields(); their order may differ. The objects keep the memory of
/// their lists.
class MD_API Delta {
 public:
  /// @param removedIds  the field that lists removed fields; the messages compared must not hold it
  /// @param keys        fields that every delta holds if the message has them, changed or not: by these a receiver
  /// finds
  ///                    the message to which the delta belongs
  explicit Delta(Field<MD_Message::Buffer> removedIds, std::vector<std::uint16_t> keys = {});

  /// Replaces the contents of `delta` by what turns `before` into `after`. Running out of memory throws std::bad_alloc
  /// and may leave `delta` empty.
  /// @return false, and `delta` is empty, when a delta of its encoding cannot say that; the whole message is then to be
  ///         sent instead. That is so when a changed field of `after` cannot be read, when `delta` cannot hold a value
  ///         or the list of removed fields, when a message holds the field for that list, and when `delta` is one of
  ///         the other two.
  [[nodiscard]] bool diff(const MD_Message& before, const MD_Message& after, MD_Message& delta);

  /// Changes `state` by a delta. Fields that are to be removed may be absent.
  /// @return false, and `state` is unchanged, when `delta` is not a delta (a field cannot be read, the list is not one,
  ///         or it lists a field of the delta), when `state` cannot hold a value, and when both are the same message
  [[nodiscard]] bool apply(const MD_Message& delta, MD_Message& state);

 private:
  bool readRemoved(const MD_Message& delta);

  Field<MD_Message::Buffer> m_removedIds;
  std::vector<std::uint16_t> m_keys;
  // Kept for their memory.
  std::vector<std::uint16_t> m_changed;
  std::vector<std::uint16_t> m_removed;
  std::vector<std::uint8_t> m_bytes;
};

}  // namespace MD

#endif
