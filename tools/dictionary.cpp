#include "dictionary.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "md/md_fieldmap.h"
#include "utf8.h"

namespace MD::tool {
namespace {

/// Creates the process's dictionary, if there is none, without a look at the search path: a broken file there must not
/// stand in the way of one that the user names.
void createDictionary() { MD_FieldMap::load_file({}); }

std::string contentsOf(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    throw UsageError("cannot read dictionary " + path + ": it is a directory");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) {
    throw UsageError("cannot open dictionary " + path);
  }
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) {
    throw UsageError("cannot read dictionary " + path);
  }
  return text;
}

bool isXml(std::string_view text) noexcept {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  return first != text.npos && text[first] == '<';
}

std::istringstream streamOf(std::string_view text) {
  std::istringstream stream{std::string(text)};
  stream.imbue(std::locale::classic());
  return stream;
}

/// Walks the entries as the library does, after it has done so, and tells what it left out and where it stopped.
void hintAtLeftOut(std::string_view text, const std::string& path, Reporter& reporter) {
  const MD_FieldMap& map = MD_FieldMap::instance();
  std::istringstream stream = streamOf(text);
  std::uint64_t line = 1;
  std::size_t counted = 0;
  // The line of the next token.
  const auto lineHere = [&] {
    stream >> std::ws;
    const std::size_t here = stream.eof() ? text.size() : static_cast<std::size_t>(stream.tellg());
    line += static_cast<std::uint64_t>(std::count(text.data() + counted, text.data() + here, '\n'));
    counted = here;
    return line;
  };
  std::string name;
  std::string typeName;
  for (;;) {
    const std::uint64_t nameLine = lineHere();
    if (!(stream >> name)) {
      return;
    }
    const std::uint64_t idLine = lineHere();
    std::uint16_t id = 0;
    if (!(stream >> id)) {
      reporter.hint(path, idLine, "field " + printable(name) + " has no id from 0 to 65535; reading stopped here");
      return;
    }
    if (!(stream >> typeName)) {
      reporter.hint(path, nameLine, "field " + printable(name) + " has no type; left out");
      return;
    }
    const auto row = map.findById(id);
    if (row == map.end()) {
      reporter.hint(path, nameLine,
                    "field " + printable(name) + " is of an unknown type, " + inQuotes(typeName) + "; left out");
    } else if (row->name != name) {
      reporter.hint(path, nameLine,
                    "field " + printable(name) + " has the id of " + printable(row->name) + ", " + std::to_string(id) +
                        "; left out");
    } else if (const auto found = map.findByName(name); found != map.end() && found->id != id) {
      reporter.hint(path, nameLine,
                    "the name " + printable(name) + " belongs to field " + std::to_string(found->id) + " too; field " +
                        std::to_string(id) + " goes by its id");
    }
  }
}

}  // namespace

void loadDictionary(const std::string& path, Reporter& reporter) {
  const std::string contents = contentsOf(path);
  const std::string_view text = withoutByteOrderMark(contents);
  createDictionary();
  try {
    if (isXml(text)) {
      MD_FieldMap::reload_xml(path);
    } else {
      std::istringstream stream = streamOf(text);
      MD_FieldMap::reload_text(stream, path);
      hintAtLeftOut(text, path, reporter);
    }
  } catch (const std::runtime_error& error) {
    throw UsageError(std::string("cannot load the dictionary: ") + error.what());
  }
  if (MD_FieldMap::instance().size() == 0) {
    throw UsageError("dictionary " + path + " holds no field");
  }
}

void loadDefaultDictionary() {
  createDictionary();
  try {
    MD_FieldMap::reload({});
  } catch (const std::runtime_error& error) {
    throw UsageError(std::string("cannot load the dictionary on the search path (name another with --dictionary): ") +
                     error.what());
  }
  if (MD_FieldMap::instance().size() == 0) {
    std::istringstream stream = streamOf(kBuiltInDictionary);
    MD_FieldMap::reload_text(stream, "built-in dictionary");
  }
}

}  // namespace MD::tool
