#include "field_list.h"

#include <cstddef>

#include <algorithm>
#include <limits>

#include "md/md_fieldmap.h"

namespace MD::detail {
namespace {

// Looking at all pairs is faster than a table of all ids up to about this many.
constexpr std::size_t kFewIds = 48;

constexpr std::size_t kIdCount = std::size_t{std::numeric_limits<std::uint16_t>::max()} + 1;

bool areDistinct(const std::vector<std::uint16_t>& ids) {
  for (auto id = ids.begin(); id != ids.end(); ++id) {
    if (std::find(ids.begin(), id, *id) != id) {
      return false;
    }
  }
  return true;
}

/// Keeps the last of the ids that are equal.
void keepLast(std::vector<std::uint16_t>& ids) {
  std::vector<bool> isKept(kIdCount);
  auto kept = ids.rbegin();
  for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
    if (!isKept[*id]) {
      isKept[*id] = true;
      *kept++ = *id;
    }
  }
  ids.erase(ids.begin(), kept.base());
}

/// Drops the ids, each of which is there once, of records that are no fields: the earlier records of a repeated field
/// stay when it is erased.
void dropErased(const MD_Message& message, std::vector<std::uint16_t>& ids) {
  if (ids.size() == message.fieldCount()) {
    return;
  }
  const MD_FieldMap& map = MD_FieldMap::instance();
  const auto isErased = [&](std::uint16_t id) { return map.packed(id).isKnown() && !message.contains(id); };
  ids.erase(std::remove_if(ids.begin(), ids.end(), isErased), ids.end());
}

}  // namespace

void listFields(const MD_Message& message, std::vector<std::uint16_t>& ids) {
  message.get_field_ids(ids);
  if (ids.size() > kFewIds || !areDistinct(ids)) {
    keepLast(ids);
  }
  dropErased(message, ids);
}

void listFields(const MD_Message& message, std::vector<std::uint16_t>& ids, std::vector<std::uint32_t>& recordCounts) {
  message.get_field_ids(ids);
  if (ids.size() <= kFewIds && areDistinct(ids)) {
    dropErased(message, ids);
    recordCounts.assign(ids.size(), 1);
    return;
  }
  std::vector<std::uint32_t> countOfId(kIdCount);
  for (const std::uint16_t id : ids) {
    ++countOfId[id];
  }
  keepLast(ids);
  dropErased(message, ids);
  recordCounts.clear();
  for (const std::uint16_t id : ids) {
    recordCounts.push_back(countOfId[id]);
  }
}

}  // namespace MD::detail
