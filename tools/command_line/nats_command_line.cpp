#include "command_line/nats_command_line.h"

#include <cstdint>

#include <limits>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "command_line/options.h"
#include "text/time_text.h"
#include "text/value_text.h"
#include "transport/udp.h"

namespace MD::tool {
namespace {

constexpr const char* kPublishHelp =
    "Publishes messages on NATS with unchanged bytes. Fields in braces are replaced by the\n"
    "field values of each message, one subject token each; {SYMBOL%8} is a partition\n"
    "number, 0 to 7, computed from the value. With --stream each message is acknowledged\n"
    "by JetStream. After a failure, all messages that were not acknowledged are published\n"
    "again under the same message id. Exit status: 1 if a message was lost or skipped.\n"
    "\n"
    "Examples:\n"
    "  mdmsg publish --subject 'md.{SYMBOL}' feed.pcap\n"
    "  mdmsg publish --subject 'md.{SYMBOL}' --stream MD --create-stream feed.pcap\n"
    "  mdmsg publish --subject 'md.{SYMBOL%4}.{SYMBOL}' --listen 239.192.0.1:30001 --latency";

constexpr const char* kSubscribeHelp =
    "Writes messages received from NATS, until --count messages were received, the time is\n"
    "over, or it is interrupted. With --durable the server keeps the position: messages are\n"
    "acknowledged once they have been written, and the next run continues after them.\n"
    "Exit status: 1 if messages were dropped or may be missing.\n"
    "\n"
    "Examples:\n"
    "  mdmsg subscribe --subject 'md.>' --format json\n"
    "  mdmsg subscribe --stream MD --start last-per-subject --no-wait\n"
    "  mdmsg subscribe --stream MD --durable archive --format pcap --output feed.pcap";

constexpr const char* kProgram = "mdmsg-nats";
constexpr const char* kPackage = "md-message-nats";

struct ServerLine {
  NatsServerOptions server;
  double retryS = 30;

  void add(CLI::App& command) {
    named(command.add_option("--url", server.url,
                             "Server, default nats://127.0.0.1:4222; several are separated by commas"),
          "URL");
    named(command.add_option("--credentials", server.credentialsFile, "File with a user's JWT and seed")
              ->check(&complaintAboutEmpty),
          "FILE");
    CLI::Option* const user =
        named(command.add_option("--user", server.user, "User name")->check(&complaintAboutEmpty), "NAME");
    named(command.add_option("--password-file", server.passwordFile, "File whose first line is the password")
              ->check(&complaintAboutEmpty),
          "FILE")
        ->needs(user);
    named(command.add_option("--token-file", server.tokenFile, "File whose first line is an authorisation token")
              ->check(&complaintAboutEmpty),
          "FILE");
    command.add_flag("--tls", server.isTls, "Require an encrypted connection");
    named(command.add_option("--tls-ca", server.caFile, "Certificates to trust, PEM (default: the system's)")
              ->check(&complaintAboutEmpty),
          "FILE");
    CLI::Option* const certificate =
        named(command.add_option("--tls-certificate", server.certificateFile, "Own certificate chain, PEM")
                  ->check(&complaintAboutEmpty),
              "FILE");
    CLI::Option* const key =
        named(command.add_option("--tls-key", server.keyFile, "Private key of that certificate, PEM")
                  ->check(&complaintAboutEmpty),
              "FILE");
    certificate->needs(key);
    key->needs(certificate);
    named(command.add_option("--retry", retryS, "How long to try to reconnect to a lost server, default 30"),
          "SECONDS");
  }

  NatsServerOptions options() const {
    NatsServerOptions all = server;
    all.isTls = server.isTls || server.caFile || server.certificateFile;
    all.retry = std::chrono::duration_cast<std::chrono::milliseconds>(*durationOf("--retry", retryS));
    return all;
  }
};

struct PublishLine : CommonOptions {
  PublishOptions publish;
  ServerLine server;
  std::optional<double> ageS;
  std::optional<double> windowS;
  bool isThroughput = false;
  std::optional<std::string> at;
  MulticastLine multicast;
  std::optional<double> timeoutS;
  std::optional<double> idleS;
  SourceLine source;
  SelectionLine selection;

