#include "reports.h"

#include <cstddef>

#include <atomic>
#include <iostream>
#include <mutex>

#include "md/md_report.h"

namespace MD::python {
namespace {

PyObject* g_handler = nullptr;  // null: none; under the interpreter lock
std::atomic<bool> g_hasHandler{false};
ReportHandler g_previous = nullptr;  // of the program, before the import

void writeDefault(const char* text, std::size_t length) {
  if (g_previous != nullptr) {
    g_previous(text, length);
    return;
  }
  static auto& mutex = *new std::mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::cerr.write(text, static_cast<std::streamsize>(length)).flush();
}

void callHandler(const char* text, std::size_t length) {
  const PyGILState_STATE lock = PyGILState_Ensure();
  if (g_handler != nullptr) {
    // A report may come while an exception is under way.
    PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    try {
      const Ref handler = share(g_handler);
      const Ref report = decodeText(text, length);
      const Ref result(PyObject_CallFunctionObjArgs(handler.get(), report.get(), nullptr));
      if (!result) {
        PyErr_WriteUnraisable(handler.get());
      }
    } catch (...) {
      PyErr_Clear();
    }
    PyErr_Restore(type, value, traceback);
  }
  PyGILState_Release(lock);
}

void onReport(const char* text, std::size_t length) {
  if (QuietReports::areInForce()) {
    return;
  }
  if (g_hasHandler.load() && Py_IsInitialized() != 0) {
    callHandler(text, length);
  } else {
    writeDefault(text, length);
  }
}

}  // namespace

thread_local bool QuietReports::t_areQuiet = false;

void takeReports() noexcept { g_previous = set_report_handler(&onReport); }

PyObject* setReportHandler(PyObject*, PyObject* handler) noexcept {
  return guarded([&] {
    if (handler != Py_None && PyCallable_Check(handler) == 0) {
      raise(PyExc_TypeError, "a report handler is a callable or None");
    }
    PyObject* const previous = g_handler;
    g_handler = handler == Py_None ? nullptr : share(handler).release();
    g_hasHandler = g_handler != nullptr;
    return previous != nullptr ? previous : none().release();
  });
}

}  // namespace MD::python
