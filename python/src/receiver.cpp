#include "receiver.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cmath>
#include <cstdint>

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "fields.h"
#include "message_object.h"
#include "transport/message_source.h"

namespace MD::python {
namespace {

// More than any datagram over IP holds.
constexpr std::size_t kBufferBytes = std::size_t{1} << 16;
constexpr long kMostBatch = 1'000'000;

struct ReceiverState {
  std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(kBufferBytes);
  std::size_t batch = 64;
  std::uint64_t received = 0;
  std::uint64_t unrecognised = 0;
};

struct ReceiverObject {
  PyObject_HEAD ReceiverState state;
};

/// The messages of one batch. Two of them are used in turn: when one is asked for, the loop still holds the one before.
struct BatchState {
  Ref receiver;
  Ref socket;
  std::size_t left = 0;
  bool isWaiting = true;  ///< for the first datagram
  std::array<Ref, 2> messages;
  std::size_t turn = 0;
};

struct BatchObject {
  PyObject_HEAD BatchState state;
};

PyTypeObject* g_receiverType = nullptr;
PyTypeObject* g_batchType = nullptr;

ReceiverState& receiverOf(PyObject* self) noexcept { return reinterpret_cast<ReceiverObject*>(self)->state; }
BatchState& batchOf(PyObject* self) noexcept { return reinterpret_cast<BatchObject*>(self)->state; }

PyObject* createReceiver(PyTypeObject* type, PyObject* arguments, PyObject* named) noexcept {
  return guarded([&] {
    char batchName[] = "batch";
    char* names[] = {batchName, nullptr};
    long batch = 64;
    if (PyArg_ParseTupleAndKeywords(arguments, named, "|$l", names, &batch) == 0) {
      throw PythonError();
    }
    if (batch < 1 || batch > kMostBatch) {
      raise(PyExc_ValueError, "batch is a number of datagrams, 1 to " + std::to_string(kMostBatch));
    }
    ReceiverState state;
    state.batch = static_cast<std::size_t>(batch);
    Ref self = own(PyType_GenericAlloc(type, 0));
    new (&receiverOf(self.get())) ReceiverState(std::move(state));
    return self.release();
  });
}

void destroyReceiver(PyObject* self) noexcept {
  receiverOf(self).~ReceiverState();
  freeObject(self);
}

PyObject* receive(PyObject* self, PyObject* socket) noexcept {
  return guarded([&] {
    const int descriptor = check(PyObject_AsFileDescriptor(socket));
    int type = 0;
    socklen_t length = sizeof type;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length) != 0) {
      PyErr_SetFromErrno(PyExc_OSError);
      throw PythonError();
    }
    if (type != SOCK_DGRAM) {
      raise(PyExc_ValueError, "recv() takes a datagram socket: a stream does not separate messages");
    }
    Ref batch = own(PyType_GenericAlloc(g_batchType, 0));
    auto* const state = new (&batchOf(batch.get())) BatchState;
    state->receiver = share(self);
    state->socket = share(socket);
    state->left = receiverOf(self).batch;
    return batch.release();
  });
}

void destroyBatch(PyObject* self) noexcept {
  batchOf(self).~BatchState();
  freeObject(self);
}

/// Waits for a datagram as long as the socket's timeout says. @return false where that is not at all
/// @throws PythonError (TimeoutError) after the timeout
bool awaitDatagram(PyObject* socket) {
  const Ref timeout = own(PyObject_CallMethod(socket, "gettimeout", nullptr));
  const bool isEndless = timeout.get() == Py_None;
  const double seconds = isEndless ? 0 : PyFloat_AsDouble(timeout.get());
  if (PyErr_Occurred() != nullptr) {
    throw PythonError();
  }
  if (!isEndless && !(seconds > 0)) {
    return false;
  }
  using Clock = std::chrono::steady_clock;
  constexpr double kMostMs = std::numeric_limits<int>::max();
  const auto start = Clock::now();
  for (;;) {
    int waitMs = -1;
    if (!isEndless) {
      const std::chrono::duration<double, std::milli> passed = Clock::now() - start;
      waitMs = static_cast<int>(std::min(std::max(std::ceil(seconds * 1000 - passed.count()), 0.0), kMostMs));
    }
    pollfd entry{PyObject_AsFileDescriptor(socket), POLLIN, 0};
    check(entry.fd);
    int ready = 0;
    int error = 0;
    {
      const UnlockedSection unlocked;
      ready = poll(&entry, 1, waitMs);
      error = errno;
    }
    if (ready > 0) {
      return true;
    }
    if (ready == 0) {
      raise(PyExc_TimeoutError, "timed out");
    }
    errno = error;
    if (error != EINTR) {
      PyErr_SetFromErrno(PyExc_OSError);
      throw PythonError();
    }
    check(PyErr_CheckSignals());
  }
}

