#include "dictionary/dictionary.h"

#include <locale>
#include <sstream>
#include <stdexcept>

#include "base/quoted_text.h"
#include "base/utf8.h"
#include "dictionary/definition_file.h"
#include "md/md_fieldmap.h"

namespace MD::tool {
namespace {

constexpr const char* kBuiltInName = "built-in dictionary";

/// Creates the dictionary of the process, if there is none, without searching the configuration search path: a broken
/// file there must not prevent the use of one that the user names.
void createDictionary() { MD_FieldMap::load_file({}); }

std::istringstream streamOf(std::string_view text) {
  std::istringstream stream{std::string(text)};
  stream.imbue(std::locale::classic());
  return stream;
}

}  // namespace

void loadDefinitions(std::string_view contents, const std::string& path) {
  createDictionary();
  std::istringstream stream = streamOf(contents);
  if (isXml(contents)) {
    MD_FieldMap::reload_xml(stream, path);
  } else {
    MD_FieldMap::reload_text(stream, path);
  }
}

DefinitionFile loadDictionaryFile(const std::string& path, Reporter& reporter) {
  const std::string contents = definitionsIn(path);
  const std::string_view text = withoutByteOrderMark(contents);
  try {
    loadDefinitions(text, path);
  } catch (const std::runtime_error& error) {
    throw UsageError(std::string("cannot load the dictionary: ") + error.what());
  }
  DefinitionFile file = readDefinitions(text);
  for (const Finding& finding : file.findings) {
    if (finding.isProblem) {
      reporter.hint(filePlaceText(path, finding.place), finding.text);
    }
  }
  if (const std::string unlisted = file.unlisted(); !unlisted.empty()) {
    reporter.hint(pathText(path), unlisted);
  }
  return file;
}

void loadDictionary(const std::string& path, Reporter& reporter) {
  loadDictionaryFile(path, reporter);
  if (MD_FieldMap::instance().size() == 0) {
    throw UsageError("dictionary " + pathText(path) + " contains no fields");
  }
}

void loadDefaultDictionary() {
  createDictionary();
  try {
    MD_FieldMap::reload({});
  } catch (const std::runtime_error& error) {
    throw UsageError(
        std::string("cannot load the dictionary on the configuration search path (name another with --dictionary): ") +
        error.what());
  }
  if (MD_FieldMap::instance().size() == 0) {
    loadBuiltInDictionary();
  }
}

void loadNamedDictionary(const std::optional<std::string>& path, Reporter& reporter) {
  if (path) {
    loadDictionary(*path, reporter);
  } else {
    loadDefaultDictionary();
  }
}

void loadBuiltInDictionary() { loadDefinitions(kBuiltInDictionary, kBuiltInName); }

std::string dictionaryText() {
  const std::string& source = MD_FieldMap::instance().source();
  return source == kBuiltInName ? source : "dictionary " + pathText(source);
}

void tellDictionary(Reporter& reporter) {
  reporter.tell(dictionaryText() + ": " + counted(MD_FieldMap::instance().size(), "field"));
}

}  // namespace MD::tool
