#include "transport/udp.h"

#include <csignal>

#include <algorithm>
#include <charconv>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/multicast.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "base/platform.h"

namespace MD::tool {
namespace {

namespace asio = boost::asio;
using asio::ip::udp;
using boost::system::error_code;

constexpr std::size_t kLongestDatagram = 65535;

asio::ip::address toAddress(const IpAddress& address) {
  if (address.sizeBytes == 4) {
    asio::ip::address_v4::bytes_type bytes;
    std::copy_n(address.bytes.begin(), bytes.size(), bytes.begin());
    return asio::ip::address_v4(bytes);
  }
  asio::ip::address_v6::bytes_type bytes;
  std::copy_n(address.bytes.begin(), bytes.size(), bytes.begin());
  return asio::ip::address_v6(bytes);
}

udp::endpoint toEndpoint(const Endpoint& endpoint) { return {toAddress(endpoint.address), endpoint.port}; }

Endpoint fromEndpoint(const udp::endpoint& endpoint) {
  Endpoint result;
  result.port = endpoint.port();
  if (endpoint.address().is_v4()) {
    const auto bytes = endpoint.address().to_v4().to_bytes();
    std::copy(bytes.begin(), bytes.end(), result.address.bytes.begin());
    result.address.sizeBytes = 4;
  } else {
    const auto bytes = endpoint.address().to_v6().to_bytes();
    std::copy(bytes.begin(), bytes.end(), result.address.bytes.begin());
    result.address.sizeBytes = 16;
  }
  return result;
}

udp protocolOf(const Endpoint& endpoint) { return endpoint.address.sizeBytes == 4 ? udp::v4() : udp::v6(); }

/// @throws UsageError "cannot <what>: <why>" when there is an error
void require(const error_code& error, const std::string& what) {
  if (error) {
    throw UsageError("cannot " + what + ": " + error.message());
  }
}

/// @throws UsageError when an interface is named that cannot be the one to reach a group by
void checkInterface(const Endpoint& group, const MulticastOptions& multicast) {
  if (!isMulticast(group.address) || !multicast.interfaceAddress) {
    return;
  }
  // The interface's own address denotes it, for which IPv6 has no options.
  if (group.address.sizeBytes != 4) {
    throw UsageError("--interface requires an IPv4 group; " + textOf(group) + " is IPv6");
  }
  if (multicast.interfaceAddress->sizeBytes != 4) {
    throw UsageError("--interface takes an IPv4 address");
  }
}

asio::ip::address_v4 interfaceV4(const MulticastOptions& multicast) {
  return multicast.interfaceAddress ? toAddress(*multicast.interfaceAddress).to_v4() : asio::ip::address_v4::any();
}

}  // namespace

Endpoint resolveEndpoint(const std::string& text) {
  if (const auto endpoint = parseEndpoint(text)) {
    return *endpoint;
  }
  const std::size_t colon = text.rfind(':');
  if (colon == text.npos || colon == 0 || text.find(':') != colon) {
    throw UsageError(inQuotes(text) + " is not HOST:PORT");
  }
  // The resolver takes a larger number for what is left of it in 16 bits.
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, code] = std::from_chars(text.data() + colon + 1, end, port);
  if (code != std::errc() || rest != end) {
    throw UsageError(inQuotes(text) + " is not HOST:PORT with a port from 0 to 65535");
  }
  asio::io_context context;
  udp::resolver resolver(context);
  error_code error;
  const auto found =
      resolver.resolve(udp::v4(), text.substr(0, colon), std::to_string(port), udp::resolver::numeric_service, error);
  require(error, "find " + inQuotes(text));
  return fromEndpoint(found.begin()->endpoint());
}

