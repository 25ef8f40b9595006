/// @file
/// The members that an encoding must define for its bytes, checked by the compiler. For the library's own headers.
#ifndef MD_DETAIL_RECORD_LAYOUT_H
#define MD_DETAIL_RECORD_LAYOUT_H

#include <cstdint>

#include <iterator>
#include <type_traits>
#include <utility>

#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_datatypes.h"
#include "md/md_value_types.h"

namespace MD::detail {

/// The number of bytes before the first record.
template <class Layout>
inline constexpr std::uint64_t kHeaderBytes = std::size(Layout::kHeader);

/// For a step whose length depends on a test of the record. With a branch, the processor predicts the position of the
/// next record and runs ahead; with arithmetic, it waits for the test. This keeps the compiler from using arithmetic.
inline std::uint64_t byJump(std::uint64_t next) noexcept {
#if defined(__GNUC__)
  __asm__("" : "+r"(next));
#endif
  return next;
}

/// The bit of a field type in a set of types. All codes are below 64, so a set is one word.
constexpr std::uint64_t typeBit(std::uint8_t type) noexcept { return std::uint64_t{1} << (type & 63); }
inline constexpr std::uint64_t kFourByteTypes = typeBit(DATATYPES::INT) | typeBit(DATATYPES::FLOAT);
inline constexpr std::uint64_t kEightByteTypes = typeBit(DATATYPES::DOUBLE) | typeBit(DATATYPES::INT64) |
                                                 typeBit(DATATYPES::DATETIME) | typeBit(DATATYPES::EPOCH_NSEC);

/// Fails to compile, with the reason, unless `Layout` describes an encoding completely. A layout is a structure of
/// static members. It inherits the members for values from ValueCodec, except those that differ in its encoding.
/// `bytes` is a ByteView or WholeBytes, `type` the type code that the dictionary declares for the id of the record, 0
/// for an unknown id.
template <class Layout>
constexpr bool checkLayout();

template <class Layout, class Probe>
constexpr bool layoutAnswers(Probe) {
  return std::is_invocable_v<Probe, Layout>;
}

#define MD_LAYOUT_HAS(result, member) \
  layoutAnswers<Layout>(              \
      [](auto layout) noexcept -> std::enable_if_t<std::is_same_v<decltype(decltype(layout)::member), result>> {})

/// The members of a layout for the value type `T`.
template <class Layout, class T>
constexpr bool checkLayoutOf() {
  static_assert(MD_LAYOUT_HAS(const bool, template kHasOneWidth<T>),
                "bool Layout::kHasOneWidth<T>: whether every stored T is sizeof(T) bytes long");
  static_assert(MD_LAYOUT_HAS(std::uint64_t, valueBytes(std::declval<T>())),
                "std::uint64_t Layout::valueBytes(value): the length of a value as write() stores it");
  static_assert(MD_LAYOUT_HAS(std::uint64_t, bytesInPlace(std::declval<T>())),
                "std::uint64_t Layout::bytesInPlace(value): the length a stored value must have to be overwritten");
  static_assert(MD_LAYOUT_HAS(void, write(std::declval<ByteWriter>(), 0, 0, std::declval<T>())),
                "void Layout::write(out, id, lengthBytes, value): writes a whole record");
  static_assert(MD_LAYOUT_HAS(void, overwrite(std::declval<ByteWriter>(), std::declval<T>())),
                "void Layout::overwrite(out, value): writes a value over a stored one of bytesInPlace()");
  static_assert(MD_LAYOUT_HAS(bool, decode(std::declval<ByteView>(), RecordHead(), std::declval<T&>())) &&
                    MD_LAYOUT_HAS(bool, decode(std::declval<WholeBytes>(), RecordHead(), std::declval<T&>())),
                "bool Layout::decode(bytes, head, out): reads the value of a record that is inside the message; false "
                "if there is none, and if this depends on the end of the message, which WholeBytes do not know");
  if constexpr (Layout::kWritesAhead) {
    static_assert(MD_LAYOUT_HAS(std::uint64_t, template aheadBytes<T>(0)),
                  "std::uint64_t Layout::aheadBytes<T>(lengthBytes): the memory that writeAhead() may use");
    static_assert(MD_LAYOUT_HAS(void, writeAhead(std::declval<ByteWriter>(), 0, 0, std::declval<T>())),
                  "void Layout::writeAhead(out, id, lengthBytes, value): write() that may write past the record");
  }
  if constexpr (Layout::kComparesHeads) {
    static_assert(MD_LAYOUT_HAS(bool, template hasHeadOf<T>(std::declval<WholeBytes>(), 0, 0)),
                  "bool Layout::hasHeadOf<T>(bytes, position, id): whether the record has this id and, if T has only "
                  "one width, this length; one with a value that long is inside the message");
  }
  static_assert(Layout::headBytes(kTypeCode<T>) <= Layout::kMaxHeadBytes,
                "Layout::kMaxHeadBytes is less than the longest headBytes()");
  return true;
}

template <class Layout>
constexpr bool checkLayout() {
  static_assert(MD_LAYOUT_HAS(const std::uint8_t&, kHeader[0]),
                "std::uint8_t Layout::kHeader[]: the bytes of an empty message, the encoding byte first");
  static_assert(MD_LAYOUT_HAS(const bool, kTypesAreOnTheWire),
                "bool Layout::kTypesAreOnTheWire: whether a record contains its type, or only the dictionary does");
  static_assert(MD_LAYOUT_HAS(const std::uint64_t, kMaxHeadBytes),
                "std::uint64_t Layout::kMaxHeadBytes: the most bytes that id(), head() and step() read");
  static_assert(MD_LAYOUT_HAS(const std::uint64_t, kMaxValueBytes),
                "std::uint64_t Layout::kMaxValueBytes: the longest value that a record can hold");
  static_assert(MD_LAYOUT_HAS(const bool, kWritesAhead),
                "bool Layout::kWritesAhead: whether there is a faster write() for records that are followed by memory");
  static_assert(MD_LAYOUT_HAS(const bool, kComparesHeads),
                "bool Layout::kComparesHeads: whether one comparison of the head identifies a plain record, which is "
                "faster than the type that the dictionary declares for its id");
  static_assert(MD_LAYOUT_HAS(std::uint16_t, id(std::declval<ByteView>(), 0)) &&
                    MD_LAYOUT_HAS(std::uint16_t, id(std::declval<WholeBytes>(), 0)),
                "std::uint16_t Layout::id(bytes, position): the field id of the record at `position`");
  static_assert(MD_LAYOUT_HAS(std::uint32_t, headBytes(0)),
                "constexpr std::uint32_t Layout::headBytes(type): the length of the head of a record of that type");
  static_assert(MD_LAYOUT_HAS(RecordHead, head(std::declval<ByteView>(), 0, 0)) &&
                    MD_LAYOUT_HAS(RecordHead, head(std::declval<WholeBytes>(), 0, 0)),
                "RecordHead Layout::head(bytes, position, type): the header of the record at `position`");
  static_assert(MD_LAYOUT_HAS(bool, step(std::declval<WholeBytes>(), 0, 0, std::declval<std::uint64_t&>())),
                "bool Layout::step(bytes, position, type, next): head() for fast walks; sets `next` to the record's "
                "end, false when the wire has another type");
#define MD_CHECK(T, name, code) static_assert(checkLayoutOf<Layout, T>());
  MD_VALUE_TYPES(MD_CHECK)
#undef MD_CHECK
  return true;
}

#undef MD_LAYOUT_HAS

}  // namespace MD::detail

#endif
