#include "md/md_peek.h"

#include <limits>

#include "received_bytes.h"

namespace MD::detail {
namespace {

/// Reads a string with the length field 0 as a message does: in one encoding that may stand for the longest string,
/// which consists of whatever the message has kept of the bytes after it.
template <class Layout>
MD_RARE bool readLongestString(const ByteView& bytes, const RecordHead& head, const MD_FieldMap& dictionary,
                               StringView16& out) {
  if (head.type != kTypeCode<StringView16> || !bytes.fits(head.position, head.bytes())) {
    return false;
  }
  constexpr std::uint64_t kNeeded = std::uint64_t{std::numeric_limits<std::uint16_t>::max()} + 1;
  std::uint64_t kept = 0;
  bool isContiguous = true;
  RecordWalk<Layout> walk(bytes, dictionary, head.position + head.bytes());
  for (WalkedRecord record; kept < kNeeded && walk.next(record);) {
    if (record.kind == WalkedRecord::Kind::Field) {
      kept += record.end - record.head.position;
    } else {
      isContiguous = false;
    }
  }
  return (isContiguous || kept < kNeeded) &&
         Layout::decode(ByteView(bytes.at(0), head.valuePosition() + kept), head, out);
}

enum class Which { First, Last };

/// Where a search for a field's record has come to.
struct Search {
  std::uint64_t found;  ///< the position of the record that counts, 0 for none so far
  std::uint64_t next;   ///< where the rest of the records starts
};

/// Goes through the records up to the first that is not a whole field, which is all there is to a well-formed message.
template <Which which, class Layout>
MD_ALWAYS_INLINE inline Search searchWholeFields(const ByteView& bytes, const MD_FieldMap& dictionary,
                                                 std::uint16_t wanted) noexcept {
  std::uint64_t found = 0;
  RecordWalk<Layout> walk(bytes, dictionary);
  walk.passWholeFields([wanted, &found](FIELDS::packed_rec, std::uint16_t id, std::uint64_t position) {
    if constexpr (which == Which::First) {
      found = id == wanted ? position : 0;
      return found == 0;
    } else {
      if (id == wanted) {
        found = position;
      }
    }
  });
  return {found, walk.position()};
}

/// Any records, and any value.
template <Which which, class Layout, class T>
MD_RARE bool peekChecked(const std::uint8_t* data, std::uint32_t sizeBytes, const MD_FieldMap& dictionary,
                         std::uint16_t wanted, Search search, T& out) {
  const ByteView bytes(data, sizeBytes);
  if (which == Which::Last || search.found == 0) {
    RecordWalk<Layout> walk(bytes, dictionary, search.next);
    for (WalkedRecord record; walk.next(record);) {
      if (record.id == wanted && record.kind == WalkedRecord::Kind::Field) {
        search.found = record.head.position;
        if constexpr (which == Which::First) {
          break;
        }
      }
    }
  }
  if (search.found == 0) {
    return false;
  }
  const RecordHead head = Layout::head(bytes, search.found, kTypeCode<T>);
  if constexpr (std::is_same_v<T, StringView16>) {
    if (head.valueBytes == 0) {
      return readLongestString<Layout>(bytes, head, dictionary, out);
    }
  }
  return readRecord<Layout>(bytes, head, dictionary, out);
}

template <Which which, class T>
bool peekFor(const std::uint8_t* data, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept {
  const MD_FieldMap* const dictionary = dictionaryOrNull();
  if (dictionary == nullptr || dictionary->packed(id).type != kTypeCode<T>) {
    return false;
  }
  return withLayout(data, sizeBytes, [=, &out](auto layout) {
    using Layout = typename decltype(layout)::Layout;
    const ByteView bytes(data, sizeBytes);
    const Search search = searchWholeFields<which, Layout>(bytes, *dictionary, id);
    if (search.found != 0 && (which == Which::First || search.next == sizeBytes)) {
      const RecordHead head = Layout::head(bytes.whole(), search.found, kTypeCode<T>);
      constexpr bool kIsString = std::is_same_v<T, StringView16>;
      constexpr std::uint64_t kLeastBytes = kIsString ? 1 : Layout::template kHasOneWidth<T> ? sizeof(T) : 0;
      if (head.valueBytes >= kLeastBytes) {
        return Layout::decode(bytes.whole(), head, out);
      }
    }
    return peekChecked<which, Layout>(data, sizeBytes, *dictionary, id, search, out);
  });
}

}  // namespace

}  // namespace MD::detail

namespace MD {

#define MD_PEEK(T, name, code)                                                                            \
  template <>                                                                                             \
  bool peek(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept {      \
    return detail::peekFor<detail::Which::Last>(bytes, sizeBytes, id, out);                               \
  }                                                                                                       \
  template <>                                                                                             \
  bool peekFirst(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept { \
    return detail::peekFor<detail::Which::First>(bytes, sizeBytes, id, out);                              \
  }
MD_VALUE_TYPES(MD_PEEK)
#undef MD_PEEK

}  // namespace MD
