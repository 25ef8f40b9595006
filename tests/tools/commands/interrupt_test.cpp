// Interrupts while files are being written.
#include "tools/program_support.h"

#if defined(__linux__)

namespace {

using MD::test::contentsOf;
using MD::test::linesOf;

class Interrupt : public MD::test::Program {
 protected:
  /// Filters lines into a file per SYMBOL, from a pipe that stays open, and sends a signal when all have been read: the
  /// last one is reported. @return the status of the shell
  static int splitUntil(const char* signal, const std::string& lines, const char* options) {
    write("lines", lines + "zz\n");
    write("run", std::string("mkfifo pipe\n"
                             "'" MDMSG_PROGRAM "' filter --split-by QTY --dictionary fields.txt ") +
                     options +
                     " pipe 2>errors &\n"
                     "exec 3>pipe\n"
                     "cat lines >&3\n"
                     "until [ -s errors ]; do sleep 0.02; done\n"
                     "kill -" +
                     signal +
                     " $!\n"
                     "wait $!\n"
                     "status=$?\n"
                     "rm pipe\n"
                     "exit $status\n");
    const int status = std::system("timeout 60 sh run");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

TEST_F(Interrupt, MessagesThatWereReadAreInTheFilesOfASplit) {
  constexpr int kShellSaysSignal = 128;
  const std::string five = "062c010105\n";
  const std::string six = "062c010106\n";
  EXPECT_EQ(splitUntil("TERM", five + six + five, "--output {QTY}.hex"), kShellSaysSignal + SIGTERM);
  EXPECT_EQ(contentsOf("5.hex"), five + five);
  EXPECT_EQ(contentsOf("6.hex"), six);
  EXPECT_EQ(linesOf("errors"),
            "mdmsg: pipe:4: column 1: \"z\" is not a hex digit\n"
            "mdmsg: interrupted; the files of --split-by hold only a part of the output\n");
  EXPECT_EQ(splitUntil("HUP", six, "--force --output {QTY}.hex"), kShellSaysSignal + SIGHUP);
  EXPECT_EQ(contentsOf("5.hex"), five + five);
  EXPECT_EQ(contentsOf("6.hex"), six);
}

}  // namespace

#endif
