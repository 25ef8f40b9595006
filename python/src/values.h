// Values of fields as Python objects, by the types that the dictionary declares.
#ifndef MD_PYTHON_VALUES_H
#define MD_PYTHON_VALUES_H

#include <cstdint>

#include <string>

#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "python_support.h"

namespace MD::python {

/// The class md_message.DateTime, which values of DATETIME are.
void setDateTimeClass(PyObject* dateTimeClass) noexcept;

/// @{
/// A value as an object.
Ref toPython(char value);
Ref toPython(std::int32_t value);
Ref toPython(std::int64_t value);
Ref toPython(float value);
Ref toPython(double value);
Ref toPython(MD_Message::String value);
Ref toPython(MD_Message::Buffer value);
Ref toPython(MD_DateTime value);
Ref toPython(MD_EpochNS value);
/// @}

/// The value of a field, empty where the message does not have the field or it cannot be read.
Ref readValue(const MD_Message& message, tool::Field field);

/// Why a field that the message has cannot be read.
std::string whyUnreadable(const MD_Message& message, std::uint16_t id);

/// Reads a field that the message has. @throws PythonError (ValueError, with the field's name) when it cannot be read
Ref requireValue(const MD_Message& message, tool::Field field);

/// An object converted to the type of a field: storeIn() runs no Python code.
class Value {
 public:
  /// @throws PythonError (TypeError, OverflowError or ValueError, with the field's name)
  Value(tool::Field field, PyObject* object);
  ~Value();
  Value(const Value&) = delete;
  Value& operator=(const Value&) = delete;

  /// Replaces the field's value or adds the field. @throws PythonError (ValueError), the message unchanged, when the
  /// message cannot hold it
  void storeIn(MD_Message& message) const;

 private:
  template <class T>
  void convert(PyObject* object, T& out);

  tool::Field m_field;
  union {
    char m_char;
    std::int32_t m_int32;
    std::int64_t m_int64;
    float m_float;
    double m_double;
    std::uint64_t m_nanoseconds = 0;
  };
  MD_DateTime m_dateTime;
  EncodedText m_text;
  Py_buffer m_buffer{};
};

}  // namespace MD::python

#endif
