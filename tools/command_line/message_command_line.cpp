#include <cstdlib>

#include <CLI/CLI.hpp>

#include "base/platform.h"
#include "command_line/message_command_line.h"

namespace MD::tool {
namespace {

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

}  // namespace

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

}  // namespace MD::tool
