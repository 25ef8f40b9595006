#include "dictionary/definition_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <locale>
#include <map>
#include <optional>
#include <sstream>
#include <system_error>

#include <tinyxml.h>

#include "base/diagnostics.h"
#include "base/utf8.h"
#include "text/value_text.h"
#include "text/xml_text.h"

namespace MD::tool {
namespace {

constexpr std::uint16_t kEndOfListing = 65535;
constexpr std::size_t kMostEntries = 65535;
/// Entries that are kept, those that the library does not accept included.
constexpr std::size_t kMostKept = 2 * kMostEntries;
constexpr std::string_view kBlanks = " \t\n\v\f\r";

bool isBlank(char c) noexcept { return kBlanks.find(c) != kBlanks.npos; }

bool hasControlCharacter(std::string_view text) noexcept {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

std::string fieldLabel(const std::string& name) { return "field " + printable(name) + ": "; }

std::string atLine(const FilePlace& place) { return " (line " + std::to_string(place.line) + ')'; }

/// The problems of one entry by itself.
void checkEntry(const Definition& entry, DefinitionFile& file) {
  const auto problem = [&](const std::string& text) {
    file.addProblem(FindingKind::Type, entry.place, fieldLabel(entry.name) + text);
  };
  const auto note = [&](const std::string& text) {
    file.addNote(FindingKind::Name, entry.place, fieldLabel(entry.name) + text);
  };
  if (!typeCode(entry.typeName)) {
    std::string upper = entry.typeName;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    problem(inQuotes(entry.typeName) + " is not a type" + (typeCode(upper) ? ", " + upper + " is one" : "") +
            (entry.isRead ? "; the library skips the entry" : ""));
    return;
  }
  if (entry.id == kEndOfListing) {
    note("id 65535 ends every listing of a message's fields");
  }
  if (isOfDigits(entry.name)) {
    note("a name of digits alone is taken for an id");
  } else if (!isUtf8(entry.name) || hasControlCharacter(entry.name)) {
    note("the name is not plain text");
  }
}

/// The problems of entries together: repeated ids and names.
void checkTogether(DefinitionFile& file) {
  std::map<std::uint16_t, const Definition*> byId;
  std::map<std::string_view, std::vector<const Definition*>> byName;
  for (const Definition& entry : file.entries) {
    if (!typeCode(entry.typeName)) {
      continue;
    }
    const auto [first, isNew] = byId.emplace(entry.id, &entry);
    if (isNew) {
      byName[entry.name].push_back(&entry);
      continue;
    }
    const Definition& kept = *first->second;
    file.addProblem(FindingKind::RepeatedId, entry.place,
                    fieldLabel(entry.name) + "id " + std::to_string(entry.id) + " is that of " + printable(kept.name) +
                        atLine(kept.place) + (entry.isRead ? "; the library keeps that one and skips this one" : ""));
  }
  for (const auto& [name, entries] : byName) {
    const auto isHigher = [](const Definition* a, const Definition* b) { return a->id < b->id; };
    const Definition& found = **std::max_element(entries.begin(), entries.end(), isHigher);
    for (std::size_t i = 1; i < entries.size(); ++i) {
      const Definition& entry = *entries[i];
      file.addProblem(FindingKind::RepeatedName, entry.place,
                      fieldLabel(entry.name) + "the name of id " + std::to_string(entry.id) + " is that of id " +
                          std::to_string(entries[0]->id) + " too" + atLine(entries[0]->place) +
                          (entry.isRead ? "; the name resolves to id " + std::to_string(found.id) : ""));
    }
  }
}

void finish(DefinitionFile& file) {
  std::size_t accepted = 0;
  for (const Definition& entry : file.entries) {
    if (entry.isRead && typeCode(entry.typeName) && ++accepted == kMostEntries + 1) {
      file.addProblem(FindingKind::File, entry.place, "more than 65535 entries; the library refuses the file");
    }
    checkEntry(entry, file);
  }
  checkTogether(file);
  std::stable_sort(file.findings.begin(), file.findings.end(),
                   [](const Finding& a, const Finding& b) { return a.place < b.place; });
}

/// Tokens as the library's stream gives them, with their places.
class TextReader {
 public:
  explicit TextReader(std::string_view text) : m_text(text), m_stream(std::string(text)) {
    m_stream.imbue(std::locale::classic());
    // A stream that keeps a failure to itself would look like the end of the file.
    m_stream.exceptions(std::ios_base::badbit);
  }

  /// Goes to the next token. @return its place, or that of the end
  FilePlace skipBlanks() {
    m_stream >> std::ws;
    m_start = m_stream.eof() ? m_text.size() : static_cast<std::size_t>(m_stream.tellg());
    for (; m_counted < m_start; ++m_counted) {
      if (m_text[m_counted] == '\n') {
        ++m_place.line;
        m_place.column = 0;
      }
      ++m_place.column;
    }
    return m_place;
  }

  template <class T>
  bool read(T& out) {
    return static_cast<bool>(m_stream >> out);
  }

  /// All characters up to the next space from where the last token began.
  std::string_view word() const {
    return m_text.substr(m_start, std::min(m_text.find_first_of(kBlanks, m_start), m_text.size()) - m_start);
  }

  bool isAtEnd() const noexcept { return m_start == m_text.size(); }

  /// Continues, after a failure, after the line of the token that failed. @return false if there is no further line
  bool skipLine() {
    const std::size_t feed = m_text.find('\n', m_start);
    if (feed == m_text.npos) {
      return false;
    }
    m_stream.clear();
    m_stream.seekg(static_cast<std::streamoff>(feed));
    return true;
  }

 private:
  std::string_view m_text;
  std::istringstream m_stream;
  FilePlace m_place;
  std::size_t m_start = 0;
  std::size_t m_counted = 0;
};

/// The findings about one entry that goes on over the end of its line or has an id that is not a plain number.
void checkLayout(const Definition& entry, FilePlace id, FilePlace type, std::string_view idText, DefinitionFile& file) {
  if (id.line != entry.place.line || type.line != entry.place.line) {
    const FilePlace& other = id.line != entry.place.line ? id : type;
    file.addNote(FindingKind::Layout, entry.place,
                 fieldLabel(entry.name) + "the entry continues on line " + std::to_string(other.line));
  }
  if (!isOfDigits(idText)) {
    file.addProblem(FindingKind::Id, id,
                    fieldLabel(entry.name) + inQuotes(idText) + " is not an id from 0 to 65535" +
                        (entry.isRead ? "; the library reads it as " + std::to_string(entry.id) : ""));
  }
}

/// The text with each carriage return, and a line feed that follows it, as one line feed.
std::string withPlainLineEnds(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i != text.size(); ++i) {
    const bool isReturn = text[i] == '\r';
    plain += isReturn ? '\n' : text[i];
    i += isReturn && i + 1 != text.size() && text[i + 1] == '\n' ? 1U : 0U;
  }
  return plain;
}

/// Whether a character of several bytes is shorter than its first byte says: TinyXML reads on for the rest.
bool hasCutCharacter(std::string_view text) noexcept {
  std::size_t missing = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isContinuation = (byte & 0xc0) == 0x80;
    if (missing != 0 && !isContinuation) {
      return true;
    }
    if (missing != 0) {
      --missing;
    } else if (!isContinuation) {
      missing = byte >= 0xf0 ? 3 : byte >= 0xe0 ? 2 : byte >= 0xc0 ? 1 : 0;
    }
  }
  return missing != 0;
}

FilePlace placeOf(const TiXmlBase& node) {
  return {static_cast<std::uint64_t>(std::max(node.Row(), 1)), static_cast<std::uint64_t>(std::max(node.Column(), 1))};
}

class CommentCounter : public TiXmlVisitor {
 public:
  using TiXmlVisitor::Visit;
  bool Visit(const TiXmlComment&) override {
    ++count;
    return true;
  }

