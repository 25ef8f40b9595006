#include "message_object.h"

#include <cstring>

#include <limits>
#include <new>
#include <ostream>
#include <vector>

#include "base/encodings.h"
#include "base/output.h"
#include "fields.h"
#include "messages/json_writer.h"
#include "messages/message_builder.h"
#include "messages/received.h"
#include "reports.h"
#include "text/value_text.h"
#include "values.h"

namespace MD::python {
namespace {

struct MessageObject {
  PyObject_HEAD MessageState state;
};

struct KeyIterator {
  PyObject_HEAD PyObject* message;  // null at the end
  std::vector<std::uint16_t> ids;
  std::size_t next;
  std::uint64_t layoutVersion;
};

PyTypeObject* g_messageType = nullptr;
PyTypeObject* g_keyIteratorType = nullptr;

MessageState& rawState(PyObject* self) noexcept { return reinterpret_cast<MessageObject*>(self)->state; }

std::unique_ptr<MD_Message> createMessage(const std::string& encoding) {
  dictionary();
  auto message = MD_Message::createFromPB(tool::encodingCode(encoding));
  if (message == nullptr) {
    raise(PyExc_ValueError, "unknown encoding " + tool::inQuotes(encoding) + ", only mInt, IterMap and MsgT");
  }
  return message;
}

std::string encodingOf(PyObject* argument) {
  if (PyUnicode_Check(argument) == 0) {
    raise(PyExc_TypeError, "an encoding is a str: \"mInt\", \"IterMap\" or \"MsgT\"");
  }
  const EncodedText text = encodeText(argument);
  return std::string(text.data, text.sizeBytes);
}

void requireNoViews(const MessageState& state) {
  if (state.views != 0) {
    raise(PyExc_BufferError, "the message cannot change while a view of it exists; release the view first");
  }
}

/// The message as the current dictionary understands it.
MessageState& currentState(PyObject* self) {
  MessageState& state = rawState(self);
  if (state.generation != dictionaryGeneration()) {
    requireNoViews(state);
    auto message = parse(state.message->getBinary(), state.message->getSizeImpl());
    // Diagnostics may have called Python code, which may have found this message.
    requireNoViews(state);
    state.message.swap(message);
    state.generation = dictionaryGeneration();
    ++state.layoutVersion;
  }
  return state;
}

MD_Message& messageOf(PyObject* self) { return *currentState(self).message; }

/// The fields of a message, each once, in wire order.
void listFields(const MD_Message& message, std::vector<std::uint16_t>& ids) {
  message.get_field_ids(ids);
  if (ids.size() != message.fieldCount()) {
    ids.clear();
    for (const FieldView& field : message.fields()) {
      ids.push_back(field.id());
    }
  }
}

tool::Field fieldOf(std::uint16_t id) { return {id, dictionary().packed(id).type}; }

/// Whether the message has the field of a key; the field.
bool findPresent(const MD_Message& message, PyObject* key, tool::Field& field) {
  return findField(key, field) && message.existsImpl(field.id);
}

[[noreturn]] void raiseKeyError(PyObject* key) {
  PyErr_SetObject(PyExc_KeyError, key);
  throw PythonError();
}

void setField(PyObject* self, PyObject* key, PyObject* object) {
  const tool::Field field = requireField(key);
  const Value value(field, object);  // may run Python code
  MessageState& state = currentState(self);
  requireNoViews(state);
  MD_Message& message = *state.message;
  const std::size_t sizeBytes = message.size();
  value.storeIn(message);
  if (message.size() != sizeBytes) {
    ++state.layoutVersion;
  }
}

void eraseField(PyObject* self, std::uint16_t id) {
  MessageState& state = currentState(self);
  requireNoViews(state);
  state.message->eraseImpl(id);
  ++state.layoutVersion;
}

/// Sets fields from a mapping or an iterable of pairs, as dict.update() does.
void setFields(PyObject* self, PyObject* source) {
  if (isMessage(source) || PyDict_Check(source) != 0 || PyObject_HasAttrString(source, "keys") != 0) {
    const Ref keys = own(PyMapping_Keys(source));
    const Py_ssize_t count = check(PyList_Size(keys.get()));
    for (Py_ssize_t i = 0; i != count; ++i) {
      PyObject* const key = PyList_GetItem(keys.get(), i);
      const Ref value = own(PyObject_GetItem(source, key));
      setField(self, key, value.get());
    }
    return;
  }
  const Ref iterator = own(PyObject_GetIter(source));
  while (const Ref pair = Ref(PyIter_Next(iterator.get()))) {
    const Ref parts = own(PySequence_Tuple(pair.get()));
    if (PyTuple_Size(parts.get()) != 2) {
      raise(PyExc_ValueError, "fields are given as a mapping or as pairs of field and value");
    }
    setField(self, PyTuple_GetItem(parts.get(), 0), PyTuple_GetItem(parts.get(), 1));
  }
  if (PyErr_Occurred() != nullptr) {
    throw PythonError();
  }
}

void setNamedFields(PyObject* self, PyObject* arguments) {
  if (arguments != nullptr && PyDict_Size(arguments) != 0) {
    setFields(self, arguments);
  }
}

/// Positional arguments between a least and a most number.
void requireArguments(const char* function, Py_ssize_t count, Py_ssize_t least, Py_ssize_t most) {
  if (count < least || count > most) {
    PyErr_Format(PyExc_TypeError, "%s() takes %zd to %zd positional arguments, not %zd", function, least, most, count);
    throw PythonError();
  }
}

// Construction ------------------------------------------------------------------------------------------------------

PyObject* create(PyTypeObject*, PyObject* arguments, PyObject* named) noexcept {
  return guarded([&] {
    const Py_ssize_t count = PyTuple_Size(arguments);
    requireArguments("Message", count, 0, 2);
    const std::string encoding = count > 0 ? encodingOf(PyTuple_GetItem(arguments, 0)) : "mInt";
    Ref self = newMessage(createMessage(encoding));
    if (count > 1 && PyTuple_GetItem(arguments, 1) != Py_None) {
      setFields(self.get(), PyTuple_GetItem(arguments, 1));
    }
    setNamedFields(self.get(), named);
    return self.release();
  });
}

void destroy(PyObject* self) noexcept {
  rawState(self).~MessageState();
  freeObject(self);
}

PyObject* fromBytes(PyObject*, PyObject* data) noexcept {
  return guarded([&] {
    const BufferView bytes(data);
    return newMessage(parse(bytes.data(), bytes.sizeBytes())).release();
  });
}

// The mapping -------------------------------------------------------------------------------------------------------

Py_ssize_t length(PyObject* self) noexcept {
  return guarded([&] { return static_cast<Py_ssize_t>(messageOf(self).fieldCount()); });
}

PyObject* subscript(PyObject* self, PyObject* key) noexcept {
  return guarded([&] {
    const MD_Message& message = messageOf(self);
    tool::Field field;
    if (!findPresent(message, key, field)) {
      raiseKeyError(key);
    }
    return requireValue(message, field).release();
  });
}

int assign(PyObject* self, PyObject* key, PyObject* value) noexcept {
  return guarded([&] {
    if (value != nullptr) {
      setField(self, key, value);
    } else {
      tool::Field field;
      if (!findPresent(messageOf(self), key, field)) {
        raiseKeyError(key);
      }
      eraseField(self, field.id);
    }
    return 0;
  });
}

int contains(PyObject* self, PyObject* key) noexcept {
  return guarded([&] {
    tool::Field field;
    return findPresent(messageOf(self), key, field) ? 1 : 0;
  });
}

PyObject* iterate(PyObject* self) noexcept {
  return guarded([&] {
    const MessageState& state = currentState(self);
    std::vector<std::uint16_t> ids;
    listFields(*state.message, ids);
    Ref iterator = own(PyType_GenericAlloc(g_keyIteratorType, 0));
    auto& fields = *reinterpret_cast<KeyIterator*>(iterator.get());
    new (&fields.ids) std::vector<std::uint16_t>(std::move(ids));
    fields.message = share(self).release();
    fields.layoutVersion = state.layoutVersion;
    return iterator.release();
  });
}

void destroyIterator(PyObject* self) noexcept {
  auto& iterator = *reinterpret_cast<KeyIterator*>(self);
  using Ids = std::vector<std::uint16_t>;
  Py_XDECREF(iterator.message);
  iterator.ids.~Ids();
  freeObject(self);
}

PyObject* nextKey(PyObject* self) noexcept {
  return guarded([&]() -> PyObject* {
    auto& iterator = *reinterpret_cast<KeyIterator*>(self);
    if (iterator.message == nullptr) {
      return nullptr;
    }
    if (currentState(iterator.message).layoutVersion != iterator.layoutVersion) {
      raise(PyExc_RuntimeError, "the message changed during iteration");
    }
    if (iterator.next == iterator.ids.size()) {
      Py_DECREF(std::exchange(iterator.message, nullptr));
      return nullptr;
    }
    return keyOf(iterator.ids[iterator.next++]).release();
  });
}

PyObject* get(PyObject* self, PyObject* const* arguments, Py_ssize_t count) noexcept {
  return guarded([&] {
    requireArguments("get", count, 1, 2);
    const MD_Message& message = messageOf(self);
    tool::Field field;
    if (!findPresent(message, arguments[0], field)) {
      return share(count == 2 ? arguments[1] : Py_None).release();
    }
    return requireValue(message, field).release();
  });
}

/// A view class of collections.abc over the message.
PyObject* viewOf(const char* viewClass, PyObject* self) noexcept {
  return guarded([&] {
    const Ref classes = own(PyImport_ImportModule("collections.abc"));
    return PyObject_CallMethod(classes.get(), viewClass, "O", self);
  });
}
PyObject* keys(PyObject* self, PyObject*) noexcept { return viewOf("KeysView", self); }
PyObject* values(PyObject* self, PyObject*) noexcept { return viewOf("ValuesView", self); }
PyObject* items(PyObject* self, PyObject*) noexcept { return viewOf("ItemsView", self); }

PyObject* update(PyObject* self, PyObject* arguments, PyObject* named) noexcept {
  return guarded([&] {
    requireArguments("update", PyTuple_Size(arguments), 0, 1);
    if (PyTuple_Size(arguments) == 1) {
      setFields(self, PyTuple_GetItem(arguments, 0));
    }
    setNamedFields(self, named);
    return none().release();
  });
}

PyObject* pop(PyObject* self, PyObject* const* arguments, Py_ssize_t count) noexcept {
  return guarded([&] {
    requireArguments("pop", count, 1, 2);
    const MD_Message& message = messageOf(self);
    tool::Field field;
    if (!findPresent(message, arguments[0], field)) {
      if (count == 1) {
        raiseKeyError(arguments[0]);
      }
      return share(arguments[1]).release();
    }
    Ref value = requireValue(message, field);
    eraseField(self, field.id);
    return value.release();
  });
}

PyObject* popItem(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    const MD_Message& message = messageOf(self);
    std::vector<std::uint16_t> ids;
    listFields(message, ids);
    if (ids.empty()) {
      raise(PyExc_KeyError, "the message is empty");
    }
    const Ref value = requireValue(message, fieldOf(ids.back()));
    Ref item = own(PyTuple_Pack(2, keyOf(ids.back()).get(), value.get()));
    eraseField(self, ids.back());
    return item.release();
  });
}

