// Made-up feeds, and datagrams over the loopback interface.
#include "messages/feed.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>

#include <gtest/gtest.h>

#include "base/hex.h"
#include "dictionary/dictionary.h"
#include "messages/message_builder.h"
#include "tools/run_support.h"
#include "tools/tool_support.h"
#include "transport/udp.h"

namespace {

using namespace MD::tool;
using MD::test::contentsOf;
using MD::test::Reports;
using MD::test::Result;

class FeedBytes : public testing::Test {
 protected:
  FeedBytes() { loadBuiltInDictionary(); }

  static std::vector<std::string> hexOf(const FeedOptions& options) {
    Feed feed(options);
    std::vector<std::string> lines;
    while (feed.next()) {
      appendHex(feed.bytes().data(), feed.bytes().size(), lines.emplace_back());
    }
    return lines;
  }
};

TEST_F(FeedBytes, AreTheSameForTheSameOptions) {
  FeedOptions options;
  options.messages = 500;
  options.damagedPercent = 10;
  const auto lines = hexOf(options);
  EXPECT_EQ(lines.size(), 500U);
  EXPECT_EQ(hexOf(options), lines);
  options.seed = 2;
  EXPECT_NE(hexOf(options), lines);
}

TEST_F(FeedBytes, SendTheFieldsOfTheBuiltInDictionary) {
  FeedOptions options;
  options.messages = 200;
  options.tradesPercent = 50;
  Feed feed(options);
  const MD::MD_FieldMap& map = MD::MD_FieldMap::instance();
  std::uint64_t trades = 0;
  std::int64_t seq = 0;
  std::int64_t lastNs = options.startNs;
  while (feed.next()) {
    const auto message =
        MD::MD_Message::createFromBytes(feed.bytes().data(), static_cast<std::uint32_t>(feed.bytes().size()));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->getSizeImpl(), feed.bytes().size());
    std::int64_t number = 0;
    char kind = 0;
    MD::MD_EpochNS time;
    std::string symbol;
    ASSERT_TRUE(message->get(map.nameToId("SEQ"), number));
    ASSERT_TRUE(message->get(map.nameToId("MSG_KIND"), kind));
    ASSERT_TRUE(message->get(map.nameToId("SEND_TIME"), time));
    ASSERT_TRUE(message->get(map.nameToId("SYMBOL"), symbol));
    EXPECT_EQ(number, ++seq);
    EXPECT_EQ(time, MD::MD_EpochNS(static_cast<std::uint64_t>(feed.timeNs())));
    EXPECT_NE(std::find(options.symbols.begin(), options.symbols.end(), symbol), options.symbols.end());
    // At 1000 a second they are half a millisecond to one and a half apart.
    if (seq == 1) {
      EXPECT_EQ(feed.timeNs(), options.startNs);
    } else {
      EXPECT_GE(feed.timeNs() - lastNs, 500'000);
      EXPECT_LE(feed.timeNs() - lastNs, 1'500'000);
    }
    lastNs = feed.timeNs();
    if (kind == 'T') {
      ++trades;
      double last = 0;
      char side = 0;
      ASSERT_TRUE(message->get(map.nameToId("LAST"), last));
      ASSERT_TRUE(message->get(map.nameToId("SIDE"), side));
      EXPECT_TRUE(side == 'B' || side == 'S');
      EXPECT_GE(last, 1.0);
    } else {
      double bid = 0;
      double ask = 0;
      std::int32_t orders = 0;
      ASSERT_TRUE(message->get(map.nameToId("BID"), bid));
      ASSERT_TRUE(message->get(map.nameToId("ASK"), ask));
      ASSERT_TRUE(message->get(map.nameToId("BID_ORDERS"), orders));
      EXPECT_LT(bid, ask);
      EXPECT_GE(bid, 1.0);
    }
  }
  EXPECT_EQ(feed.counts().messages, 200U);
  EXPECT_EQ(feed.counts().trades, trades);
  EXPECT_GT(trades, 50U);
  EXPECT_LT(trades, 150U);
}

TEST_F(FeedBytes, DamageIsOfEveryKindAndCounted) {
  FeedOptions options;
  options.messages = 400;
  options.damagedPercent = 100;
  Feed feed(options);
  while (feed.next()) {
  }
  const auto& damages = feed.counts().damages;
  EXPECT_EQ(damages[0], 0U);
  std::uint64_t all = 0;
  for (std::size_t kind = 1; kind != damages.size(); ++kind) {
    EXPECT_GT(damages[kind], 50U);
    all += damages[kind];
  }
  EXPECT_EQ(all, 400U);
}

class FeedCommand : public MD::test::ToolRun {
 protected:
  /// The number behind a label at the beginning of a line.
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
                          "mdmsg: %llu damaged: %llu truncated, %llu bad by an unknown field, %llu bad by a repeated "
                          "field, %llu not ours",
                          &all, &truncated, &unknown, &repeated, &foreign),
              5)
        << feed.err;
    EXPECT_EQ(all, truncated + unknown + repeated + foreign);
    const Result stats = mdmsg("stats", feed.out);
    EXPECT_EQ(stats.status, 1);
    EXPECT_EQ(numberIn(stats.out, "messages "), 2000 - foreign);
    EXPECT_EQ(numberIn(stats.out, "bad "), unknown + repeated);
    EXPECT_EQ(numberIn(stats.out, "truncated "), truncated);
    EXPECT_EQ(numberIn(stats.out, "not ours "), foreign);
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
  EXPECT_EQ(mdmsg(options + "--to pcap --output feed.pcap").status, 0);
  EXPECT_EQ(mdmsg(options + "--to pcap --output feed.pcap"),
            (Result{"", "mdmsg: feed.pcap exists; --force writes over it\n", 2}));
  EXPECT_EQ(mdmsg(options + "--to pcap --output feed.pcap --force").status, 0);
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
      {"generate --rate 0", "--rate is a number of messages a second, 1 to 1000000000"},
      {"generate --encodings mInt,Morse", "there is no encoding for \"Morse\""},
      {"generate --start yesterday", "--start: \"yesterday\" is no moment, such as 2024-06-03T09:30:00Z, or too late"},
      {"generate --start 2200-01-01T00:00:00Z --to pcap",
       "a capture cannot say the time 7258118400000000000 (years 1970 to 2106)"},
      {"generate --to pcap --destination here",
       "--destination: \"here\" is not an IPv4 address and a port, such as "
       "239.192.0.1:30001"},
      {"generate --count -1", "--count: \"-1\" is not a whole number\nTry \"mdmsg --help\"."},
      {"generate --seed 18446744073709551616",
       "--seed: 18446744073709551616 is more than 18446744073709551615\nTry \"mdmsg --help\"."},
      {"generate --rate 1 --start 2262-04-11T23:40:00Z", "--start is too late for so many messages: times end in 2262"},
      {"generate --seed x", "--seed: \"x\" is not a whole number\nTry \"mdmsg --help\"."},
      {"replay", "--to is required\nTry \"mdmsg --help\"."},
      {"replay --to 127.0.0.1", "\"127.0.0.1\" is not HOST:PORT"},
      {"replay --to 127.0.0.1:9 --speed 0", "--speed: \"0\" is no number above 0, nor max"},
      {"replay --to 127.0.0.1:9 --speed fast", "--speed: \"fast\" is no number above 0, nor max"},
      {"replay --to 127.0.0.1:9 --speed 2 --rate 5", "--speed excludes --rate\nTry \"mdmsg --help\"."},
      {"replay --to 127.0.0.1:9 --max-gap -1", "--max-gap is a number of seconds, 0 to 1000000000"},
      {"replay --to 239.0.0.1:9 --interface lo", "--interface: \"lo\" is not an address"},
      {"replay --to [ff05::1234]:9 --interface 127.0.0.1", "--interface goes with IPv4 groups; [ff05::1234]:9 is IPv6"},
      {"listen [ff05::1234]:9 --interface ::1", "--interface goes with IPv4 groups; [ff05::1234]:9 is IPv6"},
      {"listen 239.0.0.1:9 --interface ::1", "--interface takes an IPv4 address"},
      {"listen", "HOST:PORT is required\nTry \"mdmsg --help\"."},
      {"listen 127.0.0.1", "\"127.0.0.1\" is not HOST:PORT"},
      {"listen [::1]:0 --format pcap", "--format pcap writes IPv4 datagrams; [::1]:0 is IPv6"},
      {"listen 127.0.0.1:0 --format hex --limit 1", "--format hex writes datagrams as they come, all of them"},
      {"listen 127.0.0.1:0 --timeout 1e10", "--timeout is a number of seconds, 0 to 1000000000"},
      {"listen 127.0.0.1:0 --idle -1", "--idle is a number of seconds, 0 to 1000000000"},
      {"listen 127.0.0.1:0 --time-zone local", "--time-zone goes with --iso-time"},
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
  EXPECT_EQ(result.err, "mdmsg: listening on " + name + "\nmdmsg: " + name + ": 0 of 3 datagrams came\n");
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --idle 0.05").status, 0);
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --count 0").status, 0);
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --timeout 0").status, 0);
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --idle 0").status, 0);
}

