// Feeds from one process to another, over the loopback interface.
#include <string>

#include <gtest/gtest.h>

#include "tools/program_support.h"

#ifndef _WIN32

namespace {

using MD::test::contentsOf;
using MD::test::Program;

class Network : public Program {
 protected:
  Network() {
    // Starts a listener with the arguments, its output in a file and its reports in "listener", waits until it
    // listens, and puts its place into $at. It is waited for at the end, its exit status written after its diagnostics.
    write("listen.sh",
          "rm -f listener\n"
          "'" MDMSG_PROGRAM
          "' listen \"$@\" >heard 2>listener &\n"
          "listener=$!\n"
          "tries=0\n"
          "until grep -qs 'listening on' listener; do\n"
          "  tries=$((tries + 1))\n"
          "  [ $tries -lt 500 ] || exit 9\n"
          "  sleep 0.02\n"
          "done\n"
          "at=$(sed -n 's/mdmsg: listening on //p' listener)\n"
          "finish() { wait $listener; echo \"status $?\" >>listener; }\n");
  }

  /// Runs a shell script in which $at is where the listener listens.
  static int listenDuring(const std::string& listenArguments, const std::string& script) {
    write("script.sh", "set -- " + listenArguments + "\n. ./listen.sh\n" + script + "finish\n");
    return std::system("sh script.sh");
  }

  /// The listener's reports, without the place that the system chose.
  static std::string reports() {
    std::string text = contentsOf("listener");
    const std::string place = text.substr(20, text.find('\n') - 20);
    for (std::size_t at = text.find(place); at != text.npos; at = text.find(place)) {
      text.replace(at, place.size(), "HERE");
    }
    return text;
  }
};

TEST_F(Network, AFeedArrivesAsItWasMade) {
  const std::string feed = mdmsg("generate --count 200").out;
  write("feed.hex", feed);
  ASSERT_EQ(listenDuring("127.0.0.1:0 --count 200 --timeout 30 --format hex",
                         "'" MDMSG_PROGRAM "' replay --destination $at --rate 2000 feed.hex 2>sender\n"),
            0);
  EXPECT_EQ(contentsOf("heard"), feed);
  EXPECT_EQ(reports(), "mdmsg: listening on HERE\nstatus 0\n");
  const std::string sent = contentsOf("sender");
  EXPECT_EQ(sent.rfind("mdmsg: sent 200 datagrams, ", 0), 0U) << sent;
}

TEST_F(Network, ShowsDatagramsAsDecodeDoes) {
  ASSERT_EQ(listenDuring("127.0.0.1:0 --count 4 --timeout 30 --format json --dictionary fields.txt --where QTY=5",
                         "printf '062c010105\\n07\\n062c010106\\n062c010105e703000a\\n' |"
                         "'" MDMSG_PROGRAM "' replay --destination $at --speed max 2>sender\n"),
            0);
  EXPECT_EQ(contentsOf("heard"), "{\"QTY\":5}\n{\"QTY\":5}\n");
  EXPECT_EQ(
      reports(),
      "mdmsg: listening on HERE\n"
      "mdmsg: HERE: datagram 2: unknown encoding byte 07 (01 IterMap, 06 mInt, 46 MsgT)\n"
      "mdmsg: HERE: datagram 4: note: 4 bytes dropped: field 999 is not in the dictionary fields.txt; the last byte "
      "is not a field id\n"
      "status 1\n");
}

TEST_F(Network, ACaptureIsKeptAndReplayedAtItsPace) {
  write("feed.hex", mdmsg("generate --count 5 --damaged 40 --seed 3").out);
  ASSERT_EQ(listenDuring("127.0.0.1:0 --count 5 --timeout 30 --format pcap --output kept.pcap",
                         "'" MDMSG_PROGRAM "' replay --destination $at --rate 20 feed.hex 2>sender\n"),
            0);
  EXPECT_EQ(reports(), "mdmsg: listening on HERE\nstatus 0\n");
#if defined(MDMSG_HAS_PCAP)
  // 5 datagrams at 20 a second take some 200 ms; ten times as fast, some 20.
  ASSERT_EQ(listenDuring("127.0.0.1:0 --count 5 --timeout 30 --format hex",
                         "'" MDMSG_PROGRAM "' replay --destination $at --speed 10 kept.pcap 2>sender\n"),
            0);
  EXPECT_EQ(contentsOf("heard"), contentsOf("feed.hex"));
#endif
}

TEST_F(Network, AnInterruptEndsListening) {
  ASSERT_EQ(listenDuring("127.0.0.1:0 --format json --dictionary fields.txt",
                         "echo 062c010105 | '" MDMSG_PROGRAM "' replay --destination $at 2>sender\n"
                         "until [ -s heard ]; do sleep 0.02; done\n"
                         "kill -TERM $listener\n"),
            0);
  EXPECT_EQ(contentsOf("heard"), "{\"QTY\":5}\n");
  EXPECT_EQ(reports(), "mdmsg: listening on HERE\nstatus 0\n");
}

TEST_F(Network, WritesNothingOverAnExistingFile) {
  write("kept.pcap", "precious");
  EXPECT_EQ(mdmsg("listen 127.0.0.1:0 --timeout 1 --format pcap --output kept.pcap"),
            (MD::test::Result{"", "mdmsg: kept.pcap exists; --force overwrites it\n", 2}));
  EXPECT_EQ(contentsOf("kept.pcap"), "precious");
}

}  // namespace

#endif
