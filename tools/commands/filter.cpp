#include <optional>
#include <string>

#include "commands/commands.h"
#include "commands/split_output.h"
#include "commands/taken_messages.h"
#include "dictionary/field_names.h"
#include "messages/message_copier.h"
#include "messages/received.h"

namespace MD::tool {
namespace {

/// Reports what was not written because it is no message, unless something else reports it.
void tellOthers(const CaptureCounts& counts, Reporter& reporter) {
  if (const std::uint64_t others = counts.tcp + counts.otherTransport + counts.notIp; others != 0) {
    reporter.tell(counted(others, "packet contains", "packets contain") + " no UDP datagram and " +
                  (others == 1 ? "is" : "are") + " not written (--all-packets)");
  }
}

}  // namespace

void filter(const Task& task, const FilterOptions& options) {
  const FieldNames names;
  Selection selection(task.selection, names);
  MessageCopier copier(options.source);
  std::optional<SplitOutput> split;
  if (!options.split.by.empty()) {
    split.emplace(options.split, names);
  }
  std::string header;
  bool hasBegun = false;
  const auto begin = [&](const CaptureFormat* format) {
    copier.begin(format, header);
    if (!split) {
      task.out.text() += header;
      task.out.lineDone();
    }
    hasBegun = true;
  };
  std::string record;
  MessageReader reader(task);
  if (selection.isDone()) {
    static_cast<void>(reader.next());  // how a capture begins is known once it is open
  }
  while (const InputMessage* const next = selection.isDone() ? nullptr : reader.next()) {
    const InputMessage& input = *next;
    attempt(task, [&] {
      if (!options.source.takesPackets || input.packet == nullptr) {
        requireEncoding(input);
      }
      if (!selection.takes(input)) {
        return;
      }
      if (!hasBegun) {
        begin(input.packet != nullptr ? &input.packet->format : nullptr);
      }
      copier.tellConversion(input, task.reporter);
      if (split) {
        record.clear();
        copier.append(input, record);
        split->append(input, header, record);
      } else {
        copier.append(input, task.out.text());
      }
    });
  }
  if (!hasBegun) {
    begin(task.messages.captureFormat());
  }
  task.out.lineDone();
  if (split) {
    split->finish();
  }
  if (const CaptureCounts* const counts = task.messages.counts(); counts != nullptr && !options.source.takesPackets) {
    tellOthers(*counts, task.reporter);
  }
}

}  // namespace MD::tool
