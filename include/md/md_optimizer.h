/// @file
/// The field index of a message: from field id to the offset of the record. Not safe for concurrent use.
#ifndef MD_OPTIMIZER_H
#define MD_OPTIMIZER_H

#include <cstddef>
#include <cstdint>

#include <map>

#include "md/md_api.h"
#include "md/md_fieldmap.h"

namespace MD {

/// One 64-bit value per field of the dictionary, 0 for an absent field. A lookup is two array reads. Operations with a
/// `packed_rec` are the same ones for callers that have already looked up the field.
// A slot holds its value and the generation in which it was set in one word. clear() increments the generation instead
// of touching the slots, and one comparison tests for "absent" and "after the end of the message".
class MD_API Optimizer {
 public:
  /// All fields absent, over `MD_FieldMap::instance()`.
  Optimizer();
  /// A copy of the values of another index.
  Optimizer(const Optimizer& other);
  /// Copies the values of another index. The cost is proportional to the size of the dictionary.
  Optimizer& operator=(const Optimizer& other);
  ~Optimizer();

  /// Sets the value of a field. A value of 0 is not recognised as a removal.
  /// @return false for an id that the dictionary does not contain
  bool set(std::uint16_t id, std::uint64_t value) { return set(m_map->packed(id), value); }
  /// The same, but false (nothing changed) if the dictionary declares another type than `type`.
  bool set(std::uint16_t id, std::uint8_t type, std::uint64_t value) {
    const FIELDS::packed_rec field = m_map->packed(id);
    return field.type == type && set(field, value);
  }
  /// The same for a field that has been looked up.
  bool set(FIELDS::packed_rec field, std::uint64_t value) {
    if (!field.isKnown()) {
      return false;
    }
    if (!hasRoomFor(field)) {
      makeRoom();
    }
    if (value >= kElsewhere) {
      setLarge(field, value);
    } else {
      place(field, value);
    }
    return true;
  }

  /// @{
  /// @return the value of the field, 0 for an absent or unknown one
  std::uint64_t get(std::uint16_t id) const noexcept { return get(m_map->packed(id)); }
  std::uint64_t get(FIELDS::packed_rec field) const noexcept {
    if (!hasRoomFor(field) || isAbsent(field)) {
      return 0;
    }
    const std::uint64_t value = m_slots[field.slot] - m_stamp;
    return value == kElsewhere ? getLarge(field) : value;
  }
  /// @}

  /// @{
  /// Makes a field absent, if it is present.
  void erase(std::uint16_t id) noexcept { erase(m_map->packed(id)); }
  void erase(FIELDS::packed_rec field) noexcept {
    if (get(field) != 0) {
      m_slots[field.slot] = 0;
      --m_fieldCount;
    }
  }
  /// @}

  /// Makes every field absent. The cost does not depend on the number of fields that were set.
  void clear() noexcept {
    m_fieldCount = 0;
    if (MD_UNLIKELY(m_stamp >= kLastStamp)) {
      forgetStamps();
    } else {
      m_stamp += kStampStep;
    }
  }

  /// Reserves a slot for every field of the present dictionary. Until the dictionary changes, place() may be used.
  void fitDictionary() {
    if (m_slotCount <= m_map->compactCount()) {
      makeRoom();
    }
  }

  /// @{
  /// Whether the other operations with a slot may be used for this one. The slot of a `packed_rec`, and what its
  /// slotIf() returns.
  MD_ALWAYS_INLINE bool hasRoomFor(FIELDS::packed_rec field) const noexcept {
    return hasRoomFor(std::uint32_t{field.slot});
  }
  MD_ALWAYS_INLINE bool hasRoomFor(std::uint32_t slot) const noexcept { return slot < m_slotCount; }
  /// @}

  /// @{
  /// Whether a field with a slot has no value.
  MD_ALWAYS_INLINE bool isAbsent(FIELDS::packed_rec field) const noexcept {
    return isAbsent(std::uint32_t{field.slot});
  }
  MD_ALWAYS_INLINE bool isAbsent(std::uint32_t slot) const noexcept { return m_slots[slot] <= m_stamp; }
  /// @}

  /// @{
  /// The value of a field with a slot. For an absent field it is greater than the length of any message, and 32 bits
  /// can be added to it without overflow.
  MD_ALWAYS_INLINE std::uint64_t position(FIELDS::packed_rec field) const noexcept {
    return position(std::uint32_t{field.slot});
  }
  MD_ALWAYS_INLINE std::uint64_t position(std::uint32_t slot) const noexcept { return m_slots[slot] - m_stamp; }
  /// @}

  /// set() of a known field with a slot, to an offset in a message.
  void place(FIELDS::packed_rec field, std::uint64_t value) noexcept {
    m_fieldCount += std::size_t{isAbsent(field)};
    m_slots[field.slot] = m_stamp + value;
  }
  /// place() of a field that is known to be absent.
  MD_ALWAYS_INLINE void placeAbsent(std::uint32_t slot, std::uint64_t value) noexcept {
    ++m_fieldCount;
    m_slots[slot] = m_stamp + value;
  }

  /// A series of place() calls whose state is kept in registers instead of memory. Nothing else may use the index
  /// meanwhile.
  class Filling {
   public:
    explicit Filling(Optimizer& table) noexcept
        : m_table(table), m_slots(table.m_slots), m_stamp(table.m_stamp), m_fieldCount(table.m_fieldCount) {}
    ~Filling() { m_table.m_fieldCount = m_fieldCount; }
    Filling(const Filling&) = delete;
    Filling& operator=(const Filling&) = delete;

    void place(FIELDS::packed_rec field, std::uint64_t value) noexcept {
      std::uint64_t& slot = m_slots[field.slot];
      m_fieldCount += std::size_t{slot <= m_stamp};
      slot = m_stamp + value;
    }

   private:
    Optimizer& m_table;
    std::uint64_t* m_slots;
    std::uint64_t m_stamp;
    std::size_t m_fieldCount;
  };

  /// The number of ids that have a value.
  std::size_t get_field_count() const noexcept { return m_fieldCount; }

 protected:
  struct ForPools {};
  /// An index for the pools: it shares no cache line with other data, and in a large index only pages with a field take
  /// memory.
  explicit Optimizer(ForPools);

 private:
  enum class Memory : std::uint8_t { Ordinary, OwnCacheLines, ZeroPages };

  // Slots hold values below this; for other values they hold this constant. It is far less than a step, so that a value
  // of an earlier generation, read as one of the present generation, is a step or more and does not overflow.
  static constexpr std::uint64_t kElsewhere = std::uint64_t{1} << 39;
  static constexpr std::uint64_t kStampStep = std::uint64_t{1} << 40;
  // Far below the overflow of generations: when they restart, a large index releases its memory.
  static constexpr std::uint64_t kLastStamp = std::uint64_t{0xFFFFF} << 40;

  void makeRoom();
  void resize(std::uint32_t slotCount);
  void forgetStamps() noexcept;
  void freeSlots() noexcept;
  void setLarge(FIELDS::packed_rec field, std::uint64_t value);
  std::uint64_t getLarge(FIELDS::packed_rec field) const noexcept;

  const MD_FieldMap* m_map;
  std::uint64_t* m_slots = nullptr;  // by packed_rec::slot; slot 0 belongs to no field and stays 0
  std::uint64_t m_stamp = kStampStep;
  std::size_t m_fieldCount = 0;
  std::uint32_t m_slotCount = 0;
  Memory m_memory = Memory::Ordinary;
  std::map<std::uint16_t, std::uint64_t> m_large;  // by slot, for slots that hold kElsewhere
};

}  // namespace MD

#endif
