/// @file
/// Reading one field of received bytes without building a message: for routers, filters and whoever needs one or two
/// fields of each datagram. Nothing is copied, allocated, locked or reported. Thread-safe while the dictionary is not
/// reloaded.
#ifndef MD_PEEK_H
#define MD_PEEK_H

#include <cstdint>

#include "md/md_api.h"
#include "md/md_value_types.h"

namespace MD {

/// Reads a field of a serialised message in any encoding: the answer of `get(id, out)` on the message that
/// MD_Message::createFromBytes() builds from these bytes, whatever they are. Of a repeated field the last record
/// counts. Costs one pass over the records. Views refer to `bytes`.
///
/// One case differs. The parser drops records of unknown fields, so that the records after them follow those before
/// them. An `IterMap` string with the length field 0 for which dropped records are among the 65,536 bytes that it would
/// then consist of is not contiguous in `bytes`: false.
/// @tparam T  one of the nine value types
/// @return false, `out` unchanged, when the field is absent, of another type or truncated, for bytes of no encoding,
///         for null or no bytes, and when no dictionary can be loaded
template <class T>
bool peek(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept = delete;

/// The same, but the first record of the field counts, and the pass ends there. It gives the answer of peek() where no
/// field is repeated.
template <class T>
bool peekFirst(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept = delete;

#define MD_PEEK(T, name, code)                                                                             \
  template <>                                                                                              \
  MD_API bool peek(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept; \
  template <>                                                                                              \
  MD_API bool peekFirst(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept;
MD_VALUE_TYPES(MD_PEEK)
#undef MD_PEEK

}  // namespace MD

#endif
