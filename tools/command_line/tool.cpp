#include "command_line/tool.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <istream>
#include <limits>
#include <optional>
#include <ostream>
#include <sstream>
#include <system_error>

#include <CLI/CLI.hpp>

#include "base/diagnostics.h"
#include "base/output.h"
#include "base/platform.h"
#include "base/progress.h"
#include "command_line/command.h"
#include "command_line/command_table.h"
#include "commands/commands.h"
#include "commands/feed_commands.h"
#include "dictionary/dictionary.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

/// What the command line says; each command uses a part of it.
struct Options {
  // What is read.
  std::vector<std::string> files;
  std::string from = "auto";
  std::string framing;
  SourceOptions source;
  std::string group;
  SelectionOptions selection;
  std::optional<std::string> dictionary;
  // What is written.
  std::string encoding;
  std::string to = "hex";
  SinkOptions sink;
  std::optional<std::string> outputFile;
  bool isForced = false;
  bool isQuiet = false;  ///< no progress
  // Of one command.
  bool isCsv = false;
  std::string format = "text";
  bool isPrice = false;
  bool isIsoTime = false;
  std::optional<std::string> timeZone;
  std::string color = "auto";
  FeedOptions feed;
  std::string start;
  ReplayOptions replay;
  std::string speed;
  std::optional<double> longestGapS;
  ListenOptions listen;
  std::optional<double> timeoutS;
  std::optional<double> idleS;
  std::string interfaceAddress;
  std::optional<std::string> svgFile;
};

/// What is written besides standard output.
struct Files {
  std::ofstream output;
  std::ofstream svg;
  std::vector<std::string> made;  ///< those that were not there before
};

constexpr const char* kDescription =
    "Encodes, decodes, converts and examines market-data messages.\n"
    "\n"
    "Every command reads the files named, or standard input (\"-\"), and writes\n"
    "standard output. Input may be gzip data. A message that cannot be used is reported\n"
    "on standard error and left out. Exit status: 0; 1 when a message was left out or\n"
    "did not go out as it came; 2 when the command line or a file that it names cannot\n"
    "be used.";

constexpr const char* kEncodeHelp =
    "Values: CHAR \"B\", INT, INT64 and EPOCH_NSEC (nanoseconds) whole numbers, FLOAT\n"
    "and DOUBLE numbers or \"NaN\", \"Infinity\", \"-Infinity\", STRING \"text\",\n"
    "BUFFER {\"hex\":\"0aff\"}, DATETIME {\"date\":20240115,\"time\":93000000,\"offset\":-300}.\n"
    "Keys are field names or field ids. A CSV cell holds the same as plain text, a\n"
    "BUFFER as hex digits, a DATETIME as \"20240115 93000000 -300\"; a field whose\n"
    "cell is empty is not sent.\n"
    "\n"
    "Examples:\n"
    "  echo '{\"SYMBOL\":\"AB\",\"BID\":101.25,\"BID_QTY\":300}' | mdmsg encode --encoding mInt\n"
    "  mdmsg encode --encoding MsgT --csv quotes.csv > quotes.hex\n"
    "  mdmsg encode --encoding mInt --to pcap --time-field RECV_TIME --output quotes.pcap quotes.json";

constexpr const char* kDecodeHelp =
    "The first byte of a message tells its encoding: 01 IterMap, 06 mInt, 46 MsgT. Hex\n"
    "digits may be upper or lower case, with blanks between bytes. What --format json\n"
    "writes, encode reads back to the same bytes.\n"
    "\n"
    "Examples:\n"
    "  mdmsg decode quotes.hex\n"
    "  mdmsg decode --format json --where 'BID > 101' feed.pcap.gz | grep '\"SYMBOL\":\"AB\"'\n"
    "  mdmsg decode --format csv --fields SYMBOL,BID,ASK,RECV_TIME --iso-time feed.pcap > quotes.csv";

