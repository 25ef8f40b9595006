// The commands and options as the command line parser knows them, for manual page and completions.
#ifndef MDMSG_COMMAND_TABLE_H
#define MDMSG_COMMAND_TABLE_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace MD::tool {

struct OptionEntry {
  std::vector<std::string> names;  ///< with their dashes
  std::string argument;            ///< as the help shows it; empty for a flag
  std::string description;
  std::vector<std::string> choices;  ///< of the argument, where it is one of a few
  bool takesFile = false;
  bool isRequired = false;
  bool isRepeatable = false;
};

struct PositionalEntry {
  std::string name;
  std::string description;
  std::vector<std::string> choices;
  bool takesFile = false;
  bool isRequired = false;
  bool isRepeatable = false;
};

struct CommandEntry {
  std::string path;  ///< "mdmsg dict check"
  std::string name;  ///< "check"
  std::string description;
  std::string footer;
  std::vector<OptionEntry> options;
  std::vector<PositionalEntry> positionals;
  std::vector<CommandEntry> commands;
};

/// The whole table, without what the help hides.
CommandEntry tableOf(const CLI::App& app);

/// A manual page in the format of man(7).
std::string manualPage(const CommandEntry& table, const std::string& version);

/// Scripts that complete commands, options and their values in a shell.
std::string bashCompletion(const CommandEntry& table);
std::string zshCompletion(const CommandEntry& table);
std::string fishCompletion(const CommandEntry& table);

}  // namespace MD::tool

#endif
