// Columns of messages: md_message.read_columns(), and the objects that it returns.
#ifndef MD_PYTHON_COLUMNS_H
#define MD_PYTHON_COLUMNS_H

#include "python_support.h"

namespace MD::python {

/// Makes the types and adds them to the module.
void addColumnTypes(PyObject* module);

}  // namespace MD::python

#endif
