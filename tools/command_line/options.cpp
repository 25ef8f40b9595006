#include "command_line/options.h"

#include <cstdint>

#include <charconv>
#include <limits>
#include <system_error>

#include <CLI/CLI.hpp>

namespace MD::tool {
std::string complaintAboutNumber(const std::string& text) {
  if (text.empty() || text.find_first_not_of("0123456789") != text.npos) {
    return inQuotes(text) + " is not a whole number";
  }
  std::uint64_t number = 0;
  const bool fits = std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
  return fits ? std::string()
              : printable(text) + " is more than " + std::to_string(std::numeric_limits<std::uint64_t>::max());
}

void addCommonOptions(CLI::App& command, Options& options) {
  addDictionaryOption(command, options.dictionary);
  command.add_flag("--no-progress", options.isQuiet, "Show no progress on a terminal");
  command.add_option("FILE", options.files, "Input files, \"-\" for standard input")
      ->type_name("FILE")
      ->option_text("");
}

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

CLI::Option* named(CLI::Option* option, const char* name) { return option->type_name(name)->option_text(name); }

void addDictionaryOption(CLI::App& command, std::optional<std::string>& path) {
  named(command.add_option("--dictionary", path,
                           "Field dictionary, XML or text (default: the one on the search path, else a built-in one)"),
        "FILE");
}

}  // namespace MD::tool
