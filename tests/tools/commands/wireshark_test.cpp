// The command that writes and installs the dissector for Wireshark.
#include <cstdlib>

#include <string>

#include <gtest/gtest.h>

#include "tools/program_support.h"

namespace {

using MD::test::contentsOf;
using MD::test::Program;
using MD::test::Result;

class Wireshark : public Program {};

TEST_F(Wireshark, WritesTheDissector) {
  const std::string dissector = contentsOf(DISSECTOR);
  ASSERT_NE(dissector.find("Proto(\"md\""), dissector.npos);
  EXPECT_EQ(mdmsg("wireshark"), (Result{dissector, "", 0}));
  EXPECT_EQ(mdmsg("wireshark --output copy.lua"), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("copy.lua"), dissector);
}

TEST_F(Wireshark, InstallsIntoAFolder) {
  const Result run = mdmsg("wireshark --install --folder plugins/inner");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("md_message.lua is installed\n"), run.err.npos) << run.err;
  EXPECT_EQ(contentsOf("plugins/inner/md_message.lua"), contentsOf(DISSECTOR));
}

TEST_F(Wireshark, ReplacesACopyByForceAlone) {
  write("plugins/md_message.lua", "older, and longer than nothing");
  const Result refused = mdmsg("wireshark --install --folder plugins");
  EXPECT_EQ(refused.status, 2);
  EXPECT_NE(refused.err.find("md_message.lua exists; --force overwrites it"), refused.err.npos) << refused.err;
  EXPECT_EQ(contentsOf("plugins/md_message.lua"), "older, and longer than nothing");
  EXPECT_EQ(mdmsg("wireshark --install --folder plugins --force").status, 0);
  EXPECT_EQ(contentsOf("plugins/md_message.lua"), contentsOf(DISSECTOR));
}

TEST_F(Wireshark, RefusesWhatDoesNotGoTogether) {
  EXPECT_EQ(mdmsg("wireshark --folder plugins").status, 2);
  EXPECT_EQ(mdmsg("wireshark --install --output copy.lua").status, 2);
  write("plugins", "a file");
  const Result run = mdmsg("wireshark --install --folder plugins");
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("mdmsg: "), run.err.npos) << run.err;
}

#ifndef _WIN32

TEST_F(Wireshark, InstallsForTheUser) {
  ASSERT_EQ(setenv("HOME", "home", 1), 0);
  EXPECT_EQ(mdmsg("wireshark --install"),
            (Result{"", "mdmsg: home/.local/lib/wireshark/plugins/md_message.lua is installed\n", 0}));
  EXPECT_EQ(contentsOf("home/.local/lib/wireshark/plugins/md_message.lua"), contentsOf(DISSECTOR));
  ASSERT_EQ(unsetenv("HOME"), 0);
  EXPECT_EQ(mdmsg("wireshark --install"),
            (Result{"", "mdmsg: cannot find the home folder; name the folder of the plugins with --folder\n", 2}));
}

#endif

}  // namespace
