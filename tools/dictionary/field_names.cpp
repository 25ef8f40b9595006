#include "dictionary/field_names.h"

#include <charconv>
#include <system_error>

#include "base/diagnostics.h"
#include "base/utf8.h"
#include "text/json_text.h"
#include "text/value_text.h"

namespace MD::tool {
FieldNames::FieldNames() : m_map(MD_FieldMap::instance()), m_jsonKeys(std::size_t{m_map.compactCount()} + 1) {
  for (const FIELDS::field_rec& row : m_map) {
    std::string& key = m_jsonKeys[m_map.packed(row.id).slot];
    appendJsonString(label(row.id), key);
    key += ':';
  }
}

Field FieldNames::find(const std::string& key) const {
  Field field;
  if (isOfDigits(key)) {
    const char* const end = key.data() + key.size();
    const auto [rest, code] = std::from_chars(key.data(), end, field.id);
    if (code != std::errc() || !m_map.packed(field.id).isKnown()) {
      throw LineError("the dictionary has no field of this id", key);
    }
  } else {
    const auto row = m_map.findByName(key);
    if (row == m_map.end()) {
      throw LineError("the dictionary has no field of this name", key.empty() ? "\"\"" : key);
    }
    field.id = row->id;
  }
  field.type = type(field.id);
  if (!isCarried(field.type)) {
    throw LineError(std::string("values of type ") + typeName(field.type) + " are carried by no message", key);
  }
  return field;
}

std::string FieldNames::label(std::uint16_t id) const {
  const auto row = m_map.findById(id);
  return row != m_map.end() && isFoundByName(*row) ? row->name : std::to_string(id);
}

bool FieldNames::isFoundByName(const FIELDS::field_rec& row) const {
  const auto found = m_map.findByName(row.name);
  return found != m_map.end() && found->id == row.id && !isOfDigits(row.name) && isUtf8(row.name);
}

Field FieldCache::lookUp(std::string_view key) {
  // Ids can be spelled in any number of ways.
  constexpr std::size_t kMostEntries = 65536;
  Entry* entry = nullptr;
  if (const auto found = m_byKey.find(key); found != m_byKey.end()) {
    entry = found->second;
  } else {
    const Field field = m_names.find(std::string(key));
    if (m_entries.size() == kMostEntries) {
      return field;
    }
    entry = &m_entries.emplace_back(Entry{std::string(key), field, nullptr});
    m_byKey.emplace(entry->key, entry);
  }
  if (m_last != nullptr) {
    m_last->next = entry;
  }
  m_last = entry;
  return entry->field;
}

}  // namespace MD::tool
