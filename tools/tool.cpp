#include "tool.h"

#include <algorithm>
#include <exception>
#include <istream>
#include <optional>
#include <ostream>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "diagnostics.h"
#include "dictionary.h"
#include "output.h"

namespace MD::tool {
namespace {

struct Options {
  std::string encoding;
  bool isCsv = false;
  std::string format = "text";
  bool isPrice = false;
  std::optional<std::string> dictionary;
  std::vector<std::string> files;
  SourceOptions source;
};

constexpr const char* kDescription =
    "Encodes, decodes and converts market-data messages, one message a line.\n"
    "\n"
    "Every command reads the files named, or standard input (\"-\"), and writes\n"
    "standard output. A line that cannot be used is reported on standard error and\n"
    "left out. Exit status: 0; 1 when a line was left out or did not go out as it\n"
    "came; 2 when the command line or a file that it names cannot be used.";

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
    "  mdmsg encode --encoding MsgT --csv quotes.csv > quotes.hex";

constexpr const char* kDecodeHelp =
    "The first byte of a line tells its encoding: 01 IterMap, 06 mInt, 46 MsgT.\n"
    "Digits may be upper or lower case, with blanks between bytes. What --format json\n"
    "writes, encode reads back to the same bytes.\n"
    "\n"
    "Examples:\n"
    "  mdmsg decode quotes.hex\n"
    "  echo 06 6400010c 65000122 66000164 | mdmsg decode --price\n"
    "  mdmsg decode --format json < quotes.hex | grep '\"SYMBOL\":\"AB\"'";

constexpr const char* kConvertHelp =
    "Every field is copied; a message with a value that the other encoding cannot\n"
    "hold is left out and reported.\n"
    "\n"
    "Examples:\n"
    "  mdmsg convert --to mInt quotes.hex > small.hex\n"
    "  mdmsg encode --encoding MsgT quotes.json | mdmsg convert --to IterMap";

/// What is the same for all commands.
void addCommonOptions(CLI::App& command, Options& options) {
  command
      .add_option("--dictionary", options.dictionary,
                  "Field dictionary, XML or text (default: the one on the search path, else a built-in one)")
      ->type_name("FILE")
      ->option_text("FILE");
  command.add_option("FILE", options.files, "Input files, \"-\" for standard input")
      ->type_name("FILE")
      ->option_text("");
}

void addEncodingOption(CLI::App& command, const char* name, Options& options) {
  command.add_option(name, options.encoding, "Encoding to write: mInt, IterMap, MsgT or preferred")
      ->type_name("ENCODING")
      ->option_text("ENCODING")
      ->required()
      ->check(CLI::IsMember({"mInt", "IterMap", "MsgT", "preferred"}));
}

Format formatOf(const Options& options) {
  if (options.format == "json") {
    if (options.isPrice) {
      throw UsageError("--price goes with --format text");
    }
    return Format::Json;
  }
  return options.isPrice ? Format::PriceText : Format::Text;
}

int runCommand(std::vector<std::string> arguments, const Streams& streams, Output& out, Reporter& reporter) {
  Options options;
  CLI::App app(kDescription, "mdmsg");
  app.set_version_flag("--version", "mdmsg " MDMSG_VERSION, "Print the version and exit");
  app.require_subcommand(1);
  app.footer(
      "Example:\n"
      "  echo '{\"SYMBOL\":\"AB\",\"BID\":101.25}' | mdmsg encode --encoding mInt | mdmsg decode\n"
      "\n"
      "\"mdmsg COMMAND --help\" tells more.");

  CLI::App* const encodeCommand = app.add_subcommand("encode", "JSON lines, or CSV, to hex lines");
  addEncodingOption(*encodeCommand, "--encoding", options);
  encodeCommand->add_flag("--csv", options.isCsv, "Read CSV with a header line of field names");
  addCommonOptions(*encodeCommand, options);
  encodeCommand->footer(kEncodeHelp);

  CLI::App* const decodeCommand = app.add_subcommand("decode", "Hex lines to print-outs or JSON lines");
  decodeCommand->add_option("--format", options.format, "What to write: text (default) or json")
      ->type_name("FORMAT")
      ->option_text("FORMAT")
      ->check(CLI::IsMember({"text", "json"}));
  decodeCommand->add_flag("--price", options.isPrice, "Print prices kept as whole, numerator and denominator as one");
  addCommonOptions(*decodeCommand, options);
  decodeCommand->footer(kDecodeHelp);

  CLI::App* const convertCommand = app.add_subcommand("convert", "Hex lines to hex lines of another encoding");
  addEncodingOption(*convertCommand, "--to", options);
  addCommonOptions(*convertCommand, options);
  convertCommand->footer(kConvertHelp);

  try {
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      return app.exit(error, streams.out, streams.err);
    }
    throw UsageError(std::string(error.what()) + "\nTry \"mdmsg --help\".");
  }

  const QuietLibrary quiet;
  const Format format = formatOf(options);
  if (options.dictionary) {
    loadDictionary(*options.dictionary, reporter);
  } else {
    loadDefaultDictionary();
  }
  const Inputs inputs{options.files, streams.in};
  if (encodeCommand->parsed()) {
    encode(inputs, options.encoding, options.isCsv, out, reporter);
  } else if (decodeCommand->parsed()) {
    decode(inputs, options.source, format, out, reporter);
  } else {
    convert(inputs, options.source, options.encoding, out, reporter);
  }
  out.flush();
  return reporter.status();
}

}  // namespace

int run(std::vector<std::string> arguments, const Streams& streams) {
  Output out(streams.out);
  Reporter reporter(streams.err, out);
  try {
    return runCommand(std::move(arguments), streams, out, reporter);
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
  }
  return kBadUsage;
}

}  // namespace MD::tool
