// What is compressed, read again; --compress and names of files.
#include "base/compression.h"

#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "base/errors.h"
#include "base/output.h"
#include "tools/input_support.h"
#include "tools/run_support.h"
#include "tools/zstd_support.h"

namespace {

using namespace MD::tool;
using MD::test::manyLines;
using MD::test::readAll;
using MD::test::Result;

std::vector<std::string> methods() {
  std::vector<std::string> texts;
#if defined(MDMSG_HAS_ZLIB)
  texts.insert(texts.end(), {"gzip", "gzip:1", "gzip:9"});
#endif
#if defined(MDMSG_HAS_ZSTD)
  texts.insert(texts.end(), {"zstd", "zstd:1", "zstd:19"});
#endif
  return texts;
}

std::string errorOf(const std::string& method) {
  try {
    static_cast<void>(parseCompression(method));
  } catch (const UsageError& error) {
    return error.what();
  }
  return "none";
}

TEST(Compression, WhatIsWrittenIsReadAgain) {
  for (const std::string& method : methods()) {
    SCOPED_TRACE(method);
    const auto compressor = makeCompressor(parseCompression(method));
    const std::string text = manyLines(500'000);
    for (const std::string& part : {std::string(), std::string("a"), text}) {
      std::string out;
      compressor->append(part, Compressor::Then::End, out);
      EXPECT_FALSE(out.empty());
      EXPECT_TRUE(readAll(out) == part);
      EXPECT_LT(out.size(), 2 * part.size() / 3 + 100);
    }
    // In pieces, two members one after the other.
    std::string out;
    for (std::size_t at = 0; at < text.size(); at += 1000) {
      compressor->append(std::string_view(text).substr(at, 1000),
                         at == 250'000 ? Compressor::Then::End : Compressor::Then::GoOn, out);
    }
    compressor->append({}, Compressor::Then::End, out);
    EXPECT_TRUE(readAll(out) == text);
  }
}

TEST(Compression, WhatIsFlushedCanBeRead) {
  for (const std::string& method : methods()) {
    SCOPED_TRACE(method);
    const auto compressor = makeCompressor(parseCompression(method));
    std::string out;
    compressor->append("one\n", Compressor::Then::Flush, out);
    EXPECT_EQ(readAll(out), "one\n|the compressed data is truncated");
    compressor->append("two\n", Compressor::Then::Flush, out);
    EXPECT_EQ(readAll(out), "one\ntwo\n|the compressed data is truncated");
    compressor->append({}, Compressor::Then::End, out);
    EXPECT_EQ(readAll(out), "one\ntwo\n");
  }
}

TEST(Compression, MethodsAreRead) {
  EXPECT_EQ(parseCompression("none").kind, CompressionKind::None);
  EXPECT_EQ(compressionOf("a.hex").kind, CompressionKind::None);
  EXPECT_EQ(compressionOf(".gz").kind, CompressionKind::None);
#if defined(MDMSG_HAS_ZLIB)
  EXPECT_EQ(parseCompression("gzip:9").level, 9);
  EXPECT_EQ(compressionOf("a.hex.gz").kind, CompressionKind::Gzip);
  for (const char* const level : {"gzip:", "gzip:0", "gzip:10", "gzip:-1", "gzip:9x", "gzip: 9"}) {
    EXPECT_EQ(errorOf(level), "--compress: the level of gzip is 1 to 9") << level;
  }
#endif
#if defined(MDMSG_HAS_ZSTD)
  EXPECT_EQ(parseCompression("zstd").kind, CompressionKind::Zstd);
  EXPECT_EQ(compressionOf("a.zst").kind, CompressionKind::Zstd);
  EXPECT_EQ(errorOf("zstd:23"), "--compress: the level of zstd is 1 to 22");
#else
  EXPECT_EQ(errorOf("zstd"), "this mdmsg was built without zstd and cannot compress with it");
#endif
  EXPECT_EQ(errorOf("lz4"), "--compress: \"lz4\" is not one of gzip, zstd, none, gzip:1 to gzip:9, zstd:1 to zstd:22");
  EXPECT_EQ(errorOf(""), "--compress: \"\" is not one of gzip, zstd, none, gzip:1 to gzip:9, zstd:1 to zstd:22");
}

TEST(Compression, IsRecognisedAsSoonAsPossible) {
  const auto kind = [](std::string_view bytes) { return recogniseCompression(bytes); };
  EXPECT_EQ(kind(""), std::nullopt);
  EXPECT_EQ(kind("\x1f"), std::nullopt);
  EXPECT_EQ(kind("\x1f\x8b"), CompressionKind::Gzip);
  EXPECT_EQ(kind("\x28\xb5\x2f"), std::nullopt);
  EXPECT_EQ(kind("\x28\xb5\x2f\xfd more"), CompressionKind::Zstd);
  EXPECT_EQ(kind("\x28\xb5\x2e"), CompressionKind::None);
  EXPECT_EQ(kind("\x5a\x2a\x4d\x18"), CompressionKind::Zstd);
  EXPECT_EQ(kind("Z*"), std::nullopt);
  EXPECT_EQ(kind("ZZ"), CompressionKind::None);
  EXPECT_EQ(kind("06"), CompressionKind::None);
}

#if defined(MDMSG_HAS_ZSTD)

using MD::test::zstdCompressed;

TEST(ZstdInput, IsDecompressed) {
  for (const std::string& text : {std::string(), std::string("a"), manyLines(300'000), std::string(5'000'000, 'x')}) {
    EXPECT_TRUE(readAll(zstdCompressed(text)) == text);
  }
  EXPECT_EQ(readAll(zstdCompressed("one\n") + zstdCompressed("") + zstdCompressed("two\n")), "one\ntwo\n");
  const std::string skipped("\x51\x2a\x4d\x18\3\0\0\0abc", 11);
  EXPECT_EQ(readAll(skipped + zstdCompressed("one\n") + skipped), "one\n");
}

TEST(ZstdInput, GivesEverythingBeforeACut) {
  const std::string text = manyLines(2000);
  const std::string whole = zstdCompressed(text);
  for (std::size_t size = 4; size != whole.size(); ++size) {
    const std::string read = readAll(whole.substr(0, size));
    const std::size_t end = read.rfind('|');
    ASSERT_NE(end, read.npos) << size;
    ASSERT_EQ(read.substr(end), "|the compressed data is truncated") << size;
    ASSERT_EQ(text.compare(0, end, read, 0, end), 0) << size;
  }
}

TEST(ZstdInput, EveryChangedByteIsReportedOrChangesNothing) {
  const std::string text = manyLines(600);
  const std::string whole = zstdCompressed(text);
  for (std::size_t at = 4; at != whole.size(); ++at) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 1);
    const std::string read = readAll(damaged);
    ASSERT_TRUE(read == text || read.find("|the compressed data ") != read.npos ||
                read.find("|bytes that are not zstd data follow the compressed data") != read.npos)
        << at;
  }
}

TEST(ZstdInput, SaysWhatIsWrongWithTheData) {
  std::string damaged = zstdCompressed("text\n");
  damaged[damaged.size() - 1] ^= 1;
  EXPECT_EQ(readAll(damaged), "text\n|the compressed data is corrupted (Restored data doesn't match checksum)");
  EXPECT_EQ(readAll(zstdCompressed("text\n") + "more"),
            "text\n|bytes that are not zstd data follow the compressed data");
}

TEST(ZstdInput, WindowsAreBounded) {
  EXPECT_EQ(readAll(MD::test::zstdFrame(27)), "text\n");
  EXPECT_EQ(readAll(MD::test::zstdFrame(28)), "|the compressed data needs a window of more than 128 MiB");
  EXPECT_EQ(readAll(MD::test::zstdFrame(41)), "|the compressed data needs a window of more than 128 MiB");
}

TEST(ZstdInput, LinesOfABombAreBounded) {
  const std::string bomb = zstdCompressed(std::string(50'000'000, '0') + "\n061c000105\n");
  EXPECT_LT(bomb.size(), 10'000U);
  EXPECT_EQ(MD::test::runTool({"decode", "--json", "--max-message", "100", "--fields", "28"}, bomb),
            (Result{"{\"BID_ORDERS\":5}\n",
                    "mdmsg: standard input:1: the line is longer than 300 bytes (--max-message)\n", 1}));
}

#endif

using CompressedOutput = MD::test::ToolRun;

TEST_F(CompressedOutput, OfEveryCommandIsReadByEveryCommand) {
  const std::string json = mdmsg("decode --json", mdmsg("generate --count 2000").out).out;
  for (const std::string& method : methods()) {
    SCOPED_TRACE(method);
    const std::string hex = mdmsg("generate --count 2000 --compress " + method).out;
    EXPECT_LT(hex.size(), json.size() / 3);
    const Result decoded = mdmsg("decode --json --compress " + method, hex);
    EXPECT_EQ(decoded.err, "");
    EXPECT_TRUE(readAll(decoded.out) == json);
    const Result filtered = mdmsg("filter --compress " + method, hex);
    EXPECT_TRUE(readAll(filtered.out) == readAll(hex));
  }
}

TEST_F(CompressedOutput, FollowsTheNameOfTheFile) {
  const std::string hex = mdmsg("generate --count 50").out;
#if defined(MDMSG_HAS_ZLIB)
  EXPECT_EQ(mdmsg("filter --output f.hex.gz", hex), (Result{"", "", 0}));
  EXPECT_EQ(MD::test::contentsOf("f.hex.gz").substr(0, 2), "\x1f\x8b");
  EXPECT_EQ(mdmsg("filter f.hex.gz").out, hex);
#endif
#if defined(MDMSG_HAS_ZSTD)
  EXPECT_EQ(mdmsg("filter --output f.hex.zst", hex), (Result{"", "", 0}));
  EXPECT_EQ(MD::test::contentsOf("f.hex.zst").substr(0, 4), "\x28\xb5\x2f\xfd");
  EXPECT_EQ(mdmsg("filter f.hex.zst").out, hex);
  EXPECT_EQ(mdmsg("filter --force --output f.hex.zst --limit 0", hex), (Result{"", "", 0}));
  EXPECT_EQ(mdmsg("filter f.hex.zst"), (Result{"", "", 0}));  // an empty frame
#endif
  EXPECT_EQ(mdmsg("filter --output none.zst --compress none", hex), (Result{"", "", 0}));
  EXPECT_EQ(MD::test::contentsOf("none.zst"), hex);
  EXPECT_EQ(mdmsg("filter --output new --compress lz4", hex).status, 2);
  EXPECT_EQ(MD::test::contentsOf("new"), "");
}

}  // namespace
