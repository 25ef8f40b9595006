/// @file
/// A message's field table: from field id to the position of the field's record. Not safe for concurrent use.
#ifndef MD_OPTIMIZER_H
#define MD_OPTIMIZER_H

#include <cstdint>

#include <vector>

#include "md/md_api.h"
#include "md/md_fieldmap.h"

namespace MD {

/// One 64-bit value for each field of the dictionary, 0 for an absent one. A look-up is two array reads. Operations
/// that take a `packed_rec` are the same ones for callers that have looked the field up already.
class MD_API Optimizer {
 public:
  /// All fields absent, over `MD_FieldMap::instance()`.
  Optimizer();
  Optimizer(const Optimizer& other);
  /// Takes over the other's values; costs what both hold, not what the dictionary holds.
  Optimizer& operator=(const Optimizer& other);
  ~Optimizer() = default;

  /// Sets the field's value. A value of 0 is not recognised as a removal.
  /// @return false for an id that the dictionary does not hold
  bool set(std::uint16_t id, std::uint64_t value) { return set(m_map->packed(id), value); }
  /// The same, and false (nothing changed) when the dictionary's type for the id is not `type`.
  bool set(std::uint16_t id, std::uint8_t type, std::uint64_t value) {
    const FIELDS::packed_rec field = m_map->packed(id);
    return field.type == type && set(field, value);
  }
  bool set(FIELDS::packed_rec field, std::uint64_t value);

  /// @return the field's value, 0 for an absent or unknown one
  std::uint64_t get(std::uint16_t id) const noexcept { return get(m_map->packed(id)); }
  std::uint64_t get(FIELDS::packed_rec field) const noexcept {
    return field.slot < m_slots.size() ? m_slots[field.slot] : 0;
  }

  void erase(std::uint16_t id) noexcept { erase(m_map->packed(id)); }
  void erase(FIELDS::packed_rec field) noexcept {
    if (get(field) != 0) {
      m_slots[field.slot] = 0;
      --m_count;
    }
  }

  /// Makes every field absent. Costs what was set since the last clear.
  void clear() noexcept;

  /// Makes room for every field of the dictionary as it is now; after that no `set` allocates.
  void fitDictionary() {
    if (m_slots.size() <= m_map->compactCount()) {
      growSlots();
    }
  }

  /// The number of ids that have a value.
  std::size_t get_field_count() const noexcept { return m_count; }

 private:
  void growSlots();
  void forgetErased() noexcept;

  const MD_FieldMap* m_map;
  std::vector<std::uint64_t> m_slots;  // by packed_rec::slot; slot 0 belongs to no field and stays 0
  std::vector<std::uint16_t> m_used;   // slots set since the last clear, in that order; one erased and set again twice
  std::size_t m_count = 0;
};

inline bool Optimizer::set(FIELDS::packed_rec field, std::uint64_t value) {
  if (!field.isKnown()) {
    return false;
  }
  if (field.slot >= m_slots.size()) {
    growSlots();
  }
  std::uint64_t& slot = m_slots[field.slot];
  if (slot == 0) {
    if (m_used.size() == m_used.capacity()) {
      forgetErased();
    }
    m_used.push_back(field.slot);
    ++m_count;
  }
  slot = value;
  return true;
}

}  // namespace MD

#endif
