#include <cstdint>

#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "command_line/feed_command_line.h"
#include "commands/feed_commands.h"
#include "text/time_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr const char* kGenerateHelp =
    "Generates quotes whose prices follow a random walk, and trades at these prices, in\n"
    "fields of the built-in dictionary. The same options produce the same bytes on every\n"
    "platform. A corrupted datagram is truncated in its last value, has a record of an\n"
    "unknown field or a repeated record, or begins with an unknown byte. The numbers are\n"
    "printed to standard error at the end.\n"
    "\n"
    "Examples:\n"
    "  mdmsg generate --count 3 | mdmsg decode\n"
    "  mdmsg generate --seed 7 --rate 5000 --count 100000 --format pcap --output feed.pcap\n"
    "  mdmsg generate --encodings mInt --symbols A,B --damaged 5 | mdmsg stats";

constexpr const char* kReplayHelp =
    "Sends the datagrams of a capture, or the messages of another input, unchanged to a\n"
    "UDP port or a multicast group. Captures are sent with their original timing, inputs\n"
    "without timestamps at 1000 datagrams/s.\n"
    "\n"
    "Examples:\n"
    "  mdmsg replay feed.pcap --destination 127.0.0.1:30001\n"
    "  mdmsg replay feed.pcap --destination 239.192.0.1:30001 --interface 127.0.0.1 --speed 10\n"
    "  mdmsg generate --count 5000 | mdmsg replay --destination localhost:30001 --rate 20000";

constexpr const char* kListenHelp =
    "Prints the datagrams received on a UDP port or from a multicast group, until --count\n"
    "datagrams were received, the time is over, or it is interrupted. The address is\n"
    "printed to standard error. Exit status: 1 if fewer than --count datagrams were\n"
    "received, if the system dropped datagrams because they were not read fast enough,\n"
    "or if output was lost because nobody read it in time at the end.\n"
    "\n"
    "Examples:\n"
    "  mdmsg listen 127.0.0.1:30001\n"
    "  mdmsg listen 239.192.0.1:30001 --interface 127.0.0.1 --format json --count 100\n"
    "  mdmsg listen 0.0.0.0:30001 --timeout 60 --format pcap --output feed.pcap";

struct GenerateLine : CommonOptions {
  FeedOptions feed;
  std::string start;
  SinkLine sink;
};

struct ReplayLine : CommonOptions {
  ReplayOptions replay;
  std::string speed;
  std::optional<double> longestGapS;
  MulticastLine multicast;
  SourceLine source;
  SelectionOptions selection;
};

struct ListenLine : CommonOptions {
  ListenOptions listen;
  MulticastLine multicast;
  std::optional<double> timeoutS;
  std::optional<double> idleS;
  DecodeLine decode;
  SelectionLine selection;
};

}  // namespace

Command addGenerate(CLI::App& app) {
  CLI::App* const command = app.add_subcommand(
      "generate", "Generate a synthetic feed of quotes and trades, optionally with corrupted datagrams");
  const auto line = std::make_shared<GenerateLine>();
  FeedOptions& feed = line->feed;
  named(command->add_option("--seed", feed.seed, "Seed of the random numbers, default 1")->check(&complaintAboutNumber),
        "N");
  named(command->add_option("-n,--count", feed.messages, "Number of messages, default 1000")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--rate", feed.perSecond, "Mean number of messages/s, default 1000")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--start", line->start, "Start time, default 2024-06-03T09:30:00Z"), "TIME");
  named(command
            ->add_option("--encodings", feed.encodings,
                         "Encodings, separated by commas, chosen at random per message: "
                         "mInt, IterMap, MsgT (default: all)")
            ->delimiter(',')
            ->allow_extra_args(false),
        "ENCODINGS");
  named(command->add_option("--symbols", feed.symbols, "Symbols, separated by commas")
            ->delimiter(',')
            ->allow_extra_args(false),
        "SYMBOLS");
  named(command->add_option("--trades", feed.tradesPercent, "Share of trades in percent, default 20"), "PERCENT");
  named(command->add_option("--damaged", feed.damagedPercent, "Share of corrupted datagrams in percent, default 0"),
        "PERCENT");
  line->sink.addForm(*command);
  line->sink.addEndpoints(*command);
  line->addLargeOutput(*command);
  command->footer(kGenerateHelp);
  return {command, line,
          [line](const Session& session) {
            if (!line->start.empty()) {
              const auto start = parseIsoTime(line->start);
              if (!start || *start > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                throw UsageError("--start: " + inQuotes(line->start) +
                                 " is not a timestamp such as 2024-06-03T09:30:00Z, or too late");
              }
              line->feed.startNs = static_cast<std::int64_t>(*start);
            }
            generate(line->feed, line->sink.options(), session.out, session.reporter);
          },
          false};
}

