#include "md_field_loader.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <fstream>
#include <functional>
#include <limits>
#include <locale>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include <tinyxml.h>

#include "file_opening.h"
#include "md/md_escape.h"
#include "md_typemap.h"
#include "xml_bounds.h"

namespace MD {

FieldMapLoader::FieldMapLoader(MD_FieldMap& map, const std::string& source) : m_map(map), m_source(source) {
  m_map.m_compact_count = 0;
}

bool FieldMapLoader::accept(std::string name, std::uint16_t id, const std::string& typeName) {
  const detail::FieldType* const type = detail::findType(typeName);
  if (type == nullptr) {
    return false;
  }
  if (m_map.m_compact_count == std::numeric_limits<std::uint16_t>::max()) {
    makeRows();
    throw std::runtime_error("Too many fields (more than 65535) in field def file: " + m_source);
  }
  m_entries.push_back({id, m_map.m_compact_count, type->code, std::move(name)});
  ++m_map.m_compact_count;
  return true;
}

// In the order of ids, each entry is appended at the end, and entries are contiguous in iteration order.
void FieldMapLoader::makeRows() {
  auto& rows = m_map.m_rows;
  std::stable_sort(m_entries.begin(), m_entries.end());
  for (auto& entry : m_entries) {
    rows.insert(rows.end(), std::move(entry));
  }
}

// The indexes are made apart and then put in place together: whatever fails for want of memory leaves every lookup
// answering "unknown".
void FieldMapLoader::finish() {
  makeRows();
  const auto& rows = m_map.m_rows;
  const std::uint16_t largestId = rows.empty() ? std::uint16_t{0} : rows.rbegin()->id;
  std::vector<MD_FieldMap::const_iterator> byId(std::size_t{largestId} + 1, rows.end());
  std::vector<MD_FieldMap::const_iterator> byCompact(std::size_t{m_map.m_compact_count} + 1, rows.end());
  decltype(m_map.m_name_index) names;
  names.reserve(rows.size());
  for (auto i = rows.begin(); i != rows.end(); ++i) {
    byId[i->id] = i;
    byCompact[i->compact] = i;
    names.emplace_back(std::hash<std::string>()(i->name), i);
  }
  std::sort(names.begin(), names.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first < b.first : a.second->id < b.second->id;
  });

  std::string source = m_source;

  m_map.m_source.swap(source);
  m_map.m_id_index.swap(byId);
  m_map.m_compact_index.swap(byCompact);
  m_map.m_name_index.swap(names);
  m_map.m_packed.fill({});
  for (const FIELDS::field_rec& row : rows) {
    m_map.m_packed[row.id] = {static_cast<std::uint16_t>(row.compact + 1), row.type};
  }
}

namespace detail {
namespace {

constexpr const char* kXmlRefused = "Failed to load field def file: ";

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { static_cast<void>(std::fclose(file)); }
};

/// All data that `read(to, room)` returns, block by block, until it returns nothing. Memory grows with the data.
template <class Read>
std::string allOf(Read read) {
  constexpr std::size_t kBlockBytes = 65536;
  std::string text;
  for (std::size_t sizeBytes = 0;;) {
    text.resize(sizeBytes + kBlockBytes);
    const std::size_t count = read(&text[sizeBytes], kBlockBytes);
    sizeBytes += count;
    if (count == 0) {
      text.resize(sizeBytes);
      return text;
    }
  }
}

/// Makes each carriage return, with a line feed that follows it, a line feed.
void normaliseLineEnds(std::string& text) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i != text.size(); ++i) {
    const bool isReturn = text[i] == '\r';
    text[kept++] = isReturn ? '\n' : text[i];
    i += isReturn && i + 1 != text.size() && text[i + 1] == '\n' ? 1U : 0U;
  }
  text.resize(kept);
}

/// @return whether the text is well-formed. What is not UTF-8 is read byte by byte, whatever its declaration or a byte
/// order mark says.
bool parseXml(TiXmlDocument& document, const std::string& text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  const bool isUtf8 = !hasCutCharacter(text);
  const bool hasMark = text.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0;
  // TinyXML passes over a mark only where it then reads UTF-8.
  document.Parse(text.c_str() + (hasMark && !isUtf8 ? kByteOrderMark.size() : 0), nullptr,
                 isUtf8 ? TIXML_DEFAULT_ENCODING : TIXML_ENCODING_LEGACY);
  return !document.Error();
}