class UdpSender::Socket {
 public:
  Socket(const Endpoint& to, const MulticastOptions& multicast)
      : m_to(toEndpoint(to)), m_name(textOf(to)), m_socket(m_context) {
    checkInterface(to, multicast);
    error_code error;
    m_socket.open(protocolOf(to), error);
    require(error, "send to " + m_name);
    if (isMulticast(to.address)) {
      m_socket.set_option(asio::ip::multicast::hops(static_cast<int>(multicast.hops)), error);
      require(error, "send to " + m_name);
      if (multicast.interfaceAddress) {
        m_socket.set_option(asio::ip::multicast::outbound_interface(interfaceV4(multicast)), error);
        require(error, "send by " + textOf(*multicast.interfaceAddress));
      }
    }
  }

  void send(const std::uint8_t* bytes, std::size_t sizeBytes) {
    error_code error;
    m_socket.send_to(asio::buffer(bytes, sizeBytes), m_to, 0, error);
    if (error == asio::error::message_size) {
      throw LineError(ReportKind::NotHeld, std::to_string(sizeBytes) + " bytes are too long for a datagram");
    }
    require(error, "send to " + m_name);
  }

 private:
  asio::io_context m_context;
  udp::endpoint m_to;
  std::string m_name;
  udp::socket m_socket;
};

UdpSender::UdpSender(const Endpoint& to, const MulticastOptions& multicast)
    : m_socket(std::make_unique<Socket>(to, multicast)) {}

UdpSender::~UdpSender() = default;

void UdpSender::send(const std::uint8_t* bytes, std::size_t sizeBytes) { m_socket->send(bytes, sizeBytes); }

class UdpSource::Socket {
 public:
  Socket(const Endpoint& at, const MulticastOptions& multicast, const ListenLimits& limits)
      : m_socket(m_context), m_idle(m_context), m_timeout(m_context), m_signals(m_context), m_limits(limits) {
    const std::string name = textOf(at);
    checkInterface(at, multicast);
    error_code error;
    m_socket.open(protocolOf(at), error);
    require(error, "listen on " + name);
    if (isMulticast(at.address)) {
      join(at, multicast, name);
    } else {
      m_socket.bind(toEndpoint(at), error);
      require(error, "listen on " + name);
    }
    // Room for bursts, as far as the system gives it.
    constexpr std::uint32_t kUsualBytes = 4 << 20;
    const std::uint32_t bufferBytes = limits.receiveBufferBytes.value_or(kUsualBytes);
    m_socket.set_option(asio::socket_base::receive_buffer_size(static_cast<int>(bufferBytes)), error);
    m_signals.add(SIGINT, error);
    m_signals.add(SIGTERM, error);
    m_signals.async_wait([this](const error_code& signalError, int) { m_isEnded = m_isEnded || !signalError; });
    if (limits.timeout) {
      endAfter(m_timeout, *limits.timeout, m_isEnded);
    }
    if (limits.idle) {
      endAfter(m_idle, *limits.idle, m_isIdle);
    }
  }

  std::uint64_t dropped() { return droppedDatagrams(static_cast<std::intptr_t>(m_socket.native_handle())); }

  std::uint32_t receiveBufferBytes() const {
    asio::socket_base::receive_buffer_size size;
    error_code error;
    m_socket.get_option(size, error);
    return static_cast<std::uint32_t>(size.value());
  }

  Endpoint localEndpoint() const { return fromEndpoint(m_socket.local_endpoint()); }

  /// Whether a datagram is there without a wait.
  bool isReady() {
    error_code error;
    return m_socket.available(error) != 0;
  }

  /// Waits for a datagram. @return its size; empty when listening has ended
  std::optional<std::size_t> receive() {
    m_received.reset();
    if (m_isEnded) {
      // However many are there: a sender that is faster than what is done with them would have no end.
      return m_received;
    }
    for (startReceiving(); m_isReceiving && !m_isEnded && !m_isIdle;) {
      m_context.run_one();
    }
    if (m_isReceiving) {
      // The buffer must not be written to later; a datagram may nevertheless be there.
      m_socket.cancel();
      while (m_isReceiving) {
        m_context.run_one();
      }
      m_failure.clear();
    }
    require(m_failure, "listen");
    if (m_received && m_limits.idle) {
      m_isIdle = false;
      endAfter(m_idle, *m_limits.idle, m_isIdle);
    }
    return m_received;
  }