  std::size_t count = 0;
};

/// Reads one "Entry" element.
void readXmlEntry(const TiXmlElement& element, DefinitionFile& file) {
  constexpr const char* kParts[] = {"Name", "Code", "Type"};
  const char* texts[std::size(kParts)] = {};
  FilePlace idPlace;
  for (std::size_t i = 0; i != std::size(kParts); ++i) {
    const TiXmlElement* const part = element.FirstChildElement(kParts[i]);
    texts[i] = part != nullptr ? part->GetText() : nullptr;
    if (texts[i] == nullptr) {
      file.addProblem(FindingKind::Layout, placeOf(part != nullptr ? *part : element),
                      std::string("an Entry ") + (part != nullptr ? "with an empty " : "without a ") + kParts[i] +
                          "; the library skips it");
      ++file.malformed;
      return;
    }
    if (i == 1) {
      idPlace = placeOf(*part->FirstChild());
    }
    if (const TiXmlElement* const again = part->NextSiblingElement(kParts[i])) {
      file.addProblem(FindingKind::Layout, placeOf(*again),
                      std::string("a second ") + kParts[i] + " in one Entry; the library reads the first");
    }
  }
  Definition entry;
  entry.name = texts[0];
  entry.id = static_cast<std::uint16_t>(std::strtoll(texts[1], nullptr, 10));
  entry.typeName = texts[2];
  entry.place = placeOf(element);
  const std::string_view idText = texts[1];
  if (!isOfDigits(idText) || std::strtoll(texts[1], nullptr, 10) != entry.id) {
    file.addProblem(FindingKind::Id, idPlace,
                    fieldLabel(entry.name) + inQuotes(idText) +
                        " is not an id from 0 to 65535; the library reads it as " + std::to_string(entry.id));
  }
  file.entries.push_back(std::move(entry));
}

/// Reports the siblings of `element` that are no `name`.
void noteOthers(const TiXmlElement* element, const std::string& name, DefinitionFile& file) {
  for (; element != nullptr; element = element->NextSiblingElement()) {
    if (element->ValueStr() != name) {
      file.addProblem(
          FindingKind::Element, placeOf(*element),
          "the library does not read " + inQuotes('<' + element->ValueStr() + '>') + " here, only <" + name + '>');
    }
  }
}

}  // namespace

