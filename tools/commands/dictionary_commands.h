// Operations on dictionary files themselves.
#ifndef MDMSG_DICTIONARY_COMMANDS_H
#define MDMSG_DICTIONARY_COMMANDS_H

#include <cstdint>

#include <optional>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"
#include "dictionary/compatibility.h"
#include "dictionary/definition_file.h"

namespace MD::tool {

/// Writes every finding about the files, "path:line:column: text", and a line on each file as a whole.
/// @return kBadData when there was a problem
ExitStatus checkDictionaries(const std::vector<std::string>& paths, Output& out, Reporter& reporter);

/// Writes a file's entries in a format, in its order: what the library makes of both is the same, dense indexes
/// included. Reports what the format cannot carry.
/// @param format  empty: the other one
/// @throws UsageError when the library refuses the file
void convertDictionary(const std::string& path, std::optional<DefinitionFormat> format, Output& out,
                       Reporter& reporter);

/// Writes a line for each field that differs between the dictionaries that the library makes of two files.
/// @return kBadData when there is one
ExitStatus diffDictionaries(const std::string& oldPath, const std::string& newPath, Output& out, Reporter& reporter);

/// Writes a line for each field that breaks a level of compatibility between the dictionaries of two files, with the
/// reason.
/// @param encoding  of the messages; none: any
/// @return kBadData when there is one
ExitStatus checkCompatibility(const std::string& oldPath, const std::string& newPath, Compatibility level,
                              std::optional<std::uint8_t> encoding, Output& out, Reporter& reporter);

/// Which fields showFields() lists.
struct FieldSearch {
  std::string text;                 ///< in the name, in upper or lower case
  std::optional<std::string> type;  ///< a type name
};

/// Describes fields of the process's dictionary, named by id or name; an unknown one is reported.
void showFields(const std::vector<std::string>& keys, Output& out, Reporter& reporter);

/// Writes the fingerprint of the process's dictionary, "0x" and 16 hex digits.
void showFingerprint(Output& out);

/// Lists fields of the process's dictionary in the text format.
/// @return kBadData when there is none
ExitStatus listFields(const FieldSearch& search, Output& out, Reporter& reporter);

}  // namespace MD::tool

#endif
