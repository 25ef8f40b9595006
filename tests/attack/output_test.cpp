// Files that the program writes, while others exchange them, disks are full and signals come.
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "attack/attack_support.h"

namespace {

using MD::test::Child;
using MD::test::contentsOf;
using MD::test::End;
using MD::test::Program;
using MD::test::Result;
using MD::test::until;
namespace fs = std::filesystem;

class Output : public Program {
 protected:
  Output() {
    write("in.hex", "062c010105\n");
    write("victim", "precious\n");
  }
};

TEST_F(Output, DoesNotFollowALinkToAFileThatIsNotThere) {
  fs::create_symlink("nowhere", "link");
  EXPECT_EQ(withFields("decode --output link in.hex"), (Result{"", "mdmsg: link exists; --force overwrites it\n", 2}));
  EXPECT_EQ(withFields("decode --force --output link in.hex"),
            (Result{"", "mdmsg: cannot write link: No such file or directory\n", 2}));
  EXPECT_FALSE(fs::exists("nowhere"));
  EXPECT_TRUE(fs::is_symlink("link"));
}

// Somebody puts a link there, and takes it away, as fast as possible.
TEST_F(Output, IsNotTheFileThatALinkPutInItsPlaceLeadsTo) {
  std::atomic<bool> isDone{false};
  std::thread other([&] {
    while (!isDone) {
      std::error_code error;
      fs::create_symlink("victim", "out.json", error);
      fs::remove("out.json", error);
    }
  });
  for (int i = 0; i != 150; ++i) {
    withFields("decode --format json --output out.json in.hex");
    ASSERT_EQ(contentsOf("victim"), "precious\n") << "in run " << i;
  }
  isDone = true;
  other.join();
}

TEST_F(Output, IsWrittenOverThroughALinkWhereThatIsForced) {
  fs::create_symlink("victim", "link");
  EXPECT_EQ(withFields("decode --format json --force --output link in.hex"), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("victim"), "{\"QTY\":5}\n");
}

TEST_F(Output, TellsOfAFileThatItCannotWriteToItsEnd) {
  std::string many;
  for (int i = 0; i != 30'000; ++i) {
    many += "062c010105\n";
  }
  write("stdin", many);
  Child::Limits limits;
  limits.fileBytes = 100'000;
  const std::vector<std::string> decode{"decode",     "--format", "json",    "--dictionary",
                                        "fields.txt", "--output", "out.json"};
  EXPECT_EQ(Child(decode, limits).wait().status, 2);
  EXPECT_EQ(contentsOf("stderr"),
            "mdmsg: cannot write out.json: File too large\n"
            "mdmsg: out.json holds only a part of the output\n");
  EXPECT_EQ(fs::file_size("out.json"), 100'000U);
}

#if defined(__linux__)
TEST_F(Output, MadeForNothingIsRemoved) {
  write("stdin", "");
  EXPECT_EQ(withFields("decode --format csv --output out.csv in.hex").status, 2);
  EXPECT_FALSE(fs::exists("out.csv"));
  // Neither is what was there before, nor what somebody has put in its place.
  EXPECT_EQ(withFields("decode --format csv --force --output victim in.hex").status, 2);
  EXPECT_EQ(contentsOf("victim"), "precious\n");
}

/// A named pipe with somebody at its other end, for its lifetime.
class Pipe {
 public:
  explicit Pipe(const char* path) {
    EXPECT_EQ(mkfifo(path, 0600), 0);
    m_end = open(path, O_RDWR);
  }
  ~Pipe() { close(m_end); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void write(const std::string& text) const {
    EXPECT_EQ(::write(m_end, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

 private:
  int m_end;
};

TEST_F(Output, TellsThatAnInterruptLeftAPart) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    SCOPED_TRACE(signal);
    fs::remove("lines");
    fs::remove("out.json");
    const Pipe lines("lines");
    Child decode({"decode", "--format", "json", "--dictionary", "fields.txt", "--output", "out.json", "lines"});
    lines.write("062c010105\n");
    ASSERT_TRUE(until([] { return contentsOf("out.json") == "{\"QTY\":5}\n"; }));
    decode.send(signal);
    EXPECT_EQ(decode.wait().signal, signal);
    EXPECT_EQ(contentsOf("stderr"), "mdmsg: interrupted; out.json holds only a part of the output\n");
    EXPECT_EQ(contentsOf("out.json"), "{\"QTY\":5}\n");
  }
}

TEST_F(Output, ThatAnInterruptLeftEmptyIsRemoved) {
  const Pipe lines("lines");
  Child decode({"decode", "--dictionary", "fields.txt", "--output", "out.txt", "lines"});
  ASSERT_TRUE(until([&] { return fs::exists("out.txt") && decode.isAsleep(); }));
  decode.send(SIGTERM);
  EXPECT_EQ(decode.wait().signal, SIGTERM);
  EXPECT_FALSE(fs::exists("out.txt"));
}
#endif

// What a command reads grows by what it writes, for ever.
TEST_F(Output, IsNotAppendedToItsInput) {
  const auto appending = [](const std::string& arguments, const std::string& file) {
    const std::string command = "'" MDMSG_PROGRAM "' " + arguments + " --dictionary fields.txt >>" + file + " 2>stderr";
    const int status = std::system(("ulimit -f 1000; " + command).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  const std::string loop = "062c010105\n";
  write("loop.hex", loop);
  EXPECT_EQ(appending("convert --encoding MsgT loop.hex", "loop.hex"), 2);
  EXPECT_EQ(contentsOf("stderr"), "mdmsg: loop.hex is also the output\n");
  EXPECT_EQ(contentsOf("loop.hex"), loop);
  EXPECT_EQ(appending("convert --encoding MsgT < loop.hex", "loop.hex"), 2);
  EXPECT_EQ(contentsOf("stderr"), "mdmsg: standard input is also the output\n");
  EXPECT_EQ(contentsOf("loop.hex"), loop);
  // Other inputs are read.
  EXPECT_EQ(appending("convert --encoding mInt loop.hex in.hex", "loop.hex"), 2);
  EXPECT_EQ(contentsOf("loop.hex"), loop + "062c010105\n");
  // An empty one gives nothing to write; another output is no loop.
  write("empty.hex", "");
  EXPECT_EQ(appending("decode empty.hex", "empty.hex"), 0);
  EXPECT_EQ(appending("decode --format json --output other.json loop.hex", "loop.hex"), 0);
  EXPECT_EQ(contentsOf("other.json"), "{\"QTY\":5}\n{\"QTY\":5}\n");
}

}  // namespace
