// What a definition file in XML must keep to before TinyXML sees it. TinyXML parses and frees elements recursively, so
// that a file of nothing but opening tags would overflow the stack, takes some hundred bytes for each element, and
// compares each attribute with all before it.
#ifndef MD_SRC_XML_BOUNDS_H
#define MD_SRC_XML_BOUNDS_H

#include <string>
#include <string_view>

namespace MD::detail {

/// @return what there is too much of, by far more than a dictionary needs; empty for nothing. What is malformed may
/// count
///         for more than it is, never for less.
std::string exceededXmlBound(std::string_view text);

/// Whether a character of several bytes lacks some of them. TinyXML, where it reads UTF-8, takes what follows in their
/// place: tags, or memory behind the end.
bool hasCutCharacter(std::string_view text);

}  // namespace MD::detail

#endif
