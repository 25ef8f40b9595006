#include "reader_object.h"

#include <deque>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "base/quoted_text.h"
#include "fields.h"
#include "message_object.h"
#include "messages/received.h"
#include "reading.h"

namespace MD::python {
namespace {

/// A message, or why there is none.
struct Item {
  std::unique_ptr<MD_Message> message;
  Origin origin;
  std::string problem;
};

enum class Errors { Raise, Skip, Call };

struct ReaderState {
  Reading reading;
  Errors errors = Errors::Skip;
  Ref callback;
  // Messages are read ahead, as many as can be without a wait: releasing the lock for each would cost more than it.
  std::deque<Item> items;
  bool isBusy = false;  ///< a thread reads with the lock released
  bool isAtEnd = false;
};

struct ReaderObject {
  PyObject_HEAD ReaderState state;
};

constexpr std::size_t kMostAhead = 256;
constexpr std::size_t kMostSkipped = 100'000;  // before signals are looked at

PyTypeObject* g_type = nullptr;

ReaderState& stateOfReader(PyObject* self) noexcept { return reinterpret_cast<ReaderObject*>(self)->state; }

/// Reads until there is something to return, without the lock.
void readAhead(ReaderState& state) {
  MessageReader& reader = *state.reading.reader;
  tool::Selection& selection = *state.reading.selection;
  for (std::size_t read = 0; read != kMostSkipped && state.items.size() != kMostAhead; ++read) {
    if (selection.isDone()) {
      state.isAtEnd = true;
      return;
    }
    if (!state.items.empty() && reader.mayWait()) {
      return;
    }
    const Found found = reader.next();
    Item item;
    if (found.kind == Found::Kind::End) {
      state.isAtEnd = true;
      return;
    }
    if (found.kind == Found::Kind::Malformed) {
      if (state.errors != Errors::Skip) {
        item.problem = (found.isWhole ? tool::pathText(*reader.input()) : reader.placeText()) + ": " + found.reason;
        state.items.push_back(std::move(item));
      }
      continue;
    }
    try {
      item.message = tool::receive(found.input);
    } catch (const tool::LineError& error) {
      ++reader.counts().malformed;
      if (state.errors != Errors::Skip) {
        item.problem = reader.placeText() + ": " + error.what();
        state.items.push_back(std::move(item));
      }
      continue;
    }
    ++reader.counts().messages;
    if (selection.takes(*item.message)) {
      selection.keepFields(*item.message);
      item.origin = {reader.input(), reader.place(), found.input.timeNs};
      state.items.push_back(std::move(item));
    }
  }
}

/// Marks the reader as in use by this thread.
class Turn {
 public:
  explicit Turn(ReaderState& state) : m_state(state) {
    if (state.isBusy) {
      raise(PyExc_ValueError, "the reader is in use in another thread");
    }
    state.isBusy = true;
  }
  ~Turn() { m_state.isBusy = false; }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  ReaderState& m_state;
};

void handleProblem(ReaderState& state, const std::string& problem) {
  if (state.errors == Errors::Raise) {
    raise(PyExc_ValueError, problem);
  }
  const Ref callback = share(state.callback.get());
  const Ref text = decodeText(problem.data(), problem.size());
  own(PyObject_CallFunctionObjArgs(callback.get(), text.get(), nullptr));
}

PyObject* next(PyObject* self) noexcept {
  return guarded([&]() -> PyObject* {
    ReaderState& state = stateOfReader(self);
    for (;;) {
      while (!state.items.empty()) {
        Item item = std::move(state.items.front());
        state.items.pop_front();
        if (item.message != nullptr) {
          requireSameDictionary(state.reading);
          return newMessage(std::move(item.message), std::move(item.origin)).release();
        }
        handleProblem(state, item.problem);
      }
      if (state.isAtEnd) {
        return nullptr;
      }
      requireSameDictionary(state.reading);
      const Turn turn(state);
      const DictionaryUse use;
      try {
        readUnlocked([&] { readAhead(state); });
      } catch (...) {
        state.isAtEnd = true;
        throw;
      }
      check(PyErr_CheckSignals());
    }
  });
}

PyObject* create(PyTypeObject* type, PyObject* arguments, PyObject* named) noexcept {
  return guarded([&] {
    PyObject *source = nullptr, *where = nullptr, *fields = nullptr, *limit = nullptr, *framing = nullptr,
             *errors = nullptr;
    if ((named != nullptr && PyDict_Size(named) != 0) ||
        PyArg_ParseTuple(arguments, "OOOOOO", &source, &where, &fields, &limit, &framing, &errors) == 0) {
      if (PyErr_Occurred() == nullptr) {
        PyErr_SetString(PyExc_TypeError, "open() creates readers");
      }
      throw PythonError();
    }
    ReaderState state;
    if (PyCallable_Check(errors) != 0) {
      state.errors = Errors::Call;
      state.callback = share(errors);
    } else if (PyUnicode_Check(errors) != 0 && PyUnicode_CompareWithASCIIString(errors, "raise") == 0) {
      state.errors = Errors::Raise;
    } else if (PyUnicode_Check(errors) == 0 || PyUnicode_CompareWithASCIIString(errors, "skip") != 0) {
      raise(PyExc_ValueError, "errors is \"raise\", \"skip\" or a callable");
    }
    state.reading = makeReading(source, where, fields, limit, framing);
    Ref self = own(PyType_GenericAlloc(type, 0));
    new (&stateOfReader(self.get())) ReaderState(std::move(state));
    return self.release();
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
  Py_VISIT(Py_TYPE(self));
  Py_VISIT(stateOfReader(self).callback.get());
  return 0;
}

int clear(PyObject* self) noexcept {
  Ref callback = std::move(stateOfReader(self).callback);
  // An item may still ask for it.
  stateOfReader(self).errors = Errors::Skip;
  stateOfReader(self).items.clear();
  return 0;
}

void destroy(PyObject* self) noexcept {
  PyObject_GC_UnTrack(self);
  stateOfReader(self).~ReaderState();
  freeObject(self);
}

PyObject* counts(PyObject* self, void*) noexcept {
  return guarded([&] {
    const ReaderState& state = stateOfReader(self);
    if (state.isBusy) {
      raise(PyExc_ValueError, "the reader is in use in another thread");
    }
    return countsOf(state.reading.reader->counts()).release();
  });
}

PyObject* close(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    ReaderState& state = stateOfReader(self);
    const Turn turn(state);
    state.isAtEnd = true;
    state.items.clear();
    state.reading.reader->close();
    return none().release();
  });
}

PyObject* enter(PyObject* self, PyObject*) noexcept { return share(self).release(); }
PyObject* leave(PyObject* self, PyObject*) noexcept { return close(self, nullptr); }

PyMethodDef g_methods[] = {
    {"close", &close, METH_NOARGS, "close($self, /)\n--\n\nStops reading and closes the file."},
    {"__enter__", &enter, METH_NOARGS, "__enter__($self, /)\n--\n\nReturns the reader."},
    {"__exit__", asMethod(&leave), METH_VARARGS, "__exit__($self, /, *exception)\n--\n\nCloses the reader."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef g_attributes[] = {
    {"counts", &counts, nullptr,
     "The numbers read so far: parsed messages, malformed ones and, for captures, packets by kind.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

char g_doc[] = "An iterator over the messages of files, returned by open().";

PyType_Slot g_slots[] = {{Py_tp_new, asSlot(&create)},
                         {Py_tp_dealloc, asSlot(&destroy)},
                         {Py_tp_traverse, asSlot(&traverse)},
                         {Py_tp_clear, asSlot(&clear)},
                         {Py_tp_doc, g_doc},
                         {Py_tp_methods, g_methods},
                         {Py_tp_getset, g_attributes},
                         {Py_tp_iter, asSlot(&PyObject_SelfIter)},
                         {Py_tp_iternext, asSlot(&next)},
                         {0, nullptr}};
PyType_Spec g_spec = {"md_message.Reader", sizeof(ReaderObject), 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC, g_slots};

}  // namespace

void addReaderType(PyObject* module) {
  if (g_type == nullptr) {
    g_type = reinterpret_cast<PyTypeObject*>(own(PyType_FromSpec(&g_spec)).release());
  }
  check(PyModule_AddType(module, g_type));
}

Ref countsOf(const ReadCounts& counts) {
  Ref all = own(PyDict_New());
  const auto add = [&](const char* name, std::uint64_t count) {
    check(PyDict_SetItemString(all.get(), name, own(PyLong_FromUnsignedLongLong(count)).get()));
  };
  add("messages", counts.messages);
  add("malformed", counts.malformed);
  if (counts.captures) {
    add("packets", counts.captures->packets);
    add("datagrams", counts.captures->datagrams);
    add("unrecognised", counts.captures->foreign);
    add("fragments", counts.captures->fragments);
    add("truncated_packets", counts.captures->cutShort);
    add("malformed_packets", counts.captures->malformed);
    add("tcp", counts.captures->tcp);
    add("other_transport", counts.captures->otherTransport);
    add("not_ip", counts.captures->notIp);
  }
  return all;
}

}  // namespace MD::python
