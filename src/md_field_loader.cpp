#include "md_field_loader.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <fstream>
#include <functional>
#include <limits>
#include <locale>
#include <memory>
#include <stdexcept>
#include <utility>

#include <tinyxml.h>

#include "assertion.h"

namespace MD {

FieldMapLoader::FieldMapLoader(MD_FieldMap& map, const detail::TypeMap& types, const std::string& source)
    : m_map(map), m_types(types), m_source(source) {
  m_map.m_compact_count = 0;
}

void FieldMapLoader::accept(std::string name, std::uint16_t id, const std::string& typeName) {
  const auto type = m_types.find(typeName);
  if (type == m_types.end()) {
    return;
  }
  if (m_map.m_compact_count == std::numeric_limits<std::uint16_t>::max()) {
    throw std::runtime_error("Too many fields (more than 65535) in field def file: " + m_source);
  }
  m_entries.push_back({id, m_map.m_compact_count, type->second.id, std::move(name)});
  ++m_map.m_compact_count;
}

void FieldMapLoader::finish() {
  constexpr const char* kFile = "md_message/src/md_fieldmap";
  auto& rows = m_map.m_rows;
  auto& m_id_index = m_map.m_id_index;
  auto& m_compact_index = m_map.m_compact_index;

  // In order of their ids each row's place is the end, and the rows lie in memory as they are walked.
  std::stable_sort(m_entries.begin(), m_entries.end());
  for (auto& entry : m_entries) {
    rows.insert(rows.end(), std::move(entry));
  }
  m_map.m_largest_id = rows.empty() ? std::uint16_t{0} : rows.rbegin()->id;
  m_id_index.assign(std::size_t{m_map.m_largest_id} + 1, rows.end());
  m_compact_index.assign(std::size_t{m_map.m_compact_count} + 1, rows.end());
  m_map.m_packed.fill({});
  m_map.m_name_index.reserve(rows.size());
  for (auto i = rows.begin(); i != rows.end(); ++i) {
    if (!detail::check(i->id < m_id_index.size(), "i->id < m_id_index.size()", kFile, __LINE__) ||
        !detail::check(i->compact < m_compact_index.size(), "i->compact < m_compact_index.size()", kFile, __LINE__)) {
      continue;
    }
    m_id_index[i->id] = i;
    m_compact_index[i->compact] = i;
    m_map.m_packed[i->id] = {static_cast<std::uint16_t>(i->compact + 1), i->type};
    m_map.m_name_index.emplace_back(std::hash<std::string>()(i->name), i);
  }
  std::sort(m_map.m_name_index.begin(), m_map.m_name_index.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first < b.first : a.second->id < b.second->id;
  });
}

namespace detail {
namespace {

constexpr std::size_t kMaxNesting = 100;

// Opening a directory succeeds where reading from it then fails in ways that look like an empty or endless file. Asked
// of the C runtime, which reads a narrow path as opening it does; std::filesystem may take it for another encoding.
bool isDirectory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == S_IFDIR;
}

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { static_cast<void>(std::fclose(file)); }
};

std::string readAll(std::FILE* file) {
  std::string text;
  char block[65536];
  for (std::size_t count; (count = std::fread(block, 1, sizeof block, file)) != 0;) {
    text.append(block, count);
  }
  return text;
}

/// The end of the tag whose '<' stands at `position`: the place behind its '>', or of the text.
std::size_t tagEnd(const std::string& text, std::size_t position) {
  while ((position = text.find_first_of(">\"'", position)) != std::string::npos && text[position] != '>') {
    const std::size_t quoteEnd = text.find(text[position], position + 1);
    position = quoteEnd != std::string::npos ? quoteEnd + 1 : position + 1;
  }
  return position != std::string::npos ? position + 1 : text.size();
}

