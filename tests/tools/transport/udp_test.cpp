// Datagrams sent and received.
#include "transport/udp.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::Reports;

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
