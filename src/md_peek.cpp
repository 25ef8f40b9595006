#include "md/md_peek.h"

#include "received_bytes.h"

namespace MD::detail {
namespace {

enum class Which { First, Last };

/// Where a search for a field's record has come to.
struct Search {
  std::uint64_t found;  ///< the position of the record that counts, 0 for none so far
  std::uint64_t next;   ///< where the rest of the records starts
};

/// Scans the records up to the first that is not a complete field: in a well-formed message, all of them.
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
  return readAsMessage<Layout>(bytes, search.found, dictionary, out);
}

template <Which which, class Layout, class T>
MD_ALWAYS_INLINE inline bool peekIn(const std::uint8_t* data, std::uint32_t sizeBytes, const MD_FieldMap& dictionary,
                                    std::uint16_t id, T& out) noexcept {
  const ByteView bytes(data, sizeBytes);
  const Search search = searchWholeFields<which, Layout>(bytes, dictionary, id);
  if (search.found != 0 && (which == Which::First || search.next == sizeBytes)) {
    const RecordHead head = Layout::head(bytes.whole(), search.found, kTypeCode<T>);
    if (isPlain<Layout, T>(head)) {
      return Layout::decode(bytes.whole(), head, out);
    }
  }
  return peekChecked<which, Layout>(data, sizeBytes, dictionary, id, search, out);
}

template <Which which, class T>
bool peekFor(const std::uint8_t* data, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept {
  const MD_FieldMap* const dictionary = dictionaryOrNull();
  if (dictionary == nullptr || dictionary->packed(id).type != kTypeCode<T>) {
    return false;
  }
  return withLayout(data, sizeBytes, [=, &out](auto layout) {
    return peekIn<which, typename decltype(layout)::Layout>(data, sizeBytes, *dictionary, id, out);
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
