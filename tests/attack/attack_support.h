// The program as a child process with limits, pipes that nobody reads, and signals.
#ifndef MD_TESTS_ATTACK_ATTACK_SUPPORT_H
#define MD_TESTS_ATTACK_ATTACK_SUPPORT_H

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tools/program_support.h"

namespace MD::test {

/// How a run ended.
struct End {
  int status = -1;  ///< the exit status; -1 for a signal
  int signal = 0;   ///< that killed it
};

/// A run of the program in the current folder, with the files "stdin", "stdout" and "stderr" for its standard streams
/// where nothing else is said. One that does not end within a minute is killed, which fails what is expected of it.
class Child {
 public:
  /// Bounds of the process, 0 for none.
  struct Limits {
    rlim_t addressSpaceBytes = 0;
    rlim_t fileBytes = 0;
  };

  explicit Child(const std::vector<std::string>& arguments, const Limits& limits, int output = -1) {
    m_process = fork();
    if (m_process != 0) {
      return;
    }
    alarm(60);
    redirect("stdin", O_RDONLY, STDIN_FILENO);
    if (output >= 0) {
      dup2(output, STDOUT_FILENO);
    } else {
      redirect("stdout", O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
    }
    redirect("stderr", O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
    limit(RLIMIT_AS, limits.addressSpaceBytes);
    limit(RLIMIT_FSIZE, limits.fileBytes);
    std::vector<char*> words;
    std::string name = "mdmsg";
    words.push_back(name.data());
    std::vector<std::string> copies = arguments;
    for (std::string& word : copies) {
      words.push_back(word.data());
    }
    words.push_back(nullptr);
    execv(MDMSG_PROGRAM, words.data());
    _exit(127);
  }
  explicit Child(const std::vector<std::string>& arguments) : Child(arguments, Limits()) {}
  ~Child() {
    if (m_process > 0) {
      ::kill(m_process, SIGKILL);
      wait();
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void send(int signal) const { ::kill(m_process, signal); }

  /// Whether it has come to where nothing changes any more until somebody does something: it sleeps.
  bool isAsleep() const {
    const std::string status = contentsOf("/proc/" + std::to_string(m_process) + "/stat");
    const std::size_t state = status.rfind(')');
    return state != status.npos && status.compare(state, 3, ") S") == 0;
  }

  End wait() {
    int status = 0;
    while (waitpid(m_process, &status, 0) == -1 && errno == EINTR) {
    }
    m_process = -1;
    End end;
    if (WIFEXITED(status)) {
      end.status = WEXITSTATUS(status);
    } else {
      end.signal = WTERMSIG(status);
    }
    return end;
  }

 private:
  static void redirect(const char* path, int flags, int stream) {
    const int file = open(path, flags, 0600);
    if (file >= 0) {
      dup2(file, stream);
      close(file);
    }
  }
  static void limit(int resource, rlim_t value) {
    const rlimit limits{value, value};
    if (value != 0) {
      setrlimit(static_cast<__rlimit_resource_t>(resource), &limits);
    }
  }

  pid_t m_process = -1;
};

/// Waits until `isSo()`, as long as a child has to live.
template <class IsSo>
bool until(IsSo isSo) {
  for (int i = 0; i != 3000; ++i) {
    if (isSo()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

}  // namespace MD::test

#endif
