#include <chrono>
#include <memory>
#include <string>

#include "commands/taken_messages.h"
#include "messages/received.h"
#include "nats/commands.h"
#include "nats/publisher.h"
#include "nats/stream.h"
#include "nats/subject.h"

namespace MD::tool {
namespace {

std::string statusOf(const PublishCounts& counts) {
  return "sent " + counted(counts.sent, "message") + ", " + std::to_string(counts.acknowledged) + " acknowledged, " +
         std::to_string(counts.lost) + " lost";
}

std::string reportOf(const PublishOptions& options, const PublishCounts& counts, std::uint64_t bytes,
                     std::chrono::steady_clock::duration took) {
  const auto tookMs = std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
  std::string text = "sent " + counted(counts.sent, "message") + ", " + counted(bytes, "byte") + ", in " +
                     std::to_string(tookMs) + " ms; " + std::to_string(counts.acknowledged) + " acknowledged";
  if (options.stream) {
    text += ", " + std::to_string(counts.duplicates) + " of them duplicates";
  }
  return text + ", " + std::to_string(counts.lost) + " lost";
}

}  // namespace

void publish(const PublishOptions& options, const Task& task) {
  const FieldNames names;
  Selection selection(task.selection, names);
  SubjectTemplate subjects(options.subject, names);
  HeaderWriter headers(options.publisher);
  if (!options.isLatency) {
    preferThroughput();
  }
  // What is lost is published again by this program itself, or counted.
  const Server server(options.server, options.isLatency, false);
  std::unique_ptr<Publisher> publisher;
  if (options.stream) {
    NatsPointer<natsConnection> connection = server.connect();
    prepareStream(*connection, options, subjects.wildcard());
    publisher =
        std::make_unique<StreamPublisher>(server, *options.stream, headers, task.reporter, std::move(connection));
  } else {
    publisher = std::make_unique<CorePublisher>(server, headers, task.reporter);
  }

  const Reporter::ProgressStatus status(task.reporter, [&] { return statusOf(publisher->counts()); });
  const auto start = std::chrono::steady_clock::now();
  std::uint64_t bytes = 0;
  std::string subject;
  MessageReader reader(task);
  try {
    while (const InputMessage* const message = reader.nextTaken(selection)) {
      attempt(task, [&] {
        requireEncoding(*message);
        subject.clear();
        subjects.append(message->data, static_cast<std::uint32_t>(message->sizeBytes), subject);
        publisher->publish(subject, *message);
        bytes += message->sizeBytes;
      });
      task.reporter.refreshProgress();
    }
    publisher->finish();
  } catch (const ServerLost& error) {
    publisher->giveUp();
    task.reporter.wholeInput(std::string(error.what()) + "; the messages after it were not published");
  }
  if (publisher->counts().lost != 0) {
    task.reporter.raise(kBadData);
  }
  task.reporter.tell(reportOf(options, publisher->counts(), bytes, std::chrono::steady_clock::now() - start));
}

}  // namespace MD::tool
