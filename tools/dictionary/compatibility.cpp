#include "dictionary/compatibility.h"

#include "md/md_datatypes.h"
#include "md/md_fieldmap.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

std::string withType(const DictionaryRow& row) { return row.name + ' ' + typeName(row.type); }

using Ids = std::map<std::string_view, std::uint16_t>;

/// Where a name is that is once in the one dictionary and once in the other, when that is another id.
std::optional<std::uint16_t> movedTo(const std::string& name, std::uint16_t id, const Ids& here, const Ids& there) {
  const auto found = there.find(name);
  return here.count(name) != 0 && found != there.end() && found->second != id ? std::optional(found->second)
                                                                              : std::nullopt;
}

}  // namespace

DictionaryRows currentRows() {
  DictionaryRows rows;
  for (const FIELDS::field_rec& row : MD_FieldMap::instance()) {
    rows[row.id] = {row.name, row.type};
  }
  return rows;
}

std::map<std::string_view, std::uint16_t> idsByName(const DictionaryRows& rows) {
  Ids ids;
  std::map<std::string_view, std::size_t> counts;
  for (const auto& [id, row] : rows) {
    ids[row.name] = id;
    ++counts[row.name];
  }
  for (const auto& [name, count] : counts) {
    if (count != 1) {
      ids.erase(name);
    }
  }
  return ids;
}

std::vector<Incompatibility> incompatibilities(const DictionaryRows& before, const DictionaryRows& after,
                                               Compatibility level, std::optional<std::uint8_t> encoding) {
  const Ids idsBefore = idsByName(before);
  const Ids idsAfter = idsByName(after);
  const bool areNamesKnown = level != Compatibility::Wire;
  // Records of IterMap contain neither type nor, for most types, length: what follows an unknown one is lost. Readers
  // of the other encodings skip it.
  const bool mustBeKnown = !encoding || *encoding == ENCODINGS::ITERMAP;
  std::vector<Incompatibility> found;
  DictionaryRows all = before;
  all.insert(after.begin(), after.end());
  for (const auto& [id, row] : all) {
    const auto was = before.find(id);
    const auto is = after.find(id);
    if (was != before.end() && is != after.end()) {
      const bool isRenamed = areNamesKnown && was->second.name != is->second.name;
      const bool isRetyped = was->second.type != is->second.type;
      if ((!isRenamed && !isRetyped) || (!isCarried(was->second.type) && !isCarried(is->second.type))) {
        continue;
      }
      const auto moved = isRenamed ? movedTo(was->second.name, id, idsBefore, idsAfter) : std::nullopt;
      const std::string where = moved ? "; the name moved to id " + std::to_string(*moved) : "";
      if (isRenamed && isRetyped) {
        found.push_back({"reused", id, withType(was->second) + " -> " + withType(is->second),
                         "the id is used for another name and type" + where});
      } else if (isRenamed) {
        found.push_back(
            {"renamed", id, was->second.name + " -> " + is->second.name, "the id is used for another name" + where});
      } else {
        found.push_back({"retyped", id,
                         is->second.name + ' ' + typeName(was->second.type) + " -> " + typeName(is->second.type),
                         "the id is used with another type"});
      }
    } else if (!isCarried(row.type)) {
      continue;
    } else if (is == after.end()) {
      const auto moved = areNamesKnown ? movedTo(row.name, id, idsBefore, idsAfter) : std::nullopt;
      if (moved) {
        found.push_back({"renumbered", id, row.name + " -> " + std::to_string(*moved), "the name moved to another id"});
      } else if (mustBeKnown && level != Compatibility::Forward) {
        found.push_back(
            {"removed", id, withType(row), "IterMap readers with the new dictionary misread what follows the field"});
      }
    } else if (const bool isReportedAtOldId = areNamesKnown && movedTo(row.name, id, idsAfter, idsBefore);
               !isReportedAtOldId && mustBeKnown && level != Compatibility::Backward) {
      found.push_back(
          {"added", id, withType(row), "IterMap readers with the old dictionary misread what follows the field"});
    }
  }
  return found;
}

}  // namespace MD::tool
