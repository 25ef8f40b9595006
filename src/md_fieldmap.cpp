#include "md/md_fieldmap.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <stdexcept>

#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>

#include "md/md_file_search.h"
#include "md_field_loader.h"

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
MD_FieldMap* g_instance = nullptr;    // the one that instance() keeps returning, whatever destroy() does

// What names the file of a reload may be the name of a row, which goes with the rows.
std::string copyOf(const std::string& text) { return text; }

std::string findConfiguration(const char* name) { return file_search(name, CONFIG_PATH, nullptr, "Korvane"); }

void loadDefault(MD_FieldMap& map) {
  std::string path = findConfiguration("field_map.txt");
  if (path.empty()) {
    path = findConfiguration("message/field_map.txt");
  }
  if (!path.empty()) {
    detail::loadTextFile(map, path, detail::PathOrigin::Search);
    return;
  }
  detail::loadXmlFile(map, findConfiguration("FieldDefinition.xml"), detail::PathOrigin::Search);
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
}

MD_FieldMap::const_iterator MD_FieldMap::findByName(const std::string& name) const {
  const auto hash = std::hash<std::string>()(name);
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

}  // namespace MD
