#include "transport/input_buffer.h"

#include <cstring>

#include <algorithm>
#include <optional>

namespace MD::tool {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 16;

}  // namespace

InputBuffer::InputBuffer(std::streambuf& source) : m_source(source), m_buffer(kBufferBytes) {
  setg(m_buffer.data(), m_buffer.data(), m_buffer.data());
}

InputBuffer::~InputBuffer() = default;

std::string_view InputBuffer::peek(std::size_t wanted) {
  while (static_cast<std::size_t>(egptr() - gptr()) < wanted && fill()) {
  }
  return {gptr(), std::min(wanted, static_cast<std::size_t>(egptr() - gptr()))};
}

InputBuffer::int_type InputBuffer::underflow() {
  return gptr() != egptr() || fill() ? traits_type::to_int_type(*gptr()) : traits_type::eof();
}

/// Appends at least one byte to those that are still to be read. @return false at the end
bool InputBuffer::fill() {
  const auto left = static_cast<std::size_t>(egptr() - gptr());
  std::memmove(m_buffer.data(), gptr(), left);
  setg(m_buffer.data(), m_buffer.data(), m_buffer.data() + left);
  char* const to = m_buffer.data() + left;
  const std::size_t room = m_buffer.size() - left;
  if (!m_isRecognised) {
    m_isRecognised = true;
    recognise();
  }
  std::size_t count = 0;
  if (m_decompressor != nullptr) {
    count = m_decompressor->read(to, room);
  } else if (!m_head.empty()) {
    count = m_head.size();
    std::memcpy(to, m_head.data(), count);
    m_head.clear();
  } else {
    count = readSource(to, room);
  }
  m_filled += count;
  setg(m_buffer.data(), m_buffer.data(), to + count);
  return count != 0;
}

/// Reads what the source has ready, at least a byte: a read for a whole buffer would wait until a slow writer has
/// filled it. @return 0 at the end
std::size_t InputBuffer::readSource(char* to, std::size_t room) {
  if (m_source.sgetc() == traits_type::eof()) {
    return 0;
  }
  const std::streamsize ready = std::max<std::streamsize>(m_source.in_avail(), 1);
  const auto count = static_cast<std::size_t>(m_source.sgetn(to, std::min(ready, static_cast<std::streamsize>(room))));
  m_sourceBytes += count;
  return count;
}

/// Reads the first bytes into m_head and goes by them.
void InputBuffer::recognise() {
  std::optional<CompressionKind> kind;
  while (!(kind = recogniseCompression(m_head))) {
    char bytes[kCompressionMagicBytes];
    const std::size_t count = readSource(bytes, kCompressionMagicBytes - m_head.size());
    if (count == 0) {
      return;
    }
    m_head.append(bytes, count);
  }
  if (*kind != CompressionKind::None) {
    m_decompressor =
        makeDecompressor(*kind, m_head, [this](char* to, std::size_t room) { return readSource(to, room); });
    m_head.clear();
  }
}

}  // namespace MD::tool
