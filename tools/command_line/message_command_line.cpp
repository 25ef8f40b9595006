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
    "Values: CHAR \"B\", INT, INT64 and EPOCH_NSEC (nanoseconds) integers, FLOAT\n"
    "and DOUBLE numbers or \"NaN\", \"Infinity\", \"-Infinity\", STRING \"text\",\n"
    "BUFFER {\"hex\":\"0aff\"}, DATETIME {\"date\":20240115,\"time\":93000000,\"offset\":-300}.\n"
    "Recommended units of a DATETIME: hhmmssmmm local time, and offset in minutes.\n"
    "Keys are field names or field ids. CSV cells contain the same values as plain text,\n"
    "a BUFFER as hex digits, a DATETIME as \"20240115 93000000 -300\". An empty cell is a\n"
    "missing field.\n"
    "\n"
    "Examples:\n"
    "  echo '{\"SYMBOL\":\"AB\",\"BID\":101.25,\"BID_QTY\":300}' | mdmsg encode --encoding mInt\n"
    "  mdmsg encode --encoding MsgT --csv quotes.csv > quotes.hex\n"
    "  mdmsg encode --encoding mInt --csv --separator tab --format u32le -o quotes.bin quotes.tsv\n"
    "  mdmsg encode --encoding mInt --format pcap --time-field RECV_TIME --output quotes.pcap quotes.json";

constexpr const char* kDecodeHelp =
    "The first byte of a message is its encoding byte: 01 IterMap, 06 mInt, 46 MsgT. Hex\n"
    "digits may be upper or lower case, with spaces between bytes. Output of --format\n"
    "json can be encoded to identical bytes. Arrow has one column per field of --fields\n"
    "or, without it, per field of the first 65536 messages (64 MiB at most).\n"
    "\n"
    "Examples:\n"
    "  mdmsg decode quotes.hex\n"
    "  mdmsg decode --json --where 'BID > 101 and SYMBOL in (AB, CD)' feed.pcap.gz\n"
    "  mdmsg decode --where 'exists(ASK) and not (SYMBOL =~ \"^X\" or @size > 100)' feed.pcap\n"
    "  mdmsg decode --from-time 09:30 --to-time 16:00 --time-zone America/New_York feed.pcap\n"
    "  mdmsg decode --csv --fields @time,SYMBOL,BID,ASK --time-format spreadsheet feed.pcap > quotes.csv\n"
    "  mdmsg decode --csv --fields all --separator tab --no-header --iso-time --time-digits 3 feed.pcap\n"
    "  mdmsg decode --json --framing u32le --jobs 2 quotes.bin\n"
    "  mdmsg decode --format arrow -o quotes.arrow quotes.hex\n"
    "  mdmsg decode -- -quotes.hex";

constexpr const char* kConvertHelp =
    "Every field is copied. A message with a value that the other encoding cannot hold\n"
    "is skipped and reported.\n"
    "\n"
    "Examples:\n"
    "  mdmsg convert --encoding mInt quotes.hex > small.hex\n"
    "  mdmsg encode --encoding MsgT quotes.json | mdmsg convert --encoding IterMap\n"
    "  mdmsg convert --encoding mInt --format pcap --output small.pcap feed.pcap\n"
    "  mdmsg convert --encoding preferred --fields SYMBOL,BID --jobs 2 feed.pcap";

constexpr const char* kDumpHelp =
    "One line per part of a record: offset, bytes, part (id, type, length, value), field,\n"
    "type and value. Problems are marked \"!\". Malformed messages are printed up to their\n"
    "end. Exit status: 1 if a message has a problem.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dump --limit 1 quotes.hex\n"
    "  echo 06 6400010c 6500 | mdmsg dump\n"
    "  mdmsg dump --port 30001 --skip 99 --limit 1 feed.pcap";

constexpr const char* kStatsHelp =
    "Truncated messages end within a record, malformed ones have a value of a wrong\n"
    "size, a type that differs from the dictionary, or a repeated field; messages with\n"
    "an unknown encoding byte count as unrecognised. Rates require the timestamps of a\n"
    "capture or --time-field. Exit status: 1 if a message has a problem or is unrecognised.\n"
    "\n"
    "Examples:\n"
    "  mdmsg stats --by SYMBOL,MSG_KIND --top 10 feed.pcap.gz\n"
    "  mdmsg stats --svg feed.svg --time-zone America/New_York --interval 0.5 feed.pcap\n"
    "  mdmsg stats --html feed.html --by SYMBOL --top 1000 --sequence SEQ feed.pcap\n"
    "  mdmsg stats --sequence SEQ --per VENUE --time-field RECV_TIME --csv quotes.hex\n"
    "  mdmsg stats --by SYMBOL --where '@destination = 239.192.0.1' --to-time 30s --json feed.pcap\n"
    "  mdmsg stats --jobs 2 --quiet quotes.hex";

