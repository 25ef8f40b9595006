/// @file
/// The cases of reading, adding and updating a field that are all a well-formed message ever meets, for inlining into
/// programs. For the library's own headers.
#ifndef MD_DETAIL_PLAIN_RECORDS_H
#define MD_DETAIL_PLAIN_RECORDS_H

#include <cstdint>

#include "md/detail/value_codec.h"
#include "md/md_api.h"
#include "md/md_fieldmap.h"
#include "md/md_msgdata.h"
#include "md/md_optimizer.h"

namespace MD::detail {

/// Each answers true when it has done the whole operation, false when it has done nothing: then the encoding's own
/// rules decide.
///
/// `Layout` is a structure of static members:
///
///     kHeaderBytes                    the length of the header
///     headBytes<T>()                  the length of the head of a record of a `T`
///     headOf<T>(bytes, position)      the head of a record that the dictionary gives a `T`
///     valueBytes(value)               the length of a value as write() stores it
///     kHasOneWidth<T>                 whether every stored `T` is sizeof(T) long
///     isHeadOf<T>(bytes, position)    whether the head of a record that the dictionary gives a `T`, which is no view,
///                                     says the same and a length of sizeof(T)
///     bytesInPlace(view)              the length a stored view must have to be overwritten
///     holds(lengthBytes)              whether a value of that length can be stored
///     write(out, id, length, value)   a whole record
///     writeAhead(out, id, length, value)   the same, which may use aheadBytes<T>(length) bytes from the record's start
///     overwrite(out, value)           a value in its place
///     decode(bytes, head, out)        a value that lies inside the message; false when it cannot be had
///     isWhole<T>(head)                whether decode() keeps to the record's own bytes
template <class Layout>
struct PlainRecords {
  template <class T>
  MD_ALWAYS_INLINE static bool read(const MsgData& data, const Optimizer& positions, FIELDS::packed_rec field, T& out) {
    const WholeBytes bytes(data.data());
    if constexpr (Layout::template kHasOneWidth<T>) {
      std::uint64_t position = 0;
      if (!find<T>(data, positions, field, sizeof(T), position) ||
          MD_UNLIKELY(!Layout::template isHeadOf<T>(bytes, position))) {
        return false;
      }
      return Layout::decode(bytes, {position, sizeof(T), Layout::template headBytes<T>(), kTypeCode<T>}, out);
    } else {
      std::uint64_t position = 0;
      if (!find<T>(data, positions, field, 0, position)) {
        return false;
      }
      const RecordHead head = Layout::template headOf<T>(bytes, position);
      if (MD_UNLIKELY(head.type != kTypeCode<T>) || MD_UNLIKELY(position + head.bytes() > data.size()) ||
          MD_UNLIKELY(!Layout::template isWhole<T>(head))) {
        return false;
      }
      return Layout::decode(bytes, head, out);
    }
  }

  template <class T>
  MD_ALWAYS_INLINE static bool add(MsgData& data, Optimizer& positions, FIELDS::packed_rec field, std::uint16_t id,
                                   T value) {
    // A field of this type is known: an unknown one has type 0.
    static_assert(kTypeCode<T> != DATATYPES::RAW);
    if (MD_UNLIKELY(field.type != kTypeCode<T>) || MD_UNLIKELY(!positions.hasRoomFor(field)) ||
        MD_UNLIKELY(!positions.isAbsent(field))) {
      return false;
    }
    const std::uint64_t position = data.size();
    const std::uint64_t lengthBytes = Layout::valueBytes(value);
    if (MD_UNLIKELY(position < Layout::kHeaderBytes) ||
        MD_UNLIKELY(position + Layout::template aheadBytes<T>(lengthBytes) > data.capacity()) ||
        MD_UNLIKELY(!Layout::holds(lengthBytes))) {
      return false;
    }
    std::uint8_t* const out = data.data() + position;
    data.setSize(position + Layout::template headBytes<T>() + lengthBytes);
    positions.placeAbsent(field, position);
    Layout::writeAhead(ByteWriter(out), id, lengthBytes, value);
    return true;
  }

  template <class T>
  MD_ALWAYS_INLINE static bool update(MsgData& data, const Optimizer& positions, FIELDS::packed_rec field, T value) {
    const std::uint64_t lengthBytes = Layout::bytesInPlace(value);
    std::uint64_t position = 0;
    if (!find<T>(data, positions, field, lengthBytes, position)) {
      return false;
    }
    std::uint8_t* const bytes = data.data();
    if constexpr (kIsView<T>) {
      const RecordHead head = Layout::template headOf<T>(WholeBytes(bytes), position);
      if (MD_UNLIKELY(head.valueBytes != lengthBytes) || MD_UNLIKELY(head.type != kTypeCode<T>)) {
        return false;
      }
    } else if (MD_UNLIKELY(!Layout::template isHeadOf<T>(WholeBytes(bytes), position))) {
      return false;
    }
    Layout::overwrite(ByteWriter(bytes + position + Layout::template headBytes<T>()), value);
    return true;
  }

 private:
  /// The position of a field that the dictionary gives a `T`. False when there is none, and when the message ends
  /// within the record's head or the `lengthBytes` behind it.
  template <class T>
  MD_ALWAYS_INLINE static bool find(const MsgData& data, const Optimizer& positions, FIELDS::packed_rec field,
                                    std::uint64_t lengthBytes, std::uint64_t& position) {
    if (MD_UNLIKELY(field.type != kTypeCode<T>) || MD_UNLIKELY(!positions.hasRoomFor(field))) {
      return false;
    }
    position = positions.position(field);
    return !MD_UNLIKELY(position + Layout::template headBytes<T>() + lengthBytes > data.size());
  }
};

}  // namespace MD::detail

#endif
