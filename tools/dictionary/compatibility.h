// Whether programs with two dictionaries understand each other's messages.
#ifndef MDMSG_COMPATIBILITY_H
#define MDMSG_COMPATIBILITY_H

#include <cstdint>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace MD::tool {

struct DictionaryRow {
  std::string name;
  std::uint8_t type = 0;
};
/// The fields of a dictionary by their ids.
using DictionaryRows = std::map<std::uint16_t, DictionaryRow>;

/// The rows of the process's dictionary.
DictionaryRows currentRows();

/// The id of each name that is there once. The names are views into `rows`.
std::map<std::string_view, std::uint16_t> idsByName(const DictionaryRows& rows);

enum class Compatibility {
  Backward,  ///< readers with the new dictionary understand writers with the old one
  Forward,   ///< readers with the old dictionary understand writers with the new one
  Full,      ///< both
  Wire,      ///< both, for programs that know fields by their ids alone
};

/// A field that two dictionaries do not agree about.
struct Incompatibility {
  const char* kind;
  std::uint16_t id;
  std::string change;
  std::string reason;
};

/// The fields that break a level, one entry per field, by their ids. Fields of types that messages do not carry break
/// none.
/// @param encoding  of the messages; none: any
std::vector<Incompatibility> incompatibilities(const DictionaryRows& before, const DictionaryRows& after,
                                               Compatibility level, std::optional<std::uint8_t> encoding);

}  // namespace MD::tool

#endif
