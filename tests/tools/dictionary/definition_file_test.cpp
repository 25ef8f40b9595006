// Dictionary files, read as the library reads them.
#include "dictionary/definition_file.h"

#include <random>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "md/md_fieldmap.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "text/value_text.h"
#include "tools/dictionary_support.h"

namespace {

using namespace MD::tool;
using MD::MD_FieldMap;
using MD::test::loadedRows;
using MD::test::xmlDefinitions;
using MD::test::xmlEntry;

/// What the library makes of entries, by the rules: as loadedRows() has them.
std::set<std::string> rowsOf(const std::vector<Definition>& entries) {
  std::set<std::string> rows;
  std::set<std::uint16_t> ids;
  int compact = 0;
  for (const Definition& entry : entries) {
    const auto type = typeCode(entry.typeName);
    if (!entry.isRead || !type) {
      continue;
    }
    if (ids.insert(entry.id).second) {
      rows.insert(std::to_string(compact) + ' ' + std::to_string(entry.id) + ' ' + entry.name + ' ' +
                  std::to_string(*type));
    }
    ++compact;
  }
  return rows;
}

std::string mutated(const std::string& text, const std::string& alphabet, std::mt19937& random) {
  std::string changed = text;
  for (unsigned i = random() % 4 + 1; i != 0; --i) {
    const std::size_t at = random() % changed.size();
    const char c = alphabet[random() % alphabet.size()];
    switch (random() % 3) {
      case 0:
        changed[at] = c;
        break;
      case 1:
        changed.insert(at, 1, c);
        break;
      default:
        changed.erase(at, random() % 3 + 1);
    }
  }
  return changed;
}

TEST(DefinitionFile, ReadsOfTextWhatTheLibraryReads) {
  const std::string text = "SYMBOL 1 STRING\nBID  22 DOUBLE\r\nASK\t23 DOUBLE\nSEQ 65535 INT64\nBID 40 INT\nX 1 INT\n";
  std::mt19937 random(1);
  for (int i = 0; i != 5000; ++i) {
    const std::string changed = mutated(text, " \n\t0123456789-+xABINTDOUBLE\x80", random);
    SCOPED_TRACE(changed);
    MD::test::loadDictionary(changed);
    const auto expected = loadedRows();
    ASSERT_EQ(rowsOf(readTextDefinitions(changed).entries), expected);
  }
}

TEST(DefinitionFile, ReadsOfXmlWhatTheLibraryReads) {
  const MD::test::ConfigurationFolder folder;
  const std::string text = xmlDefinitions(xmlEntry("A", "1", "INT") + xmlEntry("B &amp; C", " 70000", "DOUBLE") +
                                          "<!-- x --><Entry><Code>9</Code><Name>D</Name><Type>STRING</Type></Entry>" +
                                          xmlEntry("A", "1", "CHAR"));
  std::mt19937 random(1);
  int read = 0;
  int refused = 0;
  for (int i = 0; i != 600; ++i) {
    const std::string changed = mutated(text, "<>/& 19AEINT\"\n", random);
    SCOPED_TRACE(changed);
    MD::test::ConfigurationFolder::write("f.xml", changed);
    try {
      MD_FieldMap::reload_xml("f.xml");
    } catch (const std::runtime_error&) {
      ++refused;
      EXPECT_FALSE(readXmlDefinitions(changed).findings.empty());
      continue;
    }
    ++read;
    ASSERT_EQ(rowsOf(readXmlDefinitions(changed).entries), loadedRows());
  }
  EXPECT_GT(read, 40);
  EXPECT_GT(refused, 40);
}

}  // namespace
