#include "command_line/tool.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <ostream>
#include <sstream>

#include <CLI/CLI.hpp>

#include "base/diagnostics.h"
#include "base/output.h"
#include "base/platform.h"
#include "base/progress.h"
#include "command_line/command.h"
#include "command_line/command_table.h"
#include "command_line/dict_command_line.h"
#include "command_line/feed_command_line.h"
#include "command_line/filter_command_line.h"
#include "command_line/help_command_line.h"
#include "command_line/message_command_line.h"
#include "command_line/nats_command_line.h"
#include "command_line/old_names.h"
#include "command_line/output_files.h"
#include "command_line/wireshark_command_line.h"
#include "dictionary/dictionary.h"
#include "dictionary/field_names.h"

namespace MD::tool {
namespace {

constexpr const char* kDescription =
    "Encodes, decodes, converts and examines market-data messages.\n"
    "\n"
    "Every command reads the given files, or standard input (\"-\"), and writes to standard\n"
    "output. Input may be gzip or zstd data. An invalid message is reported on standard error and\n"
    "skipped. Exit status: 0; 1 if a message was skipped or not reproduced exactly; 2 for\n"
    "usage errors, including a file that cannot be used.";

struct DescribeLine : CommonOptions {
  std::string form;
};

/// The hidden command that writes manual page and completions, from the very table that the parser works by.
Command addDescribe(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("describe", "Write the manual page, or completion for a shell");
  const auto line = std::make_shared<DescribeLine>();
  command->group("");
  command->add_option("FORM", line->form, "man, bash, zsh or fish")
      ->required()
      ->check(CLI::IsMember({"man", "bash", "zsh", "fish"}));
  line->addOutput(*command);
  const auto run = [&app, line](const Session& session) {
    const CommandEntry table = tableOf(app);
    session.out.text() += line->form == "man"    ? manualPage(table, "mdmsg " MDMSG_VERSION)
                          : line->form == "bash" ? bashCompletion(table)
                          : line->form == "zsh"  ? zshCompletion(table)
                                                 : fishCompletion(table);
    session.out.lineDone();
  };
  return {command, line, run, false};
}

/// All commands, in the order in which the help lists them.
std::vector<Command> addCommands(CLI::App& app, const NatsCommands* nats) {
  app.set_version_flag("--version", "mdmsg " MDMSG_VERSION, "Print the version and exit");
  app.require_subcommand(1);
  app.footer(
      "Examples:\n"
      "  echo '{\"SYMBOL\":\"AB\",\"BID\":101.25}' | mdmsg encode --encoding mInt | mdmsg decode\n"
      "  mdmsg decode --format json feed.pcap\n"
      "  mdmsg convert --encoding MsgT quotes.hex > other.hex\n"
      "\n"
      "Run \"mdmsg help COMMAND\" for details.");
  std::vector<Command> commands{addEncode(app),          addDecode(app),    addConvert(app), addFilter(app),
                                addMerge(app),           addDiff(app),      addDump(app),    addStats(app),
                                addGenerate(app),        addReplay(app),    addListen(app),  addPublish(app, nats),
                                addSubscribe(app, nats), addWireshark(app), addDescribe(app)};
  addDictCommands(app, commands);
  commands.push_back(addHelp(app));
  addOldNames(app);
  return commands;
}

/// The command line cannot be parsed.
class CommandLineError : public UsageError {
 public:
  using UsageError::UsageError;
};

/// What is wrong with a command line that the parser refused.
std::string complaintOf(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& given) {
  const CLI::App* asked = &app;
  while (!asked->get_subcommands().empty()) {
    asked = asked->get_subcommands().front();
  }
  // The parser only misses a command then, and does not report which word it did not accept as one.
  const std::vector<std::string> unknown = asked->remaining();
  if (asked->get_require_subcommand_min() != 0 && !unknown.empty()) {
    return "unknown command or option " + inQuotes(unknown.front()) + questionAboutWord(*asked, unknown.front());
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !unknown.empty()) {
    return error.what() + questionAboutWord(*asked, unknown.front());
  }
  const std::string text = error.what();
  // "Could not convert: --timeout = 1s"; integers are checked before they are converted.
  if (const std::size_t equals = text.find(" = ");
      dynamic_cast<const CLI::ConversionError*>(&error) != nullptr && equals != text.npos) {
    const std::size_t name = text.find(": ") + 2;
    return text.substr(name, equals - name) + ": " + inQuotes(text.substr(equals + 3)) + " is not a number";
  }
  // The parser does not name hidden options. One without its value is the last argument.
  return text.rfind(": ", 0) == 0 && !given.empty() ? given.back() + text : text;
}

/// @param files  the files that are written; they outlive what is written to them, and so does `progress`
int runCommand(std::vector<std::string> arguments, const Streams& streams, const NatsCommands* nats, Files& files,
               EndWatch& watch, Progress& progress, Output& out, Reporter& reporter) {
  CLI::App app(kDescription, "mdmsg");
  const std::vector<Command> commands = addCommands(app, nats);
  const std::vector<std::string> given = arguments;
  try {
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      std::ostringstream text;
      text.exceptions(std::ios_base::badbit);
      app.exit(error, text, streams.err);
      out.text() = text.str();
      out.lineDone();
      out.flush();
      return kDone;
    }
    throw CommandLineError(complaintOf(app, error, given));
  }

