#include "fields.h"

#include <array>
#include <memory>
#include <ostream>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"
#include "dictionary/dictionary.h"
#include "md/md_escape.h"
#include "text/value_text.h"

namespace MD::python {
namespace {

constexpr std::size_t kMostIds = 65536;

/// Fields by the objects that named them: programs use the same few names again and again.
class KeyCache {
 public:
  bool find(PyObject* key, tool::Field& field) const noexcept {
    const Entry& entry = m_entries[slotOf(key)];
    if (entry.key != key) {
      return false;
    }
    field = entry.field;
    return true;
  }
  void insert(PyObject* key, tool::Field field) {
    Entry& entry = m_entries[slotOf(key)];
    Py_INCREF(key);
    PyObject* const old = std::exchange(entry.key, key);
    entry.field = field;
    Py_XDECREF(old);
  }
  void clear() {
    for (Entry& entry : m_entries) {
      Py_XDECREF(std::exchange(entry.key, nullptr));
    }
  }

 private:
  struct Entry {
    PyObject* key;
    tool::Field field;
  };

  static std::size_t slotOf(PyObject* key) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(key);
    return (address >> 4 ^ address >> 12) % std::tuple_size_v<decltype(m_entries)>;
  }

  std::array<Entry, 512> m_entries{};
};

// The interpreter may be finalized before static objects are destroyed, so what holds references is never destroyed.
struct State {
  bool isLoaded = false;
  std::uint32_t generation = 0;
  KeyCache keys;
  std::vector<PyObject*> names;  // by id, null until they are asked for
  std::unique_ptr<tool::FieldNames> fieldNames;
};

State& state() {
  static State* const state = new State;
  return *state;
}

void forgetNames() {
  State& s = state();
  s.keys.clear();
  for (PyObject* const name : std::exchange(s.names, {})) {
    Py_XDECREF(name);
  }
  s.fieldNames.reset();
}

/// Whether a lookup of the name leads to this row.
bool isFoundByName(const FIELDS::field_rec& row) {
  const auto id = dictionary().lookUp(row.name);
  return id && *id == row.id;
}

}  // namespace

std::size_t DictionaryUse::s_count = 0;

const MD_FieldMap& dictionary() {
  State& s = state();
  if (!s.isLoaded) {
    if (MD_FieldMap::instance().size() == 0) {
      tool::loadBuiltInDictionary();
    }
    s.isLoaded = true;
  }
  return MD_FieldMap::instance();
}

std::uint32_t dictionaryGeneration() noexcept { return state().generation; }

const tool::FieldNames& fieldNames() {
  dictionary();
  State& s = state();
  if (s.fieldNames == nullptr) {
    s.fieldNames = std::make_unique<tool::FieldNames>();
  }
  return *s.fieldNames;
}

bool findField(PyObject* key, tool::Field& field) {
  if (PyUnicode_Check(key) != 0) {
    if (state().keys.find(key, field)) {
      return true;
    }
    const EncodedText name = encodeText(key);
    const MD_FieldMap& map = dictionary();
    const auto id = map.lookUp({name.data, name.sizeBytes});
    if (!id) {
      return false;
    }
    field = {*id, map.packed(*id).type};
    state().keys.insert(key, field);
    return true;
  }
  if (PyLong_Check(key) != 0 && PyBool_Check(key) == 0) {
    int isOutOfRange = 0;
    const long id = PyLong_AsLongAndOverflow(key, &isOutOfRange);
    if (isOutOfRange != 0 || id < 0 || id >= static_cast<long>(kMostIds)) {
      return false;
    }
    const FIELDS::packed_rec row = dictionary().packed(static_cast<std::uint16_t>(id));
    field = {static_cast<std::uint16_t>(id), row.type};
    return row.isKnown();
  }
  const Ref type = own(PyObject_GetAttrString(reinterpret_cast<PyObject*>(Py_TYPE(key)), "__name__"));
  PyErr_Format(PyExc_TypeError, "a field is a name (str) or an id (int), not %U", type.get());
  throw PythonError();
}

tool::Field requireField(PyObject* key) {
  tool::Field field;
  if (!findField(key, field)) {
    PyErr_SetObject(PyExc_KeyError, key);
    throw PythonError();
  }
  return field;
}

Ref keyOf(std::uint16_t id) {
  std::vector<PyObject*>& names = state().names;
  if (names.empty()) {
    names.resize(kMostIds);
  }
  if (names[id] == nullptr) {
    const MD_FieldMap& map = dictionary();
    const auto row = map.findById(id);
    Ref key = row != map.end() && isFoundByName(*row) ? decodeText(row->name.data(), row->name.size())
                                                      : own(PyLong_FromLong(id));
    if (PyUnicode_Check(key.get()) != 0) {
      PyObject* name = key.release();
      PyUnicode_InternInPlace(&name);
      key = Ref(name);
    }
    names[id] = key.release();
  }
  return share(names[id]);
}

std::string labelOf(std::uint16_t id) {
  const MD_FieldMap& map = dictionary();
  const auto row = map.findById(id);
  return row != map.end() ? escaped(row->name) : std::to_string(id);
}

PyObject* loadDictionary(PyObject*, PyObject* path) noexcept {
  return guarded([&] {
    PyObject* converted = nullptr;
    if (PyUnicode_FSConverter(path, &converted) == 0) {
      throw PythonError();
    }
    const Ref bytes(converted);
    if (DictionaryUse::isInForce()) {
      raise(PyExc_RuntimeError, "the dictionary cannot be replaced while messages are being parsed");
    }
    std::ostream nowhere(nullptr);
    tool::Output output(nowhere);
    tool::Reporter reporter(nowhere, output);
    dictionary();
    // Whatever becomes of the load, the fields are no longer what they were.
    forgetNames();
    ++state().generation;
    tool::loadDictionary(PyBytes_AsString(bytes.get()), reporter);
    return none().release();
  });
}

/// (rows, source, fingerprint); a row is (id, name, type, whether the name leads back to it).
PyObject* dictionaryRows(PyObject*, PyObject*) noexcept {
  return guarded([&] {
    const MD_FieldMap& map = dictionary();
    Ref rows = own(PyList_New(0));
    for (const FIELDS::field_rec& row : map) {
      const Ref name = decodeText(row.name.data(), row.name.size());
      const Ref entry = own(Py_BuildValue("(iOsO)", int{row.id}, name.get(), tool::typeName(row.type),
                                          isFoundByName(row) ? Py_True : Py_False));
      check(PyList_Append(rows.get(), entry.get()));
    }
    const Ref source = decodeText(map.source().data(), map.source().size());
    return Py_BuildValue("(OOK)", rows.get(), source.get(), static_cast<unsigned long long>(map.fingerprint()));
  });
}

}  // namespace MD::python
