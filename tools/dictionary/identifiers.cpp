#include "dictionary/identifiers.h"

#include <cstddef>
#include <cstdint>

#include <algorithm>
#include <iterator>

namespace MD::tool {
namespace {

constexpr std::string_view kReserved[] = {
    // C, up to C23
    "alignas", "alignof", "auto", "bool", "break", "case", "char", "const", "constexpr", "continue", "default", "do",
    "double", "else", "enum", "extern", "false", "float", "for", "goto", "if", "inline", "int", "long", "nullptr",
    "register", "restrict", "return", "short", "signed", "sizeof", "static", "static_assert", "struct", "switch",
    "thread_local", "true", "typedef", "typeof", "typeof_unqual", "union", "unsigned", "void", "volatile", "while",
    // C++, up to C++23, besides
    "and", "and_eq", "asm", "bitand", "bitor", "catch", "char16_t", "char32_t", "char8_t", "class", "co_await",
    "co_return", "co_yield", "compl", "concept", "const_cast", "consteval", "constinit", "decltype", "delete",
    "dynamic_cast", "explicit", "export", "friend", "mutable", "namespace", "new", "noexcept", "not", "not_eq",
    "operator", "or", "or_eq", "private", "protected", "public", "reinterpret_cast", "requires", "static_cast",
    "template", "this", "throw", "try", "typeid", "typename", "using", "virtual", "wchar_t", "xor", "xor_eq",
    // Python, up to 3.13, besides
    "False", "None", "True", "as", "assert", "async", "await", "def", "del", "elif", "except", "finally", "from",
    "global", "import", "in", "is", "lambda", "nonlocal", "pass", "raise", "with", "yield",
    // Macros of the standard headers, and of compilers
    "EOF", "INFINITY", "NAN", "NULL", "errno", "linux", "stderr", "stdin", "stdout", "unix",
    // Generated headers
    "MD", "check", "kFields", "kFingerprint", "std",
    // Generated Python modules
    "DateTime", "FIELDS", "FINGERPRINT", "Field", "FieldInfo", "ValueError", "bytes", "len", "object", "property",
    "str", "super"};

bool isLetter(char c) noexcept { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }
bool isLetterOrDigit(char c) noexcept { return isLetter(c) || isDigit(c); }

/// Whether the character at `i` is kept unchanged in an identifier.
bool isKept(std::string_view name, std::size_t i) noexcept {
  return isLetterOrDigit(name[i]) || (name[i] == '_' && i != 0 && i + 1 != name.size() &&
                                      isLetterOrDigit(name[i - 1]) && isLetterOrDigit(name[i + 1]));
}

}  // namespace

std::string identifierOf(std::string_view name, std::string_view prefix) {
  std::string identifier(prefix);
  for (std::size_t i = 0; i != name.size();) {
    if (isKept(name, i)) {
      identifier += name[i++];
      continue;
    }
    identifier += i != 0 ? "_x" : "x";
    for (; i != name.size() && !isKept(name, i); ++i) {
      constexpr char kDigits[] = "0123456789ABCDEF";
      const auto byte = static_cast<std::uint8_t>(name[i]);
      identifier += kDigits[byte >> 4];
      identifier += kDigits[byte & 0xf];
    }
    identifier += i != name.size() ? "_" : "";
  }
  if (!identifier.empty() && isDigit(identifier[0])) {
    identifier.insert(0, 1, 'n');
  }
  if (isReserved(identifier)) {
    identifier += '_';
  }
  return identifier;
}

bool isPrefix(std::string_view text) noexcept {
  return !text.empty() && isLetter(text[0]) &&
         std::all_of(text.begin(), text.end(), [](char c) { return isLetterOrDigit(c) || c == '_'; }) &&
         text.find("__") == text.npos;
}

bool isReserved(std::string_view word) noexcept {
  return std::find(std::begin(kReserved), std::end(kReserved), word) != std::end(kReserved);
}

}  // namespace MD::tool
