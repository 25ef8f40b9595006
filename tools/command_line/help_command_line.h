// The options of the command "help", and the help with misspelt words.
#ifndef MDMSG_HELP_COMMAND_LINE_H
#define MDMSG_HELP_COMMAND_LINE_H

#include <string>

#include "command_line/command.h"

namespace MD::tool {

/// @param app  with all other commands; it outlives the command
Command addHelp(CLI::App& app);

/// "; did you mean --format?": of the commands and options that the help of `app` shows, or nothing.
std::string questionAboutWord(const CLI::App& app, const std::string& word);

}  // namespace MD::tool

#endif
