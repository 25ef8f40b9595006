#include "base/progress.h"

#include <ostream>

#include "base/quoted_text.h"

namespace MD::tool {
namespace {

std::string megabytes(std::uint64_t bytes) {
  const std::uint64_t tenths = bytes / 100'000;
  return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + " MB";
}

}  // namespace

void Progress::begin(const std::string& input, std::uint64_t sizeBytes) {
  m_input = pathText(input);
  m_sizeBytes = sizeBytes;
}

void Progress::look(std::uint64_t readBytes) {
  const auto now = Clock::now();
  if (now >= m_next) {
    m_next = now + std::chrono::milliseconds(200);
    show(readBytes);
  }
}

void Progress::show(std::uint64_t readBytes) {
  std::string line = "\r\x1b[K" + m_input + ": " + (m_status ? m_status() : std::to_string(m_messages) + " messages");
  if (readBytes != 0 || m_sizeBytes != 0) {
    line += ", " + megabytes(readBytes);
  }
  if (m_sizeBytes != 0) {
    line += " of " + megabytes(m_sizeBytes) + " (" + std::to_string(readBytes * 100 / m_sizeBytes) + " %)";
  }
  m_err.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
  m_isShown = true;
}

void Progress::clear() {
  if (m_isShown) {
    m_err << "\r\x1b[K" << std::flush;
    m_isShown = false;
  }
}

}  // namespace MD::tool
