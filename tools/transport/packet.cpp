#include "transport/packet.h"

#include <cstring>

#include <charconv>
#include <system_error>

#include "base/platform.h"

namespace MD::tool {
namespace {

constexpr std::uint16_t kEtherIpv4 = 0x0800;
constexpr std::uint16_t kEtherIpv6 = 0x86dd;
constexpr std::uint8_t kUdp = 17;
constexpr std::size_t kIpv4HeaderBytes = 20;
constexpr std::size_t kIpv6HeaderBytes = 40;
constexpr std::size_t kUdpHeaderBytes = 8;

/// What is left of a packet; a read beyond it fails.
class Cursor {
 public:
  Cursor(const std::uint8_t* bytes, std::size_t sizeBytes) : m_bytes(bytes), m_sizeBytes(sizeBytes) {}

  bool has(std::size_t count) const noexcept { return count <= m_sizeBytes; }
  std::size_t size() const noexcept { return m_sizeBytes; }
  const std::uint8_t* data() const noexcept { return m_bytes; }
  std::uint8_t byte(std::size_t at) const noexcept { return m_bytes[at]; }
  std::uint16_t word(std::size_t at) const noexcept { return static_cast<std::uint16_t>(byte(at) << 8 | byte(at + 1)); }
  void skip(std::size_t count) noexcept {
    m_bytes += count;
    m_sizeBytes -= count;
  }
  void cutTo(std::size_t sizeBytes) noexcept { m_sizeBytes = sizeBytes; }

