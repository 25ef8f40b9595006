// Captured packets: the UDP datagram inside a frame, and frames made around a datagram. No sockets, no capture library.
#ifndef MDMSG_PACKET_H
#define MDMSG_PACKET_H

#include <cstddef>
#include <cstdint>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace MD::tool {

/// An IPv4 or IPv6 address, in network order.
struct IpAddress {
  std::array<std::uint8_t, 16> bytes{};
  std::uint8_t sizeBytes = 4;  ///< 4 or 16

  friend bool operator==(const IpAddress& a, const IpAddress& b) {
    return a.sizeBytes == b.sizeBytes && a.bytes == b.bytes;
  }
  friend bool operator!=(const IpAddress& a, const IpAddress& b) { return !(a == b); }
};

/// "239.1.1.1", "ff02::1". Empty when `text` is no address; names are not looked up.
std::optional<IpAddress> parseAddress(std::string_view text);
std::string textOf(const IpAddress& address);
bool isMulticast(const IpAddress& address) noexcept;

struct Endpoint {
  IpAddress address;
  std::uint16_t port = 0;
};

/// "239.1.1.1:30001", "[ff02::1]:30001". Empty when `text` is none.
std::optional<Endpoint> parseEndpoint(std::string_view text);
std::string textOf(const Endpoint& endpoint);

/// What begins a frame, by the numbers that capture files use.
enum LinkType : int {
  kLinkNull = 0,
  kLinkEthernet = 1,
  kLinkRaw = 12,
  kLinkRawOpenBsd = 14,
  kLinkLoop = 108,
  kLinkLinuxCooked = 113,
  kLinkIpv4 = 228,
  kLinkIpv6 = 229,
  kLinkLinuxCooked2 = 276,
};
bool isKnownLinkType(int link) noexcept;

enum class PacketKind {
  Datagram,        ///< a whole UDP datagram
  Fragment,        ///< a part of an IP packet
  OtherTransport,  ///< IP, not UDP; see `protocol`
  NotIp,
  CutShort,  ///< a UDP datagram of which the capture kept a part
  Malformed,
};

/// What is in a captured packet. `payload` points into the packet.
struct Packet {
  PacketKind kind = PacketKind::NotIp;
  std::uint8_t protocol = 0;  ///< the transport's number: 6 TCP, 17 UDP
  Endpoint source;
  Endpoint destination;
  const std::uint8_t* payload = nullptr;
  std::size_t payloadBytes = 0;
  const char* reason = "";  ///< of Malformed
};

/// What a capture file says of all its packets.
struct CaptureFormat {
  bool isNanosecond = true;  ///< else timestamps are written in microseconds
  bool isBigEndian = false;
  std::uint32_t zone = 0;  ///< not used by readers, and so is the next
  std::uint32_t significantFigures = 0;
  std::uint32_t snapshotBytes = 262144;  ///< the longest packet
  std::uint32_t link = kLinkEthernet;    ///< as in the file; the upper bits describe checksums after packets

  friend bool operator==(const CaptureFormat& a, const CaptureFormat& b) {
    return a.isNanosecond == b.isNanosecond && a.isBigEndian == b.isBigEndian && a.zone == b.zone &&
           a.significantFigures == b.significantFigures && a.snapshotBytes == b.snapshotBytes && a.link == b.link;
  }
};

/// A packet as a capture holds it.
struct CapturedPacket {
  const std::uint8_t* data = nullptr;
  std::uint32_t sizeBytes = 0;
  std::uint32_t wireBytes = 0;  ///< how long it was; the capture may hold less
  CaptureFormat format;         ///< of the capture, or what comes closest to it where that is no plain pcap
  bool isPlainPcap = true;
  bool isCut = false;  ///< it is longer than the capture says of all its packets; libpcap gives a part only
};

/// Looks into a packet; VLAN tags and IPv6 extension headers are stepped over. Reads nothing outside the captured
/// bytes. Checksums are not looked at: captures on the sending machine hold wrong ones.
Packet readPacket(int link, const std::uint8_t* bytes, std::size_t capturedBytes);

/// The most bytes that a datagram over IPv4 carries.
constexpr std::size_t kMaxPayloadBytes = 65535 - 20 - 8;

/// Appends an Ethernet frame with an IPv4/UDP datagram, all lengths and checksums right.
/// @param payloadBytes    at most kMaxPayloadBytes
/// @param identification  of the IP header
void appendFrame(const Endpoint& source, const Endpoint& destination, std::uint16_t identification,
                 const std::uint8_t* payload, std::size_t payloadBytes, std::string& out);

}  // namespace MD::tool

#endif