constexpr const char* kDiffHelp =
    "Messages with the same values of the fields of --key are compared in order: the\n"
    "first of OLD with the first of NEW, the second with the second. Without --key,\n"
    "messages in the same position are compared. Encodings may differ. --fields limits\n"
    "the comparison to these fields. OLD is held in memory. Exit status: 1 if there is a\n"
    "difference.\n"
    "\n"
    "Examples:\n"
    "  mdmsg diff --key SYMBOL old.hex new.hex\n"
    "  mdmsg diff --key SYMBOL,SEQ --fields BID,ASK monday.pcap tuesday.pcap\n"
    "  mdmsg diff --key SYMBOL --format json old.hex new.hex | jq .after";

struct DiffLine : CommonOptions {
  DiffOptions diff;
  std::string format = "text";
  SourceLine source;
  SelectionLine selection;
};

struct EncodeLine : CommonOptions {
  std::string encoding;
  std::string from = "json";
  std::uint32_t longestLineBytes = kLongestMessage;
  std::optional<std::string> separator;
  SelectionLine selection;
  JobsLine jobs;
  SinkLine sink;
};

struct DecodeCommandLine : CommonOptions {
  DecodeLine decode;
  SourceLine source;
  SelectionLine selection;
  JobsLine jobs;
};

struct ConvertLine : CommonOptions {
  std::string encoding;
  SinkLine sink;
  SourceLine source;
  SelectionLine selection;
  JobsLine jobs;
};

struct DumpLine : CommonOptions {
  std::string color = "auto";
  SourceLine source;
  SelectionLine selection;

  bool isColored(bool isOutTerminal) const {
    const char* const noColor = std::getenv("NO_COLOR");
    const bool isWanted = isOutTerminal && !outputFile && (noColor == nullptr || *noColor == '\0');
    return color == "always" || (color == "auto" && isWanted);
  }
};

struct StatsLine : CommonOptions {
  std::optional<std::string> svgFile;
  std::optional<std::string> htmlFile;
  std::string timeField;
  std::string format = "text";
  std::vector<std::string> by;
  std::uint64_t top = 20;
  std::optional<double> interval;
  std::string sequence;
  std::string per;
  SourceLine source;
  SelectionLine selection;
  JobsLine jobs;
};

}  // namespace

Command addEncode(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("encode", "Encode JSON Lines or CSV to messages");
  const auto line = std::make_shared<EncodeLine>();
  addEncodingOption(*command, line->encoding);
  addFormatOption(*command, "--from", line->from, {"json", "csv"},
                  "Input format: json (default; JSON Lines) or csv (with a header line of field names)");
  named(command->add_option("--separator", line->separator,
                            "Input csv: separator between cells, one character or tab, default a comma"),
        "CHARACTER");
  addLongestMessage(*command, line->longestLineBytes);
  line->selection.add(*command, true);
  line->sink.add(*command);
  line->jobs.add(*command);
  line->addLargeOutput(*command);
  line->add(*command);
  command->footer(kEncodeHelp);
  return {command, line, [line](const Session& session) {
            const bool isCsv = line->from == "csv";
            if (line->separator && !isCsv) {
              throw UsageError("--separator requires --from csv");
            }
            Inputs inputs(line->files, session.streams.in, !line->outputFile, session.reporter);
            encode(inputs, line->selection.options(),
                   {line->encoding, isCsv, line->longestLineBytes, parseSeparator(line->separator.value_or(",")),
                    line->sink.options(), line->jobs.count(*line, line->selection.selection)},
                   session.out, session.reporter);
          }};
}

Command addDecode(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("decode", "Decode messages to text, JSON Lines, CSV or Arrow");
  const auto line = std::make_shared<DecodeCommandLine>();
  line->decode.add(*command, {"text", "json", "csv", "arrow", "arrow-file"},
                   "Output format: text (default), json, csv, arrow (Arrow IPC stream) or arrow-file");
  line->decode.addBinaryText(*command);
  line->source.add(*command);
  line->selection.add(*command, true);
  line->jobs.add(*command);
  line->addLargeOutput(*command);
  line->add(*command);
  command->footer(kDecodeHelp);
  return {command, line, [line](const Session& session) {
            decode(InputTask(session, *line, line->source.options(), line->selection.options(),
                             line->jobs.count(*line, line->selection.selection))
                       .task(),
                   line->decode.options(line->selection.zone.timeZone()));
          }};
}

Command addConvert(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("convert", "Transcode messages to another encoding");
  const auto line = std::make_shared<ConvertLine>();
  addEncodingOption(*command, line->encoding);
  line->sink.add(*command);
  line->source.add(*command);
  line->selection.add(*command, true);
  line->jobs.add(*command);
  line->addLargeOutput(*command);
  line->add(*command);
  command->footer(kConvertHelp);
  return {command, line, [line](const Session& session) {
            convert(InputTask(session, *line, line->source.options(), line->selection.options(),
                              line->jobs.count(*line, line->selection.selection))
                        .task(),
                    {line->encoding, line->sink.options()});
          }};
}

