// The messages of a stream with length prefixes, as far as they are in memory.
#ifndef MDMSG_FRAME_CURSOR_H
#define MDMSG_FRAME_CURSOR_H

#include <cstddef>
#include <cstdint>

#include "base/diagnostics.h"
#include "transport/message_source.h"

namespace MD::tool {

/// Steps from message to message without copying, and without the calls that reading from a source takes.
class FrameCursor {
 public:
  /// Has no bytes.
  FrameCursor() = default;
  /// @param longestBytes  of a message
  FrameCursor(Framing framing, std::uint32_t longestBytes) : m_framing(framing), m_longestBytes(longestBytes) {}

  /// Continues in these bytes, which begin with the length of a message and outlive its use.
  /// @param offset  of the first one in the input
  void continueIn(const std::uint8_t* bytes, std::size_t sizeBytes, std::uint64_t offset) noexcept {
    m_begin = m_last = m_next = bytes;
    m_end = bytes + sizeBytes;
    m_offset = offset;
  }

  /// The same bytes are now here, and none of them has been passed.
  void moveTo(const std::uint8_t* bytes) noexcept {
    continueIn(bytes, static_cast<std::size_t>(m_end - m_next), m_offset + passedBytes());
  }

  /// Steps to the next message and sets its bytes and its number; what else there is of `message` stays.
  /// @return false, and nothing has changed, if its bytes are not all there, or are too many
  bool next(InputMessage& message) noexcept {
    const auto there = static_cast<std::size_t>(m_end - m_next);
    if (there < m_framing.sizeBytes) {
      return false;
    }
    const std::size_t sizeBytes = length(m_next);
    if (there - m_framing.sizeBytes < sizeBytes || sizeBytes > m_longestBytes) {
      return false;
    }
    m_last = m_next;
    message.data = m_next + m_framing.sizeBytes;
    message.sizeBytes = sizeBytes;
    message.number = ++m_number;
    m_next += m_framing.sizeBytes + sizeBytes;
    return true;
  }
  /// Counts a message that was read from elsewhere.
  void countOther() noexcept { ++m_number; }

  /// Passes all messages that next() would step to. @return a cursor that has no bytes but theirs
  FrameCursor takeAll() noexcept {
    FrameCursor all = *this;
    for (InputMessage message; next(message);) {
    }
    all.m_end = m_next;
    return all;
  }

  /// The length of a message, from the bytes before it.
  std::size_t length(const std::uint8_t* bytes) const noexcept {
    const auto pair = [&](std::size_t low, std::size_t high) {
      return std::size_t{bytes[low]} | std::size_t{bytes[high]} << 8;
    };
    if (m_framing.sizeBytes == 2) {
      return m_framing.isBigEndian ? pair(1, 0) : pair(0, 1);
    }
    return m_framing.isBigEndian ? pair(3, 2) | pair(1, 0) << 16 : pair(0, 1) | pair(2, 3) << 16;
  }

  std::uint8_t prefixBytes() const noexcept { return m_framing.sizeBytes; }
  /// The bytes that next() goes on with.
  const std::uint8_t* data() const noexcept { return m_next; }
  std::size_t sizeBytes() const noexcept { return static_cast<std::size_t>(m_end - m_next); }
  /// How many bytes have been stepped over since continueIn().
  std::size_t passedBytes() const noexcept { return static_cast<std::size_t>(m_next - m_begin); }
  /// How many messages there have been, in all bytes.
  std::uint64_t number() const noexcept { return m_number; }
  /// Where the last message is.
  Place place() const noexcept {
    return {Place::Kind::Message, m_number, m_offset + static_cast<std::uint64_t>(m_last - m_begin)};
  }

 private:
  Framing m_framing;
  std::uint32_t m_longestBytes = 0;
  const std::uint8_t* m_begin = nullptr;
  const std::uint8_t* m_last = nullptr;
  const std::uint8_t* m_next = nullptr;
  const std::uint8_t* m_end = nullptr;
  std::uint64_t m_offset = 0;  // of m_begin
  std::uint64_t m_number = 0;
};

}  // namespace MD::tool

#endif