PyObject* setDefault(PyObject* self, PyObject* const* arguments, Py_ssize_t count) noexcept {
  return guarded([&] {
    requireArguments("setdefault", count, 2, 2);
    tool::Field field;
    if (!findPresent(messageOf(self), arguments[0], field)) {
      setField(self, arguments[0], arguments[1]);
      field = requireField(arguments[0]);
    }
    return requireValue(messageOf(self), field).release();
  });
}

PyObject* clear(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    MessageState& state = currentState(self);
    requireNoViews(state);
    state.message->clearImpl();
    ++state.layoutVersion;
    return none().release();
  });
}

// The message as a whole ----------------------------------------------------------------------------------------------

PyObject* compare(PyObject* self, PyObject* other, int operation) noexcept {
  return guarded([&] {
    if (!isMessage(other) || (operation != Py_EQ && operation != Py_NE)) {
      return share(Py_NotImplemented).release();
    }
    const QuietReports quiet;
    const bool isSame = sameFields(messageOf(self), messageOf(other));
    return share(isSame == (operation == Py_EQ) ? Py_True : Py_False).release();
  });
}

PyObject* toDict(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    std::vector<std::uint16_t> ids;
    listFields(messageOf(self), ids);
    Ref fields = own(PyDict_New());
    for (const std::uint16_t id : ids) {
      const Ref key = keyOf(id);
      // The message is looked at afresh: a garbage collection may have run code that changed it.
      const Ref value = requireValue(messageOf(self), fieldOf(id));
      check(PyDict_SetItem(fields.get(), key.get(), value.get()));
    }
    return fields.release();
  });
}

