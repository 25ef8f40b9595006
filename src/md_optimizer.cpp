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
    std::map<std::uint16_t, std::uint64_t> large = other.m_large;
    clear();
    m_large.swap(large);
    for (std::uint32_t slot = 0; slot < other.m_slotCount; ++slot) {
      if (other.m_slots[slot] > other.m_stamp) {
        m_slots[slot] = m_stamp + (other.m_slots[slot] - other.m_stamp);
      }
    }
    m_fieldCount = other.m_fieldCount;
  }
  return *this;
}

void Optimizer::makeRoom() {
  const std::uint32_t needed = std::uint32_t{m_map->compactCount()} + 1;
  if (m_slotCount < needed) {
    resize(needed);
  }
}

void Optimizer::resize(std::uint32_t slotCount) {
  auto slots = std::make_unique<std::uint64_t[]>(slotCount);
  std::copy_n(m_slots.get(), m_slotCount, slots.get());
  m_slots = std::move(slots);
  m_slotCount = slotCount;
}

// Costs what the dictionary holds, but is called once in sixteen million clears.
void Optimizer::forgetStamps() noexcept {
  std::fill_n(m_slots.get(), m_slotCount, std::uint64_t{0});
  m_stamp = kStampStep;
}

void Optimizer::setLarge(FIELDS::packed_rec field, std::uint64_t value) {
  m_large[field.slot] = value;
  place(field, kElsewhere);
}

std::uint64_t Optimizer::getLarge(FIELDS::packed_rec field) const noexcept { return m_large.find(field.slot)->second; }

}  // namespace MD
