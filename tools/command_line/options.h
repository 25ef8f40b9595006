// Options that several commands share.
#ifndef MDMSG_OPTIONS_H
#define MDMSG_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "command_line/command.h"
#include "commands/commands.h"
#include "commands/feed_commands.h"

namespace MD::tool {

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

/// Options that take a number must not take a minus for one, nor the largest for a larger one.
std::string complaintAboutNumber(const std::string& text);
/// The options of every command.
void addCommonOptions(CLI::App& command, Options& options);
/// Which messages.
void addSelectionOptions(CLI::App& command, Options& options, bool hasFields);
/// How messages are read.
void addSourceOptions(CLI::App& command, Options& options);
/// In which form messages are written. @param name  of the option that says so
void addFormOption(CLI::App& command, Options& options, const char* name);
void addEndpointOptions(CLI::App& command, Options& options);
/// How messages are written. @param name  of the option that says in which form
void addSinkOptions(CLI::App& command, Options& options, const char* name);
void addOutputOptions(CLI::App& command, Options& options);
void addEncodingOption(CLI::App& command, const char* name, Options& options);
void addTimeZoneOption(CLI::App& command, Options& options);
TimeZone timeZoneOf(const Options& options);
SinkOptions sinkOf(const Options& options);
SourceOptions sourceOf(const Options& options);
Format formatOf(const Options& options);
DecodeOptions decodeOptionsOf(const Options& options);
MulticastOptions multicastOf(const Options& options, unsigned hops);
void addInterfaceOption(CLI::App& command, Options& options);

}  // namespace MD::tool

#endif
