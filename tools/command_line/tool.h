// The program without its main function.
#ifndef MDMSG_TOOL_H
#define MDMSG_TOOL_H

#include <string>
#include <vector>

#include "command_line/streams.h"
#include "commands/nats_commands.h"

namespace MD::tool {

/// Runs one command.
/// @param arguments  of the command line, without the program's name
/// @param nats       what runs publish and subscribe; null: the program mdmsg-nats, in the place of this one
/// @return the exit status: 0; 1 if a message was skipped or not reproduced exactly; 2 for usage errors
int run(std::vector<std::string> arguments, const Streams& streams, const NatsCommands* nats = nullptr);

/// A program's main function.
int runMain(int argc, char** argv, const NatsCommands* nats = nullptr);

}  // namespace MD::tool

#endif