TEST_F(FeedCommand, ReplayTellsWhatItSent) {
  const auto sent = [](const std::string& arguments, const std::string& input) {
    // To the port of discarded datagrams.
    const Result result = mdmsg("replay --to 127.0.0.1:9 --speed max " + arguments, input);
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
  ASSERT_EQ(mdmsg("encode --encoding mInt --to pcap --time-field RECV_TIME --output two.pcap", anHourApart).status, 0);
  const Result result = mdmsg("replay --to 127.0.0.1:9 --max-gap 0 two.pcap");
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
    ASSERT_EQ(mdmsg(std::string("generate --count 1 --to pcap --force --output late.pcap --start ") + start).status, 0);
    const std::string title = "# late.pcap: packet 1 (byte 24), " + std::string(shown) + ", 192.0.2.1:30000 to ";
    EXPECT_EQ(mdmsg("dump late.pcap").out.substr(0, title.size()), title);
  }
}

TEST_F(FeedCommand, ReplayKeepsThePaceOfACaptureThatBeginsEarlier) {
  const std::string apart = "{\"RECV_TIME\":1717407000000000000}\n{\"RECV_TIME\":1717407000200000000}\n";
  ASSERT_EQ(mdmsg("encode --encoding mInt --to pcap --time-field RECV_TIME --output apart.pcap", apart).status, 0);
  const Result result = mdmsg("replay --to 127.0.0.1:9 apart.pcap apart.pcap");
  const std::string sent = "mdmsg: sent 4 datagrams, 48 bytes, in ";
  ASSERT_EQ(result.err.substr(0, sent.size()), sent);
  // Two pauses of 200 ms, which may only be longer.
  EXPECT_GE(std::stoi(result.err.substr(sent.size())), 400);
}
#endif

