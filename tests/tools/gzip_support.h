// Compressed data for tests, where the program can read it.
#ifndef MD_TESTS_TOOLS_GZIP_SUPPORT_H
#define MD_TESTS_TOOLS_GZIP_SUPPORT_H

#if defined(MDMSG_HAS_ZLIB)

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

namespace MD::test {

inline std::string gzipped(const std::string& text) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, 6, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::vector<Bytef> in(text.begin(), text.end());
  std::vector<Bytef> out(deflateBound(&stream, static_cast<uLong>(text.size())) + 64);
  stream.next_in = in.data();
  stream.avail_in = static_cast<uInt>(in.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return {out.begin(), out.end()};
}

}  // namespace MD::test

#endif

#endif
