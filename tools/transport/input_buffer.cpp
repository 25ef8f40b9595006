#include "transport/input_buffer.h"

#include <cstring>

#include <algorithm>
#include <string>

#if defined(MDMSG_HAS_ZLIB)
#include <zlib.h>
#endif

#include "base/diagnostics.h"

namespace MD::tool {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 16;
constexpr std::string_view kGzipMagic = "\x1f\x8b";

}  // namespace

#if defined(MDMSG_HAS_ZLIB)

/// The state of a decompression.
class InputBuffer::Inflater {
 public:
  Inflater() : m_input(kBufferBytes) {
    constexpr int kGzipOnly = 16 + MAX_WBITS;
    if (inflateInit2(&m_stream, kGzipOnly) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~Inflater() { inflateEnd(&m_stream); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  void feed(const char* bytes, std::size_t sizeBytes) {
    std::memcpy(m_input.data(), bytes, sizeBytes);
    setInput(sizeBytes);
  }

  /// @param readMore  gives bytes of the source, 0 at its end
  template <class ReadMore>
  std::size_t read(char* to, std::size_t room, ReadMore readMore) {
    m_stream.next_out = zlibBytes(to);
    m_stream.avail_out = static_cast<uInt>(room);
    while (m_stream.avail_out == room) {
      if (m_stream.avail_in == 0) {
        setInput(readMore(m_input.data(), m_input.size()));
      }
      if (m_stream.avail_in == 0) {
        if (m_isBetweenMembers) {
          return 0;
        }
        throw InputError("the compressed data is truncated");
      }
      if (m_isBetweenMembers && *m_stream.next_in != static_cast<std::uint8_t>(kGzipMagic[0])) {
        throw InputError("bytes that are no gzip data stand behind the compressed data");
      }
      m_isBetweenMembers = false;
      const int code = inflate(&m_stream, Z_NO_FLUSH);
      if (code == Z_STREAM_END) {
        m_isBetweenMembers = true;
        inflateReset(&m_stream);
      } else if (code != Z_OK && code != Z_BUF_ERROR) {
        if (m_stream.avail_out != room) {
          break;  // data before the corruption is returned first; the next call detects it again
        }
        throw InputError("the compressed data is corrupted (" +
                         std::string(m_stream.msg != nullptr ? m_stream.msg : "no reason known") + ')');
      }
    }
    return room - m_stream.avail_out;
  }

 private:
  static Bytef* zlibBytes(void* bytes) { return static_cast<Bytef*>(bytes); }

  void setInput(std::size_t sizeBytes) {
    m_stream.next_in = zlibBytes(m_input.data());
    m_stream.avail_in = static_cast<uInt>(sizeBytes);
  }

  z_stream m_stream{};
  std::vector<char> m_input;
  bool m_isBetweenMembers = false;
};

#else

class InputBuffer::Inflater {
 public:
  Inflater() { throw InputError("the input is compressed, and this mdmsg was built without zlib; gunzip it first"); }
  void feed(const char*, std::size_t) {}
  template <class ReadMore>
  std::size_t read(char*, std::size_t, ReadMore) {
    return 0;
  }
};

#endif

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

/// Puts at least one byte behind those that are still to be read. @return false at the end
bool InputBuffer::fill() {
  const auto left = static_cast<std::size_t>(egptr() - gptr());
  std::memmove(m_buffer.data(), gptr(), left);
  setg(m_buffer.data(), m_buffer.data(), m_buffer.data() + left);
  char* const to = m_buffer.data() + left;
  const std::size_t room = m_buffer.size() - left;
  if (!m_isRecognised) {
    m_isRecognised = true;
    if (isCompressed()) {
      m_inflater = std::make_unique<Inflater>();
      m_inflater->feed(m_head.data(), m_head.size());
      m_head.clear();
    }
  }
  std::size_t count = 0;
  if (m_inflater != nullptr) {
    count = inflateSome(to, room);
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

std::size_t InputBuffer::inflateSome(char* to, std::size_t room) {
  return m_inflater->read(to, room, [this](char* bytes, std::size_t size) { return readSource(bytes, size); });
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

/// Reads the first bytes into m_head and tells by them.
bool InputBuffer::isCompressed() {
  while (m_head.size() < kGzipMagic.size() && kGzipMagic.substr(0, m_head.size()) == m_head) {
    char bytes[kGzipMagic.size()];
    const std::size_t count = readSource(bytes, kGzipMagic.size() - m_head.size());
    if (count == 0) {
      return false;
    }
    m_head.append(bytes, count);
  }
  return m_head == kGzipMagic;
}

}  // namespace MD::tool
