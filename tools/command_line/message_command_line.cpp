#include <cstdlib>

#include <memory>
#include <optional>
#include <string>

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
    "Truncated messages end within a record, malformed ones have a value of a wrong\n"
    "size, a type other than the dictionary's or a repeated field; unrecognised data\n"
    "begins with an unknown encoding byte. Rates need the times of a capture or\n"
    "--time-field. The exit status is 1 when a message had a flaw or was unrecognised.\n"
    "\n"
    "Examples:\n"
    "  mdmsg stats feed.pcap.gz\n"
    "  mdmsg stats --svg feed.svg --time-zone America/New_York feed.pcap\n"
    "  mdmsg stats --time-field RECV_TIME quotes.hex";

constexpr const char* kDiffHelp =
    "Messages with the same values of the fields of --key belong together, the first of\n"
    "OLD with the first of NEW and so on; without --key each with the one in its place.\n"
    "Encodings may differ. --fields limits what is compared. OLD is held in memory.\n"
    "Exit status: 1 when there is a difference.\n"
    "\n"
    "Examples:\n"
    "  mdmsg diff --key SYMBOL old.hex new.hex\n"
    "  mdmsg diff --key SYMBOL,SEQ --fields BID,ASK monday.pcap tuesday.pcap\n"
    "  mdmsg diff --key SYMBOL --format json old.hex new.hex | jq .after";

struct DiffLine : CommonOptions {
  DiffOptions diff;
  std::string format = "text";
  SourceLine source;
  SelectionOptions selection;
};

struct EncodeLine : CommonOptions {
  std::string encoding;
  bool isCsv = false;
  SelectionOptions selection;
  JobsLine jobs;
  SinkLine sink;
};

struct DecodeCommandLine : CommonOptions {
  DecodeLine decode;
  SourceLine source;
  SelectionOptions selection;
  JobsLine jobs;
};

struct ConvertLine : CommonOptions {
  std::string encoding;
  SinkLine sink;
  SourceLine source;
  SelectionOptions selection;
  JobsLine jobs;
};

struct DumpLine : CommonOptions {
  std::string color = "auto";
  SourceLine source;
  SelectionOptions selection;

  bool isColored(bool isOutTerminal) const {
    const char* const noColor = std::getenv("NO_COLOR");
    const bool isWanted = isOutTerminal && !outputFile && (noColor == nullptr || *noColor == '\0');
    return color == "always" || (color == "auto" && isWanted);
  }
};

struct StatsLine : CommonOptions {
  std::optional<std::string> svgFile;
  std::string timeField;
  TimeZoneLine zone;
  SourceLine source;
  SelectionOptions selection;
  JobsLine jobs;
};

}  // namespace

Command addEncode(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("encode", "JSON lines, or CSV, to messages");
  const auto line = std::make_shared<EncodeLine>();
  addEncodingOption(*command, "--encoding", line->encoding);
  command->add_flag("--csv", line->isCsv, "Read CSV with a header line of field names");
  addSelectionOptions(*command, line->selection, true);
  line->sink.add(*command, "--to,--framing");
  line->jobs.add(*command);
  line->addOutput(*command);
  line->add(*command);
  command->footer(kEncodeHelp);
  return {command, line, [line](const Session& session) {
            Inputs inputs(line->files, session.streams.in, !line->outputFile, session.reporter);
            encode(inputs, line->selection,
                   {line->encoding, line->isCsv, line->sink.options(), line->jobs.count(*line, line->selection)},
                   session.out, session.reporter);
          }};
}

Command addDecode(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("decode", "Messages to print-outs, JSON lines or CSV");
  const auto line = std::make_shared<DecodeCommandLine>();
  named(command->add_option("--format", line->decode.format, "What to write: text (default), json or csv")
            ->check(CLI::IsMember({"text", "json", "csv"})),
        "FORMAT");
  line->decode.add(*command);
  line->source.add(*command);
  addSelectionOptions(*command, line->selection, true);
  line->jobs.add(*command);
  line->addOutput(*command);
  line->add(*command);
  command->footer(kDecodeHelp);
  return {command, line, [line](const Session& session) {
            decode(InputTask(session, *line, line->source.options(), line->selection,
                             line->jobs.count(*line, line->selection))
                       .task(),
                   line->decode.options());
          }};
}

