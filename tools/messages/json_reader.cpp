#include "messages/json_reader.h"

#include <cstring>

#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "messages/message_builder.h"
#include "messages/pseudo_fields.h"
#include "text/hex_reader.h"
#include "text/json_parser.h"
#include "text/time_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

/// What the JSON forms of values that are objects are made of.
enum Member { kHex, kEnd, kBits, kValue, kBytes, kDate, kTime, kOffset, kPacked, kUnreadable, kMemberCount };
constexpr const char* kMemberNames[kMemberCount] = {"hex",  "end",  "bits",   "value",  "bytes",
                                                    "date", "time", "offset", "packed", "unreadable"};

constexpr unsigned only(Member member) { return 1U << member; }

struct Scalar {
  bool isNumber = false;
  std::string_view text;  // a number as it is written
};

const char* formOf(std::uint8_t type) noexcept {
  switch (type) {
    case DATATYPES::CHAR:
      return "a string of one character or {\"hex\":..}";
    case DATATYPES::INT:
      return "an integer or {\"value\":..,\"bytes\":..}";
    case DATATYPES::INT64:
      return "an integer";
    case DATATYPES::FLOAT:
    case DATATYPES::DOUBLE:
      return "a number, \"NaN\", \"Infinity\", \"-Infinity\" or {\"bits\":..}";
    case DATATYPES::STRING:
      return "a string or {\"hex\":..}";
    case DATATYPES::BUFFER:
      return "{\"hex\":..}";
    case DATATYPES::DATETIME:
      return "{\"date\":..,\"time\":..,\"offset\":..}";
    case DATATYPES::EPOCH_NSEC:
      return "an integer or a timestamp such as \"2024-06-03T09:30:00Z\"";
    default:
      return "nothing";
  }
}

template <class T>
T wholeOf(const Scalar& scalar, std::string_view what) {
  if (!scalar.isNumber) {
    throw LineError(std::string(what) + " takes an integer, not a string");
  }
  return scalar.text == "-0" ? T{0} : parseWhole<T>(scalar.text, what);
}

}  // namespace

/// Receives the parts of one message and adds each field as soon as its value is there.
class JsonReader::Handler {
 public:
  explicit Handler(const FieldNames& names) : m_fields(names) {}

  void read(std::string_view text, MD_Message& message) {
    m_message = &message;
    m_depth = 0;
    m_key = {};
    m_isIgnored = false;
    // The parser would take it for the end of the line.
    if (const std::size_t nul = text.find('\0'); nul != text.npos) {
      throw LineError("column " + std::to_string(nul + 1) + ": a NUL byte");
    }
    m_text = text;
    try {
      parseJson<JsonNesting::Handled>(m_text, *this);
    } catch (const LineError& error) {
      throw LineError(error.what(), error.field().empty() ? std::string(m_key) : error.field(), error.kind());
    }
  }

  bool null() const { return m_isIgnored || refuse("null"); }
  bool boolean(bool value) const { return m_isIgnored || refuse(value ? "true" : "false"); }
  bool number(std::string_view text) { return m_isIgnored || take({true, text}); }
  bool string(std::string_view text) { return m_isIgnored || take({false, text}); }

  bool startObject() {
    if (m_depth == 2) {
      return refuse("an object inside an object");
    }
    ++m_depth;
    m_present = 0;
    return true;
  }

  bool key(std::string_view key) {
    if (m_depth == 1) {
      m_key = key;
      m_isIgnored =
          isPseudoName(key) && MD_FieldMap::instance().findByName(std::string(key)) == MD_FieldMap::instance().end();
      if (m_isIgnored) {
        parsePseudoField(key);
        return true;
      }
      m_field = m_fields.find(key);
      if (m_message->existsImpl(m_field.id)) {
        throw LineError("is given twice");
      }
      return true;
    }
    if (m_isIgnored) {
      return true;
    }
    for (m_member = 0; m_member != kMemberCount; ++m_member) {
      if (key == kMemberNames[m_member]) {
        if ((m_present & 1U << m_member) != 0) {
          throw LineError(inQuotes(key) + " is given twice");
        }
        return true;
      }
    }
    throw LineError(inQuotes(key) + " is not known here; " + takes());
  }

