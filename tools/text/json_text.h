// JSON strings, written.
#ifndef MDMSG_JSON_TEXT_H
#define MDMSG_JSON_TEXT_H

#include <string>
#include <string_view>

namespace MD::tool {

/// Appends `text` in quotes, with what JSON wants escaped, and what a terminal would obey: DEL, C1 and the controls of
/// the direction of text.
/// @return false, nothing appended, when `text` is not UTF-8
bool appendJsonString(std::string_view text, std::string& out);

}  // namespace MD::tool

#endif