Command addReplay(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("replay", "Send the datagrams of a capture over UDP");
  const auto line = std::make_shared<ReplayLine>();
  named(command->add_option("--destination", line->replay.to, "Host or multicast group to send to")->required(),
        "HOST:PORT");
  CLI::Option* const speed =
      named(command->add_option("--speed", line->speed,
                                "Speed factor relative to the capture (default 1); 'max' sends without pauses"),
            "X");
  named(command->add_option("--rate", line->replay.perSecond, "Datagrams/s, regardless of the timing of the capture")
            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1'000'000'000}))
            ->excludes(speed),
        "N");
  named(
      command->add_option("--max-gap", line->longestGapS, "Maximum pause; longer pauses of the capture are shortened"),
      "SECONDS");
  line->multicast.add(*command);
  named(
      command->add_option("--hops", line->replay.multicast.hops, "Multicast: TTL (IPv4) or hop limit (IPv6), default 1")
          ->check(CLI::Range(0U, 255U)),
      "N");
  line->source.add(*command);
  named(command->add_option("--skip", line->selection.skip, "Skip the first N datagrams")->check(&complaintAboutNumber),
        "N");
  named(
      command->add_option("-n,--limit", line->selection.limit, "Stop after N datagrams")->check(&complaintAboutNumber),
      "N");
  line->addFiles(*command);
  command->footer(kReplayHelp);
  return {command, line,
          [line](const Session& session) {
            ReplayOptions replayOptions = line->replay;
            if (line->speed == "max") {
              replayOptions.speed.reset();
            } else if (!line->speed.empty()) {
              double factor = 0;
              try {
                factor = parseReal<double>(line->speed);
              } catch (const LineError&) {
              }
              if (!(factor > 0)) {
                throw UsageError("--speed: " + inQuotes(line->speed) + " is neither a number above 0 nor max");
              }
              replayOptions.speed = factor;
            }
            replayOptions.longestGap = durationOf("--max-gap", line->longestGapS);
            replayOptions.multicast = line->multicast.options(line->replay.multicast.hops);
            replay(replayOptions, InputTask(session, *line, line->source.optionsWithForeign(), line->selection).task());
          },
          false};
}

Command addListen(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("listen", "Receive and print UDP datagrams");
  const auto line = std::make_shared<ListenLine>();
  named(command->add_option("HOST:PORT", line->listen.at, "Local address, or multicast group")->required(),
        "HOST:PORT");
  line->multicast.add(*command);
  named(command->add_option("-n,--count", line->listen.limits.datagrams, "End after N datagrams")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--timeout", line->timeoutS, "End after this number of seconds"), "SECONDS");
  named(command->add_option("--idle", line->idleS, "End after this number of seconds without a datagram"), "SECONDS");
  named(command
            ->add_option("--receive-buffer", line->listen.limits.receiveBufferBytes,
                         "Size of the receive buffer in bytes, default 4194304; the system may grant less")
            ->check(CLI::Range(std::uint32_t{1}, std::uint32_t{1} << 30)),
        "BYTES");
  line->decode.add(*command, {"text", "json", "csv", "hex", "pcap"},
                   "Output format: text (default), json, csv, hex lines, pcap");
  line->selection.add(*command, true);
  line->addLargeOutput(*command);
  line->addDictionary(*command);
  line->addReports(*command);
  command->footer(kListenHelp);
  return {command, line, [line](const Session& session) {
            ListenOptions listenOptions = line->listen;
            listenOptions.multicast = line->multicast.options(MulticastOptions().hops);
            listenOptions.limits.timeout = durationOf("--timeout", line->timeoutS);
            listenOptions.limits.idle = durationOf("--idle", line->idleS);
            if (line->decode.format == "hex" || line->decode.format == "pcap") {
              if (isSelecting(line->selection.selection)) {
                throw UsageError("--format " + line->decode.format + " writes all datagrams unchanged");
              }
              listenOptions.form =
                  line->decode.format == "hex" ? ListenOptions::Form::HexLines : ListenOptions::Form::Capture;
            }
            listenOptions.decode = line->decode.options(line->selection.zone.timeZone());
            session.watch.beginForOneThatEnds(listenOptions.limits.timeout);
            listen(listenOptions, line->selection.options(), session.out, session.reporter);
          }};
}

}  // namespace MD::tool