constexpr const char* kConvertHelp =
    "Every field is copied; a message with a value that the other encoding cannot\n"
    "hold is left out and reported.\n"
    "\n"
    "Examples:\n"
    "  mdmsg convert --to mInt quotes.hex > small.hex\n"
    "  mdmsg encode --encoding MsgT quotes.json | mdmsg convert --to IterMap\n"
    "  mdmsg convert --to mInt --as pcap --output small.pcap feed.pcap";

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

constexpr const char* kDumpHelp =
    "A row for each part of a record: offset, bytes, the part (id, type, length, value),\n"
    "field, type and value; behind an exclamation mark what is wrong there. Broken\n"
    "messages are shown as far as they go. The exit status is 1 when one had a flaw.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dump --limit 1 quotes.hex\n"
    "  echo 06 6400010c 6500 | mdmsg dump\n"
    "  mdmsg dump --port 30001 --skip 99 --limit 1 feed.pcap";

constexpr const char* kStatsHelp =
    "Bad messages hold something that receivers cut out or cannot read, truncated ones\n"
    "end inside a record; what begins with no encoding's code is not ours. Rates need\n"
    "the times of a capture or --time-field. The exit status is 1 when a message was\n"
    "bad, truncated or not ours.\n"
    "\n"
    "Examples:\n"
    "  mdmsg stats feed.pcap.gz\n"
    "  mdmsg stats --svg feed.svg --time-zone America/New_York feed.pcap\n"
    "  mdmsg stats --time-field RECV_TIME quotes.hex";

/// Options that take a number must not take a minus for one, nor the largest for a larger one.
std::string complaintAboutNumber(const std::string& text) {
  if (text.empty() || text.find_first_not_of("0123456789") != text.npos) {
    return inQuotes(text) + " is not a whole number";
  }
  std::uint64_t number = 0;
  const bool fits = std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
  return fits ? std::string()
              : printable(text) + " is more than " + std::to_string(std::numeric_limits<std::uint64_t>::max());
}

/// The options of every command.
void addCommonOptions(CLI::App& command, Options& options) {
  addDictionaryOption(command, options.dictionary);
  command.add_flag("--no-progress", options.isQuiet, "Show no progress on a terminal");
  command.add_option("FILE", options.files, "Input files, \"-\" for standard input")
      ->type_name("FILE")
      ->option_text("");
}

/// Which messages.
void addSelectionOptions(CLI::App& command, Options& options, bool hasFields) {
  named(command
            .add_option("--where", options.selection.where,
                        "Take messages whose FIELD meets it: 'FIELD op VALUE', op one of = != < <= > >= ~; "
                        "may be repeated")
            ->take_all()
            ->allow_extra_args(false),
        "CONDITION");
  named(command.add_option("--skip", options.selection.skip, "Leave the first N of them out")
            ->check(&complaintAboutNumber),
        "N");
  named(command.add_option("--limit", options.selection.limit, "Stop after N of them")->check(&complaintAboutNumber),
        "N");
  if (hasFields) {
    named(command.add_option("--fields", options.selection.fields, "Take these fields, by name or id, with commas")
              ->delimiter(',')
              ->allow_extra_args(false),
          "FIELDS");
  }
}

/// How messages are read.
void addSourceOptions(CLI::App& command, Options& options) {
  named(command
            .add_option("--from", options.from,
                        "What the input is: auto (default; a capture by its first bytes, else hex lines), hex, raw "
                        "(one message) or pcap (pcap or pcapng, a UDP datagram a message)")
            ->check(CLI::IsMember({"auto", "hex", "raw", "pcap"})),
        "FORM");
  named(command.add_option("--framing", options.framing,
                           "Read a stream with a length in front of each message: u16le, u16be, u32le or u32be"),
        "FRAMING");
  named(command.add_option("--port", options.source.port, "Of captures: datagrams to this UDP port")
            ->check(&complaintAboutNumber),
        "PORT");
  named(command.add_option("--group", options.group, "Of captures: datagrams to this address"), "ADDRESS");
  named(command.add_option("--filter", options.source.filter, "Of captures: a filter expression as of tcpdump"),
        "EXPRESSION");
}

