// stats: what it counts by, and its formats.
#include <cstdlib>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tools/run_support.h"

namespace {

using MD::test::Result;

class Stats : public MD::test::ToolRun {
 protected:
  /// Four quotes in hex, half a second apart, of which one number is missing and one comes twice.
  static std::string quotes() {
    return mdmsg("encode --encoding mInt",
                 "{\"SYMBOL\":\"AB\",\"SEQ\":1,\"SEND_TIME\":1717407000000000000}\n"
                 "{\"SYMBOL\":\"CD\",\"SEQ\":2,\"SEND_TIME\":1717407000500000000}\n"
                 "{\"SYMBOL\":\"AB\",\"SEQ\":4,\"SEND_TIME\":1717407001000000000}\n"
                 "{\"SEQ\":4,\"SEND_TIME\":1717407002500000000}\n")
        .out;
  }

  static std::string section(const std::string& report, const std::string& title) {
    const std::size_t begin = report.find(title);
    const std::size_t end = report.find("\n\n", begin);
    return begin == report.npos ? "" : report.substr(begin, end == report.npos ? end : end - begin + 1);
  }
};

TEST_F(Stats, CountsByTheValuesOfFields) {
  const Result result = mdmsg("stats --by SYMBOL --time-field SEND_TIME", quotes());
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(section(result.out, "messages by SYMBOL"),
            "messages by SYMBOL, 3 values\n"
            "  AB                             2, 58 bytes, 2024-06-03T09:30:00.000000000Z to "
            "2024-06-03T09:30:01.000000000Z\n"
            "  (absent)                       1, 23 bytes, 2024-06-03T09:30:02.500000000Z to "
            "2024-06-03T09:30:02.500000000Z\n"
            "  CD                             1, 29 bytes, 2024-06-03T09:30:00.500000000Z to "
            "2024-06-03T09:30:00.500000000Z\n");
  EXPECT_EQ(section(mdmsg("stats --by SYMBOL,SEQ --top 1", quotes()).out, "messages by SYMBOL, SEQ"),
            "messages by SYMBOL, SEQ, 4 values\n"
            "  (absent), 4                    1, 23 bytes\n"
            "  and 3 more (--top)\n");
}

TEST_F(Stats, ChecksSequenceNumbers) {
  EXPECT_EQ(section(mdmsg("stats --sequence SEQ", quotes()).out, "sequence numbers"),
            "sequence numbers\n"
            "  checked                        4\n"
            "  missing                        1, 1 gaps\n"
            "  duplicate                      1\n"
            "  late                           0\n"
            "  standard input:3: missing 3\n"
            "  standard input:4: duplicate 4\n");
  EXPECT_EQ(section(mdmsg("stats --sequence SEQ --per SYMBOL", quotes()).out, "sequence numbers"),
            "sequence numbers\n"
            "  checked                        3\n"
            "  missing                        2, 1 gaps\n"
            "  duplicate                      0\n"
            "  late                           0\n"
            "  standard input:3: AB missing 2 to 3\n");
}

TEST_F(Stats, TheTimeAxisHasTheIntervalThatIsWanted) {
  EXPECT_EQ(section(mdmsg("stats --interval 1 --time-field SEND_TIME", quotes()).out, "messages by time"),
            "messages by time, 1 s a bar\n"
            "  09:30:00.000                   2 #############################################\n"
            "  09:30:01.000                   1 ######################\n"
            "  09:30:02.000                   1 ######################\n");
  EXPECT_EQ(mdmsg("stats --interval 0.0000001 --time-field SEND_TIME", quotes()),
            (Result{"", "mdmsg: --interval is too short: there would be more than 10000 intervals\n", 2}));
}

TEST_F(Stats, WritesRecordsForPrograms) {
  EXPECT_EQ(mdmsg("stats --format csv --by SYMBOL --sequence SEQ", quotes()).out,
            "section,key,count,bytes,first,last\n"
            "total,messages,4,110,,\n"
            "encoding,mInt,4,110,,\n"
            "encoding,IterMap,0,0,,\n"
            "encoding,MsgT,0,0,,\n"
            "problem,malformed,0,,,\n"
            "problem,truncated,0,,,\n"
            "problem,with unknown fields,0,,,\n"
            "problem,unrecognised,0,,,\n"
            "size,23,1,,,\n"
            "size,29,3,,,\n"
            "field,SYMBOL,3,,,\n"
            "field,SEQ,4,,,\n"
            "field,SEND_TIME,4,,,\n"
            "group,AB,2,58,,\n"
            "group,(absent),1,23,,\n"
            "group,CD,1,29,,\n"
            "sequence,checked,4,,,\n"
            "sequence,missing,1,,,\n"
            "sequence,duplicate,1,,,\n"
            "sequence,late,0,,,\n"
            "missing,standard input:3: missing 3,1,,,\n"
            "duplicate,standard input:4: duplicate 4,1,,,\n");
  const std::string json = mdmsg("stats --format json --time-field SEND_TIME", quotes()).out;
  EXPECT_EQ(json.substr(0, json.find('\n')),
            "{\"section\":\"total\",\"key\":\"messages\",\"count\":4,\"bytes\":110,\"first\":\"2024-06-03T09:30:00."
            "000000000Z\",\"last\":\"2024-06-03T09:30:02.500000000Z\"}");
}

TEST_F(Stats, RefusesOptionsThatDoNotGoTogether) {
  EXPECT_EQ(mdmsg("stats --by NOSUCH").err, "mdmsg: --by: field NOSUCH: not in the built-in dictionary\n");
  EXPECT_EQ(mdmsg("stats --sequence SYMBOL").err, "mdmsg: --sequence: field SYMBOL is not an INT or INT64\n");
  EXPECT_EQ(mdmsg("stats --per SYMBOL").err, "mdmsg: --per requires --sequence\n");
}

TEST_F(Stats, EndpointsOfARecordedCapture) {
  const char* const folder = std::getenv("MD_TEST_DATA");
  const std::string capture = folder != nullptr ? std::string(folder) + "/udp_realtime.pcap" : std::string();
  if (!std::filesystem::exists(capture)) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with udp_realtime.pcap";
  }
#if defined(MDMSG_HAS_PCAP)
  const std::string all = mdmsg("stats --format csv --top 1000 " + capture).out;
  std::size_t datagrams = 0;
  for (std::size_t at = all.find("\nendpoints,"); at != all.npos; at = all.find("\nendpoints,", at + 1)) {
    datagrams += std::stoul(all.substr(all.find(',', at + 11) + 1));
  }
  EXPECT_EQ(datagrams, 739U);
#else
  GTEST_SKIP() << "built without libpcap";
#endif
}

}  // namespace
