// The commands that make and move feeds, as they stand on the command line.
#ifndef MDMSG_FEED_COMMAND_LINE_H
#define MDMSG_FEED_COMMAND_LINE_H

#include "command_line/command.h"
#include "command_line/options.h"

namespace MD::tool {

Command addGenerate(CLI::App& app, Options& options);
Command addReplay(CLI::App& app, Options& options);
Command addListen(CLI::App& app, Options& options);

}  // namespace MD::tool

#endif
