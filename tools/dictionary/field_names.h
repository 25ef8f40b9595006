// How fields are called in text: by their dictionary names, or by their ids where a name would not lead back.
#ifndef MDMSG_FIELD_NAMES_H
#define MDMSG_FIELD_NAMES_H

#include <cstdint>

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "md/md_fieldmap.h"

namespace MD::tool {

struct Field {
  std::uint16_t id = 0;
  std::uint8_t type = 0;
};

/// A key of digits alone is an id, any other key a name. So a field goes by its id when its name consists of digits, is
/// not UTF-8, or belongs to a second field that the dictionary prefers.
class FieldNames {
 public:
  /// Of the process's dictionary as it is now.
  FieldNames();

  /// The field that a key of data names, of a type that messages carry.
  /// @throws LineError when there is none
  Field find(const std::string& key) const;

  /// The same for a key that a user has written: a name that the dictionary does not have may differ in case from the
  /// only one like it.
  /// @throws LineError likewise; it names the fields that may be meant
  Field match(const std::string& key) const;
  /// The same for an option.
  /// @param where  the option, for the error
  /// @throws UsageError
  Field match(const std::string& where, const std::string& key) const;

  /// The entry of the dictionary, of any type. @throws LineError like match()
  const FIELDS::field_rec& matchEntry(const std::string& key) const;

  std::uint8_t type(std::uint16_t id) const noexcept { return m_map.packed(id).type; }
  /// The key as a JSON string with its colon.
  const std::string& jsonKey(std::uint16_t id) const noexcept { return m_jsonKeys[m_map.packed(id).slot]; }
  /// The key, for reports.
  std::string label(std::uint16_t id) const;

 private:
  const FIELDS::field_rec* entry(const std::string& key) const;
  Field carried(const FIELDS::field_rec& row, const std::string& key) const;
  bool isFoundByName(const FIELDS::field_rec& row) const;

  const MD_FieldMap& m_map;
  std::vector<std::string> m_jsonKeys;  // by slot
};

/// "; did you mean BID?": the field whose name is most like an unknown one, if one is.
std::string questionAbout(const std::string& name);

/// Finds the fields of one message after the other: keys that follow one another in a message are expected to do so in
/// the next.
class FieldCache {
 public:
  /// @param names  outlives the cache
  explicit FieldCache(const FieldNames& names) : m_names(names) {}

  /// As FieldNames::find().
  Field find(std::string_view key) {
    if (m_last != nullptr && m_last->next != nullptr && m_last->next->key == key) {
      m_last = m_last->next;
      return m_last->field;
    }
    return lookUp(key);
  }

 private:
  struct Entry {
    std::string key;
    Field field;
    Entry* next = nullptr;  // the entry that followed it last
  };

  Field lookUp(std::string_view key);

  const FieldNames& m_names;
  std::deque<Entry> m_entries;  // which stay where they are
  std::unordered_map<std::string_view, Entry*> m_byKey;
  Entry* m_last = nullptr;
};

}  // namespace MD::tool

#endif
