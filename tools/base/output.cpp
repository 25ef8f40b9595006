#include "base/output.h"

#include <cerrno>
#include <cstring>

#include <ostream>
#include <streambuf>
#include <string_view>
#include <utility>

#include "base/end_watch.h"
#include "base/quoted_text.h"

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
    : std::runtime_error("cannot write " + pathText(name) + ": " + (code != 0 ? std::strerror(code) : "unknown error")),
      m_isBrokenPipe(meansBrokenPipe(code)) {}

void Output::write(Compressor::Then then) {
  const bool isAtEnd = m_compressor != nullptr && then == Compressor::Then::End;
  if ((m_complete == 0 && m_isFlushed && !isAtEnd) || (m_file == nullptr && m_out == nullptr)) {
    return;
  }
  std::string_view bytes(m_text.data(), m_complete);
  if (m_compressor != nullptr) {
    m_packed.clear();
    m_compressor->append(bytes, then, m_packed);
    m_isFlushed = then != Compressor::Then::GoOn;
    bytes = m_packed;
  }
  if (bytes.empty()) {
    m_text.erase(0, std::exchange(m_complete, 0));
    return;
  }
  dropOldContents();
  std::streambuf& to = m_file != nullptr ? *m_file : *m_out->rdbuf();
  errno = 0;
  // Past the stream, which would keep an exception to itself.
  const auto sizeBytes = static_cast<std::streamsize>(bytes.size());
  const bool isWritten = [&] {
    const BlockingWrite write;
    return to.sputn(bytes.data(), sizeBytes) == sizeBytes && to.pubsync() == 0;
  }();
  const int code = errno;
  m_text.erase(0, std::exchange(m_complete, 0));
  if (!isWritten) {
    fail(code);
  }
}

void Output::takeComplete(std::string& into) {
  m_text.resize(m_complete);
  into.swap(m_text);
  m_text.clear();
  m_complete = 0;
}

void Output::finish() {
  dropOldContents();
  write(Compressor::Then::End);
  if (m_file == nullptr) {
    return;
  }
  if (const int code = m_file->close()) {
    fail(code);
  }
}

void Output::dropOldContents() {
  if (!std::exchange(m_hasOldContents, false)) {
    return;
  }
  if (const int code = m_file->dropOldContents()) {
    fail(code);
  }
}

void Output::fail(int code) const { throw OutputError(m_file != nullptr ? m_file->path() : "standard output", code); }

}  // namespace MD::tool
