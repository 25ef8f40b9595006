// The commands that make and move feeds.
#include <algorithm>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "base/hex.h"
#include "tools/run_support.h"
#include "tools/tool_support.h"
#include "transport/udp.h"

namespace {

using namespace MD::tool;
using MD::test::contentsOf;
using MD::test::Reports;
using MD::test::Result;

class FeedCommand : public MD::test::ToolRun {
 protected:
  /// The number after a label at the beginning of a line.
  static std::uint64_t numberIn(const std::string& report, const std::string& label) {
    const std::size_t line = ('\n' + report).find('\n' + label);
    EXPECT_NE(line, std::string::npos) << label;
    return line == std::string::npos ? 0 : std::stoull(report.substr(line + label.size()));
  }
};

TEST_F(FeedCommand, GeneratesTheSameBytesEverywhere) {
  const Result feed = mdmsg("generate --count 3 --encodings mInt,MsgT --trades 40");
  EXPECT_EQ(feed,
            (Result{"060b000801000000000000000100084f52492f55534400030005584e4542000a00015428000852b81e85ebe974402900"
                    "089a999999993955402a0001532c000354310042000851030000000000000f000800f0c4399174d517\n"
                    "46515231000b001300000008000000000000000200010006000000084f52492f555344000003000600000005584e4542"
                    "00000a0001000000015400280005000000084074ea147ae147ae00290005000000084054d9999999999a002a00010000"
                    "000142002c00060000000354320000420013000000080000000000000693000f001600000008dcbbd2399174d517\n"
                    "46515231000b001300000008000000000000000300010006000000084e45422f555344000003000600000005584e4542"
                    "00000a000100000001510016000500000008405f528f5c28f5c30017000500000008405f533333333333001800050000"
                    "0008408ed666666666660019000500000008407f6ccccccccccd001c00020000000400000127001d0002000000040000"
                    "0028000f001600000008ef99e4399174d517\n",
                    "mdmsg: 3 messages, 2 of them trades\n", 0}));
  EXPECT_EQ(mdmsg("decode --format json", feed.out),
            (Result{"{\"SEQ\":1,\"SYMBOL\":\"ORI/"
                    "USD\",\"VENUE\":\"XNEB\",\"MSG_KIND\":\"T\",\"LAST\":334.62,\"LAST_SIZE\":84.9,\"SIDE\":"
                    "\"S\",\"TRADE_ID\":\"T1\",\"VOLUME\":849,\"SEND_TIME\":1717407000000000000}\n"
                    "{\"SEQ\":2,\"SYMBOL\":\"ORI/"
                    "USD\",\"VENUE\":\"XNEB\",\"MSG_KIND\":\"T\",\"LAST\":334.63,\"LAST_SIZE\":83.4,\"SIDE\":"
                    "\"B\",\"TRADE_ID\":\"T2\",\"VOLUME\":1683,\"SEND_TIME\":1717407000000904156}\n"
                    "{\"SEQ\":3,\"SYMBOL\":\"NEB/"
                    "USD\",\"VENUE\":\"XNEB\",\"MSG_KIND\":\"Q\",\"BID\":125.29,\"ASK\":125.3,\"BID_SIZE\":98"
                    "6.8,\"ASK_SIZE\":502.8,\"BID_ORDERS\":295,\"ASK_ORDERS\":40,\"SEND_TIME\":1717407000002075119}\n",
                    "", 0}));
}

TEST_F(FeedCommand, IgnoresTheDictionaryOnTheSearchPath) {
  const Result feed = mdmsg("generate --count 20");
  write("field_map.txt", "SYMBOL 7 INT\n");
  EXPECT_EQ(mdmsg("generate --count 20"), feed);
}

TEST_F(FeedCommand, StatisticsOfItCountWhatWasDamaged) {
  for (const char* const options : {"--damaged 5 --seed 1", "--damaged 5 --seed 2 --encodings IterMap",
                                    "--damaged 60 --seed 3 --encodings mInt", "--damaged 100 --seed 4"}) {
    SCOPED_TRACE(options);
    const Result feed = mdmsg(std::string("generate --count 2000 ") + options);
    EXPECT_EQ(feed.status, 0);
    unsigned long long all = 0;
    unsigned long long truncated = 0;
    unsigned long long unknown = 0;
    unsigned long long repeated = 0;
    unsigned long long foreign = 0;
    const std::size_t line = feed.err.find('\n') + 1;
    ASSERT_EQ(std::sscanf(feed.err.c_str() + line,
                          "mdmsg: %llu corrupted: %llu truncated, %llu with an unknown field, %llu with a repeated "
                          "field, %llu unrecognised",
                          &all, &truncated, &unknown, &repeated, &foreign),
              5)
        << feed.err;
    EXPECT_EQ(all, truncated + unknown + repeated + foreign);
    const Result stats = mdmsg("stats", feed.out);
    EXPECT_EQ(stats.status, 1);
    EXPECT_EQ(numberIn(stats.out, "messages "), 2000 - foreign);
    EXPECT_EQ(numberIn(stats.out, "with unknown fields "), unknown);
    EXPECT_EQ(numberIn(stats.out, "malformed "), repeated);
    EXPECT_EQ(numberIn(stats.out, "truncated "), truncated);
    EXPECT_EQ(numberIn(stats.out, "unrecognised "), foreign);
  }
}

TEST_F(FeedCommand, AnUndamagedFeedIsSound) {
  for (const char* const encoding : {"mInt", "IterMap", "MsgT"}) {
    const Result feed = mdmsg(std::string("generate --count 300 --encodings ") + encoding);
    EXPECT_EQ(feed.err.rfind("mdmsg: 300 messages, ", 0), 0U) << feed.err;
    EXPECT_EQ(feed.err.find("damaged"), std::string::npos);
    const Result json = mdmsg("decode --format json", feed.out);
    EXPECT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(mdmsg(std::string("encode --encoding ") + encoding, json.out).out, feed.out);
  }
}

TEST_F(FeedCommand, ACaptureHoldsTheSameMessagesWithTheirTimes) {
  const std::string options = "generate --count 50 --start 2024-01-02T03:04:05.5Z --rate 10 ";
  const Result hex = mdmsg(options);
  EXPECT_EQ(mdmsg(options + "--format pcap --output feed.pcap").status, 0);
  EXPECT_EQ(mdmsg(options + "--format pcap --output feed.pcap"),
            (Result{"", "mdmsg: feed.pcap exists; --force overwrites it\n", 2}));
  EXPECT_EQ(mdmsg(options + "--format pcap --output feed.pcap --force").status, 0);
#if defined(MDMSG_HAS_PCAP)
  EXPECT_EQ(mdmsg("decode feed.pcap").out, mdmsg("decode", hex.out).out);
  const std::string stats = mdmsg("stats feed.pcap").out;
  EXPECT_NE(stats.find("  first               2024-01-02T03:04:05.500000000Z\n"), stats.npos) << stats;
#endif
  EXPECT_EQ(contentsOf("feed.pcap").substr(0, 4), "\x4d\x3c\xb2\xa1");
}

TEST_F(FeedCommand, RefusesACommandLineThatItCannotUse) {
  const struct {
    const char* arguments;
    const char* error;
  } cases[] = {
      {"generate --damaged 101", "--damaged is a percentage, 0 to 100"},
      {"generate --trades nan", "--trades is a percentage, 0 to 100"},
      {"generate --rate 0", "--rate is a number of messages/s, 1 to 1000000000"},
      {"generate --encodings mInt,Morse", "unknown encoding \"Morse\""},
      {"generate --start yesterday",
       "--start: \"yesterday\" is not a timestamp such as 2024-06-03T09:30:00Z, or too late"},
      {"generate --start 2200-01-01T00:00:00Z --format pcap",
       "a capture cannot store the time 7258118400000000000 (years 1970 to 2106)"},
      {"generate --format pcap --destination here",
       "--destination: \"here\" is not an IPv4 address and a port, such as "
       "239.192.0.1:30001"},
      {"generate --count -1", "--count: \"-1\" is not an integer\nTry \"mdmsg --help\"."},
      {"generate --seed 18446744073709551616",
       "--seed: 18446744073709551616 is more than 18446744073709551615\nTry \"mdmsg --help\"."},
      {"generate --rate 1 --start 2262-04-11T23:40:00Z", "--start is too late for so many messages: times end in 2262"},
      {"generate --seed x", "--seed: \"x\" is not an integer\nTry \"mdmsg --help\"."},
      {"replay", "--destination is required\nTry \"mdmsg --help\"."},
      {"replay --destination 127.0.0.1", "\"127.0.0.1\" is not HOST:PORT"},
      {"replay --destination 127.0.0.1:9 --speed 0", "--speed: \"0\" is neither a number above 0 nor max"},
      {"replay --destination 127.0.0.1:9 --speed fast", "--speed: \"fast\" is neither a number above 0 nor max"},
      {"replay --destination 127.0.0.1:9 --speed 2 --rate 5", "--speed excludes --rate\nTry \"mdmsg --help\"."},
      {"replay --destination 127.0.0.1:9 --max-gap -1", "--max-gap is a number of seconds, 0 to 1000000000"},
      {"replay --destination 239.0.0.1:9 --interface lo", "--interface: \"lo\" is not an address"},
      {"replay --destination [ff05::1234]:9 --interface 127.0.0.1",
       "--interface requires an IPv4 group; [ff05::1234]:9 is IPv6"},
      {"listen [ff05::1234]:9 --interface ::1", "--interface requires an IPv4 group; [ff05::1234]:9 is IPv6"},
      {"listen 239.0.0.1:9 --interface ::1", "--interface takes an IPv4 address"},
      {"listen", "HOST:PORT is required\nTry \"mdmsg --help\"."},
      {"listen 127.0.0.1", "\"127.0.0.1\" is not HOST:PORT"},
      {"listen [::1]:0 --format pcap", "--format pcap writes IPv4 datagrams; [::1]:0 is IPv6"},
      {"listen 127.0.0.1:0 --format hex --limit 1", "--format hex writes all datagrams unchanged"},
      {"listen 127.0.0.1:0 --timeout 1e10", "--timeout is a number of seconds, 0 to 1000000000"},
      {"listen 127.0.0.1:0 --idle -1", "--idle is a number of seconds, 0 to 1000000000"},
      {"listen 127.0.0.1:0 --time-digits 3", "--time-digits requires --format json or csv"},
  };
  for (const auto& [arguments, error] : cases) {
    SCOPED_TRACE(arguments);
    const Result result = mdmsg(arguments);
    EXPECT_EQ(result.err, std::string("mdmsg: ") + error + '\n');
    EXPECT_EQ(result.status, 2);
  }
}

TEST_F(FeedCommand, EndsWhenNothingComes) {
  const Result result = mdmsg("listen 127.0.0.1:0 --count 3 --timeout 0.05");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.status, 1);
  const std::string name = result.err.substr(std::string("mdmsg: listening on ").size(),
                                             result.err.find('\n') - std::string("mdmsg: listening on ").size());
  EXPECT_EQ(name.rfind("127.0.0.1:", 0), 0U) << name;
  EXPECT_EQ(result.err, "mdmsg: listening on " + name + "\nmdmsg: " + name + ": 0 of 3 datagrams received\n");
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --idle 0.05").status, 0);
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --count 0").status, 0);
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --timeout 0").status, 0);
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --idle 0").status, 0);
}

