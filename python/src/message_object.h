// md_message.Message: a mutable mapping over a message.
#ifndef MD_PYTHON_MESSAGE_OBJECT_H
#define MD_PYTHON_MESSAGE_OBJECT_H

#include <cstdint>

#include <memory>
#include <optional>
#include <string>

#include "base/diagnostics.h"
#include "md/md_message.h"
#include "python_support.h"

namespace MD::python {

/// Where a message was read: the input and the place in it.
struct Origin {
  std::shared_ptr<const std::string> input;  ///< null: the message was not read from an input
  tool::Place place;
  std::optional<std::int64_t> timeNs;  ///< when it was captured, in nanoseconds since 1970
};

/// What an object of the type holds.
struct MessageState {
  std::unique_ptr<MD_Message> message;
  std::uint32_t generation = 0;     ///< of the dictionary that the message was parsed with
  std::uint32_t views = 0;          ///< how many buffers are exported: while there is one, nothing changes
  std::uint64_t layoutVersion = 0;  ///< counts the changes that iterators do not outlive
  Origin origin;
};

/// Makes the types Message and that of its iterators, and adds Message to the module.
void addMessageType(PyObject* module);

bool isMessage(PyObject* object) noexcept;
/// Of an object of the type.
MessageState& stateOf(PyObject* object) noexcept;

/// A new object over a message.
Ref newMessage(std::unique_ptr<MD_Message> message, Origin origin = {});

/// Parses received bytes. @throws PythonError (ValueError) for an unknown encoding byte
std::unique_ptr<MD_Message> parse(const std::uint8_t* bytes, std::size_t sizeBytes);

/// What pickled messages are made of again: (bytes, time, place).
PyObject* restoreMessage(PyObject* module, PyObject* arguments) noexcept;

}  // namespace MD::python

#endif
