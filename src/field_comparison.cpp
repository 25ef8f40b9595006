// Which fields of two messages differ.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <algorithm>
#include <type_traits>
#include <vector>

#include "field_list.h"
#include "md/md_message.h"
#include "report.h"
#include "value_dispatch.h"

namespace MD {
namespace {

/// Whether two values have the same bits, so that a not-a-number is the same as itself and 0.0 is not -0.0.
template <class T>
bool isSame(const T& a, const T& b) noexcept {
  if constexpr (std::is_floating_point_v<T>) {
    const auto bitsOf = [](T value) {
      std::conditional_t<sizeof(T) == sizeof(std::uint32_t), std::uint32_t, std::uint64_t> bits = 0;
      std::memcpy(&bits, &value, sizeof bits);
      return bits;
    };
    return bitsOf(a) == bitsOf(b);
  } else {
    return a == b;
  }
}

/// Whether a field without a value is stored in the same way in two messages.
bool isStoredAlike(const MD_Message& a, const MD_Message& b, std::uint16_t id) {
  struct Stored {
    Stored(const MD_Message& message, std::uint16_t id) : value(message.fieldData(id, type, sizeBytes)) {
      presentBytes =
          value != nullptr
              ? std::min<std::size_t>(static_cast<std::size_t>(message.data() + message.size() - value), sizeBytes)
              : 0;
    }
    std::uint8_t type = 0;
    std::uint32_t sizeBytes = 0;
    const std::uint8_t* value;
    std::size_t presentBytes;
  };
  const Stored ofA(a, id);
  const Stored ofB(b, id);
  return a.getPB() == b.getPB() && ofA.type == ofB.type && ofA.sizeBytes == ofB.sizeBytes &&
         ofA.presentBytes == ofB.presentBytes &&
         (ofA.presentBytes == 0 || std::memcmp(ofA.value, ofB.value, ofA.presentBytes) == 0);
}

/// Whether two messages hold the same under an id, which one of them has.
bool isSameField(const MD_Message& a, const MD_Message& b, std::uint16_t id) {
  if (!a.contains(id) || !b.contains(id)) {
    return false;
  }
  enum class Result { Same, Different, NotRead };
  Result result = Result::NotRead;
  detail::withValueType(MD_FieldMap::instance().packed(id).type, [&](auto ofA) {
    auto ofB = ofA;
    const bool isReadInA = a.get(id, ofA);
    const bool isReadInB = b.get(id, ofB);
    if (isReadInA || isReadInB) {
      result = isReadInA && isReadInB && isSame(ofA, ofB) ? Result::Same : Result::Different;
    }
    return true;
  });
  return result == Result::Same || (result == Result::NotRead && isStoredAlike(a, b, id));
}

}  // namespace

bool sameFields(const MD_Message& a, const MD_Message& b) {
  const detail::SilentReports silence;
  std::vector<std::uint16_t> ids;
  detail::listFields(b, ids);
  const std::size_t countOfB = ids.size();
  detail::listFields(a, ids);
  return ids.size() == countOfB &&
         std::all_of(ids.begin(), ids.end(), [&](std::uint16_t id) { return isSameField(a, b, id); });
}

void changedFields(const MD_Message& before, const MD_Message& after, std::vector<std::uint16_t>& changed,
                   std::vector<std::uint16_t>& removed) {
  const detail::SilentReports silence;
  detail::listFields(after, changed);
  changed.erase(
      std::remove_if(changed.begin(), changed.end(), [&](std::uint16_t id) { return isSameField(before, after, id); }),
      changed.end());
  detail::listFields(before, removed);
  removed.erase(std::remove_if(removed.begin(), removed.end(), [&](std::uint16_t id) { return after.contains(id); }),
                removed.end());
}

}  // namespace MD
