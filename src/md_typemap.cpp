#include "md_typemap.h"

#include <cstddef>

#include <iterator>

namespace MD::detail {
namespace {

constexpr bool hasEachNameOnce() {
  for (const FieldType& type : kFieldTypes) {
    if (findType(type.name) != &type) {
      return false;
    }
  }
  return true;
}

constexpr bool sharesOnlyTheCodeOfInt() {
  std::array<bool, kIterMapWidths.size()> isTaken{};
  for (const FieldType& type : kFieldTypes) {
    if (isTaken[type.code] != (type.name == "OPTI_PRICE")) {
      return false;
    }
    isTaken[type.code] = true;
  }
  return true;
}

static_assert(std::size(kFieldTypes) == 22);
static_assert(hasEachNameOnce(), "a name must have one type");
static_assert(sharesOnlyTheCodeOfInt(), "types other than OPTI_PRICE must have codes of their own");

}  // namespace
}  // namespace MD::detail
