// A UDP feed handler with a realistic loop: it parses each datagram into a reused message of its encoding, reads the
// fields and counts malformed messages. Once every symbol has occurred, it allocates nothing.
//
//   udp_feed_handler ADDRESS:PORT [COUNT [IDLE_SECONDS [INTERFACE]]]
//
// ADDRESS is an IPv4 address of this machine, or a multicast group, joined by the interface with the address INTERFACE;
// port 0 lets the system choose one. Ends after COUNT datagrams (0, the default: any number), or after IDLE_SECONDS
// without a datagram (10 by default; 0: no limit). Run it where etc/field_map.txt is found: in the repository's root,
// or with CONFIG_PATH naming the folder. Send datagrams with udp_publisher, or with
//
//   mdmsg generate --count 1000 | mdmsg replay --destination 127.0.0.1:30001

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include <algorithm>
#include <charconv>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <md/md_itermap.h>
#include <md/md_message.h>
#include <md/md_mint.h>
#include <md/md_msgt.h>

namespace {

std::uint16_t idOf(const char* name) {
  const MD::MD_FieldMap& dictionary = MD::MD_FieldMap::instance();
  const auto field = dictionary.findByName(name);
  if (field == dictionary.end()) {
    throw std::runtime_error("the dictionary has no field " + std::string(name) + "; is field_map.txt found?");
  }
  return field->id;
}

/// Looked up once, since looking a name up takes longer than reading a field.
struct Fields {
  std::uint16_t sequence = idOf("SEQ");
  std::uint16_t symbol = idOf("SYMBOL");
  std::uint16_t kind = idOf("MSG_KIND");
  std::uint16_t sendTime = idOf("SEND_TIME");
  std::uint16_t bid = idOf("BID");
  std::uint16_t ask = idOf("ASK");
  std::uint16_t last = idOf("LAST");
  std::uint16_t lastSize = idOf("LAST_SIZE");
};

/// Senders are untrusted: the stored data is bounded, and printed text cannot control a terminal.
bool isSymbol(std::string_view text) {
  constexpr std::size_t kLongest = 31;
  return text.size() <= kLongest && std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

struct Instrument {
  std::uint64_t quotes = 0;
  std::uint64_t trades = 0;
  double bid = 0;
  double ask = 0;
  double last = 0;
  double traded = 0;
};

class FeedHandler {
 public:
  /// Nothing about the bytes is trusted.
  void onDatagram(const std::uint8_t* bytes, std::uint32_t sizeBytes) {
    ++m_datagrams;
    m_bytes += sizeBytes;
    switch (sizeBytes != 0 ? bytes[0] : 0) {
      case 1:
        return onMessage(m_iterMap, bytes, sizeBytes);
      case 6:
        return onMessage(m_mInt, bytes, sizeBytes);
      case 70:
        return onMessage(m_msgT, bytes, sizeBytes);
      default:
        ++m_foreign;
    }
  }

  std::uint64_t datagrams() const { return m_datagrams; }
  void printSummary() const;

 private:
  /// The message is used through its own class, so that the reads are inlined.
  template <class Encoding>
  void onMessage(Encoding& message, const std::uint8_t* bytes, std::uint32_t sizeBytes) {
    message.setBinaryImpl(bytes, sizeBytes);
    // The parser has already dropped unknown fields and reported them on standard error.
    m_withUnknownFields += message.getSizeImpl() != sizeBytes ? 1U : 0U;
    // A field that is absent, of another type or truncated makes its get return false.
    std::int64_t sequence = 0;
    MD::MD_Message::String symbol;  // a view into the message, good until the message changes
    char kind = 0;
    MD::MD_EpochNS sendTime;
    const bool isUsed = message.get(m_fields.sequence, sequence) && message.get(m_fields.symbol, symbol) &&
                        message.get(m_fields.kind, kind) && message.get(m_fields.sendTime, sendTime) && sequence >= 0 &&
                        isSymbol(symbol) &&
                        (kind == 'Q' ? onQuote(message, symbol) : kind == 'T' && onTrade(message, symbol));
    if (!isUsed) {
      ++m_unusable;
      return;
    }
    onSequence(static_cast<std::uint64_t>(sequence));
  }

  template <class Encoding>
  bool onQuote(const Encoding& message, std::string_view symbol) {
    double bid = 0;
    double ask = 0;
    if (!message.get(m_fields.bid, bid) || !message.get(m_fields.ask, ask)) {
      return false;
    }
    Instrument* const instrument = instrumentOf(symbol);
    if (instrument == nullptr) {
      return false;
    }
    ++instrument->quotes;
    instrument->bid = bid;
    instrument->ask = ask;
    return true;
  }

  template <class Encoding>
  bool onTrade(const Encoding& message, std::string_view symbol) {
    double last = 0;
    double size = 0;
    if (!message.get(m_fields.last, last) || !message.get(m_fields.lastSize, size)) {
      return false;
    }
    Instrument* const instrument = instrumentOf(symbol);
    if (instrument == nullptr) {
      return false;
    }
    ++instrument->trades;
    instrument->last = last;
    instrument->traded += size;
    return true;
  }

  /// UDP loses and reorders datagrams; the sequence numbers reveal this. Late datagrams are counted here; if an older
  /// price must not replace a newer one, check this first.
  void onSequence(std::uint64_t sequence) {
    if (sequence < m_expected) {
      ++m_late;
      return;
    }
    m_missing += m_expected != 0 ? sequence - m_expected : 0;
    m_expected = sequence + 1;
  }

  /// @return null if there are too many: a sender may send any symbols
  Instrument* instrumentOf(std::string_view symbol) {
    constexpr std::size_t kMostInstruments = 1024;
    const auto known = m_instruments.find(symbol);
    if (known != m_instruments.end()) {
      return &known->second;
    }
    return m_instruments.size() < kMostInstruments ? &m_instruments[std::string(symbol)] : nullptr;
  }

  Fields m_fields;
  // A message a kind, whose memory serves all datagrams.
  MD::mInt m_mInt;
  MD::IterMap m_iterMap;
  MD::MsgT m_msgT;
  std::map<std::string, Instrument, std::less<>> m_instruments;  // std::less<>: found by view, without a string
  std::uint64_t m_datagrams = 0;
  std::uint64_t m_bytes = 0;
  std::uint64_t m_foreign = 0;
  std::uint64_t m_unusable = 0;
  std::uint64_t m_withUnknownFields = 0;
  std::uint64_t m_expected = 0;
  std::uint64_t m_missing = 0;
  std::uint64_t m_late = 0;
};

void FeedHandler::printSummary() const {
  const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
  std::printf("%llu datagrams, %llu bytes\n", number(m_datagrams), number(m_bytes));
  std::printf("malformed: %llu unrecognised, %llu unusable; %llu with unknown fields\n", number(m_foreign),
              number(m_unusable), number(m_withUnknownFields));
  std::printf("sequence numbers: %llu missing, %llu late\n", number(m_missing), number(m_late));
  for (const auto& [symbol, instrument] : m_instruments) {
    std::printf("%-8s %4llu quotes, the last %.2f/%.2f, %4llu trades, the last at %.2f, %.1f in all\n", symbol.c_str(),
                number(instrument.quotes), instrument.bid, instrument.ask, number(instrument.trades), instrument.last,
                instrument.traded);
  }
}

/// @throws std::invalid_argument when the text is not an integer from 0 to `largest`
std::uint32_t parseNumber(std::string_view text, std::uint32_t largest) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > largest) {
    throw std::invalid_argument('"' + std::string(text) + "\" is no number from 0 to " + std::to_string(largest));
  }
  return number;
}

