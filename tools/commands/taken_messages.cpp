#include "commands/taken_messages.h"

#include <cstdint>

#include "base/encodings.h"
#include "messages/received.h"

namespace MD::tool {
namespace {

/// Whether a message is selected whose bytes may be anything.
bool takesBytes(Selection& selection, const InputMessage& input) {
  if (!selection.hasConditions()) {
    return selection.takesUnreadable();
  }
  return hasEncodingCode(input) && selection.takes(input);
}

}  // namespace

std::unique_ptr<MD_Message> createMessage(const std::string& encoding) {
  auto message =
      encoding == "preferred" ? MD_Message::createPreferred(true) : MD_Message::createFromPB(encodingCode(encoding));
  if (message == nullptr) {
    throw UsageError("unknown encoding " + inQuotes(encoding));
  }
  return message;
}

bool readNext(const Task& task, InputMessage& message) {
  task.out.lineDone();
  for (;;) {
    try {
      const bool isThere = task.messages.next(message);
      message.file = &task.reporter.input();
      message.number = task.reporter.at().number;
      return isThere;
    } catch (const LineError& error) {
      leaveOut(task, error);
    }
  }
}

bool readTaken(const Task& task, Selection& selection, InputMessage& message) {
  while (!selection.isDone() && readNext(task, message)) {
    bool isTaken = false;
    attempt(task, [&] { isTaken = takesBytes(selection, message); });
    if (isTaken) {
      return true;
    }
  }
  task.out.lineDone();
  return false;
}

void leaveOut(const Task& task, const LineError& error) {
  task.out.dropLine();
  if (error.kind() == ReportKind::OutOfMemory) {
    task.out.releaseMemory();
  }
  task.reporter.error(error);
}

const MD_Message* TakenMessages::next() {
  while (!m_selection.isDone() && readNext(m_task, m_input)) {
    bool isTaken = false;
    attempt(m_task, [&] {
      requireEncoding(m_input);
      if (m_selection.takes(m_input)) {
        m_message.reset();
        m_message = receive(m_input);
        isTaken = true;
      }
    });
    if (isTaken) {
      noteLeftOut(*m_message, m_input, m_task.reporter);
      return m_message.get();
    }
  }
  m_task.out.lineDone();
  return nullptr;
}

}  // namespace MD::tool