/// Characters of a text that is read once, and the number of the line they are in.
class LineCounter : public std::streambuf {
 public:
  explicit LineCounter(std::streambuf& text) : m_text(text) {}

  /// The number of the line that the next character is in, from 1.
  std::size_t line() const noexcept { return m_line; }

 private:
  int_type underflow() override { return m_text.sgetc(); }
  int_type uflow() override {
    const int_type character = m_text.sbumpc();
    m_line += traits_type::eq_int_type(character, '\n') ? 1U : 0U;
    return character;
  }

  std::streambuf& m_text;
  std::size_t m_line = 1;
};

/// Reads entries of a text file, as far as the stream can be read. A stream takes any exception for an unreadable text;
/// of memory that runs out it must not: the file would seem to end there.
class EntryReader {
 public:
  /// @param lines  returns the line of each entry, if not null
  explicit EntryReader(std::istream& text, const LineCounter* lines = nullptr)
      : m_text(text), m_lines(lines), m_callersExceptions(text.exceptions()) {
    if (!text.bad()) {
      text.exceptions(m_callersExceptions | std::ios_base::badbit);
    }
  }
  ~EntryReader() {
    try {
      m_text.exceptions(m_callersExceptions);
    } catch (const std::ios_base::failure&) {
      return;  // set nevertheless
    }
  }
  EntryReader(const EntryReader&) = delete;
  EntryReader& operator=(const EntryReader&) = delete;

  /// The tokens of an entry; None before the first one was read.
  enum class Token { None, Name, Id, TypeName };

  /// @return whether there was another entry
  bool read() {
    m_last = Token::None;
    try {
      if (m_text >> m_name) {
        m_last = Token::Name;
        m_line = m_lines != nullptr ? m_lines->line() : 0;
        if (m_text >> m_id) {
          m_last = Token::Id;
          if (m_text >> m_typeName) {
            m_last = Token::TypeName;
          }
        }
      }
      return m_last == Token::TypeName;
    } catch (const std::bad_alloc&) {
      throw;
    } catch (...) {
      if (m_callersExceptions != std::ios_base::goodbit) {
        throw;
      }
      return false;
    }
  }

  const std::string& name() const noexcept { return m_name; }
  std::uint16_t id() const noexcept { return m_id; }
  const std::string& typeName() const noexcept { return m_typeName; }
  /// The last token of the entry that could be read.
  Token last() const noexcept { return m_last; }
  /// Where the name is, from 1.
  std::size_t line() const noexcept { return m_line; }

 private:
  std::istream& m_text;
  const LineCounter* m_lines;
  const std::ios_base::iostate m_callersExceptions;
  std::string m_name;
  std::uint16_t m_id = 0;
  std::string m_typeName;
  Token m_last = Token::None;
  std::size_t m_line = 0;
};

/// Finds the problems of the entries of a text, which are passed one by one.
class EntryCheck {
 public:
  explicit EntryCheck(LoadReport& report) : m_report(report), m_lineOfId(65536) {}

  /// @param hasType  whether there is a type of the entry's type name
  void look(const EntryReader& entry, bool hasType) {
    std::size_t& first = m_lineOfId[entry.id()];
    if (!hasType) {
      add(entry, '"' + escaped(entry.typeName()) + "\" is not a type");
    } else if (first != 0) {
      add(entry, "id " + std::to_string(entry.id()) + " is used in line " + std::to_string(first));
    } else {
      first = entry.line();
      if (isLikeComment(entry)) {
        list({entry.line(), entry.name(), kNoComment, false});
      }
    }
  }

  /// The entry that could not be read, at the end of which the reading ended.
  void lookAtLast(const EntryReader& entry) {
    if (entry.last() == EntryReader::Token::Name) {
      add(entry, "the name is not followed by an id from 0 to 65535; nothing after it is read");
    } else if (entry.last() == EntryReader::Token::Id) {
      add(entry, "the text ends before the type");
    }
  }
  /// The place in a file from which on the system does not read it.
  void lookAtUnreadable(std::size_t line) { list({line, {}, "the file cannot be read any further", true}); }

 private:
  static constexpr std::size_t kMostListed = 1000;
  static constexpr const char* kNoComment = "a line that begins with # is not a comment";

  static bool isLikeComment(const EntryReader& entry) { return entry.name()[0] == '#'; }

  void add(const EntryReader& entry, std::string reason) {
    if (isLikeComment(entry)) {
      reason.append(" (").append(kNoComment).append(")");
    }
    list({entry.line(), entry.name(), std::move(reason), true});
  }