in_addr parseAddress(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
    throw std::invalid_argument('"' + text + "\" is no IPv4 address");
  }
  return address;
}

sockaddr_in parsePlace(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) {
    throw std::invalid_argument('"' + text + "\" is not ADDRESS:PORT");
  }
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_addr = parseAddress(text.substr(0, colon));
  place.sin_port = htons(static_cast<std::uint16_t>(parseNumber(std::string_view(text).substr(colon + 1), 65535)));
  return place;
}

struct Options {
  sockaddr_in place{};
  std::uint32_t count = 0;
  std::uint32_t idleSeconds = 10;
  in_addr interfaceAddress{};  // all zero: the system's choice
};

Options parseOptions(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments.size() > 4) {
    throw std::invalid_argument("one to four arguments");
  }
  constexpr std::uint32_t kLongestIdle = 86400;
  Options options;
  options.place = parsePlace(arguments[0]);
  if (arguments.size() > 1) {
    options.count = parseNumber(arguments[1], 4000000000);
  }
  if (arguments.size() > 2) {
    options.idleSeconds = parseNumber(arguments[2], kLongestIdle);
  }
  if (arguments.size() > 3) {
    options.interfaceAddress = parseAddress(arguments[3]);
  }
  return options;
}

/// A socket that is bound to a place or has joined a group.
class Receiver {
 public:
  explicit Receiver(const Options& options) : m_socket(::socket(AF_INET, SOCK_DGRAM, 0)) {
    require(m_socket != -1, "socket");
    try {
      listen(options);
    } catch (...) {
      ::close(m_socket);
      throw;
    }
  }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;
  ~Receiver() { ::close(m_socket); }

