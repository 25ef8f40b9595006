// Listening while nobody reads what is written, while signals come, and while more comes than can be read.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "attack/attack_support.h"

namespace {

using MD::test::Child;
using MD::test::contentsOf;
using MD::test::End;
using MD::test::Program;
using MD::test::until;

/// Sends datagrams to a port of this machine.
class Sender {
 public:
  explicit Sender(std::uint16_t port) : m_socket(socket(AF_INET, SOCK_DGRAM, 0)) {
    m_to.sin_family = AF_INET;
    m_to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    m_to.sin_port = htons(port);
  }
  ~Sender() { close(m_socket); }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  void send(const std::string& datagram) const {
    EXPECT_EQ(
        sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&m_to), sizeof m_to),
        static_cast<ssize_t>(datagram.size()));
  }

 private:
  int m_socket;
  sockaddr_in m_to{};
};

class Listen : public Program {
 protected:
  Listen() { write("stdin", ""); }

  /// Starts to listen, and waits until it does.
  void start(std::vector<std::string> arguments, int output = -1) {
    arguments.insert(arguments.begin(), {"listen", "127.0.0.1:0", "--format", "hex"});
    std::remove("stderr");
    m_child = std::make_unique<Child>(arguments, Child::Limits(), output);
    const std::string begin = "mdmsg: listening on 127.0.0.1:";
    ASSERT_TRUE(until([&] { return contentsOf("stderr").find('\n') != std::string::npos; }));
    const std::string told = contentsOf("stderr");
    ASSERT_EQ(told.rfind(begin, 0), 0U) << told;
    m_place = told.substr(begin.size() - 10, told.find('\n') - begin.size() + 10);
    m_sender = std::make_unique<Sender>(static_cast<std::uint16_t>(std::stoi(told.substr(begin.size()))));
  }

  /// Its diagnostics after the one that it listens.
  static std::string reports() {
    const std::string told = contentsOf("stderr");
    return told.substr(told.find('\n') + 1);
  }

  std::unique_ptr<Child> m_child;
  std::unique_ptr<Sender> m_sender;
  std::string m_place;
};

constexpr const char* kLost = "mdmsg: nobody reads the output; the rest of it is lost\n";

/// Nobody reads from the pipe that it writes to.
class ListenIntoAFullPipe : public Listen {
 protected:
  ListenIntoAFullPipe() {
    EXPECT_EQ(mkfifo("pipe", 0600), 0);
    m_pipe = open("pipe", O_RDWR);
  }
  ~ListenIntoAFullPipe() override { close(m_pipe); }

  /// Sends until it waits in a write.
  void fill() const {
    const int room = fcntl(m_pipe, F_GETPIPE_SZ);
    ASSERT_TRUE(until([&] {
      m_sender->send(std::string(60'000, 'x'));
      int waiting = 0;
      ioctl(m_pipe, FIONREAD, &waiting);
      return waiting == room && m_child->isAsleep();
    }));
  }

  int m_pipe;
};

TEST_F(ListenIntoAFullPipe, ASignalEndsIt) {
  for (const int signal : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(signal);
    start({}, m_pipe);
    fill();
    m_child->send(signal);
    EXPECT_EQ(m_child->wait().status, 1);
    EXPECT_EQ(reports(), kLost);
    // For the next one.
    std::string read(1 << 20, '\0');
    EXPECT_GT(::read(m_pipe, read.data(), read.size()), 0);
  }
}

TEST_F(ListenIntoAFullPipe, TheTimeoutEndsIt) {
  start({"--timeout", "0.2"}, m_pipe);
  fill();
  EXPECT_EQ(m_child->wait().status, 1);
  EXPECT_EQ(reports(), kLost);
}

TEST_F(ListenIntoAFullPipe, AHangUpEndsItAsAlways) {
  start({}, m_pipe);
  fill();
  m_child->send(SIGHUP);
  EXPECT_EQ(m_child->wait().signal, SIGHUP);
}

// A reader that is slow but reads gets everything.
TEST_F(ListenIntoAFullPipe, AReaderThatComesInTimeGetsAll) {
  start({"--count", "3"}, m_pipe);
  for (const char* const datagram : {"a", "b", "c"}) {
    m_sender->send(datagram + std::string(40'000, 'x'));
  }
  ASSERT_TRUE(until([&] {
    int waiting = 0;
    ioctl(m_pipe, FIONREAD, &waiting);
    return waiting > 60'000 && m_child->isAsleep();
  }));
  std::string all;
  while (std::count(all.begin(), all.end(), '\n') != 3) {
    std::string read(1 << 20, '\0');
    const ssize_t count = ::read(m_pipe, read.data(), read.size());
    ASSERT_GT(count, 0);
    all.append(read, 0, static_cast<std::size_t>(count));
  }
  EXPECT_EQ(all.size(), 3U * 80'003);
  EXPECT_EQ(m_child->wait().status, 0);
  EXPECT_EQ(reports(), "");
}

TEST_F(Listen, TellsWhatTheSystemDropped) {
  start({"--receive-buffer", "100000"});
  m_child->send(SIGSTOP);
  constexpr int kSent = 300;
  for (int i = 0; i != kSent; ++i) {
    m_sender->send(std::string(10'000, 'x'));
  }
  m_child->send(SIGCONT);
  ASSERT_TRUE(until([&] { return !contentsOf("stdout").empty() && m_child->isAsleep(); }));
  m_child->send(SIGINT);
  EXPECT_EQ(m_child->wait().status, 1);
  const std::string heard = contentsOf("stdout");
  const auto dropped = kSent - std::count(heard.begin(), heard.end(), '\n');
  EXPECT_GT(dropped, 200);
  EXPECT_EQ(reports(),
            "mdmsg: " + m_place + ": the system dropped " + std::to_string(dropped) +
                " datagrams that arrived faster than they were read; --receive-buffer sets a larger buffer\n");
}

TEST_F(Listen, KeepsWhatALargerBufferHolds) {
  start({"--receive-buffer", "2000000", "--count", "100"});
  m_child->send(SIGSTOP);
  for (int i = 0; i != 100; ++i) {
    m_sender->send(std::string(1000, 'x'));
  }
  m_child->send(SIGCONT);
  EXPECT_EQ(m_child->wait().status, 0);
  EXPECT_EQ(reports(), "");
}

TEST_F(Listen, TellsThatTheSystemGivesLessRoom) {
  // More than any system's default allows.
  start({"--receive-buffer", "1073741824", "--timeout", "0.1"});
  EXPECT_EQ(m_child->wait().status, 0);
  const std::string told = reports();
  EXPECT_EQ(told.rfind("mdmsg: the system grants a receive buffer of ", 0), 0U) << told;
  EXPECT_NE(told.find(" bytes instead of 1073741824\n"), told.npos) << told;
}

}  // namespace
