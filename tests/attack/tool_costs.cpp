// Opens a capture with a filter of so many ports: linear_cost.cmake counts the instructions.
//
//   tool_costs N
#include <cstdint>
#include <cstdlib>

#include <iostream>
#include <sstream>
#include <string>

#include "transport/capture.h"

int main(int argc, char** argv) {
  using namespace MD::tool;
  if (argc != 2) {
    std::cerr << "usage: tool_costs N\n";
    return 2;
  }
  const unsigned long count = std::strtoul(argv[1], nullptr, 10);
  SourceOptions options;
  for (unsigned long i = 0; i != count; ++i) {
    options.filter += (i == 0 ? "udp port " : " or udp port ") + std::to_string(1000 + i);
  }
  Endpoint endpoint = *parseEndpoint("192.0.2.1:1000");
  endpoint.port = static_cast<std::uint16_t>(1000 + count - 1);
  CaptureWriter writer(endpoint, endpoint);
  std::string capture;
  CaptureWriter::begin(capture);
  const std::uint8_t message[] = {6};
  writer.append(0, message, sizeof message, capture);
  endpoint.port = 999;
  CaptureWriter(endpoint, endpoint).append(0, message, sizeof message, capture);

  std::istringstream file(capture);
  std::ostringstream text;
  Output out(text);
  Reporter reporter(std::cerr, out);
  InputBuffer in(*file.rdbuf());
  const auto source = openCapture(in, options, out, reporter);
  InputMessage received;
  // The port of the first packet is the last one of the filter; that of the other is none of them.
  return source->next(received) && received.sizeBytes == sizeof message && !source->next(received) ? 0 : 1;
}
