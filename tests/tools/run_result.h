// What comes of a run of the program, in process or as a process.
#ifndef MD_TESTS_TOOLS_RUN_RESULT_H
#define MD_TESTS_TOOLS_RUN_RESULT_H

#include <cstdlib>

#include <fstream>
#include <iterator>
#include <ostream>
#include <string>

namespace MD::test {

struct Result {
  std::string out;
  std::string err;
  int status;
};

inline std::ostream& operator<<(std::ostream& out, const Result& result) {
  return out << "status " << result.status << "\n--- out\n" << result.out << "--- err\n" << result.err;
}

inline bool operator==(const Result& a, const Result& b) {
  return a.out == b.out && a.err == b.err && a.status == b.status;
}

inline std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Recorded market data: the path of a file in the folder that MD_TEST_DATA names, empty when there is none.
inline std::string dataFile(const char* name) {
  const char* const folder = std::getenv("MD_TEST_DATA");
  const std::string path = folder != nullptr ? std::string(folder) + '/' + name : std::string();
  return std::ifstream(path).is_open() ? path : std::string();
}

}  // namespace MD::test

#endif