void DefinitionFile::add(FindingKind kind, FilePlace place, std::string text, bool isProblem) {
  ++(isProblem ? problems : notes);
  if (m_counts[static_cast<std::size_t>(kind)]++ < kMostOfAKind) {
    findings.push_back({place, std::move(text), isProblem});
  }
}

std::string DefinitionFile::unlisted() const {
  const std::size_t all = problems + notes;
  return all == findings.size()
             ? std::string()
             : counted(all - findings.size(), "more problem or note is", "more problems and notes are") +
                   " not listed, only the first " + std::to_string(kMostOfAKind) + " of each kind";
}

std::string filePlaceText(const std::string& path, const FilePlace& place) {
  return pathText(path) + ':' + std::to_string(place.line) + ':' + std::to_string(place.column);
}

std::string definitionsIn(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    throw UsageError("cannot read dictionary " + pathText(path) + ": it is a directory");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) {
    throw UsageError("cannot open dictionary " + pathText(path) + ": " + std::strerror(errno));
  }
  try {
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  } catch (const std::ios_base::failure&) {
    // The buffer reports an error by an exception, whose text does not name the file.
    throw UsageError("cannot read dictionary " + pathText(path));
  }
}

bool isXml(std::string_view contents) noexcept {
  const std::size_t first = contents.find_first_not_of(kBlanks);
  return first != contents.npos && contents[first] == '<';
}

DefinitionFile readTextDefinitions(std::string_view text) {
  DefinitionFile file;
  TextReader reader(text);
  std::optional<std::size_t> stop;  // the finding about the place where the library stops
  const auto fail = [&](FilePlace place, const std::string& what, const char* treatment) {
    file.addProblem(FindingKind::Syntax, place, what + (stop ? "" : treatment));
    ++file.malformed;
  };
  std::size_t lost = 0;
  for (;;) {
    Definition entry;
    entry.isRead = !stop;
    entry.place = reader.skipBlanks();
    if (reader.isAtEnd() || !reader.read(entry.name)) {
      break;
    }
    const FilePlace idPlace = reader.skipBlanks();
    if (reader.isAtEnd()) {
      fail(entry.place, fieldLabel(entry.name) + "the file ends before its id", "; the library skips it");
      break;
    }
    if (!reader.read(entry.id)) {
      fail(idPlace, fieldLabel(entry.name) + inQuotes(reader.word()) + " is not an id from 0 to 65535",
           "; the library stops reading here");
      stop = stop ? stop : file.findings.size() - 1;
      if (!reader.skipLine()) {
        break;
      }
      continue;
    }
    // The stream takes the digits alone; what may follow them directly begins the type.
    const std::string_view idWord = reader.word();
    const FilePlace typePlace = reader.skipBlanks();
    if (reader.isAtEnd() || !reader.read(entry.typeName)) {
      fail(entry.place, fieldLabel(entry.name) + "the file ends before its type", "; the library skips it");
      break;
    }
    checkLayout(entry, idPlace, typePlace, idWord, file);
    lost += entry.isRead ? 0 : 1;
    if (file.entries.size() == kMostKept) {
      fail(entry.place, "more than " + std::to_string(kMostKept) + " entries; the rest is not checked", "");
      break;
    }
    file.entries.push_back(std::move(entry));
  }
  if (stop && lost != 0) {
    file.findings[*stop].text += ", " + std::to_string(lost) + (lost == 1 ? " entry" : " entries") + " too early";
  }
  finish(file);
  return file;
}