Command addConvert(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("convert", "Messages to messages of another encoding");
  const auto line = std::make_shared<ConvertLine>();
  addEncodingOption(*command, "--to", line->encoding);
  line->sink.add(*command, "--as");
  line->source.add(*command);
  addSelectionOptions(*command, line->selection, true);
  line->jobs.add(*command);
  line->addOutput(*command);
  line->add(*command);
  command->footer(kConvertHelp);
  return {command, line, [line](const Session& session) {
            convert(InputTask(session, *line, line->source.options(), line->selection,
                              line->jobs.count(*line, line->selection))
                        .task(),
                    {line->encoding, line->sink.options()});
          }};
}

Command addDiff(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("diff", "Compare the messages of two files, field by field");
  const auto line = std::make_shared<DiffLine>();
  named(command->add_option("--key", line->diff.keys, "Fields that identify a message, by name or id, with commas")
            ->delimiter(',')
            ->allow_extra_args(false),
        "FIELDS");
  named(command->add_option("--format", line->format, "What to write: text (default) or json")
            ->check(CLI::IsMember({"text", "json"})),
        "FORMAT");
  line->source.add(*command);
  addSelectionOptions(*command, line->selection, true);
  line->addOutput(*command);
  line->add(*command);
  command->get_option("FILE")->description("OLD and NEW, \"-\" for standard input")->expected(2)->required();
  command->footer(kDiffHelp);
  return {command, line, [line](const Session& session) {
            if (line->files[0] == "-" && line->files[1] == "-") {
              throw UsageError("only one of the two inputs can be standard input");
            }
            CommonOptions before = *line;
            CommonOptions after = *line;
            before.files = {line->files[0]};
            after.files = {line->files[1]};
            DiffOptions options = line->diff;
            options.isJson = line->format == "json";
            const SourceOptions source = line->source.options();
            const InputTask old(session, before, source, line->selection);
            const InputTask now(session, after, source, line->selection);
            diff(old.task(), now.task(), options);
          }};
}

Command addDump(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("dump", "Messages taken apart: every byte, and what it means");
  const auto line = std::make_shared<DumpLine>();
  named(command
            ->add_option("--color", line->color,
                         "auto (default; on a terminal, unless NO_COLOR is set), always "
                         "or never")
            ->check(CLI::IsMember({"auto", "always", "never"})),
        "WHEN");
  line->source.add(*command);
  addSelectionOptions(*command, line->selection, false);
  line->addOutput(*command);
  line->add(*command);
  command->footer(kDumpHelp);
  return {command, line, [line](const Session& session) {
            dump(InputTask(session, *line, line->source.optionsWithForeign(), line->selection).task(),
                 line->isColored(session.streams.isOutTerminal));
          }};
}

Command addStats(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("stats", "What messages there are: encodings, rates, sizes, fields");
  const auto line = std::make_shared<StatsLine>();
  named(command->add_option("--svg", line->svgFile, "Draw rate over time and sizes into FILE, which must not exist"),
        "FILE");
  named(command->add_option("--time-field", line->timeField, "The EPOCH_NSEC field that tells when"), "FIELD");
  line->zone.add(*command);
  line->source.add(*command);
  addSelectionOptions(*command, line->selection, false);
  line->jobs.add(*command);
  line->addOutput(*command);
  line->add(*command);
  command->footer(kStatsHelp);
  const auto run = [line](const Session& session) {
    StatsOptions options;
    options.zone = line->zone.timeZone();
    options.timeField = line->timeField;
    options.columns = session.streams.isOutTerminal ? terminalColumns() : 80;
    Output picture(session.streams.out);
    if (line->svgFile) {
      if (session.files.output.isOpen() && session.files.output.isAt(*line->svgFile)) {
        throw UsageError(pathText(*line->svgFile) + " is the output, too");
      }
      Files::open(session.files.svg, *line->svgFile, *line);
      picture.redirect(session.files.svg);
      session.watch.begin();
      options.svg = &picture;
    }
    stats(InputTask(session, *line, line->source.optionsWithForeign(), line->selection,
                    line->jobs.count(*line, line->selection))
              .task(),
          options);
  };
  return {command, line, run, true, true};
}

}  // namespace MD::tool
