// What reports are made of: text of users and inputs in quotes, and numbers of things.
#ifndef MDMSG_QUOTED_TEXT_H
#define MDMSG_QUOTED_TEXT_H

#include <cstdint>

#include <string>
#include <string_view>

namespace MD::tool {

/// `text` for a report: cut to a readable length and in the form of MD::escaped().
std::string printable(std::string_view text);
/// The same in double quotes.
std::string inQuotes(std::string_view text);

/// A path for a report, whole and in the form of MD::escaped(). Where paths have backslashes, these are not doubled.
std::string pathText(std::string_view path);

/// A whole report on its way out: what a terminal would obey is escaped. What is escaped already stays as it is.
std::string harmless(std::string_view report);

/// A number of things: "1 byte", "2 bytes".
std::string counted(std::uint64_t number, const char* one, const char* many);
/// The same where the plural ends in "s".
std::string counted(std::uint64_t number, const std::string& one);

}  // namespace MD::tool

#endif
