#include "command_line/options.h"

#include <cstdint>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <limits>
#include <memory>
#include <system_error>
#include <thread>

#include <CLI/CLI.hpp>

#include "base/errors.h"
#include "base/quoted_text.h"
#include "text/value_text.h"
#include "transport/packet.h"

namespace MD::tool {

CLI::Option* named(CLI::Option* option, const char* name) { return option->type_name(name)->option_text(name); }

void addFormatOption(CLI::App& command, const char* name, std::string& format, const std::vector<std::string>& formats,
                     const char* description) {
  const CLI::Option* const option =
      named(command.add_option(name, format, description)->check(CLI::IsMember(formats)), "FORMAT");
  const auto chosen = std::make_shared<std::string>();
  for (const char* const shortened : {"json", "csv"}) {
    if (std::find(formats.begin(), formats.end(), shortened) != formats.end()) {
      command.add_flag_callback(
          std::string("--") + shortened,
          [&format, option, chosen, name, shortened] {
            const std::string other = option->count() != 0 ? option->results().front() : *chosen;
            if (!other.empty() && other != shortened) {
              throw UsageError(std::string("--") + shortened + " is " + name + ' ' + shortened + ", not " +
                               printable(other));
            }
            format = *chosen = shortened;
          },
          std::string("Short for ") + name + ' ' + shortened);
    }
  }
}

std::string complaintAboutEmpty(const std::string& text) { return text.empty() ? "the value is empty" : ""; }

std::string complaintAboutNumber(const std::string& text) {
  return upTo(std::numeric_limits<std::uint64_t>::max())(text);
}

std::function<std::string(const std::string&)> upTo(std::uint64_t most) {
  return [most](const std::string& text) {
    if (!isOfDigits(text)) {
      return inQuotes(text) + " is not an integer";
    }
    std::uint64_t number = 0;
    const bool fits = std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
    return fits && number <= most ? std::string() : printable(text) + " is more than " + std::to_string(most);
  };
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

bool isSelecting(const SelectionOptions& selection) {
  return !selection.where.empty() || !selection.fromTime.empty() || !selection.toTime.empty() ||
         !selection.fields.empty() || selection.skip != 0 || selection.limit != SelectionOptions().limit;
}

void CommonOptions::add(CLI::App& command) {
  addDictionary(command);
  command.add_flag("--no-progress", hasNoProgress, "Do not display progress on a terminal");
  addReports(command);
  addFiles(command);
}

void CommonOptions::addFiles(CLI::App& command) {
  command.add_option("FILE", files, "Input files, \"-\" for standard input")->type_name("FILE")->option_text("");
}

void CommonOptions::addDictionary(CLI::App& command) {
  named(
      command.add_option(
          "--dictionary", dictionary,
          "Field dictionary, XML or text (default: the one on the configuration search path, or else a built-in one)"),
      "FILE");
  command.add_flag("--verbose", isVerbose, "Report which dictionary is used");
}

void CommonOptions::addReports(CLI::App& command) {
  CLI::Option* const most = named(
      command
          .add_option("--max-reports", mostReports,
                      "Report at most N problems of each kind per input individually, default 10; others are counted")
          ->check(&complaintAboutNumber),
      "N");
  command
      .add_flag("--quiet", isQuiet,
                "Report only the number of problems of each kind per input, and display no progress")
      ->excludes(most);
}

void CommonOptions::addOutput(CLI::App& command) {
  named(command.add_option("-o,--output", outputFile,
                           "Write to FILE instead of standard output; FILE must not exist unless --force is given"),
        "FILE");
  command.add_flag("--force", isForced, "Overwrite an existing file");
}

void CommonOptions::addLargeOutput(CLI::App& command) {
  addOutput(command);
  isCompressible = true;
  named(
      command.add_option("--compress", compress,
                         "Compress the output: gzip or zstd, also with a level (gzip:9, zstd:19), or none (default: by "
                         "the file name extension of --output, .gz or .zst)"),
      "METHOD");
}

Compression CommonOptions::compression() const {
  if (compress) {
    return parseCompression(*compress);
  }
  return isCompressible && outputFile ? compressionOf(*outputFile) : Compression();
}

void JobsLine::add(CLI::App& command) {
  named(command.add_option("--jobs", jobs, "Number of threads for files (default: one per core for large files)")
            ->check(&complaintAboutNumber),
        "N");
}

unsigned JobsLine::count(const CommonOptions& common, const SelectionOptions& selection) const {
  constexpr std::uint64_t kMost = 256;
  constexpr std::uint64_t kLargeBytes = std::uint64_t{4} << 20;
  if (jobs && (*jobs == 0 || *jobs > kMost)) {
    throw UsageError("--jobs is at least 1 and at most " + std::to_string(kMost));
  }
  std::uint64_t sizeBytes = 0;
  for (const std::string& file : common.files) {
    std::error_code error;
    if (file == "-" || !std::filesystem::is_regular_file(file, error)) {
      return 1;
    }
    const std::uintmax_t fileBytes = std::filesystem::file_size(file, error);
    sizeBytes += error ? 0 : fileBytes;
  }
  const bool isPart = selection.skip != 0 || !selection.fromTime.empty() || !selection.toTime.empty() ||
                      selection.limit != std::numeric_limits<std::uint64_t>::max();
  if (common.files.empty() || isPart || (!jobs && sizeBytes < kLargeBytes)) {
    return 1;
  }
  return jobs ? static_cast<unsigned>(*jobs) : std::max(1U, std::thread::hardware_concurrency());
}

void addLongestMessage(CLI::App& command, std::uint32_t& bytes) {
  named(command
            .add_option("--max-message", bytes,
                        "Maximum length of a message, or of a line of JSON or CSV, in bytes, default 67108864; longer "
                        "ones are reported and skipped")
            ->check(CLI::Range(std::uint32_t{1}, std::numeric_limits<std::uint32_t>::max())),
        "BYTES");
}

void SourceLine::add(CLI::App& command) {
  named(command
            .add_option("--from", from,
                        "Input format: auto (default; detects captures, otherwise hex lines), hex, raw (one message) "
                        "or pcap (pcap or pcapng, one message per UDP datagram)")
            ->check(CLI::IsMember({"auto", "hex", "raw", "pcap"})),
        "FORMAT");
  named(command
            .add_option("--framing", framing, "Read a stream of length-prefixed messages: u16le, u16be, u32le or u32be")
            ->check(&complaintAboutEmpty),
        "FRAMING");
  addLongestMessage(command, source.longestMessageBytes);
  named(command.add_option("--port", source.port, "Captures only: datagrams to this UDP port")
            ->check(upTo(std::numeric_limits<std::uint16_t>::max())),
        "PORT");
  named(command.add_option("--group", group, "Captures only: datagrams to this address")->check(&complaintAboutEmpty),
        "ADDRESS");
  named(command.add_option("--filter", source.filter, "Captures only: BPF filter (tcpdump syntax)"), "EXPRESSION");
}

SourceOptions SourceLine::options() const {
  SourceOptions options = source;
  if (!framing.empty()) {
    if (from != "auto") {
      throw UsageError("--framing cannot be combined with --from");
    }
    options.form = InputForm::Framed;
    options.framing = parseFraming(framing);
  } else if (from == "hex") {
    options.form = InputForm::HexLines;
  } else if (from == "raw") {
    options.form = InputForm::Raw;
  } else if (from == "pcap") {
    options.form = InputForm::Capture;
  }
  if (!group.empty()) {
    options.group = parseAddress(group);
    if (!options.group) {
      throw UsageError("--group: " + inQuotes(group) + " is not an address");
    }
  }
  return options;
}

SourceOptions SourceLine::optionsWithForeign() const {
  SourceOptions all = options();
  all.takesForeign = true;
  return all;
}

void SinkLine::add(CLI::App& command) {
  addForm(command);
  named(command.add_option("--time-field", sink.timeField, "pcap only: EPOCH_NSEC field to use as timestamp")
            ->check(&complaintAboutEmpty),
        "FIELD");
  addEndpoints(command);
}

void SinkLine::addForm(CLI::App& command) {
  named(command
            .add_option("--format", form,
                        "Output format: hex lines (default), raw (one message), u16le, u16be, u32le or u32be "
                        "(length-prefixed messages), pcap (UDP datagrams)")
            ->check(CLI::IsMember({"hex", "raw", "u16le", "u16be", "u32le", "u32be", "pcap"})),
        "FORMAT");
}

void SinkLine::addEndpoints(CLI::App& command) {
  named(command.add_option("--source", sink.source, "pcap only: source address, default 192.0.2.1:30000"),
        "ADDRESS:PORT");
  named(command.add_option("--destination", sink.destination,
                           "pcap only: destination address, default 239.192.0.1:30001"),
        "ADDRESS:PORT");
}

SinkOptions SinkLine::options() const {
  SinkOptions options = sink;
  if (form == "pcap") {
    options.form = OutputForm::Capture;
  } else if (form == "raw") {
    options.form = OutputForm::Raw;
  } else if (form != "hex") {
    options.form = OutputForm::Framed;
    options.framing = parseFraming(form);
  }
  return options;
}

void addEncodingOption(CLI::App& command, std::string& encoding) {
  named(command.add_option("--encoding", encoding, "Encoding to write: mInt, IterMap, MsgT or preferred")
            ->required()
            ->check(CLI::IsMember({"mInt", "IterMap", "MsgT", "preferred"})),
        "ENCODING");
}

void TimeZoneLine::add(CLI::App& command) {
  named(command.add_option("--time-zone", zone,
                           "Time zone of printed times, and of times in options that have no offset: UTC "
                           "(default), local, +05:30, or a name such as Europe/Vienna"),
        "ZONE");
}

TimeZone TimeZoneLine::timeZone() const { return zone ? TimeZone::parse(*zone) : TimeZone(); }

void SelectionLine::add(CLI::App& command, bool hasFields) {
  named(command
            .add_option(
                "--where", selection.where,
                "Select messages that meet CONDITION: comparisons of fields (= != < <= > >= ~ =~), FIELD in (A, B), "
                "exists(FIELD), with and, or, not and parentheses; may be repeated")
            ->take_all()
            ->allow_extra_args(false),
        "CONDITION");
  named(command
            .add_option("--from-time", selection.fromTime,
                        "Select messages captured at this time or later: a date, with or without a time, a time of "
                        "the first message's day, such as 09:30, or a duration after it, such as 90s")
            ->check(&complaintAboutEmpty),
        "TIME");
  named(command.add_option("--to-time", selection.toTime, "Select messages captured before this time")
            ->check(&complaintAboutEmpty),
        "TIME");
  zone.add(command);
  named(command.add_option("--skip", selection.skip, "Skip the first N messages")->check(&complaintAboutNumber), "N");
  const char* const limit = command.get_option_no_throw("-n") == nullptr ? "-n,--limit" : "--limit";
  named(command.add_option(limit, selection.limit, "Stop after N messages")->check(&complaintAboutNumber), "N");
  if (hasFields) {
    named(command
              .add_option(
                  "--fields", selection.fields,
                  "Select fields, by name or id, separated by commas, or all of the dictionary (all); json and csv "
                  "also have @time, @source, @destination, @packet, @file, @size and @encoding")
              ->delimiter(',')
              ->allow_extra_args(false),
          "FIELDS");
  }
}

SelectionOptions SelectionLine::options() const {
  SelectionOptions options = selection;
  options.zone = zone.timeZone();
  return options;
}

void DecodeLine::add(CLI::App& command, const std::vector<std::string>& formats, const char* description) {
  addFormatOption(command, "--format", format, formats, description);
  command.add_flag("--price", isPrice, "Print fractional prices (whole part, numerator, denominator) as one number");
  command.add_flag("--raw-text", isRawText, "Text only: do not escape control characters of names and values");
  command.add_flag("--iso-time", isIsoTime, "Short for --time-format iso");
  named(command.add_option("--time-format", timeFormat,
                           "Formats json and csv: nanosecond timestamps as iso (2024-06-03T09:30:00.173980747Z), "
                           "spreadsheet (2024-06-03 09:30:00.173), a number of s, ms, us or ns (default) since 1970, "
                           "or in a strftime format such as %H:%M:%S"),
        "FORMAT");
  named(command.add_option("--time-digits", timeDigits, "Decimals of the seconds of timestamps: 0, 3, 6 or 9")
            ->check(upTo(9)),
        "N");
  command.add_flag("--no-header", hasNoHeader, "Format csv: omit the line with the column names");
  command.add_flag("--csv-safe", isCsvSafe,
                   "Format csv: write an apostrophe before text that a spreadsheet could run as a formula");
  named(command.add_option("--separator", separator,
                           "Format csv: separator between cells, one character or tab, default a comma"),
        "CHARACTER");
}

void DecodeLine::addBinaryText(CLI::App& command) {
  command.add_flag("--binary-text", isTextBinary,
                   "Arrow only: write CHAR and STRING as binary columns, which may contain any bytes");
}

DecodeOptions DecodeLine::options(const TimeZone& zone) const {
  if (isPrice && format != "text") {
    throw UsageError("--price requires --format text");
  }
  if (isRawText && format != "text") {
    throw UsageError("--raw-text requires --format text");
  }
  if (isTextBinary && !isArrow()) {
    throw UsageError("--binary-text requires --format arrow or arrow-file");
  }
  const char* const timeOption = timeFormat ? "--time-format" : isIsoTime ? "--iso-time" : "--time-digits";
  const bool isTimeShaped = timeFormat || isIsoTime || timeDigits;
  if (isTimeShaped && format != "json" && format != "csv") {
    throw UsageError(std::string(timeOption) + " requires --format json or csv");
  }
  if (timeFormat && isIsoTime && *timeFormat != "iso") {
    throw UsageError("--iso-time is --time-format iso, not " + printable(*timeFormat));
  }
  if ((hasNoHeader || isCsvSafe || separator) && format != "csv") {
    const char* const option = hasNoHeader ? "--no-header" : isCsvSafe ? "--csv-safe" : "--separator";
    throw UsageError(std::string(option) + " requires --format csv");
  }
  DecodeOptions options;
  options.isRawText = isRawText;
  options.format = format == "json"         ? Format::Json
                   : format == "csv"        ? Format::Csv
                   : format == "arrow"      ? Format::ArrowStream
                   : format == "arrow-file" ? Format::ArrowFile
                   : isPrice                ? Format::PriceText
                                            : Format::Text;
  options.isTextBinary = isTextBinary;
  if (isTimeShaped) {
    options.time = TimeFormat(timeFormat.value_or("iso"), timeDigits, zone);
  }
  options.csv.hasHeader = !hasNoHeader;
  options.csv.isSafe = isCsvSafe;
  if (separator) {
    options.csv.separator = parseSeparator(*separator);
  }
  return options;
}

char parseSeparator(const std::string& text) {
  if (text == "tab" || text == "\\t") {
    return '\t';
  }
  if (text.size() != 1 || text.find_first_of("\"\r\n ") != text.npos) {
    throw UsageError("--separator: " + inQuotes(text) + " is not one character, nor tab");
  }
  return text[0];
}

void MulticastLine::add(CLI::App& command) {
  named(command.add_option("--interface", address, "Multicast: address of the local interface to use")
            ->check(&complaintAboutEmpty),
        "ADDRESS");
}

MulticastOptions MulticastLine::options(unsigned hops) const {
  MulticastOptions multicast;
  multicast.hops = hops;
  if (!address.empty()) {
    multicast.interfaceAddress = parseAddress(address);
    if (!multicast.interfaceAddress) {
      throw UsageError("--interface: " + inQuotes(address) + " is not an address");
    }
  }
  return multicast;
}

}  // namespace MD::tool