 private:
  const std::uint8_t* m_bytes;
  std::size_t m_sizeBytes;
};

void setMalformed(Packet& packet, const char* reason) {
  packet = {};
  packet.kind = PacketKind::Malformed;
  packet.reason = reason;
}

bool isVlanTag(std::uint16_t etherType) noexcept {
  return etherType == 0x8100 || etherType == 0x88a8 || etherType == 0x9100;
}

/// Steps over the tags that precede the type proper. @return false when the packet ends before
bool skipVlanTags(Cursor& rest, std::uint16_t& etherType) {
  while (isVlanTag(etherType)) {
    if (!rest.has(4)) {
      return false;
    }
    etherType = rest.word(2);
    rest.skip(4);
  }
  return true;
}

/// The type after a link header of `headerBytes`, where it is at `at`.
bool readEtherType(Cursor& rest, std::size_t headerBytes, std::size_t at, std::uint16_t& etherType) {
  if (!rest.has(headerBytes)) {
    return false;
  }
  etherType = rest.word(at);
  rest.skip(headerBytes);
  return skipVlanTags(rest, etherType);
}

/// The same for packets without one: by the version in the IP header.
std::uint16_t etherTypeOfIp(const Cursor& rest) noexcept {
  switch (rest.size() == 0 ? 0 : rest.byte(0) >> 4) {
    case 4:
      return kEtherIpv4;
    case 6:
      return kEtherIpv6;
    default:
      return 0;
  }
}

/// Steps over the header of the link. @return false when the packet ends before
bool skipLink(int link, Cursor& rest, std::uint16_t& etherType) {
  switch (link) {
    case kLinkEthernet:
      return readEtherType(rest, 14, 12, etherType);
    case kLinkLinuxCooked:
      return readEtherType(rest, 16, 14, etherType);
    case kLinkLinuxCooked2:
      return readEtherType(rest, 20, 0, etherType);
    case kLinkNull:
    case kLinkLoop:
      // The address family in front is in the byte order, and has the numbers, of the system that captured.
      if (!rest.has(4)) {
        return false;
      }
      rest.skip(4);
      break;
    case kLinkIpv4:
    case kLinkIpv6:
    case kLinkRaw:
    case kLinkRawOpenBsd:
      break;
    default:
      etherType = 0;
      return true;
  }
  etherType = etherTypeOfIp(rest);
  return true;
}

void setAddress(IpAddress& address, const std::uint8_t* bytes, std::uint8_t sizeBytes) {
  address.sizeBytes = sizeBytes;
  std::memcpy(address.bytes.data(), bytes, sizeBytes);
}

/// @param ipPayloadBytes  by the IP header; the capture may hold less
void readUdp(Packet& packet, Cursor rest, std::size_t ipPayloadBytes) {
  packet.kind = PacketKind::CutShort;
  if (ipPayloadBytes < kUdpHeaderBytes) {
    return setMalformed(packet, "the IP packet is truncated within the UDP header");
  }
  if (!rest.has(kUdpHeaderBytes)) {
    return;
  }
  packet.source.port = rest.word(0);
  packet.destination.port = rest.word(2);
  const std::size_t udpBytes = rest.word(4);
  if (udpBytes < kUdpHeaderBytes || udpBytes > ipPayloadBytes) {
    return setMalformed(packet, "the UDP length does not fit the IP packet");
  }
  packet.payloadBytes = udpBytes - kUdpHeaderBytes;
  if (!rest.has(udpBytes)) {
    return;
  }
  packet.kind = PacketKind::Datagram;
  packet.payload = rest.data() + kUdpHeaderBytes;
}

void readTransport(Packet& packet, Cursor rest, std::size_t ipPayloadBytes) {
  packet.kind = PacketKind::OtherTransport;
  if (packet.protocol == kUdp) {
    readUdp(packet, rest, ipPayloadBytes);
  }
}

void readIpv4(Packet& packet, Cursor rest) {
  if (!rest.has(kIpv4HeaderBytes)) {
    return setMalformed(packet, "it is truncated within the IPv4 header");
  }
  const std::size_t headerBytes = std::size_t{4} * (rest.byte(0) & 0x0fU);
  const std::size_t totalBytes = rest.word(2);
  if (rest.byte(0) >> 4 != 4 || headerBytes < kIpv4HeaderBytes || totalBytes < headerBytes || !rest.has(headerBytes)) {
    return setMalformed(packet, "the IPv4 header's lengths or version are wrong");
  }
  packet.protocol = rest.byte(9);
  setAddress(packet.source.address, rest.data() + 12, 4);
  setAddress(packet.destination.address, rest.data() + 16, 4);
  constexpr unsigned kMoreFragmentsAndOffset = 0x3fff;
  if ((rest.word(6) & kMoreFragmentsAndOffset) != 0) {
    packet.kind = PacketKind::Fragment;
    return;
  }
  if (rest.has(totalBytes)) {
    rest.cutTo(totalBytes);  // short frames are padded
  }
  rest.skip(headerBytes);
  return readTransport(packet, rest, totalBytes - headerBytes);
}

/// The length of an IPv6 extension header, 0 when `type` is none.
std::size_t extensionBytes(std::uint8_t type, std::uint8_t lengthByte) noexcept {
  switch (type) {
    case 0:    // hop-by-hop options
    case 43:   // routing
    case 60:   // destination options
    case 135:  // mobility
    case 139:  // host identity
    case 140:  // shim6
      return (std::size_t{lengthByte} + 1) * 8;
    case 44:  // fragment
      return 8;
    case 51:  // authentication
      return (std::size_t{lengthByte} + 2) * 4;
    default:
      return 0;
  }
}

void readIpv6(Packet& packet, Cursor rest) {
  if (!rest.has(kIpv6HeaderBytes)) {
    return setMalformed(packet, "it is truncated within the IPv6 header");
  }
  if (rest.byte(0) >> 4 != 6) {
    return setMalformed(packet, "the IPv6 header's version is wrong");
  }
  std::size_t payloadBytes = rest.word(4);
  packet.protocol = rest.byte(6);
  setAddress(packet.source.address, rest.data() + 8, 16);
  setAddress(packet.destination.address, rest.data() + 24, 16);
  rest.skip(kIpv6HeaderBytes);
  if (rest.has(payloadBytes)) {
    rest.cutTo(payloadBytes);
  }
  for (;;) {
    const std::size_t bytes = extensionBytes(packet.protocol, rest.has(2) ? rest.byte(1) : std::uint8_t{0});
    if (bytes == 0) {
      return readTransport(packet, rest, payloadBytes);
    }
    if (bytes > payloadBytes || !rest.has(bytes)) {
      return setMalformed(packet, "it is truncated within the IPv6 extension headers");
    }
    constexpr std::uint8_t kFragmentHeader = 44;
    constexpr unsigned kOffsetAndMoreFragments = 0xfff9;
    if (packet.protocol == kFragmentHeader && (rest.word(2) & kOffsetAndMoreFragments) != 0) {
      packet.kind = PacketKind::Fragment;
      return;
    }
    packet.protocol = rest.byte(0);
    rest.skip(bytes);
    payloadBytes -= bytes;
  }
}

void appendWord(std::uint16_t value, std::string& out) {
  out += static_cast<char>(value >> 8);
  out += static_cast<char>(value & 0xff);
}

std::uint32_t sumOfWords(const char* bytes, std::size_t sizeBytes, std::uint32_t sum) {
  for (std::size_t i = 0; i != sizeBytes; ++i) {
    const auto byte = static_cast<std::uint8_t>(bytes[i]);
    sum += i % 2 == 0 ? std::uint32_t{byte} << 8 : byte;
  }
  return sum;
}

std::uint16_t checksum(std::uint32_t sum) {
  while (sum >> 16 != 0) {
    sum = (sum & 0xffff) + (sum >> 16);
  }
  return static_cast<std::uint16_t>(~sum);
}

void setWord(std::string& out, std::size_t at, std::uint16_t value) {
  out[at] = static_cast<char>(value >> 8);
  out[at + 1] = static_cast<char>(value & 0xff);
}

void appendBytes(const std::uint8_t* bytes, std::size_t sizeBytes, std::string& out) {
  for (std::size_t i = 0; i != sizeBytes; ++i) {
    out += static_cast<char>(bytes[i]);
  }
}

/// The address that Ethernet prescribes for a group, else one that is locally administered.
void appendMacAddress(const IpAddress& address, std::string& out) {
  if (isMulticast(address)) {
    const std::uint8_t mac[] = {
        0x01, 0x00, 0x5e, static_cast<std::uint8_t>(address.bytes[1] & 0x7f), address.bytes[2], address.bytes[3]};
    appendBytes(mac, sizeof mac, out);
  } else {
    out.append("\x02\x00", 2);
    appendBytes(address.bytes.data(), 4, out);
  }
}

void appendIpv4Header(const Endpoint& source, const Endpoint& destination, std::uint16_t identification,
                      std::size_t totalBytes, std::string& out) {
  constexpr std::size_t kChecksumAt = 10;
  const std::size_t start = out.size();
  out.append("\x45\x00", 2);
  appendWord(static_cast<std::uint16_t>(totalBytes), out);
  appendWord(identification, out);
  out.append("\x40\x00\x40\x11", 4);  // not to be fragmented, TTL 64, UDP
  appendWord(0, out);
  appendBytes(source.address.bytes.data(), 4, out);
  appendBytes(destination.address.bytes.data(), 4, out);
  setWord(out, start + kChecksumAt, checksum(sumOfWords(&out[start], kIpv4HeaderBytes, 0)));
}

}  // namespace

std::optional<IpAddress> parseAddress(std::string_view text) {
  IpAddress address;
  address.sizeBytes = parseIpAddress(std::string(text), address.bytes.data());
  return address.sizeBytes != 0 ? std::optional(address) : std::nullopt;
}

std::string textOf(const IpAddress& address) { return ipAddressText(address.bytes.data(), address.sizeBytes); }

bool isMulticast(const IpAddress& address) noexcept {
  return address.sizeBytes == 4 ? address.bytes[0] >> 4 == 0xe : address.bytes[0] == 0xff;
}

std::optional<Endpoint> parseEndpoint(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == text.npos) {
    return std::nullopt;
  }
  std::string_view host = text.substr(0, colon);
  const bool isBracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
  if (isBracketed) {
    host = host.substr(1, host.size() - 2);
  }
  const auto address = parseAddress(host);
  if (!address || isBracketed != (address->sizeBytes == 16)) {
    return std::nullopt;
  }
  Endpoint endpoint{*address, 0};
  const char* const end = text.data() + text.size();
  const auto [rest, code] = std::from_chars(text.data() + colon + 1, end, endpoint.port);
  return code == std::errc() && rest == end ? std::optional(endpoint) : std::nullopt;
}

