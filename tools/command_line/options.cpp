#include "command_line/options.h"

#include <cstdint>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <limits>
#include <system_error>
#include <thread>

#include <CLI/CLI.hpp>

#include "base/errors.h"
#include "base/quoted_text.h"
#include "text/value_text.h"
#include "transport/packet.h"

namespace MD::tool {

CLI::Option* named(CLI::Option* option, const char* name) { return option->type_name(name)->option_text(name); }

std::string complaintAboutNumber(const std::string& text) {
  if (!isOfDigits(text)) {
    return inQuotes(text) + " is not a whole number";
  }
  std::uint64_t number = 0;
  const bool fits = std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
  return fits ? std::string()
              : printable(text) + " is more than " + std::to_string(std::numeric_limits<std::uint64_t>::max());
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
  return !selection.where.empty() || !selection.fields.empty() || selection.skip != 0 ||
         selection.limit != SelectionOptions().limit;
}

void CommonOptions::add(CLI::App& command) {
  addDictionary(command);
  command.add_flag("--no-progress", isQuiet, "Show no progress on a terminal");
  addReports(command);
  addFiles(command);
}

void CommonOptions::addFiles(CLI::App& command) {
  command.add_option("FILE", files, "Input files, \"-\" for standard input")->type_name("FILE")->option_text("");
}

void CommonOptions::addDictionary(CLI::App& command) {
  named(command.add_option("--dictionary", dictionary,
                           "Field dictionary, XML or text (default: the one on the search path, else a built-in one)"),
        "FILE");
}

void CommonOptions::addReports(CLI::App& command) {
  named(command
            .add_option("--max-reports", mostReports,
                        "Report at most N problems of a kind per input one by one, default 10; the rest is counted")
            ->check(&complaintAboutNumber),
        "N");
}

void CommonOptions::addOutput(CLI::App& command) {
  named(command.add_option("--output", outputFile, "Write FILE, which must not exist, not standard output"), "FILE");
  command.add_flag("--force", isForced, "Write over a file that exists");
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
  const bool isPart = selection.skip != 0 || selection.limit != std::numeric_limits<std::uint64_t>::max();
  if (common.files.empty() || isPart || (!jobs && sizeBytes < kLargeBytes)) {
    return 1;
  }
  return jobs ? static_cast<unsigned>(*jobs) : std::max(1U, std::thread::hardware_concurrency());
}

void addSelectionOptions(CLI::App& command, SelectionOptions& selection, bool hasFields) {
  named(command
            .add_option("--where", selection.where,
                        "Take messages whose FIELD meets it: 'FIELD op VALUE', op one of = != < <= > >= ~; "
                        "may be repeated")
            ->take_all()
            ->allow_extra_args(false),
        "CONDITION");
  named(command.add_option("--skip", selection.skip, "Leave the first N of them out")->check(&complaintAboutNumber),
        "N");
  named(command.add_option("--limit", selection.limit, "Stop after N of them")->check(&complaintAboutNumber), "N");
  if (hasFields) {
    named(command.add_option("--fields", selection.fields, "Take these fields, by name or id, with commas")
              ->delimiter(',')
              ->allow_extra_args(false),
          "FIELDS");
  }
}

void SourceLine::add(CLI::App& command) {
  named(command
            .add_option("--from", from,
                        "What the input is: auto (default; a capture by its first bytes, else hex lines), hex, raw "
                        "(one message) or pcap (pcap or pcapng, a UDP datagram a message)")
            ->check(CLI::IsMember({"auto", "hex", "raw", "pcap"})),
        "FORM");
  named(command.add_option("--framing", framing,
                           "Read a stream with a length in front of each message: u16le, u16be, u32le or u32be"),
        "FRAMING");
  named(command.add_option("--port", source.port, "Of captures: datagrams to this UDP port")
            ->check(&complaintAboutNumber),
        "PORT");
  named(command.add_option("--group", group, "Of captures: datagrams to this address"), "ADDRESS");
  named(command.add_option("--filter", source.filter, "Of captures: a filter expression as of tcpdump"), "EXPRESSION");
}

SourceOptions SourceLine::options() const {
  SourceOptions options = source;
  if (!framing.empty()) {
    if (from != "auto") {
      throw UsageError("--framing is a form of its own; leave --from out");
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

void SinkLine::add(CLI::App& command, const char* name) {
  addForm(command, name);
  named(command.add_option("--time-field", sink.timeField, "Of pcap: the EPOCH_NSEC field with the times"), "FIELD");
  addEndpoints(command);
}

void SinkLine::addForm(CLI::App& command, const char* name) {
  named(command
            .add_option(name, form,
                        "What to write: hex lines (default), raw (one message), u16le, u16be, u32le or u32be (a "
                        "length in front of each message), pcap (UDP datagrams)")
            ->check(CLI::IsMember({"hex", "raw", "u16le", "u16be", "u32le", "u32be", "pcap"})),
        "FORM");
}

void SinkLine::addEndpoints(CLI::App& command) {
  named(command.add_option("--source", sink.source, "Of pcap: from where, default 192.0.2.1:30000"), "ADDRESS:PORT");
  named(command.add_option("--destination", sink.destination, "Of pcap: to where, default 239.192.0.1:30001"),
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

void addEncodingOption(CLI::App& command, const char* name, std::string& encoding) {
  named(command.add_option(name, encoding, "Encoding to write: mInt, IterMap, MsgT or preferred")
            ->required()
            ->check(CLI::IsMember({"mInt", "IterMap", "MsgT", "preferred"})),
        "ENCODING");
}

void TimeZoneLine::add(CLI::App& command) {
  named(command.add_option("--time-zone", zone,
                           "Of moments: UTC (default), local, +05:30, or a name such as Europe/Vienna"),
        "ZONE");
}

TimeZone TimeZoneLine::timeZone() const { return zone ? TimeZone::parse(*zone) : TimeZone(); }

void DecodeLine::add(CLI::App& command) {
  command.add_flag("--price", isPrice, "Print prices kept as whole, numerator and denominator as one");
  command.add_flag("--raw-text", isRawText, "Text only: do not escape control characters of names and values");
  command.add_flag("--iso-time", isIsoTime, "Of json and csv: nanosecond times as 2024-06-03T09:30:00...");
  zone.add(command);
}

DecodeOptions DecodeLine::options() const {
  if (isPrice && format != "text") {
    throw UsageError("--price goes with --format text");
  }
  if (isRawText && format != "text") {
    throw UsageError("--raw-text goes with --format text");
  }
  if (isIsoTime && format == "text") {
    throw UsageError("--iso-time goes with --format json or csv");
  }
  if (zone.zone && !isIsoTime) {
    throw UsageError("--time-zone goes with --iso-time");
  }
  DecodeOptions options;
  options.isRawText = isRawText;
  options.format = format == "json"  ? Format::Json
                   : format == "csv" ? Format::Csv
                   : isPrice         ? Format::PriceText
                                     : Format::Text;
  if (isIsoTime) {
    options.isoTime = zone.timeZone();
  }
  return options;
}

void MulticastLine::add(CLI::App& command) {
  named(command.add_option("--interface", address, "Of a group: this machine's address to reach it by"), "ADDRESS");
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
