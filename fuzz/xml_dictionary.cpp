// XML dictionary files: what cannot be loaded is refused with the stated error and leaves an empty dictionary; no file
// is parsed that nests deeper than 100 elements as the parser sees it; every lookup leads to the rows that were
// loaded, messages take the fields, and the same rows as a text file load to the same dictionary.
#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <tinyxml.h>

#include "dictionary_properties.h"
#include "fuzz_target.h"
#include "md/md_fieldmap.h"

namespace {

int depthOf(const TiXmlNode& node) {
  int depth = 0;
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    depth = std::max(depth, depthOf(*child));
  }
  return depth + (node.ToElement() != nullptr ? 1 : 0);
}

/// The number of elements inside one another, that which stays open at the end of a broken file included. Characters of
/// several bytes may be cut, so they are read byte by byte.
int parsedDepth(const std::string& xml) {
  const bool isAscii = std::all_of(xml.begin(), xml.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  TiXmlDocument document;
  document.Parse(xml.c_str(), nullptr, isAscii ? TIXML_DEFAULT_ENCODING : TIXML_ENCODING_LEGACY);
  return depthOf(document);
}

bool load(const std::string& xml) {
  const MD::fuzz::MemoryFile file(xml);
  std::string refusal;
  try {
    MD::MD_FieldMap::reload_xml(file.path());
  } catch (const std::runtime_error& error) {
    refusal = error.what();
  }
  const std::string unreadable = "Failed to load field def file: " + file.path();
  for (const char* const bound : {"elements nested deeper than 100", "an element of more than 100 attributes",
                                  "more than 1000000 tags", "an XML declaration that ends inside a quoted value"}) {
    if (refusal == unreadable + ": " + bound) {
      return false;
    }
  }
  MD_PROPERTY(refusal.empty() || refusal == unreadable, "refuses a file with " + refusal);
  // What is refused for another reason has been parsed up to there.
  const int depth = parsedDepth(xml);
  MD_PROPERTY(depth <= 100, "parses " + std::to_string(depth) + " elements inside one another");
  return refusal.empty();
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
