#include "dictionary_properties.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <stdexcept>
#include <utility>

#include "fuzz_target.h"
#include "md/md_fieldmap.h"
#include "md/md_message.h"
#include "received_message.h"
#include "support/messages.h"

namespace MD::fuzz {
namespace {

constexpr std::pair<const char*, std::uint8_t> kTypes[] = {
    {"RAW", 0},        {"CHAR", 1},        {"INT", 2},       {"SHORT", 3},      {"FLOAT", 4}, {"DOUBLE", 5},
    {"STRING", 6},     {"VECTOR", 7},      {"MSG_T", 8},     {"DATE", 9},       {"TIME", 10}, {"FRACTION", 11},
    {"CHILD_MSG", 12}, {"FOLDED_INT", 13}, {"BUFFER", 14},   {"OPTI_PRICE", 2}, {"UINT", 16}, {"LONG_INT", 17},
    {"ULONG_INT", 18}, {"INT64", 19},      {"DATETIME", 20}, {"EPOCH_NSEC", 22}};

const char* typeName(std::uint8_t code) {
  return std::find_if(std::begin(kTypes), std::end(kTypes), [&](const auto& type) { return type.second == code; })
      ->first;
}

template <class Use>
bool throwsDomainError(Use use) {
  try {
    use();
    return false;
  } catch (const std::domain_error&) {
    return true;
  }
}

void checkUnknown(std::uint16_t id) {
  const MD_FieldMap& map = MD_FieldMap::instance();
  MD_PROPERTY(map.findById(id) == map.end() && !map.packed(id).isKnown(), "finds id " + std::to_string(id));
  MD_PROPERTY(throwsDomainError([&] { map.idToType(id); }) && throwsDomainError([&] { map.idToName(id); }),
              "knows id " + std::to_string(id));
}

}  // namespace

std::vector<Row> loadedRows() {
  std::vector<Row> rows;
  for (const auto& row : MD_FieldMap::instance()) {
    rows.push_back({row.id, row.compact, row.type, row.name});
  }
  std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.compact < b.compact; });
  return rows;
}

std::string differenceOf(const std::vector<Row>& expected, const std::vector<Row>& rows) {
  if (expected.size() != rows.size()) {
    return std::to_string(rows.size()) + " rows instead of " + std::to_string(expected.size());
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Row& a = expected[i];
    const Row& b = rows[i];
    if (a.id != b.id || a.compact != b.compact || a.type != b.type || a.name != b.name) {
      return "row " + b.name + " with id " + std::to_string(b.id) + ", compact number " + std::to_string(b.compact) +
             ", type " + std::to_string(b.type) + " instead of " + a.name + ", " + std::to_string(a.id) + ", " +
             std::to_string(a.compact) + ", " + std::to_string(a.type);
    }
  }
  return "";
}

