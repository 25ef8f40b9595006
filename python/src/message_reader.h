// Messages of files and bytes, read by the readers of the mdmsg tool. No Python in here: it runs without the
// interpreter lock.
#ifndef MD_PYTHON_MESSAGE_READER_H
#define MD_PYTHON_MESSAGE_READER_H

#include <cstddef>
#include <cstdint>

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"
#include "messages/selection.h"
#include "transport/input_buffer.h"
#include "transport/message_source.h"

namespace MD::python {

/// A file by its path, or bytes that outlive the reader.
struct Input {
  std::string path;  ///< or what to call the bytes
  const std::uint8_t* data = nullptr;
  std::size_t sizeBytes = 0;
  bool isFile = true;
};

/// A file cannot be opened or read.
struct FileError {
  std::string path;
  int code;
};

/// What the readers found.
struct ReadCounts {
  std::uint64_t messages = 0;   ///< parsed, whether they are selected or not
  std::uint64_t malformed = 0;  ///< messages and inputs that could not be used
  std::optional<tool::CaptureCounts> captures;
};

/// A message as it was found, or why there is none.
struct Found {
  enum class Kind { Message, Malformed, End };
  Kind kind = Kind::End;
  tool::InputMessage input;
  std::string reason;    ///< of Malformed
  bool isWhole = false;  ///< of Malformed: the input as a whole; the reason names a place where there is one
};

class MessageReader {
 public:
  /// @param inputs         read one after the other, each opened when it is its turn
  /// @param onInterruption  called when a signal interrupts the wait for a pipe; throws to end it
  MessageReader(std::vector<Input> inputs, tool::SourceOptions options, std::function<void()> onInterruption);
  ~MessageReader();

  /// Reads what comes next. The bytes are valid until the next call.
  /// @throws FileError, tool::UsageError, what onInterruption throws; nothing more can be read then
  Found next();
  /// Whether next() may have to wait for a file or a pipe.
  bool mayWait() const { return m_buffer == nullptr || m_buffer->in_avail() <= 0; }

  /// Of what next() returned last.
  const tool::Place& place() const noexcept { return m_reporter.currentPlace(); }
  std::string placeText() const { return m_reporter.place(); }
  const std::shared_ptr<const std::string>& input() const noexcept { return m_name; }

  ReadCounts& counts() noexcept { return m_counts; }

  /// Ends the reading.
  void close();

 private:
  class FileBuffer;
  class BytesBuffer;

  bool open(Found& found);
  void closeInput();
  Found malformed(const std::string& reason, bool isWhole);

  std::vector<Input> m_inputs;
  std::size_t m_next = 0;
  tool::SourceOptions m_options;
  std::ostream m_nowhere{nullptr};
  tool::Output m_output{m_nowhere};
  tool::Reporter m_reporter{m_nowhere, m_output};
  std::function<void()> m_onInterruption;
  std::unique_ptr<std::streambuf> m_bytes;  // of the input
  std::unique_ptr<tool::InputBuffer> m_buffer;
  std::unique_ptr<tool::MessageSource> m_source;
  std::shared_ptr<const std::string> m_name;
  std::optional<Found> m_kept;  // next() returns it
  bool m_isBinaryTold = false;  // of the input
  ReadCounts m_counts;
};

}  // namespace MD::python

#endif