PyObject* problems(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    Ref found = own(PyDict_New());
    const std::vector<FieldView> fields = messageOf(self).fields();
    std::vector<std::pair<std::uint16_t, std::string>> reasons;
    for (const FieldView& field : fields) {
      if (!field.isReadable()) {
        reasons.emplace_back(field.id(), field.reason());
      }
    }
    for (const auto& [id, reason] : reasons) {
      check(PyDict_SetItem(found.get(), keyOf(id).get(), decodeText(reason.data(), reason.size()).get()));
    }
    return found.release();
  });
}

PyObject* toJson(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    const QuietReports quiet;
    const MD_Message& message = messageOf(self);
    std::ostream nowhere(nullptr);
    tool::Output output(nowhere);
    tool::Reporter reporter(nowhere, output);
    std::string json;
    tool::JsonWriter(fieldNames(), reporter).append(message, json);
    return decodeText(json.data(), json.size()).release();
  });
}

PyObject* toText(PyObject* self) noexcept {
  return guarded([&] {
    const std::string text = to_string(messageOf(self));
    return decodeText(text.data(), text.size()).release();
  });
}

PyObject* represent(PyObject* self) noexcept {
  return guarded([&] {
    const MD_Message& message = messageOf(self);
    std::vector<std::uint16_t> ids;
    listFields(message, ids);
    std::string text = std::string("Message('") + tool::encodingName(message.getPB()) + "', {";
    const char* separator = "";
    for (const std::uint16_t id : ids) {
      const Ref key = own(PyObject_Repr(keyOf(id).get()));
      const EncodedText keyText = encodeText(key.get());
      text.append(separator).append(keyText.data, keyText.sizeBytes) += ": ";
      separator = ", ";
      if (const Ref value = readValue(messageOf(self), fieldOf(id))) {
        const Ref shown = own(PyObject_Repr(value.get()));
        const EncodedText valueText = encodeText(shown.get());
        text.append(valueText.data, valueText.sizeBytes);
      } else {
        text.append("<").append(whyUnreadable(messageOf(self), id)) += ">";
      }
    }
    text += "})";
    return decodeText(text.data(), text.size()).release();
  });
}

