// Text in XML and HTML.
#ifndef MDMSG_XML_TEXT_H
#define MDMSG_XML_TEXT_H

#include <string>
#include <string_view>

namespace MD::tool {

/// Appends `text` with references for the five characters that have a meaning there, so that it can be the content of
/// an element or a quoted attribute value. Other bytes are unchanged.
void appendXmlText(std::string_view text, std::string& out);

}  // namespace MD::tool

#endif
