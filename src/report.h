// Diagnostics, on standard error or to the program's handler (md/md_report.h). A report is composed whole and written
// in one piece, so that the reports of two threads never interleave. One that cannot be composed or written is lost: it
// must not stop an operation halfway.
#ifndef MD_SRC_REPORT_H
#define MD_SRC_REPORT_H

#include <cstddef>
#include <cstdint>

#include <atomic>
#include <string>
#include <string_view>

namespace MD::detail {

/// Reports what `compose` returns, a std::string.
template <class Compose>
void report(Compose compose) noexcept;

/// Reports the three lines that follow every report about a field. The type goes out as the raw byte.
void reportFieldLines(std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) noexcept;

/// Reports `line`, a line end and the field's three lines.
void reportField(std::string_view line, std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) noexcept;

/// Counts the reports of bad fields, one counter an encoding and process: hostile input must not fill a log.
class BadFieldReports {
 public:
  /// Counts one report, unless 101 have been written.
  /// @return whether to write it
  bool admit() noexcept {
    int written = m_written.load(std::memory_order_relaxed);
    while (written <= kLimit) {
      if (m_written.compare_exchange_weak(written, written + 1, std::memory_order_relaxed)) {
        return true;
      }
    }
    return false;
  }
  bool isBelowLimit() const noexcept { return m_written.load(std::memory_order_relaxed) <= kLimit; }

 private:
  static constexpr int kLimit = 100;

  // Relaxed: threads share only the count, and each takes its own numbers from it in any order.
  std::atomic<int> m_written{0};
};

/// Suppresses the diagnostics of its thread during its lifetime, for operations whose results contain the same.
class SilentReports {
 public:
  SilentReports() noexcept : m_wereSilent(t_areSilent) { t_areSilent = true; }
  ~SilentReports() { t_areSilent = m_wereSilent; }
  SilentReports(const SilentReports&) = delete;
  SilentReports& operator=(const SilentReports&) = delete;

  static bool areInForce() noexcept { return t_areSilent; }

 private:
  static thread_local bool t_areSilent;

  bool m_wereSilent;
};

/// Hands `text` to the installed handler, or writes it to standard error in one piece.
void writeReport(const std::string& text);

template <class Compose>
void report(Compose compose) noexcept {
  if (SilentReports::areInForce()) {
    return;
  }
  try {
    writeReport(compose());
  } catch (...) {
    return;
  }
}

}  // namespace MD::detail

#endif
