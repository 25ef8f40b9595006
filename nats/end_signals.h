// Requests to end: signals and time that is up.
#ifndef MDMSG_NATS_END_SIGNALS_H
#define MDMSG_NATS_END_SIGNALS_H

#include <chrono>
#include <memory>
#include <optional>

namespace MD::tool {

/// When a subscriber ends by itself: at SIGINT and SIGTERM, after `timeout`, and when nothing has come for `idle`.
class EndSignals {
 public:
  EndSignals(std::optional<std::chrono::nanoseconds> timeout, std::optional<std::chrono::nanoseconds> idle);
  ~EndSignals();

  /// Something has come.
  void restartIdle() noexcept { m_lastCome = Clock::now(); }
  /// Whether to end. @param isWaiting  whether there is nothing to be read
  bool isEnd(bool isWaiting);

 private:
  using Clock = std::chrono::steady_clock;
  class Signals;

  std::unique_ptr<Signals> m_signals;
  std::optional<std::chrono::nanoseconds> m_idle;
  std::optional<Clock::time_point> m_end;
  Clock::time_point m_lastCome = Clock::now();
};

}  // namespace MD::tool

#endif
