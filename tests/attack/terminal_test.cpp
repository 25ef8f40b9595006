// Text of untrusted parties on a terminal: it is shown, and not obeyed.
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/progress.h"
#include "tools/program_support.h"
#include "tools/terminal_support.h"

namespace {

using MD::test::contentsOf;
using MD::test::Program;
using MD::test::Result;
using MD::test::shownBy;

/// Sets the title, clears the screen in C1 too, forges a line, turns text around, rings.
constexpr const char* kHostile =
    "A\x1b]0;title\x07\xc2\x9b"
    "2J\r\nBID = 1\xe2\x80\xaez\x7f\\";
constexpr const char* kShown = "A\\x1b]0;title\\x07\\u{9b}2J\\x0d\\x0aBID = 1\\u{202e}z\\x7f\\\\";

std::string hexOf(std::string_view text) {
  std::string hex;
  for (const char c : text) {
    constexpr const char* kDigits = "0123456789abcdef";
    hex += kDigits[static_cast<unsigned char>(c) >> 4];
    hex += kDigits[static_cast<unsigned char>(c) & 15];
  }
  return hex;
}

/// The text with what a terminal would obey, ends of lines aside, as "<1b>".
std::string obeyedOf(std::string_view text) {
  std::string found;
  for (std::size_t i = 0; i != text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const std::string_view rest = text.substr(i);
    const bool isC1 = byte == 0xc2 && rest.size() > 1 && static_cast<unsigned char>(rest[1]) < 0xa0;
    const bool isLineEnd = byte == '\n' || rest.substr(0, 2) == "\r\n";
    if (isC1 || rest.substr(0, 3) == "\xe2\x80\xae" || byte == 0x7f || (byte < 0x20 && !isLineEnd)) {
      found += '<' + hexOf(rest.substr(0, 1)) + '>';
    }
  }
  return found;
}

class HostileText : public Program {
 protected:
  HostileText() {
    // An mInt with a SYMBOL, and a field of which the message ends within the value.
    const std::string symbol = kHostile + std::string(1, '\0');
    write("in.hex",
          "06 3c00" + hexOf(std::string(1, static_cast<char>(symbol.size()))) + hexOf(symbol) + " 16000800\n");
  }

