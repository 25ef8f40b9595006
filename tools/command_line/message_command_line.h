// The options of the commands that read or write messages.
#ifndef MDMSG_MESSAGE_COMMAND_LINE_H
#define MDMSG_MESSAGE_COMMAND_LINE_H

#include "command_line/command.h"

namespace MD::tool {

Command addEncode(CLI::App& app);
Command addDecode(CLI::App& app);
Command addConvert(CLI::App& app);
Command addDiff(CLI::App& app);
Command addDump(CLI::App& app);
Command addStats(CLI::App& app);

}  // namespace MD::tool

#endif
