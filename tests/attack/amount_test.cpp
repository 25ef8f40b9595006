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

/// An mInt with so many empty strings under one id, and a long one after them.
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
      EXPECT_EQ(result.err, "mdmsg: in: message 1 (byte 0): note: field SYMBOL: occurs " + std::to_string(records + 1) +
                                " times; the last value is used\n");
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
                              : "unknown encoding byte 07 (01 IterMap, 06 mInt, 46 MsgT)\n");
    }
  }
  lines += "062c010105\n";
  write("in.hex", lines);
  expected +=
      "mdmsg: in.hex: not reported individually: 490 malformed messages, 490 messages of unknown encoding "
      "(--max-reports)\n";
  for (const char* const command : {"decode --format json", "diff /dev/null", "convert --encoding mInt"}) {
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
            (Result{"{\"QTY\":5}\n", "mdmsg: in.hex: 500 malformed messages, 500 messages of unknown encoding\n", 1}));
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
      result.err.find("mdmsg: standard input: not reported individually: 190 repeated fields, 190 values that cannot "
                      "be read (--max-reports)\n"),
      std::string::npos)
      << result.err;
}

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
const std::string kSmall = framed(std::string("\x06\x2c\1\1\5", 5));

// What is longer is reported by its place, and the next one is read.
TEST_F(Amount, OfAMessageIsBounded) {
  const std::string bytes = "\x06" + std::string(30, 'x');
  const auto longer = [](const char* place, const char* what, int bound) {
    return "mdmsg: in" + std::string(place) + ": the " + what + " is longer than " + std::to_string(bound) +
           " bytes (--max-message)\n";
  };
  write("in", kSmall + framed(bytes) + kSmall);
  EXPECT_EQ(withFields("decode --format json --framing u32be --max-message 30 in"),
            (Result{"{\"QTY\":5}\n{\"QTY\":5}\n", longer(": message 2 (byte 9)", "message", 30), 1}));
  EXPECT_EQ(withFields("decode --format json --framing u32be --max-message 4294967295 in").out.substr(0, 10),
            "{\"QTY\":5}\n");
  write("in", kSmall + framed(bytes).substr(0, 20));
  EXPECT_EQ(withFields("decode --format json --framing u32be --max-message 30 in"),
            (Result{"{\"QTY\":5}\n",
                    "mdmsg: in: the input is truncated within message 2, of which it has 16 of 31 bytes; everything "
                    "before this was processed\n",
                    1}));
  write("in", bytes);
  for (const char* const command :
       {"decode", "dump", "convert --encoding mInt", "diff /dev/null", "replay --destination 127.0.0.1:9"}) {
    SCOPED_TRACE(command);
    const Result result = mdmsg(command + std::string(" --from raw --max-message 30 in"));
    EXPECT_NE(result.err.find(longer("", "message", 30)), std::string::npos) << result.err;
    EXPECT_EQ(result.status, 1);
  }
  EXPECT_EQ(withFields("stats --from raw --max-message 30 in").err, longer("", "message", 30));
  // Of hex lines the bytes count, not the digits and spaces.
  write("in", "06 2c 01 01 05\n062c01010506\n062c010105\n" + std::string(100, '0') + "\n062c010105");
  EXPECT_EQ(
      withFields("decode --format json --max-message 5 in"),
      (Result{"{\"QTY\":5}\n{\"QTY\":5}\n{\"QTY\":5}\n", longer(":2", "message", 5) + longer(":4", "line", 15), 1}));
  write("in", "{\"QTY\":5}\n{\"QTY\":5   }\n{\"QTY\":6}");
  EXPECT_EQ(withFields("encode --encoding mInt --max-message 10 in"),
            (Result{"062c010105\n062c010106\n", longer(":2", "line", 10), 1}));
  write("in", "QTY,SYMBOL\n5,A\n5,\"A\nB\nCCCC\"\n6,B\n");
  EXPECT_EQ(withFields("encode --csv --encoding mInt --max-message 11 in"),
            (Result{"062c0101053c00024100\n062c0101063c00024200\n", longer(":3", "record", 11), 1}));
  EXPECT_EQ(withFields("decode --max-message 0 in").status, 2);
  EXPECT_EQ(withFields("decode --max-message 4294967296 in").status, 2);
}

