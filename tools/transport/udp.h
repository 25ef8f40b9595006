// UDP datagrams, sent and received.
#ifndef MDMSG_UDP_H
#define MDMSG_UDP_H

#include <cstddef>
#include <cstdint>

#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "base/output.h"
#include "transport/message_source.h"
#include "transport/packet.h"

namespace MD::tool {

/// Of a group: the address of this machine by which it is sent to or joined, and how far datagrams go.
struct MulticastOptions {
  std::optional<IpAddress> interfaceAddress;  ///< the system's choice without one
  unsigned hops = 1;
};

/// Looks up "HOST:PORT", "ADDRESS:PORT" or "[ADDRESS]:PORT".
/// @throws UsageError when there is no such host or the text is none of these
Endpoint resolveEndpoint(const std::string& text);

class UdpSender {
 public:
  /// @throws UsageError when nothing can be sent there
  UdpSender(const Endpoint& to, const MulticastOptions& multicast);
  ~UdpSender();

  /// @throws LineError when the datagram is too long for the way there
  /// @throws UsageError when nothing can be sent any more
  void send(const std::uint8_t* bytes, std::size_t sizeBytes);

 private:
  class Socket;
  std::unique_ptr<Socket> m_socket;
};

/// When listening ends; an interrupt (Control-C) ends it, too.
struct ListenLimits {
  std::uint64_t datagrams = std::numeric_limits<std::uint64_t>::max();
  std::optional<std::chrono::nanoseconds> timeout;  ///< since the beginning
  std::optional<std::chrono::nanoseconds> idle;     ///< since the last datagram, or the beginning
  /// How much the system keeps of what has come and was not read yet; it may give less.
  std::optional<std::uint32_t> receiveBufferBytes;
};

/// Gives each datagram that arrives, with the time of arrival and where it comes from.
class UdpSource : public MessageSource {
 public:
  /// Binds to an address of this machine, or joins a group. From here on datagrams are kept until they are read.
  /// @param out  written out before each wait
  /// @throws UsageError when that is not possible
  UdpSource(const Endpoint& at, const MulticastOptions& multicast, const ListenLimits& limits, Output& out,
            Reporter& reporter);
  ~UdpSource() override;

  bool next(InputMessage& message) override;

  /// Where it listens; the port is the system's choice where 0 was asked for.
  const Endpoint& endpoint() const noexcept { return m_endpoint; }
  std::uint64_t datagrams() const noexcept { return m_datagrams; }
  /// How many datagrams the system dropped because they arrived faster than they were read; 0 if it does not report
  /// them.
  std::uint64_t dropped() const;
  /// How large the receive buffer is.
  std::uint32_t receiveBufferBytes() const;
  /// Whether listening has ended before all datagrams that were asked for had come.
  bool hasEndedEarly() const noexcept { return m_hasEndedEarly; }

 private:
  class Socket;

  ListenLimits m_limits;
  Output& m_out;
  Reporter& m_reporter;
  std::unique_ptr<Socket> m_socket;
  Endpoint m_endpoint;
  std::uint64_t m_datagrams = 0;
  bool m_hasEndedEarly = false;
};

}  // namespace MD::tool

#endif
