// The command lines of publish and subscribe.
#ifndef MDMSG_NATS_COMMAND_LINE_H
#define MDMSG_NATS_COMMAND_LINE_H

#include "command_line/command.h"
#include "commands/nats_commands.h"

namespace MD::tool {

/// @param nats  what runs them; null: another program, "mdmsg-nats"
Command addPublish(CLI::App& app, const NatsCommands* nats);
Command addSubscribe(CLI::App& app, const NatsCommands* nats);

}  // namespace MD::tool

#endif
