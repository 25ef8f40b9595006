// The commands publish and subscribe.
#ifndef MDMSG_NATS_COMMANDS_IMPLEMENTATION_H
#define MDMSG_NATS_COMMANDS_IMPLEMENTATION_H

#include "commands/nats_commands.h"

namespace MD::tool {

void publish(const PublishOptions& options, const Task& task);
void subscribe(const SubscribeOptions& options, const SelectionOptions& selection, Output& out, Reporter& reporter);

constexpr NatsCommands kNatsCommands{&publish, &subscribe};

}  // namespace MD::tool

#endif
