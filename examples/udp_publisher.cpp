// Publishes quotes over UDP. The message of each instrument is built once; each quote updates it in place and sends its
// bytes, without an encoding step and without allocation.
//
//   udp_publisher ADDRESS:PORT [ENCODING [COUNT [PER_SECOND [INTERFACE]]]]
//
// ADDRESS is an IPv4 address or a multicast group, sent to by the interface with the address INTERFACE. ENCODING is
// mInt (the default), IterMap or MsgT, or its id. The defaults of COUNT and PER_SECOND are 1000 quotes and 1000
// quotes/s. The quotes follow a formula, so that a receiver can verify them. Run it where etc/field_map.txt
// is found: in the repository's root, or with CONFIG_PATH naming the folder.

#include <cerrno>
#include <cstdint>

#include <charconv>
#include <chrono>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <md/md_message.h>

namespace {

std::uint16_t idOf(const char* name) {
  const MD::MD_FieldMap& dictionary = MD::MD_FieldMap::instance();
  const auto field = dictionary.findByName(name);
  if (field == dictionary.end()) {
    throw std::runtime_error("the dictionary has no field " + std::string(name) + "; is field_map.txt found?");
  }
  return field->id;
}

struct Fields {
  std::uint16_t sequence = idOf("SEQ");
  std::uint16_t symbol = idOf("SYMBOL");
  std::uint16_t kind = idOf("MSG_KIND");
  std::uint16_t sendTime = idOf("SEND_TIME");
  std::uint16_t bid = idOf("BID");
  std::uint16_t ask = idOf("ASK");
  std::uint16_t bidSize = idOf("BID_SIZE");
  std::uint16_t askSize = idOf("ASK_SIZE");
};

struct Quote {
  double bid;
  double ask;
  double bidSize;
  double askSize;
};

/// Prices are integers in hundredths that are divided once, so rounding errors do not accumulate.
Quote quoteOf(std::uint32_t step) {
  const std::uint32_t bidTicks = 10000 + step * 7 % 100;
  const std::uint32_t spreadTicks = 1 + step % 4;
  return {bidTicks / 100.0, (bidTicks + spreadTicks) / 100.0, 1.0 + step % 10, 10.0 - step % 10};
}

/// An instrument's message. Its fields are all there from the beginning, in types whose values have one width in every
/// encoding (a 32-bit integer is stored shorter in an mInt where it can be), so that an update never moves anything.
class QuoteMessage {
 public:
  QuoteMessage(std::uint8_t encoding, const Fields& fields, const char* symbol)
      : m_fields(fields), m_message(MD::MD_Message::createFromPB(encoding)) {
    require(m_message->add(fields.sequence, std::int64_t{0}) && m_message->add(fields.symbol, symbol) &&
            m_message->add(fields.kind, 'Q') && m_message->add(fields.bid, 0.0) && m_message->add(fields.ask, 0.0) &&
            m_message->add(fields.bidSize, 0.0) && m_message->add(fields.askSize, 0.0) &&
            m_message->add(fields.sendTime, MD::MD_EpochNS()));
  }

  /// @return the message, whose bytes are valid until the next call
  const MD::MD_Message& update(std::int64_t sequence, const Quote& quote, MD::MD_EpochNS now) {
    require(m_message->update(m_fields.sequence, sequence) && m_message->update(m_fields.bid, quote.bid) &&
            m_message->update(m_fields.ask, quote.ask) && m_message->update(m_fields.bidSize, quote.bidSize) &&
            m_message->update(m_fields.askSize, quote.askSize) && m_message->update(m_fields.sendTime, now));
    return *m_message;
  }

 private:
  /// A field for which the dictionary declares another type is refused.
  static void require(bool isDone) {
    if (!isDone) {
      throw std::runtime_error("a field was refused: the dictionary declares another type");
    }
  }

  Fields m_fields;
  std::unique_ptr<MD::MD_Message> m_message;
};

MD::MD_EpochNS now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return MD::MD_EpochNS(
      static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count()));
}

/// @throws std::invalid_argument when the text is not an integer from `least` to `largest`
std::uint32_t parseNumber(std::string_view text, std::uint32_t least, std::uint32_t largest) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < least || number > largest) {
    throw std::invalid_argument('"' + std::string(text) + "\" is no number from " + std::to_string(least) + " to " +
                                std::to_string(largest));
  }
  return number;
}

