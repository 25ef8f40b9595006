/// @file
/// A message's field table: from field id to the position of the field's record. Not safe for concurrent use.
#ifndef MD_OPTIMIZER_H
#define MD_OPTIMIZER_H

#include <cstddef>
#include <cstdint>

#include <memory>

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
  bool set(FIELDS::packed_rec field, std::uint64_t value) {
    if (!field.isKnown()) {
      return false;
    }
    if (field.slot >= m_slotCount || m_usedCount == m_usedCapacity) {
      makeRoom();
    }
    place(field, value);
    return true;
  }

  /// @return the field's value, 0 for an absent or unknown one
  std::uint64_t get(std::uint16_t id) const noexcept { return get(m_map->packed(id)); }
  MD_ALWAYS_INLINE std::uint64_t get(FIELDS::packed_rec field) const noexcept {
    const std::size_t slot = field.slot;
    return slot < m_slotCount ? m_slots[slot] : 0;
  }

  void erase(std::uint16_t id) noexcept { erase(m_map->packed(id)); }
  void erase(FIELDS::packed_rec field) noexcept {
    if (get(field) != 0) {
      m_slots[field.slot] = 0;
      ++m_erasedCount;
      if (m_usedCount > 2 * m_slotCount) {
        forgetErased();
      }
    }
  }

  /// Makes every field absent. Costs what was set since the last clear.
  void clear() noexcept {
    for (std::uint32_t i = 0; i < m_usedCount; ++i) {
      m_slots[m_used[i]] = 0;
    }
    m_usedCount = 0;
    m_erasedCount = 0;
  }

  /// Makes room for every field of the dictionary as it is now. As long as that does not change, place() may be used.
  void fitDictionary() {
    if (m_slotCount <= m_map->compactCount()) {
      makeRoom();
    }
  }

  /// Whether place() may be used for the field.
  MD_ALWAYS_INLINE bool hasRoomFor(FIELDS::packed_rec field) const noexcept { return field.slot < m_slotCount; }

  /// set() of a known field, for which there is room, to a value other than 0. A table that is filled in this way alone
  /// always has room for every field: see erase().
  void place(FIELDS::packed_rec field, std::uint64_t value) noexcept {
    if (m_slots[field.slot] == 0) {
      placeAbsent(field, value);
    } else {
      m_slots[field.slot] = value;
    }
  }
  /// place() of a field that is known to be absent.
  MD_ALWAYS_INLINE void placeAbsent(FIELDS::packed_rec field, std::uint64_t value) noexcept {
    m_used[m_usedCount++] = field.slot;
    m_slots[field.slot] = value;
  }

  /// A run of place() calls, with what they change at hand instead of in memory. Nothing else may use the table
  /// meanwhile.
  class Filling {
   public:
    explicit Filling(Optimizer& table) noexcept
        : m_table(table), m_slots(table.m_slots.get()), m_nextUsed(table.m_used.get() + table.m_usedCount) {}
    ~Filling() { m_table.m_usedCount = static_cast<std::uint32_t>(m_nextUsed - m_table.m_used.get()); }
    Filling(const Filling&) = delete;
    Filling& operator=(const Filling&) = delete;

    void place(FIELDS::packed_rec field, std::uint64_t value) noexcept {
      std::uint64_t& slot = m_slots[field.slot];
      if (slot == 0) {
        *m_nextUsed++ = field.slot;
      }
      slot = value;
    }

   private:
    Optimizer& m_table;
    std::uint64_t* m_slots;
    std::uint16_t* m_nextUsed;
  };

  /// The number of ids that have a value.
  std::size_t get_field_count() const noexcept { return std::size_t{m_usedCount} - m_erasedCount; }

 private:
  void makeRoom();
  void resize(std::uint32_t slotCount);
  void forgetErased() noexcept;

  const MD_FieldMap* m_map;
  std::unique_ptr<std::uint64_t[]> m_slots;  // by packed_rec::slot; slot 0 belongs to no field and stays 0
  std::unique_ptr<std::uint16_t[]> m_used;  // slots set since the last clear, in that order; erased and set again twice
  std::uint32_t m_slotCount = 0;
  std::uint32_t m_usedCount = 0;
  std::uint32_t m_usedCapacity = 0;
  std::size_t m_erasedCount = 0;  // of those in m_used
};

}  // namespace MD

#endif
