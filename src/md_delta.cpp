#include "md/md_delta.h"

#include <cstddef>

#include <algorithm>
#include <optional>
#include <utility>

#include "field_list.h"
#include "report.h"

namespace MD {

Delta::Delta(Field<MD_Message::Buffer> removedIds, std::vector<std::uint16_t> keys)
    : m_removedIds(removedIds), m_keys(std::move(keys)) {}

bool Delta::diff(const MD_Message& before, const MD_Message& after, MD_Message& delta) {
  if (&delta == &before || &delta == &after) {
    delta.clear();
    return false;
  }
  changedFields(before, after, m_changed, m_removed);
  for (const std::uint16_t key : m_keys) {
    if (after.contains(key) && std::find(m_changed.begin(), m_changed.end(), key) == m_changed.end()) {
      m_changed.push_back(key);
    }
  }
  m_bytes.clear();
  for (const std::uint16_t id : m_removed) {
    m_bytes.push_back(static_cast<std::uint8_t>(id & 0xff));
    m_bytes.push_back(static_cast<std::uint8_t>(id >> 8));
  }
  const detail::SilentReports silence;
  delta.clear();
  if (!before.contains(m_removedIds) && !after.contains(m_removedIds) && copyFields(after, m_changed, delta).empty() &&
      (m_bytes.empty() || delta.add(m_removedIds, m_bytes))) {
    return true;
  }
  delta.clear();
  return false;
}

/// Lists the removed fields of a delta. @return false when its list is none
bool Delta::readRemoved(const MD_Message& delta) {
  m_removed.clear();
  if (!delta.contains(m_removedIds)) {
    return true;
  }
  const auto bytes = delta.get(m_removedIds);
  if (!bytes.has_value() || bytes->length % 2 != 0) {
    return false;
  }
  for (std::size_t i = 0; i != bytes->length; i += 2) {
    m_removed.push_back(static_cast<std::uint16_t>(bytes->data[i] | bytes->data[i + 1] << 8));
  }
  return std::none_of(m_removed.begin(), m_removed.end(), [&](std::uint16_t id) { return delta.contains(id); });
}

bool Delta::apply(const MD_Message& delta, MD_Message& state) {
  const detail::SilentReports silence;
  if (&delta == &state || !readRemoved(delta)) {
    return false;
  }
  detail::listFields(delta, m_changed);
  m_changed.erase(std::remove(m_changed.begin(), m_changed.end(), m_removedIds.id()), m_changed.end());
  return state.takeChanges(delta, m_changed, m_removed);
}

}  // namespace MD
