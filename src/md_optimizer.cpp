#include "md/md_optimizer.h"

#include <cstring>

#include <algorithm>
#include <new>
#include <utility>

#include "cache_lines.h"
#include "zero_pages.h"

namespace MD {
namespace {

// From this number on it pays to keep pages without fields unused.
constexpr std::size_t kPagedFromPages = 4;

constexpr std::align_val_t kOwnCacheLines{detail::kCacheLinesBytes};

constexpr std::size_t bytesFor(std::uint32_t slotCount) noexcept {
  constexpr std::size_t kLast = detail::kCacheLinesBytes - 1;
  return (slotCount * sizeof(std::uint64_t) + kLast) & ~kLast;
}

}  // namespace

Optimizer::Optimizer() : m_map(&MD_FieldMap::instance()) { makeRoom(); }

Optimizer::Optimizer(ForPools) : m_map(&MD_FieldMap::instance()), m_memory(Memory::OwnCacheLines) { makeRoom(); }

Optimizer::Optimizer(const Optimizer& other) : Optimizer() { *this = other; }

Optimizer::~Optimizer() { freeSlots(); }

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

void Optimizer::makeRoom() { resize(std::uint32_t{m_map->compactCount()} + 1); }

void Optimizer::resize(std::uint32_t slotCount) {
  Memory memory = Memory::Ordinary;
  void* made = nullptr;
  if (m_memory != Memory::Ordinary && bytesFor(slotCount) >= kPagedFromPages * detail::pageBytes()) {
    memory = Memory::ZeroPages;
    made = detail::newZeroPages(bytesFor(slotCount));
  }
  if (made == nullptr && m_memory != Memory::Ordinary) {
    memory = Memory::OwnCacheLines;
    made = std::memset(::operator new(bytesFor(slotCount), kOwnCacheLines), 0, bytesFor(slotCount));
  }
  auto* const slots = made != nullptr ? static_cast<std::uint64_t*>(made) : new std::uint64_t[slotCount]();
  for (std::uint32_t slot = 0; slot < m_slotCount; ++slot) {
    // A zero page that is written exists.
    if (m_slots[slot] != 0) {
      slots[slot] = m_slots[slot];
    }
  }
  freeSlots();
  m_slots = slots;
  m_slotCount = slotCount;
  m_memory = memory;
}

void Optimizer::freeSlots() noexcept {
  switch (m_memory) {
    case Memory::Ordinary:
      delete[] m_slots;
      break;
    case Memory::OwnCacheLines:
      ::operator delete(m_slots, kOwnCacheLines);
      break;
    case Memory::ZeroPages:
      detail::freePages(m_slots, bytesFor(m_slotCount));
      break;
  }
}

// The cost is proportional to the size of the dictionary, but it is called once per 1,048,575 clears.
void Optimizer::forgetStamps() noexcept {
  if (m_memory != Memory::ZeroPages || !detail::zeroPagesAnew(m_slots, bytesFor(m_slotCount))) {
    std::replace_if(
        m_slots, m_slots + m_slotCount, [](std::uint64_t slot) { return slot != 0; }, std::uint64_t{0});
  }
  m_stamp = kStampStep;
}

void Optimizer::setLarge(FIELDS::packed_rec field, std::uint64_t value) {
  m_large[field.slot] = value;
  place(field, kElsewhere);
}

std::uint64_t Optimizer::getLarge(FIELDS::packed_rec field) const noexcept { return m_large.find(field.slot)->second; }

}  // namespace MD