TEST_F(Amount, OfCellsIsBounded) {
  write("in", "QTY,SYMBOL\n" + std::string(70'000, ',') + "\n5,A\n");
  EXPECT_EQ(withFields("encode --csv --encoding mInt in"),
            (Result{"062c0101053c00024100\n", "mdmsg: in:2: the record has more than 65536 cells\n", 1}));
}

TEST_F(Amount, OfFindingsAboutADictionaryIsBounded) {
  std::string text;
  for (int i = 0; i != 1000; ++i) {
    text += "A" + std::to_string(i) + " 5 NO\n";
  }
  write("bad.txt", text);
  const Result result = mdmsg("dict check bad.txt");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 22) << result.out;
  EXPECT_NE(result.out.find("\nbad.txt: 980 more problems and notes are not listed, only the first 20 of each kind\n"
                            "bad.txt: text, 0 fields, 1000 problems, 0 notes\n"),
            std::string::npos)
      << result.out;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The text of the message in the middle does not fit the memory; the messages around it go out, and it is reported.
TEST_F(Amount, OfMemoryThatIsMissingLosesOneMessage) {
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
  write("stdin", kSmall + framed(large) + kSmall);
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

rlim_t mebibytes(std::size_t count) { return count * kMebibyte; }

// Neither the bound nor the memory is there for a line that does not end; the inputs after it are read.
TEST_F(Amount, OfMemoryForALineIsBounded) {
  write("small.hex", "062c010105\n");
  const std::string digits(mebibytes(60), '0');
  write("line.hex", digits + "\n062c010106\n");
  write("line.json", '"' + digits + "\n{\"QTY\":6}\n");
  write("small.json", "{\"QTY\":5}\n");
  const auto run = [](const std::vector<std::string>& arguments, std::size_t memoryMebibytes) {
    Child::Limits limits;
    limits.addressSpaceBytes = mebibytes(memoryMebibytes);
    std::vector<std::string> all = arguments;
    all.insert(all.end(), {"--dictionary", "fields.txt"});
    const int status = Child(all, limits).wait().status;
    return Result{contentsOf("stdout"), contentsOf("stderr"), status};
  };
  write("stdin", "");
  const std::string json = "{\"QTY\":6}\n{\"QTY\":5}\n";
  EXPECT_EQ(run({"decode", "--format", "json", "--max-message", "1000000", "line.hex", "small.hex"}, 60),
            (Result{json, "mdmsg: line.hex:1: the line is longer than 3000000 bytes (--max-message)\n", 1}));
  EXPECT_EQ(run({"decode", "--format", "json", "line.hex", "small.hex"}, 100),
            (Result{json, "mdmsg: line.hex:1: there is not enough memory for it\n", 1}));
  EXPECT_EQ(run({"encode", "--encoding", "mInt", "line.json", "small.json"}, 100),
            (Result{"062c010106\n062c010105\n", "mdmsg: line.json:1: there is not enough memory for it\n", 1}));
  write("framed", kSmall + framed(std::string(mebibytes(60), 'x')) + kSmall);
  EXPECT_EQ(run({"decode", "--format", "json", "--framing", "u32be", "framed"}, 70),
            (Result{"{\"QTY\":5}\n{\"QTY\":5}\n",
                    "mdmsg: framed: message 2 (byte 9): there is not enough memory for it\n", 1}));
  EXPECT_EQ(run({"decode", "--format", "json", "--from", "raw", "framed", "small.hex"}, 70).err,
            "mdmsg: framed: there is not enough memory for it\nmdmsg: small.hex: unknown encoding byte 30 (01 "
            "IterMap, 06 mInt, 46 MsgT)\n");
}

// 6.4 MB took 618 MB.
TEST_F(Amount, OfMemoryForADictionaryIsBounded) {
  std::string text;
  while (text.size() < 6'400'000) {
    text += "a 1 NO\n";
  }
  write("large.txt", text);
  write("stdin", "");
  Child::Limits limits;
  limits.addressSpaceBytes = mebibytes(130);
  EXPECT_EQ(Child({"dict", "check", "large.txt"}, limits).wait().status, 1);
  EXPECT_EQ(contentsOf("stderr"), "");
  EXPECT_NE(contentsOf("stdout").find("the rest is not checked"), std::string::npos);
}
#endif

}  // namespace