Command addDiff(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("diff", "Compare the messages of two files, field by field");
  const auto line = std::make_shared<DiffLine>();
  named(command
            ->add_option("--key", line->diff.keys, "Fields that identify a message, by name or id, separated by commas")
            ->delimiter(',')
            ->allow_extra_args(false),
        "FIELDS");
  addFormatOption(*command, "--format", line->format, {"text", "json"}, "Output format: text (default) or json");
  line->source.add(*command);
  line->selection.add(*command, true);
  line->addLargeOutput(*command);
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
            const InputTask old(session, before, source, line->selection.options());
            const InputTask now(session, after, source, line->selection.options());
            diff(old.task(), now.task(), options);
          }};
}

Command addDump(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("dump", "Annotated hex dump of messages");
  const auto line = std::make_shared<DumpLine>();
  named(command
            ->add_option("--color", line->color,
                         "auto (default; on a terminal, unless NO_COLOR is set), always "
                         "or never")
            ->check(CLI::IsMember({"auto", "always", "never"})),
        "WHEN");
  line->source.add(*command);
  line->selection.add(*command, false);
  line->addLargeOutput(*command);
  line->add(*command);
  command->footer(kDumpHelp);
  return {command, line, [line](const Session& session) {
            dump(InputTask(session, *line, line->source.optionsWithForeign(), line->selection.options()).task(),
                 line->isColored(session.streams.isOutTerminal));
          }};
}

Command addStats(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("stats", "Print statistics: encodings, rates, sizes, field counts");
  const auto line = std::make_shared<StatsLine>();
  named(command->add_option("--svg", line->svgFile, "Draw histograms of rate and sizes to FILE, which must not exist"),
        "FILE");
  named(
      command->add_option("--html", line->htmlFile, "Write all statistics as a web page to FILE, which must not exist"),
      "FILE");
  named(command->add_option("--time-field", line->timeField, "EPOCH_NSEC field to use as message timestamp")
            ->check(&complaintAboutEmpty),
        "FIELD");
  named(command->add_option("--by", line->by, "Count messages by the values of these fields, separated by commas")
            ->delimiter(',')
            ->allow_extra_args(false),
        "FIELDS");
  named(command->add_option("--top", line->top, "Number of values and endpoints shown, default 20")
            ->check(&complaintAboutNumber),
        "N");
  named(command->add_option("--interval", line->interval, "Width of the intervals of the time axis, in seconds"),
        "SECONDS");
  named(command
            ->add_option("--sequence", line->sequence,
                         "Check that the numbers of this field grow by one: missing, duplicate, late")
            ->check(&complaintAboutEmpty),
        "FIELD");
  named(command->add_option("--per", line->per, "Check --sequence for each value of this field")
            ->check(&complaintAboutEmpty),
        "FIELD");
  addFormatOption(*command, "--format", line->format, {"text", "json", "csv"},
                  "Output format: text (default), json (one object per line) or csv");
  line->source.add(*command);
  line->selection.add(*command, false);
  line->jobs.add(*command);
  line->addLargeOutput(*command);
  line->add(*command);
  command->footer(kStatsHelp);
  const auto run = [line](const Session& session) {
    StatsOptions options;
    options.report.zone = line->selection.zone.timeZone();
    options.report.columns = session.streams.isOutTerminal ? terminalColumns() : 80;
    options.report.format = line->format == "json"  ? StatsFormat::Json
                            : line->format == "csv" ? StatsFormat::Csv
                                                    : StatsFormat::Text;
    options.report.top = static_cast<std::size_t>(line->top);
    options.timeField = line->timeField;
    options.by = line->by;
    if (const auto interval = durationOf("--interval", line->interval)) {
      options.intervalNs = interval->count();
      if (options.intervalNs <= 0) {
        throw UsageError("--interval is more than 0 seconds");
      }
    }
    options.sequenceField = line->sequence;
    options.sequencePer = line->per;
    Output picture(session.streams.out);
    Output page(session.streams.out);
    const auto open = [&](const std::optional<std::string>& path, OutputFile& file, Output& out) -> Output* {
      if (!path) {
        return nullptr;
      }
      for (const OutputFile* const other : {&session.files.output, &session.files.svg}) {
        if (other->isOpen() && other->isAt(*path)) {
          throw UsageError(pathText(*path) + " is also the output");
        }
      }
      Files::open(file, *path, *line);
      out.redirect(file);
      session.watch.begin();
      return &out;
    };
    options.svg = open(line->svgFile, session.files.svg, picture);
    options.html = open(line->htmlFile, session.files.html, page);
    stats(InputTask(session, *line, line->source.optionsWithForeign(), line->selection.options(),
                    line->jobs.count(*line, line->selection.selection))
              .task(),
          options);
  };
  return {command, line, run, true, true};
}

}  // namespace MD::tool
