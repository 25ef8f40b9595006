// Commands that another program runs, which may not be installed.
#ifndef _WIN32

#include <cstdlib>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tools/program_support.h"

namespace {

using MD::test::contentsOf;
using MD::test::Program;

class Companion : public Program {
 protected:
  Companion() {
    std::filesystem::create_directories("bin");
    std::filesystem::create_directories("other");
    std::filesystem::copy_file(MDMSG_PROGRAM, "bin/mdmsg");
  }

  /// Runs the copy, which has no other program beside it.
  static MD::test::Result copy(const std::string& path, const std::string& arguments) {
    const std::string command = "PATH=" + path + " bin/mdmsg " + arguments + " >stdout 2>stderr";
    const int status = std::system(command.c_str());
    return {contentsOf("stdout"), contentsOf("stderr"), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
  }

  static void writeScript(const char* path) {
    write(path, "#!/bin/sh\nfor word; do echo \"<$word>\"; done\nexit 7\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }
};

TEST_F(Companion, MissingSaysWhatToInstall) {
  for (const std::string command : {"publish --subject md.x", "subscribe --subject md.x"}) {
    const auto result = copy("/nonexistent", command);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "mdmsg: " + command.substr(0, command.find(' ')) +
                  " needs the program mdmsg-nats, which is neither in the folder of mdmsg nor on the PATH; install "
                  "the package md-message-nats\n");
  }
}

TEST_F(Companion, RunsWithTheSameArgumentsInTheSameProcess) {
  writeScript("bin/mdmsg-nats");
  EXPECT_EQ(copy("/nonexistent", "publish").status, 2);  // refused before: --subject is required
  const auto run = copy("/nonexistent", "publish --subject 'md.{A B}' '' 'x*'");
  EXPECT_EQ(run.out, "<publish>\n<--subject>\n<md.{A B}>\n<>\n<x*>\n");
  EXPECT_EQ(run.status, 7);
}

TEST_F(Companion, IsFoundOnThePathInAbsoluteFoldersAlone) {
  writeScript("other/mdmsg-nats");
  EXPECT_EQ(copy("other:.", "subscribe --subject a").status, 2);
  const std::string folder = std::filesystem::absolute("other").string();
  EXPECT_EQ(copy("'/nonexistent:" + folder + "'", "subscribe --subject a").status, 7);
}

TEST_F(Companion, TheOneBesideComesFirst) {
  writeScript("other/mdmsg-nats");
  write("bin/mdmsg-nats", "#!/bin/sh\nexit 5\n");
  std::filesystem::permissions("bin/mdmsg-nats", std::filesystem::perms::owner_all);
  EXPECT_EQ(copy(std::filesystem::absolute("other").string(), "subscribe --subject a").status, 5);
}

TEST_F(Companion, HelpNeedsNoOtherProgram) {
  const auto help = copy("/nonexistent", "publish --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--create-stream"), std::string::npos);
}

}  // namespace

#endif
