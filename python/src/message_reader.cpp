#include "message_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <utility>

#include "base/errors.h"
#include "transport/open_messages.h"

namespace MD::python {

/// Reads a file by the system's calls, so that signals can end a wait.
class MessageReader::FileBuffer : public std::streambuf {
 public:
  FileBuffer(std::string path, const std::function<void()>& onInterruption)
      : m_path(std::move(path)), m_onInterruption(onInterruption), m_buffer(kBufferBytes) {
    while ((m_descriptor = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC)) < 0) {
      continueAfter(errno);
    }
  }
  ~FileBuffer() override { ::close(m_descriptor); }
  FileBuffer(const FileBuffer&) = delete;
  FileBuffer& operator=(const FileBuffer&) = delete;

 protected:
  int_type underflow() override {
    ssize_t count = 0;
    while ((count = ::read(m_descriptor, m_buffer.data(), m_buffer.size())) < 0) {
      continueAfter(errno);
    }
    setg(m_buffer.data(), m_buffer.data(), m_buffer.data() + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(m_buffer[0]);
  }

 private:
  static constexpr std::size_t kBufferBytes = std::size_t{1} << 16;

  void continueAfter(int code) const {
    if (code != EINTR) {
      throw FileError{m_path, code};
    }
    m_onInterruption();
  }

  std::string m_path;
  const std::function<void()>& m_onInterruption;
  std::vector<char> m_buffer;
  int m_descriptor = -1;
};

/// Reads from memory.
class MessageReader::BytesBuffer : public std::streambuf {
 public:
  BytesBuffer(const std::uint8_t* bytes, std::size_t sizeBytes) {
    // The get area is not written to.
    char* const first = static_cast<char*>(static_cast<void*>(const_cast<std::uint8_t*>(bytes)));
    setg(first, first, first + sizeBytes);
  }
};

MessageReader::MessageReader(std::vector<Input> inputs, tool::SourceOptions options,
                             std::function<void()> onInterruption)
    : m_inputs(std::move(inputs)), m_options(std::move(options)), m_onInterruption(std::move(onInterruption)) {}

MessageReader::~MessageReader() = default;

Found MessageReader::malformed(const std::string& reason, bool isWhole) {
  ++m_counts.malformed;
  Found found;
  found.kind = Found::Kind::Malformed;
  found.reason = reason;
  found.isWhole = isWhole;
  return found;
}

Found MessageReader::next() {
  Found found;
  if (m_kept) {
    found = std::move(*m_kept);
    m_kept.reset();
    return found;
  }
  while (m_source != nullptr || open(found)) {
    if (m_source == nullptr) {
      return found;
    }
    try {
      const bool isThere = m_source->next(found.input);
      found.kind = isThere ? Found::Kind::Message : Found::Kind::End;
      const bool isBinaryNow = m_source->looksBinary() && !std::exchange(m_isBinaryTold, true);
      if (!isThere) {
        closeInput();
      }
      if (isBinaryNow) {
        // The message, if any, comes next.
        if (isThere) {
          m_kept = std::move(found);
        }
        return malformed("looks binary, not like hex lines; framing may be missing", true);
      }
      if (isThere) {
        return found;
      }
    } catch (const tool::LineError& error) {
      return malformed(error.what(), false);
    } catch (const tool::InputError& error) {
      found = malformed(error.what(), true);
      closeInput();
      return found;
    }
  }
  return found;
}

/// Opens the next input. @return false when there is none; where an input cannot be read at all, `found` says why and
/// there is no source
bool MessageReader::open(Found& found) {
  if (m_next == m_inputs.size()) {
    return false;
  }
  const Input& input = m_inputs[m_next++];
  m_name = std::make_shared<const std::string>(input.path);
  m_reporter.setInput(input.path);
  m_reporter.setPlace({tool::Place::Kind::Whole, 0, 0});
  m_isBinaryTold = false;
  try {
    if (input.isFile) {
      m_bytes = std::make_unique<FileBuffer>(input.path, m_onInterruption);
    } else {
      m_bytes = std::make_unique<BytesBuffer>(input.data, input.sizeBytes);
    }
    m_buffer = std::make_unique<tool::InputBuffer>(*m_bytes);
    m_source = tool::openMessages(*m_buffer, m_options, m_output, m_reporter);
  } catch (const tool::InputError& error) {
    found = malformed(error.what(), true);
    m_buffer.reset();
    m_bytes.reset();
  }
  return true;
}

void MessageReader::close() {
  m_kept.reset();
  m_next = m_inputs.size();
  if (m_source != nullptr) {
    closeInput();
  }
}

void MessageReader::closeInput() {
  if (const tool::CaptureCounts* const counts = m_source->counts()) {
    m_counts.captures = m_counts.captures.value_or(tool::CaptureCounts()) + *counts;
  }
  m_source.reset();
  m_buffer.reset();
  m_bytes.reset();
}

}  // namespace MD::python
