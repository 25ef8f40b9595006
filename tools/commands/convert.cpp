#include <cstdint>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "commands/workers.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "messages/message_builder.h"
#include "messages/received.h"

namespace MD::tool {
namespace {

/// Copies fields to a message of another encoding.
class Converter {
 public:
  Converter(const std::string& encoding, const FieldNames& names, const Selection& selection, Reporter& reporter)
      : m_names(names), m_selection(selection), m_reporter(reporter), m_converted(createMessage(encoding)) {}

  /// @return valid until the next call
  /// @throws LineError when the encoding cannot hold a value
  const MD_Message& convert(const MD_Message& received) {
    listFields(received, m_names, m_reporter, m_ids);
    m_selection.keepIncluded(m_ids);
    m_converted->clearImpl();
    m_converted->copyMsg(received);
    for (const std::uint16_t id : m_ids) {
      if (!isReadable(received, id, m_names.type(id))) {
        noteUnreadable(received, id, m_names, m_reporter);
      } else if (!m_converted->existsImpl(id) || !isStoredWhole(*m_converted, id)) {
        const std::size_t terminator = m_names.type(id) == DATATYPES::STRING ? 1 : 0;
        throw LineError(tooLong(*m_converted, id, valueBytes(received, id).sizeBytes - terminator).what(),
                        m_names.label(id), ReportKind::NotHeld);
      }
    }
    m_selection.keepFields(*m_converted);
    return *m_converted;
  }

 private:
  const FieldNames& m_names;
  const Selection& m_selection;
  Reporter& m_reporter;
  std::unique_ptr<MD_Message> m_converted;
  std::vector<std::uint16_t> m_ids;
};

class ConvertWorker final : public Worker {
 public:
  ConvertWorker(const Task& task, const ConvertOptions& options)
      : m_task(task),
        m_selection(task.selection, m_names),
        m_converter(options.encoding, m_names, m_selection, task.reporter),
        m_sink(options.sink, m_names, task.out),
        m_messages(task, m_selection) {
    m_selection.refusePseudoFields("requires decode --format json or csv");
  }

  std::function<void()> run() override {
    while (const MD_Message* const message = m_messages.next()) {
      attempt(m_task, [&] { m_sink.append(m_converter.convert(*message), m_messages.input().timeNs); });
    }
    return {};
  }

 private:
  const Task& m_task;
  const FieldNames m_names;
  Selection m_selection;
  Converter m_converter;
  MessageSink m_sink;
  TakenMessages m_messages;
};

}  // namespace

void convert(const Task& task, const ConvertOptions& options) {
  Task shared = task;
  shared.jobs = isMessageByMessage(options.sink.form) ? task.jobs : 1;
  runWorkers(shared, [&](const Task& part) { return std::make_unique<ConvertWorker>(part, options); });
}

}  // namespace MD::tool