void checkLookUps() {
  const MD_FieldMap& map = MD_FieldMap::instance();
  const std::vector<Row> rows = loadedRows();
  MD_PROPERTY(map.size() == rows.size() && rows.size() <= map.compactCount(), "counts rows otherwise");
  std::map<std::string, std::uint16_t> byName;
  std::vector<bool> hasCompact(std::size_t{map.compactCount()} + 2);
  std::vector<bool> hasId(65536);
  for (const Row& row : rows) {
    MD_PROPERTY(row.compact < map.compactCount(), "a compact number above the count");
    byName[row.name] = std::max(byName[row.name], row.id);
    hasCompact[row.compact] = true;
    hasId[row.id] = true;
    const auto byId = map.findById(row.id);
    MD_PROPERTY(byId != map.end() && byId->name == row.name && byId == map.findByCompact(row.compact),
                "does not find id " + std::to_string(row.id));
    MD_PROPERTY(map.idToType(row.id) == row.type && map.idToName(row.id) == row.name, "tells another type or name");
    const auto packed = map.packed(row.id);
    MD_PROPERTY(packed.slot == row.compact + 1 && packed.type == row.type, "packs a row otherwise");
  }
  for (const auto& [name, id] : byName) {
    MD_PROPERTY(map.nameToId(name) == id && map.nameToType(name) == map.idToType(id) && map.findByName(name)->id == id,
                "name " + name + " leads elsewhere");
  }
  for (std::size_t compact = 0; compact < hasCompact.size(); ++compact) {
    MD_PROPERTY(hasCompact[compact] || map.findByCompact(static_cast<std::uint16_t>(compact)) == map.end(),
                "finds compact number " + std::to_string(compact));
  }
  const auto checkWhereUnknown = [&](std::uint16_t id) {
    if (!hasId[id]) {
      checkUnknown(id);
    }
  };
  for (const Row& row : rows) {
    checkWhereUnknown(static_cast<std::uint16_t>(row.id - 1));
    checkWhereUnknown(static_cast<std::uint16_t>(row.id + 1));
  }
  // Nothing stays of the dictionary before.
  static std::vector<std::uint16_t> formerIds;
  for (const std::uint16_t id : formerIds) {
    checkWhereUnknown(id);
  }
  formerIds.clear();
  for (const Row& row : rows) {
    formerIds.push_back(row.id);
  }
  const std::string unknown = rows.empty() ? "X" : rows.front().name + "?";
  if (byName.count(unknown) == 0) {
    MD_PROPERTY(map.findByName(unknown) == map.end() && throwsDomainError([&] { map.nameToId(unknown); }) &&
                    throwsDomainError([&] { map.nameToType(unknown); }),
                "knows a name that is not there");
  }
}

void checkMessages() {
  const std::vector<Row> rows = loadedRows();
  for (const std::uint8_t code : kEncodings) {
    const auto message = MD_Message::createFromPB(code);
    std::map<std::uint16_t, std::string> added;
    for (const Row& row : rows) {
      for (const test::ValueType& type : test::valueTypes()) {
        if (type.code == row.type && added.size() < 16) {
          MD_PROPERTY(type.add(*message, row.id, 0), "field " + row.name + " is not added");
          added[row.id] = type.raw(0);
        }
      }
    }
    MD_PROPERTY(valuesOf(*message).raw == added && message->fieldCount() == added.size(), "fields read otherwise");
    MD_PROPERTY(valuesOf(*test::parse(code, test::bytesOf(*message))).raw == added, "parsed fields read otherwise");
  }
}

bool haveSimpleNames(const std::vector<Row>& rows) {
  return std::all_of(rows.begin(), rows.end(), [](const Row& row) {
    return !row.name.empty() && std::all_of(row.name.begin(), row.name.end(), [](char c) { return c > 32 && c < 127; });
  });
}

std::string asText(const std::vector<Row>& rows) {
  std::string text;
  for (const Row& row : rows) {
    text += row.name + ' ' + std::to_string(row.id) + ' ' + typeName(row.type) + '\n';
  }
  return text;
}

std::string asXml(const std::vector<Row>& rows) {
  std::string xml = "<D><FieldDefinition>";
  for (const Row& row : rows) {
    xml += "<Entry><Name>";
    for (const char c : row.name) {
      xml += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    xml += "</Name><Code>" + std::to_string(row.id) + "</Code><Type>" + typeName(row.type) + "</Type></Entry>\n";
  }
  return xml + "</FieldDefinition></D>";
}

std::vector<Row> renumbered(std::vector<Row> rows) {
  std::uint16_t compact = 0;
  for (Row& row : rows) {
    row.compact = compact++;
  }
  return rows;
}

int typeCode(const std::string& name) {
  for (const auto& [typeName, code] : kTypes) {
    if (name == typeName) {
      return code;
    }
  }
  return -1;
}

MemoryFile::MemoryFile(const std::string& contents)
    : m_descriptor(memfd_create("definitions", 0)), m_path("/proc/self/fd/" + std::to_string(m_descriptor)) {
  MD_PROPERTY(m_descriptor >= 0 &&
                  write(m_descriptor, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size()),
              "cannot write a file in memory");
}

MemoryFile::~MemoryFile() { close(m_descriptor); }

}  // namespace MD::fuzz
