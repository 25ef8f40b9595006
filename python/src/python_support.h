// What every source of the extension needs of the interpreter: owned references, exceptions both ways, the interpreter
// lock. Everything runs under the lock except the code inside an UnlockedSection.
#ifndef MD_PYTHON_SUPPORT_H
#define MD_PYTHON_SUPPORT_H

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstdint>

#include <string>
#include <type_traits>
#include <utility>

namespace MD::python {

/// Thrown where the interpreter already holds the exception.
struct PythonError {};

/// An owned reference, or null.
class Ref {
 public:
  Ref() noexcept = default;
  explicit Ref(PyObject* owned) noexcept : m_object(owned) {}
  Ref(Ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  Ref& operator=(Ref&& other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }
  ~Ref() { Py_XDECREF(m_object); }

  PyObject* get() const noexcept { return m_object; }
  PyObject* release() noexcept { return std::exchange(m_object, nullptr); }
  explicit operator bool() const noexcept { return m_object != nullptr; }

 private:
  PyObject* m_object = nullptr;
};

/// Takes what a function of the interpreter returns. @throws PythonError for null
inline Ref own(PyObject* object) {
  if (object == nullptr) {
    throw PythonError();
  }
  return Ref(object);
}
/// Another reference to an object that somebody else owns, which is not null.
inline Ref share(PyObject* object) noexcept {
  Py_INCREF(object);
  return Ref(object);
}
/// A status of the interpreter. @throws PythonError for a negative one
template <class Status>
Status check(Status status) {
  if (status < 0) {
    throw PythonError();
  }
  return status;
}

/// Sets an exception with a text, which is UTF-8.
[[noreturn]] void raise(PyObject* type, const std::string& text);

/// Makes the exception that is being handled one of the interpreter's.
void translateException() noexcept;

/// Runs `f` where C calls us: exceptions become the interpreter's.
/// @return what `f` returns; null or -1 after an exception
template <class F>
auto guarded(F f) noexcept -> decltype(f()) {
  using Result = decltype(f());
  try {
    return f();
  } catch (...) {
    translateException();
    if constexpr (std::is_pointer_v<Result>) {
      return nullptr;
    } else {
      return -1;
    }
  }
}

inline Ref none() noexcept { return share(Py_None); }

/// Text that may hold anything: bytes that are not valid UTF-8 become surrogate escapes, which encodeText() turns back.
Ref decodeText(const char* text, std::size_t sizeBytes);
/// The UTF-8 of a str and the object that owns it. @throws PythonError for surrogates that are no escapes
struct EncodedText {
  const char* data = nullptr;
  std::size_t sizeBytes = 0;
  Ref owner;
};
EncodedText encodeText(PyObject* text);

/// The bytes of any object with the buffer protocol.
class BufferView {
 public:
  /// @throws PythonError for an object without contiguous bytes
  explicit BufferView(PyObject* object) { check(PyObject_GetBuffer(object, &m_view, PyBUF_SIMPLE)); }
  ~BufferView() { PyBuffer_Release(&m_view); }
  BufferView(const BufferView&) = delete;
  BufferView& operator=(const BufferView&) = delete;

  const std::uint8_t* data() const noexcept { return static_cast<const std::uint8_t*>(m_view.buf); }
  std::size_t sizeBytes() const noexcept { return static_cast<std::size_t>(m_view.len); }

 private:
  Py_buffer m_view;
};

/// For its lifetime other threads run Python code, and this one must not.
class UnlockedSection {
 public:
  UnlockedSection() noexcept : m_thread(PyEval_SaveThread()) {}
  ~UnlockedSection() { PyEval_RestoreThread(m_thread); }
  UnlockedSection(const UnlockedSection&) = delete;
  UnlockedSection& operator=(const UnlockedSection&) = delete;

 private:
  PyThreadState* m_thread;
};

/// A function as the interpreter's tables want it.
template <class Function>
PyCFunction asMethod(Function function) noexcept {
  return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}
template <class Function>
void* asSlot(Function function) noexcept {
  return reinterpret_cast<void*>(function);
}

/// Frees an object of one of our types, whose C++ parts have been destroyed.
inline void freeObject(PyObject* self) noexcept {
  PyTypeObject* const type = Py_TYPE(self);
  const auto release = reinterpret_cast<freefunc>(PyType_GetSlot(type, Py_tp_free));
  release(self);
  Py_DECREF(type);
}

}  // namespace MD::python

#endif
