// Signals that ask the program to end while it waits for something else, and time that is up.
#ifndef MDMSG_END_WATCH_H
#define MDMSG_END_WATCH_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace MD::tool {

/// Marks, for its lifetime, a write that may wait for a reader.
class BlockingWrite {
 public:
  BlockingWrite() noexcept;
  ~BlockingWrite();
  BlockingWrite(const BlockingWrite&) = delete;
  BlockingWrite& operator=(const BlockingWrite&) = delete;
};

/// Ends the process, from a thread of its own, when it is asked to end and does not do so itself.
class EndWatch {
 public:
  /// @param leave  called on the watch's thread before it ends the process: leaves the files that are written as they
  ///               are to stay, and returns what is to be said of them
  explicit EndWatch(std::function<std::string()> leave);
  ~EndWatch();
  EndWatch(const EndWatch&) = delete;
  EndWatch& operator=(const EndWatch&) = delete;

  /// From here on a signal that asks the program to end does so after `leave`. Ignored signals stay ignored.
  void begin();

  /// The same for a program that ends by itself at SIGINT, at SIGTERM, and after `timeout`. Only where it then waits in
  /// a write for most of a second, and at a second signal, does the process end, with the status 1.
  void beginForOneThatEnds(std::optional<std::chrono::nanoseconds> timeout);

 private:
  class Thread;

  std::unique_ptr<Thread> m_thread;
  std::function<std::string()> m_leave;
};

}  // namespace MD::tool

#endif