Ref bytesOf(PyObject* self) {
  const MD_Message& message = messageOf(self);
  const void* const bytes = message.data();
  return own(PyBytes_FromStringAndSize(static_cast<const char*>(bytes), static_cast<Py_ssize_t>(message.size())));
}

PyObject* toBytes(PyObject* self, PyObject*) noexcept {
  return guarded([&] { return bytesOf(self).release(); });
}

int exportBuffer(PyObject* self, Py_buffer* view, int flags) noexcept {
  return guarded([&] {
    view->obj = nullptr;
    MessageState& state = currentState(self);
    // The interpreter's function asks for a pointer to what it does not change.
    void* const bytes = const_cast<std::uint8_t*>(state.message->data());
    check(PyBuffer_FillInfo(view, self, bytes, static_cast<Py_ssize_t>(state.message->size()), 1, flags));
    ++state.views;
    return 0;
  });
}

void releaseBuffer(PyObject* self, Py_buffer*) noexcept { --rawState(self).views; }

PyObject* copy(PyObject* self, PyObject*) noexcept {
  return guarded([&] { return newMessage(messageOf(self).clone(), rawState(self).origin).release(); });
}

PyObject* convert(PyObject* self, PyObject* encoding) noexcept {
  return guarded([&] {
    const QuietReports quiet;
    auto target = createMessage(encodingOf(encoding));
    const MD_Message& message = messageOf(self);
    const std::vector<std::uint16_t> missing = copyReadable(message, *target);
    if (!missing.empty()) {
      const tool::Field field = fieldOf(missing.front());
      requireValue(message, field);
      raise(PyExc_ValueError,
            labelOf(field.id) + ": " +
                tool::tooLong(*target, field.id, tool::valueBytes(message, field.id).sizeBytes).what());
    }
    return newMessage(std::move(target), rawState(self).origin).release();
  });
}

std::string placeOf(const Origin& origin) {
  std::ostream nowhere(nullptr);
  tool::Output output(nowhere);
  tool::Reporter reporter(nowhere, output);
  reporter.setInput(*origin.input);
  reporter.setPlace(origin.place);
  return reporter.place();
}

PyObject* encoding(PyObject* self, void*) noexcept {
  return PyUnicode_FromString(tool::encodingName(rawState(self).message->getPB()));
}

PyObject* timeNs(PyObject* self, void*) noexcept {
  return guarded([&] {
    const auto& time = rawState(self).origin.timeNs;
    return time ? PyLong_FromLongLong(*time) : none().release();
  });
}

PyObject* place(PyObject* self, void*) noexcept {
  return guarded([&] {
    const Origin& origin = rawState(self).origin;
    if (origin.input == nullptr) {
      return none().release();
    }
    const std::string text = placeOf(origin);
    return decodeText(text.data(), text.size()).release();
  });
}

