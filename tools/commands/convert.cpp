#include <cstdint>

#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/taken_messages.h"
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

}  // namespace

void convert(const Task& task, const ConvertOptions& options) {
  const FieldNames names;
  Selection selection(task.selection, names);
  Converter converter(options.encoding, names, selection, task.reporter);
  MessageSink sink(options.sink, names, task.out);
  TakenMessages messages(task, selection);
  while (const MD_Message* const message = messages.next()) {
    attempt(task, [&] { sink.append(converter.convert(*message), messages.input().timeNs); });
  }
}

}  // namespace MD::tool
