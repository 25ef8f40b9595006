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

const InputMessage* MessageReader::nextOfSource() {
  for (;;) {
    m_frames = nullptr;
    try {
      const bool isThere = m_task.messages.next(m_message);
      m_message.file = &m_task.reporter.input();
      m_message.number = m_task.reporter.at().number;
      m_frames = m_task.messages.frames();
      return isThere ? &m_message : nullptr;
    } catch (const LineError& error) {
      leaveOut(m_task, error);
    }
  }
}

const InputMessage* MessageReader::nextTaken(Selection& selection) {
  while (const InputMessage* const message = selection.isDone() ? nullptr : next()) {
    bool isTaken = false;
    attempt(m_task, [&] { isTaken = takesBytes(selection, *message); });
    if (isTaken) {
      return message;
    }
  }
  m_task.out.lineDone();
  return nullptr;
}

void leaveOut(const Task& task, const LineError& error) {
  task.out.dropLine();
  if (error.kind() == ReportKind::OutOfMemory) {
    task.out.releaseMemory();
  }
  task.reporter.error(error);
}

const MD_Message* TakenMessages::next() {
  while ((m_input = m_selection.isDone() ? nullptr : m_reader.next()) != nullptr) {
    bool isTaken = false;
    attempt(m_task, [&] {
      requireEncoding(*m_input);
      if (m_selection.takes(*m_input)) {
        m_message.reset();
        m_message = receive(*m_input);
        isTaken = true;
      }
    });
    if (isTaken) {
      noteLeftOut(*m_message, *m_input, m_task.reporter);
      return m_message.get();
    }
  }
  m_task.out.lineDone();
  return nullptr;
}

}  // namespace MD::tool
