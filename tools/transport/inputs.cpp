#include "transport/inputs.h"

#include <cerrno>
#include <cstring>

#include <filesystem>
#include <system_error>
#include <utility>

#include "base/platform.h"

namespace MD::tool {

Inputs::Inputs(std::vector<std::string> files, std::istream& standardInput, bool isOutputStandard, Reporter& reporter)
    : m_files(std::move(files)),
      m_standardInput(standardInput),
      m_isOutputStandard(isOutputStandard),
      m_reporter(reporter),
      m_fileBuffer(std::size_t{1} << 16) {
  if (m_files.empty()) {
    m_files.emplace_back("-");
  }
}

InputBuffer* Inputs::next() {
  m_input.reset();
  m_file.close();
  while (m_next != m_files.size()) {
    const std::string& path = m_files[m_next++];
    // What is read would grow with what is written.
    if (m_isOutputStandard && (path == "-" ? isStandardInputWritten() : isStandardOutput(path))) {
      m_reporter.unusable((path == "-" ? "standard input" : pathText(path)) + " is also the output");
      continue;
    }
    if (path == "-") {
      begin(*m_standardInput.rdbuf(), "standard input", 0);
      return &*m_input;
    }
    if (openFile(path)) {
      return &*m_input;
    }
  }
  return nullptr;
}

bool Inputs::openFile(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    m_reporter.unusable("cannot read " + pathText(path) + ": it is a directory");
    return false;
  }
  m_file.pubsetbuf(m_fileBuffer.data(), static_cast<std::streamsize>(m_fileBuffer.size()));
  if (m_file.open(path, std::ios::in | std::ios::binary) == nullptr) {
    m_reporter.unusable("cannot open " + pathText(path) + ": " + std::strerror(errno));
    return false;
  }
  const std::uintmax_t sizeBytes = std::filesystem::file_size(path, error);
  begin(m_file, path, error ? 0 : sizeBytes);
  return true;
}

/// @param sizeBytes  0 when it is not known
void Inputs::begin(std::streambuf& source, const std::string& name, std::uint64_t sizeBytes) {
  m_reporter.setInput(name);
  m_reporter.beginInput(sizeBytes);
  m_input.emplace(source);
}

}  // namespace MD::tool
