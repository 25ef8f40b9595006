#include "transport/open_messages.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "text/hex_reader.h"
#include "text/line_reader.h"
#include "transport/capture.h"
#include "transport/frame_cursor.h"

namespace MD::tool {
namespace {

/// Appends up to `wanted` bytes to `bytes`; memory use depends on the bytes that are present, not on `wanted`.
void readBehind(InputBuffer& in, std::size_t wanted, Output& out, std::vector<std::uint8_t>& bytes) {
  constexpr std::size_t kStep = std::size_t{1} << 20;
  while (wanted != 0) {
    const std::size_t step = std::min(wanted, kStep);
    if (in.in_avail() < static_cast<std::streamsize>(step)) {
      // There may be a wait for the rest.
      out.flush();
    }
    const std::size_t start = bytes.size();
    bytes.resize(start + step);
    void* const to = bytes.data() + start;
    const auto count = static_cast<std::size_t>(in.sgetn(static_cast<char*>(to), static_cast<std::streamsize>(step)));
    bytes.resize(start + count);
    if (count != step) {
      return;
    }
    wanted -= step;
  }
}

class HexLineSource : public MessageSource {
 public:
  HexLineSource(InputBuffer& in, std::uint32_t longestBytes, Output& out, Reporter& reporter)
      : m_lines(in, out, kCharactersPerByte * std::uint64_t{longestBytes}), m_reporter(reporter) {}

  bool next(InputMessage& message) override {
    std::string_view line;
    do {
      if (!m_lines.nextFilled(line, m_reporter)) {
        return false;
      }
    } while (isPassedOver(line));
    parseHex(line, Blanks::BetweenBytes, m_bytes);
    m_hasHex = true;
    message = {};
    message.line = line;
    message.data = m_bytes.data();
    message.sizeBytes = m_bytes.size();
    return true;
  }

  bool looksBinary() const noexcept override { return m_isBinaryReported; }

 private:
  /// Whether a line is binary, as all lines before it. These are reported as one.
  bool isPassedOver(std::string_view line) {
    if (m_hasHex || !isBinary(line)) {
      return false;
    }
    if (!std::exchange(m_isBinaryReported, true)) {
      m_reporter.wholeInput("looks binary, not like hex lines; try --framing or --from raw");
    }
    return true;
  }

