// Tests of what happens once a process: each body runs in a new process of its own, whatever the other tests did.
#ifndef MD_TESTS_SUPPORT_FRESH_PROCESS_H
#define MD_TESTS_SUPPORT_FRESH_PROCESS_H

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace MD::test {

/// Runs `body`, writes its failed checks to standard error and ends the process.
[[noreturn]] inline void runAndExit(void (*body)()) {
  int failures = 0;
  {
    testing::TestPartResultArray results;
    {
      const testing::ScopedFakeTestPartResultReporter reporter(
          testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
      body();
    }
    for (int i = 0; i < results.size(); ++i) {
      const testing::TestPartResult& result = results.GetTestPartResult(i);
      if (result.failed()) {
        ++failures;
        std::fprintf(stderr, "%s:%d: %s\n", result.file_name() != nullptr ? result.file_name() : "?",
                     result.line_number(), result.message());
      }
    }
  }
  std::exit(failures == 0 ? 0 : 1);
}

/// Expects `body` to pass its checks, and the process to end in order afterwards, in a process that begins anew.
/// @param error  a regular expression for a part of what the process writes to standard error, static objects'
///               destructors included
inline void expectInFreshProcess(void (*body)(), const char* error = "") {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // the process is a re-executed one, not a fork of this one
  EXPECT_EXIT(runAndExit(body), testing::ExitedWithCode(0), error);
}

}  // namespace MD::test

#endif
