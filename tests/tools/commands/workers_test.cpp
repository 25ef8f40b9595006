// Commands with several jobs, whose output, reports and exit status are those of one.
#include "commands/workers.h"

#include <cstdlib>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tools/run_support.h"

namespace {

using MD::test::Result;

class Jobs : public MD::test::ToolRun {
 protected:
  static Result withJobs(const std::string& command, unsigned jobs) {
    return mdmsg(command + " --jobs " + std::to_string(jobs));
  }

  static void expectTheSameOf(const std::string& command) {
    SCOPED_TRACE(command);
    const Result one = withJobs(command, 1);
    EXPECT_EQ(withJobs(command, 2), one);
    EXPECT_EQ(withJobs(command, 5), one);
  }

  /// Hex lines of which some are corrupt and some no hex at all.
  static std::string corruptFeed(unsigned count) {
    const std::string feed = mdmsg("generate --damaged 10 --count " + std::to_string(count)).out;
    std::string text;
    std::size_t line = 0;
    for (std::size_t at = 0; at < feed.size(); ++line) {
      const std::size_t end = feed.find('\n', at) + 1;
      text.append(feed, at, end - at);
      text += line % 97 == 0 ? "zz\n\n" : "";
      at = end;
    }
    return text;
  }
};

TEST_F(Jobs, GiveTheBytesReportsAndStatusOfOne) {
  // More than a block of messages.
  write("feed.hex", corruptFeed(9000));
  const Result json = mdmsg("decode --format json feed.hex");
  EXPECT_EQ(json.status, 1);
  EXPECT_GT(json.out.size(), std::size_t{1} << 20);
  write("feed.json", json.out + "{\"NOSUCH\":1}\n" + json.out);
  EXPECT_EQ(mdmsg("generate --count 6000 --damaged 5 --format u16le --output feed.u16").status, 0);
  EXPECT_EQ(mdmsg("generate --count 6000 --damaged 5 --format pcap --output feed.pcap").status, 0);
  write("cut.u16", MD::test::contentsOf("feed.u16").substr(0, 300'001));

  expectTheSameOf("decode --max-reports 100000 feed.hex");
  expectTheSameOf("decode --format json feed.hex missing.hex feed.hex");
  expectTheSameOf("decode --format csv --fields SYMBOL,BID feed.hex");
  expectTheSameOf("decode --format json --framing u16le feed.u16 cut.u16 feed.u16");
  expectTheSameOf("convert --encoding MsgT feed.hex");
  expectTheSameOf("convert --encoding mInt --format u32be --framing u16le cut.u16 feed.u16");
  expectTheSameOf("encode --encoding mInt feed.json");
  expectTheSameOf("stats feed.hex");
  expectTheSameOf("stats --time-field SEND_TIME --framing u16le feed.u16 cut.u16");
  expectTheSameOf("decode --format json --where BID>350 feed.hex");
  expectTheSameOf("decode --format json --where BID>350 --framing u16le feed.u16 cut.u16 feed.u16");
  expectTheSameOf("decode --format json --framing u16le --max-message 110 --max-reports 100000 feed.u16 cut.u16");
  expectTheSameOf("decode --format csv --fields @file,@packet,@size,SEQ --framing u16le feed.u16 cut.u16 feed.u16");
#if defined(MDMSG_HAS_PCAP)
  expectTheSameOf("decode --format json feed.pcap feed.hex feed.pcap");
  expectTheSameOf("stats feed.pcap");
#endif
}

TEST_F(Jobs, ReportsStayAtTheirPlaceInTheOutput) {
  write("feed.hex", corruptFeed(3000));
  for (const char* const command : {"decode --format json --max-reports 100000 feed.hex", "decode feed.hex feed.hex"}) {
    SCOPED_TRACE(command);
    // Both into one stream.
    const auto joined = [&](const char* jobs) {
      std::istringstream in;
      std::ostringstream both;
      std::istringstream words(std::string(command) + " --jobs " + jobs);
      MD::tool::run({std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()},
                    {in, both, both});
      return both.str();
    };
    EXPECT_EQ(joined("3"), joined("1"));
  }
}

TEST_F(Jobs, WhatDependsOnTheMessagesBeforeIsDoneByOne) {
  write("feed.hex", corruptFeed(3000));
  expectTheSameOf("decode --format json --skip 10 --limit 100 feed.hex");
  expectTheSameOf("convert --encoding mInt --format pcap feed.hex");
}

TEST_F(Jobs, UnusableOptionsAreReportedOnce) {
  write("feed.hex", corruptFeed(100));
  expectTheSameOf("decode --format csv feed.hex");
  expectTheSameOf("decode --format json --where NOSUCH=1 feed.hex");
  expectTheSameOf("decode --format json feed.hex --port 5");
  EXPECT_EQ(withJobs("decode feed.hex", 0), (Result{"", "mdmsg: --jobs is at least 1 and at most 256\n", 2}));
  EXPECT_EQ(withJobs("decode feed.hex", 257).status, 2);
}

TEST_F(Jobs, ARecordedCaptureGivesTheSame) {
  const char* const folder = std::getenv("MD_TEST_DATA");
  const std::string capture = folder != nullptr ? std::string(folder) + "/udp_realtime.pcap" : std::string();
  if (!std::filesystem::exists(capture)) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with udp_realtime.pcap";
  }
#if defined(MDMSG_HAS_PCAP)
  expectTheSameOf("stats " + capture);
  expectTheSameOf("decode --format json " + capture);
  EXPECT_EQ(withJobs("stats " + capture, 3).out.substr(0, 74),
            "packets                        739\n  UDP datagrams                739\nmess");
#else
  GTEST_SKIP() << "built without libpcap";
#endif
}

}  // namespace
