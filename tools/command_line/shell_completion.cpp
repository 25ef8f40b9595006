#include <functional>

#include "command_line/command_table.h"

namespace MD::tool {
namespace {

void forEachCommand(const CommandEntry& command, const std::function<void(const CommandEntry&)>& use) {
  use(command);
  for (const CommandEntry& inner : command.commands) {
    forEachCommand(inner, use);
  }
}

std::string joined(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : separator) + word;
  }
  return text;
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
  return text;
}

/// In single quotes for the shell. bash and zsh know no escape in them, fish knows two.
std::string quoted(const std::string& text) { return '\'' + replaced(text, "'", "'\\''") + '\''; }
std::string quotedForFish(const std::string& text) {
  return '\'' + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + '\'';
}

/// The words that are possible where an option or a command is.
std::vector<std::string> optionNames(const CommandEntry& command) {
  std::vector<std::string> names;
  for (const OptionEntry& option : command.options) {
    names.insert(names.end(), option.names.begin(), option.names.end());
  }
  return names;
}

std::vector<std::string> commandNames(const CommandEntry& command) {
  std::vector<std::string> names;
  for (const CommandEntry& inner : command.commands) {
    names.push_back(inner.name);
  }
  return names;
}

/// The paths of all commands but the outermost, as patterns of a case.
std::vector<std::string> innerPaths(const CommandEntry& table) {
  std::vector<std::string> paths;
  forEachCommand(table, [&](const CommandEntry& command) {
    if (command.path != table.path) {
      paths.push_back(quoted(command.path));
    }
  });
  return paths;
}

/// "(one other)", "_files" or nothing: how zsh completes an argument.
std::string zshAction(const std::vector<std::string>& choices, bool takesFile) {
  if (!choices.empty()) {
    return '(' + joined(choices, " ") + ')';
  }
  return takesFile ? "_files" : " ";
}

std::string zshEscaped(const std::string& text) {
  return replaced(replaced(replaced(replaced(text, "\\", "\\\\"), "[", "\\["), "]", "\\]"), ":", "\\:");
}

void appendZshArguments(const CommandEntry& command, std::string& out) {
  for (const OptionEntry& option : command.options) {
    for (const std::string& name : option.names) {
      const std::string others = option.isRepeatable ? "*" : '(' + joined(option.names, " ") + ')';
      std::string argument = others + name + '[' + zshEscaped(option.description) + ']';
      if (!option.argument.empty()) {
        argument += ':' + zshEscaped(option.argument) + ':' + zshAction(option.choices, option.takesFile);
      }
      out += " \\\n        " + quoted(argument);
    }
  }
  for (const PositionalEntry& positional : command.positionals) {
    out += " \\\n        " + quoted((positional.isRepeatable ? "*:" : ":") + zshEscaped(positional.name) + ':' +
                                    zshAction(positional.choices, positional.takesFile));
  }
  if (!command.commands.empty()) {
    out += " \\\n        '1:command:->command' \\\n        '*::argument:->argument'";
  }
}

/// The function that completes one command, and those of the commands inside it.
void appendZshFunction(const CommandEntry& command, std::string& out) {
  const auto nameOf = [](const CommandEntry& entry) { return '_' + replaced(entry.path, " ", "_"); };
  out += '\n' + nameOf(command) + "() {\n";
  if (command.commands.empty()) {
    out += "    _arguments -s";
    appendZshArguments(command, out);
    out += "\n}\n";
    return;
  }
  out += "    local curcontext=$curcontext state line\n    typeset -A opt_args\n    _arguments -C";
  appendZshArguments(command, out);
  out += "\n    case $state in\n    command)\n        local -a commands=(";
  for (const CommandEntry& inner : command.commands) {
    out += "\n            " + quoted(inner.name + ':' + zshEscaped(inner.description));
  }
  out += "\n        )\n        _describe command commands\n        ;;\n    argument)\n        case $line[1] in\n";
  for (const CommandEntry& inner : command.commands) {
    out += "        " + inner.name + ") " + nameOf(inner) + " ;;\n";
  }
  out += "        esac\n        ;;\n    esac\n}\n";
  for (const CommandEntry& inner : command.commands) {
    appendZshFunction(inner, out);
  }
}

}  // namespace

