#include "base/platform.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <filesystem>
#include <system_error>

#if defined(_WIN32)
#include <io.h>
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
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

#if defined(_WIN32)

void holdStandardStreams() {}
bool isOutputTerminal() { return _isatty(_fileno(stdout)) != 0; }
bool isErrorTerminal() { return _isatty(_fileno(stderr)) != 0; }
bool isStandardInput(const std::string&) { return false; }
std::size_t terminalColumns() { return 80; }

bool isTimeZoneName(const std::string&) { return false; }
void setTimeZone(const std::string&) {}

int secondsEastOfUtc(std::int64_t unixSeconds) {
  const std::time_t time = unixSeconds;
  std::tm local{};
  if (localtime_s(&local, &time) != 0) {
    return 0;
  }
  return static_cast<int>(_mkgmtime(&local) - time);
}

#else

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
  // A terminal, a pipe or /dev/null loses nothing by being written.
  return fstat(STDIN_FILENO, &input) == 0 && S_ISREG(input.st_mode) && stat(path.c_str(), &file) == 0 &&
         input.st_dev == file.st_dev && input.st_ino == file.st_ino;
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

bool isTimeZoneName(const std::string& name) {
  if (name.empty() || name[0] == '/' || name.find("..") != name.npos) {
    return false;
  }
  const char* const folder = std::getenv("TZDIR");
  const std::filesystem::path zones = folder != nullptr ? folder : "/usr/share/zoneinfo";
  std::error_code error;
  return std::filesystem::is_regular_file(zones / name, error);
}

void setTimeZone(const std::string& name) {
  if (!name.empty()) {
    setenv("TZ", (':' + name).c_str(), 1);
  }
  tzset();
}

int secondsEastOfUtc(std::int64_t unixSeconds) {
  const auto time = static_cast<std::time_t>(unixSeconds);
  std::tm local{};
  return localtime_r(&time, &local) != nullptr ? static_cast<int>(local.tm_gmtoff) : 0;
}

#endif

}  // namespace MD::tool
