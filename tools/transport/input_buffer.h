// The bytes of an input, decompressed where they are compressed.
#ifndef MDMSG_INPUT_BUFFER_H
#define MDMSG_INPUT_BUFFER_H

#include <cstddef>
#include <cstdint>

#include <memory>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include "base/compression.h"

namespace MD::tool {

/// A buffer over another one that looks at the first bytes: what begins as gzip or zstd data does is decompressed, all
/// other input passes unchanged. Memory does not grow with the input.
///
/// Truncated or corrupted data is returned up to the corruption; the next read throws an InputError. It
/// comes out of the buffer's own functions (`sgetc`, `sgetn`); a std::istream would keep it to itself.
class InputBuffer : public std::streambuf {
 public:
  explicit InputBuffer(std::streambuf& source);
  ~InputBuffer() override;

  /// The bytes that come next, `wanted` of them or fewer when the input ends before; they are still to be read. Valid
  /// until the next read. `wanted` is at most 64.
  std::string_view peek(std::size_t wanted);

  /// How many bytes have come from the source: of a compressed input, compressed ones.
  std::uint64_t sourceBytes() const noexcept { return m_sourceBytes; }
  /// The number of bytes returned so far.
  std::uint64_t position() const noexcept { return m_filled - static_cast<std::uint64_t>(egptr() - gptr()); }

  /// The bytes that are in memory and still to be read, valid until the next read; there may be more in the source.
  std::string_view buffered() const noexcept { return {gptr(), static_cast<std::size_t>(egptr() - gptr())}; }
  /// Steps over bytes of buffered(), which stay valid until the next read.
  void skipBuffered(std::size_t count) noexcept { setg(eback(), gptr() + count, egptr()); }

 protected:
  int_type underflow() override;

 private:
  bool fill();
  std::size_t readSource(char* to, std::size_t room);
  void recognise();

  std::streambuf& m_source;
  std::vector<char> m_buffer;
  std::string m_head;  // bytes that were read to detect the format, until they are returned
  std::unique_ptr<Decompressor> m_decompressor;
  bool m_isRecognised = false;
  std::uint64_t m_sourceBytes = 0;
  std::uint64_t m_filled = 0;
};

}  // namespace MD::tool

#endif
