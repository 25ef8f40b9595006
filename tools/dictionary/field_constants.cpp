#include "dictionary/field_constants.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "base/errors.h"
#include "base/hex.h"
#include "base/quoted_text.h"
#include "base/utf8.h"
#include "dictionary/field_names.h"
#include "dictionary/identifiers.h"
#include "md/md_datatypes.h"
#include "md/md_escape.h"
#include "md/md_fieldmap.h"
#include "text/json_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

/// A field with a constant.
struct Constant {
  const FIELDS::field_rec* field;
  std::string identifier;
};

/// What the languages call the values of a type.
struct ValueType {
  std::uint8_t code;
  const char* cpp;
  const char* python;
};

constexpr ValueType kValueTypes[] = {
    {DATATYPES::CHAR, "char", "str"},
    {DATATYPES::INT, "std::int32_t", "int"},
    {DATATYPES::INT64, "std::int64_t", "int"},
    {DATATYPES::FLOAT, "float", "float"},
    {DATATYPES::DOUBLE, "double", "float"},
    {DATATYPES::STRING, "MD::MD_Message::String", "str"},
    {DATATYPES::BUFFER, "MD::MD_Message::Buffer", "bytes"},
    {DATATYPES::DATETIME, "MD::MD_DateTime", "DateTime"},
    {DATATYPES::EPOCH_NSEC, "MD::MD_EpochNS", "int"},
};

const ValueType& valueTypeOf(std::uint8_t type) {
  return *std::find_if(std::begin(kValueTypes), std::end(kValueTypes),
                       [type](const ValueType& value) { return value.code == type; });
}

constexpr std::string_view kScope = "::";

/// The namespaces of "outer::inner". @throws UsageError when it is none
std::vector<std::string> namespacesIn(const std::string& text) {
  std::vector<std::string> names;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(kScope, begin), text.size());
    names.push_back(text.substr(begin, end - begin));
    if (!isPrefix(names.back()) || isReserved(names.back())) {
      throw UsageError("--namespace: " + inQuotes(text) +
                       " is not a namespace: names of letters, digits and single "
                       "underscores, no keywords, with :: between them");
    }
    begin = end + kScope.size();
  }
  return names;
}

std::string joined(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const std::string& word : words) {
    text += text.empty() ? "" : separator;
    text += word;
  }
  return text;
}

std::string inUpperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  return text;
}

/// A literal of C and C++: three octal digits, unlike hex ones, end by themselves.
void appendLiteral(std::string_view text, std::string& out) {
  out += '"';
  for (const char c : text) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (byte < 0x20 || byte >= 0x7f || c == '?') {  // a question mark may begin a trigraph
      out += '\\';
      out += static_cast<char>('0' + (byte >> 6));
      out += static_cast<char>('0' + (byte >> 3 & 7));
      out += static_cast<char>('0' + (byte & 7));
    } else {
      out += c == '"' || c == '\\' ? "\\" : "";
      out += c;
    }
  }
  out += '"';
}

/// Makes the constants, and writes them.
class Generator {
 public:
  explicit Generator(const FieldConstantsOptions& options) : m_options(options), m_map(MD_FieldMap::instance()) {
    if (options.language != Language::Python) {
      m_namespaces = namespacesIn(options.nameSpace);
    }
    if (!options.prefix.empty() && !isPrefix(options.prefix)) {
      throw UsageError("--prefix: " + inQuotes(options.prefix) +
                       " is not the beginning of a name: a letter, then letters, digits and single underscores");
    }
    const std::string name = joined(m_namespaces, "_");
    m_prefix = options.language == Language::C && options.prefix.empty() ? inUpperCase(name) + '_' : options.prefix;
    m_checkFunction = options.language == Language::C ? name + "_check" : "check";
    m_fingerprint = inUpperCase(name) + "_DICTIONARY_FINGERPRINT";
    const char* const language = options.language == Language::C ? "C_" : "CPP_";
    m_guard = std::string("MD_GENERATED_") + language + inUpperCase(name + '_' + options.prefix) + "H";
    choose();
    nameAll();
  }

  std::string text() {
    switch (m_options.language) {
      case Language::Cpp:
        writeCpp();
        break;
      case Language::C:
        writeC();
        break;
      case Language::Python:
        writePython();
    }
    return std::move(m_out);
  }

 private:
  void choose() {
    std::vector<bool> isWanted(std::size_t{0xffff} + 1, m_options.only.empty());
    const FieldNames names;
    for (const std::string& key : m_options.only) {
      isWanted[names.match("--only", key).id] = true;
    }
    for (const FIELDS::field_rec& field : m_map) {
      if (isWanted[field.id]) {
        if (isCarried(field.type)) {
          m_constants.push_back({&field, identifierOf(field.name, m_prefix)});
        } else {
          m_notCarried.push_back(&field);
        }
      }
    }
    if (m_constants.empty()) {
      throw UsageError("the dictionary has no field of a type that messages carry");
    }
  }