  /// Whether a line that should be hex digits has characters that text does not have.
  static bool isBinary(std::string_view line) noexcept {
    constexpr std::size_t kLongest = 4096;
    return std::any_of(
        line.begin(), line.begin() + static_cast<std::ptrdiff_t>(std::min(line.size(), kLongest)),
        [](char c) { return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f' || (c & '\x80') != 0; });
  }

  /// Two digits and a space.
  static constexpr unsigned kCharactersPerByte = 3;

  LineReader m_lines;
  Reporter& m_reporter;
  std::vector<std::uint8_t> m_bytes;
  bool m_hasHex = false;
  bool m_isBinaryReported = false;
};

class LineSource : public MessageSource {
 public:
  LineSource(InputBuffer& in, std::uint32_t longestBytes, Output& out, Reporter& reporter)
      : m_lines(in, out, longestBytes), m_reporter(reporter) {}

  bool next(InputMessage& message) override {
    std::string_view line;
    if (!m_lines.nextFilled(line, m_reporter)) {
      return false;
    }
    const void* const text = line.data();
    message = {};
    message.data = static_cast<const std::uint8_t*>(text);
    message.sizeBytes = line.size();
    return true;
  }

 private:
  LineReader m_lines;
  Reporter& m_reporter;
};

class RawSource : public MessageSource {
 public:
  RawSource(InputBuffer& in, std::uint32_t longestBytes, Output& out, Reporter& reporter)
      : m_in(in), m_longestBytes(longestBytes), m_out(out), m_reporter(reporter) {}

  bool next(InputMessage& message) override {
    if (m_isRead) {
      return false;
    }
    m_isRead = true;
    m_reporter.setPlace({Place::Kind::Whole, 0, 0});
    // One byte more is enough to see that it is too long.
    try {
      readBehind(m_in, std::size_t{m_longestBytes} + 1, m_out, m_bytes);
    } catch (const std::bad_alloc&) {
      std::vector<std::uint8_t>().swap(m_bytes);
      throw outOfMemory();
    }
    if (m_bytes.size() > m_longestBytes) {
      std::vector<std::uint8_t>().swap(m_bytes);
      throw tooLongToRead("the message", m_longestBytes);
    }
    if (m_bytes.empty()) {
      throw LineError("the input is empty");
    }
    message = {};
    message.data = m_bytes.data();
    message.sizeBytes = m_bytes.size();
    return true;
  }

 private:
  InputBuffer& m_in;
  std::uint32_t m_longestBytes;
  Output& m_out;
  Reporter& m_reporter;
  std::vector<std::uint8_t> m_bytes;
  bool m_isRead = false;
};

class FramedSource : public MessageSource {
 public:
  FramedSource(InputBuffer& in, const SourceOptions& options, Output& out, Reporter& reporter)
      : m_in(in),
        m_frames(options.framing, options.longestMessageBytes),
        m_longestBytes(options.longestMessageBytes),
        m_out(out),
        m_reporter(reporter) {}

  bool next(InputMessage& message) override {
    m_in.skipBuffered(m_frames.passedBytes() - m_skippedBytes);
    m_skippedBytes = 0;
    message = {};
    // A message that is in memory is not copied.
    const void* const buffered = m_in.buffered().data();
    m_frames.continueIn(static_cast<const std::uint8_t*>(buffered), m_in.buffered().size(), m_in.position());
    if (m_frames.next(message)) {
      m_skippedBytes = m_frames.passedBytes();
      m_in.skipBuffered(m_skippedBytes);
      m_reporter.setPlace(m_frames.place());
      return true;
    }
    m_frames.continueIn(nullptr, 0, m_in.position());
    m_frames.countOther();
    m_reporter.setPlace(m_frames.place());
    m_bytes.clear();
    readBehind(m_in, m_frames.prefixBytes(), m_out, m_bytes);
    if (m_bytes.empty()) {
      return false;
    }
    if (m_bytes.size() != m_frames.prefixBytes()) {
      throw InputError("the input is truncated within the length of message " + std::to_string(m_frames.number()));
    }
    const std::size_t sizeBytes = m_frames.length(m_bytes.data());
    m_bytes.clear();
    if (sizeBytes > m_longestBytes) {
      skip(sizeBytes, 0);
      throw tooLongToRead("the message", m_longestBytes);
    }
    try {
      readBehind(m_in, sizeBytes, m_out, m_bytes);
    } catch (const std::bad_alloc&) {
      const std::size_t readBytes = m_bytes.size();
      std::vector<std::uint8_t>().swap(m_bytes);
      skip(sizeBytes, readBytes);
      throw outOfMemory();
    }
    if (m_bytes.size() != sizeBytes) {
      throw truncatedIn(m_bytes.size(), sizeBytes);
    }
    message.data = m_bytes.data();
    message.sizeBytes = m_bytes.size();
    return true;
  }

  FrameCursor* frames() noexcept override { return &m_frames; }

 private:
  /// Reads and discards the bytes of a message after those that have been read.
  void skip(std::size_t sizeBytes, std::size_t readBytes) {
    constexpr std::size_t kStep = std::size_t{1} << 16;
    while (readBytes != sizeBytes) {
      const std::size_t step = std::min(sizeBytes - readBytes, kStep);
      m_bytes.clear();
      readBehind(m_in, step, m_out, m_bytes);
      readBytes += m_bytes.size();
      if (m_bytes.size() != step) {
        throw truncatedIn(readBytes, sizeBytes);
      }
    }
  }

  InputError truncatedIn(std::size_t readBytes, std::size_t sizeBytes) const {
    return InputError("the input is truncated within message " + std::to_string(m_frames.number()) +
                      ", of which it has " + std::to_string(readBytes) + " of " + std::to_string(sizeBytes) + " bytes");
  }

  InputBuffer& m_in;
  FrameCursor m_frames;
  std::size_t m_skippedBytes = 0;  // of those that it has passed
  std::uint32_t m_longestBytes;
  Output& m_out;
  Reporter& m_reporter;
  std::vector<std::uint8_t> m_bytes;
};

}  // namespace

std::unique_ptr<MessageSource> openMessages(InputBuffer& in, const SourceOptions& options, Output& out,
                                            Reporter& reporter) {
  InputForm form = options.form;
  if (form == InputForm::Recognised) {
    out.flush();
    form = isCapture(in.peek(kCaptureMagicBytes)) ? InputForm::Capture : InputForm::HexLines;
  }
  if (form != InputForm::Capture && options.selectsDatagrams()) {
    throw UsageError("--port, --group and --filter require a capture, which " + pathText(reporter.input()) + " is not");
  }
  switch (form) {
    case InputForm::Lines:
      return std::make_unique<LineSource>(in, options.longestMessageBytes, out, reporter);
    case InputForm::Raw:
      return std::make_unique<RawSource>(in, options.longestMessageBytes, out, reporter);
    case InputForm::Framed:
      return std::make_unique<FramedSource>(in, options, out, reporter);
    case InputForm::Capture:
      return openCapture(in, options, out, reporter);
    case InputForm::HexLines:
    case InputForm::Recognised:
      break;
  }
  return std::make_unique<HexLineSource>(in, options.longestMessageBytes, out, reporter);
}

}  // namespace MD::tool
