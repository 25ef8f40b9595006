#include <algorithm>
#include <chrono>
#include <thread>

#include "commands/feed_commands.h"
#include "commands/taken_messages.h"

namespace MD::tool {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

/// When each datagram is due.
class Pace {
 public:
  explicit Pace(const ReplayOptions& options) : m_options(options) {}

  void wait(const InputMessage& message) {
    const std::optional<std::int64_t> timeNs = message.timeNs;
    if (m_options.perSecond || (!timeNs && m_options.speed)) {
      // What has no times of its own comes at a rate that receivers can follow.
      constexpr std::uint64_t kDefaultRate = 1000;
      m_due +=
          m_isFirst
              ? nanoseconds(0)
              : nanoseconds(std::nano::den / static_cast<std::int64_t>(m_options.perSecond.value_or(kDefaultRate)));
    } else if (m_options.speed) {
      m_due += m_isFirst ? nanoseconds(0) : scaled(*timeNs);
      // The packets of a capture may be in another order than that of their times; another input may begin earlier.
      m_lastNs = m_isFirst || message.input != m_input ? *timeNs : std::max(m_lastNs, *timeNs);
    }
    m_isFirst = false;
    m_input = message.input;
    std::this_thread::sleep_until(m_start + m_due);
  }

 private:
  nanoseconds scaled(std::int64_t timeNs) const {
    nanoseconds gap(std::max<std::int64_t>(timeNs - m_lastNs, 0));
    if (m_options.longestGap) {
      gap = std::min(gap, *m_options.longestGap);
    }
    constexpr double kLongest = 1e18;
    return nanoseconds(
        static_cast<std::int64_t>(std::min(static_cast<double>(gap.count()) / *m_options.speed, kLongest)));
  }

  const ReplayOptions& m_options;
  Clock::time_point m_start = Clock::now();
  nanoseconds m_due{0};
  std::int64_t m_lastNs = 0;
  bool m_isFirst = true;
  std::uint64_t m_input = 0;
};

}  // namespace

void replay(const ReplayOptions& options, const Task& task) {
  UdpSender sender(resolveEndpoint(options.to), options.multicast);
  std::uint64_t seen = 0;
  std::uint64_t sent = 0;
  std::uint64_t bytes = 0;
  const Clock::time_point start = Clock::now();
  Pace pace(options);
  MessageReader reader(task);
  while (const InputMessage* const message = sent != task.selection.limit ? reader.next() : nullptr) {
    if (seen++ < task.selection.skip) {
      continue;
    }
    pace.wait(*message);
    try {
      sender.send(message->data, message->sizeBytes);
    } catch (const LineError& error) {
      leaveOut(task, error);
      continue;
    }
    bytes += message->sizeBytes;
    ++sent;
  }
  const auto tookMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  task.reporter.tell("sent " + counted(sent, "datagram") + ", " + counted(bytes, "byte") + ", in " +
                     std::to_string(tookMs) + " ms");
}

}  // namespace MD::tool
