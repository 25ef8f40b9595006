// The program in a terminal: colour and progress, and neither where there is none.
#include <string>

#include <gtest/gtest.h>

#include "tools/program_support.h"
#include "tools/terminal_support.h"

#if defined(__linux__)

#include <cstdlib>

namespace {

using MD::test::Program;
using MD::test::shownBy;

class Terminal : public Program {
 protected:
  /// The program's command line; quotes inside it are the shell's.
  static std::string program(const std::string& arguments) {
    return "'" MDMSG_PROGRAM "' " + arguments + " --dictionary fields.txt";
  }
};

constexpr const char* kColoured =
    "# in.hex:1: mInt, 1 byte\r\n"
    "\x1b[2m000000\x1b[0m  06                       code                                     mInt\r\n";
constexpr const char* kPlain =
    "# in.hex:1: mInt, 1 byte\r\n"
    "000000  06                       code                                     mInt\r\n";

TEST_F(Terminal, DumpsAreColoured) {
  write("in.hex", "06\n");
  unsetenv("NO_COLOR");
  EXPECT_EQ(shownBy(program("dump in.hex")), kColoured);
  EXPECT_EQ(shownBy(program("dump --color never in.hex")), kPlain);
  EXPECT_EQ(shownBy("NO_COLOR=1 " + program("dump in.hex")), kPlain);
  EXPECT_EQ(shownBy("NO_COLOR= " + program("dump in.hex")), kColoured);
  EXPECT_EQ(shownBy("NO_COLOR=1 " + program("dump --color always in.hex")), kColoured);
  EXPECT_EQ(shownBy(program("dump in.hex") + " | cat"), kPlain);
  EXPECT_EQ(shownBy(program("dump --output out.txt in.hex") + "; cat out.txt"), kPlain);
}

TEST_F(Terminal, BarsFillIt) {
  write("in.hex", "06\n");
  const std::string shown = shownBy(program("stats in.hex"));
  EXPECT_NE(shown.find("  1                              1 " + std::string(65, '#') + "\r\n"), shown.npos) << shown;
  const std::string piped = shownBy(program("stats in.hex") + " | cat");
  EXPECT_NE(piped.find("  1                              1 " + std::string(45, '#') + "\r\n"), piped.npos) << piped;
}

/// Lines that come for longer than a second.
std::string slowInput() {
  return "(i=0; while [ $i -lt 8 ]; do head -n 300 many.hex; sleep 0.25; i=$((i+1)); done) | ";
}

class Progress : public Terminal {
 protected:
  Progress() {
    std::string hex;
    for (int i = 0; i != 300; ++i) {
      hex += "062c010105\n";
    }
    write("many.hex", hex);
  }
};

TEST_F(Progress, IsShownAndTakenAway) {
  const std::string shown = shownBy(slowInput() + program("decode --format json") + " >out.json; wc -l <out.json");
  EXPECT_NE(shown.find("\r\x1b[Kstandard input: "), shown.npos) << shown;
  EXPECT_NE(shown.find(" messages, 0.0 MB"), shown.npos) << shown;
  // At the end the line is gone.
  const std::string end = "\r\x1b[K2400\r\n";
  ASSERT_GE(shown.size(), end.size());
  EXPECT_EQ(shown.substr(shown.size() - end.size()), end) << shown;
}

TEST_F(Progress, IsShownForFewMessages) {
  const std::string shown =
      shownBy("(for i in 1 2 3 4 5 6; do echo 062c010105; sleep 0.3; done) | " + program("decode") + " >out.txt");
  EXPECT_NE(shown.find("\r\x1b[Kstandard input: "), shown.npos) << shown;
}

TEST_F(Progress, ReportsStandAboveIt) {
  const std::string shown =
      shownBy("(" + slowInput() + "cat; echo zz) | " + program("decode --format json") + " >out.json");
  EXPECT_NE(shown.find("\r\x1b[Kmdmsg: standard input:2401: column 1: \"z\" is not a hex digit\r\n"), shown.npos)
      << shown;
}

TEST_F(Progress, IsNotShownWhereItIsNotWanted) {
  EXPECT_EQ(shownBy(slowInput() + program("decode --no-progress --format json") + " >out.json"), "");
  EXPECT_EQ(shownBy(slowInput() + program("decode --format json") + " >out.json 2>err.txt; cat err.txt"), "");
  EXPECT_EQ(shownBy("head -n 100 many.hex | " + program("decode --format json") + " >out.json"), "");
}

}  // namespace

#endif
