#include "base/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <algorithm>
#include <utility>

#include "base/errors.h"
#include "base/platform.h"
#include "base/quoted_text.h"

namespace MD::tool {
namespace {

// Flags that only some systems have, or need.
#if !defined(O_CLOEXEC)
#define O_CLOEXEC 0
#endif
#if !defined(O_NOCTTY)
#define O_NOCTTY 0
#endif
#if !defined(O_BINARY)
#define O_BINARY 0
#endif

constexpr int kOpenFlags = O_WRONLY | O_CLOEXEC | O_NOCTTY | O_BINARY;

template <class Call>
auto repeatedly(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}

}  // namespace

OutputFile::~OutputFile() { close(); }

void OutputFile::open(const std::string& path, bool isForced) {
  constexpr int kReadAndWrite = 0666;
  // Exclusively: neither a file nor a link that has come there since somebody looked is opened, but refused.
  int descriptor = repeatedly([&] { return ::open(path.c_str(), kOpenFlags | O_CREAT | O_EXCL, kReadAndWrite); });
  const bool isMade = descriptor != kNone;
  if (!isMade && errno == EEXIST) {
    if (!isForced) {
      throw UsageError(pathText(path) + " exists; --force overwrites it");
    }
    descriptor = repeatedly([&] { return ::open(path.c_str(), kOpenFlags); });
  }
  if (descriptor == kNone) {
    throw UsageError("cannot write " + pathText(path) + ": " + std::strerror(errno));
  }
  struct stat status {};
  m_isRegular = fstat(descriptor, &status) == 0 && (status.st_mode & S_IFMT) == S_IFREG;
  m_device = static_cast<std::uint64_t>(status.st_dev);
  m_number = static_cast<std::uint64_t>(status.st_ino);
  m_path = path;
  m_isMade = isMade;
  m_descriptor = descriptor;
}

bool OutputFile::isAt(const std::string& path) const { return isSameFile(m_descriptor, m_path, path); }

int OutputFile::dropOldContents() {
  if (m_isMade || !m_isRegular) {
    return 0;
  }
  return repeatedly([&] { return ftruncate(m_descriptor, 0); }) == 0 ? 0 : errno;
}

int OutputFile::close() {
  const int code = pause();
  m_isPartial = m_isPartial && code != 0;
  return code;
}

int OutputFile::pause() {
  const int descriptor = std::exchange(m_descriptor, kNone);
  return descriptor != kNone && ::close(descriptor) != 0 && errno != EINTR ? errno : 0;
}

int OutputFile::resume() {
  m_descriptor = repeatedly([&] { return ::open(m_path.c_str(), kOpenFlags | O_APPEND); });
  if (m_descriptor == kNone) {
    return errno;
  }
  struct stat status {};
  if (fstat(m_descriptor, &status) != 0 || static_cast<std::uint64_t>(status.st_dev) != m_device ||
      static_cast<std::uint64_t>(status.st_ino) != m_number) {
    pause();
    return EEXIST;
  }
  return 0;
}

void OutputFile::removeIfEmpty() {
  struct stat status {};
  if (m_isMade && !m_isPartial && isOpen() && fstat(m_descriptor, &status) == 0 && status.st_size == 0 &&
      isAt(m_path)) {
    close();  // some systems do not remove open files
    static_cast<void>(std::remove(m_path.c_str()));
  }
}

std::streamsize OutputFile::xsputn(const char* bytes, std::streamsize count) {
  // As much as every system takes at once.
  constexpr std::streamsize kMostAtOnce = std::streamsize{1} << 30;
  std::streamsize written = 0;
  while (written != count) {
    const auto size = static_cast<unsigned>(std::min(count - written, kMostAtOnce));
    const auto step = repeatedly([&] { return ::write(m_descriptor, bytes + written, size); });
    if (step <= 0) {
      break;
    }
    m_isPartial = m_isRegular;
    written += step;
  }
  return written;
}

OutputFile::int_type OutputFile::overflow(int_type c) {
  const char byte = traits_type::to_char_type(c);
  return traits_type::eq_int_type(c, traits_type::eof()) || xsputn(&byte, 1) == 1 ? traits_type::not_eof(c)
                                                                                  : traits_type::eof();
}

}  // namespace MD::tool
