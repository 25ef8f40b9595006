// The program without its main function.
#ifndef MDMSG_TOOL_H
#define MDMSG_TOOL_H

#include <string>
#include <vector>

#include "command_line/streams.h"

namespace MD::tool {

/// Runs one command.
/// @param arguments  of the command line, without the program's name
/// @return the exit status: 0; 1 if a message was skipped or not reproduced exactly; 2 for usage errors
int run(std::vector<std::string> arguments, const Streams& streams);

}  // namespace MD::tool

#endif
