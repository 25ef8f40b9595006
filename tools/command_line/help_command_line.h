// The command "help" as it stands on the command line.
#ifndef MDMSG_HELP_COMMAND_LINE_H
#define MDMSG_HELP_COMMAND_LINE_H

#include "command_line/command.h"

namespace MD::tool {

/// @param app  with all other commands; it outlives the command
Command addHelp(CLI::App& app);

}  // namespace MD::tool

#endif
