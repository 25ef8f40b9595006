// The distinct values of a dictionary-encoded column.
#ifndef MD_SRC_VALUE_DICTIONARY_H
#define MD_SRC_VALUE_DICTIONARY_H

#include <cstddef>
#include <cstdint>

#include <string_view>
#include <utility>
#include <vector>

#include "memory_block.h"

namespace MD::detail {

/// Numbers values in the order of their first occurrence. The sender of the values cannot make lookups slow: the hash
/// has a secret key.
class ValueDictionary {
 public:
  static constexpr std::int32_t kAbsent = -1;

  /// The number of a value, kAbsent for one that is not there.
  std::int32_t find(std::string_view value) const noexcept;
  /// Makes room, so that insert() of this value cannot fail. @throws std::bad_alloc
  void makeRoom(std::string_view value);
  /// Adds a value that is not there. @return its number
  std::int32_t insert(std::string_view value) noexcept;

  std::size_t size() const noexcept { return m_count; }
  std::size_t valueBytes() const noexcept { return m_count != 0 ? end(m_count - 1) : 0; }

  /// The values as a column of strings has them: offsets, then bytes. Starts anew.
  std::pair<MemoryBlock, MemoryBlock> take() noexcept;

 private:
  std::size_t end(std::size_t number) const noexcept {
    return static_cast<std::size_t>(m_offsets.load<std::int32_t>(number + 1));
  }
  std::string_view value(std::size_t number) const noexcept;
  std::size_t freeSlot(const std::vector<std::uint32_t>& slots, std::string_view value) const noexcept;

  std::vector<std::uint32_t> m_slots;  ///< by hash: numbers plus one, 0 for a free slot; at most half are in use
  MemoryBlock m_offsets;
  MemoryBlock m_bytes;
  std::size_t m_count = 0;
};

}  // namespace MD::detail

#endif
