// md_message.Reader: the iterator that md_message.open() returns.
#ifndef MD_PYTHON_READER_OBJECT_H
#define MD_PYTHON_READER_OBJECT_H

#include "python_support.h"

namespace MD::python {

/// Makes the type and adds it to the module.
void addReaderType(PyObject* module);

/// Counts of a reader as a dict.
struct ReadCounts;
Ref countsOf(const ReadCounts& counts);

}  // namespace MD::python

#endif