DefinitionFile readXmlDefinitions(std::string_view contents) {
  DefinitionFile file;
  file.isXml = true;
  // As the library parses it: with its ends of lines, and byte by byte where it has characters that are cut.
  const std::string text = withPlainLineEnds(contents);
  TiXmlDocument document;
  document.SetTabSize(1);
  document.Parse(text.c_str(), nullptr, hasCutCharacter(text) ? TIXML_ENCODING_LEGACY : TIXML_DEFAULT_ENCODING);
  if (document.Error()) {
    file.addProblem(FindingKind::File,
                    {static_cast<std::uint64_t>(std::max(document.ErrorRow(), 1)),
                     static_cast<std::uint64_t>(std::max(document.ErrorCol(), 1))},
                    std::string(document.ErrorDesc()) + " The library refuses the file");
    return file;
  }
  const TiXmlElement* const root = document.FirstChildElement();
  const TiXmlElement* const fields = root != nullptr ? root->FirstChildElement("FieldDefinition") : nullptr;
  if (fields == nullptr) {
    file.addProblem(FindingKind::File, root != nullptr ? placeOf(*root) : FilePlace(),
                    "the outermost element contains no <FieldDefinition>; the library reads no entry");
    return file;
  }
  if (const TiXmlElement* const again = fields->NextSiblingElement("FieldDefinition")) {
    file.addProblem(FindingKind::File, placeOf(*again), "a second <FieldDefinition>; the library reads the first");
  }
  noteOthers(fields->FirstChildElement(), "Entry", file);
  for (const TiXmlElement* entry = fields->FirstChildElement("Entry"); entry != nullptr;
       entry = entry->NextSiblingElement("Entry")) {
    readXmlEntry(*entry, file);
  }
  CommentCounter comments;
  document.Accept(&comments);
  file.comments = comments.count;
  finish(file);
  return file;
}

DefinitionFile readDefinitions(std::string_view contents) {
  return isXml(contents) ? readXmlDefinitions(contents) : readTextDefinitions(contents);
}

void appendTextDefinition(const Definition& entry, std::string& out) {
  constexpr std::size_t kNameWidth = 21;
  constexpr std::size_t kIdWidth = 5;
  const std::string id = std::to_string(entry.id);
  out += entry.name;
  out.append(kNameWidth - std::min(kNameWidth, entry.name.size()) + 1 + kIdWidth - id.size(), ' ');
  out.append(id).append("  ").append(entry.typeName) += '\n';
}

const char* const kXmlStart =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<Dictionary>\n"
    "  <FieldDefinition>\n";
const char* const kXmlEnd =
    "  </FieldDefinition>\n"
    "</Dictionary>\n";

void appendXmlDefinition(const Definition& entry, std::string& out) {
  // TinyXML's own encoding would leave text that looks like a character reference unchanged.
  const auto appendElement = [&out](const char* tag, const std::string& text) {
    out.append("<").append(tag).append(">");
    appendXmlText(text, out);
    out.append("</").append(tag).append(">");
  };
  out += "    <Entry>";
  appendElement("Name", entry.name);
  appendElement("Code", std::to_string(entry.id));
  appendElement("Type", entry.typeName);
  out += "</Entry>\n";
}

const char* whyNoTextName(std::string_view name) noexcept {
  if (name.empty()) {
    return "an empty name";
  }
  return std::any_of(name.begin(), name.end(), isBlank) ? "a name with a space" : nullptr;
}

const char* whyNoXmlName(std::string_view name) noexcept {
  if (name.empty()) {
    return "an empty name";
  }
  if (!isUtf8(name)) {
    return "a name that is not UTF-8";
  }
  for (const char* const text : {"\xef\xbb\xbf", "\xef\xbf\xbe", "\xef\xbf\xbf"}) {
    if (name.find(text) != name.npos) {
      return "a name with a byte-order mark";
    }
  }
  if (hasControlCharacter(name)) {
    return "a name with a control character";
  }
  // XML's readers may join these, and the library's does.
  return name.front() == ' ' || name.back() == ' ' || name.find("  ") != name.npos
             ? "a name with a space at an end, or two in a row,"
             : nullptr;
}

}  // namespace MD::tool
