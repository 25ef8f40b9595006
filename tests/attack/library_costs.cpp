// Work whose cost received bytes decide, of a size that is given: linear_cost.cmake counts the instructions.
//
//   library_costs CASE N
#include <cstdint>
#include <cstdlib>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "md/md_fieldmap.h"
#include "md/md_message.h"

namespace {

using MD::MD_Message;

void loadStrings(std::uint16_t count) {
  std::string fields;
  for (std::uint16_t id = 1; id <= count; ++id) {
    fields += "F" + std::to_string(id) + ' ' + std::to_string(id) + " STRING\n";
  }
  std::istringstream text(fields);
  MD::MD_FieldMap::reload_text(text, "strings");
}

std::unique_ptr<MD_Message> messageOfStrings(std::uint8_t code, std::uint16_t count, const char* value) {
  auto message = MD_Message::createFromPB(code);
  for (std::uint16_t id = 1; id <= count; ++id) {
    message->add(id, value);
  }
  return message;
}

/// Onto a message with the same fields, all of another length.
bool copyLonger(std::uint8_t code, std::uint16_t count) {
  const auto target = messageOfStrings(code, count, "a");
  target->copyMsg(*messageOfStrings(code, count, "longer"));
  std::string value;
  return target->get(count, value) && value == "longer" && target->fieldCount() == count;
}

/// The same onto a received message that contains each field twice.
bool copyOntoRepeated(std::uint8_t code, std::uint16_t count) {
  const auto once = messageOfStrings(code, count, "a");
  const std::size_t headerBytes = MD_Message::createFromPB(code)->getSizeImpl();
  std::string bytes(once->getBinary(), once->getBinary() + once->getSizeImpl());
  bytes += bytes.substr(headerBytes);
  const std::string received = bytes;
  const auto target = MD_Message::createFromPB(code);
  target->setBinaryImpl(reinterpret_cast<const std::uint8_t*>(received.data()),
                        static_cast<std::uint32_t>(received.size()));
  target->copyMsg(*messageOfStrings(code, count, "longer"));
  std::string value;
  return target->get(1, value) && value == "longer" && target->fieldCount() == count;
}

constexpr struct {
  std::string_view name;
  bool (*run)(std::uint8_t code, std::uint16_t count);
  std::uint8_t code;
} kCases[] = {
    {"copy-iter-map", &copyLonger, 1},
    {"copy-mint", &copyLonger, 6},
    {"copy-msgt", &copyLonger, 70},
    {"copy-onto-repeated", &copyOntoRepeated, 6},
};

}  // namespace

int main(int argc, char** argv) {
  const std::string_view name = argc == 3 ? argv[1] : "";
  const auto found = std::find_if(std::begin(kCases), std::end(kCases), [&](const auto& c) { return c.name == name; });
  if (found == std::end(kCases)) {
    std::cerr << "usage: library_costs CASE N\n";
    return 2;
  }
  const auto count = static_cast<std::uint16_t>(std::strtoul(argv[2], nullptr, 10));
  loadStrings(count);
  return found->run(found->code, count) ? 0 : 1;
}
