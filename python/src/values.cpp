#include "values.h"

#include <cmath>

#include <limits>
#include <type_traits>

#include "base/encodings.h"
#include "fields.h"
#include "md/md_field.h"
#include "messages/message_builder.h"
#include "reports.h"
#include "text/value_text.h"

namespace MD::python {
namespace {

constexpr std::size_t kMostBytes = std::numeric_limits<std::uint16_t>::max();

PyObject* g_dateTimeClass = nullptr;

std::string nameOfType(PyObject* object) {
  const Ref name = own(PyObject_GetAttrString(reinterpret_cast<PyObject*>(Py_TYPE(object)), "__name__"));
  const EncodedText text = encodeText(name.get());
  return std::string(text.data, text.sizeBytes);
}

[[noreturn]] void refuse(PyObject* type, std::uint16_t id, const std::string& reason) {
  raise(type, labelOf(id) + ": " + reason);
}

[[noreturn]] void refuseType(tool::Field field, const char* wanted, PyObject* object) {
  refuse(PyExc_TypeError, field.id,
         std::string("a ") + tool::typeName(field.type) + " takes " + wanted + ", not " + nameOfType(object));
}

/// The integer that an object is. @throws PythonError (TypeError) for others, bool among them
Ref integerOf(tool::Field field, PyObject* object) {
  if (PyBool_Check(object) != 0) {
    refuseType(field, "an int", object);
  }
  if (PyLong_Check(object) != 0) {
    return share(object);
  }
  if (PyIndex_Check(object) == 0) {
    refuseType(field, "an int", object);
  }
  return own(PyNumber_Index(object));
}

std::int64_t integerBetween(tool::Field field, PyObject* object, std::int64_t least, std::int64_t most) {
  const Ref integer = integerOf(field, object);
  int isOutOfRange = 0;
  const long long value = PyLong_AsLongLongAndOverflow(integer.get(), &isOutOfRange);
  if (isOutOfRange != 0 || value < least || value > most) {
    refuse(PyExc_OverflowError, field.id,
           std::string("the value is out of the range of ") + tool::typeName(field.type) + ", " +
               std::to_string(least) + " to " + std::to_string(most));
  }
  if (value == -1 && PyErr_Occurred() != nullptr) {
    throw PythonError();
  }
  return value;
}

double numberOf(tool::Field field, PyObject* object) {
  if (PyFloat_Check(object) != 0) {
    return PyFloat_AsDouble(object);
  }
  if (PyBool_Check(object) != 0) {
    refuseType(field, "a number", object);
  }
  const double value = PyFloat_AsDouble(object);
  if (value == -1 && PyErr_Occurred() != nullptr) {
    if (PyErr_ExceptionMatches(PyExc_OverflowError) != 0) {
      PyErr_Clear();
      refuse(PyExc_OverflowError, field.id,
             std::string("the value is out of the range of ") + tool::typeName(field.type));
    }
    if (PyErr_ExceptionMatches(PyExc_TypeError) != 0) {
      PyErr_Clear();
      refuseType(field, "a number", object);
    }
    throw PythonError();
  }
  return value;
}

void requireCarried(tool::Field field) {
  if (!tool::isCarried(field.type)) {
    refuse(PyExc_TypeError, field.id,
           std::string("values of type ") + tool::typeName(field.type) + " are not carried by messages");
  }
}

}  // namespace

void setDateTimeClass(PyObject* dateTimeClass) noexcept {
  Py_INCREF(dateTimeClass);
  PyObject* const old = std::exchange(g_dateTimeClass, dateTimeClass);
  Py_XDECREF(old);
}

Ref toPython(char value) { return decodeText(&value, 1); }
Ref toPython(std::int32_t value) { return own(PyLong_FromLong(value)); }
Ref toPython(std::int64_t value) { return own(PyLong_FromLongLong(value)); }
Ref toPython(float value) { return own(PyFloat_FromDouble(static_cast<double>(value))); }
Ref toPython(double value) { return own(PyFloat_FromDouble(value)); }
Ref toPython(MD_Message::String value) { return decodeText(value.data, value.length); }
Ref toPython(MD_Message::Buffer value) {
  const void* const bytes = value.data;
  return own(PyBytes_FromStringAndSize(static_cast<const char*>(bytes), value.length));
}
Ref toPython(MD_DateTime value) {
  return own(PyObject_CallFunction(g_dateTimeClass, "iii", value.date(), value.time(), int{value.exch_gmt_offset()}));
}
Ref toPython(MD_EpochNS value) { return own(PyLong_FromUnsignedLongLong(value.get())); }

Ref readValue(const MD_Message& message, tool::Field field) {
  const QuietReports quiet;
  switch (field.type) {
#define MD_CASE(T, name, code)          \
  case code: {                          \
    T value{};                          \
    if (message.get(field.id, value)) { \
      return toPython(value);           \
    }                                   \
    break;                              \
  }
    MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
    default:
      break;
  }
  return Ref();
}

std::string whyUnreadable(const MD_Message& message, std::uint16_t id) {
  for (const FieldView& field : message.fields()) {
    if (field.id() == id) {
      return field.reason();
    }
  }
  return "absent";
}

Ref requireValue(const MD_Message& message, tool::Field field) {
  Ref value = readValue(message, field);
  if (!value) {
    refuse(PyExc_ValueError, field.id, whyUnreadable(message, field.id));
  }
  return value;
}

template <>
void Value::convert(PyObject* object, char& out) {
  if (PyUnicode_Check(object) == 0) {
    refuseType(m_field, "a str of one character", object);
  }
  const EncodedText text = encodeText(object);
  if (text.sizeBytes != 1) {
    refuse(PyExc_ValueError, m_field.id,
           "a CHAR is one byte of text, this is " + std::to_string(text.sizeBytes) + " bytes of UTF-8");
  }
  out = text.data[0];
}

template <>
void Value::convert(PyObject* object, std::int32_t& out) {
  using Limits = std::numeric_limits<std::int32_t>;
  out = static_cast<std::int32_t>(integerBetween(m_field, object, Limits::min(), Limits::max()));
}

template <>
void Value::convert(PyObject* object, std::int64_t& out) {
  using Limits = std::numeric_limits<std::int64_t>;
  out = integerBetween(m_field, object, Limits::min(), Limits::max());
}

template <>
void Value::convert(PyObject* object, double& out) {
  out = numberOf(m_field, object);
}

template <>
void Value::convert(PyObject* object, float& out) {
  const double value = numberOf(m_field, object);
  // What rounds to more than the largest float; a conversion of that would be undefined.
  constexpr double kTooLarge = 0x1.ffffffp127;
  if (std::isfinite(value) && std::abs(value) >= kTooLarge) {
    refuse(PyExc_OverflowError, m_field.id, "the value is out of the range of FLOAT");
  }
  out = static_cast<float>(value);
}

template <>
void Value::convert(PyObject* object, MD_DateTime& out) {
  if (PyTuple_Check(object) == 0 || PyTuple_Size(object) != 3) {
    refuseType(m_field, "a DateTime or a tuple (date, time, offset)", object);
  }
  using Limits = std::numeric_limits<std::int16_t>;
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  const std::int64_t date = integerBetween(m_field, PyTuple_GetItem(object, 0), 0, kMost);
  const std::int64_t time = integerBetween(m_field, PyTuple_GetItem(object, 1), 0, kMost);
  const std::int64_t offset = integerBetween(m_field, PyTuple_GetItem(object, 2), Limits::min(), Limits::max());
  try {
    out = tool::makeDateTime(static_cast<std::int32_t>(date), static_cast<std::int32_t>(time),
                             static_cast<std::int16_t>(offset));
  } catch (const tool::LineError& error) {
    refuse(PyExc_ValueError, m_field.id, error.what());
  }
}

Value::Value(tool::Field field, PyObject* object) : m_field(field) {
  requireCarried(field);
  switch (field.type) {
    case DATATYPES::CHAR:
      convert(object, m_char);
      return;
    case DATATYPES::INT:
      convert(object, m_int32);
      return;
    case DATATYPES::INT64:
      convert(object, m_int64);
      return;
    case DATATYPES::FLOAT:
      convert(object, m_float);
      return;
    case DATATYPES::DOUBLE:
      convert(object, m_double);
      return;
    case DATATYPES::DATETIME:
      convert(object, m_dateTime);
      return;
    case DATATYPES::STRING:
      if (PyUnicode_Check(object) == 0) {
        refuseType(m_field, "a str", object);
      }
      m_text = encodeText(object);
      return;
    case DATATYPES::BUFFER:
      if (PyObject_CheckBuffer(object) == 0) {
        refuseType(m_field, "an object with the buffer protocol, such as bytes", object);
      }
      check(PyObject_GetBuffer(object, &m_buffer, PyBUF_SIMPLE));
      return;
    default: {
      const Ref integer = integerOf(field, object);
      m_nanoseconds = PyLong_AsUnsignedLongLong(integer.get());
      if (PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        refuse(PyExc_OverflowError, field.id, "the value is out of the range of EPOCH_NSEC, 0 to 18446744073709551615");
      }
    }
  }
}

Value::~Value() { PyBuffer_Release(&m_buffer); }

void Value::storeIn(MD_Message& message) const {
  const QuietReports quiet;
  const auto update = [&](auto value) { return message.update(MD::Field<decltype(value)>(m_field.id), value); };
  bool isStored = false;
  std::size_t sizeBytes = 0;
  switch (m_field.type) {
    case DATATYPES::CHAR:
      isStored = update(m_char);
      break;
    case DATATYPES::INT:
      isStored = update(m_int32);
      break;
    case DATATYPES::INT64:
      isStored = update(m_int64);
      break;
    case DATATYPES::FLOAT:
      isStored = update(m_float);
      break;
    case DATATYPES::DOUBLE:
      isStored = update(m_double);
      break;
    case DATATYPES::DATETIME:
      isStored = update(m_dateTime);
      break;
    case DATATYPES::STRING:
      sizeBytes = m_text.sizeBytes;
      // The length field of an IterMap record cannot say 65,535 characters: nobody could receive the message.
      isStored = sizeBytes <= kMostBytes - (message.getPB() == ENCODINGS::ITERMAP ? 1 : 0) &&
                 update(MD_Message::String(m_text.data, static_cast<std::uint16_t>(sizeBytes)));
      break;
    case DATATYPES::BUFFER:
      sizeBytes = static_cast<std::size_t>(m_buffer.len);
      isStored = sizeBytes <= kMostBytes && update(MD_Message::Buffer(static_cast<const std::uint8_t*>(m_buffer.buf),
                                                                      static_cast<std::uint16_t>(sizeBytes)));
      break;
    default:
      isStored = update(MD_EpochNS(m_nanoseconds));
  }
  if (isStored) {
    return;
  }
  // A received message may hold a record that does not match the type that the dictionary declares.
  if (message.existsImpl(m_field.id) && !readValue(message, m_field)) {
    refuse(PyExc_ValueError, m_field.id,
           "the message contains a record of this field that cannot be read (" + whyUnreadable(message, m_field.id) +
               "); delete it first");
  }
  refuse(PyExc_ValueError, m_field.id, tool::tooLong(message, m_field.id, sizeBytes).what());
}

}  // namespace MD::python
