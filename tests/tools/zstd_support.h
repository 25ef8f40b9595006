// Data compressed by zstd for tests, where the program can read it.
#ifndef MD_TESTS_TOOLS_ZSTD_SUPPORT_H
#define MD_TESTS_TOOLS_ZSTD_SUPPORT_H

#if defined(MDMSG_HAS_ZSTD)

#include <string>

#include <gtest/gtest.h>
#include <zstd.h>

namespace MD::test {

inline std::string zstdCompressed(const std::string& text) {
  ZSTD_CCtx* const context = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
  std::string out(ZSTD_compressBound(text.size()), '\0');
  const std::size_t size = ZSTD_compress2(context, &out[0], out.size(), text.data(), text.size());
  EXPECT_FALSE(ZSTD_isError(size));
  ZSTD_freeCCtx(context);
  out.resize(size);
  return out;
}

/// A frame that holds "text\n" as it is and asks for a window of 2 to the power of `windowLog` bytes.
inline std::string zstdFrame(unsigned windowLog) {
  return std::string("\x28\xb5\x2f\xfd\0", 5) + static_cast<char>((windowLog - 10) << 3) +
         std::string("\x29\0\0text\n", 8);
}

}  // namespace MD::test

#endif

#endif