TEST_F(FeedCommand, ReplayTellsWhatItSent) {
  const auto sent = [](const std::string& arguments, const std::string& input) {
    // To the port of discarded datagrams.
    const Result result = mdmsg("replay --destination 127.0.0.1:9 --speed max " + arguments, input);
    EXPECT_EQ(result.status, 0);
    return result.err.substr(0, result.err.rfind(", in "));
  };
  EXPECT_EQ(sent("", "06\n0601\n070707\n"), "mdmsg: sent 3 datagrams, 6 bytes");
  EXPECT_EQ(sent("--skip 1 --limit 1", "06\n0601\n070707\n"), "mdmsg: sent 1 datagram, 2 bytes");
  EXPECT_EQ(sent("--limit 0", "06\n"), "mdmsg: sent 0 datagrams, 0 bytes");
}

#if defined(MDMSG_HAS_PCAP)
TEST_F(FeedCommand, ReplayKeepsNoPauseWhenTheLongestIsZero) {
  const std::string anHourApart = "{\"RECV_TIME\":1717407000000000000}\n{\"RECV_TIME\":1717410600000000000}\n";
  ASSERT_EQ(mdmsg("encode --encoding mInt --format pcap --time-field RECV_TIME --output two.pcap", anHourApart).status,
            0);
  const Result result = mdmsg("replay --destination 127.0.0.1:9 --max-gap 0 two.pcap");
  EXPECT_EQ(result.err.substr(0, result.err.rfind(", in ")), "mdmsg: sent 2 datagrams, 24 bytes");
  EXPECT_EQ(result.status, 0);
}

