#include <cstdint>

#include <chrono>
#include <limits>
#include <optional>

#include <CLI/CLI.hpp>

#include "command_line/feed_command_line.h"
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
    "when it listens, and where. The exit status is 1 when fewer than --count came.\n"
    "\n"
    "Examples:\n"
    "  mdmsg listen 127.0.0.1:30001\n"
    "  mdmsg listen 239.192.0.1:30001 --interface 127.0.0.1 --format json --count 100\n"
    "  mdmsg listen 0.0.0.0:30001 --timeout 60 --format pcap --output feed.pcap";

/// Whether not all messages and fields are taken.
bool isSelecting(const SelectionOptions& selection) {
  return !selection.where.empty() || !selection.fields.empty() || selection.skip != 0 ||
         selection.limit != SelectionOptions().limit;
}

std::optional<std::chrono::nanoseconds> durationOf(const char* option, std::optional<double> seconds) {
  if (!seconds) {
    return std::nullopt;
  }
  constexpr double kMost = 1e9;
  if (!(*seconds >= 0 && *seconds <= kMost)) {
    throw UsageError(std::string(option) + " is a number of seconds, 0 to 1000000000");
  }
  return std::chrono::nanoseconds(static_cast<std::int64_t>(*seconds * 1e9));
}

}  // namespace

Command addGenerate(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("generate", "Make up a feed: quotes, trades, damaged datagrams");
  FeedOptions& feed = options.feed;
  named(command->add_option("--seed", feed.seed, "Another number gives another feed, default 1")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--count", feed.messages, "How many messages, default 1000")->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--rate", feed.perSecond, "Messages a second on average, default 1000")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--start", options.start, "When it begins, default 2024-06-03T09:30:00Z"), "TIME");
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
  addFormOption(*command, options, "--to");
  addEndpointOptions(*command, options);
  addOutputOptions(*command, options);
  command->footer(kGenerateHelp);
  return {command,
          [&options](const Task& task) {
            if (!options.start.empty()) {
              const auto start = parseIsoTime(options.start);
              if (!start || *start > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                throw UsageError("--start: " + inQuotes(options.start) +
                                 " is no moment, such as 2024-06-03T09:30:00Z, or too late");
              }
              options.feed.startNs = static_cast<std::int64_t>(*start);
            }
            generate(options.feed, sinkOf(options), task);
          },
          false};
}

Command addReplay(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("replay", "Send a capture's datagrams by UDP");
  named(command->add_option("--to", options.replay.to, "Where to send them")->required(), "HOST:PORT");
  CLI::Option* const speed = named(
      command->add_option("--speed", options.speed, "Times the capture's own pace (default 1), or max for no pauses"),
      "X");
  named(command->add_option("--rate", options.replay.perSecond, "Datagrams a second, whatever the capture's pace")
            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1'000'000'000}))
            ->excludes(speed),
        "N");
  named(command->add_option("--max-gap", options.longestGapS, "The longest pause of the capture to keep"), "SECONDS");
  addInterfaceOption(*command, options);
  named(command->add_option("--hops", options.replay.multicast.hops, "Of a group: how many routers to pass, default 1")
            ->check(CLI::Range(0U, 255U)),
        "N");
  addSourceOptions(*command, options);
  named(command->add_option("--skip", options.selection.skip, "Leave the first N datagrams out")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--limit", options.selection.limit, "Stop after N datagrams")->check(&complaintAboutNumber),
        "N");
  command->add_option("FILE", options.files, "Input files, \"-\" for standard input")
      ->type_name("FILE")
      ->option_text("");
  command->footer(kReplayHelp);
  return {command,
          [&options](const Task& task) {
            ReplayOptions replayOptions = options.replay;
            if (options.speed == "max") {
              replayOptions.speed.reset();
            } else if (!options.speed.empty()) {
              double factor = 0;
              try {
                factor = parseReal<double>(options.speed);
              } catch (const LineError&) {
              }
              if (!(factor > 0)) {
                throw UsageError("--speed: " + inQuotes(options.speed) + " is no number above 0, nor max");
              }
              replayOptions.speed = factor;
            }
            replayOptions.longestGap = durationOf("--max-gap", options.longestGapS);
            replayOptions.multicast = multicastOf(options, options.replay.multicast.hops);
            replay(replayOptions, task);
          },
          false};
}

Command addListen(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("listen", "Show UDP datagrams as they arrive");
  named(command->add_option("HOST:PORT", options.listen.at, "This machine's address, or a group's")->required(),
        "HOST:PORT");
  addInterfaceOption(*command, options);
  named(command->add_option("--count", options.listen.limits.datagrams, "End after N datagrams")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--timeout", options.timeoutS, "End after so many seconds"), "SECONDS");
  named(command->add_option("--idle", options.idleS, "End when nothing has come for so many seconds"), "SECONDS");
  named(command->add_option("--format", options.format, "What to write: text (default), json, csv, hex lines, pcap")
            ->check(CLI::IsMember({"text", "json", "csv", "hex", "pcap"})),
        "FORMAT");
  command->add_flag("--price", options.isPrice, "Print prices kept as whole, numerator and denominator as one");
  command->add_flag("--iso-time", options.isIsoTime, "Of json and csv: nanosecond times as 2024-06-03T09:30:00...");
  addTimeZoneOption(*command, options);
  addSelectionOptions(*command, options, true);
  addOutputOptions(*command, options);
  addDictionaryOption(*command, options.dictionary);
  command->footer(kListenHelp);
  return {command, [&options](const Task& task) {
            ListenOptions listenOptions = options.listen;
            listenOptions.multicast = multicastOf(options, MulticastOptions().hops);
            listenOptions.limits.timeout = durationOf("--timeout", options.timeoutS);
            listenOptions.limits.idle = durationOf("--idle", options.idleS);
            if (options.format == "hex" || options.format == "pcap") {
              if (isSelecting(options.selection) || options.isIsoTime) {
                throw UsageError("--format " + options.format + " writes datagrams as they come, all of them");
              }
              listenOptions.form =
                  options.format == "hex" ? ListenOptions::Form::HexLines : ListenOptions::Form::Capture;
            }
            listenOptions.decode = decodeOptionsOf(options);
            listen(listenOptions, task);
          }};
}

}  // namespace MD::tool
