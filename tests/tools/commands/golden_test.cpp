// Messages and a capture that mdmsg wrote on x86-64 (tests/data/golden/): every platform reads the same from them and
// writes the same bytes. A change to these files means that older programs and this one no longer understand each
// other.
#include <string>

#include <gtest/gtest.h>

#include "tools/program_support.h"

namespace {

using MD::test::contentsOf;
using MD::test::Program;
using MD::test::Result;

std::string golden(const std::string& name) { return contentsOf(GOLDEN_FOLDER "/" + name); }

/// With the values' dictionary.
class Golden : public Program {
 protected:
  Golden() { write("golden.txt", golden("fields.txt")); }

  static Result withGoldenFields(const std::string& arguments, const std::string& input) {
    return mdmsg(arguments + " --dictionary golden.txt", input);
  }
};

TEST_F(Golden, EveryEncodingIsReadAndWrittenTheSame) {
  const std::string json = golden("values.json");
  ASSERT_FALSE(json.empty());
  for (const std::string encoding : {"mInt", "IterMap", "MsgT"}) {
    SCOPED_TRACE(encoding);
    const std::string hex = golden(encoding + ".hex");
    EXPECT_EQ(withGoldenFields("decode --format json", hex), (Result{json, "", 0}));
    EXPECT_EQ(withGoldenFields("encode --encoding " + encoding, json), (Result{hex, "", 0}));
    // All but the last message, whose bytes are not text.
    EXPECT_EQ(withGoldenFields("decode --limit 6", hex), (Result{golden("values.txt"), "", 0}));
  }
}

TEST_F(Golden, EncodingsConvertToEachOther) {
  for (const std::string from : {"mInt", "IterMap", "MsgT"}) {
    for (const std::string to : {"mInt", "IterMap", "MsgT"}) {
      SCOPED_TRACE(from + " to " + to);
      EXPECT_EQ(withGoldenFields("convert --encoding " + to, golden(from + ".hex")),
                (Result{golden(to + ".hex"), "", 0}));
    }
  }
}

#if defined(MDMSG_HAS_PCAP)
TEST_F(Golden, ACaptureIsReadTheSame) {
  write("feed.pcap", golden("feed.pcap"));
  const Result decoded = mdmsg("decode --format json feed.pcap");
  EXPECT_EQ(decoded.out, golden("feed.json"));
  EXPECT_EQ(decoded.status, 1) << decoded.err;  // a tenth of the datagrams is corrupted
}
#endif

TEST_F(Golden, ACaptureIsWrittenTheSame) {
  const Result generated = mdmsg("generate --seed 23 --count 40 --damaged 10 --format pcap --output feed.pcap");
  EXPECT_EQ(generated.status, 0) << generated.err;
  const std::string capture = contentsOf("feed.pcap");
  ASSERT_FALSE(capture.empty());
  EXPECT_TRUE(capture == golden("feed.pcap"));
}

}  // namespace
