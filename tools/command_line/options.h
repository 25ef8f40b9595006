// Options that several commands share, in groups; a command's own options are a struct that holds the groups it needs.
#ifndef MDMSG_OPTIONS_H
#define MDMSG_OPTIONS_H

#include <cstdint>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/compression.h"
#include "commands/commands.h"
#include "messages/message_sink.h"
#include "messages/selection.h"
#include "text/time_text.h"
#include "transport/message_source.h"
#include "transport/udp.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace MD::tool {

/// The argument of an option, such as a field or a file, as shown by the help.
CLI::Option* named(CLI::Option* option, const char* name);

/// Adds the option `name`, which selects one of `formats`, and --json and --csv where these are among them.
void addFormatOption(CLI::App& command, const char* name, std::string& format, const std::vector<std::string>& formats,
                     const char* description);

/// For options that an empty value would disable: it comes from a variable of a script that is not set.
std::string complaintAboutEmpty(const std::string& text);

/// Options that take a number must not take a minus for one, nor the largest for a larger one.
std::string complaintAboutNumber(const std::string& text);
/// The same for numbers of at most `most`.
std::function<std::string(const std::string&)> upTo(std::uint64_t most);

/// The value of an option that takes seconds.
/// @throws UsageError when it is out of range
std::optional<std::chrono::nanoseconds> durationOf(const char* option, std::optional<double> seconds);

/// Whether not all messages and fields are taken.
bool isSelecting(const SelectionOptions& selection);

/// What the program itself needs to know of a command line, before the command runs. A command without one of these
/// options leaves it at its default.
struct CommonOptions {
  std::vector<std::string> files;  ///< what is read
  std::optional<std::string> dictionary;
  bool isVerbose = false;
  bool isQuiet = false;  ///< neither progress nor single problems
  bool hasNoProgress = false;
  std::optional<std::string> outputFile;
  bool isForced = false;
  bool isCompressible = false;
  std::optional<std::string> compress;
  std::vector<std::string> splitBy;  ///< not empty: the output is many files, and outputFile a template of their names
  std::uint64_t mostReports = kMostReports;

  /// Adds --dictionary, --verbose, --no-progress, --max-reports, --quiet and the files.
  void add(CLI::App& command);
  void addFiles(CLI::App& command);
  void addDictionary(CLI::App& command);
  void addReports(CLI::App& command);
  /// How many problems of a kind are reported per input.
  std::uint64_t reportsPerKind() const noexcept { return isQuiet ? 0 : mostReports; }
  /// Adds --output and --force.
  void addOutput(CLI::App& command);
  /// The same with --compress, for commands that write much.
  void addLargeOutput(CLI::App& command);

  /// As --compress has it, or else the end of the output's name.
  /// @throws UsageError
  Compression compression() const;
};

/// With how many threads.
struct JobsLine {
  std::optional<std::uint64_t> jobs;

  void add(CLI::App& command);
  /// For these inputs: one where the first messages may be all that is wanted, or where they may come slowly; without
  /// the option also where the inputs are small.
  /// @throws UsageError
  unsigned count(const CommonOptions& common, const SelectionOptions& selection) const;
};

/// How long a message may be.
void addLongestMessage(CLI::App& command, std::uint32_t& bytes);

/// How messages are read.
struct SourceLine {
  std::string from = "auto";
  std::string framing;
  std::string group;
  SourceOptions source;

  void add(CLI::App& command);
  /// @throws UsageError
  SourceOptions options() const;
  /// The same for a command that takes bytes of any kind.
  SourceOptions optionsWithForeign() const;
};

/// How messages are written.
struct SinkLine {
  std::string form = "hex";
  SinkOptions sink;

  void add(CLI::App& command);
  void addForm(CLI::App& command);
  void addEndpoints(CLI::App& command);
  /// @throws UsageError
  SinkOptions options() const;
};

/// In which encoding.
void addEncodingOption(CLI::App& command, std::string& encoding);

/// In which time zone times are read and shown.
struct TimeZoneLine {
  std::optional<std::string> zone;

  void add(CLI::App& command);
  /// @throws UsageError for a zone that there is not
  TimeZone timeZone() const;
};

/// Which messages, and which of their fields.
struct SelectionLine {
  SelectionOptions selection;
  TimeZoneLine zone;

  /// -n is short for --limit, unless the command has given it to another option.
  /// @param hasFields  whether there is --fields
  void add(CLI::App& command, bool hasFields);
  /// @throws UsageError
  SelectionOptions options() const;
};

/// How messages are shown.
struct DecodeLine {
  std::string format = "text";
  bool isPrice = false;
  bool isRawText = false;
  bool isIsoTime = false;
  bool isTextBinary = false;
  std::optional<std::string> timeFormat;
  std::optional<unsigned> timeDigits;
  bool hasNoHeader = false;
  bool isCsvSafe = false;
  std::optional<std::string> separator;

  /// @param formats      the values of --format
  /// @param description  of --format
  void add(CLI::App& command, const std::vector<std::string>& formats, const char* description);
  /// Where Arrow is among the formats.
  void addBinaryText(CLI::App& command);
  bool isArrow() const { return format == "arrow" || format == "arrow-file"; }
  /// @param zone  in which times are shown
  /// @throws UsageError for options that do not go together
  DecodeOptions options(const TimeZone& zone) const;
};

/// A separator of cells, such as "," or "tab". @throws UsageError for any other text
char parseSeparator(const std::string& text);

/// By which of the machine's addresses groups are reached.
struct MulticastLine {
  std::string address;

  void add(CLI::App& command);
  /// @throws UsageError
  MulticastOptions options(unsigned hops) const;
};

}  // namespace MD::tool

#endif
