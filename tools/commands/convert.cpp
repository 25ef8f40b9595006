#include <cstdint>

#include <vector>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "messages/message_builder.h"
#include "messages/received.h"

namespace MD::tool {
void convert(const Task& task, const ConvertOptions& options) {
  const FieldNames names;
  Selection selection(task.selection, names);
  const auto message = createMessage(options.encoding);
  MessageSink sink(options.sink, names, task.out);
  std::vector<std::uint16_t> ids;
  forEachTaken(task, selection, [&](const MD_Message& received, const InputMessage& input) {
    listFields(received, names, task.reporter, ids);
    selection.keepIncluded(ids);
    message->clearImpl();
    message->copyMsg(received);
    for (const std::uint16_t id : ids) {
      if (!isReadable(received, id, names.type(id))) {
        noteUnreadable(received, id, names, task.reporter);
      } else if (!message->existsImpl(id) || !isStoredWhole(*message, id)) {
        const std::size_t terminator = names.type(id) == DATATYPES::STRING ? 1 : 0;
        throw LineError(tooLong(*message, id, valueBytes(received, id).sizeBytes - terminator).what(), names.label(id));
      }
    }
    selection.keepFields(*message);
    sink.append(*message, input.timeNs);
  });
}

}  // namespace MD::tool
