// The core of a feed handler: datagrams of any encoding in, typed reads out. Here the datagrams come from a file, one a
// line in hex, such as data/datagrams.hex; udp_feed_handler.cpp takes them from a socket and allocates nothing for
// them.
//
//   feed_handler FILE

#include <md/md_frac_double.h>
#include <md/md_message.h>

#include <charconv>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The fields this handler reads. A real one takes the ids from its venue's documents and the dictionary from a file on
// the configuration search path.
enum FieldId : std::uint16_t { kSymbol = 10, kBid = 22, kBidSize = 23, kAsk = 25, kAskSize = 26, kTime = 50 };
constexpr const char* kDictionary =
    "SYMBOL 10 STRING\n"
    "BID 22 DOUBLE\n"
    "BID_SIZE 23 INT\n"
    "ASK 25 DOUBLE\n"
    "ASK_SIZE 26 INT\n"
    "RECV_TIME 50 EPOCH_NSEC\n";

/// Looks at one received datagram. Nothing about its bytes is trusted: unknown fields are cut out by the parse, and a
/// field that is absent, of another type or cut off makes its get return false.
void onDatagram(const std::uint8_t* bytes, std::uint32_t sizeBytes) {
  const auto message = MD::MD_Message::createFromBytes(bytes, sizeBytes);
  if (message == nullptr) {
    std::cout << "foreign datagram of " << sizeBytes << " bytes\n";
    return;
  }
  std::cout << "encoding " << int{message->getPB()} << ", " << message->fieldCount() << " fields:";
  MD::MD_Message::String symbol;  // a view into the message, good until the message changes
  if (message->get(kSymbol, symbol)) {
    std::cout << ' ' << std::string_view(symbol);
  }
  double price = 0;
  std::int32_t size = 0;
  if (message->get(kBid, price) && message->get(kBidSize, size)) {
    std::cout << "  bid " << size << " @ " << MD::frac_double_to_string(price);
  }
  if (message->get(kAsk, price) && message->get(kAskSize, size)) {
    std::cout << "  ask " << size << " @ " << MD::frac_double_to_string(price);
  }
  MD::MD_EpochNS time;
  if (message->get(kTime, time)) {
    std::cout << "  at " << time.get_s() << " s";
  }
  std::cout << '\n';
}

bool fromHex(const std::string& line, std::vector<std::uint8_t>& bytes) {
  bytes.clear();
  for (std::size_t i = 0; i + 1 < line.size(); i += 2) {
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(line.data() + i, line.data() + i + 2, byte, 16);
    if (error != std::errc() || end != line.data() + i + 2) {
      return false;
    }
    bytes.push_back(byte);
  }
  return line.size() % 2 == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: feed_handler FILE\n";
    return 2;
  }
  const char* path = argv[1];
  std::ifstream file(path);
  if (!file) {
    std::cerr << "feed_handler: cannot read " << path << '\n';
    return 2;
  }
  std::istringstream dictionary(kDictionary);
  MD::MD_FieldMap::reload_text(dictionary, "fields of feed_handler");

  std::string line;
  std::vector<std::uint8_t> bytes;
  while (std::getline(file, line)) {
    if (!fromHex(line, bytes)) {
      std::cerr << "feed_handler: not hex: " << line << '\n';
      return 2;
    }
    onDatagram(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  }
  if (file.bad()) {
    std::cerr << "feed_handler: cannot read on\n";
    return 2;
  }
  if (!std::cout.flush()) {
    std::cerr << "feed_handler: cannot write\n";
    return 2;
  }
  return 0;
}
