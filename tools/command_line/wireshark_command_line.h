// The options of the command "wireshark".
#ifndef MDMSG_WIRESHARK_COMMAND_LINE_H
#define MDMSG_WIRESHARK_COMMAND_LINE_H

#include "command_line/command.h"

namespace MD::tool {

Command addWireshark(CLI::App& app);

}  // namespace MD::tool

#endif