  ListenLimits limits() const {
    ListenLimits limits;
    limits.timeout = durationOf("--timeout", timeoutS);
    limits.idle = durationOf("--idle", idleS);
    return limits;
  }
};

struct SubscribeLine : CommonOptions {
  SubscribeOptions subscribe;
  ServerLine server;
  std::optional<std::string> subject;
  std::string start;
  double ackWaitS = 30;
  std::optional<double> timeoutS;
  std::optional<double> idleS;
  DecodeLine decode;
  SinkLine sink;
  SelectionLine selection;
};

void addStreamOptions(CLI::App& command, PublishLine& line) {
  CLI::Option* const stream =
      named(command.add_option("--stream", line.publish.stream, "Publish to this JetStream stream, acknowledged")
                ->check(&complaintAboutEmpty),
            "NAME");
  CLI::Option* const create =
      command.add_flag("--create-stream", line.publish.createsStream, "Create the stream unless it exists")
          ->needs(stream);
  const auto limit = [&](const char* name, auto& to, const char* description, const char* value) {
    return named(command.add_option(name, to, description), value)->needs(create);
  };
  const CLI::Range positive(std::int64_t{1}, std::numeric_limits<std::int64_t>::max());
  NatsStreamLimits& limits = line.publish.limits;
  limit("--stream-max-messages", limits.messages, "Messages that the created stream holds", "N")->check(positive);
  limit("--stream-max-bytes", limits.bytes, "Size of the created stream", "BYTES")->check(positive);
  limit("--stream-max-age", line.ageS, "Messages of the created stream expire after this time", "SECONDS");
  limit("--stream-max-per-subject", limits.perSubject, "Messages that the created stream keeps per subject", "N")
      ->check(positive);
  command
      .add_flag("--refuse-when-full", limits.refusesNew,
                "A full created stream refuses messages (default: it drops the oldest)")
      ->needs(create);
  command.add_flag("--in-memory", limits.isInMemory, "The created stream is not written to disk")->needs(create);
  limit("--duplicate-window", line.windowS, "How long the created stream remembers message ids, default 120",
        "SECONDS");
}

/// @throws UsageError
void readStart(const std::string& text, SubscribeOptions& options) {
  if (text == "all") {
    options.start = NatsStart::All;
  } else if (text == "new") {
    options.start = NatsStart::New;
  } else if (text == "last-per-subject") {
    options.start = NatsStart::LastPerSubject;
  } else if (const std::string complaint = complaintAboutNumber(text); isOfDigits(text) && complaint.empty()) {
    options.start = NatsStart::Sequence;
    options.startSequence = std::stoull(text);
  } else if (const auto time = parseIsoTime(text);
             time && *time <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    options.start = NatsStart::Time;
    options.startTimeNs = static_cast<std::int64_t>(*time);
  } else {
    throw UsageError("--start: " + inQuotes(text) +
                     " is not all, new, last-per-subject, a sequence number or a time such as 2024-06-03T09:30:00Z");
  }
}

/// @throws UsageError
SubscribeOptions optionsOf(const SubscribeLine& line) {
  SubscribeOptions options = line.subscribe;
  options.server = line.server.options();
  if (line.subject) {
    options.subject = *line.subject;
  } else if (!options.stream) {
    throw UsageError("--subject or --stream is required");
  }
  if (!options.stream) {
    for (const auto& [isGiven, name] : {std::pair{!line.start.empty(), "--start"},
                                        {options.durable.has_value(), "--durable"},
                                        {options.endsWhenCaughtUp, "--no-wait"}}) {
      if (isGiven) {
        throw UsageError(std::string(name) + " requires --stream");
      }
    }
  }
  readStart(line.start.empty() ? "all" : line.start, options);
  options.ackWait = std::chrono::duration_cast<std::chrono::milliseconds>(*durationOf("--ack-wait", line.ackWaitS));
  options.timeout = durationOf("--timeout", line.timeoutS);
  options.idle = durationOf("--idle", line.idleS);
  const std::string& format = line.decode.format;
  if (line.decode.isArrow() && options.stream && (options.durable || options.group)) {
    throw UsageError("--format " + format + " excludes " + (options.durable ? "--durable" : "--queue with --stream") +
                     ": messages are acknowledged once they have been written, and rows wait for a whole batch");
  }
  if (!line.decode.isArrow() && format != "text" && format != "json" && format != "csv") {
    if (isSelecting(line.selection.selection)) {
      throw UsageError(
          "--format " + format +
          " writes all messages unchanged, so options that select messages or fields cannot be combined with it");
    }
    options.form = SubscribeOptions::Form::Bytes;
    SinkLine sink = line.sink;
    sink.form = format;
    options.sink = sink.options();
  }
  options.decode = line.decode.options(line.selection.zone.timeZone());
  return options;
}

}  // namespace

Command addPublish(CLI::App& app, const NatsCommands* nats) {
  CLI::App* const command = app.add_subcommand("publish", "Publish messages on NATS");
  const auto line = std::make_shared<PublishLine>();
  named(command->add_option("--subject", line->publish.subject, "Subject, with fields in braces")->required(),
        "TEMPLATE");
  line->server.add(*command);
  addStreamOptions(*command, *line);
  named(command
            ->add_option("--publisher", line->publish.publisher,
                         "Name in the headers, default host and process; with --stream a run under the same name "
                         "continues where an earlier one with the same input ended")
            ->check(&complaintAboutEmpty),
        "NAME");
  CLI::Option* const latency =
      command->add_flag("--latency", line->publish.isLatency, "Send each message at once, rather than in batches");
  command->add_flag("--throughput", line->isThroughput, "Send messages in batches (default)")->excludes(latency);
  CLI::Option* const listen = named(
      command->add_option("--listen", line->at, "Publish the datagrams received at this address, instead of files"),
      "HOST:PORT");
  line->multicast.add(*command);
  named(command->add_option("--timeout", line->timeoutS, "With --listen: end after this number of seconds"), "SECONDS")
      ->needs(listen);
  named(
      command->add_option("--idle", line->idleS, "With --listen: end after this number of seconds without a datagram"),
      "SECONDS")
      ->needs(listen);
  line->source.add(*command);
  line->selection.add(*command, false);
  line->add(*command);
  command->footer(kPublishHelp);
  const auto run = [line, nats](const Session& session) {
    PublishOptions options = line->publish;
    options.server = line->server.options();
    options.limits.age = durationOf("--stream-max-age", line->ageS);
    options.limits.duplicateWindow =
        durationOf("--duplicate-window", line->windowS).value_or(options.limits.duplicateWindow);
    if (!line->at) {
      nats->publish(options, InputTask(session, *line, line->source.options(), line->selection.options()).task());
      return;
    }
    if (!line->files.empty()) {
      throw UsageError("--listen replaces files");
    }
    const ListenLimits limits = line->limits();
    UdpSource source(resolveEndpoint(*line->at), line->multicast.options(MulticastOptions().hops), limits, session.out,
                     session.reporter);
    const std::string name = textOf(source.endpoint());
    session.reporter.tell("listening on " + name);
    session.reporter.setInput(name);
    session.reporter.beginInput(0);
    session.watch.beginForOneThatEnds(limits.timeout);
    const SelectionOptions selection = line->selection.options();
    nats->publish(options, {source, selection, session.out, session.reporter});
    if (const std::uint64_t dropped = source.dropped()) {
      session.reporter.wholeInput("the system dropped " + counted(dropped, "datagram") +
                                  " that arrived faster than they were read");
    }
  };
  Command entry{command, line, run, true, true};
  entry.program = nats == nullptr ? std::optional<CompanionProgram>({kProgram, kPackage}) : std::nullopt;
  return entry;
}

Command addSubscribe(CLI::App& app, const NatsCommands* nats) {
  CLI::App* const command = app.add_subcommand("subscribe", "Write messages received from NATS");
  const auto line = std::make_shared<SubscribeLine>();
  SubscribeOptions& options = line->subscribe;
  named(command->add_option("--subject", line->subject, "Subject, which may have wildcards (default with --stream: >)"),
        "SUBJECT");
  line->server.add(*command);
  named(command->add_option("--stream", options.stream, "Read this JetStream stream")->check(&complaintAboutEmpty),
        "NAME");
  named(command->add_option("--start", line->start,
                            "With --stream: all (default), new, last-per-subject, a time or a sequence number"),
        "START");
  named(command->add_option("--durable", options.durable, "With --stream: keep the position under this name")
            ->check(&complaintAboutEmpty),
        "NAME");
  named(command->add_option("--queue", options.group, "Share the messages with the other subscribers of this group")
            ->check(&complaintAboutEmpty),
        "GROUP");
  named(command->add_option(
            "--ack-wait", line->ackWaitS,
            "With --durable or --queue: redeliver messages not acknowledged after this number of seconds, "
            "default 30"),
        "SECONDS");
  named(command->add_option("-n,--count", options.count, "End after N messages")->check(&complaintAboutNumber), "N");
  named(command->add_option("--timeout", line->timeoutS, "End after this number of seconds"), "SECONDS");
  named(command->add_option("--idle", line->idleS, "End after this number of seconds without a message"), "SECONDS");
  command->add_flag("--no-wait", options.endsWhenCaughtUp, "With --stream: end after its last message");
  named(command
            ->add_option("--pending", options.pendingMessages,
                         "Without --stream: maximum number of messages that wait to be written, default 1000000; "
                         "others are dropped")
            ->check(CLI::Range(1, std::numeric_limits<int>::max())),
        "N");
  line->decode.add(
      *command, {"text", "json", "csv", "arrow", "arrow-file", "hex", "u16le", "u16be", "u32le", "u32be", "pcap"},
      "Output format: text (default), json, csv, arrow (Arrow IPC stream), arrow-file, hex lines, u16le, u16be, u32le "
      "or u32be (length-prefixed), pcap");
  line->decode.addBinaryText(*command);
  line->sink.addEndpoints(*command);
  line->selection.add(*command, true);
  line->addLargeOutput(*command);
  line->addDictionary(*command);
  line->addReports(*command);
  command->footer(kSubscribeHelp);
  const auto run = [line, nats](const Session& session) {
    const SubscribeOptions all = optionsOf(*line);
    session.watch.beginForOneThatEnds(all.timeout);
    nats->subscribe(all, line->selection.options(), session.out, session.reporter);
  };
  Command entry{command, line, run};
  entry.program = nats == nullptr ? std::optional<CompanionProgram>({kProgram, kPackage}) : std::nullopt;
  return entry;
}

}  // namespace MD::tool
