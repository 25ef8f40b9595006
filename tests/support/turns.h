// Two threads that take turns, for tests.
#ifndef MD_TESTS_SUPPORT_TURNS_H
#define MD_TESTS_SUPPORT_TURNS_H

#include <condition_variable>
#include <mutex>
#include <thread>

namespace MD::test {

/// Runs `first` in a new thread and after it `second` in another one, `count` times. Both threads live until the end.
template <class First, class Second>
void inTurns(int count, First first, Second second) {
  std::mutex mutex;
  std::condition_variable changed;
  bool isTurnOfFirst = true;
  const auto run = [&](bool isFirst, auto& work) {
    for (int turn = 0; turn <= count; ++turn) {
      std::unique_lock<std::mutex> lock(mutex);
      changed.wait(lock, [&] { return isTurnOfFirst == isFirst; });
      if (turn != count) {
        work();
      }
      isTurnOfFirst = !isFirst;
      changed.notify_all();
    }
  };
  std::thread one([&] { run(true, first); });
  std::thread other([&] { run(false, second); });
  one.join();
  other.join();
}

}  // namespace MD::test

#endif
