// Datagrams inside captured packets, and packets made around datagrams.
#include "transport/packet.h"

#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "base/hex.h"
#include "text/hex_reader.h"

namespace {

using namespace MD::tool;

std::vector<std::uint8_t> bytesOfHex(const std::string& hex) {
  std::vector<std::uint8_t> bytes;
  parseHex(hex, Blanks::BetweenBytes, bytes);
  return bytes;
}

// A datagram 10.0.0.1:5 to 239.1.1.1:30001 with the payload 06 07, and its parts.
constexpr const char* kMacs = "01005e010101 02000a000001";
constexpr const char* kIpv4 = "4500001e00004000401178ac0a000001ef010101";
constexpr const char* kUdp = "00057531000a8ea90607";
// The same over IPv6, from ::1 to ff02::1. The bytes are those between next header and addresses.
constexpr const char* kIpv6Addresses = "00000000000000000000000000000001 ff020000000000000000000000000001";

std::string joined(std::initializer_list<std::string> parts) {
  std::string hex;
  for (const std::string& part : parts) {
    hex += part + ' ';
  }
  return hex;
}

std::string ipv6(const char* payloadLength, const char* nextHeader) {
  return joined({"60000000", payloadLength, nextHeader, "40", kIpv6Addresses});
}

const char* nameOf(PacketKind kind) {
  switch (kind) {
    case PacketKind::Datagram:
      return "datagram";
    case PacketKind::Fragment:
      return "fragment";
    case PacketKind::OtherTransport:
      return "other transport";
    case PacketKind::NotIp:
      return "not IP";
    case PacketKind::CutShort:
      return "cut short";
    case PacketKind::Malformed:
      return "malformed";
  }
  return "?";
}

/// What is in a packet, in one line. The packet is in a block of its own size, so that a read after it is detected.
std::string contentOf(int link, const std::vector<std::uint8_t>& bytes) {
  const auto block = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), block.get());
  const Packet packet = readPacket(link, block.get(), bytes.size());
  std::string text = nameOf(packet.kind);
  if (packet.kind == PacketKind::Malformed) {
    return text + ": " + packet.reason;
  }
  if (packet.kind == PacketKind::OtherTransport) {
    return text + ' ' + std::to_string(packet.protocol);
  }
  if (packet.kind == PacketKind::Datagram) {
    text += ' ' + textOf(packet.source) + ' ' + textOf(packet.destination) + ' ';
    appendHex(packet.payload, packet.payloadBytes, text);
  }
  return text;
}

TEST(Packet, FindsTheDatagram) {
  const std::string found4 = "datagram 10.0.0.1:5 239.1.1.1:30001 0607";
  const std::string found6 = "datagram [::1]:5 [ff02::1]:30001 0607";
  const struct {
    const char* name;
    int link;
    std::string hex;
    std::string content;
  } cases[] = {
      {"Ethernet", kLinkEthernet, joined({kMacs, "0800", kIpv4, kUdp}), found4},
      {"Padded", kLinkEthernet, joined({kMacs, "0800", kIpv4, kUdp, "000000000000"}), found4},
      {"Vlan", kLinkEthernet, joined({kMacs, "8100 0005 0800", kIpv4, kUdp}), found4},
      {"VlanInVlan", kLinkEthernet, joined({kMacs, "88a8 0005 8100 0006 0800", kIpv4, kUdp}), found4},
      {"Ethernet6", kLinkEthernet, joined({kMacs, "86dd", ipv6("000a", "11"), kUdp}), found6},
      {"LinuxCooked", kLinkLinuxCooked, joined({"0000 0001 0006 000000000000 0000 0800", kIpv4, kUdp}), found4},
      {"LinuxCookedVlan", kLinkLinuxCooked, joined({"0000 0001 0006 000000000000 0000 8100 0005 0800", kIpv4, kUdp}),
       found4},
      {"LinuxCooked2", kLinkLinuxCooked2,
       joined({"86dd 0000 00000001 0001 00 06 0000000000000000", ipv6("000a", "11"), kUdp}), found6},
      {"NullLittle", kLinkNull, joined({"02000000", kIpv4, kUdp}), found4},
      {"NullBig", kLinkNull, joined({"00000002", kIpv4, kUdp}), found4},
      {"Null6", kLinkNull, joined({"1e000000", ipv6("000a", "11"), kUdp}), found6},
      {"Loop", kLinkLoop, joined({"00000002", kIpv4, kUdp}), found4},
      {"Raw4", kLinkRaw, joined({kIpv4, kUdp}), found4},
      {"Raw6", kLinkRaw, joined({ipv6("000a", "11"), kUdp}), found6},
      {"Ipv4", kLinkIpv4, joined({kIpv4, kUdp}), found4},
      {"Ipv6", kLinkIpv6, joined({ipv6("000a", "11"), kUdp}), found6},
      {"Ipv4Options", kLinkRaw, joined({"4600002200004000401100000a000001ef010101 01010101", kUdp}), found4},
      {"HopByHop", kLinkRaw, joined({ipv6("0012", "00"), "1100010400000000", kUdp}), found6},
      {"ManyExtensions", kLinkRaw,
       joined({ipv6("0032", "00"), "3c00010400000000", "2b00010400000000", "3301000000000000", "2c000000",
               "1100000000000000", kUdp}),
       "malformed: it is truncated within the IPv6 extension headers"},
      {"Extensions", kLinkRaw,
       joined({ipv6("002e", "00"), "3c00010400000000", "3300010400000000", "2c01000000000000000000ff",
               "1100000000000000", kUdp}),
       found6},
      {"EmptyDatagram", kLinkRaw, joined({"4500001c00004000401100000a000001ef010101", "0005753100080000"}),
       "datagram 10.0.0.1:5 239.1.1.1:30001 "},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(contentOf(row.link, bytesOfHex(row.hex)), row.content);
  }
}

