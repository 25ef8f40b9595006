#include "md/md_optimizer.h"

#include <algorithm>
#include <utility>

namespace MD {

Optimizer::Optimizer() : m_map(&MD_FieldMap::instance()) { makeRoom(); }

Optimizer::Optimizer(const Optimizer& other) : Optimizer() { *this = other; }

Optimizer& Optimizer::operator=(const Optimizer& other) {
  if (this != &other) {
    if (m_slotCount < other.m_slotCount) {
      resize(other.m_slotCount);
    }
    clear();
    for (std::uint32_t i = 0; i < other.m_usedCount; ++i) {
      const std::uint16_t slot = other.m_used[i];
      m_slots[slot] = other.m_slots[slot];
      m_used[i] = slot;
    }
    m_usedCount = other.m_usedCount;
    m_erasedCount = other.m_erasedCount;
  }
  return *this;
}

// A field that is erased and set again over and over (an update that changes a length does that) would make the list of
// used slots grow without end. It has room for three times the slots and is cut back to the live ones, at most a third,
// when an erase finds it two thirds full: nothing is ever allocated for it, and what a cut costs has been paid for by
// as many erases.
void Optimizer::makeRoom() {
  const std::uint32_t needed = std::uint32_t{m_map->compactCount()} + 1;
  if (m_slotCount < needed) {
    resize(needed);
  } else {
    forgetErased();
  }
}

void Optimizer::resize(std::uint32_t slotCount) {
  auto slots = std::make_unique<std::uint64_t[]>(slotCount);
  std::unique_ptr<std::uint16_t[]> used(new std::uint16_t[std::size_t{3} * slotCount]);
  std::copy_n(m_slots.get(), m_slotCount, slots.get());
  std::copy_n(m_used.get(), m_usedCount, used.get());
  m_slots = std::move(slots);
  m_used = std::move(used);
  m_slotCount = slotCount;
  m_usedCapacity = 3 * slotCount;
}

void Optimizer::forgetErased() noexcept {
  const std::size_t count = get_field_count();
  m_usedCount = 0;
  for (std::uint32_t slot = 0; slot < m_slotCount; ++slot) {
    if (m_slots[slot] != 0) {
      m_used[m_usedCount++] = static_cast<std::uint16_t>(slot);
    }
  }
  m_erasedCount = m_usedCount - count;
}

}  // namespace MD
