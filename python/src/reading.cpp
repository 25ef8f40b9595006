#include "reading.h"

#include <cerrno>

#include <limits>
#include <string>

#include "fields.h"

namespace MD::python {
namespace {

/// A signal's Python handler runs; it may raise.
void handleSignals() {
  const PyGILState_STATE lock = PyGILState_Ensure();
  const int status = PyErr_CheckSignals();
  PyGILState_Release(lock);
  check(status);
}

std::string textOf(PyObject* text, const char* what) {
  if (PyUnicode_Check(text) == 0) {
    raise(PyExc_TypeError, what);
  }
  const EncodedText encoded = encodeText(text);
  return std::string(encoded.data, encoded.sizeBytes);
}

bool isPath(PyObject* object) {
  return PyUnicode_Check(object) != 0 || PyObject_HasAttrString(object, "__fspath__") != 0;
}

void addInput(PyObject* object, Reading& reading, std::vector<Input>& inputs) {
  Input input;
  if (isPath(object)) {
    PyObject* converted = nullptr;
    if (PyUnicode_FSConverter(object, &converted) == 0) {
      throw PythonError();
    }
    const Ref path(converted);
    input.path = PyBytes_AsString(path.get());
  } else {
    reading.buffers.push_back(std::make_unique<BufferView>(object));
    input.path = "bytes";
    input.data = reading.buffers.back()->data();
    input.sizeBytes = reading.buffers.back()->sizeBytes();
    input.isFile = false;
  }
  inputs.push_back(std::move(input));
}

template <class F>
void forEach(PyObject* sequence, F f) {
  const Ref items = own(PySequence_Tuple(sequence));
  const Py_ssize_t count = PyTuple_Size(items.get());
  for (Py_ssize_t i = 0; i != count; ++i) {
    f(PyTuple_GetItem(items.get(), i));
  }
}

}  // namespace

Reading makeReading(PyObject* source, PyObject* where, PyObject* fields, PyObject* limit, PyObject* framing) {
  Reading reading;
  std::vector<Input> inputs;
  if (isPath(source) || PyObject_CheckBuffer(source) != 0) {
    addInput(source, reading, inputs);
  } else {
    forEach(source, [&](PyObject* item) { addInput(item, reading, inputs); });
  }
  tool::SelectionOptions selection;
  const auto addCondition = [&](PyObject* text) {
    selection.where.push_back(textOf(text, "a condition is a str, such as \"BID > 300\""));
  };
  if (where != Py_None) {
    if (PyUnicode_Check(where) != 0) {
      addCondition(where);
    } else {
      forEach(where, addCondition);
    }
  }
  if (fields != Py_None) {
    if (PyUnicode_Check(fields) != 0) {
      raise(PyExc_TypeError, "fields are a sequence of names and ids, not one str");
    }
    forEach(fields, [&](PyObject* key) { selection.fields.push_back(std::to_string(requireField(key).id)); });
  }
  if (limit != Py_None) {
    const Ref number = own(PyNumber_Index(limit));
    selection.limit = PyLong_AsUnsignedLongLong(number.get());
    if (PyErr_Occurred() != nullptr) {
      PyErr_Clear();
      raise(PyExc_ValueError, "limit is a number of messages, 0 or more");
    }
  }
  tool::SourceOptions options;
  if (framing != Py_None) {
    const std::string text = textOf(framing, "framing is a str");
    if (text == "raw") {
      options.form = tool::InputForm::Raw;
    } else {
      options.form = tool::InputForm::Framed;
      options.framing = tool::parseFraming(text);
    }
  }
  reading.selection = std::make_unique<tool::Selection>(selection, fieldNames());
  reading.reader = std::make_unique<MessageReader>(std::move(inputs), options, &handleSignals);
  reading.generation = dictionaryGeneration();
  return reading;
}

void requireSameDictionary(const Reading& reading) {
  if (reading.generation != dictionaryGeneration()) {
    raise(PyExc_RuntimeError, "the dictionary was replaced after reading began");
  }
}

void raiseFileError(const FileError& error) {
  const Ref path = own(PyUnicode_DecodeFSDefault(error.path.c_str()));
  errno = error.code;
  PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, path.get());
  throw PythonError();
}

}  // namespace MD::python
