#include "base/output.h"

#include <cerrno>
#include <cstring>

#include <filesystem>
#include <ostream>
#include <system_error>
#include <utility>

namespace MD::tool {
namespace {

bool meansBrokenPipe(int code) noexcept {
#if defined(_WIN32)
  // The C runtime has no error number of its own for a pipe whose reader has gone.
  return code == EPIPE || code == EINVAL;
#else
  return code == EPIPE;
#endif
}

}  // namespace

OutputError::OutputError(const std::string& name, int code)
    : std::runtime_error("cannot write " + name + ": " + (code != 0 ? std::strerror(code) : "unknown error")),
      m_isBrokenPipe(meansBrokenPipe(code)) {}

void Output::flush() {
  if (m_complete == 0) {
    return;
  }
  dropOldContents();
  errno = 0;
  m_out->write(m_text.data(), static_cast<std::streamsize>(m_complete)).flush();
  const int code = errno;
  m_text.erase(0, m_complete);
  m_complete = 0;
  if (!*m_out) {
    throw OutputError(m_name, code);
  }
}

void Output::finish() {
  dropOldContents();
  flush();
}

void Output::dropOldContents() {
  std::error_code error;
  if (std::exchange(m_hasOldContents, false) && std::filesystem::is_regular_file(m_name, error)) {
    std::filesystem::resize_file(m_name, 0, error);
    if (error) {
      throw OutputError(m_name, error.value());
    }
  }
}

}  // namespace MD::tool
