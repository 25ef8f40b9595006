// Runs one work: on the clock of Google Benchmark, or a fixed number of times for a count of instructions.
//
// A work is a class whose constructor prepares and checks; operator()(i) does operation number i of count() different
// ones; bytesPerOperation() is what an operation handles on average.
#ifndef MD_BENCH_RUN_WORK_H
#define MD_BENCH_RUN_WORK_H

#include <cstddef>

#include <functional>
#include <string>

#include <benchmark/benchmark.h>

#include "allocations.h"
#include "dictionary.h"

namespace bench {

enum class Threads { One, OneAndTwo };

/// Says which answer was wrong and ends the program.
[[noreturn]] void failCheck(const char* subject, const char* work, const char* what);

/// Has `count` called when instructions are counted, with a way to do operations and a way to say where counting
/// starts.
void addCounted(const std::string& name, std::function<void()> count);

/// Under callgrind: starts a count, and writes down what has been counted since.
void startCount();
void endCount(const char* name);
inline constexpr std::size_t kCountedOperations = 1024;

template <class Work>
void timeWork(benchmark::State& state) {
  Work work;
  const std::size_t count = work.count();
  for (std::size_t i = 0; i < count; ++i) {
    work(i);
  }
  std::size_t i = 0;
  const std::uint64_t before = allocations();
  for (auto _ : state) {
    work(i);
    if (++i == count) {
      i = 0;
    }
  }
  const std::uint64_t allocated = allocations() - before;
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocated), benchmark::Counter::kAvgIterations);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(work.bytesPerOperation()));
}

template <class Work>
void countWork(const std::string& name) {
  Work work;
  for (std::size_t i = 0; i < work.count(); ++i) {
    work(i);
  }
  startCount();
  for (std::size_t n = 0; n < kCountedOperations; ++n) {
    work(n % work.count());
  }
  endCount(name.c_str());
}

/// Registers a work under `name`: work/message/form/subject.
template <class Work, Dictionary dictionary>
void addWork(const std::string& name, Threads threads = Threads::One) {
  benchmark::internal::Benchmark* entry = benchmark::RegisterBenchmark(name.c_str(), timeWork<Work>);
  entry->Setup([](const benchmark::State&) { useDictionary(dictionary); });
  if (threads == Threads::OneAndTwo) {
    entry->Threads(1)->Threads(2)->UseRealTime();
  }
  addCounted(name, [name] {
    useDictionary(dictionary);
    countWork<Work>(name);
  });
}

}  // namespace bench

#endif
