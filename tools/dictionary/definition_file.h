// A dictionary file, text or XML, entry by entry and with locations: what the library reads from it, and what
// is wrong with it.
#ifndef MDMSG_DEFINITION_FILE_H
#define MDMSG_DEFINITION_FILE_H

#include <cstddef>
#include <cstdint>

#include <array>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace MD::tool {

enum class DefinitionFormat { Text, Xml };

/// A position in a file, in bytes and counted from 1; a tab is one column.
struct FilePlace {
  std::uint64_t line = 1;
  std::uint64_t column = 1;

  friend bool operator<(const FilePlace& a, const FilePlace& b) noexcept {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
  }
};

/// One entry as it is written.
struct Definition {
  std::string name;
  std::uint16_t id = 0;
  std::string typeName;
  FilePlace place;
  bool isRead = true;  ///< the library comes this far
};

struct Finding {
  FilePlace place;
  std::string text;
  bool isProblem = true;  ///< else something to know
};

/// "path:line:column", for reports.
std::string filePlaceText(const std::string& path, const FilePlace& place);

/// Which findings are alike.
enum class FindingKind { File, Syntax, Layout, Id, Type, Name, RepeatedId, RepeatedName, Element };

struct DefinitionFile {
  bool isXml = false;
  std::vector<Definition> entries;  ///< in the order of the file, those of unknown types too
  std::vector<Finding> findings;    ///< in the order of their places, a bounded number of each kind
  std::size_t problems = 0;         ///< all that there are, listed or not
  std::size_t notes = 0;
  std::size_t malformed = 0;  ///< places of entries that lack a part, which are not among `entries`
  std::size_t comments = 0;   ///< of an XML file

  void add(FindingKind kind, FilePlace place, std::string text, bool isProblem);
  void addProblem(FindingKind kind, FilePlace place, std::string text) { add(kind, place, std::move(text), true); }
  void addNote(FindingKind kind, FilePlace place, std::string text) { add(kind, place, std::move(text), false); }

  /// What to say of the findings that are not listed; empty when all are.
  std::string unlisted() const;

 private:
  static constexpr std::size_t kKinds = 9;
  static constexpr std::size_t kMostOfAKind = 20;

  std::array<std::size_t, kKinds> m_counts{};
};

/// The whole contents of a dictionary file.
/// @throws UsageError when it cannot be read
std::string definitionsIn(const std::string& path);

/// Whether the contents are XML: the first character that is not white space is '<'.
bool isXml(std::string_view contents) noexcept;

/// Reads entries of a text file as the library does. After the place where the library stops, it continues with the
/// next line, to report what else is wrong.
DefinitionFile readTextDefinitions(std::string_view text);

/// Reads the entries of an XML file as the library does.
/// @param contents  that the library does not refuse for what parsing it would do
DefinitionFile readXmlDefinitions(std::string_view contents);

/// The one of the two that suits the contents.
DefinitionFile readDefinitions(std::string_view contents);

/// Appends an entry in the text format, one per line, in columns. The name must be one word.
void appendTextDefinition(const Definition& entry, std::string& out);

/// The XML format: appendXmlDefinition() for each entry between the start and the end.
extern const char* const kXmlStart;
extern const char* const kXmlEnd;
void appendXmlDefinition(const Definition& entry, std::string& out);

/// Why the format cannot carry a name so that it is read back as it is; null when it can.
const char* whyNoTextName(std::string_view name) noexcept;
const char* whyNoXmlName(std::string_view name) noexcept;

}  // namespace MD::tool

#endif
