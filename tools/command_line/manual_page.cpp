#include <sstream>

#include "command_line/command_table.h"

namespace MD::tool {
namespace {

/// Text in which nothing is a request or an escape.
std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '\\':
        out += "\\e";
        break;
      case '-':
        out += "\\-";
        break;
      case '\'':
        out += "\\(aq";
        break;
      case '`':
        out += "\\(ga";
        break;
      case '^':
        out += "\\(ha";
        break;
      case '~':
        out += "\\(ti";
        break;
      case '"':
        out += "\\(dq";
        break;
      default:
        out += c;
    }
  }
  return !out.empty() && out[0] == '.' ? "\\&" + out : out;
}

std::string bold(const std::string& text) { return "\\fB" + escaped(text) + "\\fR"; }
std::string italic(const std::string& text) { return "\\fI" + escaped(text) + "\\fR"; }

std::string sentence(const std::string& text) {
  return escaped(text) + (!text.empty() && text.back() == '.' ? "" : ".");
}

/// The text without this line at its beginning.
std::string withoutHeading(const std::string& text, const std::string& heading) {
  return text.compare(0, heading.size(), heading) == 0 ? text.substr(heading.size()) : text;
}

/// Appends paragraphs; lines that begin with spaces are unchanged.
void appendText(const std::string& text, std::string& out) {
  std::istringstream lines(text);
  lines.exceptions(std::ios_base::badbit);
  bool isExample = false;
  bool isNew = true;
  for (std::string line; std::getline(lines, line);) {
    const bool begins = line.rfind("  ", 0) == 0;
    if (begins != isExample) {
      out += begins ? ".RS 4\n.nf\n" : ".fi\n.RE\n";
      isExample = begins;
    }
    if (line.empty()) {
      isNew = true;
      continue;
    }
    if (isNew && !begins) {
      out += ".PP\n";
    }
    isNew = false;
    out += escaped(begins ? line.substr(2) : line) + '\n';
  }
  if (isExample) {
    out += ".fi\n.RE\n";
  }
}

void appendOption(const OptionEntry& option, std::string& out) {
  out += ".TP\n";
  for (std::size_t i = 0; i != option.names.size(); ++i) {
    out += (i == 0 ? "" : ", ") + bold(option.names[i]);
  }
  if (!option.argument.empty()) {
    out += ' ' + italic(option.argument);
  }
  out += '\n' + sentence(option.description) + (option.isRequired ? " Required." : "") + '\n';
}

void appendUsage(const CommandEntry& command, std::string& out) {
  out += bold(command.path);
  for (const OptionEntry& option : command.options) {
    if (option.isRequired) {
      out += ' ' + bold(option.names.back()) + ' ' + italic(option.argument);
    }
  }
  out += " [" + italic("OPTION") + "]...";
  for (const PositionalEntry& positional : command.positionals) {
    const std::string name = italic(positional.name);
    out += ' ' + (positional.isRequired ? name : '[' + name + ']') + (positional.isRepeatable ? "..." : "");
  }
  out += command.commands.empty() ? "" : ' ' + italic("COMMAND");
}

void appendCommand(const CommandEntry& command, std::string& out) {
  if (command.commands.empty()) {
    out += ".SS " + escaped(command.path) + "\n";
    appendUsage(command, out);
    out += "\n.PP\n" + sentence(command.description) + '\n';
    for (const PositionalEntry& positional : command.positionals) {
      out += ".TP\n" + italic(positional.name) + '\n' + sentence(positional.description) + '\n';
    }
    for (const OptionEntry& option : command.options) {
      appendOption(option, out);
    }
    appendText(command.footer, out);
  }
  for (const CommandEntry& inner : command.commands) {
    appendCommand(inner, out);
  }
}

}  // namespace

std::string manualPage(const CommandEntry& table, const std::string& version) {
  const std::size_t lineEnd = table.description.find('\n');
  std::string summary = table.description.substr(0, lineEnd);
  if (!summary.empty() && summary.back() == '.') {
    summary.pop_back();
  }
  summary[0] = static_cast<char>(summary[0] >= 'A' && summary[0] <= 'Z' ? summary[0] - 'A' + 'a' : summary[0]);
  std::string out = ".TH MDMSG 1 \"\" \"" + escaped(version) + "\" \"User Commands\"\n.nh\n.ad l\n.SH NAME\n" +
                    escaped(table.name) + " \\- " + escaped(summary) + "\n.SH SYNOPSIS\n";
  appendUsage(table, out);
  out += "\n.SH DESCRIPTION\n";
  appendText(table.description, out);
  out += ".SH OPTIONS\n";
  for (const OptionEntry& option : table.options) {
    appendOption(option, out);
  }
  out += ".SH COMMANDS\n";
  for (const CommandEntry& command : table.commands) {
    appendCommand(command, out);
  }
  out +=
      ".SH ENVIRONMENT\n"
      ".TP\n\\fBCONFIG_PATH\\fR\n"
      "Folders, separated by colons, that are searched for the dictionary and message/preferred.conf.\n"
      ".TP\n\\fBNO_COLOR\\fR\n"
      "If set and not empty, output is not coloured unless an option requires it.\n"
      ".SH EXAMPLES\n";
  appendText(withoutHeading(table.footer, "Examples:\n"), out);
  return out;
}

}  // namespace MD::tool
