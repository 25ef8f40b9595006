// A terminal for the program.
#ifndef MD_TESTS_TOOLS_TERMINAL_SUPPORT_H
#define MD_TESTS_TOOLS_TERMINAL_SUPPORT_H

#if defined(__linux__)

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <string>

#include <gtest/gtest.h>

namespace MD::test {

/// Runs a shell command in a terminal of 100 columns of its own.
/// @return all that the terminal showed
inline std::string shownBy(const std::string& command) {
  int terminal = -1;
  winsize size{};
  size.ws_col = 100;
  size.ws_row = 24;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) {
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  EXPECT_GT(child, 0);
  std::string shown;
  char buffer[4096];
  for (ssize_t count = 0; (count = read(terminal, buffer, sizeof buffer)) > 0 || errno == EINTR;) {
    shown.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  close(terminal);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return shown;
}

}  // namespace MD::test

#endif

#endif
