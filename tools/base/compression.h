// Compressed data, gzip and zstd, as far as the program is built with their libraries.
#ifndef MDMSG_COMPRESSION_H
#define MDMSG_COMPRESSION_H

#include <cstddef>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace MD::tool {

enum class CompressionKind { None, Gzip, Zstd };

struct Compression {
  CompressionKind kind = CompressionKind::None;
  int level = 0;  ///< 0: the library's own choice
};

/// "gzip", "zstd", "none", the first two also with a level: "zstd:19".
/// @throws UsageError for any other text, and where the program was built without the library
Compression parseCompression(const std::string& text);
/// By the end of a file's name, ".gz" or ".zst". @throws UsageError where the program was built without the library
Compression compressionOf(const std::string& path);

class Compressor {
 public:
  enum class Then {
    GoOn,
    Flush,  ///< everything so far can be read from what is appended
    End,    ///< so it can, and the next call begins anew
  };

  virtual ~Compressor() = default;

  /// Compresses `bytes` and appends what is ready.
  virtual void append(std::string_view bytes, Then then, std::string& out) = 0;
};

/// Null for None.
std::unique_ptr<Compressor> makeCompressor(const Compression& compression);

/// So many first bytes decide whether data is compressed.
constexpr std::size_t kCompressionMagicBytes = 4;
/// What data is that begins so; nothing while that depends on further bytes.
std::optional<CompressionKind> recogniseCompression(std::string_view firstBytes) noexcept;

/// Decompresses data, also of several members or frames, in bounded memory.
class Decompressor {
 public:
  /// Reads bytes of the source, at least one; 0 at its end.
  using ReadMore = std::function<std::size_t(char* to, std::size_t room)>;

  virtual ~Decompressor() = default;

  /// @return how many bytes were put there, 0 at the end
  /// @throws InputError when the data is truncated or corrupted; what comes before was returned
  virtual std::size_t read(char* to, std::size_t room) = 0;
};

/// @param kind        Gzip or Zstd
/// @param firstBytes  bytes that have been read of the source
/// @throws InputError where the program was built without the library
std::unique_ptr<Decompressor> makeDecompressor(CompressionKind kind, std::string_view firstBytes,
                                               Decompressor::ReadMore readMore);

}  // namespace MD::tool

#endif
