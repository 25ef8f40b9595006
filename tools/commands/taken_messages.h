// The messages that a command works on: those of its source that its selection takes.
#ifndef MDMSG_TAKEN_MESSAGES_H
#define MDMSG_TAKEN_MESSAGES_H

#include <memory>
#include <new>
#include <string>

#include "base/errors.h"
#include "commands/commands.h"
#include "md/md_message.h"
#include "messages/selection.h"
#include "transport/message_source.h"

namespace MD::tool {

/// A message of this encoding, or of the preferred one.
/// @throws UsageError for an encoding that there is not
std::unique_ptr<MD_Message> createMessage(const std::string& encoding);

/// Reads the next message as it came; a place without one is reported. What has been put out so far is
/// complete. @return false at the end
bool readNext(const Task& task, InputMessage& message);

/// The next message that the selection takes, whose bytes may be anything.
/// @return false when there is none, or the selection wants no more
bool readTaken(const Task& task, Selection& selection, InputMessage& message);

/// Reports why the current message cannot be written, and removes the output written for it.
void leaveOut(const Task& task, const LineError& error);

/// Calls `use`, which works on the current message. If the message cannot be written, or memory runs out, it is
/// skipped.
template <class Use>
void attempt(const Task& task, Use use) {
  try {
    use();
  } catch (const LineError& error) {
    leaveOut(task, error);
  } catch (const std::bad_alloc&) {
    leaveOut(task, outOfMemory());
  }
}

/// The messages that a selection takes, one after the other.
class TakenMessages {
 public:
  TakenMessages(const Task& task, Selection& selection) : m_task(task), m_selection(selection) {}

  /// The next one, valid until the next call. What has been put out of the one before is complete. What is no message
  /// is reported, and so are bytes that receivers dropped.
  /// @return null when there is none, or the selection wants no more
  const MD_Message* next();

  /// The bytes that the current message was read from.
  const InputMessage& input() const noexcept { return m_input; }

 private:
  const Task& m_task;
  Selection& m_selection;
  InputMessage m_input;
  std::unique_ptr<MD_Message> m_message;
};

}  // namespace MD::tool

#endif
