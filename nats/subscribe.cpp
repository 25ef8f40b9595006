#include <memory>
#include <string>

#include "commands/taken_messages.h"
#include "nats/commands.h"
#include "nats/source.h"

namespace MD::tool {
namespace {

void writeBytes(const Task& task, const SinkOptions& options) {
  const FieldNames names;
  MessageSink sink(options, names, task.out);
  MessageReader reader(task);
  while (const InputMessage* const message = reader.next()) {
    attempt(task, [&] {
      sink.append(message->data, static_cast<std::uint32_t>(message->sizeBytes), message->timeNs.value_or(0));
    });
  }
}

}  // namespace

void subscribe(const SubscribeOptions& options, const SelectionOptions& selection, Output& out, Reporter& reporter) {
  if (options.endsWhenCaughtUp) {
    preferThroughput();
  }
  // Of core NATS the client library restores the subscription; from a stream this program continues where it was.
  const Server server(options.server, false, !options.stream);
  std::unique_ptr<NatsSource> source;
  reporter.setInput(options.stream ? *options.stream : options.subject);
  if (options.stream) {
    source = std::make_unique<StreamSource>(server, options, out, reporter);
  } else {
    source = std::make_unique<CoreSource>(server, options, out, reporter);
  }
  reporter.tell("subscribed to " + inQuotes(options.subject) +
                (options.stream ? " of the stream " + inQuotes(*options.stream) : std::string()));
  const Task task{*source, selection, out, reporter};
  if (options.form == SubscribeOptions::Form::Bytes) {
    writeBytes(task, options.sink);
  } else {
    decode(task, options.decode);
  }
  out.flush();
  source->finish();
  if (options.count != SubscribeOptions().count && source->hasEndedEarly()) {
    reporter.wholeInput(std::to_string(source->messages()) + " of " + counted(options.count, "message") + " came");
  }
}

}  // namespace MD::tool
