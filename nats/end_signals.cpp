#include "nats/end_signals.h"

#include <csignal>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

namespace MD::tool {

class EndSignals::Signals {
 public:
  Signals() : m_signals(m_context, SIGINT, SIGTERM) {
    m_signals.async_wait([this](const boost::system::error_code& error, int) { m_isAsked = m_isAsked || !error; });
  }

  bool isAsked() {
    m_context.poll();
    return m_isAsked;
  }

 private:
  boost::asio::io_context m_context;
  boost::asio::signal_set m_signals;
  bool m_isAsked = false;
};

EndSignals::EndSignals(std::optional<std::chrono::nanoseconds> timeout, std::optional<std::chrono::nanoseconds> idle)
    : m_signals(std::make_unique<Signals>()), m_idle(idle) {
  if (timeout) {
    m_end = Clock::now() + *timeout;
  }
}

EndSignals::~EndSignals() = default;

bool EndSignals::isEnd(bool isWaiting) {
  const Clock::time_point now = Clock::now();
  return m_signals->isAsked() || (m_end && now >= *m_end) || (isWaiting && m_idle && now - m_lastCome >= *m_idle);
}

}  // namespace MD::tool