/// Whether elements nest deeper than `limit`. TinyXML parses and frees them recursively, so a file of nothing but
/// opening tags would overflow the stack. What is malformed may count as deeper than it is, never as shallower.
bool nestsDeeperThan(std::size_t limit, const std::string& text) {
  const auto startsWith = [&text](std::size_t position, const char* start) {
    return text.compare(position, std::strlen(start), start) == 0;
  };
  const auto behind = [&text](const char* end, std::size_t position) {
    const std::size_t found = text.find(end, position);
    return found != std::string::npos ? found + std::strlen(end) : text.size();
  };
  std::size_t depth = 0;
  for (std::size_t position = 0; (position = text.find('<', position)) != std::string::npos;) {
    if (startsWith(position, "<!--")) {
      position = behind("-->", position + 4);
    } else if (startsWith(position, "<![CDATA[")) {
      position = behind("]]>", position);
    } else if (startsWith(position, "<!") || startsWith(position, "<?")) {
      position = behind(">", position);
    } else if (startsWith(position, "</")) {
      depth -= depth != 0 ? 1U : 0U;
      position = behind(">", position);
    } else {
      position = tagEnd(text, position);
      if (text[position - 1] != '>' || text[position - 2] != '/') {
        ++depth;
      }
      if (depth > limit) {
        return true;
      }
    }
  }
  return false;
}

/// The text of the first child element called `name`; null when there is none or it is empty.
const char* childText(const TiXmlElement& entry, const char* name) {
  const TiXmlElement* child = entry.FirstChildElement(name);
  return child != nullptr ? child->GetText() : nullptr;
}

}  // namespace

void loadTextStream(MD_FieldMap& map, std::istream& text, const std::string& name) {
  const TypeMap types;
  FieldMapLoader loader(map, types, name);
  std::string fieldName;
  std::uint16_t id = 0;
  std::string typeName;
  while (text >> fieldName >> id >> typeName) {
    loader.accept(fieldName, id, typeName);
  }
  loader.finish();
}

void loadTextFile(MD_FieldMap& map, const std::string& path) {
  std::ifstream file;
  if (!isDirectory(path)) {
    file.open(path, std::ios::in | std::ios::binary);
  }
  if (!file.is_open()) {
    throw std::runtime_error("Unable to open file: " + path);
  }
  // Ids are plain digits whatever the process's global locale does with numbers.
  file.imbue(std::locale::classic());
  loadTextStream(map, file, path);
}

void loadXmlFile(MD_FieldMap& map, const std::string& path) {
  if (path.empty()) {
    return;
  }
  const TypeMap& types = TypeMap::shared();
  TiXmlDocument document(path);
  const std::unique_ptr<std::FILE, FileCloser> file(isDirectory(path) ? nullptr : std::fopen(path.c_str(), "rb"));
  if (file != nullptr && nestsDeeperThan(kMaxNesting, readAll(file.get()))) {
    throw std::runtime_error("Failed to load field def file: " + path + ": elements nested deeper than " +
                             std::to_string(kMaxNesting));
  }
  if (file == nullptr || std::fseek(file.get(), 0, SEEK_SET) != 0 || !document.LoadFile(file.get())) {
    throw std::runtime_error("Failed to load field def file: " + path);
  }
  FieldMapLoader loader(map, types, path);
  const TiXmlElement* root = document.FirstChildElement();
  const TiXmlElement* fields = root != nullptr ? root->FirstChildElement("FieldDefinition") : nullptr;
  const TiXmlElement* entry = fields != nullptr ? fields->FirstChildElement("Entry") : nullptr;
  for (; entry != nullptr; entry = entry->NextSiblingElement("Entry")) {
    const char* name = childText(*entry, "Name");
    const char* code = childText(*entry, "Code");
    const char* type = childText(*entry, "Type");
    if (name != nullptr && code != nullptr && type != nullptr) {
      loader.accept(name, static_cast<std::uint16_t>(std::strtoll(code, nullptr, 10)), type);
    }
  }
  loader.finish();
}

}  // namespace detail
}  // namespace MD
