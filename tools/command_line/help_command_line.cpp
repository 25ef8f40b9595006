#include "command_line/help_command_line.h"

#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "text/similar_words.h"

namespace MD::tool {
namespace {

constexpr const char* kHelpHelp =
    "The same text as that of \"mdmsg COMMAND --help\".\n"
    "\n"
    "Examples:\n"
    "  mdmsg help\n"
    "  mdmsg help stats\n"
    "  mdmsg help dict check";

struct HelpLine : CommonOptions {
  std::vector<std::string> words;
};

std::vector<const CLI::App*> shownCommands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

const CLI::App* commandIn(const CLI::App& app, const std::string& name) {
  for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (command->get_name() == name) {
      return command;
    }
  }
  return nullptr;
}

}  // namespace

std::string questionAboutWord(const CLI::App& app, const std::string& word) {
  SimilarWord similar(word.substr(0, word.find('=')));
  for (const CLI::App* const command : shownCommands(app)) {
    similar.offer(command->get_name());
  }
  for (const CLI::Option* const option :
       app.get_options([](const CLI::Option* any) { return !any->get_group().empty(); })) {
    for (const std::string& name : option->get_lnames()) {
      similar.offer("--" + name);
    }
  }
  return similar.question();
}

Command addHelp(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("help", "Print the help of a command");
  const auto line = std::make_shared<HelpLine>();
  // Completions take the choices from here; what else is given is reported below.
  std::string choices;
  for (const CLI::App* const other : shownCommands(app)) {
    choices += (choices.empty() ? "COMMAND:{" : ",") + other->get_name();
  }
  command->add_option("COMMAND", line->words, "Command, such as stats or dict check")
      ->type_name(choices + '}')
      ->option_text("...");
  command->footer(kHelpHelp);
  const auto run = [&app, line](const Session& session) {
    const CLI::App* asked = &app;
    std::string path = app.get_name();
    for (const std::string& word : line->words) {
      const CLI::App& commands = *asked;
      asked = commandIn(commands, word);
      if (asked == nullptr) {
        throw UsageError("unknown command " + inQuotes(word) + questionAboutWord(commands, word));
      }
      path += ' ' + word;
    }
    session.out.text() += asked->get_formatter()->make_help(asked, path, CLI::AppFormatMode::Normal);
    session.out.lineDone();
  };
  return {command, line, run, false};
}

}  // namespace MD::tool
