#include "base/end_watch.h"

#include <csignal>
#include <cstdint>
#include <cstdlib>

#include <atomic>
#include <thread>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "base/platform.h"

namespace MD::tool {
namespace {

using boost::system::error_code;

/// Odd while a write goes on.
std::atomic<std::uint64_t> g_writes{0};

}  // namespace

BlockingWrite::BlockingWrite() noexcept { ++g_writes; }
BlockingWrite::~BlockingWrite() { ++g_writes; }

class EndWatch::Thread {
 public:
  explicit Thread(const std::function<std::string()>& leave)
      : m_leave(leave), m_signals(m_context), m_timeout(m_context), m_look(m_context) {
    for (const int signal : endingSignals()) {
      error_code error;
      m_signals.add(signal, error);
    }
    awaitSignal();
    m_thread = std::thread([this] { m_context.run(); });
  }
  ~Thread() {
    m_context.stop();
    m_thread.join();
  }
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  void expectEnd(std::optional<std::chrono::nanoseconds> timeout) {
    boost::asio::post(m_context, [this, timeout] {
      m_endsItself = true;
      for (const int signal : {SIGINT, SIGTERM}) {
        error_code error;
        m_signals.add(signal, error);
      }
      if (timeout) {
        m_timeout.expires_after(std::chrono::duration_cast<boost::asio::steady_timer::duration>(*timeout));
        m_timeout.async_wait([this](const error_code& error) {
          if (!error) {
            beginToLook();
          }
        });
      }
    });
  }

 private:
  void awaitSignal() {
    m_signals.async_wait([this](const error_code& error, int signal) {
      if (error) {
        return;
      }
      if (!m_endsItself || (signal != SIGINT && signal != SIGTERM)) {
        end("interrupted");
        // As without the watch.
        static_cast<void>(std::signal(signal, SIG_DFL));
        static_cast<void>(std::raise(signal));
      } else if (m_isAskedToEnd) {
        endStuck();
      }
      beginToLook();
      awaitSignal();
    });
  }

  void beginToLook() {
    constexpr std::chrono::milliseconds kGrace{700};
    if (!std::exchange(m_isAskedToEnd, true)) {
      m_seenWrites = g_writes;
      look(kGrace);
    }
  }

  /// Ends the process when it is still in the write in which it was at the last look.
  void look(std::chrono::milliseconds after) {
    constexpr std::chrono::milliseconds kBetween{50};
    m_look.expires_after(after);
    m_look.async_wait([this, kBetween](const error_code& error) {
      if (error) {
        return;
      }
      const std::uint64_t writes = g_writes;
      if (writes % 2 == 1 && writes == m_seenWrites) {
        endStuck();
      }
      m_seenWrites = writes;
      look(kBetween);
    });
  }

  void end(std::string text) const {
    const std::string files = m_leave();
    if (!files.empty()) {
      text += "; " + files;
    }
    tryWriteError("mdmsg: " + text + '\n');
  }

  [[noreturn]] void endStuck() const {
    end("nobody reads the output; the rest of it is lost");
    std::_Exit(1);
  }

  const std::function<std::string()>& m_leave;
  boost::asio::io_context m_context;
  boost::asio::signal_set m_signals;
  boost::asio::steady_timer m_timeout;
  boost::asio::steady_timer m_look;
  bool m_endsItself = false;
  bool m_isAskedToEnd = false;
  std::uint64_t m_seenWrites = 0;
  std::thread m_thread;
};

EndWatch::EndWatch(std::function<std::string()> leave) : m_leave(std::move(leave)) {}

EndWatch::~EndWatch() = default;

void EndWatch::begin() {
  if (m_thread == nullptr) {
    m_thread = std::make_unique<Thread>(m_leave);
  }
}

void EndWatch::beginForOneThatEnds(std::optional<std::chrono::nanoseconds> timeout) {
  begin();
  m_thread->expectEnd(timeout);
}

}  // namespace MD::tool
