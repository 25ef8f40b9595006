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
    "Quotes whose prices walk at random, and trades at them, in fields of the built-in\n"
    "dictionary. The same options give the same bytes, everywhere. Standard error tells\n"
    "at the end what there is, and how datagrams are damaged: truncated in the last\n"
    "value, a record of an unknown field, a record twice, or a foreign first byte.\n"
    "\n"
    "Examples:\n"
    "  mdmsg generate --count 3 | mdmsg decode\n"
    "  mdmsg generate --seed 7 --rate 5000 --count 100000 --to pcap --output feed.pcap\n"
    "  mdmsg generate --encodings mInt --symbols A,B --damaged 5 | mdmsg stats";

constexpr const char* kReplayHelp =
    "Sends the datagrams of a capture, or the messages of another input, bytes\n"
    "unchanged, to a UDP port or a group. Captures keep their pace; what has no times\n"
    "goes at 1000 a second.\n"
    "\n"
    "Examples:\n"
    "  mdmsg replay feed.pcap --to 127.0.0.1:30001\n"
    "  mdmsg replay feed.pcap --to 239.192.0.1:30001 --interface 127.0.0.1 --speed 10\n"
    "  mdmsg generate --count 5000 | mdmsg replay --to localhost:30001 --rate 20000";

constexpr const char* kListenHelp =
    "Shows the datagrams that arrive at a UDP port, or are sent to a group, until\n"
    "there are --count of them, time is up, or it is interrupted. Standard error tells\n"
    "when it listens, and where. The exit status is 1 when fewer than --count came, when\n"
    "the system dropped datagrams because they came faster than they were read, and\n"
    "when output was lost because nobody took it in time at the end.\n"
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
  SelectionOptions selection;
};

}  // namespace

Command addGenerate(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("generate", "Make up a feed: quotes, trades, damaged datagrams");
  const auto line = std::make_shared<GenerateLine>();
  FeedOptions& feed = line->feed;
  named(command->add_option("--seed", feed.seed, "Another number gives another feed, default 1")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--count", feed.messages, "How many messages, default 1000")->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--rate", feed.perSecond, "Messages a second on average, default 1000")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--start", line->start, "When it begins, default 2024-06-03T09:30:00Z"), "TIME");
  named(command
            ->add_option("--encodings", feed.encodings,
                         "Encodings, with commas; one is drawn for each message: mInt, "
                         "IterMap, MsgT (default: these)")
            ->delimiter(',')
            ->allow_extra_args(false),
        "ENCODINGS");
  named(command->add_option("--symbols", feed.symbols, "Symbols, with commas")->delimiter(',')->allow_extra_args(false),
        "SYMBOLS");
  named(command->add_option("--trades", feed.tradesPercent, "Share of trades in percent, default 20"), "PERCENT");
  named(command->add_option("--damaged", feed.damagedPercent, "Share of damaged datagrams in percent, default 0"),
        "PERCENT");
  line->sink.addForm(*command, "--to");
  line->sink.addEndpoints(*command);
  line->addOutput(*command);
  command->footer(kGenerateHelp);
  return {command, line,
          [line](const Session& session) {
            if (!line->start.empty()) {
              const auto start = parseIsoTime(line->start);
              if (!start || *start > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                throw UsageError("--start: " + inQuotes(line->start) +
                                 " is no moment, such as 2024-06-03T09:30:00Z, or too late");
              }
              line->feed.startNs = static_cast<std::int64_t>(*start);
            }
            generate(line->feed, line->sink.options(), session.out, session.reporter);
          },
          false};
}

Command addReplay(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("replay", "Send a capture's datagrams by UDP");
  const auto line = std::make_shared<ReplayLine>();
  named(command->add_option("--to", line->replay.to, "Where to send them")->required(), "HOST:PORT");
  CLI::Option* const speed = named(
      command->add_option("--speed", line->speed, "Times the capture's own pace (default 1), or max for no pauses"),
      "X");
  named(command->add_option("--rate", line->replay.perSecond, "Datagrams a second, whatever the capture's pace")
            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1'000'000'000}))
            ->excludes(speed),
        "N");
  named(command->add_option("--max-gap", line->longestGapS, "The longest pause of the capture to keep"), "SECONDS");
  line->multicast.add(*command);
  named(command->add_option("--hops", line->replay.multicast.hops, "Of a group: how many routers to pass, default 1")
            ->check(CLI::Range(0U, 255U)),
        "N");
  line->source.add(*command);
  named(command->add_option("--skip", line->selection.skip, "Leave the first N datagrams out")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--limit", line->selection.limit, "Stop after N datagrams")->check(&complaintAboutNumber),
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
                throw UsageError("--speed: " + inQuotes(line->speed) + " is no number above 0, nor max");
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
  CLI::App* const command = app.add_subcommand("listen", "Show UDP datagrams as they arrive");
  const auto line = std::make_shared<ListenLine>();
  named(command->add_option("HOST:PORT", line->listen.at, "This machine's address, or a group's")->required(),
        "HOST:PORT");
  line->multicast.add(*command);
  named(command->add_option("--count", line->listen.limits.datagrams, "End after N datagrams")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--timeout", line->timeoutS, "End after so many seconds"), "SECONDS");
  named(command->add_option("--idle", line->idleS, "End when nothing has come for so many seconds"), "SECONDS");
  named(command
            ->add_option("--receive-buffer", line->listen.limits.receiveBufferBytes,
                         "Bytes of datagrams that wait to be read, default 4194304; the system may give less")
            ->check(CLI::Range(std::uint32_t{1}, std::uint32_t{1} << 30)),
        "BYTES");
  named(
      command->add_option("--format", line->decode.format, "What to write: text (default), json, csv, hex lines, pcap")
          ->check(CLI::IsMember({"text", "json", "csv", "hex", "pcap"})),
      "FORMAT");
  line->decode.add(*command);
  addSelectionOptions(*command, line->selection, true);
  line->addOutput(*command);
  line->addDictionary(*command);
  line->addReports(*command);
  command->footer(kListenHelp);
  return {command, line, [line](const Session& session) {
            ListenOptions listenOptions = line->listen;
            listenOptions.multicast = line->multicast.options(MulticastOptions().hops);
            listenOptions.limits.timeout = durationOf("--timeout", line->timeoutS);
            listenOptions.limits.idle = durationOf("--idle", line->idleS);
            if (line->decode.format == "hex" || line->decode.format == "pcap") {
              if (isSelecting(line->selection) || line->decode.isIsoTime) {
                throw UsageError("--format " + line->decode.format + " writes datagrams as they come, all of them");
              }
              listenOptions.form =
                  line->decode.format == "hex" ? ListenOptions::Form::HexLines : ListenOptions::Form::Capture;
            }
            listenOptions.decode = line->decode.options();
            session.watch.beginForOneThatEnds(listenOptions.limits.timeout);
            listen(listenOptions, line->selection, session.out, session.reporter);
          }};
}

}  // namespace MD::tool
