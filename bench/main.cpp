// The benchmark program: what Google Benchmark's own main does, with a second thread alive throughout, and a mode that
// counts instructions.
//
//   md_bench [Google Benchmark's options]
//   valgrind --tool=callgrind md_bench --instructions [REGULAR EXPRESSION]

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <condition_variable>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "dictionary.h"
#include "messages.h"
#include "run_work.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#endif

namespace bench {
namespace {

std::vector<std::pair<std::string, std::function<void()>>>& counted() {
  static std::vector<std::pair<std::string, std::function<void()>>> works;
  return works;
}

/// Sleeps until the program ends. A process with a second thread pays for locks and atomic counts what servers pay.
class SecondThread {
 public:
  SecondThread() : m_thread([this] { sleep(); }) {}
  ~SecondThread() {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_isOver = true;
    }
    m_changed.notify_one();
    m_thread.join();
  }
  SecondThread(const SecondThread&) = delete;
  SecondThread& operator=(const SecondThread&) = delete;

 private:
  void sleep() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_isOver; });
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isOver = false;
  std::thread m_thread;
};

int countInstructions(const char* expression) {
#if defined(CALLGRIND_ZERO_STATS)
  if (!RUNNING_ON_VALGRIND) {
    std::fprintf(stderr, "--instructions counts only under valgrind --tool=callgrind\n");
    return 2;
  }
  const std::regex wanted(expression);
  for (const auto& [name, count] : counted()) {
    if (std::regex_search(name, wanted)) {
      count();
    }
  }
  return 0;
#else
  static_cast<void>(expression);
  std::fprintf(stderr, "--instructions needs a program built where valgrind's headers are installed\n");
  return 2;
#endif
}

int runTimed(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
#if defined(__clang__)
  benchmark::AddCustomContext("compiler", "clang++ " __clang_version__);
#else
  benchmark::AddCustomContext("compiler", "g++ " __VERSION__);
#endif
  benchmark::AddCustomContext("flags", MD_BENCH_FLAGS);
  std::string leftOut;
  for (const char* reason : {whyNoTicks(), whyNoLargeDictionary()}) {
    if (reason != nullptr) {
      std::fprintf(stderr, "%s\n", reason);
      leftOut += (leftOut.empty() ? "" : "; ") + std::string(reason);
    }
  }
  benchmark::AddCustomContext("left_out", leftOut);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace

void failCheck(const char* subject, const char* work, const char* what) {
  std::fprintf(stderr, "wrong answer: subject %s, work \"%s\": %s differs from the source\n", subject, work, what);
  std::exit(1);
}

void addCounted(const std::string& name, std::function<void()> count) {
  counted().emplace_back(name, std::move(count));
}

void startCount() {
#if defined(CALLGRIND_ZERO_STATS)
  CALLGRIND_ZERO_STATS;
#endif
}

void endCount([[maybe_unused]] const char* name) {
#if defined(CALLGRIND_ZERO_STATS)
  CALLGRIND_DUMP_STATS_AT(name);
#endif
}

}  // namespace bench

int main(int argc, char** argv) {
  const bench::SecondThread second;
  if (argc >= 2 && std::strcmp(argv[1], "--instructions") == 0) {
    return bench::countInstructions(argc > 2 ? argv[2] : ".");
  }
  return bench::runTimed(argc, argv);
}