TEST(Packet, TellsWhatIsNone) {
  const struct {
    const char* name;
    int link;
    std::string hex;
    const char* content;
  } cases[] = {
      {"Nothing", kLinkEthernet, "", "malformed: it is truncated within the link header"},
      {"Arp", kLinkEthernet, joined({kMacs, "0806 0001"}), "not IP"},
      {"Length", kLinkEthernet, joined({kMacs, "0004 42420300"}), "not IP"},
      {"UnknownLink", 105, joined({kIpv4, kUdp}), "not IP"},
      {"RawNoIp", kLinkRaw, "55 00", "not IP"},
      {"CutInVlan", kLinkEthernet, joined({kMacs, "8100 00"}), "malformed: it is truncated within the link header"},
      {"Tcp", kLinkRaw, "4500001e00004000400678ac0a000001ef010101 0005", "other transport 6"},
      {"NoNextHeader", kLinkRaw, ipv6("0000", "3b"), "other transport 59"},
      {"FirstFragment", kLinkRaw, joined({"4500001e00002000401178ac0a000001ef010101", kUdp}), "fragment"},
      {"LaterFragment", kLinkRaw, joined({"4500001e00000003401178ac0a000001ef010101", kUdp}), "fragment"},
      {"Fragment6", kLinkRaw, joined({ipv6("0012", "2c"), "1100000100000000", kUdp}), "fragment"},
      {"LaterFragment6", kLinkRaw, joined({ipv6("0012", "2c"), "1100000800000000", kUdp}), "fragment"},
      {"AtomicFragment6", kLinkRaw, joined({ipv6("0012", "2c"), "1100000000000000", kUdp}),
       "datagram [::1]:5 [ff02::1]:30001 0607"},
      {"CutPayload", kLinkRaw, joined({kIpv4, "00057531000a8ea906"}), "cut short"},
      {"CutUdp", kLinkRaw, joined({kIpv4, "00057531"}), "cut short"},
      {"ShortIpv4", kLinkRaw, "4500001e0000", "malformed: it is truncated within the IPv4 header"},
      {"ShortIpv6", kLinkRaw, "600000000000", "malformed: it is truncated within the IPv6 header"},
      {"HeaderLength", kLinkRaw, joined({"4400001e00004000401178ac0a000001ef010101", kUdp}),
       "malformed: the IPv4 header's lengths or version are wrong"},
      {"TotalLength", kLinkRaw, joined({"4500001300004000401178ac0a000001ef010101", kUdp}),
       "malformed: the IPv4 header's lengths or version are wrong"},
      {"Version", kLinkIpv4, joined({"7500001e00004000401178ac0a000001ef010101", kUdp}), "not IP"},
      {"EtherVersion", kLinkEthernet, joined({kMacs, "0800", ipv6("000a", "11"), kUdp}),
       "malformed: the IPv4 header's lengths or version are wrong"},
      {"EtherVersion6", kLinkEthernet, joined({kMacs, "86dd", kIpv4, kUdp, kUdp}),
       "malformed: the IPv6 header's version is wrong"},
      {"UdpLength", kLinkRaw, joined({kIpv4, "00057531000b8ea90607"}),
       "malformed: the UDP length does not fit the IP packet"},
      {"UdpLength7", kLinkRaw, joined({kIpv4, "0005753100078ea90607"}),
       "malformed: the UDP length does not fit the IP packet"},
      {"NoRoomForUdp", kLinkRaw, "4500001b00004000401178ac0a000001ef010101 00057531000800",
       "malformed: the IP packet is truncated within the UDP header"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(contentOf(row.link, bytesOfHex(row.hex)), row.content);
  }
}

TEST(Packet, EveryCutAndEveryChangedByteStaysInside) {
  const int links[] = {kLinkNull, kLinkEthernet,    kLinkRaw,  kLinkRawOpenBsd,   kLinkLoop,
                       kLinkIpv4, kLinkLinuxCooked, kLinkIpv6, kLinkLinuxCooked2, 999};
  const std::string packets[] = {
      joined({kMacs, "88a8 0005 8100 0006 0800", kIpv4, kUdp}),
      joined({ipv6("0022", "00"), "3c00010400000000", "3300010400000000", "1100000000000000", kUdp}),
      joined({"0000 0001 0006 000000000000 0000 0800", kIpv4, kUdp}),
  };
  std::size_t datagrams = 0;
  for (const std::string& hex : packets) {
    const std::vector<std::uint8_t> whole = bytesOfHex(hex);
    for (const int link : links) {
      for (std::size_t size = 0; size <= whole.size(); ++size) {
        contentOf(link, {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
      }
      for (std::size_t at = 0; at != whole.size(); ++at) {
        std::vector<std::uint8_t> changed = whole;
        for (int value = 0; value != 256; ++value) {
          changed[at] = static_cast<std::uint8_t>(value);
          datagrams += contentOf(link, changed).rfind("datagram", 0) == 0 ? 1U : 0U;
        }
      }
    }
  }
  EXPECT_GT(datagrams, 0U);
}

std::uint32_t onesSum(const std::string& bytes, std::size_t from, std::size_t to, std::uint32_t sum) {
  for (std::size_t i = from; i < to; i += 2) {
    const auto high = static_cast<std::uint8_t>(bytes[i]);
    const auto low = i + 1 < to ? static_cast<std::uint8_t>(bytes[i + 1]) : std::uint8_t{0};
    sum += static_cast<std::uint32_t>(high << 8 | low);
    sum = (sum & 0xffff) + (sum >> 16);
  }
  return sum;
}

TEST(Frame, IsThatOfTheDatagram) {
  const std::uint8_t payload[] = {6, 7};
  std::string frame;
  appendFrame(*parseEndpoint("10.0.0.1:5"), *parseEndpoint("239.1.1.1:30001"), 0, payload, sizeof payload, frame);
  std::string hex;
  appendHex(reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size(), hex);
  EXPECT_EQ(hex,
            "01005e01010102000a0000010800"
            "4500001e000040004011"
            "40cc"
            "0a000001ef010101"
            "00057531000a"
            "8a99"
            "0607");
}

TEST(Frame, ChecksumsAreRightForEveryLength) {
  for (std::size_t size : {0U, 1U, 2U, 3U, 1471U, 1472U, 65507U}) {
    SCOPED_TRACE(size);
    std::vector<std::uint8_t> payload(size);
    for (std::size_t i = 0; i != size; ++i) {
      payload[i] = static_cast<std::uint8_t>(i * 7 + 255);
    }
    std::string frame;
    appendFrame(*parseEndpoint("192.168.1.200:65535"), *parseEndpoint("10.1.2.3:1"), 65535, payload.data(), size,
                frame);
    ASSERT_EQ(frame.size(), 14 + 20 + 8 + size);
    EXPECT_EQ(onesSum(frame, 14, 34, 0), 0xffffU);
    EXPECT_EQ(onesSum(frame, 26, frame.size(), static_cast<std::uint32_t>(17 + 8 + size)), 0xffffU);
    const Packet packet = readPacket(kLinkEthernet, reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size());
    EXPECT_EQ(packet.kind, PacketKind::Datagram);
    EXPECT_EQ(textOf(packet.source), "192.168.1.200:65535");
    EXPECT_EQ(textOf(packet.destination), "10.1.2.3:1");
    EXPECT_EQ(std::vector<std::uint8_t>(packet.payload, packet.payload + packet.payloadBytes), payload);
  }
}

TEST(Frame, AChecksumOfZeroIsWrittenAsAllOnes) {
  // Sums up to 0xffff without a checksum, so that the checksum is 0, which would mean that there is none.
  const std::uint8_t payload[] = {0xff, 0xff};
  std::string frame;
  std::uint16_t port = 0;
  for (;; ++port) {
    frame.clear();
    Endpoint source = *parseEndpoint("0.0.0.0:0");
    source.port = port;
    appendFrame(source, *parseEndpoint("0.0.0.0:0"), 0, payload, sizeof payload, frame);
    std::string without = frame;
    without[40] = without[41] = 0;
    if (onesSum(without, 26, without.size(), 17 + 10) == 0xffffU) {
      break;
    }
    ASSERT_NE(port, 65535);
  }
  EXPECT_EQ(static_cast<std::uint8_t>(frame[40]), 0xff);
  EXPECT_EQ(static_cast<std::uint8_t>(frame[41]), 0xff);
}

TEST(Endpoint, IsReadAndWritten) {
  for (const char* const text : {"10.0.0.1:5", "255.255.255.255:65535", "[::1]:0", "[ff02::1]:30001"}) {
    SCOPED_TRACE(text);
    const auto endpoint = parseEndpoint(text);
    ASSERT_TRUE(endpoint);
    EXPECT_EQ(textOf(*endpoint), text);
  }
  for (const char* const text : {"", "10.0.0.1", "10.0.0.1:", "10.0.0.1:65536", "10.0.0.1:5x", "10.0.0:5", "host:5",
                                 "::1:5", "[::1]", "[10.0.0.1]:5", ":5"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(parseEndpoint(text));
  }
}

}  // namespace
