// Commands: their part of the command line, and what they do.
#ifndef MDMSG_COMMAND_H
#define MDMSG_COMMAND_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace MD::tool {

/// A command: its part of the command line, and what it does once that has been read.
struct Command {
  CLI::App* app;
  std::function<void(const Task&)> run;
  bool usesDictionary = true;  ///< the one that is named, or found, is loaded before it runs
};

/// What an option takes, a field, a file and so on, as the help shows it.
CLI::Option* named(CLI::Option* option, const char* name);

/// Adds --dictionary, which names a definition file.
void addDictionaryOption(CLI::App& command, std::optional<std::string>& path);

/// Adds "dict" with its own commands.
void addDictCommands(CLI::App& app, std::vector<Command>& commands);

}  // namespace MD::tool

#endif
