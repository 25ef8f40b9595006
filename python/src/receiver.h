// md_message.Receiver: messages from the datagrams of a socket.
#ifndef MD_PYTHON_RECEIVER_H
#define MD_PYTHON_RECEIVER_H

#include "python_support.h"

namespace MD::python {

/// Makes the type and adds it to the module.
void addReceiverType(PyObject* module);

}  // namespace MD::python

#endif
