// What open() and read_columns() have in common: arguments, and the exceptions of readers.
#ifndef MD_PYTHON_READING_H
#define MD_PYTHON_READING_H

#include <memory>
#include <vector>

#include "message_reader.h"
#include "messages/selection.h"
#include "python_support.h"

namespace MD::python {

/// What Python code asks to be read. It keeps the bytes alive that are read from.
struct Reading {
  std::vector<std::unique_ptr<BufferView>> buffers;
  std::unique_ptr<MessageReader> reader;
  std::unique_ptr<tool::Selection> selection;
  std::uint32_t generation = 0;  ///< of the dictionary that the selection is about
};

/// @param source   a path, an object with the buffer protocol, or a sequence of these
/// @param where    None, a condition or a sequence of conditions
/// @param fields   None or a sequence of fields
/// @param limit    None or an int
/// @param framing  None or a str
Reading makeReading(PyObject* source, PyObject* where, PyObject* fields, PyObject* limit, PyObject* framing);

/// @throws PythonError (RuntimeError) when the dictionary has been replaced since
void requireSameDictionary(const Reading& reading);

/// Runs `f`, which reads, with the interpreter lock released. Other exceptions pass.
/// @throws PythonError (OSError) for a FileError
template <class F>
void readUnlocked(F f);

[[noreturn]] void raiseFileError(const FileError& error);

template <class F>
void readUnlocked(F f) {
  try {
    const UnlockedSection unlocked;
    f();
  } catch (const FileError& error) {
    raiseFileError(error);
  }
}

}  // namespace MD::python

#endif
