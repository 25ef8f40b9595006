#include "base/compression.h"

#include <cstdint>
#include <cstring>

#include <algorithm>
#include <charconv>
#include <new>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "base/quoted_text.h"

#if defined(MDMSG_HAS_ZLIB)
#include <zlib.h>
#endif
#if defined(MDMSG_HAS_ZSTD)
#include <zstd.h>
#include <zstd_errors.h>
#endif

namespace MD::tool {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 16;

#if defined(MDMSG_HAS_ZLIB)
constexpr bool kHasGzip = true;
#else
constexpr bool kHasGzip = false;
#endif
#if defined(MDMSG_HAS_ZSTD)
constexpr bool kHasZstd = true;
#else
constexpr bool kHasZstd = false;
#endif

constexpr struct {
  CompressionKind kind;
  std::string_view name;
  std::string_view ending;
  const char* library;
  const char* unpacker;
  bool isThere;
  int mostLevel;
} kKinds[] = {{CompressionKind::Gzip, "gzip", ".gz", "zlib", "gunzip", kHasGzip, 9},
              {CompressionKind::Zstd, "zstd", ".zst", "zstd", "unzstd", kHasZstd, 22}};

#if defined(MDMSG_HAS_ZLIB) || defined(MDMSG_HAS_ZSTD)

/// The compressed bytes that have been read of a source.
class CompressedInput {
 public:
  CompressedInput(std::string_view firstBytes, Decompressor::ReadMore readMore)
      : m_bytes(firstBytes.begin(), firstBytes.end()), m_readMore(std::move(readMore)) {}

  std::string_view bytes() const noexcept { return {m_bytes.data(), m_bytes.size()}; }
  /// Reads others in the place of these. @return false at the end of the source
  bool next() {
    m_bytes.resize(kBufferBytes);
    m_bytes.resize(m_readMore(m_bytes.data(), m_bytes.size()));
    return !m_bytes.empty();
  }

 private:
  std::vector<char> m_bytes;
  Decompressor::ReadMore m_readMore;
};

InputError truncated() { return InputError("the compressed data is truncated"); }
InputError corrupted(const char* reason) {
  return InputError("the compressed data is corrupted (" + std::string(reason != nullptr ? reason : "no reason known") +
                    ')');
}
InputError foreign(const char* name) {
  return InputError("bytes that are not " + std::string(name) + " data follow the compressed data");
}

/// Appends what `step` writes into the room that it is given, until it says that there is no more.
/// @param step  (char* to, std::size_t room, bool& isMore) -> how much was written
template <class Step>
void appendSteps(std::string& out, Step step) {
  for (bool isMore = true; isMore;) {
    const std::size_t start = out.size();
    out.resize(start + kBufferBytes);
    out.resize(start + step(&out[start], kBufferBytes, isMore));
  }
}

#endif

#if defined(MDMSG_HAS_ZLIB)

constexpr int kGzipOnly = 16 + MAX_WBITS;

Bytef* zlibBytes(void* bytes) { return static_cast<Bytef*>(bytes); }

class GzipDecompressor final : public Decompressor {
 public:
  GzipDecompressor(std::string_view firstBytes, ReadMore readMore) : m_input(firstBytes, std::move(readMore)) {
    if (inflateInit2(&m_stream, kGzipOnly) != Z_OK) {
      throw std::bad_alloc();
    }
    useInput();
  }
  ~GzipDecompressor() override { inflateEnd(&m_stream); }

  std::size_t read(char* to, std::size_t room) override {
    m_stream.next_out = zlibBytes(to);
    m_stream.avail_out = static_cast<uInt>(room);
    while (m_stream.avail_out == room) {
      if (m_stream.avail_in == 0) {
        if (!m_input.next()) {
          if (m_isBetweenMembers) {
            return 0;
          }
          throw truncated();
        }
        useInput();
      }
      if (m_isBetweenMembers && *m_stream.next_in != 0x1f) {
        throw foreign("gzip");
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
        throw corrupted(m_stream.msg);
      }
    }
    return room - m_stream.avail_out;
  }

 private:
  void useInput() {
    m_stream.next_in = zlibBytes(const_cast<char*>(m_input.bytes().data()));
    m_stream.avail_in = static_cast<uInt>(m_input.bytes().size());
  }

