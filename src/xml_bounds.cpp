#include "xml_bounds.h"

#include <cstddef>

#include <algorithm>

namespace MD::detail {
namespace {

constexpr std::size_t kMaxNesting = 100;
constexpr std::size_t kMaxTags = 1'000'000;
constexpr std::size_t kMaxAttributes = 100;

bool isSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isAscii(char c) noexcept { return static_cast<unsigned char>(c) < 0x80; }

/// Whether TinyXML takes the '<' at `position` for the start of an element. What else it does not know ends at the
/// first '>', quotes or not.
bool startsElement(std::string_view text, std::size_t position) {
  const char next = position + 1 < text.size() ? text[position + 1] : '\0';
  return (next >= 'a' && next <= 'z') || (next >= 'A' && next <= 'Z') || next == '_' || next == '\x7f' ||
         !isAscii(next);
}

bool startsDeclaration(std::string_view text, std::size_t position) {
  constexpr std::string_view kStart = "<?xml";
  const auto isSame = [](char a, char b) { return a == b || (a >= 'A' && a <= 'Z' && a - 'A' + 'a' == b); };
  return text.size() - position >= kStart.size() &&
         std::equal(kStart.begin(), kStart.end(), text.begin() + static_cast<std::ptrdiff_t>(position),
                    [&](char start, char c) { return isSame(c, start); });
}

/// Whether a declaration, given up to its first '>', may continue after it in a quoted value.
bool endsInsideValue(std::string_view declaration) {
  for (const char quote : {'"', '\''}) {
    // A quote after '=' starts a value; TinyXML treats some three-byte characters as spaces.
    std::size_t before = declaration.rfind(quote);
    if (before == declaration.npos) {
      continue;
    }
    do {
      --before;
    } while (isSpace(declaration[before]) || !isAscii(declaration[before]));
    if (declaration[before] == '=') {
      return true;
    }
  }
  return false;
}

class XmlBounds {
 public:
  explicit XmlBounds(std::string_view text) : m_text(text) {}

  std::string exceeded() {
    for (std::size_t position = 0; (position = m_text.find('<', position)) != m_text.npos;) {
      if (++m_tags > kMaxTags) {
        return "more than " + std::to_string(kMaxTags) + " tags";
      }
      position = behindTag(position);
      if (m_isDeclarationCut) {
        return "an XML declaration that ends inside a quoted value";
      }
      if (m_depth > kMaxNesting) {
        return "elements nested deeper than " + std::to_string(kMaxNesting);
      }
      if (m_attributes > kMaxAttributes) {
        return "an element of more than " + std::to_string(kMaxAttributes) + " attributes";
      }
    }
    return {};
  }

 private:
  /// The position after the tag, comment or declaration whose '<' is at `position`.
  std::size_t behindTag(std::size_t position) {
    if (startsElement(m_text, position)) {
      return behindElementTag(position);
    }
    if (startsWith(position, "<!--")) {
      return behind("-->", position + 4);
    }
    if (startsWith(position, "<![CDATA[")) {
      return behind("]]>", position);
    }
    const std::size_t end = behind(">", position);
    if (startsWith(position, "</")) {
      m_depth -= m_depth != 0 ? 1U : 0U;
    } else if (startsDeclaration(m_text, position) && endsInsideValue(m_text.substr(position, end - position))) {
      m_isDeclarationCut = true;  // the rest may be part of the value or tags
    }
    return end;
  }

  std::size_t behindElementTag(std::size_t position) {
    m_attributes = 0;
    while ((position = m_text.find_first_of("=>\"'", position)) != m_text.npos && m_text[position] != '>') {
      if (m_text[position] == '=') {
        ++m_attributes;
        ++position;
        continue;
      }
      const std::size_t quoteEnd = m_text.find(m_text[position], position + 1);
      position = quoteEnd != m_text.npos ? quoteEnd + 1 : position + 1;
    }
    const std::size_t end = position != m_text.npos ? position + 1 : m_text.size();
    if (m_text[end - 1] != '>' || m_text[end - 2] != '/') {
      ++m_depth;
    }
    return end;
  }

  bool startsWith(std::size_t position, std::string_view start) const {
    return m_text.compare(position, start.size(), start) == 0;
  }

  std::size_t behind(std::string_view end, std::size_t position) const {
    const std::size_t found = m_text.find(end, position);
    return found != m_text.npos ? found + end.size() : m_text.size();
  }

  std::string_view m_text;
  std::size_t m_tags = 0;
  std::size_t m_depth = 0;
  std::size_t m_attributes = 0;  // of the last element
  bool m_isDeclarationCut = false;
};

}  // namespace

std::string exceededXmlBound(std::string_view text) { return XmlBounds(text).exceeded(); }

bool hasCutCharacter(std::string_view text) {
  std::size_t missing = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isContinuation = (byte & 0xC0) == 0x80;
    if (missing != 0 && !isContinuation) {
      return true;
    }
    if (missing != 0) {
      --missing;
    } else if (!isContinuation) {
      missing = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
    }
  }
  return missing != 0;
}

}  // namespace MD::detail