/// In which form messages are written. @param name  of the option that says so
void addFormOption(CLI::App& command, Options& options, const char* name) {
  named(command
            .add_option(name, options.to,
                        "What to write: hex lines (default), raw (one message), u16le, u16be, u32le or u32be (a "
                        "length in front of each message), pcap (UDP datagrams)")
            ->check(CLI::IsMember({"hex", "raw", "u16le", "u16be", "u32le", "u32be", "pcap"})),
        "FORM");
}

void addEndpointOptions(CLI::App& command, Options& options) {
  named(command.add_option("--source", options.sink.source, "Of pcap: from where, default 192.0.2.1:30000"),
        "ADDRESS:PORT");
  named(command.add_option("--destination", options.sink.destination, "Of pcap: to where, default 239.192.0.1:30001"),
        "ADDRESS:PORT");
}

/// How messages are written. @param name  of the option that says in which form
void addSinkOptions(CLI::App& command, Options& options, const char* name) {
  addFormOption(command, options, name);
  named(command.add_option("--time-field", options.sink.timeField, "Of pcap: the EPOCH_NSEC field with the times"),
        "FIELD");
  addEndpointOptions(command, options);
}

void addOutputOptions(CLI::App& command, Options& options) {
  named(command.add_option("--output", options.outputFile, "Write FILE, which must not exist, not standard output"),
        "FILE");
  command.add_flag("--force", options.isForced, "Write over a file that exists");
}

void addEncodingOption(CLI::App& command, const char* name, Options& options) {
  named(command.add_option(name, options.encoding, "Encoding to write: mInt, IterMap, MsgT or preferred")
            ->required()
            ->check(CLI::IsMember({"mInt", "IterMap", "MsgT", "preferred"})),
        "ENCODING");
}

void addTimeZoneOption(CLI::App& command, Options& options) {
  named(command.add_option("--time-zone", options.timeZone,
                           "Of moments: UTC (default), local, +05:30, or a name such as Europe/Vienna"),
        "ZONE");
}

TimeZone timeZoneOf(const Options& options) {
  return options.timeZone ? TimeZone::parse(*options.timeZone) : TimeZone();
}

SinkOptions sinkOf(const Options& options) {
  SinkOptions sink = options.sink;
  if (options.to == "pcap") {
    sink.form = OutputForm::Capture;
  } else if (options.to == "raw") {
    sink.form = OutputForm::Raw;
  } else if (options.to != "hex") {
    sink.form = OutputForm::Framed;
    sink.framing = parseFraming(options.to);
  }
  return sink;
}

SourceOptions sourceOf(const Options& options) {
  SourceOptions source = options.source;
  if (!options.framing.empty()) {
    if (options.from != "auto") {
      throw UsageError("--framing is a form of its own; leave --from out");
    }
    source.form = InputForm::Framed;
    source.framing = parseFraming(options.framing);
  } else if (options.from == "hex") {
    source.form = InputForm::HexLines;
  } else if (options.from == "raw") {
    source.form = InputForm::Raw;
  } else if (options.from == "pcap") {
    source.form = InputForm::Capture;
  }
  if (!options.group.empty()) {
    source.group = parseAddress(options.group);
    if (!source.group) {
      throw UsageError("--group: " + inQuotes(options.group) + " is not an address");
    }
  }
  return source;
}

Format formatOf(const Options& options) {
  if (options.isPrice && options.format != "text") {
    throw UsageError("--price goes with --format text");
  }
  if (options.isIsoTime && options.format == "text") {
    throw UsageError("--iso-time goes with --format json or csv");
  }
  if (options.format == "json") {
    return Format::Json;
  }
  if (options.format == "csv") {
    return Format::Csv;
  }
  return options.isPrice ? Format::PriceText : Format::Text;
}

bool isSameFile(const std::string& path, const std::string& other) {
  std::error_code error;
  return std::filesystem::equivalent(path, other, error);
}

