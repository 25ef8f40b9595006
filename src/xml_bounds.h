// What a dictionary file in XML must keep to before TinyXML sees it. TinyXML parses and frees elements recursively, so
// that a file of nothing but opening tags would overflow the stack, takes some hundred bytes for each element, and
// compares each attribute with all before it.
#ifndef MD_SRC_XML_BOUNDS_H
#define MD_SRC_XML_BOUNDS_H

#include <string>
#include <string_view>

namespace MD::detail {

/// @return why the text must not be parsed: what it has more of than a dictionary needs, or a declaration whose end is
///         not known; empty for a text that may be parsed. What is malformed may count for more than it is, never for
///         less.
std::string exceededXmlBound(std::string_view text);

/// Whether a character of several bytes lacks some of them. TinyXML, where it reads UTF-8, takes what follows in their
/// place: tags, or memory after the end.
bool hasCutCharacter(std::string_view text);

}  // namespace MD::detail

#endif