class Udp : public testing::Test {
 protected:
  static ListenLimits shortly(std::uint64_t datagrams) {
    ListenLimits limits;
    limits.datagrams = datagrams;
    limits.timeout = std::chrono::seconds(20);
    return limits;
  }

  static std::vector<std::uint8_t> bytesOf(const InputMessage& message) {
    return {message.data, message.data + message.sizeBytes};
  }

  Reports m_reports;
};

using Bytes = std::vector<std::uint8_t>;

TEST_F(Udp, DatagramsArriveAsTheyWereSent) {
  for (const char* const address : {"127.0.0.1:0", "[::1]:0"}) {
    SCOPED_TRACE(address);
    std::unique_ptr<UdpSource> source;
    try {
      source = std::make_unique<UdpSource>(resolveEndpoint(address), MulticastOptions(), shortly(3), m_reports.out,
                                           m_reports.reporter);
    } catch (const UsageError& error) {
      // Machines without IPv6.
      EXPECT_EQ(address[0], '[') << error.what();
      continue;
    }
    EXPECT_NE(source->endpoint().port, 0);
    UdpSender sender(source->endpoint(), {});
    const Bytes longest(60000, 0x55);
    sender.send(Bytes{6, 1, 2}.data(), 3);
    sender.send(nullptr, 0);
    sender.send(longest.data(), longest.size());
    InputMessage message;
    ASSERT_TRUE(source->next(message));
    EXPECT_EQ(bytesOf(message), (Bytes{6, 1, 2}));
    EXPECT_EQ(textOf(message.source.address), textOf(source->endpoint().address));
    EXPECT_EQ(textOf(message.destination), textOf(source->endpoint()));
    EXPECT_TRUE(message.timeNs.has_value());
    ASSERT_TRUE(source->next(message));
    EXPECT_EQ(message.sizeBytes, 0U);
    ASSERT_TRUE(source->next(message));
    EXPECT_EQ(bytesOf(message), longest);
    EXPECT_FALSE(source->next(message));
    EXPECT_FALSE(source->hasEndedEarly());
    EXPECT_EQ(source->datagrams(), 3U);
  }
}

TEST_F(Udp, AGroupIsJoinedOnTheLoopbackInterface) {
  MulticastOptions multicast;
  multicast.interfaceAddress = parseAddress("127.0.0.1");
  std::unique_ptr<UdpSource> source;
  try {
    source = std::make_unique<UdpSource>(*parseEndpoint("239.255.77.1:0"), multicast, shortly(1), m_reports.out,
                                         m_reports.reporter);
  } catch (const UsageError& error) {
    GTEST_SKIP() << "no groups on this machine: " << error.what();
  }
  UdpSender sender(source->endpoint(), multicast);
  EXPECT_EQ(textOf(source->endpoint().address), "239.255.77.1");
  try {
    sender.send(Bytes{6}.data(), 1);
  } catch (const UsageError& error) {
    GTEST_SKIP() << "no way to groups on this machine: " << error.what();
  }
  InputMessage message;
  ASSERT_TRUE(source->next(message));
  EXPECT_EQ(bytesOf(message), Bytes{6});
}