  bool endObject() {
    if (--m_depth == 1 && !m_isIgnored) {
      addObject();
    }
    m_key = {};
    return true;
  }

  bool startArray() const { return refuse("an array"); }
  bool endArray() const { return true; }

 private:
  std::string takes() const { return std::string(typeName(m_field.type)) + " takes " + formOf(m_field.type); }

  /// @throws LineError always
  [[noreturn]] bool refuse(const std::string& what) const {
    if (m_depth == 0) {
      throw LineError("a message is one JSON object, not " + what);
    }
    throw LineError(takes() + ", not " + what);
  }

  bool take(const Scalar& scalar) {
    switch (m_depth) {
      case 0:
        return refuse(scalar.isNumber ? "a number" : "a string");
      case 1:
        addScalar(scalar);
        m_key = {};
        return true;
      default:
        m_present |= 1U << m_member;
        m_members[m_member] = scalar;
        return true;
    }
  }

  void addScalar(const Scalar& scalar) {
    switch (m_field.type) {
      case DATATYPES::CHAR:
        expectText(scalar);
        return addChar(scalar.text);
      case DATATYPES::STRING:
        expectText(scalar);
        return addString(*m_message, m_field.id, scalar.text);
      case DATATYPES::INT:
        return addValue(*m_message, m_field.id, wholeOf<std::int32_t>(numberOf(scalar), "INT"));
      case DATATYPES::INT64:
        return addValue(*m_message, m_field.id, wholeOf<std::int64_t>(numberOf(scalar), "INT64"));
      case DATATYPES::EPOCH_NSEC:
        return addEpochNs(scalar);
      case DATATYPES::FLOAT:
        return addReal<float>(scalar);
      case DATATYPES::DOUBLE:
        return addReal<double>(scalar);
      default:
        refuseScalar(scalar);
    }
  }

  void expectText(const Scalar& scalar) const {
    if (scalar.isNumber) {
      refuseScalar(scalar);
    }
  }

  const Scalar& numberOf(const Scalar& scalar) const {
    if (!scalar.isNumber) {
      refuseScalar(scalar);
    }
    return scalar;
  }

  [[noreturn]] void refuseScalar(const Scalar& scalar) const {
    if (!scalar.isNumber) {
      throw LineError(takes() + ", not the string " + inQuotes(scalar.text));
    }
    throw LineError(takes() + ", not a number");
  }

  void addEpochNs(const Scalar& scalar) {
    if (!scalar.isNumber) {
      if (const auto moment = parseIsoTime(scalar.text)) {
        return addValue(*m_message, m_field.id, MD_EpochNS(*moment));
      }
    }
    addValue(*m_message, m_field.id, MD_EpochNS(wholeOf<std::uint64_t>(numberOf(scalar), "EPOCH_NSEC")));
  }

  void addChar(std::string_view text) {
    if (text.size() != 1) {
      throw LineError(inQuotes(text) + " is " + std::to_string(text.size()) + " bytes, a CHAR is one");
    }
    addValue(*m_message, m_field.id, text[0]);
  }

  template <class T>
  void addReal(const Scalar& scalar) {
    T value{};
    if (scalar.isNumber) {
      // From its text, so that a FLOAT is rounded once.
      value = parseReal<T>(scalar.text);
    } else if (!parseRealName(scalar.text, value)) {
      refuseScalar(scalar);
    }
    addValue(*m_message, m_field.id, value);
  }

  void addObject() {
    const std::uint16_t id = m_field.id;
    if ((m_present & only(kUnreadable)) != 0) {
      throw LineError("\"unreadable\" shows bytes that could not be read; they cannot be encoded");
    }
    switch (m_field.type) {
      case DATATYPES::CHAR:
        expectMembers(only(kHex));
        parseBytes(kHex);
        return addChar(std::string(m_bytes.begin(), m_bytes.end()));
      case DATATYPES::STRING:
        return addStringObject();
      case DATATYPES::BUFFER:
        expectMembers(only(kHex));
        parseBytes(kHex);
        return addBuffer(*m_message, id, m_bytes.data(), m_bytes.size());
      case DATATYPES::INT: {
        expectMembers(only(kValue) | only(kBytes));
        const auto value = wholeOf<std::int32_t>(member(kValue), "INT");
        return addInt(*m_message, id, value, wholeOf<std::uint64_t>(member(kBytes), "\"bytes\""));
      }
      case DATATYPES::FLOAT:
        return addBits<float, std::uint32_t>();
      case DATATYPES::DOUBLE:
        return addBits<double, std::uint64_t>();
      case DATATYPES::DATETIME:
        return addDateTime();
      default:
        throw LineError(takes() + ", not an object");
    }
  }

