// Loads dictionary files into the dictionary: the common part of the two formats, and each format.
#ifndef MD_SRC_FIELD_LOADER_H
#define MD_SRC_FIELD_LOADER_H

#include <cstdint>

#include <istream>
#include <string>
#include <vector>

#include "file_opening.h"
#include "md/md_fieldmap.h"

namespace MD {

/// One load into a dictionary: assigns dense indexes in file order, then rebuilds the lookup tables.
class FieldMapLoader {
 public:
  /// @param source  names the file in error texts
  FieldMapLoader(MD_FieldMap& map, const std::string& source);
  FieldMapLoader(const FieldMapLoader&) = delete;
  FieldMapLoader& operator=(const FieldMapLoader&) = delete;

  /// Takes an entry over; one whose type has no such name is skipped and uses no dense index. The first entry of
  /// an id wins, a later one still uses a dense index.
  /// @return whether there is a type of that name
  /// @throws std::runtime_error when the dense indexes are used up
  bool accept(std::string name, std::uint16_t id, const std::string& typeName);

  /// Makes the rows of the entries and rebuilds all indexes.
  void finish();

 private:
  void makeRows();

  MD_FieldMap& m_map;
  std::vector<FIELDS::field_rec> m_entries;  // in file order
  const std::string& m_source;
};

namespace detail {

/// @throws std::runtime_error "Unable to open file: " and the path
void loadTextFile(MD_FieldMap& map, const std::string& path, PathOrigin origin);
void loadTextStream(MD_FieldMap& map, std::istream& text, const std::string& name);
/// The same, and the entries that were skipped.
LoadReport loadTextFileReporting(MD_FieldMap& map, const std::string& path);
LoadReport loadTextReporting(MD_FieldMap& map, const std::string& text, const std::string& name);
/// Does nothing for an empty path. @throws std::runtime_error "Failed to load field def file: " and the path
void loadXmlFile(MD_FieldMap& map, const std::string& path, PathOrigin origin);
/// Reads the stream to its end. @throws std::runtime_error as loadXmlFile(), with the name for the path
void loadXmlStream(MD_FieldMap& map, std::istream& xml, const std::string& name);

}  // namespace detail
}  // namespace MD

#endif
