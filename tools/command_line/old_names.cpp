#include "command_line/old_names.h"

#include <string>

#include <CLI/CLI.hpp>

namespace MD::tool {
namespace {

struct OldName {
  const char* command;
  const char* subcommand;  ///< empty for none
  const char* name;
  const char* newName;
};

/// The names of 1.0.0 and one of `subscribe`. They are to be removed with the version after the next.
constexpr OldName kOldNames[] = {
    {"encode", "", "--to", "--format"},      {"encode", "", "--framing", "--format"},
    {"convert", "", "--to", "--encoding"},   {"convert", "", "--as", "--format"},
    {"generate", "", "--to", "--format"},    {"replay", "", "--to", "--destination"},
    {"dict", "convert", "--to", "--format"}, {"dict", "derive", "--to", "--format"},
    {"subscribe", "", "--from", "--start"},
};

}  // namespace

void addOldNames(CLI::App& app) {
  for (const OldName& old : kOldNames) {
    CLI::App* command = app.get_subcommand(old.command);
    command = *old.subcommand != '\0' ? command->get_subcommand(old.subcommand) : command;
    CLI::Option* const option = command->get_option(old.newName);
    // The new option checks the value, and knows that it was given.
    command
        ->add_option_function<std::string>(old.name, [option](const std::string& value) { option->add_result(value); })
        ->group("")
        ->trigger_on_parse();
  }
}

}  // namespace MD::tool