PyObject* reduce(PyObject* self, PyObject*) noexcept {
  return guarded([&] {
    const Ref module = own(PyImport_ImportModule("md_message._md_message"));
    const Ref restore = own(PyObject_GetAttrString(module.get(), "_restore"));
    const Ref bytes = bytesOf(self);
    const Ref time = own(timeNs(self, nullptr));
    const Ref where = own(place(self, nullptr));
    return Py_BuildValue("(O(OOO))", restore.get(), bytes.get(), time.get(), where.get());
  });
}

PyMethodDef g_methods[] = {
    {"from_bytes", asMethod(&fromBytes), METH_O | METH_CLASS,
     "from_bytes($type, data, /)\n--\n\nParses received bytes of any encoding: any object with the buffer protocol.\n\n"
     "Raises ValueError for an unknown encoding byte. Records of unknown fields are dropped and reported."},
    {"get", asMethod(&get), METH_FASTCALL,
     "get($self, field, default=None, /)\n--\n\nReturns the value of a field, or the default if it is absent."},
    {"keys", &keys, METH_NOARGS, "keys($self, /)\n--\n\nReturns a set-like view of the names, in wire order."},
    {"values", &values, METH_NOARGS, "values($self, /)\n--\n\nReturns a view of the values, in wire order."},
    {"items", &items, METH_NOARGS, "items($self, /)\n--\n\nReturns a set-like view of (name, value), in wire order."},
    {"update", asMethod(&update), METH_VARARGS | METH_KEYWORDS,
     "update($self, fields=(), /, **values)\n--\n\nSets fields from a mapping or pairs, then from keyword "
     "arguments.\n\n"
     "If a field is refused, those before it remain set."},
    {"pop", asMethod(&pop), METH_FASTCALL,
     "pop($self, field, default=..., /)\n--\n\nRemoves a field and returns its value.\n\n"
     "Returns the default if the field is absent; raises KeyError without a default."},
    {"popitem", &popItem, METH_NOARGS,
     "popitem($self, /)\n--\n\nRemoves the last field and returns it as (name, value)."},
    {"setdefault", asMethod(&setDefault), METH_FASTCALL,
     "setdefault($self, field, default, /)\n--\n\nReturns the value of a field, which is added if it is absent."},
    {"clear", &clear, METH_NOARGS, "clear($self, /)\n--\n\nRemoves all fields."},
    {"to_dict", &toDict, METH_NOARGS,
     "to_dict($self, /)\n--\n\nReturns the fields as a dict in wire order.\n\n"
     "Raises ValueError if a field cannot be read; problems() lists such fields."},
    {"to_json", &toJson, METH_NOARGS,
     "to_json($self, /)\n--\n\nReturns the JSON object that `mdmsg decode --format json` prints."},
    {"problems", &problems, METH_NOARGS,
     "problems($self, /)\n--\n\nReturns the fields that cannot be read, each with the reason."},
    {"copy", &copy, METH_NOARGS, "copy($self, /)\n--\n\nReturns an independent copy."},
    {"__copy__", &copy, METH_NOARGS, "__copy__($self, /)\n--\n\nReturns an independent copy."},
    {"__deepcopy__", &copy, METH_O, "__deepcopy__($self, memo, /)\n--\n\nReturns an independent copy."},
    {"convert", &convert, METH_O,
     "convert($self, encoding, /)\n--\n\nReturns a message of another encoding with the same fields.\n\n"
     "Raises ValueError if that encoding cannot hold a value."},
    {"__bytes__", &toBytes, METH_NOARGS, "__bytes__($self, /)\n--\n\nReturns the serialised message."},
    {"__reduce__", &reduce, METH_NOARGS, "__reduce__($self, /)\n--\n\nSupports pickling."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef g_attributes[] = {
    {"encoding", &encoding, nullptr, "The name of the encoding: 'mInt', 'IterMap' or 'MsgT'.", nullptr},
    {"time_ns", &timeNs, nullptr, "The capture time in nanoseconds since 1970, or None if it is unknown.", nullptr},
    {"place", &place, nullptr,
     "The location where the message was read, such as 'feed.pcap: packet 3 (byte 120)', or None.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

char g_doc[] =
    "Message(encoding='mInt', fields=None, /, **values)\n--\n\n"
    "A market-data message: a mutable mapping of fields to values that is always in serialised form.\n\n"
    "Keys are field names or ids. Iteration is in wire order. An absent field raises KeyError. A value that does not\n"
    "fit raises TypeError, OverflowError or ValueError. While a memoryview of the message exists, changes raise "
    "BufferError.";

PyType_Slot g_slots[] = {{Py_tp_new, asSlot(&create)},
                         {Py_tp_dealloc, asSlot(&destroy)},
                         {Py_tp_doc, g_doc},
                         {Py_tp_methods, g_methods},
                         {Py_tp_getset, g_attributes},
                         {Py_tp_richcompare, asSlot(&compare)},
                         {Py_tp_hash, asSlot(&PyObject_HashNotImplemented)},
                         {Py_tp_repr, asSlot(&represent)},
                         {Py_tp_str, asSlot(&toText)},
                         {Py_tp_iter, asSlot(&iterate)},
                         {Py_mp_length, asSlot(&length)},
                         {Py_mp_subscript, asSlot(&subscript)},
                         {Py_mp_ass_subscript, asSlot(&assign)},
                         {Py_sq_contains, asSlot(&contains)},
                         {Py_bf_getbuffer, asSlot(&exportBuffer)},
                         {Py_bf_releasebuffer, asSlot(&releaseBuffer)},
                         {0, nullptr}};

PyType_Spec g_spec = {"md_message.Message", sizeof(MessageObject), 0, Py_TPFLAGS_DEFAULT, g_slots};

PyType_Slot g_iteratorSlots[] = {{Py_tp_dealloc, asSlot(&destroyIterator)},
                                 {Py_tp_iter, asSlot(&PyObject_SelfIter)},
                                 {Py_tp_iternext, asSlot(&nextKey)},
                                 {0, nullptr}};

PyType_Spec g_iteratorSpec = {"md_message._MessageIterator", sizeof(KeyIterator), 0,
                              Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, g_iteratorSlots};

}  // namespace

void addMessageType(PyObject* module) {
  if (g_messageType == nullptr) {
    Ref iterator = own(PyType_FromSpec(&g_iteratorSpec));
    g_messageType = reinterpret_cast<PyTypeObject*>(own(PyType_FromSpec(&g_spec)).release());
    g_keyIteratorType = reinterpret_cast<PyTypeObject*>(iterator.release());
  }
  check(PyModule_AddType(module, g_messageType));
}

bool isMessage(PyObject* object) noexcept { return Py_TYPE(object) == g_messageType; }

MessageState& stateOf(PyObject* object) noexcept { return rawState(object); }

Ref newMessage(std::unique_ptr<MD_Message> message, Origin origin) {
  Ref self = own(PyType_GenericAlloc(g_messageType, 0));
  auto* const state = new (&rawState(self.get())) MessageState;
  state->message = std::move(message);
  state->generation = dictionaryGeneration();
  state->origin = std::move(origin);
  return self;
}

std::unique_ptr<MD_Message> parse(const std::uint8_t* bytes, std::size_t sizeBytes) {
  dictionary();
  if (sizeBytes > std::numeric_limits<std::uint32_t>::max()) {
    raise(PyExc_ValueError, "a message cannot be longer than 4294967295 bytes");
  }
  const DictionaryUse use;
  auto message = MD_Message::createFromBytes(bytes, static_cast<std::uint32_t>(sizeBytes));
  if (message == nullptr) {
    tool::InputMessage input;
    input.data = bytes;
    input.sizeBytes = sizeBytes;
    throw tool::notOurs(input);
  }
  return message;
}

PyObject* restoreMessage(PyObject*, PyObject* arguments) noexcept {
  return guarded([&] {
    PyObject *data = nullptr, *time = nullptr, *where = nullptr;
    if (PyArg_ParseTuple(arguments, "OOO", &data, &time, &where) == 0) {
      throw PythonError();
    }
    Origin origin;
    if (time != Py_None) {
      origin.timeNs = PyLong_AsLongLong(time);
      if (PyErr_Occurred() != nullptr) {
        throw PythonError();
      }
    }
    if (where != Py_None) {
      if (PyUnicode_Check(where) == 0) {
        raise(PyExc_TypeError, "a place is a str");
      }
      const EncodedText text = encodeText(where);
      origin.input = std::make_shared<const std::string>(text.data, text.sizeBytes);
      origin.place = {tool::Place::Kind::Whole, 0, 0};
    }
    const BufferView bytes(data);
    return newMessage(parse(bytes.data(), bytes.sizeBytes()), std::move(origin)).release();
  });
}

}  // namespace MD::python
