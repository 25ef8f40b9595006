// Converts messages of any encoding to one encoding, and reports the reason for each message that cannot be converted.
// A message is written completely or not at all.
//
//   convert_encodings ENCODING [FILE]     mInt, IterMap or MsgT, or its code; without a file: standard input
//
// Reads and writes one message per line, in hex. The exit status is 1 if a line could not be converted. Run it where
// etc/field_map.txt is found: in the repository's root, or with CONFIG_PATH naming the folder.

#include <cstdint>

#include <charconv>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <md/md_assert.h>
#include <md/md_message.h>

namespace {

constexpr std::size_t kLongestMessage = 65535;  // that of a datagram
constexpr std::uint8_t kMInt = 6;

/// @return 0 for a name or code that is no encoding's
std::uint8_t encodingCode(std::string_view text) {
  if (text == "mInt" || text == "6") {
    return kMInt;
  }
  if (text == "IterMap" || text == "1") {
    return 1;
  }
  return text == "MsgT" || text == "70" ? 70 : 0;
}

/// Installed for copyMsg(), which asserts that every field can be copied: it then skips those that cannot, where
/// otherwise received bytes could end the process.
void goOn(const char*, const char*, unsigned) {}

/// Why `target` has not got the field `id` of `source`.
std::string reasonOf(const MD::MD_Message& source, std::uint16_t id, const MD::MD_Message& target) {
  constexpr std::uint32_t kLongestOfMInt = 255;
  const std::string field = "field " + MD::MD_FieldMap::instance().idToName(id);
  std::uint8_t type = 0;
  std::uint32_t sizeBytes = 0;
  const std::uint8_t* const value = source.fieldData(id, type, sizeBytes);
  const std::uint8_t* const end = source.getBinary() + source.getSizeImpl();
  if (value == nullptr || sizeBytes > static_cast<std::size_t>(end - value)) {
    return field + " is cut off by the end of the message";
  }
  if (target.getPB() == kMInt && sizeBytes > kLongestOfMInt) {
    return field + " takes " + std::to_string(sizeBytes) + " bytes, an mInt's at most 255";
  }
  return field + " of type " + std::to_string(type) + " and " + std::to_string(sizeBytes) +
         " bytes holds no value that can be read";
}

/// Fills the empty `target` with the fields of a message. @return why that cannot be done, empty when it is
std::string convert(const std::vector<std::uint8_t>& bytes, MD::MD_Message& target) {
  const auto source = MD::MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  if (source == nullptr) {
    return "unknown encoding byte";
  }
  // The parser has dropped unknown fields and reported them on standard error.
  if (source->getSizeImpl() != bytes.size()) {
    return std::to_string(bytes.size() - source->getSizeImpl()) +
           " bytes are of no field that the dictionary has, or has with this type";
  }
  std::vector<std::uint16_t> ids;
  source->get_field_ids(ids);
  if (ids.size() != source->fieldCount()) {
    return "a field is repeated, of which one value only can be read";
  }
  target.copyMsg(*source);
  for (const std::uint16_t id : ids) {
    if (!target.existsImpl(id)) {
      return reasonOf(*source, id, target);
    }
  }
  return {};
}

/// @return why the line is no message, empty when it is
std::string fromHex(std::string_view line, std::vector<std::uint8_t>& bytes) {
  bytes.clear();
  if (line.size() / 2 > kLongestMessage) {
    return "longer than a datagram";
  }
  for (std::size_t i = 0; i + 1 < line.size(); i += 2) {
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(line.data() + i, line.data() + i + 2, byte, 16);
    if (error != std::errc() || end != line.data() + i + 2) {
      return "not hex";
    }
    bytes.push_back(byte);
  }
  return line.size() % 2 == 0 ? "" : "not hex";
}

std::string toHex(const MD::MD_Message& message) {
  constexpr char kDigits[] = "0123456789abcdef";
  const std::uint8_t* const bytes = message.getBinary();
  std::string text;
  for (std::uint32_t i = 0; i < message.getSizeImpl(); ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

/// @return whether all lines were converted
bool run(std::istream& in, MD::MD_Message& target) {
  bool isComplete = true;
  std::uint64_t lineNumber = 0;
  std::vector<std::uint8_t> bytes;
  for (std::string line; std::getline(in, line);) {
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    target.clearImpl();
    std::string reason = fromHex(line, bytes);
    if (reason.empty()) {
      reason = convert(bytes, target);
    }
    if (reason.empty()) {
      std::cout << toHex(target) << '\n';
    } else {
      std::cerr << "convert_encodings: line " << lineNumber << ": " << reason << '\n';
      isComplete = false;
    }
  }
  if (in.bad() || !std::cout.flush()) {
    throw std::runtime_error("cannot read on, or cannot write");
  }
  return isComplete;
}

}  // namespace

int main(int argc, char** argv) {
  const std::uint8_t code = argc == 2 || argc == 3 ? encodingCode(argv[1]) : 0;
  if (code == 0) {
    std::cerr << "usage: convert_encodings mInt|IterMap|MsgT [FILE]\n";
    return 2;
  }
  std::ifstream file;
  if (argc == 3) {
    file.open(argv[2]);
    if (!file) {
      std::cerr << "convert_encodings: cannot read " << argv[2] << '\n';
      return 2;
    }
  }
  try {
    MD::set_assertion_handler(goOn);
    const auto target = MD::MD_Message::createFromPB(code);
    return run(argc == 3 ? file : std::cin, *target) ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "convert_encodings: " << error.what() << '\n';
    return 1;
  }
}