TEST_F(FeedCommand, TimesOfACaptureReachAsFarAsItsSeconds) {
  const struct {
    const char* start;
    const char* shown;
  } cases[] = {
      {"2038-01-19T03:14:07Z", "2038-01-19T03:14:07.000000000Z"},
      {"2038-01-19T03:14:08Z", "2038-01-19T03:14:08.000000000Z"},
      {"2106-02-07T06:28:15Z", "2106-02-07T06:28:15.000000000Z"},
  };
  for (const auto& [start, shown] : cases) {
    ASSERT_EQ(mdmsg(std::string("generate --count 1 --format pcap --force --output late.pcap --start ") + start).status,
              0);
    const std::string title = "# late.pcap: packet 1 (byte 24), " + std::string(shown) + ", 192.0.2.1:30000 to ";
    EXPECT_EQ(mdmsg("dump late.pcap").out.substr(0, title.size()), title);
  }
}

TEST_F(FeedCommand, ReplayKeepsThePaceOfACaptureThatBeginsEarlier) {
  const std::string apart = "{\"RECV_TIME\":1717407000000000000}\n{\"RECV_TIME\":1717407000200000000}\n";
  ASSERT_EQ(mdmsg("encode --encoding mInt --format pcap --time-field RECV_TIME --output apart.pcap", apart).status, 0);
  const Result result = mdmsg("replay --destination 127.0.0.1:9 apart.pcap apart.pcap");
  const std::string sent = "mdmsg: sent 4 datagrams, 48 bytes, in ";
  ASSERT_EQ(result.err.substr(0, sent.size()), sent);
  // Two pauses of 200 ms, which may only be longer.
  EXPECT_GE(std::stoi(result.err.substr(sent.size())), 400);
}
#endif

}  // namespace
