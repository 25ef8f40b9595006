/// @file
/// Received bytes record by record, with their problems, including the records that a message built from the bytes
/// drops. For tools that examine messages; a RecordRange (md/md_record_range.h) contains only the records that a
/// message keeps. Nothing is copied, allocated, locked or reported. Thread-safe while the dictionary is not reloaded.
#ifndef MD_WIRE_RECORD_H
#define MD_WIRE_RECORD_H

#include <cstdint>

#include <array>
#include <iterator>
#include <string_view>

#include "md/detail/layouts.h"
#include "md/detail/record_walk.h"
#include "md/md_api.h"
#include "md/md_fieldmap.h"
#include "md/md_value_types.h"

namespace MD {

/// One record on the wire. Positions are offsets from the first byte of the message.
struct WireRecord {
  /// Whether a message keeps the record.
  enum class Kind : std::uint8_t {
    Field,         ///< kept: the dictionary contains the field, with the type of the record
    UnknownField,  ///< dropped: the dictionary does not contain the field
    OtherType,     ///< dropped: the dictionary contains the field with another type
    LoneByte,      ///< dropped: less than a field id remains
  };
  /// Whether the value can be read as one of `type`.
  enum class Value : std::uint8_t {
    Readable,    ///< it can, if the record is a Field
    Truncated,   ///< the bytes end within the record, which is the last
    WrongSize,   ///< values of the type have another size
    TooLong,     ///< a string or buffer longer than what a read returns
    NotCarried,  ///< messages do not carry values of the type, or the type is unknown
  };

