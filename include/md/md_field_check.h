/// @file
/// Compares the fields that a program was compiled with, such as the constants that `mdmsg dict generate` writes, with
/// the process's dictionary. Keeps no state; thread-safe, as all look-ups are.
#ifndef MD_FIELD_CHECK_H
#define MD_FIELD_CHECK_H

#include <cstddef>
#include <cstdint>

#include "md/md_api.h"

namespace MD {

/// A field as a program knows it.
struct ExpectedField {
  const char* name;   ///< terminated by NUL
  std::uint16_t id;   ///< the field id
  std::uint8_t type;  ///< a `DATATYPES` code
};

/// Compares `count` fields with the process's dictionary, which is loaded on first use. Fields that the dictionary has
/// besides them do not matter; neither does a second field with one of the names.
/// @throws std::runtime_error when the dictionary gives one of the names another id or type, or does not have it; the
///         text names the dictionary file and, of the first ten such fields, what is expected and what was found.
///         Likewise what MD_FieldMap::instance() throws.
MD_API void checkFields(const ExpectedField* fields, std::size_t count);

}  // namespace MD

#endif
