/// @file
/// Messages that contain the changes between two states of a message, including removals. A `Delta` belongs to one
/// thread at a time.
#ifndef MD_DELTA_H
#define MD_DELTA_H

#include <cstdint>

#include <vector>

#include "md/md_api.h"
#include "md/md_field.h"
#include "md/md_message.h"

namespace MD {

/// Creates deltas and applies them. A delta is an ordinary message of any encoding. It contains the fields that are new
/// or have another value, and a `BUFFER` field that lists the ids of removed fields, two bytes each, low byte first
/// (this field is absent if no field was removed).
///
///     Delta delta(Field<MD_Message::Buffer>(REMOVED_FIELDS), {SYMBOL.id()});
///     delta.diff(before, after, message);   // the publisher, which sends message.data()
///     delta.apply(message, state);          // the receiver: changes `state` from `before` to `after`
///
/// After diff() of `before` and `after` and apply() to a message with the same fields as `before`, that message has the
/// same fields as `after` according to sameFields(); their order may differ. This is not so for every message of
/// received bytes that repeat a field or end within a record: if a field is removed or resized, an earlier record of
/// another field may come back into use, and new fields follow the truncated record. The objects keep the memory of
/// their lists.
class MD_API Delta {
 public:
  /// @param removedIds  the field that lists removed fields; the messages compared must not hold it
  /// @param keys        fields that every delta holds if the message has them, changed or not; a receiver uses them to
  ///                    find the message to which the delta belongs
  explicit Delta(Field<MD_Message::Buffer> removedIds, std::vector<std::uint16_t> keys = {});

  /// Replaces the contents of `delta` by the changes from `before` to `after`. If memory runs out, std::bad_alloc is
  /// thrown and `delta` may be empty.
  /// @return false, with an empty `delta`, if a delta of its encoding cannot express the changes; send the whole
  ///         message instead. This is the case if a changed field of `after` cannot be read, if `delta` cannot hold a
  ///         value or the list of removed fields, if a message contains the field for that list, and if `delta` is one
  ///         of the other two messages.
  [[nodiscard]] bool diff(const MD_Message& before, const MD_Message& after, MD_Message& delta);

  /// Applies a delta to `state`. Fields to remove may be absent.
  /// @return false, with `state` unchanged, if `delta` is not a delta (a field cannot be read, the list is malformed,
  ///         or it lists a field of the delta), if `state` cannot hold a value, and if both are the same message. Also
  ///         if records of `state` overlap (after received bytes that ended within a record, and fields that were added
  ///         to them) and the change of a field would overwrite another one of the delta. For messages of other classes
  ///         than those of the library, a part of the fields may then be changed
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
