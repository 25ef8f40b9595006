#include "md/md_field.h"

#include <cstddef>
#include <cstdint>

#include <limits>
#include <optional>
#include <type_traits>

#include "field_update.h"
#include "md/md_datatypes.h"
#include "md/md_message.h"
#include "own_class.h"
#include "report.h"
#include "value_dispatch.h"

namespace MD {
namespace {

constexpr const char* kIntegerDoesNotFit =
    "MD_Message Error: Attempting to ADD or UPDATE a field with an integer out of range!";
/// Calls `store` with the integer in the type that the dictionary gives the field.
/// @param fitsInt64  whether the integer is the one that `bits` are as a std::int64_t
template <class Store>
bool storeInteger(std::uint16_t id, std::uint8_t type, std::uint64_t bits, bool fitsInt64, Store store) {
  const auto number = static_cast<std::int64_t>(bits);
  if (type != DATATYPES::INT && fitsInt64) {
    return store(number);
  }
  const auto narrow = static_cast<std::int32_t>(number);
  if (fitsInt64 && narrow == number) {
    return store(narrow);
  }
  detail::reportField(kIntegerDoesNotFit, id, type, type == DATATYPES::INT ? sizeof(std::int32_t) : sizeof number);
  return false;
}

}  // namespace

bool MD_Message::addInteger(std::uint16_t id, std::uint64_t bits, bool fitsInt64) {
  return storeInteger(id, m_map->packed(id).type, bits, fitsInt64, [&](auto number) { return addImpl(id, number); });
}

bool MD_Message::updateInteger(std::uint16_t id, std::uint64_t bits, bool fitsInt64) {
  return storeInteger(id, m_map->packed(id).type, bits, fitsInt64,
                      [&](auto number) { return updateField(id, number); });
}

std::uint64_t MD_Message::longestValueBytes() const {
  std::uint64_t bytes = std::numeric_limits<std::uint64_t>::max();
  detail::withOwnClass(
      *this, [&](const auto& message) { bytes = std::remove_reference_t<decltype(message)>::Layout::kMaxValueBytes; });
  return bytes;
}

template <class T>
bool MD_Message::updateTyped(std::uint16_t id, T value) {
  bool isDone = false;
  if (detail::withOwnClass(*this, [&](auto& message) { isDone = message.updateOwn(id, value); })) {
    return isDone;
  }
  return m_map->packed(id).type == detail::kTypeCode<T>
             ? updateImpl(id, value)
             : detail::refuseUpdate(detail::kUpdateOfOtherType, id, detail::kTypeCode<T>, detail::storedBytes(value));
}

#define MD_UPDATE_FIELD(T, name, code) \
  bool MD_Message::updateField(std::uint16_t id, T value) { return updateTyped(id, value); }
MD_VALUE_TYPES(MD_UPDATE_FIELD)
#undef MD_UPDATE_FIELD

}  // namespace MD
