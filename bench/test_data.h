// Finds recorded market data: in the folder that the environment variable MD_TEST_DATA names.
#ifndef MD_BENCH_TEST_DATA_H
#define MD_BENCH_TEST_DATA_H

#include <cstdlib>

#include <string>

namespace bench {

/// The path of a file of recorded data; opens nothing when the variable is unset.
inline std::string testDataPath(const char* file) {
  const char* folder = std::getenv("MD_TEST_DATA");
  return folder != nullptr ? std::string(folder) + '/' + file : std::string();
}

}  // namespace bench

#endif
