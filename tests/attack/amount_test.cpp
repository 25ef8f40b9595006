// How much the program writes and holds is in proportion to what it reads, whatever that is.
#include <cstdint>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "attack/attack_support.h"

namespace {

using MD::test::Child;
using MD::test::contentsOf;
using MD::test::End;
using MD::test::Program;
using MD::test::Result;

using Amount = Program;

/// A message as --framing u32be reads it.
std::string framed(const std::string& message) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes += static_cast<char>(message.size() >> shift & 0xff);
  }
  return bytes + message;
}

/// An mInt with so many empty strings under one id, and a long one behind them.
std::string repeatedSymbol(std::size_t records) {
  std::string message = "\x06";
  for (std::size_t i = 0; i != records; ++i) {
    message.append("\x3c\0\1\0", 4);
  }
  return message + std::string("\x3c\0\xff", 3) + std::string(254, 'x') + '\0';
}

// As many bytes of text per byte of input, however often the one field is there.
TEST_F(Amount, OfTextIsLinear) {
  for (const char* const command : {"decode", "decode --price", "decode --raw-text", "decode --raw-text --price",
                                    "decode --fields SYMBOL", "decode --raw-text --fields SYMBOL"}) {
    SCOPED_TRACE(command);
    for (const std::size_t records : {4000U, 8000U, 16000U}) {
      write("in", framed(repeatedSymbol(records)));
      const Result result = withFields(command + std::string(" --framing u32be in"));
      const bool isRaw = std::string(command).find("raw") != std::string::npos;
      EXPECT_EQ(result.out, "SYMBOL                 = " + std::string(254, 'x') +
                                (isRaw ? "" : " <the last of " + std::to_string(records + 1) + " records>") + '\n');
      EXPECT_EQ(result.err, "mdmsg: in: message 1 (byte 0): note: field SYMBOL: stands " + std::to_string(records + 1) +
                                " times in the message; the last one counts\n");
    }
  }
}

TEST_F(Amount, OfReportsIsBoundedPerInputAndKind) {
  std::string lines;
  std::string expected;
  for (int i = 1; i <= 1000; ++i) {
    lines += i % 2 == 0 ? "zz\n" : "07\n";
    if (i <= 20) {
      expected += "mdmsg: in.hex:" + std::to_string(i) + ": " +
                  (i % 2 == 0 ? "column 1: \"z\" is not a hex digit\n"
                              : "no encoding begins with byte 07 (01 IterMap, 06 mInt, 46 MsgT)\n");
    }
  }
  lines += "062c010105\n";
  write("in.hex", lines);
  expected +=
      "mdmsg: in.hex: not reported one by one: 490 malformed messages, 490 messages of unknown encoding "
      "(--max-reports)\n";
  for (const char* const command : {"decode --format json", "diff /dev/null", "convert --to mInt"}) {
    SCOPED_TRACE(command);
    const Result result = withFields(command + std::string(" in.hex"));
    EXPECT_EQ(result.err, expected);
    EXPECT_EQ(result.status, 1);
  }
  // Each input has its own, and none may be wanted at all.
  const std::string second = [&] {
    std::string text = expected;
    for (std::size_t at = 0; (at = text.find("in.hex", at)) != text.npos;) {
      text.replace(at, 6, "standard input");
    }
    return text;
  }();
  EXPECT_EQ(withFields("decode --format json in.hex -", lines),
            (Result{"{\"QTY\":5}\n{\"QTY\":5}\n", expected + second, 1}));
  EXPECT_EQ(withFields("decode --format json --max-reports 0 in.hex"),
            (Result{"{\"QTY\":5}\n",
                    "mdmsg: in.hex: not reported one by one: 500 malformed messages, 500 messages of unknown encoding "
                    "(--max-reports)\n",
                    1}));
}

TEST_F(Amount, OfReportsOnOneMessageIsBounded) {
  std::string fields;
  std::string hex = "06";
  for (int id = 1; id <= 200; ++id) {
    fields += "F" + std::to_string(id) + ' ' + std::to_string(id) + " SHORT\n";
    const std::string record = std::string("  ") + "0123456789abcdef"[id / 16] + "0123456789abcdef"[id % 16] + "000107";
    hex += record + record;
  }
  write("fields.txt", fields);
  const Result result = withFields("decode --format json", hex + '\n');
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 21) << result.err;
  EXPECT_NE(
      result.err.find("mdmsg: standard input: not reported one by one: 190 repeated fields, 190 values that cannot "
                      "be read (--max-reports)\n"),
      std::string::npos)
      << result.err;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The text of the message in the middle does not fit the memory; the messages around it go out, and it is reported.
TEST_F(Amount, OfMemoryThatIsMissingLosesOneMessage) {
  const std::string small = framed(std::string("\x06\x2c\1\1\5", 5));
  std::string large = "\x06";
  const std::string text(253, '\x01');  // four characters each when it is escaped, six in JSON
  for (int id = 1; id <= 30'000; ++id) {
    large += static_cast<char>(id);
    large += static_cast<char>(id >> 8);
    large += static_cast<char>(254);
    large += text + '\0';
  }
  std::string fields;
  for (int id = 1; id <= 30'000; ++id) {
    fields += id == 300 ? "QTY 300 INT\n" : "F" + std::to_string(id) + ' ' + std::to_string(id) + " STRING\n";
  }
  write("fields.txt", fields);
  write("stdin", small + framed(large) + small);
  const struct {
    std::vector<std::string> format;
    rlim_t memoryBytes;
    std::string text;
  } kRows[] = {
      {{"--format", "text"}, rlim_t{60} << 20, "QTY                    = 5\n\nQTY                    = 5\n"},
      {{"--raw-text"}, rlim_t{46} << 20, "QTY                    = 5\n\nQTY                    = 5\n"},
      {{"--format", "json"}, rlim_t{60} << 20, "{\"QTY\":5}\n{\"QTY\":5}\n"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.format.back());
    std::vector<std::string> decode{"decode", "--framing", "u32be", "--dictionary", "fields.txt"};
    decode.insert(decode.end(), row.format.begin(), row.format.end());
    Child::Limits limits;
    limits.addressSpaceBytes = row.memoryBytes;
    EXPECT_EQ(Child(decode, limits).wait().status, 1);
    EXPECT_TRUE(contentsOf("stdout") == row.text) << contentsOf("stdout").substr(0, 1000);
    EXPECT_NE(
        contentsOf("stderr").find("mdmsg: standard input: message 2 (byte 9): there is not enough memory for it\n"),
        std::string::npos)
        << contentsOf("stderr").substr(0, 1000);
  }
}
#endif

}  // namespace
