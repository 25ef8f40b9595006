#include "command_line/command_table.h"

#include <CLI/CLI.hpp>

namespace MD::tool {
namespace {

/// The values of a choice, which the parser describes as "NAME:{one,other}".
std::vector<std::string> choicesOf(const std::string& typeName) {
  std::vector<std::string> choices;
  const std::size_t begin = typeName.find(":{");
  const std::size_t end = typeName.find('}', begin == typeName.npos ? 0 : begin);
  if (begin == typeName.npos || end == typeName.npos) {
    return choices;
  }
  std::string choice;
  for (std::size_t i = begin + 2; i <= end; ++i) {
    if (typeName[i] == ',' || typeName[i] == '}') {
      choices.push_back(choice);
      choice.clear();
    } else {
      choice += typeName[i];
    }
  }
  return choices;
}

OptionEntry optionOf(const CLI::Option& option) {
  OptionEntry entry;
  for (const std::string& name : option.get_snames()) {
    entry.names.push_back('-' + name);
  }
  for (const std::string& name : option.get_lnames()) {
    entry.names.push_back("--" + name);
  }
  entry.argument = option.get_option_text();
  entry.description = option.get_description();
  entry.choices = choicesOf(option.get_type_name());
  entry.takesFile = entry.argument == "FILE";
  entry.isRequired = option.get_required();
  entry.isRepeatable = option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
  return entry;
}

PositionalEntry positionalOf(const CLI::Option& option) {
  PositionalEntry entry;
  entry.name = option.get_name(true, false);
  entry.description = option.get_description();
  entry.choices = choicesOf(option.get_type_name());
  entry.takesFile = option.get_type_name().rfind("FILE", 0) == 0;
  entry.isRequired = option.get_required();
  entry.isRepeatable = option.get_items_expected_max() > 1;
  return entry;
}

CommandEntry commandOf(const CLI::App& app, const std::string& path) {
  CommandEntry entry;
  entry.name = app.get_name();
  entry.path = path.empty() ? entry.name : path + ' ' + entry.name;
  entry.description = app.get_description();
  entry.footer = app.get_footer();
  for (const CLI::Option* const option : app.get_options()) {
    if (option->get_group().empty()) {
      continue;
    }
    if (option->nonpositional()) {
      entry.options.push_back(optionOf(*option));
    } else {
      entry.positionals.push_back(positionalOf(*option));
    }
  }
  for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) {
      entry.commands.push_back(commandOf(*command, entry.path));
    }
  }
  return entry;
}

}  // namespace

CommandEntry tableOf(const CLI::App& app) { return commandOf(app, {}); }

}  // namespace MD::tool
