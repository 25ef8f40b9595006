// The commands that write messages as they came.
#ifndef MDMSG_FILTER_COMMAND_LINE_H
#define MDMSG_FILTER_COMMAND_LINE_H

#include "command_line/command.h"

namespace MD::tool {

Command addFilter(CLI::App& app);
Command addMerge(CLI::App& app);

}  // namespace MD::tool

#endif
