// The command "dict" on the command line.
#include <cstdint>

#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "base/encodings.h"
#include "command_line/dict_command_line.h"
#include "commands/dictionary_commands.h"
#include "dictionary/derive.h"
#include "dictionary/dictionary.h"
#include "dictionary/field_constants.h"

namespace MD::tool {
namespace {

constexpr const char* kDictHelp =
    "A dictionary is a text file of name, id and type, or an XML file.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dict check etc/field_map.txt\n"
    "  mdmsg dict convert etc/field_map.txt > FieldDefinition.xml\n"
    "  mdmsg dict show BID\n"
    "\n"
    "Run \"mdmsg dict COMMAND --help\" for details.";

constexpr const char* kCheckHelp =
    "Each problem is a line \"file:line:column: cause, and how the library handles it\".\n"
    "A line with \"note:\" is informational. Exit status: 1 if there is a problem, 2 if\n"
    "a file cannot be read.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dict check etc/field_map.txt\n"
    "  mdmsg dict check FieldDefinition.xml other.txt\n"
    "  mdmsg dict check field_map.txt && cp field_map.txt /srv/feed/etc/";

constexpr const char* kConvertHelp =
    "All entries are kept in their order, including those that the library skips. Comments,\n"
    "and elements that the library does not read, are omitted. Exit status: 1 if an entry\n"
    "was skipped.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dict convert field_map.txt > FieldDefinition.xml\n"
    "  mdmsg dict convert FieldDefinition.xml > field_map.txt\n"
    "  mdmsg dict convert --format text field_map.txt | sort -n -k 2";

constexpr const char* kDiffHelp =
    "One line per difference, by field id: added, removed, renamed, retyped, and\n"
    "renumbered (the name moved to an id that was free). The comparison uses the\n"
    "dictionaries as loaded by the library. Exit status: 1 if there is a difference.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dict diff old.txt new.txt\n"
    "  mdmsg dict diff field_map.txt FieldDefinition.xml && echo the same\n"
    "  mdmsg dict diff --compatibility backward old.txt new.txt";

constexpr const char* kShowHelp =
    "Describes fields given by id or name. Without FIELD, lists all fields, or those that\n"
    "--search and --type select, in the text format. Exit status: 1 if there is no such\n"
    "field.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dict show BID 40000\n"
    "  mdmsg dict show --search size --type DOUBLE\n"
    "  mdmsg dict show --fingerprint --dictionary field_map.txt";

constexpr const char* kDeriveHelp =
    "Each column of a CSV file, or key of JSON Lines, becomes a field, in order of\n"
    "appearance, with ids starting at --first-id. The inferred type is the first that\n"
    "accepts all values: INT, EPOCH_NSEC (integers that are nanoseconds of the years\n"
    "2000 to 2099, or timestamps such as 2024-06-03T09:30:00Z), INT64, DOUBLE, FLOAT\n"
    "(JSON {\"bits\":..} only), DATETIME, BUFFER (JSON only), CHAR, STRING. CSV numbers\n"
    "with a leading 0, and those too large for INT64, are text. A column without values\n"
    "is a STRING. Exit status: 1 if a column or key was skipped.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dict derive quotes.csv > field_map.txt\n"
    "  mdmsg decode --format json feed.pcap | mdmsg dict derive --first-id 1000\n"
    "  zcat ticks.csv.gz | head -n 1000 | mdmsg dict derive --format xml > FieldDefinition.xml";

constexpr const char* kGenerateHelp =
    "Writes one constant per field that messages carry, the fingerprint of the dictionary,\n"
    "and check(), which compares the fields with the dictionary that a program uses. If one\n"
    "is missing or has another id or type, check() throws an exception (in C it returns false\n"
    "and a text) that names the field. Characters that identifiers cannot have are written in\n"
    "hex: \"BID PRICE\" is BID_x20_PRICE. Nothing is written if two fields have the same\nidentifier.\n"
    "\n"
    "Examples:\n"
    "  mdmsg dict generate --language c++ --output fields.h field_map.txt\n"
    "  mdmsg dict generate --language c --prefix FIELD_ --only SYMBOL,BID,ASK field_map.txt\n"
    "  mdmsg dict generate --language python field_map.txt > fields.py";

CLI::App* addDictCommand(CLI::App& dict, const char* name, const char* description, const char* help) {
  CLI::App* const command = dict.add_subcommand(name, description);
  command->footer(help);
  return command;
}

/// @param run      gives the exit status, where no report asks for a higher one
/// @param options  of which the command's own begin
template <class Run>
void add(CLI::App* command, std::vector<Command>& commands, Run run,
         std::shared_ptr<const CommonOptions> options = std::make_shared<CommonOptions>()) {
  commands.push_back(
      {command, std::move(options), [run](const Session& session) { session.reporter.raise(run(session)); }, false});
}

void addCheck(CLI::App& dict, std::vector<Command>& commands) {
  const auto files = std::make_shared<std::vector<std::string>>();
  CLI::App* const command = addDictCommand(dict, "check", "Report problems of dictionary files", kCheckHelp);
  command->add_option("FILE", *files, "Dictionary files, XML or text")->type_name("FILE")->option_text("")->required();
  add(command, commands,
      [files](const Session& session) { return checkDictionaries(*files, session.out, session.reporter); });
}

void addDictConvert(CLI::App& dict, std::vector<Command>& commands) {
  const auto file = std::make_shared<std::string>();
  const auto format = std::make_shared<std::string>();
  CLI::App* const command = addDictCommand(dict, "convert", "Convert between text and XML", kConvertHelp);
  named(command->add_option("--format", *format, "Format to write: text or xml (default: the other one)")
            ->check(CLI::IsMember({"text", "xml"})),
        "FORMAT");
  command->add_option("FILE", *file, "Dictionary file, XML or text")->type_name("FILE")->option_text("")->required();
  add(command, commands, [file, format](const Session& session) {
    std::optional<DefinitionFormat> to;
    if (!format->empty()) {
      to = *format == "xml" ? DefinitionFormat::Xml : DefinitionFormat::Text;
    }
    convertDictionary(*file, to, session.out, session.reporter);
    return kDone;
  });
}

struct DiffOptions {
  std::string before;
  std::string after;
  std::string level;
  std::string encoding;
};

Compatibility levelOf(const std::string& name) {
  return name == "backward"  ? Compatibility::Backward
         : name == "forward" ? Compatibility::Forward
         : name == "full"    ? Compatibility::Full
                             : Compatibility::Wire;
}

void addDictDiff(CLI::App& dict, std::vector<Command>& commands) {
  const auto options = std::make_shared<DiffOptions>();
  CLI::App* const command = addDictCommand(dict, "diff", "Compare two dictionaries", kDiffHelp);
  CLI::Option* const level =
      named(command
                ->add_option(
                    "--compatibility", options->level,
                    "Print only fields that break LEVEL: backward (readers with NEW, writers with OLD), forward (the "
                    "reverse), full (both) or wire (both, by ids alone)")
                ->check(CLI::IsMember({"backward", "forward", "full", "wire"})),
            "LEVEL");
  named(command
            ->add_option("--encoding", options->encoding,
                         "Check LEVEL for messages of this encoding only: mInt, IterMap or MsgT (default: all)")
            ->check(CLI::IsMember({"mInt", "IterMap", "MsgT"}))
            ->needs(level),
        "ENCODING");
  command->add_option("OLD", options->before, "Dictionary file")->type_name("FILE")->option_text("")->required();
  command->add_option("NEW", options->after, "Dictionary file")->type_name("FILE")->option_text("")->required();
  add(command, commands, [options](const Session& session) {
    if (options->level.empty()) {
      return diffDictionaries(options->before, options->after, session.out, session.reporter);
    }
    const std::uint8_t code = encodingCode(options->encoding);
    return checkCompatibility(options->before, options->after, levelOf(options->level),
                              code != 0 ? std::optional(code) : std::nullopt, session.out, session.reporter);
  });
}

struct ShowOptions {
  std::vector<std::string> keys;
  bool isFingerprint = false;
  FieldSearch search;
  CommonOptions common;  // its dictionary
};

void addShow(CLI::App& dict, std::vector<Command>& commands) {
  const auto options = std::make_shared<ShowOptions>();
  CLI::App* const command = addDictCommand(dict, "show", "Describe or list fields", kShowHelp);
  CLI::Option* const search = named(
      command->add_option("--search", options->search.text, "List fields whose names contain TEXT, ignoring case"),
      "TEXT");
  CLI::Option* const type =
      named(command->add_option("--type", options->search.type, "List fields of this type"), "TYPE");
  CLI::Option* const fingerprint =
      command
          ->add_flag("--fingerprint", options->isFingerprint,
                     "Print a hash of all ids, types and names; equal dictionaries have equal hashes")
          ->excludes(search)
          ->excludes(type);
  options->common.addDictionary(*command);
  command->add_option("FIELD", options->keys, "Ids or names of fields")
      ->type_name("FIELD")
      ->option_text("")
      ->excludes(search)
      ->excludes(type)
      ->excludes(fingerprint);
  add(command, commands, [options](const Session& session) {
    loadNamedDictionary(options->common.dictionary, session.reporter);
    if (options->common.isVerbose) {
      tellDictionary(session.reporter);
    }
    if (options->isFingerprint) {
      showFingerprint(session.out);
      return kDone;
    }
    if (options->keys.empty()) {
      return listFields(options->search, session.out, session.reporter);
    }
    showFields(options->keys, session.out, session.reporter);
    return kDone;
  });
}

struct DeriveCommandLine {
  std::vector<std::string> files;
  std::string from = "auto";
  std::string to = "text";
  std::uint16_t firstId = 1;
};

void addDerive(CLI::App& dict, std::vector<Command>& commands) {
  const auto line = std::make_shared<DeriveCommandLine>();
  CLI::App* const command = addDictCommand(dict, "derive", "Create a dictionary from sample data", kDeriveHelp);
  named(command->add_option("--from", line->from, "Format of the samples: auto (default), csv or json")
            ->check(CLI::IsMember({"auto", "csv", "json"})),
        "FORMAT");
  named(command->add_option("--format", line->to, "Format to write: text (default) or xml")
            ->check(CLI::IsMember({"text", "xml"})),
        "FORMAT");
  named(command->add_option("--first-id", line->firstId, "Id of the first field, default 1")
            ->check(upTo(std::numeric_limits<std::uint16_t>::max())),
        "ID");
  command->add_option("FILE", line->files, "Samples, \"-\" for standard input")->type_name("FILE")->option_text("");
  add(command, commands, [line](const Session& session) {
    DeriveOptions options;
    options.firstId = line->firstId;
    options.format = line->to == "xml" ? DefinitionFormat::Xml : DefinitionFormat::Text;
    if (line->from != "auto") {
      options.form = line->from == "csv" ? SampleForm::Csv : SampleForm::Json;
    }
    Inputs inputs(line->files, session.streams.in, true, session.reporter);
    deriveDictionary(inputs, options, session.out, session.reporter);
    return kDone;
  });
}

struct GenerateCommandLine : CommonOptions {
  std::string language;
  FieldConstantsOptions constants;
  std::optional<std::string> nameSpace;

