// Runs the program in process, in a folder of its own.
#ifndef MD_TESTS_TOOLS_RUN_SUPPORT_H
#define MD_TESTS_TOOLS_RUN_SUPPORT_H

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command_line/tool.h"
#include "support/configuration.h"
#include "tools/run_result.h"

namespace MD::test {

/// Runs the program in the current folder.
inline Result runTool(const std::vector<std::string>& arguments, const std::string& input = {}) {
  std::istringstream in(input);
  std::ostringstream out;
  std::ostringstream err;
  const int status = tool::run(arguments, {in, out, err});
  return {out.str(), err.str(), status};
}

/// An empty folder that is the current one, with no dictionary on the configuration search path.
class ToolRun : public testing::Test {
 protected:
  static void write(const char* path, const std::string& text) { ConfigurationFolder::write(path, text); }

  /// @param arguments  separated by spaces
  static Result mdmsg(const std::string& arguments, const std::string& input = {}) {
    std::istringstream words(arguments);
    return runTool({std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()}, input);
  }

 private:
  ConfigurationFolder m_folder;
};

}  // namespace MD::test

#endif
