// The options of the commands that make and move feeds.
#ifndef MDMSG_FEED_COMMAND_LINE_H
#define MDMSG_FEED_COMMAND_LINE_H

#include "command_line/command.h"

namespace MD::tool {

Command addGenerate(CLI::App& app);
Command addReplay(CLI::App& app);
Command addListen(CLI::App& app);

}  // namespace MD::tool

#endif
