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
#include "transport/frame_cursor.h"
#include "transport/message_source.h"

namespace MD::tool {

/// A message of this encoding, or of the preferred one.
/// @throws UsageError for an encoding that there is not
std::unique_ptr<MD_Message> createMessage(const std::string& encoding);

/// The messages of a task's source, as they came.
class MessageReader {
 public:
  explicit MessageReader(const Task& task) : m_task(task) {}

  /// The next message, valid until the next call; a place without one is reported. What has been put out so far is
  /// complete. @return null at the end
  const InputMessage* next() {
    m_task.out.lineDone();
    if (m_frames != nullptr && m_frames->next(m_message)) {
      m_task.reporter.setPlace(m_frames->place());
      return &m_message;
    }
    return nextOfSource();
  }

  /// The next message that the selection takes, whose bytes may be anything.
  /// @return null when there is none, or the selection wants no more
  const InputMessage* nextTaken(Selection& selection);

  /// The current message. At the end, of the last input only its name.
  const InputMessage& message() const noexcept { return m_message; }

 private:
  const InputMessage* nextOfSource();

  const Task& m_task;
  InputMessage m_message;
  FrameCursor* m_frames = nullptr;  // of the source, after m_message
};

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
  TakenMessages(const Task& task, Selection& selection) : m_task(task), m_selection(selection), m_reader(task) {}

  /// The next one, valid until the next call. What has been put out of the one before is complete. What is no message
  /// is reported, and so are bytes that receivers dropped.
  /// @return null when there is none, or the selection wants no more
  const MD_Message* next();

  /// The bytes that the current message was read from.
  const InputMessage& input() const noexcept { return *m_input; }

 private:
  const Task& m_task;
  Selection& m_selection;
  MessageReader m_reader;
  const InputMessage* m_input = nullptr;
  std::unique_ptr<MD_Message> m_message;
};

}  // namespace MD::tool

#endif