  void addStringObject() {
    const bool hasEnd = (m_present & only(kEnd)) != 0;
    expectMembers(hasEnd ? only(kHex) | only(kEnd) : only(kHex));
    parseBytes(kHex);
    const std::string text(m_bytes.begin(), m_bytes.end());
    if (!hasEnd) {
      return addString(*m_message, m_field.id, text);
    }
    parseBytes(kEnd);
    if (m_bytes.size() != 1) {
      throw LineError("\"end\" is one byte");
    }
    addStringEndingIn(*m_message, m_field.id, text, m_bytes[0]);
  }

  const Scalar& member(Member which) const { return m_members[which]; }

  void expectMembers(unsigned members) const {
    if (m_present != members) {
      throw LineError(takes());
    }
  }

  /// Puts the bytes that a member spells into m_bytes.
  void parseBytes(Member which) {
    const Scalar& scalar = member(which);
    if (scalar.isNumber) {
      throw LineError('"' + std::string(kMemberNames[which]) + "\" takes a string of hex digits");
    }
    parseHex(scalar.text, Blanks::Refused, m_bytes);
  }

  template <class T, class Bits>
  void addBits() {
    expectMembers(only(kBits));
    parseBytes(kBits);
    if (m_bytes.size() != sizeof(Bits)) {
      throw LineError(std::string("the bits of a ") + typeName(m_field.type) + " are " +
                      std::to_string(2 * sizeof(Bits)) + " hex digits");
    }
    Bits bits = 0;
    for (const std::uint8_t byte : m_bytes) {
      bits = static_cast<Bits>(bits << 8 | byte);
    }
    T value{};
    std::memcpy(&value, &bits, sizeof value);
    addValue(*m_message, m_field.id, value);
  }

  void addDateTime() {
    constexpr unsigned kParts = only(kDate) | only(kTime) | only(kOffset);
    const bool hasPacked = (m_present & only(kPacked)) != 0;
    expectMembers(hasPacked ? kParts | only(kPacked) : kParts);
    const auto date = wholeOf<std::int32_t>(member(kDate), "\"date\"");
    const auto time = wholeOf<std::int32_t>(member(kTime), "\"time\"");
    const auto offset = wholeOf<std::int16_t>(member(kOffset), "\"offset\"");
    if (!hasPacked) {
      return addValue(*m_message, m_field.id, makeDateTime(date, time, offset));
    }
    const auto packed = wholeOf<std::uint64_t>(member(kPacked), "\"packed\"");
    char bytes[sizeof packed];
    std::memcpy(bytes, &packed, sizeof packed);
    MD_DateTime value;
    MD_DateTime::deserialize(value, bytes);
    if (value.date() != date || value.time() != time || value.exch_gmt_offset() != offset) {
      throw LineError("\"packed\" does not match the date, time and offset beside it");
    }
    addValue(*m_message, m_field.id, value);
  }

  FieldCache m_fields;
  MD_Message* m_message = nullptr;
  std::string m_text;  // the message's, which contains the others
  int m_depth = 0;
  std::string_view m_key;  // of the current field, empty outside fields
  Field m_field;
  bool m_isIgnored = false;  // the current field is a pseudo-field, which no message carries
  unsigned m_member = 0;     // of the current object
  unsigned m_present = 0;    // bits of the members that came
  Scalar m_members[kMemberCount];
  std::vector<std::uint8_t> m_bytes;
};

JsonReader::JsonReader(const FieldNames& names) : m_handler(std::make_unique<Handler>(names)) {}

JsonReader::~JsonReader() = default;

void JsonReader::read(std::string_view text, MD_Message& message) { m_handler->read(text, message); }

}  // namespace MD::tool
