#include "dictionary/field_names.h"

#include <charconv>
#include <system_error>

#include "base/diagnostics.h"
#include "base/utf8.h"
#include "dictionary/dictionary.h"
#include "text/json_text.h"
#include "text/similar_words.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

/// Denotes more than one row.
const FIELDS::field_rec kSeveral{};

LineError notThere(const std::string& key) {
  return LineError("not in the " + dictionaryText(), key.empty() ? "\"\"" : key, ReportKind::Unknown);
}

}  // namespace

FieldNames::FieldNames() : m_map(MD_FieldMap::instance()), m_jsonKeys(std::size_t{m_map.compactCount()} + 1) {
  for (const FIELDS::field_rec& row : m_map) {
    std::string& key = m_jsonKeys[m_map.packed(row.id).slot];
    appendJsonString(label(row.id), key);
    key += ':';
  }
}

Field FieldNames::find(const std::string& key) const {
  if (const FIELDS::field_rec* const row = entry(key)) {
    return carried(*row, key);
  }
  throw notThere(key);
}

Field FieldNames::match(const std::string& key) const { return carried(matchEntry(key), key); }

Field FieldNames::match(const std::string& where, const std::string& key) const {
  try {
    return match(key);
  } catch (const LineError& error) {
    throw UsageError(where + ": field " + printable(error.field()) + ": " + error.what());
  }
}

const FIELDS::field_rec& FieldNames::matchEntry(const std::string& key) const {
  if (const FIELDS::field_rec* const row = entry(key)) {
    return *row;
  }
  const FIELDS::field_rec* found = nullptr;
  std::string names;
  for (const FIELDS::field_rec& row : m_map) {
    if (isEqualIgnoringCase(row.name, key) && isFoundByName(row)) {
      names += (found == nullptr ? "" : ", ") + printable(row.name);
      found = found == nullptr ? &row : &kSeveral;
    }
  }
  if (found == &kSeveral) {
    throw LineError("several fields have this name in another case: " + names, key);
  }
  if (found == nullptr) {
    throw LineError(notThere(key).what() + questionAbout(key), key.empty() ? "\"\"" : key);
  }
  return *found;
}

/// The row that a key leads to, or null.
const FIELDS::field_rec* FieldNames::entry(const std::string& key) const {
  auto row = m_map.end();
  if (isOfDigits(key)) {
    std::uint16_t id = 0;
    const auto [rest, code] = std::from_chars(key.data(), key.data() + key.size(), id);
    row = code == std::errc() ? m_map.findById(id) : row;
  } else {
    row = m_map.findByName(key);
  }
  return row != m_map.end() ? &*row : nullptr;
}

Field FieldNames::carried(const FIELDS::field_rec& row, const std::string& key) const {
  const Field field{row.id, type(row.id)};
  if (!isCarried(field.type)) {
    throw LineError(std::string("values of type ") + typeName(field.type) + " are not carried by messages", key);
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

std::string questionAbout(const std::string& name) {
  SimilarWord similar(name);
  for (const FIELDS::field_rec& row : MD_FieldMap::instance()) {
    similar.offer(row.name);
  }
  return similar.question();
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