/// Parses into the message of this turn where nobody else holds it, else into a new one.
Ref parseInto(BatchState& batch, const std::uint8_t* bytes, std::size_t sizeBytes) {
  Ref& place = batch.messages[batch.turn];
  batch.turn = 1 - batch.turn;
  // Diagnostics may call Python code that takes the next message of this very batch: what is parsed into is not in its
  // place.
  Ref message = std::move(place);
  if (message && Py_REFCNT(message.get()) == 1 && stateOf(message.get()).message->getPB() == *bytes &&
      stateOf(message.get()).generation == dictionaryGeneration()) {
    const DictionaryUse use;
    stateOf(message.get()).message->setBinaryImpl(bytes, static_cast<std::uint32_t>(sizeBytes));
  } else {
    message = newMessage(parse(bytes, sizeBytes));
  }
  place = share(message.get());
  return message;
}

PyObject* nextOfBatch(PyObject* self) noexcept {
  return guarded([&]() -> PyObject* {
    BatchState& batch = batchOf(self);
    ReceiverState& receiver = receiverOf(batch.receiver.get());
    while (batch.left != 0) {
      if (batch.isWaiting) {
        batch.isWaiting = false;
        awaitDatagram(batch.socket.get());
      }
      const int descriptor = check(PyObject_AsFileDescriptor(batch.socket.get()));
      const ssize_t received =
          recv(descriptor, receiver.buffer.data(), receiver.buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
      if (received < 0) {
        if (errno == EINTR) {
          check(PyErr_CheckSignals());
          continue;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
          break;
        }
        PyErr_SetFromErrno(PyExc_OSError);
        throw PythonError();
      }
      --batch.left;
      ++receiver.received;
      const auto sizeBytes = static_cast<std::size_t>(received);
      tool::InputMessage input;
      input.data = receiver.buffer.data();
      input.sizeBytes = sizeBytes;
      if (sizeBytes > receiver.buffer.size() || !tool::hasEncodingCode(input)) {
        ++receiver.unrecognised;
        continue;
      }
      return parseInto(batch, receiver.buffer.data(), sizeBytes).release();
    }
    batch.left = 0;
    return nullptr;
  });
}

PyObject* received(PyObject* self, void*) noexcept { return PyLong_FromUnsignedLongLong(receiverOf(self).received); }
PyObject* unrecognised(PyObject* self, void*) noexcept {
  return PyLong_FromUnsignedLongLong(receiverOf(self).unrecognised);
}

PyMethodDef g_methods[] = {
    {"recv", &receive, METH_O,
     "recv($self, sock, /)\n--\n\nReturns an iterator over the messages of one batch of datagrams.\n\n"
     "Waits for the first datagram up to the timeout of the socket (TimeoutError), then takes the datagrams that have "
     "arrived\nmeanwhile, up to `batch` in total. With a non-blocking socket it does not wait. Unrecognised datagrams "
     "are "
     "counted.\nMessages that the loop does not keep are reused."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef g_attributes[] = {
    {"received", &received, nullptr, "The number of datagrams received.", nullptr},
    {"unrecognised", &unrecognised, nullptr, "The number of datagrams with an unknown encoding byte.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

char g_doc[] = "Receiver(*, batch=64)\n--\n\nReceives messages from datagram sockets, several datagrams per call.";

PyType_Slot g_slots[] = {{Py_tp_new, asSlot(&createReceiver)},
                         {Py_tp_dealloc, asSlot(&destroyReceiver)},
                         {Py_tp_doc, g_doc},
                         {Py_tp_methods, g_methods},
                         {Py_tp_getset, g_attributes},
                         {0, nullptr}};
PyType_Spec g_spec = {"md_message.Receiver", sizeof(ReceiverObject), 0, Py_TPFLAGS_DEFAULT, g_slots};

PyType_Slot g_batchSlots[] = {{Py_tp_dealloc, asSlot(&destroyBatch)},
                              {Py_tp_iter, asSlot(&PyObject_SelfIter)},
                              {Py_tp_iternext, asSlot(&nextOfBatch)},
                              {0, nullptr}};
PyType_Spec g_batchSpec = {"md_message._Batch", sizeof(BatchObject), 0,
                           Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, g_batchSlots};

}  // namespace

void addReceiverType(PyObject* module) {
  if (g_receiverType == nullptr) {
    Ref batch = own(PyType_FromSpec(&g_batchSpec));
    g_receiverType = reinterpret_cast<PyTypeObject*>(own(PyType_FromSpec(&g_spec)).release());
    g_batchType = reinterpret_cast<PyTypeObject*>(batch.release());
  }
  check(PyModule_AddType(module, g_receiverType));
}

}  // namespace MD::python
