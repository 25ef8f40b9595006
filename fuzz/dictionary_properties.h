// The properties of a loaded dictionary.
#ifndef MD_FUZZ_DICTIONARY_PROPERTIES_H
#define MD_FUZZ_DICTIONARY_PROPERTIES_H

#include <cstdint>

#include <string>
#include <vector>

namespace MD::fuzz {

struct Row {
  std::uint16_t id;
  std::uint16_t compact;
  std::uint8_t type;
  std::string name;
};

/// The dictionary of the process in the order of its dense indexes.
std::vector<Row> loadedRows();

/// What differs, in words.
std::string differenceOf(const std::vector<Row>& expected, const std::vector<Row>& rows);

/// Checks that every lookup finds its entry, and that lookups of other values fail as documented.
void checkLookUps();

/// Checks that messages of every encoding, on buffers and field tables from before the load, take the dictionary's
/// fields and give them back.
void checkMessages();

/// Whether every name can be written to a text file and to an XML file.
bool haveSimpleNames(const std::vector<Row>& rows);

/// Dictionary files of the rows, which number them anew.
std::string asText(const std::vector<Row>& rows);
std::string asXml(const std::vector<Row>& rows);
std::vector<Row> renumbered(std::vector<Row> rows);

/// The type code of a type name, or -1.
int typeCode(const std::string& name);

/// A file that is gone with the object.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& contents);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const std::string& path() const { return m_path; }

 private:
  int m_descriptor;
  std::string m_path;
};

}  // namespace MD::fuzz

#endif
