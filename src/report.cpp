#include "report.h"

#include <iostream>
#include <mutex>

namespace MD::detail {

std::string fieldLines(std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) {
  std::string lines = "  Field id:   " + std::to_string(id) + "\n  Field type: ";
  lines += static_cast<char>(type);
  lines += "\n  Field size: " + std::to_string(sizeBytes) + "\n";
  return lines;
}

void report(std::string_view text) {
  // A stream of the caller's own behind std::cerr need not be safe for two threads. Never destroyed, for reports at
  // exit.
  static auto& mutex = *new std::mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::cerr.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
}

void reportField(std::string_view line, std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) {
  std::string text(line);
  text += '\n';
  text += fieldLines(id, type, sizeBytes);
  report(text);
}

}  // namespace MD::detail