  CompressedInput m_input;
  z_stream m_stream{};
  bool m_isBetweenMembers = false;
};

class GzipCompressor final : public Compressor {
 public:
  explicit GzipCompressor(int level) {
    constexpr int kMemoryLevel = 8;
    if (deflateInit2(&m_stream, level == 0 ? Z_DEFAULT_COMPRESSION : level, Z_DEFLATED, kGzipOnly, kMemoryLevel,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~GzipCompressor() override { deflateEnd(&m_stream); }

  void append(std::string_view bytes, Then then, std::string& out) override {
    constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;
    for (; bytes.size() > kMostAtOnce; bytes.remove_prefix(kMostAtOnce)) {
      appendPart(bytes.substr(0, kMostAtOnce), Z_NO_FLUSH, out);
    }
    appendPart(bytes, then == Then::End ? Z_FINISH : then == Then::Flush ? Z_SYNC_FLUSH : Z_NO_FLUSH, out);
    if (then == Then::End) {
      deflateReset(&m_stream);
    }
  }

 private:
  void appendPart(std::string_view bytes, int flush, std::string& out) {
    m_stream.next_in = zlibBytes(const_cast<char*>(bytes.data()));
    m_stream.avail_in = static_cast<uInt>(bytes.size());
    appendSteps(out, [&](char* to, std::size_t room, bool& isMore) {
      m_stream.next_out = zlibBytes(to);
      m_stream.avail_out = static_cast<uInt>(room);
      deflate(&m_stream, flush);
      isMore = m_stream.avail_out == 0;
      return room - m_stream.avail_out;
    });
  }

  z_stream m_stream{};
};

#endif

#if defined(MDMSG_HAS_ZSTD)

/// The largest window that is decompressed, as a power of two: 128 MiB, which is what level 22 takes. Memory follows
/// it.
constexpr int kMostWindowLog = 27;

class ZstdDecompressor final : public Decompressor {
 public:
  ZstdDecompressor(std::string_view firstBytes, ReadMore readMore)
      : m_input(firstBytes, std::move(readMore)), m_context(ZSTD_createDCtx()) {
    if (m_context == nullptr || ZSTD_isError(ZSTD_DCtx_setParameter(m_context, ZSTD_d_windowLogMax, kMostWindowLog))) {
      ZSTD_freeDCtx(m_context);
      throw std::bad_alloc();
    }
  }
  ~ZstdDecompressor() override { ZSTD_freeDCtx(m_context); }

  std::size_t read(char* to, std::size_t room) override {
    if (m_error) {
      throw InputError(*m_error);
    }
    ZSTD_outBuffer out{to, room, 0};
    while (out.pos == 0) {
      // Where all room was used, there may be more without further input.
      if (m_read == m_input.bytes().size() && !m_isFull) {
        m_read = 0;
        if (!m_input.next()) {
          if (m_isBetweenFrames) {
            return 0;
          }
          throw truncated();
        }
      }
      // A block at a time: of a call that fails, nothing is returned.
      const std::string_view there = m_input.bytes();
      ZSTD_inBuffer in{there.data(), m_read + std::min(there.size() - m_read, m_wanted), m_read};
      const std::size_t code = ZSTD_decompressStream(m_context, &out, &in);
      m_read = in.pos;
      if (ZSTD_isError(code) != 0) {
        m_error = errorOf(code);
        if (out.pos == 0) {
          throw InputError(*m_error);
        }
        break;
      }
      m_isBetweenFrames = code == 0;
      m_wanted = code == 0 ? kFrameStartBytes : code;
      m_isFull = code != 0 && out.pos == out.size;
    }
    return out.pos;
  }

 private:
  static InputError errorOf(std::size_t code) {
    switch (ZSTD_getErrorCode(code)) {
      case ZSTD_error_prefix_unknown:
        return foreign("zstd");
      case ZSTD_error_frameParameter_windowTooLarge:
        return InputError("the compressed data needs a window of more than " +
                          std::to_string((std::uint64_t{1} << kMostWindowLog) >> 20) + " MiB");
      case ZSTD_error_memory_allocation:
        return InputError("there is not enough memory to decompress it");
      default:
        return corrupted(ZSTD_getErrorName(code));
    }
  }

  static constexpr std::size_t kFrameStartBytes = 5;

  CompressedInput m_input;
  std::size_t m_read = 0;                   // of the input's bytes
  std::size_t m_wanted = kFrameStartBytes;  // how many of the next ones the frame's next part has
  ZSTD_DCtx* m_context;
  bool m_isBetweenFrames = false;
  bool m_isFull = false;
  std::optional<InputError> m_error;  // after the data that has been returned
};

class ZstdCompressor final : public Compressor {
 public:
  explicit ZstdCompressor(int level) : m_context(ZSTD_createCCtx()) {
    if (m_context == nullptr || ZSTD_isError(ZSTD_CCtx_setParameter(m_context, ZSTD_c_compressionLevel, level)) ||
        ZSTD_isError(ZSTD_CCtx_setParameter(m_context, ZSTD_c_checksumFlag, 1))) {
      ZSTD_freeCCtx(m_context);
      throw std::bad_alloc();
    }
  }
  ~ZstdCompressor() override { ZSTD_freeCCtx(m_context); }

  void append(std::string_view bytes, Then then, std::string& out) override {
    const ZSTD_EndDirective directive = then == Then::End     ? ZSTD_e_end
                                        : then == Then::Flush ? ZSTD_e_flush
                                                              : ZSTD_e_continue;
    ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
    appendSteps(out, [&](char* to, std::size_t room, bool& isMore) {
      ZSTD_outBuffer step{to, room, 0};
      const std::size_t left = ZSTD_compressStream2(m_context, &step, &in, directive);
      if (ZSTD_isError(left) != 0) {
        throw std::bad_alloc();  // the one that valid parameters leave
      }
      isMore = then == Then::GoOn ? in.pos != in.size : left != 0;
      return step.pos;
    });
  }

 private:
  ZSTD_CCtx* m_context;
};

#endif

const auto& rowOf(CompressionKind kind) { return kKinds[kind == CompressionKind::Gzip ? 0 : 1]; }

UsageError withoutLibrary(const char* library) {
  return UsageError("this mdmsg was built without " + std::string(library) + " and cannot compress with it");
}

}  // namespace

Compression parseCompression(const std::string& text) {
  const std::string name = text.substr(0, text.find(':'));
  for (const auto& row : kKinds) {
    if (name != row.name) {
      continue;
    }
    Compression compression{row.kind, 0};
    if (name.size() != text.size()) {
      const char* const end = text.data() + text.size();
      const auto [at, error] = std::from_chars(text.data() + name.size() + 1, end, compression.level);
      if (error != std::errc() || at != end || compression.level < 1 || compression.level > row.mostLevel) {
        throw UsageError("--compress: the level of " + name + " is 1 to " + std::to_string(row.mostLevel));
      }
    }
    if (!row.isThere) {
      throw withoutLibrary(row.library);
    }
    return compression;
  }
  if (text != "none") {
    throw UsageError("--compress: " + inQuotes(text) +
                     " is not one of gzip, zstd, none, gzip:1 to gzip:9, zstd:1 to zstd:22");
  }
  return {};
}

Compression compressionOf(const std::string& path) {
  for (const auto& row : kKinds) {
    if (path.size() > row.ending.size() && path.compare(path.size() - row.ending.size(), path.npos, row.ending) == 0) {
      if (!row.isThere) {
        throw UsageError(pathText(path) + ": " + withoutLibrary(row.library).what() +
                         "; --compress none writes it as it is");
      }
      return {row.kind, 0};
    }
  }
  return {};
}

std::unique_ptr<Compressor> makeCompressor(const Compression& compression) {
  switch (compression.kind) {
#if defined(MDMSG_HAS_ZLIB)
    case CompressionKind::Gzip:
      return std::make_unique<GzipCompressor>(compression.level);
#endif
#if defined(MDMSG_HAS_ZSTD)
    case CompressionKind::Zstd:
      return std::make_unique<ZstdCompressor>(compression.level);
#endif
    default:
      return nullptr;
  }
}

std::optional<CompressionKind> recogniseCompression(std::string_view firstBytes) noexcept {
  // The last one is a frame that is skipped; the lower half of its first byte may be anything.
  constexpr struct {
    std::string_view bytes;
    std::uint8_t firstMask;
    CompressionKind kind;
  } kMagics[] = {{"\x1f\x8b", 0xff, CompressionKind::Gzip},
                 {"\x28\xb5\x2f\xfd", 0xff, CompressionKind::Zstd},
                 {"\x50\x2a\x4d\x18", 0xf0, CompressionKind::Zstd}};
  bool isOpen = false;
  for (const auto& magic : kMagics) {
    const std::string_view there = firstBytes.substr(0, magic.bytes.size());
    const bool isAlike = there.empty() || ((static_cast<std::uint8_t>(there[0]) & magic.firstMask) ==
                                               static_cast<std::uint8_t>(magic.bytes[0]) &&
                                           there.substr(1) == magic.bytes.substr(1, there.size() - 1));
    if (isAlike && there.size() == magic.bytes.size()) {
      return magic.kind;
    }
    isOpen = isOpen || isAlike;
  }
  return isOpen ? std::nullopt : std::optional(CompressionKind::None);
}

std::unique_ptr<Decompressor> makeDecompressor(CompressionKind kind, std::string_view firstBytes,
                                               Decompressor::ReadMore readMore) {
#if defined(MDMSG_HAS_ZLIB)
  if (kind == CompressionKind::Gzip) {
    return std::make_unique<GzipDecompressor>(firstBytes, std::move(readMore));
  }
#endif
#if defined(MDMSG_HAS_ZSTD)
  if (kind == CompressionKind::Zstd) {
    return std::make_unique<ZstdDecompressor>(firstBytes, std::move(readMore));
  }
#endif
  static_cast<void>(firstBytes);
  static_cast<void>(readMore);
  const auto& row = rowOf(kind);
  throw InputError("the input is compressed, and this mdmsg was built without " + std::string(row.library) + "; " +
                   row.unpacker + " it first");
}

}  // namespace MD::tool