/// @throws UsageError when a file that exists is also read
void refuseInputs(const std::string& path, const Options& options) {
  const auto isRead = [&](const std::string& input) {
    return input == "-" ? isStandardInput(path) : isSameFile(input, path);
  };
  if (options.files.empty() ? isStandardInput(path) : std::any_of(options.files.begin(), options.files.end(), isRead)) {
    throw UsageError(path + " is an input, too");
  }
  if (options.dictionary && isSameFile(*options.dictionary, path)) {
    throw UsageError(path + " is the dictionary, too");
  }
}

/// Opens a file to write, which must not exist, or not be an input, as the options have it.
void openFile(const std::string& path, const Options& options, std::ofstream& file, Files& files) {
  std::error_code error;
  const bool isThere = std::filesystem::exists(path, error);
  if (isThere) {
    if (!options.isForced) {
      throw UsageError(path + " exists; --force writes over it");
    }
    refuseInputs(path, options);
  }
  file.open(path, std::ios::binary | std::ios::app);
  if (!file.is_open()) {
    throw UsageError("cannot write " + path + ": " + std::strerror(errno));
  }
  if (!isThere) {
    files.made.push_back(path);
  }
}

/// Removes files that were made and got nothing: they would be in the way of the next try.
void removeEmpty(Files& files) {
  files.output.close();
  files.svg.close();
  for (const std::string& path : files.made) {
    std::error_code error;
    if (std::filesystem::file_size(path, error) == 0) {
      std::filesystem::remove(path, error);
    }
  }
}

DecodeOptions decodeOptionsOf(const Options& options) {
  DecodeOptions decodeOptions{formatOf(options), {}};
  if (options.timeZone && !options.isIsoTime) {
    throw UsageError("--time-zone goes with --iso-time");
  }
  if (options.isIsoTime) {
    decodeOptions.isoTime = timeZoneOf(options);
  }
  return decodeOptions;
}

/// Whether not all messages and fields are taken.
bool isSelecting(const SelectionOptions& selection) {
  return !selection.where.empty() || !selection.fields.empty() || selection.skip != 0 ||
         selection.limit != SelectionOptions().limit;
}

Command addEncode(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("encode", "JSON lines, or CSV, to messages");
  addEncodingOption(*command, "--encoding", options);
  command->add_flag("--csv", options.isCsv, "Read CSV with a header line of field names");
  addSelectionOptions(*command, options, true);
  addSinkOptions(*command, options, "--to,--framing");
  addOutputOptions(*command, options);
  addCommonOptions(*command, options);
  command->footer(kEncodeHelp);
  return {command, [&options](const Task& task) { encode(task, {options.encoding, options.isCsv, sinkOf(options)}); }};
}

Command addDecode(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("decode", "Messages to print-outs, JSON lines or CSV");
  named(command->add_option("--format", options.format, "What to write: text (default), json or csv")
            ->check(CLI::IsMember({"text", "json", "csv"})),
        "FORMAT");
  command->add_flag("--price", options.isPrice, "Print prices kept as whole, numerator and denominator as one");
  command->add_flag("--iso-time", options.isIsoTime, "Of json and csv: nanosecond times as 2024-06-03T09:30:00...");
  addTimeZoneOption(*command, options);
  addSourceOptions(*command, options);
  addSelectionOptions(*command, options, true);
  addOutputOptions(*command, options);
  addCommonOptions(*command, options);
  command->footer(kDecodeHelp);
  return {command, [&options](const Task& task) { decode(task, decodeOptionsOf(options)); }};
}

Command addConvert(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("convert", "Messages to messages of another encoding");
  addEncodingOption(*command, "--to", options);
  addSinkOptions(*command, options, "--as");
  addSourceOptions(*command, options);
  addSelectionOptions(*command, options, true);
  addOutputOptions(*command, options);
  addCommonOptions(*command, options);
  command->footer(kConvertHelp);
  return {command, [&options](const Task& task) { convert(task, {options.encoding, sinkOf(options)}); }};
}

