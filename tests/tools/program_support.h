// What the tests of the program as a whole share: a run of it in a folder of its own, and all that came of it.
#ifndef MD_TESTS_TOOLS_PROGRAM_SUPPORT_H
#define MD_TESTS_TOOLS_PROGRAM_SUPPORT_H

#include <cstdlib>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/wait.h>
#endif

#include "support/configuration.h"
#include "support/dictionary.h"
#include "tools/run_result.h"

namespace MD::test {

/// Standard error is a text file: what ends a line there is the system's own.
inline std::string linesOf(const char* path) {
  std::string text = contentsOf(path);
#ifdef _WIN32
  for (std::size_t end = text.find("\r\n"); end != text.npos; end = text.find("\r\n", end)) {
    text.erase(end, 1);
  }
#endif
  return text;
}

/// Runs the program in a folder of its own that holds the dictionary "fields.txt".
class Program : public testing::Test {
 protected:
  Program() { write("fields.txt", std::string(kDictionary) + "PX_WHOLE 400 INT\nPX_NUM 401 INT\nPX_DENOM 402 INT\n"); }

  static void write(const char* path, const std::string& text) { ConfigurationFolder::write(path, text); }

  /// @param arguments  as on a command line
  static Result mdmsg(const std::string& arguments, const std::string& input = {}) {
    write("stdin", input);
    std::string command = "\"" MDMSG_PROGRAM "\" " + arguments + " <stdin >stdout 2>stderr";
#ifdef _WIN32
    command = '"' + command + '"';  // the shell takes the outer quotes away
#endif
    int status = std::system(command.c_str());
#ifndef _WIN32
    status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
    return {contentsOf("stdout"), linesOf("stderr"), status};
  }

  /// The same with the folder's dictionary.
  static Result withFields(const std::string& arguments, const std::string& input = {}) {
    return mdmsg(arguments + " --dictionary fields.txt", input);
  }

 private:
  ConfigurationFolder m_folder;
};

}  // namespace MD::test

#endif
