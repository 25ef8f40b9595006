// The fields of a dictionary as constants of a programming language.
#ifndef MDMSG_FIELD_CONSTANTS_H
#define MDMSG_FIELD_CONSTANTS_H

#include <cstdint>

#include <string>
#include <vector>

namespace MD::tool {

enum class Language { Cpp, C, Python };

struct FieldConstantsOptions {
  Language language = Language::Cpp;
  /// Of C++, also "outer::inner"; what the names of C begin with: those of functions as it is, others in upper case.
  std::string nameSpace = "fields";
  std::string prefix;             ///< of each constant; of C instead of the namespace in upper case
  std::vector<std::string> only;  ///< names or ids of the fields; none: all that messages carry
  std::string command;            ///< how the text was made, for its first line
};

/// The process's dictionary as the text of a C++ header, a C header or a Python module: a constant per field, in the
/// order of their ids, the fingerprint of the dictionary, and a function that compares the fields with the dictionary
/// of the program that includes it. The text depends on the options and the dictionary's fields alone.
/// @throws UsageError for options that cannot be used, fields with the same identifier, and when there is no field
std::string fieldConstants(const FieldConstantsOptions& options);

}  // namespace MD::tool

#endif
