// The progress of a long run, on a line of the terminal that is overwritten.
#ifndef MDMSG_PROGRESS_H
#define MDMSG_PROGRESS_H

#include <cstdint>

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>
#include <utility>

namespace MD::tool {

/// Says nothing in the first second, and then a few times a second at most.
class Progress {
 public:
  explicit Progress(std::ostream& err) : m_err(err) {}
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// @param sizeBytes  of the input, 0 when that is not known
  void begin(const std::string& input, std::uint64_t sizeBytes);

  /// What is shown instead of the number of messages; empty for that number.
  void setStatus(std::function<std::string()> status) { m_status = std::move(status); }

  /// Shows the status of the moment, if it is time to.
  void refresh() { look(m_lookedBytes); }

  /// So many messages more; so many bytes of the input have been read.
  void advance(std::uint64_t readBytes, std::uint64_t messages) {
    m_messages += messages;
    if (m_messages % kMessagesPerLook == 0 || readBytes != m_lookedBytes) {
      m_lookedBytes = readBytes;
      look(readBytes);
    }
  }

  /// Takes the line away, so that something else can be written.
  void clear();

 private:
  /// The clock is not asked for every message, but whenever more of the input has come: that may have taken long.
  static constexpr std::uint64_t kMessagesPerLook = 256;
  using Clock = std::chrono::steady_clock;

  void look(std::uint64_t readBytes);
  void show(std::uint64_t readBytes);

  std::ostream& m_err;
  std::string m_input;
  std::function<std::string()> m_status;
  std::uint64_t m_sizeBytes = 0;
  std::uint64_t m_messages = 0;
  std::uint64_t m_lookedBytes = 0;
  Clock::time_point m_next = Clock::now() + std::chrono::seconds(1);
  bool m_isShown = false;
};

}  // namespace MD::tool

#endif