  const QuietLibrary quiet;
  const auto isGiven = [&](const Command& command) { return command.app->parsed(); };
  const Command& command = *std::find_if(commands.begin(), commands.end(), isGiven);
  if (command.program) {
    const std::string name = command.app->get_name();
    const std::string found = findCompanion(command.program->name);
    if (found.empty()) {
      throw UsageError(name + " needs the program " + command.program->name +
                       ", which is neither in the folder of mdmsg nor on the PATH; install the package " +
                       command.program->package);
    }
    throw UsageError("cannot run " + found + ": " + runInstead(found, given));
  }
  const CommonOptions& options = *command.options;
  if (command.usesDictionary) {
    loadNamedDictionary(options.dictionary, reporter);
    reporter.setDictionary({dictionaryText(), &questionAbout});
    if (options.isVerbose) {
      tellDictionary(reporter);
    }
  }
  if (options.splitBy.empty()) {
    out.setCompression(options.compression());
  }
  if (options.outputFile && options.splitBy.empty()) {
    Files::open(files.output, *options.outputFile, options);
    out.redirect(files.output);
    watch.begin();
  }
  if (streams.isErrTerminal && !options.isQuiet && !options.hasNoProgress &&
      (!streams.isOutTerminal || options.outputFile || command.isSilent)) {
    reporter.setProgress(&progress);
  }
  reporter.setMostReports(options.reportsPerKind());
  command.run({streams, files, watch, out, reporter});
  reporter.finish();
  out.finish();
  return reporter.status();
}

}  // namespace

int run(std::vector<std::string> arguments, const Streams& streams, const NatsCommands* nats) {
  Files files;
  EndWatch watch([&] { return files.leaveUnfinished(); });
  Progress progress(streams.err);
  Output out(streams.out);
  Reporter reporter(streams.err, out);
  const auto tell = [&](const std::string& text) { streams.err << "mdmsg: " + harmless(text) + '\n' << std::flush; };
  try {
    return runCommand(std::move(arguments), streams, nats, files, watch, progress, out, reporter);
  } catch (const OutputError& error) {
    if (error.isBrokenPipe()) {
      return reporter.status();
    }
    tell(error.what());
  } catch (const CommandLineError& error) {
    reporter.unusable(error.what(), "Try \"mdmsg --help\".");
  } catch (const std::exception& error) {
    const char* const reason =
        dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? "not enough memory" : error.what();
    try {
      reporter.finish();
      reporter.unusable(reason);
    } catch (const OutputError&) {
      tell(reason);
    }
  }
  if (const std::string text = files.leaveUnfinished(); !text.empty()) {
    tell(text);
  }
  return kBadUsage;
}

}  // namespace MD::tool
