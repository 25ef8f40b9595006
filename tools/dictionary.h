// Which dictionary the program works with.
#ifndef MDMSG_DICTIONARY_H
#define MDMSG_DICTIONARY_H

#include <string>

#include "diagnostics.h"

namespace MD::tool {

/// Fills the process's dictionary from a file, XML when its first character that is not blank is '<', else text. What
/// is on the search path plays no part. Entries of a text file that are not taken over are hinted at.
/// @throws UsageError when the file cannot be read or holds no field
void loadDictionary(const std::string& path, Reporter& reporter);

/// Fills the process's dictionary from the search path or, when that leads to no field, from the program's own.
/// @throws UsageError when a file on the search path cannot be loaded
void loadDefaultDictionary();

/// The text of the dictionary that is built into the program.
extern const char* const kBuiltInDictionary;

}  // namespace MD::tool

#endif
