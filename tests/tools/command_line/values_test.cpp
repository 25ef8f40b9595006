// Values of options that cannot be used, and options that contradict each other.
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/run_support.h"

namespace {

using namespace MD::test;

class Values : public ToolRun {};

TEST_F(Values, AreRefusedByNameAndReason) {
  const struct {
    const char* arguments;
    const char* error;
  } cases[] = {
      {"decode --json --time-digits 10", "--time-digits: 10 is more than 9"},
      {"decode --json --time-digits 0x3", "--time-digits: \"0x3\" is not an integer"},
      {"stats --interval 1s", "--interval: \"1s\" is not a number"},
      {"listen 127.0.0.1:0 --timeout =", "--timeout: \"=\" is not a number"},
  };
  for (const auto& [arguments, error] : cases) {
    SCOPED_TRACE(arguments);
    EXPECT_EQ(mdmsg(arguments), (Result{"", std::string("mdmsg: ") + error + "\nTry \"mdmsg --help\".\n", 2}));
  }
}

/// A script's variable that is not set must not select everything, nor publish without acknowledgement.
TEST_F(Values, EmptyOnesDoNotLeaveOptionsOut) {
  for (const char* const arguments :
       {"decode --group", "decode --framing", "decode --from-time", "decode --to-time", "stats --sequence",
        "stats --sequence SEQ --per", "stats --time-field", "merge --time-field",
        "encode --encoding mInt --format pcap --time-field", "listen 127.0.0.1:0 --timeout 0 --interface",
        "publish --subject x --stream", "publish --subject x --publisher", "subscribe --stream", "subscribe --durable",
        "subscribe --queue", "subscribe --credentials", "subscribe --tls-ca", "wireshark --install --folder"}) {
    std::istringstream stream(arguments);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
    const std::string option = words.back();
    words.emplace_back();
    SCOPED_TRACE(arguments);
    EXPECT_EQ(runTool(words), (Result{"", "mdmsg: " + option + ": the value is empty\nTry \"mdmsg --help\".\n", 2}));
  }
}

TEST_F(Values, ShortAndLongFormsMustAgree) {
  const struct {
    const char* arguments;
    const char* error;
  } cases[] = {
      {"decode --json --csv", "--csv is --format csv, not json"},
      {"decode --csv --json", "--csv is --format csv, not json"},
      {"decode --json --format text", "--json is --format json, not text"},
      {"encode --encoding mInt --csv --from json", "--csv is --from csv, not json"},
      {"stats --csv --format text", "--csv is --format csv, not text"},
      {"listen 127.0.0.1:0 --json --format pcap", "--json is --format json, not pcap"},
  };
  for (const auto& [arguments, error] : cases) {
    SCOPED_TRACE(arguments);
    EXPECT_EQ(mdmsg(arguments), (Result{"", std::string("mdmsg: ") + error + '\n', 2}));
  }
  EXPECT_EQ(mdmsg("decode --json --json --format json", "06\n"), (Result{"{}\n", "", 0}));
}

}  // namespace
