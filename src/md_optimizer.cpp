#include "md/md_optimizer.h"

#include <algorithm>

namespace MD {

Optimizer::Optimizer() : m_map(&MD_FieldMap::instance()) { growSlots(); }

Optimizer::Optimizer(const Optimizer& other) : Optimizer() { *this = other; }

Optimizer& Optimizer::operator=(const Optimizer& other) {
  if (this != &other) {
    if (m_slots.size() < other.m_slots.size()) {
      m_used.reserve(2 * other.m_slots.size());
      m_slots.resize(other.m_slots.size());
    }
    m_used.reserve(other.m_used.size());
    clear();
    for (const std::uint16_t slot : other.m_used) {
      m_slots[slot] = other.m_slots[slot];
    }
    m_used = other.m_used;
    m_count = other.m_count;
  }
  return *this;
}

void Optimizer::clear() noexcept {
  for (; !m_used.empty(); m_used.pop_back()) {
    m_slots[m_used.back()] = 0;
  }
  m_count = 0;
}

// Twice as much room for used slots as there are slots: at most half of a full list can be live, so dropping the rest
// makes room again without ever allocating.
void Optimizer::growSlots() {
  const std::size_t slots = std::max(m_slots.size(), std::size_t{m_map->compactCount()} + 1);
  m_used.reserve(2 * slots);
  m_slots.resize(slots);
}

// A field that is erased and set again over and over (an update that changes a length does that) would make the list
// grow without end.
void Optimizer::forgetErased() noexcept {
  m_used.clear();
  for (std::size_t slot = 0; slot < m_slots.size(); ++slot) {
    if (m_slots[slot] != 0) {
      m_used.push_back(static_cast<std::uint16_t>(slot));
    }
  }
}

}  // namespace MD
