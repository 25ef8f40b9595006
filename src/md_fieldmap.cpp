#include "md/md_fieldmap.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <stdexcept>

#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>

#include "file_opening.h"
#include "md/md_escape.h"
#include "md_field_loader.h"
#include "search_platform.h"

namespace MD {
namespace {

using Lock = boost::lock_guard<boost::mutex>;

// Guards creation, the load at creation, load_file() and destroy(). Never destroyed: static objects of other modules
// may reach the dictionary while the process exits.
boost::mutex& dictionaryMutex() {
  static auto& mutex = *new boost::mutex;
  return mutex;
}

MD_FieldMap* g_dictionary = nullptr;  // guarded by dictionaryMutex(), as the next
MD_FieldMap* g_instance = nullptr;    // always returned by instance(), even after destroy()

// What names the file of a reload may be the name of a row, which goes with the rows.
std::string copyOf(const std::string& text) { return text; }

constexpr const char* kTextFile = "field_map.txt";
constexpr const char* kTextFileInFolder = "message/field_map.txt";
constexpr const char* kXmlFile = "FieldDefinition.xml";

void loadDefault(MD_FieldMap& map) {
  std::string path = detail::findConfiguration(kTextFile);
  if (path.empty()) {
    path = detail::findConfiguration(kTextFileInFolder);
  }
  if (!path.empty()) {
    detail::loadTextFile(map, path, detail::PathOrigin::Search);
    return;
  }
  detail::loadXmlFile(map, detail::findConfiguration(kXmlFile), detail::PathOrigin::Search);
}

/// Which dictionary a field is not in, for a program's user.
std::string describe(const MD_FieldMap& map) {
  if (map.size() != 0) {
    return " in the dictionary " + escaped(map.source()) + " (" + std::to_string(map.size()) + " fields)";
  }
  if (!map.source().empty()) {
    return ": the dictionary " + escaped(map.source()) + " has no fields";
  }
  return std::string(": no dictionary is loaded; ") + kTextFile + ", " + kTextFileInFolder + " and " + kXmlFile +
         " are searched in " + escaped(detail::searchedFolders(detail::searchPlatform(), CONFIG_PATH));
}

}  // namespace

MD_FieldMap& MD_FieldMap::createLocked() {
  if (g_dictionary == nullptr) {
    g_dictionary = new MD_FieldMap;
    loadDefault(*g_dictionary);
  }
  return *g_dictionary;
}

MD_FieldMap* MD_FieldMap::createForInstance() {
  const Lock lock(dictionaryMutex());
  g_instance = &createLocked();
  return g_instance;
}

const MD_FieldMap& MD_FieldMap::instance() {
  // A thread that finds it created sees all of it: the test of a local static acquires what its initialisation
  // released.
  static const MD_FieldMap* const dictionary = createForInstance();
  return *dictionary;
}

int MD_FieldMap::load_file(const std::string& path) {
  const Lock lock(dictionaryMutex());
  if (g_dictionary != nullptr) {
    return -1;
  }
  g_dictionary = new MD_FieldMap;
  try {
    detail::loadXmlFile(*g_dictionary, path, detail::PathOrigin::Caller);
  } catch (const std::exception&) {
    return -2;
  }
  return 0;
}

MD_FieldMap& MD_FieldMap::emptied() {
  MD_FieldMap* map = nullptr;
  {
    const Lock lock(dictionaryMutex());
    map = &createLocked();
  }
  clear_data_structures(map);
  return *map;
}

// Like load_file(): a program with its own fields does not depend on other files.
MD_FieldMap& MD_FieldMap::emptiedWithoutSearch() {
  MD_FieldMap* map = nullptr;
  {
    const Lock lock(dictionaryMutex());
    if (g_dictionary == nullptr) {
      g_dictionary = new MD_FieldMap;
    }
    map = g_dictionary;
  }
  clear_data_structures(map);
  return *map;
}

void MD_FieldMap::reload(const std::string& path) {
  const std::string ownPath = copyOf(path);
  MD_FieldMap& map = emptied();
  if (ownPath.empty()) {
    loadDefault(map);
  } else {
    detail::loadXmlFile(map, ownPath, detail::PathOrigin::Caller);
  }
}

void MD_FieldMap::reload_xml(const std::string& path) {
  const std::string ownPath = copyOf(path);
  detail::loadXmlFile(emptied(), ownPath, detail::PathOrigin::Caller);
}

void MD_FieldMap::reload_xml(std::istream& xml, const std::string& name) {
  const std::string ownName = copyOf(name);
  detail::loadXmlStream(emptied(), xml, ownName);
}

void MD_FieldMap::reload_text(const std::string& path) {
  const std::string ownPath = copyOf(path);
  detail::loadTextFile(emptied(), ownPath, detail::PathOrigin::Caller);
}

void MD_FieldMap::reload_text(std::istream& text, const std::string& name) {
  const std::string ownName = copyOf(name);
  detail::loadTextStream(emptied(), text, ownName);
}

LoadReport MD_FieldMap::loadText(std::string_view text, const std::string& name) {
  const std::string ownText(text);
  const std::string ownName = copyOf(name);
  return detail::loadTextReporting(emptiedWithoutSearch(), ownText, ownName);
}

LoadReport MD_FieldMap::loadTextFile(const std::string& path) {
  const std::string ownPath = copyOf(path);
  return detail::loadTextFileReporting(emptiedWithoutSearch(), ownPath);
}

std::string to_string(const LoadReport& report) {
  std::string text;
  for (const LoadReport::Problem& problem : report.problems) {
    appendEscaped(report.source, text);
    text += ':' + std::to_string(problem.line) + ": field ";
    appendEscaped(problem.entry, text);
    text += ": " + problem.reason + (problem.isSkipped ? "; skipped\n" : "\n");
  }
  if (report.problemCount > report.problems.size()) {
    appendEscaped(report.source, text);
    text += ": " + std::to_string(report.problemCount - report.problems.size()) + " more problems\n";
  }
  return text;
}

void MD_FieldMap::destroy() {
  const Lock lock(dictionaryMutex());
  if (g_dictionary == nullptr) {
    return;
  }
  clear_data_structures(g_dictionary);
  if (g_dictionary != g_instance) {
    delete g_dictionary;
  }
  g_dictionary = nullptr;
}

void MD_FieldMap::clear_data_structures(MD_FieldMap* map) {
  if (map == nullptr) {
    return;
  }
  // The indexes refer into the rows, so they go first, and with their memory.
  map->m_packed.fill({});
  std::vector<const_iterator>().swap(map->m_id_index);
  std::vector<const_iterator>().swap(map->m_compact_index);
  decltype(map->m_name_index)().swap(map->m_name_index);
  map->m_rows.clear();
  map->m_compact_count = 0;
  std::string().swap(map->m_source);
}

MD_FieldMap::const_iterator MD_FieldMap::find(std::string_view name) const noexcept {
  const auto hash = std::hash<std::string_view>()(name);
  const auto before = [](std::size_t value, const auto& entry) { return value < entry.first; };
  // Backwards: of two rows with one name the higher id wins.
  for (auto i = std::upper_bound(m_name_index.begin(), m_name_index.end(), hash, before);
       i != m_name_index.begin() && (--i)->first == hash;) {
    if (i->second->name == name) {
      return i->second;
    }
  }
  return m_rows.end();
}

MD_FieldMap::const_iterator MD_FieldMap::findByName(const std::string& name) const { return find(name); }

MD_FieldMap::const_iterator MD_FieldMap::require(const_iterator row, const char* operation) const {
  if (row == m_rows.end()) {
    throw std::domain_error(std::string("Invalid id passed to MD_FieldMap::") + operation + "()");
  }
  return row;
}

std::uint8_t MD_FieldMap::idToType(std::uint16_t id) const { return require(findById(id), "idToType")->type; }

const std::string& MD_FieldMap::idToName(std::uint16_t id) const { return require(findById(id), "idToName")->name; }

std::uint16_t MD_FieldMap::nameToId(const std::string& name) const { return require(findByName(name), "nameToId")->id; }

std::uint8_t MD_FieldMap::nameToType(const std::string& name) const {
  return require(findByName(name), "nameToType")->type;
}

std::uint64_t MD_FieldMap::fingerprint() const noexcept {
  std::uint64_t hash = 0xcbf29ce484222325;
  const auto add = [&hash](std::uint64_t byte) { hash = (hash ^ byte) * 0x100000001b3; };
  for (const FIELDS::field_rec& row : m_rows) {
    add(row.id & 0xff);
    add(row.id >> 8);
    add(row.type);
    for (unsigned shift = 0; shift != 32; shift += 8) {
      add(std::uint64_t{row.name.size()} >> shift & 0xff);
    }
    for (const char c : row.name) {
      add(static_cast<std::uint8_t>(c));
    }
  }
  return hash;
}

std::optional<std::uint16_t> MD_FieldMap::lookUp(std::string_view name) const noexcept {
  const auto row = find(name);
  return row != m_rows.end() ? std::optional(row->id) : std::nullopt;
}

std::optional<std::uint16_t> lookUp(std::string_view name) { return MD_FieldMap::instance().lookUp(name); }

std::uint16_t require(std::string_view name) {
  const MD_FieldMap& map = MD_FieldMap::instance();
  const auto id = map.lookUp(name);
  if (!id.has_value()) {
    throw std::domain_error("no field \"" + escaped(name) + '"' + describe(map));
  }
  return *id;
}

}  // namespace MD
