// What a fuzz target consists of: the entry point, and what ends it when a property does not hold.
#ifndef MD_FUZZ_FUZZ_TARGET_H
#define MD_FUZZ_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <string>

/// One input. What it finds ends the process.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace MD::fuzz {

[[noreturn]] inline void stop(const char* file, int line, const std::string& what) {
  std::fprintf(stderr, "%s:%d: property does not hold: %s\n", file, line, what.c_str());
  std::abort();
}

}  // namespace MD::fuzz

/// Ends the process with `what`, a string that is made only then, unless `condition` holds.
#define MD_PROPERTY(condition, what)            \
  do {                                          \
    if (!(condition)) {                         \
      MD::fuzz::stop(__FILE__, __LINE__, what); \
    }                                           \
  } while (false)

/// Ends the process with what is in the string `difference`, unless that is empty.
#define MD_SAME(difference)                                       \
  do {                                                            \
    if (const std::string found = (difference); !found.empty()) { \
      MD::fuzz::stop(__FILE__, __LINE__, found);                  \
    }                                                             \
  } while (false)

#endif