  static std::string quoted(const std::string& arguments) { return "'" MDMSG_PROGRAM "' " + arguments; }
  /// What a terminal shows of a run.
  static std::string shown(const std::string& arguments) {
    return shownBy("NO_COLOR=1 " + quoted(arguments) + " 2>&1");
  }
};

TEST_F(HostileText, OfValuesIsShown) {
  for (const char* const command : {"decode", "decode --price", "decode --fields SYMBOL", "dump", "stats",
                                    "decode --format json", "diff - ", "decode --where 'SYMBOL ~ A'"}) {
    SCOPED_TRACE(command);
    const std::string text = shown(command + std::string(" in.hex --dictionary fields.txt < /dev/null"));
    EXPECT_EQ(obeyedOf(text), "") << text;
    EXPECT_NE(text, "");
  }
  const Result text = withFields("decode in.hex");
  EXPECT_EQ(text.out, std::string("SYMBOL                 = ") + kShown +
                          "\nBID                    = <truncated: 1 of 8 bytes>\n");
  EXPECT_EQ(withFields("decode --price in.hex").out, text.out);
  EXPECT_EQ(withFields("decode --format json --fields SYMBOL in.hex").out,
            "{\"SYMBOL\":\"A\\u001b]0;title\\u0007\\u009b2J\\r\\nBID = 1\\u202ez\\u007f\\\\\"}\n");
  EXPECT_NE(withFields("dump in.hex").out.find('"' + std::string(kShown) + '"'), std::string::npos);
}

TEST_F(HostileText, IsWrittenAsItIsForOneWhoWantsThat) {
  EXPECT_EQ(withFields("decode --raw-text --fields SYMBOL in.hex").out,
            std::string("SYMBOL                 = ") + kHostile + '\n');
  EXPECT_EQ(withFields("decode --raw-text --price --fields SYMBOL in.hex").out,
            std::string("SYMBOL                 = ") + kHostile + '\n');
  EXPECT_EQ(withFields("decode --raw-text --format json in.hex"),
            (Result{"", "mdmsg: --raw-text requires --format text\n", 2}));
}

TEST_F(HostileText, OfNamesInDictionariesIsShown) {
  write("evil.txt",
        "EV\x1b[2JIL\xc2\x9b 60 STRING\nODD\x07 22 DOUBLE\nODD\x07 23 NO\x1bTYPE\nEV\x1b[2JIL\xc2\x9b 61 INT\n");
  write("other.txt", "O\x1bLD 60 INT\n");
  for (const char* const command :
       {"decode --dictionary evil.txt in.hex", "decode --price --dictionary evil.txt in.hex",
        "decode --format json --dictionary evil.txt in.hex", "dump --dictionary evil.txt in.hex",
        "stats --dictionary evil.txt in.hex", "convert --encoding MsgT --dictionary evil.txt in.hex",
        "diff --dictionary evil.txt /dev/null in.hex", "dict check evil.txt", "dict show --dictionary evil.txt 60",
        "dict show --dictionary evil.txt", "dict diff evil.txt other.txt", "dict convert evil.txt --format xml",
        "dict diff --compatibility full evil.txt other.txt", "dict generate --language c++ evil.txt"}) {
    SCOPED_TRACE(command);
    const std::string text = shown(command);
    EXPECT_EQ(obeyedOf(text), "") << text;
    EXPECT_NE(text, "");
  }
  EXPECT_NE(mdmsg("decode --dictionary evil.txt in.hex").out.find("\nODD\\x07                = <trunc"),
            std::string::npos);
}

TEST_F(HostileText, OfPathsIsShownInOneLine) {
  const char* const name = "in\x1b[2J\nmdmsg: forged\\x07.hex";
  write(name, "zz\n");
  const std::string path = "'" + std::string(name) + "'";
  const std::string shownPath = "in\\x1b[2J\\x0amdmsg: forged\\\\x07.hex";
  EXPECT_EQ(withFields("decode " + path).err, "mdmsg: " + shownPath + ":1: column 1: \"z\" is not a hex digit\n");
  EXPECT_EQ(withFields("decode " + path + "no").err,
            "mdmsg: cannot open " + shownPath + "no: No such file or directory\n");
  EXPECT_EQ(withFields("decode --output " + path).err, "mdmsg: " + shownPath + " exists; --force overwrites it\n");
  EXPECT_EQ(withFields("decode --force --output " + path + " " + path).err,
            "mdmsg: " + shownPath + " is an input, too\n");
  EXPECT_EQ(mdmsg("decode --dictionary " + path + "no").err,
            "mdmsg: cannot open dictionary " + shownPath + "no: No such file or directory\n");
  write(name, "06\n");
  EXPECT_EQ(withFields("dump " + path).out.substr(0, shownPath.size() + 3), "# " + shownPath + ":");
  for (const std::string& command : std::vector<std::string>{
           "dict check " + path, "dict check " + path + "no", "decode --dictionary " + path + " in.hex",
           "stats " + path + "/", "diff --dictionary fields.txt " + path + " in.hex",
           "dump --dictionary fields.txt " + path, "encode --encoding mInt " + path, "decode --no'\x1b[2J'such",
           "'\x1b[2J\nmdmsg: forged'", "dict show '\x1b[2J'", "decode --format '\x1b[2J'",
           ("decode --filter '\x1b[2J' --from pcap in.hex"),
           ("decode --time-zone '\x1b[2J' --iso-time --format json in.hex")}) {
    SCOPED_TRACE(command);
    const std::string text = shown(command);
    EXPECT_EQ(obeyedOf(text), "") << text;
    EXPECT_EQ(text.find("\nmdmsg: forged"), text.npos) << text;
    EXPECT_NE(text, "");
  }
}

TEST_F(HostileText, OfPathsIsShownInProgress) {
  std::ostringstream err;
  MD::tool::Progress progress(err);
  progress.begin("in\x1b[2J\n.hex", 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  progress.advance(1, 1);
  EXPECT_EQ(err.str(), "\r\x1b[Kin\\x1b[2J\\x0a.hex: 1 messages, 0.0 MB");
}

}  // namespace
