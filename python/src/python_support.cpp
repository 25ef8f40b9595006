#include "python_support.h"

#include <cstring>

#include <new>
#include <stdexcept>

#include "base/errors.h"

namespace MD::python {

void raise(PyObject* type, const std::string& text) {
  const Ref message = decodeText(text.data(), text.size());
  PyErr_SetObject(type, message.get());
  throw PythonError();
}

void translateException() noexcept {
  try {
    throw;
  } catch (const PythonError&) {
    return;
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const tool::UsageError& error) {
    // The program's options are arguments here.
    const char* const text = error.what();
    PyErr_SetString(PyExc_ValueError, std::strncmp(text, "--", 2) == 0 ? text + 2 : text);
  } catch (const tool::LineError& error) {
    PyErr_SetString(PyExc_ValueError, error.what());
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
  } catch (...) {
    PyErr_SetString(PyExc_RuntimeError, "unknown C++ exception");
  }
}

Ref decodeText(const char* text, std::size_t sizeBytes) {
  PyObject* const plain = PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(sizeBytes), nullptr);
  if (plain != nullptr) {
    return Ref(plain);
  }
  if (PyErr_ExceptionMatches(PyExc_UnicodeDecodeError) == 0) {
    throw PythonError();
  }
  PyErr_Clear();
  // The error handler creates objects, which may run finalizers that change what `text` is a part of.
  const std::string copy(text, sizeBytes);
  return own(PyUnicode_DecodeUTF8(copy.data(), static_cast<Py_ssize_t>(copy.size()), "surrogateescape"));
}

EncodedText encodeText(PyObject* text) {
  EncodedText encoded;
  Py_ssize_t size = 0;
  encoded.data = PyUnicode_AsUTF8AndSize(text, &size);
  if (encoded.data != nullptr) {
    encoded.owner = share(text);
  } else {
    if (PyErr_ExceptionMatches(PyExc_UnicodeEncodeError) == 0) {
      throw PythonError();
    }
    PyErr_Clear();
    encoded.owner = own(PyUnicode_AsEncodedString(text, "utf-8", "surrogateescape"));
    char* bytes = nullptr;
    check(PyBytes_AsStringAndSize(encoded.owner.get(), &bytes, &size));
    encoded.data = bytes;
  }
  encoded.sizeBytes = static_cast<std::size_t>(size);
  return encoded;
}

}  // namespace MD::python
