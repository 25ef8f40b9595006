// The extension module md_message._md_message. One process has one dictionary and one report handler, so the module
// serves the main interpreter alone.
#include "columns.h"
#include "fields.h"
#include "md/md_peek.h"
#include "message_object.h"
#include "python_support.h"
#include "reader_object.h"
#include "receiver.h"
#include "reports.h"
#include "values.h"

namespace MD::python {
namespace {

PyObject* peekField(PyObject*, PyObject* const* arguments, Py_ssize_t count) noexcept {
  return guarded([&] {
    if (count != 2) {
      raise(PyExc_TypeError, "peek() takes 2 arguments: the bytes and the field");
    }
    const tool::Field field = requireField(arguments[1]);
    const BufferView bytes(arguments[0]);
    const auto sizeBytes = static_cast<std::uint32_t>(bytes.sizeBytes());
    if (sizeBytes != bytes.sizeBytes()) {
      raise(PyExc_ValueError, "a message cannot be longer than 4294967295 bytes");
    }
    switch (field.type) {
#define MD_CASE(T, name, code)                            \
  case code: {                                            \
    T value{};                                            \
    if (peek(bytes.data(), sizeBytes, field.id, value)) { \
      return toPython(value).release();                   \
    }                                                     \
    break;                                                \
  }
      MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
      default:
        break;
    }
    return none().release();
  });
}

PyObject* useDateTime(PyObject*, PyObject* dateTimeClass) noexcept {
  setDateTimeClass(dateTimeClass);
  return none().release();
}

PyMethodDef g_functions[] = {
    {"peek", asMethod(&peekField), METH_FASTCALL,
     "peek($module, data, field, /)\n--\n\nReads one field of received bytes without building a message.\n\n"
     "Returns None if it is absent or cannot be read. If the field is repeated, the last record is read."},
    {"set_report_handler", &setReportHandler, METH_O,
     "set_report_handler($module, handler, /)\n--\n\nPasses each diagnostic of the library to a callable, as a str.\n\n"
     "None restores standard error. Returns the handler that was installed before, or None."},
    {"_load_dictionary", &loadDictionary, METH_O,
     "_load_dictionary($module, path, /)\n--\n\nReplaces the dictionary of the process by that of a file."},
    {"_dictionary_rows", &dictionaryRows, METH_NOARGS,
     "_dictionary_rows($module, /)\n--\n\nReturns the fields of the dictionary, its source and its fingerprint."},
    {"_restore", &restoreMessage, METH_VARARGS,
     "_restore($module, data, time_ns, place, /)\n--\n\nBuilds a pickled message."},
    {"_use_date_time", &useDateTime, METH_O,
     "_use_date_time($module, cls, /)\n--\n\nSets the class of DATETIME values."},
    {nullptr, nullptr, 0, nullptr}};

int execute(PyObject* module) noexcept {
  return guarded([&] {
    if (PyInterpreterState_GetID(PyInterpreterState_Get()) != 0) {
      raise(PyExc_ImportError,
            "md_message works in the main interpreter only: its dictionary and its report handler belong to the "
            "process");
    }
    static bool isFirst = true;
    if (std::exchange(isFirst, false)) {
      takeReports();
    }
    addMessageType(module);
    addReceiverType(module);
    addReaderType(module);
    addColumnTypes(module);
    return 0;
  });
}

PyModuleDef_Slot g_slots[] = {{Py_mod_exec, asSlot(&execute)}, {0, nullptr}};
PyModuleDef g_module = {PyModuleDef_HEAD_INIT,
                        "md_message._md_message",
                        "Market-data messages; see md_message.",
                        0,
                        g_functions,
                        g_slots,
                        nullptr,
                        nullptr,
                        nullptr};

}  // namespace
}  // namespace MD::python

// The interpreter composes this name, of a module that begins with an underscore.
// NOLINTNEXTLINE(clang-diagnostic-reserved-identifier)
PyMODINIT_FUNC PyInit__md_message() { return PyModuleDef_Init(&MD::python::g_module); }
