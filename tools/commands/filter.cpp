#include <optional>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "dictionary/field_names.h"
#include "messages/message_copier.h"
#include "messages/received.h"

namespace MD::tool {
namespace {

/// Tells what was not written because it is no message, as far as nothing else reports it.
void tellOthers(const CaptureCounts& counts, Reporter& reporter) {
  if (const std::uint64_t others = counts.tcp + counts.otherTransport + counts.notIp; others != 0) {
    reporter.tell(counted(others, "packet holds", "packets hold") + " no UDP datagram and " +
                  (others == 1 ? "is" : "are") + " not written (--all-packets)");
  }
}

}  // namespace

void filter(const Task& task, const SourceOptions& source) {
  const FieldNames names;
  Selection selection(task.selection, names);
  MessageCopier copier(source);
  bool hasBegun = false;
  bool isConversionTold = false;
  InputMessage input;
  if (selection.isDone()) {
    static_cast<void>(readNext(task, input));  // how a capture begins is known once it is open
  }
  while (!selection.isDone() && readNext(task, input)) {
    attempt(task, [&] {
      if (!source.takesPackets || input.packet == nullptr) {
        requireEncoding(input);
      }
      if (!selection.takes(input)) {
        return;
      }
      if (!hasBegun) {
        copier.begin(input.packet != nullptr ? &input.packet->format : nullptr, task.out.text());
        task.out.lineDone();
        hasBegun = true;
      }
      if (input.packet != nullptr && !input.packet->isPlainPcap && !isConversionTold) {
        task.reporter.tell(pathText(*input.file) +
                           " is written as pcap with nanosecond timestamps, without comments and interface names");
        isConversionTold = true;
      }
      copier.append(input, task.out.text());
    });
  }
  if (!hasBegun) {
    copier.begin(task.messages.captureFormat(), task.out.text());
  }
  task.out.lineDone();
  if (const CaptureCounts* const counts = task.messages.counts(); counts != nullptr && !source.takesPackets) {
    tellOthers(*counts, task.reporter);
  }
}

}  // namespace MD::tool