Command addDump(CLI::App& app, Options& options, bool isOutTerminal) {
  CLI::App* const command = app.add_subcommand("dump", "Messages taken apart: every byte, and what it means");
  named(command
            ->add_option("--color", options.color,
                         "auto (default; on a terminal, unless NO_COLOR is set), always "
                         "or never")
            ->check(CLI::IsMember({"auto", "always", "never"})),
        "WHEN");
  addSourceOptions(*command, options);
  addSelectionOptions(*command, options, false);
  addOutputOptions(*command, options);
  addCommonOptions(*command, options);
  command->footer(kDumpHelp);
  return {command, [&options, isOutTerminal](const Task& task) {
            const char* const noColor = std::getenv("NO_COLOR");
            const bool isWanted = isOutTerminal && !options.outputFile && (noColor == nullptr || *noColor == '\0');
            dump(task, options.color == "always" || (options.color == "auto" && isWanted));
          }};
}

Command addStats(CLI::App& app, Options& options, Files& files, bool isOutTerminal) {
  CLI::App* const command = app.add_subcommand("stats", "What messages there are: encodings, rates, sizes, fields");
  named(command->add_option("--svg", options.svgFile, "Draw rate over time and sizes into FILE, which must not exist"),
        "FILE");
  named(command->add_option("--time-field", options.sink.timeField, "The EPOCH_NSEC field that tells when"), "FIELD");
  addTimeZoneOption(*command, options);
  addSourceOptions(*command, options);
  addSelectionOptions(*command, options, false);
  addOutputOptions(*command, options);
  addCommonOptions(*command, options);
  command->footer(kStatsHelp);
  return {command, [&options, &files, isOutTerminal](const Task& task) {
            StatsOptions statsOptions;
            statsOptions.zone = timeZoneOf(options);
            statsOptions.timeField = options.sink.timeField;
            statsOptions.columns = isOutTerminal ? terminalColumns() : 80;
            Output picture(files.svg);
            if (options.svgFile) {
              if (options.outputFile && isSameFile(*options.svgFile, *options.outputFile)) {
                throw UsageError(*options.svgFile + " is the output, too");
              }
              openFile(*options.svgFile, options, files.svg, files);
              picture.redirect(files.svg, *options.svgFile);
              statsOptions.svg = &picture;
            }
            stats(task, statsOptions);
          }};
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

MulticastOptions multicastOf(const Options& options, unsigned hops) {
  MulticastOptions multicast;
  multicast.hops = hops;
  if (!options.interfaceAddress.empty()) {
    multicast.interfaceAddress = parseAddress(options.interfaceAddress);
    if (!multicast.interfaceAddress) {
      throw UsageError("--interface: " + inQuotes(options.interfaceAddress) + " is not an address");
    }
  }
  return multicast;
}

void addInterfaceOption(CLI::App& command, Options& options) {
  named(
      command.add_option("--interface", options.interfaceAddress, "Of a group: this machine's address to reach it by"),
      "ADDRESS");
}

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

/// The hidden command that writes manual page and completions, from the very table that the parser works by.
Command addDescribe(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand("describe", "The manual page, or completion for a shell");
  command->group("");
  command->add_option("FORM", options.format, "man, bash, zsh or fish")
      ->required()
      ->check(CLI::IsMember({"man", "bash", "zsh", "fish"}));
  addOutputOptions(*command, options);
  return {command,
          [&app, &options](const Task& task) {
            const CommandEntry table = tableOf(app);
            task.out.text() += options.format == "man"    ? manualPage(table, "mdmsg " MDMSG_VERSION)
                               : options.format == "bash" ? bashCompletion(table)
                               : options.format == "zsh"  ? zshCompletion(table)
                                                          : fishCompletion(table);
            task.out.lineDone();
          },
          false};
}

/// All commands, in the order in which the help lists them.
std::vector<Command> addCommands(CLI::App& app, Options& options, Files& files, bool isOutTerminal) {
  app.set_version_flag("--version", "mdmsg " MDMSG_VERSION, "Print the version and exit");
  app.require_subcommand(1);
  app.footer(
      "Examples:\n"
      "  echo '{\"SYMBOL\":\"AB\",\"BID\":101.25}' | mdmsg encode --encoding mInt | mdmsg decode\n"
      "  mdmsg decode --format json feed.pcap\n"
      "  mdmsg convert --to MsgT quotes.hex > other.hex\n"
      "\n"
      "\"mdmsg COMMAND --help\" tells more.");
  std::vector<Command> commands{addEncode(app, options),
                                addDecode(app, options),
                                addConvert(app, options),
                                addDump(app, options, isOutTerminal),
                                addStats(app, options, files, isOutTerminal),
                                addGenerate(app, options),
                                addReplay(app, options),
                                addListen(app, options),
                                addDescribe(app, options)};
  addDictCommands(app, commands);
  return commands;
}

/// What is wrong with a command line that the parser refused.
std::string complaintOf(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App* asked = &app;
  while (!asked->get_subcommands().empty()) {
    asked = asked->get_subcommands().front();
  }
  // The parser only misses a command then, and does not tell which word it did not take for one.
  const std::vector<std::string> unknown = asked->remaining();
  return asked->get_require_subcommand_min() != 0 && !unknown.empty()
             ? "there is no command or option " + inQuotes(unknown.front())
             : std::string(error.what());
}

/// @param files  the files that are written; they outlive what is written to them, and so does `progress`
int runCommand(std::vector<std::string> arguments, const Streams& streams, Files& files, Progress& progress,
               Output& out, Reporter& reporter) {
  Options options;
  CLI::App app(kDescription, "mdmsg");
  const std::vector<Command> commands = addCommands(app, options, files, streams.isOutTerminal);
  try {
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      std::ostringstream text;
      app.exit(error, text, streams.err);
      out.text() = text.str();
      out.lineDone();
      out.flush();
      return kDone;
    }
    throw UsageError(complaintOf(app, error) + "\nTry \"mdmsg --help\".");
  }

  const QuietLibrary quiet;
  const auto isGiven = [&](const Command& command) { return command.app->parsed(); };
  const Command& command = *std::find_if(commands.begin(), commands.end(), isGiven);
  if (command.usesDictionary) {
    loadNamedDictionary(options.dictionary, reporter);
  }
  // Not written inside the task: g++ 12 destroys parts of a nested aggregate twice when what stands behind it throws.
  const Inputs inputs{options.files, streams.in};
  const Task task{inputs, sourceOf(options), options.selection, out, reporter};
  if (options.outputFile) {
    openFile(*options.outputFile, options, files.output, files);
    out.redirect(files.output, *options.outputFile);
  }
  if (streams.isErrTerminal && !options.isQuiet &&
      (!streams.isOutTerminal || options.outputFile || app.got_subcommand("stats"))) {
    reporter.setProgress(&progress);
  }
  command.run(task);
  out.finish();
  return reporter.status();
}

}  // namespace

CLI::Option* named(CLI::Option* option, const char* name) { return option->type_name(name)->option_text(name); }

void addDictionaryOption(CLI::App& command, std::optional<std::string>& path) {
  named(command.add_option("--dictionary", path,
                           "Field dictionary, XML or text (default: the one on the search path, else a built-in one)"),
        "FILE");
}

int run(std::vector<std::string> arguments, const Streams& streams) {
  Files files;
  Progress progress(streams.err);
  Output out(streams.out);
  Reporter reporter(streams.err, out);
  try {
    return runCommand(std::move(arguments), streams, files, progress, out, reporter);
  } catch (const OutputError& error) {
    if (error.isBrokenPipe()) {
      return reporter.status();
    }
    streams.err << "mdmsg: " + std::string(error.what()) + '\n' << std::flush;
  } catch (const std::exception& error) {
    try {
      reporter.unusable(error.what());
    } catch (const OutputError&) {
      streams.err << "mdmsg: " + std::string(error.what()) + '\n' << std::flush;
    }
    removeEmpty(files);
  }
  return kBadUsage;
}

}  // namespace MD::tool