  void list(LoadReport::Problem problem) {
    ++m_report.problemCount;
    if (m_report.problems.size() < kMostListed) {
      m_report.problems.push_back(std::move(problem));
    }
  }

  LoadReport& m_report;
  std::vector<std::size_t> m_lineOfId;  // of the first entry with that id, 0 for none
};

/// The text of the first child element called `name`; null when there is none or it is empty.
const char* childText(const TiXmlElement& entry, const char* name) {
  const TiXmlElement* child = entry.FirstChildElement(name);
  return child != nullptr ? child->GetText() : nullptr;
}

/// Loads a file of these contents. Checked and parsed are the same bytes: the file may change meanwhile.
/// @param isWhole  whether they could be read to their end
void loadXml(MD_FieldMap& map, const std::string& path, std::string xml, bool isWhole) {
  normaliseLineEnds(xml);
  const std::string exceeded = exceededXmlBound(xml);
  if (!exceeded.empty()) {
    throw std::runtime_error(kXmlRefused + path + ": " + exceeded);
  }
  TiXmlDocument document(path);
  if (!isWhole || !parseXml(document, xml)) {
    throw std::runtime_error(kXmlRefused + path);
  }
  FieldMapLoader loader(map, path);
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

/// @throws std::runtime_error  when it cannot be opened
std::ifstream openText(const std::string& path, PathOrigin origin) {
  std::ifstream file;
  const auto open = [&] {
    file.open(path, std::ios::in | std::ios::binary);
    return file.is_open();
  };
  if (!mayBeOpened(path, origin) || !openFile(open)) {
    throw std::runtime_error("Unable to open file: " + path);
  }
  // Ids are plain digits, regardless of the global locale of the process.
  file.imbue(std::locale::classic());
  return file;
}

LoadReport loadReporting(MD_FieldMap& map, std::streambuf& text, const std::string& name) {
  LoadReport report;
  report.source = name;
  LineCounter lines(text);
  std::istream stream(&lines);
  stream.imbue(std::locale::classic());
  FieldMapLoader loader(map, name);
  EntryReader reader(stream, &lines);
  EntryCheck check(report);
  while (reader.read()) {
    check.look(reader, loader.accept(reader.name(), reader.id(), reader.typeName()));
  }
  check.lookAtLast(reader);
  if (stream.bad()) {
    check.lookAtUnreadable(lines.line());
  }
  loader.finish();
  report.fieldCount = map.size();
  return report;
}

}  // namespace

void loadTextStream(MD_FieldMap& map, std::istream& text, const std::string& name) {
  FieldMapLoader loader(map, name);
  EntryReader reader(text);
  while (reader.read()) {
    loader.accept(reader.name(), reader.id(), reader.typeName());
  }
  loader.finish();
}

void loadTextFile(MD_FieldMap& map, const std::string& path, PathOrigin origin) {
  std::ifstream file = openText(path, origin);
  loadTextStream(map, file, path);
}

LoadReport loadTextFileReporting(MD_FieldMap& map, const std::string& path) {
  std::ifstream file = openText(path, PathOrigin::Caller);
  return loadReporting(map, *file.rdbuf(), path);
}

LoadReport loadTextReporting(MD_FieldMap& map, const std::string& text, const std::string& name) {
  std::stringbuf buffer(text, std::ios::in);
  return loadReporting(map, buffer, name);
}

void loadXmlFile(MD_FieldMap& map, const std::string& path, PathOrigin origin) {
  if (path.empty()) {
    return;
  }
  std::unique_ptr<std::FILE, FileCloser> file;
  const auto open = [&] {
    file.reset(std::fopen(path.c_str(), "rb"));
    return file != nullptr;
  };
  if (!mayBeOpened(path, origin) || !openFile(open)) {
    throw std::runtime_error(kXmlRefused + path);
  }
  std::string xml = allOf([&](char* to, std::size_t room) { return std::fread(to, 1, room, file.get()); });
  loadXml(map, path, std::move(xml), std::ferror(file.get()) == 0);
}

void loadXmlStream(MD_FieldMap& map, std::istream& xml, const std::string& name) {
  std::string text = allOf([&](char* to, std::size_t room) {
    xml.read(to, static_cast<std::streamsize>(room));
    return static_cast<std::size_t>(xml.gcount());
  });
  loadXml(map, name, std::move(text), !xml.bad());
}

}  // namespace detail
}  // namespace MD
