// The program without its main function.
#ifndef MDMSG_TOOL_H
#define MDMSG_TOOL_H

#include <string>
#include <vector>

#include "command_line/streams.h"

namespace MD::tool {

/// Runs one command.
/// @param arguments  of the command line, without the program's name
/// @return the exit status: 0; 1 when a message was left out or did not go out as it came; 2 for bad usage
int run(std::vector<std::string> arguments, const Streams& streams);

}  // namespace MD::tool

#endif