  std::uint64_t position;     ///< start of the record, which is its field id
  std::uint64_t endPosition;  ///< start of the next record; for a truncated record the end of the bytes
  std::uint64_t valueBytes;   ///< length of the value according to the record
  std::uint32_t headBytes;    ///< bytes before the value: field id, type and length
  std::uint8_t typeBytes;     ///< bytes of the type among them, 0 if records of the encoding have none
  std::uint8_t type;          ///< a `DATATYPES` code, from the record or, if it has none, from the dictionary
  std::uint16_t id;           ///< the field; for a LoneByte, that byte
  FIELDS::packed_rec field;   ///< the entry of the id in the dictionary
  Kind kind;                  ///< whether a message keeps it
  Value value;                ///< whether its value can be read
};

namespace detail {

/// The sizes of values by type code, 0 for types that messages do not carry.
inline constexpr std::uint8_t kVaryingSize = 255;
template <class T>
constexpr std::uint8_t sizeOfValue() noexcept {
  return kIsView<T> ? kVaryingSize : static_cast<std::uint8_t>(sizeof(T));
}
inline constexpr std::array<std::uint8_t, 256> kSizesOfValues = [] {
  std::array<std::uint8_t, 256> sizes{};
#define MD_SIZE(T, name, code) sizes[code] = sizeOfValue<T>();
  MD_VALUE_TYPES(MD_SIZE)
#undef MD_SIZE
  return sizes;
}();

/// Whether the encoding can read the value of a complete record whose size is not that of its type.
template <class Layout>
WireRecord::Value readabilityOf(const ByteView& bytes, const RecordHead& head) noexcept {
  using Value = WireRecord::Value;
  if (head.type == kTypeCode<StringView16>) {
    StringView16 text;
    return head.valueBytes == 0 || Layout::decode(bytes.whole(), head, text) ? Value::Readable : Value::TooLong;
  }
  if (head.type == kTypeCode<BufferView16>) {
    BufferView16 buffer;
    return Layout::decode(bytes.whole(), head, buffer) ? Value::Readable : Value::TooLong;
  }
  if constexpr (!Layout::template kHasOneWidth<std::int32_t>) {
    std::int32_t number = 0;
    if (head.type == kTypeCode<std::int32_t> && Layout::decode(bytes.whole(), head, number)) {
      return Value::Readable;
    }
  }
  return Value::WrongSize;
}

template <class Layout>
MD_ALWAYS_INLINE inline WireRecord wireRecordOf(const ByteView& bytes, const WalkedRecord& walked) noexcept {
  using Kind = WireRecord::Kind;
  using Value = WireRecord::Value;
  const RecordHead& head = walked.head;
  const Kind kind = walked.kind == WalkedRecord::Kind::Field      ? Kind::Field
                    : walked.kind == WalkedRecord::Kind::LoneByte ? Kind::LoneByte
                    : walked.field.isKnown()                      ? Kind::OtherType
                                                                  : Kind::UnknownField;
  const std::uint8_t size = kSizesOfValues[head.type];
  const Value value = kind == Kind::LoneByte || walked.isTruncated()    ? Value::Truncated
                      : size == 0                                       ? Value::NotCarried
                      : size != kVaryingSize && head.valueBytes == size ? Value::Readable
                                                                        : readabilityOf<Layout>(bytes, head);
  return {head.position, walked.end, head.valueBytes, head.headBytes, Layout::kTypesAreOnTheWire ? 2U : 0U,
          head.type,     walked.id,  walked.field,    kind,           value};
}

/// Whether the value of a complete field is readable, without building a WireRecord.
template <class Layout>
MD_ALWAYS_INLINE inline bool isReadableField(const ByteView& bytes, const RecordHead& head) noexcept {
  const std::uint8_t size = kSizesOfValues[head.type];
  return size != 0 && ((size != kVaryingSize && head.valueBytes == size) ||
                       readabilityOf<Layout>(bytes, head) == WireRecord::Value::Readable);
}

}  // namespace detail

/// Calls `use` with a `const WireRecord&` for each record, in wire order; never for an unknown encoding byte, and for
/// null or no bytes.
/// @param bytes       a serialised message in any encoding
/// @param dictionary  determines which records are fields, as in a message
template <class Use>
void forEachWireRecord(const std::uint8_t* bytes, std::uint64_t sizeBytes, const MD_FieldMap& dictionary, Use use) {
  detail::withLayout(bytes, sizeBytes, [&](auto layout) {
    using Layout = typename decltype(layout)::Layout;
    const detail::ByteView view(bytes, sizeBytes);
    detail::RecordWalk<Layout> walk(view, dictionary);
    for (detail::WalkedRecord walked; walk.next(walked);) {
      use(detail::wireRecordOf<Layout>(view, walked));
    }
  });
}

/// The same, but calls `useReadable(FIELDS::packed_rec field, std::uint16_t id)` for readable fields and `use` for all
/// other records, in wire order. Several times as fast if nearly all records are readable fields.
template <class UseReadable, class Use>
void forEachWireRecord(const std::uint8_t* bytes, std::uint64_t sizeBytes, const MD_FieldMap& dictionary,
                       UseReadable useReadable, Use use) {
  detail::withLayout(bytes, sizeBytes, [&](auto layout) {
    using Layout = typename decltype(layout)::Layout;
    const detail::ByteView view(bytes, sizeBytes);
    detail::RecordWalk<Layout> walk(view, dictionary);
    for (detail::WalkedRecord walked;;) {
      walk.passWholeFields([&](FIELDS::packed_rec field, std::uint16_t id, std::uint64_t position) {
        const bool isReadable = detail::isReadableField<Layout>(view, Layout::head(view.whole(), position, field.type));
        if (isReadable) {
          useReadable(field, id);
        }
        return isReadable;
      });
      if (!walk.next(walked)) {
        return;
      }
      const WireRecord record = detail::wireRecordOf<Layout>(view, walked);
      if (record.kind == WireRecord::Kind::Field && record.value == WireRecord::Value::Readable) {
        useReadable(record.field, record.id);
      } else {
        use(record);
      }
    }
  });
}

/// The size in bytes of all values of a type; 0 if it varies, and for types that messages do not carry. `mInt` stores
/// small integers in fewer bytes.
constexpr std::uint32_t fixedValueBytes(std::uint8_t type) noexcept {
  const std::uint8_t size = detail::kSizesOfValues[type];
  return size == detail::kVaryingSize ? 0 : size;
}

/// The message header of an encoding, which begins with the encoding byte. Empty for an unknown encoding id.
inline std::string_view encodingHeader(std::uint8_t code) noexcept {
  return detail::withLayout(&code, 1, [](auto layout) {
    const void* const header = decltype(layout)::Layout::kHeader;
    return std::string_view(static_cast<const char*>(header), std::size(decltype(layout)::Layout::kHeader));
  });
}

}  // namespace MD

#endif
