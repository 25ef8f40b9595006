#include "text/json_parser.h"

#include "base/quoted_text.h"

namespace MD::tool {
namespace {

LineError inColumn(std::size_t column, const std::string& reason) {
  return LineError("column " + std::to_string(column) + ": " + reason);
}

const char* reasonOf(rapidjson::ParseErrorCode code) noexcept {
  switch (code) {
    case rapidjson::kParseErrorDocumentRootNotSingular:
      return "text after the value";
    case rapidjson::kParseErrorObjectMissName:
      return "a key in double quotes is missing";
    case rapidjson::kParseErrorObjectMissColon:
      return "a colon is missing after the key";
    case rapidjson::kParseErrorObjectMissCommaOrCurlyBracket:
      return "a comma or '}' is missing after the value";
    case rapidjson::kParseErrorArrayMissCommaOrSquareBracket:
      return "a comma or ']' is missing after the value";
    case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
      return "\\u takes four hex digits";
    case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
      return "half of a surrogate pair";
    case rapidjson::kParseErrorStringMissQuotationMark:
      return "the string is never closed";
    case rapidjson::kParseErrorStringInvalidEncoding:
      return "not UTF-8";
    case rapidjson::kParseErrorNumberMissFraction:
      return "a digit is missing after the decimal point";
    case rapidjson::kParseErrorNumberMissExponent:
      return "a digit is missing in the exponent";
    default:
      return "not a JSON value";
  }
}

}  // namespace

LineError jsonError(rapidjson::ParseErrorCode code, std::string_view text, std::size_t offset) {
  if (code == rapidjson::kParseErrorNumberTooBig) {
    const std::size_t end = std::min(text.find_first_not_of("+-.0123456789Ee", offset), text.size());
    return inColumn(end, printable(text.substr(offset, end - offset)) + " is too large a number");
  }
  if (code == rapidjson::kParseErrorStringEscapeInvalid) {
    return inColumn(offset + 1, text.substr(offset, 1) == "\\" ? "unknown escape sequence"
                                                               : "a control character that is not escaped");
  }
  return inColumn(offset + 1, reasonOf(code));
}

LineError halfSurrogate(std::size_t offset) {
  return inColumn(offset + 1, "the string that begins here has half of a surrogate pair");
}

}  // namespace MD::tool
