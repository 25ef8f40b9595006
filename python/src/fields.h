// The process's dictionary as the module uses it: fields by str or int, their names as objects.
#ifndef MD_PYTHON_FIELDS_H
#define MD_PYTHON_FIELDS_H

#include <cstdint>

#include <string>

#include "dictionary/field_names.h"
#include "md/md_fieldmap.h"
#include "python_support.h"

namespace MD::python {

/// The dictionary, which the first call loads: from the configuration search path or, when it finds nothing there, the
/// one that is built into the tools.
const MD_FieldMap& dictionary();

/// Counts the dictionaries that have been loaded. Messages that were parsed with another are parsed again.
std::uint32_t dictionaryGeneration() noexcept;

/// For its lifetime the dictionary cannot be replaced: somebody parses, and other Python code may run meanwhile.
class DictionaryUse {
 public:
  DictionaryUse() noexcept { ++s_count; }
  ~DictionaryUse() { --s_count; }
  DictionaryUse(const DictionaryUse&) = delete;
  DictionaryUse& operator=(const DictionaryUse&) = delete;

  static bool isInForce() noexcept { return s_count != 0; }

 private:
  static std::size_t s_count;
};

/// The names of all fields, for the readers and writers of text; of the dictionary as it is now.
const tool::FieldNames& fieldNames();

/// Finds the field of a key. @return false when the dictionary does not have it
/// @throws PythonError for a key that is neither a str nor an int
bool findField(PyObject* key, tool::Field& field);
/// @throws PythonError also for a field that the dictionary does not have
tool::Field requireField(PyObject* key);

/// A field's key, an owned reference: its name, or its id where the name would not lead back to it.
Ref keyOf(std::uint16_t id);
/// Its name for the text of an exception, with what is not printable escaped.
std::string labelOf(std::uint16_t id);

/// What the module calls about the dictionary.
/// @{
PyObject* loadDictionary(PyObject* module, PyObject* path) noexcept;
PyObject* dictionaryRows(PyObject* module, PyObject*) noexcept;
/// @}

}  // namespace MD::python

#endif