  /// Waits for a datagram. @return false when none came in time
  bool receive(std::uint32_t& sizeBytes) {
    ssize_t received = 0;
    do {
      received = ::recv(m_socket, m_buffer.data(), m_buffer.size(), 0);
    } while (received == -1 && errno == EINTR);
    if (received == -1 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return false;
    }
    require(received != -1, "recv");
    sizeBytes = static_cast<std::uint32_t>(received);
    return true;
  }

  const std::uint8_t* bytes() const { return m_buffer.data(); }

  /// "ADDRESS:PORT", with the port that the system chose.
  std::string place() const {
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    require(::getsockname(m_socket, reinterpret_cast<sockaddr*>(&bound), &size) == 0, "getsockname");
    char address[INET_ADDRSTRLEN] = "";
    require(inet_ntop(AF_INET, &bound.sin_addr, address, sizeof address) != nullptr, "inet_ntop");
    return std::string(address) + ':' + std::to_string(ntohs(bound.sin_port));
  }

 private:
  static void require(bool isDone, const char* call) {
    if (!isDone) {
      throw std::system_error(errno, std::generic_category(), call);
    }
  }

  template <class Value>
  void setOption(int level, int option, const Value& value, const char* name) const {
    require(::setsockopt(m_socket, level, option, &value, sizeof value) == 0, name);
  }

  void listen(const Options& options) const {
    const bool isGroup = IN_MULTICAST(ntohl(options.place.sin_addr.s_addr));
    if (isGroup) {
      setOption(SOL_SOCKET, SO_REUSEADDR, 1, "SO_REUSEADDR");  // several programs may listen to one group
    }
    // For bursts while the handler is busy, up to the limit of the system. Datagrams that do not fit are lost.
    setOption(SOL_SOCKET, SO_RCVBUF, 4 << 20, "SO_RCVBUF");
    setOption(SOL_SOCKET, SO_RCVTIMEO, timeval{static_cast<time_t>(options.idleSeconds), 0}, "SO_RCVTIMEO");
    require(::bind(m_socket, reinterpret_cast<const sockaddr*>(&options.place), sizeof options.place) == 0, "bind");
    if (isGroup) {
      setOption(IPPROTO_IP, IP_ADD_MEMBERSHIP, ip_mreq{options.place.sin_addr, options.interfaceAddress},
                "IP_ADD_MEMBERSHIP");
    }
  }

  int m_socket;
  std::vector<std::uint8_t> m_buffer = std::vector<std::uint8_t>(65535);  // no datagram is longer
};

void run(const Options& options) {
  FeedHandler handler;
  Receiver receiver(options);
  std::cout << "listening on " << receiver.place() << std::endl;  // flushed: senders may wait for this
  std::uint32_t sizeBytes = 0;
  while ((options.count == 0 || handler.datagrams() < options.count) && receiver.receive(sizeBytes)) {
    handler.onDatagram(receiver.bytes(), sizeBytes);
  }
  handler.printSummary();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    run(parseOptions({argv + 1, argv + argc}));
    return 0;
  } catch (const std::invalid_argument& error) {
    std::cerr << "udp_feed_handler: " << error.what()
              << "\nusage: udp_feed_handler ADDRESS:PORT [COUNT [IDLE_SECONDS [INTERFACE]]]\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "udp_feed_handler: " << error.what() << '\n';
    return 1;
  }
}