std::string bashCompletion(const CommandEntry& table) {
  std::string out = "# bash completion for " + table.name + "\n\n_" + table.name +
                    "() {\n"
                    "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
                    "    # An equals sign is a word of its own.\n"
                    "    if [[ $current == = ]]; then\n"
                    "        current=\n"
                    "    elif [[ $previous == = ]]; then\n"
                    "        previous=${COMP_WORDS[COMP_CWORD - 2]}\n"
                    "    fi\n"
                    "    local command=" +
                    table.name +
                    " i\n"
                    "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
                    "        case \"$command ${COMP_WORDS[i]}\" in\n"
                    "        " +
                    joined(innerPaths(table), " | ") +
                    ")\n"
                    "            command+=\" ${COMP_WORDS[i]}\"\n"
                    "            ;;\n"
                    "        esac\n"
                    "    done\n"
                    "    local words=\n"
                    "    case \"$command $previous\" in\n";
  forEachCommand(table, [&](const CommandEntry& command) {
    for (const OptionEntry& option : command.options) {
      if (option.argument.empty()) {
        continue;
      }
      std::vector<std::string> patterns;
      for (const std::string& name : option.names) {
        patterns.push_back(quoted(command.path + ' ' + name));
      }
      // Without words, files are completed.
      out += "    " + joined(patterns, " | ") + ") words=" + quoted(joined(option.choices, " ")) + " ;;\n";
    }
  });
  out += "    *)\n        case $command in\n";
  forEachCommand(table, [&](const CommandEntry& command) {
    std::vector<std::string> others = commandNames(command);
    for (const PositionalEntry& positional : command.positionals) {
      others.insert(others.end(), positional.choices.begin(), positional.choices.end());
    }
    out += "        " + quoted(command.path) + ")\n            if [[ $current == -* ]]; then\n                words=" +
           quoted(joined(optionNames(command), " ")) +
           "\n            else\n                words=" + quoted(joined(others, " ")) +
           "\n            fi\n            ;;\n";
  });
  out +=
      "        esac\n        ;;\n    esac\n    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n}\n\n"
      "complete -o default -F _" +
      table.name + ' ' + table.name + '\n';
  return out;
}

std::string zshCompletion(const CommandEntry& table) {
  std::string out = "#compdef " + table.name + "\n";
  appendZshFunction(table, out);
  out += "\nif [[ $funcstack[1] == _" + table.name + " ]]; then\n    _" + table.name + " \"$@\"\nelse\n    compdef _" +
         table.name + ' ' + table.name + "\nfi\n";
  return out;
}

std::string fishCompletion(const CommandEntry& table) {
  const std::string function = "__" + table.name + "_command";
  std::string out = "# fish completion for " + table.name + "\n\nfunction " + function + "\n    set -l command " +
                    table.name +
                    "\n"
                    "    for word in (commandline -opc)[2..-1]\n"
                    "        switch \"$command $word\"\n"
                    "            case " +
                    joined(innerPaths(table), " ") +
                    "\n"
                    "                set command \"$command $word\"\n"
                    "        end\n"
                    "    end\n"
                    "    echo $command\n"
                    "end\n\n";
  forEachCommand(table, [&](const CommandEntry& command) {
    const std::string start =
        "complete -c " + table.name + " -n " + quotedForFish("test (" + function + ") = \"" + command.path + '"');
    if (!command.commands.empty()) {
      out += start + " -f\n";
    }
    for (const CommandEntry& inner : command.commands) {
      out += start + " -a " + inner.name + " -d " + quotedForFish(inner.description) + '\n';
    }
    for (const PositionalEntry& positional : command.positionals) {
      if (!positional.choices.empty()) {
        out += start + " -f -a " + quotedForFish(joined(positional.choices, " ")) + '\n';
      }
    }
    for (const OptionEntry& option : command.options) {
      out += start;
      for (const std::string& name : option.names) {
        out += name.rfind("--", 0) == 0 ? " -l " + name.substr(2) : " -s " + name.substr(1);
      }
      if (!option.argument.empty()) {
        out += option.takesFile ? " -r -F" : " -x";
        out += option.choices.empty() ? "" : " -a " + quotedForFish(joined(option.choices, " "));
      }
      out += " -d " + quotedForFish(option.description) + '\n';
    }
  });
  return out;
}

}  // namespace MD::tool
