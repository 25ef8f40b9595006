// JSON texts, parsed in place.
#ifndef MDMSG_JSON_PARSER_H
#define MDMSG_JSON_PARSER_H

#include <cstddef>
#include <cstring>

#include <string>
#include <string_view>

#include <rapidjson/reader.h>

#include "base/errors.h"
#include "base/utf8.h"

namespace MD::tool {

/// How deep arrays and objects may be nested.
enum class JsonNesting {
  Handled,  ///< as deep as the handler allows; the parser recurses
  Any,
};

/// What to say about a text that the parser refuses.
/// @param text    as it came, but for the strings in front of the place
/// @param offset  where the parser stopped
LineError jsonError(rapidjson::ParseErrorCode code, std::string_view text, std::size_t offset);

/// What to say about a string that names half of a surrogate pair. @param offset  where it begins
LineError halfSurrogate(std::size_t offset);

/// Passes on the events of the parser, except for strings that are not UTF-8, which the parser accepts: an escape
/// sequence can name half of a surrogate pair.
template <class Handler>
class CheckedStrings {
 public:
  CheckedStrings(Handler& handler, rapidjson::InsituStringStream& stream, bool hasEscapes)
      : m_handler(handler), m_stream(stream), m_hasEscapes(hasEscapes) {}

  bool Null() { return m_handler.null(); }
  bool Bool(bool value) { return m_handler.boolean(value); }
  bool RawNumber(const char* text, unsigned length, bool) { return m_handler.number({text, length}); }
  bool String(const char* text, unsigned length, bool) { return m_handler.string(checked(text, length)); }
  bool Key(const char* text, unsigned length, bool) { return m_handler.key(checked(text, length)); }
  bool StartObject() { return m_handler.startObject(); }
  bool EndObject(unsigned) { return m_handler.endObject(); }
  bool StartArray() { return m_handler.startArray(); }
  bool EndArray(unsigned) { return m_handler.endArray(); }
  // Numbers come as they are written.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }

 private:
  std::string_view checked(const char* text, unsigned length) const {
    const std::string_view string(text, length);
    if (m_hasEscapes && !isUtf8(string)) {
      // The stream's position is the start of the string until the handler returns.
      throw halfSurrogate(m_stream.Tell());
    }
    return string;
  }

  Handler& m_handler;
  rapidjson::InsituStringStream& m_stream;
  bool m_hasEscapes;
};

/// Passes the parts of a JSON text to `handler`: null(), boolean(bool), number(std::string_view) as it is written,
/// string() and key(), both decoded, startObject(), endObject(), startArray(), endArray(). The texts are in `text`,
/// which is changed for it, and are valid as long as it is. A function that returns false ends the parsing, as does one
/// that throws.
/// @param text  holds no NUL
/// @return false when a function of the handler did
/// @throws LineError with the column, counted from 1, for anything else than one JSON value in UTF-8
template <JsonNesting nesting, class Handler>
bool parseJson(std::string& text, Handler& handler) {
  constexpr unsigned kFlags = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag |
                              (nesting == JsonNesting::Any ? rapidjson::kParseIterativeFlag : rapidjson::kParseNoFlags);
  rapidjson::InsituStringStream stream(text.data());
  CheckedStrings<Handler> checked(handler, stream, text.find('\\') != text.npos);
  rapidjson::Reader reader;
  // The check of each character takes longer than the look at all of them.
  const rapidjson::ParseResult result =
      isAscii(text) ? reader.Parse<kFlags>(stream, checked)
                    : reader.Parse<kFlags | rapidjson::kParseValidateEncodingFlag>(stream, checked);
  if (result.IsError() && result.Code() != rapidjson::kParseErrorTermination) {
    throw jsonError(result.Code(), text, result.Offset());
  }
  return !result.IsError();
}

}  // namespace MD::tool

#endif
