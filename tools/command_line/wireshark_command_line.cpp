#include "command_line/wireshark_command_line.h"

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "commands/wireshark.h"

namespace MD::tool {
namespace {

constexpr const char* kWiresharkHelp =
    "Writes the dissector, a Lua plugin that displays messages in Wireshark and tshark\n"
    "field by field. --install writes it to the plugin folder of the user; it is active\n"
    "after the next start of Wireshark. Do not install it if it is already installed for\n"
    "all users: Wireshark refuses a second copy.\n"
    "\n"
    "Examples:\n"
    "  mdmsg wireshark --install\n"
    "  mdmsg wireshark --install --force\n"
    "  mdmsg wireshark --output md_message.lua";

struct WiresharkLine : CommonOptions {
  bool isInstalled = false;
  std::string folder;
};

}  // namespace

Command addWireshark(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("wireshark", "Write or install the dissector for Wireshark");
  const auto line = std::make_shared<WiresharkLine>();
  CLI::Option* const install =
      command->add_flag("--install", line->isInstalled, "Install it for the current user instead of writing it");
  named(command->add_option("--folder", line->folder, "Install it in this folder instead")
            ->needs(install)
            ->check(&complaintAboutEmpty),
        "FOLDER");
  line->addOutput(*command);
  command->get_option("--output")->excludes(install);
  command->footer(kWiresharkHelp);
  const auto run = [line](const Session& session) {
    std::string path;
    if (line->isInstalled) {
      path = dissectorPath(line->folder);
      Files::open(session.files.output, path, *line);
      session.out.redirect(session.files.output);
      session.watch.begin();
    }
    session.out.text() += kDissector;
    session.out.lineDone();
    if (line->isInstalled) {
      session.out.finish();
      session.reporter.tell(pathText(path) + " is installed");
    }
  };
  return {command, line, run, false};
}

}  // namespace MD::tool