  const std::uint8_t* data() const noexcept { return m_buffer.data(); }
  Endpoint source() const { return fromEndpoint(m_from); }

 private:
  void join(const Endpoint& group, const MulticastOptions& multicast, const std::string& name) {
    error_code error;
    // Several programs may listen to one group.
    m_socket.set_option(udp::socket::reuse_address(true), error);
    require(error, "listen on " + name);
#if defined(_WIN32)
    // There a socket cannot be bound to the address of a group.
    m_socket.bind({protocolOf(group), group.port}, error);
#else
    m_socket.bind(toEndpoint(group), error);
#endif
    require(error, "listen on " + name);
    if (group.address.sizeBytes == 4) {
      m_socket.set_option(asio::ip::multicast::join_group(toAddress(group.address).to_v4(), interfaceV4(multicast)),
                          error);
    } else {
      m_socket.set_option(asio::ip::multicast::join_group(toAddress(group.address)), error);
    }
    require(error, "join " + name);
  }

  void startReceiving() {
    m_isReceiving = true;
    m_socket.async_receive_from(asio::buffer(m_buffer), m_from, [this](const error_code& error, std::size_t sizeBytes) {
      m_isReceiving = false;
      if (!error) {
        m_received = sizeBytes;
      } else if (!m_isEnded && (error == asio::error::connection_refused || error == asio::error::connection_reset)) {
        // Some systems report here that something sent from this port found no receiver.
        startReceiving();
      } else {
        m_failure = error;
      }
    });
  }

  static void endAfter(asio::steady_timer& timer, std::chrono::nanoseconds duration, bool& isOver) {
    timer.expires_after(std::chrono::duration_cast<asio::steady_timer::duration>(duration));
    // It may have been set anew since.
    timer.async_wait([&timer, &isOver](const error_code& error) {
      isOver = isOver || (!error && timer.expiry() <= asio::steady_timer::clock_type::now());
    });
  }

  asio::io_context m_context;
  udp::socket m_socket;
  asio::steady_timer m_idle;
  asio::steady_timer m_timeout;
  asio::signal_set m_signals;
  ListenLimits m_limits;
  std::vector<std::uint8_t> m_buffer = std::vector<std::uint8_t>(kLongestDatagram);
  udp::endpoint m_from;
  std::optional<std::size_t> m_received;
  error_code m_failure;
  bool m_isReceiving = false;
  bool m_isEnded = false;
  bool m_isIdle = false;  // nothing has come for too long, as far as the last wait saw
};

UdpSource::UdpSource(const Endpoint& at, const MulticastOptions& multicast, const ListenLimits& limits, Output& out,
                     Reporter& reporter)
    : m_limits(limits),
      m_out(out),
      m_reporter(reporter),
      m_socket(std::make_unique<Socket>(at, multicast, limits)),
      m_endpoint(m_socket->localEndpoint()) {
  if (isMulticast(at.address)) {
    m_endpoint.address = at.address;
  }
}

UdpSource::~UdpSource() = default;

std::uint64_t UdpSource::dropped() const { return m_socket->dropped(); }

std::uint32_t UdpSource::receiveBufferBytes() const { return m_socket->receiveBufferBytes(); }

bool UdpSource::next(InputMessage& message) {
  if (m_datagrams == m_limits.datagrams) {
    return false;
  }
  if (!m_socket->isReady()) {
    m_out.flush();
  }
  const auto sizeBytes = m_socket->receive();
  if (!sizeBytes) {
    m_hasEndedEarly = true;
    return false;
  }
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  m_reporter.setPlace({Place::Kind::Datagram, ++m_datagrams, 0});
  message = {};
  message.data = m_socket->data();
  message.sizeBytes = *sizeBytes;
  message.hasEndpoints = true;
  message.timeNs = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
  message.source = m_socket->source();
  message.destination = m_endpoint;
  return true;
}

}  // namespace MD::tool