  static std::string labelOf(const FIELDS::field_rec& field) {
    return inQuotes(field.name) + " (id " + std::to_string(field.id) + ')';
  }

  /// Looks for names that are there twice, or not at all.
  void nameAll() {
    std::map<std::string, std::string> users;
    std::vector<std::string> complaints;
    if (m_options.language == Language::C) {
      users[m_checkFunction] = "the function of the check";
      users[m_fingerprint] = "the fingerprint of the dictionary";
    }
    const auto use = [&](const std::string& identifier, const std::string& label) {
      const auto [user, isNew] = users.emplace(identifier, label);
      if (!isNew) {
        complaints.push_back(label + " and " + user->second + " are both " + identifier);
      }
    };
    for (const Constant& constant : m_constants) {
      const std::string& name = constant.field->name;
      const std::string label = "field " + labelOf(*constant.field);
      if (name.find('\0') != name.npos) {
        complaints.push_back(label + ": a name with a NUL cannot be written");
      } else if (m_options.language == Language::Python && !isUtf8(name)) {
        complaints.push_back(label + ": a name that is not UTF-8 cannot be written in Python");
      }
      use(constant.identifier, label);
      if (m_options.language == Language::C) {
        use(typeIdentifierOf(constant), "the type of " + label);
      }
    }
    if (complaints.empty()) {
      return;
    }
    constexpr std::size_t kMostComplaints = 10;
    const std::size_t count = complaints.size();
    complaints.resize(std::min(count, kMostComplaints));
    throw UsageError("the constants cannot be written (choose fields with --only): " + joined(complaints, "; ") +
                     (count > kMostComplaints ? "; and " + std::to_string(count - kMostComplaints) + " more" : ""));
  }

  static std::string typeIdentifierOf(const Constant& constant) {
    return constant.identifier + (constant.identifier.back() == '_' ? "type" : "_type");
  }

  void line(std::string_view text = {}) { m_out.append(text) += '\n'; }

  /// @param comment  what begins one that ends with its line
  void writeFirstLine(std::string_view comment) {
    line(std::string(comment) + " Generated by \"" + escaped(m_options.command) + "\"; do not edit.");
  }

  void writeNotCarried(std::string_view comment) {
    if (m_notCarried.empty()) {
      return;
    }
    line();
    line(std::string(comment) + " Fields of types that messages do not carry have no constant:");
    for (const FIELDS::field_rec* const field : m_notCarried) {
      line(std::string(comment) + ' ' + escaped(field->name) + " (" + std::to_string(field->id) + ", " +
           typeName(field->type) + ')');
    }
  }

  void beginGuard() {
    line("#ifndef " + m_guard);
    line("#define " + m_guard);
    line();
  }
  void endGuard() {
    line();
    line("#endif");
  }

  void writeCpp() {
    const std::string nameSpace = joined(m_namespaces, "::");
    writeFirstLine("//");
    beginGuard();
    line("#include <cstdint>");
    line();
    line("#include <iterator>");
    line();
    line("#include <md/md_datatypes.h>");
    line("#include <md/md_field.h>");
    line("#include <md/md_field_check.h>");
    line("#include <md/md_message.h>");
    line();
    line("namespace " + nameSpace + " {");
    line();
    line("/// The fingerprint of the whole dictionary, as MD::MD_FieldMap::fingerprint() returns it.");
    line("inline constexpr std::uint64_t kFingerprint = " + hexNumber(m_map.fingerprint()) + ";");
    line();
    for (const auto& [field, identifier] : m_constants) {
      line(std::string("inline constexpr MD::Field<") + valueTypeOf(field->type).cpp + "> " + identifier + '{' +
           std::to_string(field->id) + "};");
    }
    writeNotCarried("//");
    line();
    line("/// Compares these fields with the dictionary of the process.");
    line(
        "/// @throws std::runtime_error if a field is missing or has another id or type; the text names the field and "
        "the");
    line("///         difference");
    line("inline void check() {");
    line("  static constexpr MD::ExpectedField kFields[] = {");
    for (const auto& [field, identifier] : m_constants) {
      m_out += "      {";
      appendLiteral(field->name, m_out);
      line(", " + identifier + ".id(), MD::DATATYPES::" + typeName(field->type) + "},");
    }
    line("  };");
    line("  MD::checkFields(kFields, std::size(kFields));");
    line("}");
    line();
    line("}  // namespace " + nameSpace);
    endGuard();
  }

