#include "commands/split_output.h"

#include <cerrno>

#include <chrono>
#include <exception>
#include <utility>

#include "base/end_watch.h"
#include "base/errors.h"
#include "base/output.h"

namespace MD::tool {

SplitOutput::SplitOutput(const SplitOptions& options, const FieldNames& names)
    : m_options(options),
      m_template(options.path, options.by, names),
      m_compressor(makeCompressor(options.compression)) {
  m_options.setBeforeEnd([this] { writeBeforeEnd(); });
}

SplitOutput::~SplitOutput() {
  m_options.setBeforeEnd({});
  const std::lock_guard lock(m_mutex);  // where the process is about to end, that happens here
}

/// Called by another thread than that of append().
void SplitOutput::writeBeforeEnd() noexcept {
  // A write may wait for long.
  constexpr std::chrono::seconds kMostSeconds{2};
  // Not released: nothing is appended any more.
  if (m_mutex.try_lock_for(kMostSeconds)) {
    try {
      writeAll();
    } catch (const std::exception&) {
      // The files then lack it, as is reported of all of them.
    }
  }
}

void SplitOutput::append(const InputMessage& message, std::string_view header, std::string_view record) {
  const std::lock_guard lock(m_mutex);
  m_path.clear();
  m_template.append(message, m_path);
  File& file = fileOf(m_path, header);
  file.text += record;
  m_waitingBytes += record.size();
  if (file.text.size() >= kBlockBytes) {
    write(file);
  } else if (m_waitingBytes >= kMostBytes) {
    writeAll();
  }
}

SplitOutput::File& SplitOutput::fileOf(const std::string& path, std::string_view header) {
  const auto found = m_files.find(path);
  if (found != m_files.end()) {
    return *found->second;
  }
  auto file = std::make_unique<File>();
  try {
    if (m_files.size() >= m_options.mostFiles) {
      throw UsageError("--split-by needs more than " + counted(m_options.mostFiles, "file") + " (--max-files)");
    }
    m_options.open(file->file, path);
    if (const int code = file->file.pause()) {
      throw OutputError(path, code);
    }
  } catch (const std::exception&) {
    writeAll();  // the run ends, and what was read before is not lost
    throw;
  }
  file->text = header;
  m_waitingBytes += header.size();
  return *m_files.emplace(path, std::move(file)).first->second;
}

void SplitOutput::write(File& file) {
  std::string_view bytes = file.text;
  if (m_compressor != nullptr) {
    m_packed.clear();
    m_compressor->append(bytes, Compressor::Then::End, m_packed);
    bytes = m_packed;
  }
  int code = file.file.resume();
  if (code == 0 && std::exchange(file.hasOldContents, false)) {
    code = file.file.dropOldContents();
  }
  if (code == 0) {
    errno = 0;
    const auto sizeBytes = static_cast<std::streamsize>(bytes.size());
    const BlockingWrite write;
    code = file.file.sputn(bytes.data(), sizeBytes) == sizeBytes ? 0 : errno != 0 ? errno : EIO;
  }
  if (code == 0) {
    code = file.file.pause();
  }
  if (code != 0) {
    throw OutputError(file.file.path(), code);
  }
  m_waitingBytes -= file.text.size();
  std::string().swap(file.text);  // many files keep no memory
}

void SplitOutput::writeAll() {
  for (const auto& [path, file] : m_files) {
    if (!file->text.empty()) {
      write(*file);
    }
  }
}

void SplitOutput::finish() {
  const std::lock_guard lock(m_mutex);
  writeAll();
}

}  // namespace MD::tool
