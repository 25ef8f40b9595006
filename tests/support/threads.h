// The same work in several threads at once, for tests.
#ifndef MD_TESTS_SUPPORT_THREADS_H
#define MD_TESTS_SUPPORT_THREADS_H

#include <atomic>
#include <thread>
#include <vector>

namespace MD::test {

/// Runs `work(index)` in `count` threads, which begin together, and waits for all of them.
template <class Count, class Work>
void inThreads(Count count, const Work& work) {
  std::atomic<Count> awaited{count};
  std::vector<std::thread> threads;
  for (Count i = 0; i < count; ++i) {
    threads.emplace_back([&awaited, &work, i] {
      --awaited;
      while (awaited != 0) {
        std::this_thread::yield();
      }
      work(i);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace MD::test

#endif