std::string textOf(const Endpoint& endpoint) {
  const std::string host = textOf(endpoint.address);
  return (endpoint.address.sizeBytes == 4 ? host : '[' + host + ']') + ':' + std::to_string(endpoint.port);
}

bool isKnownLinkType(int link) noexcept {
  switch (link) {
    case kLinkNull:
    case kLinkEthernet:
    case kLinkRaw:
    case kLinkRawOpenBsd:
    case kLinkLoop:
    case kLinkLinuxCooked:
    case kLinkIpv4:
    case kLinkIpv6:
    case kLinkLinuxCooked2:
      return true;
    default:
      return false;
  }
}

Packet readPacket(int link, const std::uint8_t* bytes, std::size_t capturedBytes) {
  Packet packet;
  Cursor rest(bytes, capturedBytes);
  std::uint16_t etherType = 0;
  if (!skipLink(link, rest, etherType)) {
    setMalformed(packet, "it is truncated within the link header");
  } else if (etherType == kEtherIpv4) {
    readIpv4(packet, rest);
  } else if (etherType == kEtherIpv6) {
    readIpv6(packet, rest);
  }
  return packet;
}

void appendFrame(const Endpoint& source, const Endpoint& destination, std::uint16_t identification,
                 const std::uint8_t* payload, std::size_t payloadBytes, std::string& out) {
  appendMacAddress(destination.address, out);
  appendMacAddress(source.address, out);
  appendWord(kEtherIpv4, out);
  const std::size_t udpBytes = kUdpHeaderBytes + payloadBytes;
  appendIpv4Header(source, destination, identification, kIpv4HeaderBytes + udpBytes, out);

  constexpr std::size_t kChecksumAt = 6;
  constexpr std::size_t kBothAddressesBytes = 8;
  const std::size_t start = out.size();
  appendWord(source.port, out);
  appendWord(destination.port, out);
  appendWord(static_cast<std::uint16_t>(udpBytes), out);
  appendWord(0, out);
  appendBytes(payload, payloadBytes, out);
  // The checksum goes over a pseudo header too: both addresses, the protocol and the length.
  std::uint32_t sum = static_cast<std::uint32_t>(kUdp + udpBytes);
  sum = sumOfWords(&out[start - kBothAddressesBytes], kBothAddressesBytes + udpBytes, sum);
  const std::uint16_t folded = checksum(sum);
  setWord(out, start + kChecksumAt, folded == 0 ? std::uint16_t{0xffff} : folded);
}

}  // namespace MD::tool
