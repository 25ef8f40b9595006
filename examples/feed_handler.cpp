// The core of a feed handler: parses datagrams of any encoding and reads typed fields. Here the datagrams come from a
// file, one per line in hex, such as data/datagrams.hex; udp_feed_handler.cpp receives them from a socket and allocates
// nothing.
//
//   feed_handler FILE

#include <md/md_escape.h>
#include <md/md_frac_double.h>
#include <md/md_message.h>

#include <charconv>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

// The fields this handler reads. A real one takes the ids from its venue's documents and the dictionary from a file on
// the configuration search path.
constexpr MD::Field<MD::MD_Message::String> SYMBOL{10};
constexpr MD::Field<double> BID{22};
constexpr MD::Field<int> BID_SIZE{23};
constexpr MD::Field<double> ASK{25};
constexpr MD::Field<int> ASK_SIZE{26};
constexpr MD::Field<MD::MD_EpochNS> RECV_TIME{50};

constexpr const char* kDictionary =
    "SYMBOL 10 STRING\n"
    "BID 22 DOUBLE\n"
    "BID_SIZE 23 INT\n"
    "ASK 25 DOUBLE\n"
    "ASK_SIZE 26 INT\n"
    "RECV_TIME 50 EPOCH_NSEC\n";

void printSide(const MD::MD_Message& message, const char* name, MD::Field<double> priceField,
               MD::Field<int> sizeField) {
  const auto price = message.get(priceField);
  const auto size = message.get(sizeField);
  if (price && size) {
    std::cout << "  " << name << ' ' << *size << " @ " << MD::frac_double_to_string(*price);
  }
}

/// Looks at one received datagram. Nothing about its bytes is trusted: unknown fields are dropped by the parse, and a
/// field that is absent, of another type or truncated has no value.
void onDatagram(const std::vector<std::uint8_t>& bytes) {
  const auto message = MD::MD_Message::createFromBytes(bytes);
  if (message == nullptr) {
    std::cout << "foreign datagram of " << bytes.size() << " bytes\n";
    return;
  }
  std::cout << "encoding " << int{message->getPB()} << ", " << message->fieldCount() << " fields:";
  if (const auto symbol = message->get(SYMBOL)) {  // a view into the message, valid until the message changes
    std::cout << ' ' << MD::escaped(*symbol);
  }
  printSide(*message, "bid", BID, BID_SIZE);
  printSide(*message, "ask", ASK, ASK_SIZE);
  if (const auto time = message->get(RECV_TIME)) {
    std::cout << "  at " << time->get_s() << " s";
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
  MD::MD_FieldMap::loadText(kDictionary);

  std::string line;
  std::vector<std::uint8_t> bytes;
  while (std::getline(file, line)) {
    if (!fromHex(line, bytes)) {
      std::cerr << "feed_handler: not hex: " << line << '\n';
      return 2;
    }
    onDatagram(bytes);
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
