// The options of the command "dict".
#ifndef MDMSG_DICT_COMMAND_LINE_H
#define MDMSG_DICT_COMMAND_LINE_H

#include <vector>

#include "command_line/command.h"

namespace MD::tool {

/// Adds "dict" with its own commands.
void addDictCommands(CLI::App& app, std::vector<Command>& commands);

}  // namespace MD::tool

#endif
