// XML definition files: what cannot be loaded is refused with the stated error and leaves an empty dictionary; of what
// is loaded every look-up leads to the rows, messages take the fields, and the same rows as a text file load to the
// same dictionary.
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "dictionary_properties.h"
#include "fuzz_target.h"
#include "md/md_fieldmap.h"

namespace {

bool load(const std::string& xml) {
  const MD::fuzz::MemoryFile file(xml);
  try {
    MD::MD_FieldMap::reload_xml(file.path());
    return true;
  } catch (const std::runtime_error& error) {
    const std::string start = "Failed to load field def file: " + file.path();
    MD_PROPERTY(std::string(error.what()).compare(0, start.size(), start) == 0,
                std::string("refuses a file with ") + error.what());
    return false;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const bool isLoaded = load({data, data + size});
  MD::fuzz::checkLookUps();
  const std::vector<MD::fuzz::Row> rows = MD::fuzz::loadedRows();
  if (!isLoaded) {
    MD_PROPERTY(rows.empty(), "a refused file leaves rows");
    return 0;
  }
  MD::fuzz::checkMessages();
  if (MD::fuzz::haveSimpleNames(rows)) {
    std::istringstream stream(MD::fuzz::asText(rows));
    MD::MD_FieldMap::reload_text(stream, "rows");
    MD_SAME(MD::fuzz::differenceOf(MD::fuzz::renumbered(rows), MD::fuzz::loadedRows()));
  }
  return 0;
}
