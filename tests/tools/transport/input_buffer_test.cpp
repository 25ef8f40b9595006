// Inputs as they are, or decompressed.
#include "transport/input_buffer.h"

#include <sstream>

#include <gtest/gtest.h>

#include "base/errors.h"
#include "tools/gzip_support.h"
#include "tools/input_support.h"

namespace {

using namespace MD::tool;
using MD::test::manyLines;
using MD::test::readAll;
#if defined(MDMSG_HAS_ZLIB)
using MD::test::gzipped;
#endif

TEST(InputBuffer, PassesOtherDataUnchanged) {
  for (const std::string& text :
       {std::string(), std::string("\x1f"), std::string("\x1f\x8c"), std::string("a"), manyLines(200'000)}) {
    EXPECT_EQ(readAll(text), text);
  }
}

TEST(InputBuffer, PeeksWithoutReading) {
  std::stringbuf source("abcdef");
  InputBuffer in(source);
  EXPECT_EQ(in.peek(4), "abcd");
  EXPECT_EQ(in.position(), 0U);
  EXPECT_EQ(in.sbumpc(), 'a');
  EXPECT_EQ(in.peek(64), "bcdef");
  EXPECT_EQ(in.position(), 1U);
}

#if defined(MDMSG_HAS_ZLIB)

TEST(InputBuffer, GunzipsWhatIsCompressed) {
  for (const std::string& text : {std::string(), std::string("a"), manyLines(300'000)}) {
    EXPECT_EQ(readAll(gzipped(text)), text);
  }
  EXPECT_EQ(readAll(gzipped("one\n") + gzipped("") + gzipped("two\n")), "one\ntwo\n");
}

TEST(InputBuffer, GivesEverythingBeforeACut) {
  const std::string text = manyLines(2000);
  const std::string whole = gzipped(text);
  for (std::size_t size = 2; size != whole.size(); ++size) {
    const std::string read = readAll(whole.substr(0, size));
    const std::size_t end = read.rfind('|');
    ASSERT_NE(end, read.npos) << size;
    ASSERT_EQ(read.substr(end), "|the compressed data is truncated") << size;
    ASSERT_EQ(text.compare(0, end, read, 0, end), 0) << size;
  }
  // All of the text is there before the checksum is.
  EXPECT_EQ(readAll(whole.substr(0, whole.size() - 8)), text + "|the compressed data is truncated");
}

TEST(InputBuffer, SaysWhatIsWrongWithTheData) {
  std::string damaged = gzipped("text\n");
  damaged[damaged.size() - 8] ^= 1;
  EXPECT_EQ(readAll(damaged), "text\n|the compressed data is corrupted (incorrect data check)");
  damaged = gzipped("text\n");
  damaged[2] = 7;
  EXPECT_EQ(readAll(damaged), "|the compressed data is corrupted (unknown compression method)");
  EXPECT_EQ(readAll(gzipped("text\n") + "more"), "text\n|bytes that are not gzip data follow the compressed data");
}

#endif

}  // namespace
