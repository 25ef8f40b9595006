#include "command_line/tool.h"
#include "nats/commands.h"

int main(int argc, char** argv) { return MD::tool::runMain(argc, argv, &MD::tool::kNatsCommands); }
