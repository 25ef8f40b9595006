#include "report.h"

#include <iostream>
#include <mutex>

#include "md/md_report.h"

namespace MD {
namespace {

// Sequentially consistent, the default: the handler sees all writes before its installation.
std::atomic<ReportHandler> g_handler{nullptr};

}  // namespace

ReportHandler set_report_handler(ReportHandler handler) noexcept { return g_handler.exchange(handler); }

namespace detail {
namespace {

std::string fieldLines(std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) {
  std::string lines = "  Field id:   " + std::to_string(id) + "\n  Field type: ";
  lines += static_cast<char>(type);
  lines += "\n  Field size: " + std::to_string(sizeBytes) + "\n";
  return lines;
}

}  // namespace

thread_local bool SilentReports::t_areSilent = false;

void writeReport(const std::string& text) {
  if (const ReportHandler handler = g_handler.load()) {
    handler(text.c_str(), text.size());
    return;
  }
  // A stream buffer that the caller has set for std::cerr need not be safe for two threads. Never destroyed, for
  // reports at exit.
  static auto& mutex = *new std::mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::cerr.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
}

void reportFieldLines(std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) noexcept {
  report([&] { return fieldLines(id, type, sizeBytes); });
}

void reportField(std::string_view line, std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) noexcept {
  report([&] { return std::string(line) + '\n' + fieldLines(id, type, sizeBytes); });
}

}  // namespace detail
}  // namespace MD
