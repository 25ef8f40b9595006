#include "base/platform.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <algorithm>
#include <filesystem>
#include <system_error>

#if defined(_WIN32)
#include <io.h>
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif
#if defined(__linux__)
#include <linux/sock_diag.h>
#include <sys/socket.h>
#endif

namespace MD::tool {

std::uint8_t parseIpAddress(const std::string& text, std::uint8_t* out) {
  if (inet_pton(AF_INET, text.c_str(), out) == 1) {
    return 4;
  }
  return inet_pton(AF_INET6, text.c_str(), out) == 1 ? 16 : 0;
}

std::string ipAddressText(const std::uint8_t* bytes, std::uint8_t sizeBytes) {
  char text[64] = "";
  inet_ntop(sizeBytes == 4 ? AF_INET : AF_INET6, bytes, text, sizeof text);
  return text;
}

#if defined(__linux__)

std::uint64_t droppedDatagrams(std::intptr_t socket) {
  std::uint32_t numbers[SK_MEMINFO_VARS] = {};
  socklen_t sizeBytes = sizeof numbers;
  const int code = getsockopt(static_cast<int>(socket), SOL_SOCKET, SO_MEMINFO, numbers, &sizeBytes);
  return code == 0 && sizeBytes > SK_MEMINFO_DROPS * sizeof *numbers ? numbers[SK_MEMINFO_DROPS] : 0;
}

#else

std::uint64_t droppedDatagrams(std::intptr_t) { return 0; }

#endif

#if defined(_WIN32)

void holdStandardStreams() {}
bool isOutputTerminal() { return _isatty(_fileno(stdout)) != 0; }
bool isErrorTerminal() { return _isatty(_fileno(stderr)) != 0; }
bool isStandardInput(const std::string&) { return false; }
bool isStandardOutput(const std::string&) { return false; }
bool isStandardInputWritten() { return false; }
void tryWriteError(std::string_view text) {
  static_cast<void>(write(_fileno(stderr), text.data(), static_cast<unsigned>(text.size())));
}
std::vector<int> endingSignals() { return {SIGINT, SIGTERM, SIGBREAK}; }
// Files have no numbers there.
bool isSameFile(int, const std::string& path, const std::string& other) {
  std::error_code error;
  return std::filesystem::equivalent(path, other, error);
}
std::size_t terminalColumns() { return 80; }

std::string wiresharkPluginFolder() {
  const char* const settings = std::getenv("APPDATA");
  return settings != nullptr && *settings != '\0' ? std::string(settings) + "\\Wireshark\\plugins" : std::string();
}

// There is none for Windows.
std::string findCompanion(const std::string&) { return {}; }
std::string runInstead(const std::string&, const std::vector<std::string>&) { return "not supported"; }

void readLocalTimeZone() { _tzset(); }

int secondsEastOfUtc(std::int64_t unixSeconds) {
  const std::time_t time = unixSeconds;
  std::tm local{};
  if (localtime_s(&local, &time) != 0) {
    return 0;
  }
  return static_cast<int>(_mkgmtime(&local) - time);
}

#else

namespace {

bool isSame(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

}  // namespace

void holdStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) == -1) {
      // It gets the lowest free number, which is that one. Opened the other way round it stays as unusable as it was.
      static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
    }
  }
}

bool isOutputTerminal() { return isatty(STDOUT_FILENO) == 1; }
bool isErrorTerminal() { return isatty(STDERR_FILENO) == 1; }

bool isStandardInput(const std::string& path) {
  struct stat input {};
  struct stat file {};
  return fstat(STDIN_FILENO, &input) == 0 && S_ISREG(input.st_mode) && stat(path.c_str(), &file) == 0 &&
         isSame(input, file);
}

bool isStandardOutput(const std::string& path) {
  struct stat output {};
  struct stat file {};
  return fstat(STDOUT_FILENO, &output) == 0 && S_ISREG(output.st_mode) && stat(path.c_str(), &file) == 0 &&
         isSame(output, file) && file.st_size != 0;
}

bool isStandardInputWritten() {
  struct stat input {};
  struct stat output {};
  return fstat(STDIN_FILENO, &input) == 0 && S_ISREG(input.st_mode) && fstat(STDOUT_FILENO, &output) == 0 &&
         isSame(input, output) && lseek(STDIN_FILENO, 0, SEEK_CUR) < input.st_size;
}

void tryWriteError(std::string_view text) {
  pollfd error{STDERR_FILENO, POLLOUT, 0};
  if (poll(&error, 1, 0) == 1 && (error.revents & POLLOUT) != 0) {
    static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
  }
}

std::vector<int> endingSignals() {
  std::vector<int> signals;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
      signals.push_back(signal);
    }
  }
  return signals;
}

bool isSameFile(int descriptor, const std::string&, const std::string& other) {
  struct stat file {};
  struct stat otherFile {};
  return fstat(descriptor, &file) == 0 && stat(other.c_str(), &otherFile) == 0 && isSame(file, otherFile);
}

std::size_t terminalColumns() {
  for (const int file : {STDOUT_FILENO, STDERR_FILENO}) {
    winsize size{};
    if (ioctl(file, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
      return size.ws_col;
    }
  }
  return 80;
}

std::string wiresharkPluginFolder() {
  const char* const home = std::getenv("HOME");
  return home != nullptr && *home != '\0' ? std::string(home) + "/.local/lib/wireshark/plugins" : std::string();
}

std::string findCompanion(const std::string& name) {
  std::error_code error;
  std::vector<std::filesystem::path> folders{std::filesystem::read_symlink("/proc/self/exe", error).parent_path()};
  const char* const path = std::getenv("PATH");
  for (std::string_view rest = path != nullptr ? path : ""; !rest.empty();) {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    folders.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  for (const std::filesystem::path& folder : folders) {
    // An empty or relative folder would depend on where the user happens to be.
    if (folder.is_absolute() && access((folder / name).c_str(), X_OK) == 0) {
      return folder / name;
    }
  }
  return {};
}

std::string runInstead(const std::string& path, const std::vector<std::string>& arguments) {
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  execv(path.c_str(), pointers.data());
  return std::generic_category().message(errno);
}

void readLocalTimeZone() { tzset(); }

int secondsEastOfUtc(std::int64_t unixSeconds) {
  const auto time = static_cast<std::time_t>(unixSeconds);
  std::tm local{};
  return localtime_r(&time, &local) != nullptr ? static_cast<int>(local.tm_gmtoff) : 0;
}

#endif

}  // namespace MD::tool
