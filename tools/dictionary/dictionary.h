// Which dictionary the program works with.
#ifndef MDMSG_DICTIONARY_H
#define MDMSG_DICTIONARY_H

#include <optional>
#include <string>
#include <string_view>

#include "base/diagnostics.h"
#include "dictionary/definition_file.h"

namespace MD::tool {

/// Fills the process's dictionary from a file, XML if its first character that is not white space is '<', else text.
/// What is on the configuration search path plays no part. Skipped entries cause a warning.
/// @return what the file says
/// @throws UsageError when the file cannot be read or the library refuses it
DefinitionFile loadDictionaryFile(const std::string& path, Reporter& reporter);

/// The same for a program that needs fields.
/// @throws UsageError likewise, and when the file contains no fields
void loadDictionary(const std::string& path, Reporter& reporter);

/// Fills the process's dictionary from the configuration search path or, when that leads to no field, from the
/// program's own.
/// @throws UsageError when a file on the configuration search path cannot be loaded
void loadDefaultDictionary();

/// One of the two above: the first where a path is given.
void loadNamedDictionary(const std::optional<std::string>& path, Reporter& reporter);

/// Fills the process's dictionary from the program's own.
void loadBuiltInDictionary();

/// Fills the process's dictionary from a dictionary file.
/// @param contents  of the file
/// @param path  its name in error texts
/// @throws std::runtime_error when the library refuses the file
void loadDefinitions(std::string_view contents, const std::string& path);

/// "dictionary fields.txt" or "built-in dictionary": the one in use.
std::string dictionaryText();

/// Reports which dictionary is in use.
void tellDictionary(Reporter& reporter);

/// The text of the dictionary that is built into the program.
extern const char* const kBuiltInDictionary;

}  // namespace MD::tool

#endif
