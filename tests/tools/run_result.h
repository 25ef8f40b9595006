// What comes of a run of the program, in process or as a process.
#ifndef MD_TESTS_TOOLS_RUN_RESULT_H
#define MD_TESTS_TOOLS_RUN_RESULT_H

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

}  // namespace MD::test

#endif