  void writeC() {
    writeFirstLine("//");
    beginGuard();
    line("#include <stdbool.h>");
    line("#include <stddef.h>");
    line("#include <stdint.h>");
    line();
    line("#include <md/md_message_c_ext.h>");
    line();
    line("/* The fingerprint of the whole dictionary, as MD_FieldMap_fingerprint() returns it. */");
    line("#define " + m_fingerprint + " UINT64_C(" + hexNumber(m_map.fingerprint()) + ")");
    line();
    line("/* Ids. */");
    line("enum {");
    for (const auto& [field, identifier] : m_constants) {
      line("  " + identifier + " = " + std::to_string(field->id) + ',');
    }
    line("};");
    line();
    line("/* Type codes. */");
    line("enum {");
    for (const Constant& constant : m_constants) {
      line("  " + typeIdentifierOf(constant) + " = MD_TYPE_" + typeName(constant.field->type) + ',');
    }
    line("};");
    writeNotCarried("//");
    line();
    line(
        "/* Compares these fields with the dictionary of the process. False if a field is missing or has another id or "
        "type:");
    line(
        " * text[0] to text[capacity - 1] then name the field and the difference, terminated by NUL. A null `text` "
        "skips this. */");
    line("static inline bool " + m_checkFunction + "(char* text, size_t capacity) {");
    line("  static const MD_ExpectedField kFields[] = {");
    for (const Constant& constant : m_constants) {
      m_out += "      {";
      appendLiteral(constant.field->name, m_out);
      line(", " + constant.identifier + ", " + typeIdentifierOf(constant) + "},");
    }
    line("  };");
    line("  return MD_FieldMap_checkFields(kFields, sizeof kFields / sizeof kFields[0], text, capacity);");
    line("}");
    endGuard();
  }

  void writePython() {
    writeFirstLine("#");
    m_out += kPythonStart;
    line("FINGERPRINT: _typing.Final = " + hexNumber(m_map.fingerprint()));
    line("\"\"\"The fingerprint of the whole dictionary.\"\"\"");
    line();
    for (const auto& [field, identifier] : m_constants) {
      m_out += identifier + ": _typing.Final[Field[" + valueTypeOf(field->type).python + "]] = Field(";
      appendJsonString(field->name, m_out);  // which Python reads as JSON does
      line(", " + std::to_string(field->id) + ", \"" + typeName(field->type) + "\")");
    }
    writeNotCarried("#");
    line();
    line("FIELDS: _typing.Final[_typing.Tuple[Field[object], ...]] = (");
    for (const Constant& constant : m_constants) {
      line("    " + constant.identifier + ',');
    }
    line(")");
    m_out += kPythonEnd;
  }

  static constexpr std::string_view kPythonStart = R"(
"""Fields of messages, as constants."""

import importlib as _importlib
import typing as _typing

_T_co = _typing.TypeVar("_T_co", covariant=True)


class Field(str, _typing.Generic[_T_co]):
    """The name of a field, with its id and type. Type checkers know the type of its values, too."""

    id: int
    type: str

    def __new__(cls, name: str, id: int, type: str) -> "Field[_T_co]":
        field = super().__new__(cls, name)
        field.id = id
        field.type = type
        return field


class DateTime(_typing.Protocol):
    """The value of a DATETIME field."""

    @property
    def date(self) -> int: ...

    @property
    def time(self) -> int: ...

    @property
    def offset(self) -> int: ...


class FieldInfo(_typing.Protocol):
    """The entry of a field in a dictionary."""

    @property
    def id(self) -> int: ...

    @property
    def type(self) -> str: ...


)";

  static constexpr std::string_view kPythonEnd = R"(

def check(dictionary: _typing.Optional[_typing.Mapping[str, FieldInfo]] = None) -> None:
    """Compares these fields with a dictionary, by default that of the package md_message.

    Raises ValueError if a field is missing or has another id or type; the text names the field and the
    difference.
    """
    found: _typing.Mapping[str, FieldInfo] = (
        _importlib.import_module("md_message").dictionary() if dictionary is None else dictionary
    )
    differences = []
    for field in FIELDS:
        info = found.get(field)
        if info is None:
            differences.append(f"{field}: expected id {field.id} {field.type}, found no field of this name")
        elif (info.id, info.type) != (field.id, field.type):
            differences.append(
                f"{field}: expected id {field.id} {field.type}, found id {info.id} {info.type}"
            )
    if differences:
        more = f"; and {len(differences) - 10} more" if len(differences) > 10 else ""
        raise ValueError(
            "the dictionary does not match the fields of this program: " + "; ".join(differences[:10]) + more
        )
)";

  const FieldConstantsOptions& m_options;
  const MD_FieldMap& m_map;
  std::vector<std::string> m_namespaces;
  std::string m_prefix;
  std::string m_checkFunction;
  std::string m_fingerprint;  // of C
  std::string m_guard;
  std::vector<Constant> m_constants;
  std::vector<const FIELDS::field_rec*> m_notCarried;
  std::string m_out;
};

}  // namespace

std::string fieldConstants(const FieldConstantsOptions& options) { return Generator(options).text(); }

}  // namespace MD::tool
