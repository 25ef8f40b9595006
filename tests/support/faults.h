// Runs an operation with its first allocation failing, then with its second, until none is left to fail.
#ifndef MD_TESTS_SUPPORT_FAULTS_H
#define MD_TESTS_SUPPORT_FAULTS_H

#include <iostream>
#include <new>
#include <streambuf>
#include <string>

#include <gtest/gtest.h>

#include "support/failing_heap.h"

namespace MD::test {

/// Keeps what is written to std::cerr from being seen, for its own lifetime, and without memory.
class SilencedErrors {
 public:
  SilencedErrors() : m_previous(std::cerr.rdbuf(&m_nowhere)) {}
  ~SilencedErrors() { std::cerr.rdbuf(m_previous); }
  SilencedErrors(const SilencedErrors&) = delete;
  SilencedErrors& operator=(const SilencedErrors&) = delete;

 private:
  class Nowhere : public std::streambuf {
    int overflow(int character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
  };

  Nowhere m_nowhere;
  std::streambuf* m_previous;
};

struct FaultRun {
  bool hasFailed;  ///< whether the allocation took place, and failed
  bool hasThrown;  ///< whether std::bad_alloc came out
};

/// Runs `work` with the allocation after `succeeding` others failing. Any other exception than std::bad_alloc comes
/// out.
template <class Work>
FaultRun runFailing(long succeeding, Failing failing, Work work) {
  FaultRun result{false, false};
  const FailingHeap heap(succeeding, failing);
  try {
    work();
  } catch (const std::bad_alloc&) {
    result.hasThrown = true;
  }
  result.hasFailed = FailingHeap::hasFailed();
  return result;
}

/// What the driver below asks of a world: everything that an operation may touch, made anew for each fault.
///
///   std::string describe(const World&)  everything that can be observed of it
///
/// Expects of every allocation that fails: either std::bad_alloc comes out, everything is as before (`leftBehind`, when
/// that is not null), and the operation can be repeated, or the operation does without; and that in the end everything
/// is as after an operation without faults.
/// @return how many allocations the operation makes at most
template <class MakeWorld, class Run>
long failEveryAllocation(Failing failing, MakeWorld makeWorld, Run run, const std::string* leftBehind = nullptr) {
  constexpr long kFarTooMany = 20'000;
  std::string before;
  std::string after;
  {
    auto world = makeWorld();
    before = describe(*world);
    run(*world);
    after = describe(*world);
  }
  for (long failed = 0; failed < kFarTooMany; ++failed) {
    auto world = makeWorld();
    const FaultRun fault = runFailing(failed, failing, [&] { run(*world); });
    if (fault.hasThrown) {
      const std::string left = describe(*world);
      if (left != (leftBehind != nullptr ? *leftBehind : before)) {
        ADD_FAILURE() << "allocation " << failed << " failed and left\n" << left << "\ninstead of\n" << before;
        return failed;
      }
      run(*world);
    }
    const std::string done = describe(*world);
    if (done != after) {
      ADD_FAILURE() << "allocation " << failed << (fault.hasThrown ? " failed, repeated" : " failed, done without")
                    << ":\n"
                    << done << "\ninstead of\n"
                    << after;
      return failed;
    }
    if (!fault.hasFailed) {
      EXPECT_FALSE(fault.hasThrown);
      return failed;
    }
  }
  ADD_FAILURE() << "it never succeeds";
  return kFarTooMany;
}

/// Expects that `work` leaks no block of memory: when it is repeated, some round adds none to the live blocks.
template <class Work>
void expectNoLeak(Work work) {
  long added = 0;
  for (int round = 0; round < 10; ++round) {
    const long before = heap::t_liveBlocks;
    work();
    added = heap::t_liveBlocks - before;
    if (added == 0) {
      return;
    }
  }
  ADD_FAILURE() << "each round leaves " << added << " blocks";
}

}  // namespace MD::test

#endif
