#include "md/md_field_check.h"

#include <stdexcept>
#include <string>

#include "md/md_escape.h"
#include "md/md_fieldmap.h"
#include "md_typemap.h"

namespace MD {
namespace {

constexpr std::size_t kMostDifferences = 10;

void appendIdAndType(std::uint16_t id, std::uint8_t type, std::string& out) {
  out += "id " + std::to_string(id) + ' ';
  if (const detail::FieldType* const found = detail::findType(type)) {
    out += found->name;
  } else {
    out += "of type code " + std::to_string(type);
  }
}

/// require() of a field that the dictionary does not have, with the type of exception that checkFields() throws.
void requireAsExpected(const char* name) {
  try {
    static_cast<void>(require(name));
  } catch (const std::domain_error& error) {
    throw std::runtime_error(error.what());
  }
}

/// The row with the expected id and name or, where there is none, the one with the name.
MD_FieldMap::const_iterator rowOf(const ExpectedField& field, const MD_FieldMap& map) {
  const auto byId = map.findById(field.id);
  if (byId != map.end() && byId->name == field.name) {
    return byId;
  }
  return map.findByName(field.name);
}

}  // namespace

void checkFields(const ExpectedField* fields, std::size_t count) {
  const MD_FieldMap& map = MD_FieldMap::instance();
  if (map.size() == 0 && count != 0) {
    requireAsExpected(fields[0].name);  // its text says where a dictionary was looked for
  }
  std::string differences;
  std::size_t differing = 0;
  for (std::size_t i = 0; i != count; ++i) {
    const ExpectedField& field = fields[i];
    const auto row = rowOf(field, map);
    if (row != map.end() && row->id == field.id && row->type == field.type) {
      continue;
    }
    if (++differing > kMostDifferences) {
      continue;
    }
    differences += differences.empty() ? "" : "; ";
    appendEscaped(field.name, differences);
    differences += ": expected ";
    appendIdAndType(field.id, field.type, differences);
    differences += ", found ";
    if (row != map.end()) {
      appendIdAndType(row->id, row->type, differences);
    } else {
      differences += "no field of this name";
    }
  }
  if (differing == 0) {
    return;
  }
  if (differing > kMostDifferences) {
    differences += "; and " + std::to_string(differing - kMostDifferences) + " more";
  }
  std::string text = "the dictionary";
  if (!map.source().empty()) {
    text += ' ' + escaped(map.source());
  }
  throw std::runtime_error(text + " does not match the fields of this program: " + differences);
}

}  // namespace MD
