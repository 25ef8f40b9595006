// The dictionary that is loaded, as text.
#ifndef MD_TESTS_TOOLS_DICTIONARY_SUPPORT_H
#define MD_TESTS_TOOLS_DICTIONARY_SUPPORT_H

#include <set>
#include <string>

#include "md/md_fieldmap.h"

namespace MD::test {

/// Rows as "compact id name type".
inline std::set<std::string> loadedRows() {
  std::set<std::string> rows;
  for (const auto& row : MD_FieldMap::instance()) {
    rows.insert(std::to_string(row.compact) + ' ' + std::to_string(row.id) + ' ' + row.name + ' ' +
                std::to_string(row.type));
  }
  return rows;
}

}  // namespace MD::test

#endif
