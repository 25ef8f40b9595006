#include <csignal>

#include <iostream>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#endif

#include "base/platform.h"
#include "command_line/tool.h"

namespace MD::tool {

int runMain(int argc, char** argv, const NatsCommands* nats) {
#if defined(SIGPIPE)
  // A reader that has gone shows as a failed write.
  (void)std::signal(SIGPIPE, SIG_IGN);
#endif
#if defined(SIGXFSZ)
  // As does a file that grows beyond what the process may write.
  (void)std::signal(SIGXFSZ, SIG_IGN);
#endif
#if defined(_WIN32)
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  holdStandardStreams();
  std::ios::sync_with_stdio(false);
  std::cin.tie(nullptr);
  std::ostream err(std::cerr.rdbuf());
  return run({argv + 1, argv + argc}, {std::cin, std::cout, err, isOutputTerminal(), isErrorTerminal()}, nats);
}

}  // namespace MD::tool
