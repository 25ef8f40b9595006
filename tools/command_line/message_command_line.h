// The commands that read or write messages, as they stand on the command line.
#ifndef MDMSG_MESSAGE_COMMAND_LINE_H
#define MDMSG_MESSAGE_COMMAND_LINE_H

#include "command_line/command.h"
#include "command_line/options.h"
#include "command_line/output_files.h"

namespace MD::tool {

Command addEncode(CLI::App& app, Options& options);
Command addDecode(CLI::App& app, Options& options);
Command addConvert(CLI::App& app, Options& options);
Command addDump(CLI::App& app, Options& options, bool isOutTerminal);
Command addStats(CLI::App& app, Options& options, Files& files, bool isOutTerminal);

}  // namespace MD::tool

#endif