TEST_F(Udp, ListeningEndsInTime) {
  ListenLimits limits;
  limits.timeout = std::chrono::milliseconds(30);
  UdpSource source(*parseEndpoint("127.0.0.1:0"), {}, limits, m_reports.out, m_reports.reporter);
  InputMessage message;
  EXPECT_FALSE(source.next(message));
  EXPECT_TRUE(source.hasEndedEarly());
  EXPECT_FALSE(source.next(message));
}

TEST_F(Udp, AnIdleTimeBeginsAnewWithEachDatagram) {
  ListenLimits limits;
  limits.idle = std::chrono::milliseconds(200);
  UdpSource source(*parseEndpoint("127.0.0.1:0"), {}, limits, m_reports.out, m_reports.reporter);
  UdpSender sender(source.endpoint(), {});
  InputMessage message;
  for (int i = 0; i != 3; ++i) {
    sender.send(Bytes{6}.data(), 1);
    ASSERT_TRUE(source.next(message));
  }
  EXPECT_FALSE(source.next(message));
  EXPECT_EQ(source.datagrams(), 3U);
}

TEST_F(Udp, WritesWhatIsDoneBeforeItWaits) {
  ListenLimits limits;
  limits.timeout = std::chrono::milliseconds(20);
  UdpSource source(*parseEndpoint("127.0.0.1:0"), {}, limits, m_reports.out, m_reports.reporter);
  m_reports.out.text() += "done\n";
  m_reports.out.lineDone();
  InputMessage message;
  EXPECT_FALSE(source.next(message));
  EXPECT_EQ(m_reports.outText.str(), "done\n");
}

constexpr int kWaiting = 50;

/// How many of the datagrams that wait come from a source whose time is up when the first is asked for.
int takenWhenTimeIsUp(const ListenLimits& limits, Reports& reports) {
  UdpSource source(*parseEndpoint("127.0.0.1:0"), {}, limits, reports.out, reports.reporter);
  UdpSender sender(source.endpoint(), {});
  const std::uint8_t byte = 6;
  for (int i = 0; i != kWaiting; ++i) {
    sender.send(&byte, 1);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  int taken = 0;
  for (InputMessage message; source.next(message);) {
    ++taken;
  }
  return taken;
}

TEST_F(Udp, EndsInTimeHoweverManyDatagramsAreThere) {
  ListenLimits limits;
  limits.timeout = std::chrono::milliseconds(1);
  // A few may have been taken in before the clock is looked at.
  EXPECT_LT(takenWhenTimeIsUp(limits, m_reports), 10);
}

TEST_F(Udp, IsNotIdleWhileDatagramsAreThere) {
  ListenLimits limits;
  limits.idle = std::chrono::milliseconds(1);
  EXPECT_EQ(takenWhenTimeIsUp(limits, m_reports), kWaiting);
}

template <class Use>
std::string usageErrorOf(Use use) {
  try {
    use();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "nothing";
}

TEST_F(Udp, TellsWhatItCannotDo) {
  UdpSource source(*parseEndpoint("127.0.0.1:0"), {}, {}, m_reports.out, m_reports.reporter);
  const std::string name = textOf(source.endpoint());
  const std::string taken =
      usageErrorOf([&] { UdpSource second(source.endpoint(), {}, {}, m_reports.out, m_reports.reporter); });
  EXPECT_EQ(taken.rfind("cannot listen on " + name + ": ", 0), 0U) << taken;
  UdpSender sender(source.endpoint(), {});
  const Bytes tooLong(65535, 0);
  EXPECT_EQ(MD::test::lineErrorOf([&] { sender.send(tooLong.data(), tooLong.size()); }),
            "65535 bytes are too long for a datagram");
  EXPECT_EQ(usageErrorOf([] { resolveEndpoint("localhost"); }), "\"localhost\" is not HOST:PORT");
  for (const char* const text :
       {"localhost:http", "localhost:65536", "127.0.0.1:65536", "127.0.0.1:-1", "localhost:"}) {
    EXPECT_EQ(usageErrorOf([&] { resolveEndpoint(text); }),
              '"' + std::string(text) + "\" is not HOST:PORT with a port from 0 to 65535");
  }
  EXPECT_EQ(textOf(resolveEndpoint("localhost:30001")), "127.0.0.1:30001");
}

}  // namespace
