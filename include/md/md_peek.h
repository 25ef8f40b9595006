/// @file
/// Reads one field of received bytes without building a message, for routers, filters and other programs that need one
/// or two fields of each datagram. Nothing is copied, allocated, locked or reported. Thread-safe while the dictionary
/// is not reloaded.
#ifndef MD_PEEK_H
#define MD_PEEK_H

#include <cstdint>

#include "md/md_api.h"
#include "md/md_value_types.h"

namespace MD {

/// Reads a field of a serialised message in any encoding. For any bytes, the result is that of `get(id, out)` on the
/// message that MD_Message::createFromBytes() builds from them. If a field is repeated, the last record is read. Costs
/// one pass over the records. Views refer to `bytes`.
///
/// One case differs. The parser drops records of unknown fields, so the records around them become adjacent. If dropped
/// records are among the 65,536 bytes of an `IterMap` string with the length field 0, the string is not contiguous in
/// `bytes`: the result is false.
/// @tparam T  one of the nine value types
/// @return false, `out` unchanged, if the field is absent, of another type or truncated, for an unknown encoding byte,
///         for null or no bytes, and if no dictionary can be loaded
template <class T>
bool peek(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint16_t id, T& out) noexcept = delete;

/// The same, but reads the first record of the field, and the pass ends there. If the field is not repeated, the result
/// is that of peek().
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
