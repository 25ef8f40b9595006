// The messages that a command works on: those of its inputs that its selection takes.
#ifndef MDMSG_TAKEN_MESSAGES_H
#define MDMSG_TAKEN_MESSAGES_H

#include <memory>
#include <string>

#include "commands/commands.h"
#include "md/md_message.h"
#include "messages/received.h"
#include "messages/selection.h"
#include "transport/inputs.h"

namespace MD::tool {

/// A message of this encoding, or of the preferred one.
/// @throws UsageError for an encoding that there is not
std::unique_ptr<MD_Message> createMessage(const std::string& encoding);

/// Whether a message is selected whose bytes may be anything.
bool takesBytes(Selection& selection, const InputMessage& input);

/// Calls `use` with each message that is taken and what it was read from.
template <class Use>
void forEachTaken(const Task& task, Selection& selection, Use use) {
  if (selection.isDone()) {
    return;
  }
  forEachMessage(task.inputs, task.source, task.out, task.reporter, [&](const InputMessage& input) {
    const auto message = receive(input);
    if (selection.takes(*message)) {
      noteLeftOut(*message, input, task.reporter);
      use(*message, input);
    }
    return selection.isDone() ? Go::NoFurther : Go::On;
  });
}

}  // namespace MD::tool

#endif
