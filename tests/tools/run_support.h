// Runs the program in process, in a folder of its own.
#ifndef MD_TESTS_TOOLS_RUN_SUPPORT_H
#define MD_TESTS_TOOLS_RUN_SUPPORT_H

#include <fstream>
#include <iterator>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command_line/tool.h"
#include "support/configuration.h"

namespace MD::test {

struct RunResult {
  std::string out;
  std::string err;
  int status = 0;
};

inline std::ostream& operator<<(std::ostream& out, const RunResult& result) {
  return out << "status " << result.status << "\n--- out\n" << result.out << "--- err\n" << result.err;
}

inline bool operator==(const RunResult& a, const RunResult& b) {
  return a.out == b.out && a.err == b.err && a.status == b.status;
}

/// An empty folder that is the current one, with no dictionary on the search path.
class ToolRun : public testing::Test {
 protected:
  static void write(const char* path, const std::string& text) { ConfigurationFolder::write(path, text); }

  static std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  /// @param arguments  separated by blanks
  static RunResult mdmsg(const std::string& arguments, const std::string& input = {}) {
    std::istringstream words(arguments);
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    const int status =
        tool::run({std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()}, {in, out, err});
    return {out.str(), err.str(), status};
  }

 private:
  ConfigurationFolder m_folder;
};

}  // namespace MD::test

#endif