  /// How the program was called, without folders, so that the same dictionary gives the same text anywhere.
  std::string command() const {
    std::string text = "mdmsg dict generate --language " + language;
    text += nameSpace ? " --namespace " + inShell(*nameSpace) : "";
    text += constants.prefix.empty() ? "" : " --prefix " + inShell(constants.prefix);
    for (std::size_t i = 0; i != constants.only.size(); ++i) {
      text += (i == 0 ? " --only " : ",") + inShell(constants.only[i]);
    }
    return text + ' ' + inShell(std::filesystem::path(*dictionary).filename().string());
  }

 private:
  /// A word as a shell reads it.
  static std::string inShell(const std::string& word) {
    constexpr const char* kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-.:+@%/";
    if (!word.empty() && word.find_first_not_of(kPlain) == word.npos) {
      return word;
    }
    std::string quoted = "'";
    for (const char c : word) {
      quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + '\'';
  }
};

void addDictGenerate(CLI::App& dict, std::vector<Command>& commands) {
  const auto line = std::make_shared<GenerateCommandLine>();
  CLI::App* const command =
      addDictCommand(dict, "generate", "Write the fields as constants of C++, C or Python", kGenerateHelp);
  named(command->add_option("--language", line->language, "c++, c or python")
            ->required()
            ->check(CLI::IsMember({"c++", "c", "python"})),
        "LANGUAGE");
  named(command->add_option("--namespace", line->nameSpace,
                            "C++ and C only: namespace; in C, prefix of all names (default: fields)"),
        "NAME");
  named(command->add_option("--prefix", line->constants.prefix,
                            "Prefix of the constants (default: none; in C, the namespace in upper case and _)"),
        "PREFIX");
  named(command->add_option("--only", line->constants.only, "Select fields, by name or id, separated by commas")
            ->delimiter(',')
            ->allow_extra_args(false),
        "FIELDS");
  line->addOutput(*command);
  command->add_option("FILE", line->dictionary, "Dictionary file, XML or text")
      ->type_name("FILE")
      ->option_text("")
      ->required();
  const auto run = [line](const Session& session) {
    if (line->nameSpace && line->language == "python") {
      throw UsageError("--namespace requires --language c++ or c");
    }
    FieldConstantsOptions options = line->constants;
    options.language = line->language == "c++" ? Language::Cpp : line->language == "c" ? Language::C : Language::Python;
    options.nameSpace = line->nameSpace.value_or(options.nameSpace);
    options.command = line->command();
    loadDictionary(*line->dictionary, session.reporter);
    session.out.text() += fieldConstants(options);
    session.out.lineDone();
    return kDone;
  };
  add(command, commands, run, line);
}

}  // namespace

void addDictCommands(CLI::App& app, std::vector<Command>& commands) {
  CLI::App* const dict =
      app.add_subcommand("dict", "Check, convert, compare, show and derive dictionaries, generate constants");
  dict->require_subcommand(1);
  dict->footer(kDictHelp);
  addCheck(*dict, commands);
  addDictConvert(*dict, commands);
  addDictDiff(*dict, commands);
  addShow(*dict, commands);
  addDerive(*dict, commands);
  addDictGenerate(*dict, commands);
}

}  // namespace MD::tool