std::uint8_t parseEncoding(const std::string& text) {
  if (text == "mInt" || text == "6") {
    return 6;
  }
  if (text == "IterMap" || text == "1") {
    return 1;
  }
  if (text == "MsgT" || text == "70") {
    return 70;
  }
  throw std::invalid_argument('"' + text + "\" is no encoding: mInt (6), IterMap (1), MsgT (70)");
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
  place.sin_port = htons(static_cast<std::uint16_t>(parseNumber(std::string_view(text).substr(colon + 1), 1, 65535)));
  return place;
}

struct Options {
  sockaddr_in place{};
  std::uint8_t encoding = 6;
  std::uint32_t count = 1000;
  std::uint32_t perSecond = 1000;
  in_addr interfaceAddress{};  // all zero: the system's choice
};

Options parseOptions(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments.size() > 5) {
    throw std::invalid_argument("one to five arguments");
  }
  Options options;
  options.place = parsePlace(arguments[0]);
  if (arguments.size() > 1) {
    options.encoding = parseEncoding(arguments[1]);
  }
  if (arguments.size() > 2) {
    options.count = parseNumber(arguments[2], 0, 4000000000);
  }
  if (arguments.size() > 3) {
    options.perSecond = parseNumber(arguments[3], 1, 1000000000);
  }
  if (arguments.size() > 4) {
    options.interfaceAddress = parseAddress(arguments[4]);
  }
  return options;
}

class Sender {
 public:
  explicit Sender(const Options& options) : m_place(options.place), m_socket(::socket(AF_INET, SOCK_DGRAM, 0)) {
    require(m_socket != -1, "socket");
    if (options.interfaceAddress.s_addr != 0 &&
        ::setsockopt(m_socket, IPPROTO_IP, IP_MULTICAST_IF, &options.interfaceAddress, sizeof(in_addr)) != 0) {
      const int error = errno;
      ::close(m_socket);
      throw std::system_error(error, std::generic_category(), "IP_MULTICAST_IF");
    }
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;
  ~Sender() { ::close(m_socket); }

  void send(const MD::MD_Message& message) const {
    ssize_t sent = 0;
    do {
      sent = ::sendto(m_socket, message.getBinary(), message.getSizeImpl(), 0,
                      reinterpret_cast<const sockaddr*>(&m_place), sizeof m_place);
    } while (sent == -1 && errno == EINTR);
    require(sent != -1, "sendto");
  }

 private:
  static void require(bool isDone, const char* call) {
    if (!isDone) {
      throw std::system_error(errno, std::generic_category(), call);
    }
  }

  sockaddr_in m_place;
  int m_socket;
};

void run(const Options& options) {
  const Fields fields;
  QuoteMessage instruments[] = {{options.encoding, fields, "NEB/USD"},
                                {options.encoding, fields, "ORI/USD"},
                                {options.encoding, fields, "LYR/EUR"}};
  const Sender sender(options);
  std::uint64_t bytes = 0;
  const auto start = std::chrono::steady_clock::now();
  for (std::uint32_t i = 0; i < options.count; ++i) {
    // UDP has no flow control: the sender determines the rate.
    std::this_thread::sleep_until(start + std::chrono::nanoseconds(std::uint64_t{i} * 1000000000 / options.perSecond));
    const MD::MD_Message& message =
        instruments[i % std::size(instruments)].update(i + std::int64_t{1}, quoteOf(i), now());
    sender.send(message);
    bytes += message.getSizeImpl();
  }
  std::cout << "sent " << options.count << " datagrams, " << bytes << " bytes\n";
}

}  // namespace

int main(int argc, char** argv) {
  try {
    run(parseOptions({argv + 1, argv + argc}));
    return 0;
  } catch (const std::invalid_argument& error) {
    std::cerr << "udp_publisher: " << error.what()
              << "\nusage: udp_publisher ADDRESS:PORT [ENCODING [COUNT [PER_SECOND [INTERFACE]]]]\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "udp_publisher: " << error.what() << '\n';
    return 1;
  }
}
