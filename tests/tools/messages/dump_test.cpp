// Annotated dumps of messages.
#include "messages/dump.h"

#include <memory>

#include <gtest/gtest.h>

#include "base/hex.h"
#include "md/md_message.h"
#include "text/hex_reader.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;

class Dump : public testing::Test {
 protected:
  Dump() { MD::test::loadDictionary(MD::test::kDictionary); }

  static std::vector<std::uint8_t> bytesOfHex(const std::string& hex) {
    std::vector<std::uint8_t> bytes;
    parseHex(hex, Blanks::BetweenBytes, bytes);
    return bytes;
  }

  /// From a block of the message's own size, so that a read beyond it is found.
  static std::string dumped(const std::vector<std::uint8_t>& bytes, DumpResult* result = nullptr,
                            bool isColored = false) {
    const auto block = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), block.get());
    std::ostringstream text;
    Output out(text);
    const DumpResult found = writeDump(block.get(), bytes.size(), MD::MD_FieldMap::instance(), isColored, out);
    out.finish();
    if (result != nullptr) {
      *result = found;
    }
    return text.str();
  }
  static std::string dumped(const std::string& hex) { return dumped(bytesOfHex(hex)); }

  /// The column of bytes of all rows, joined.
  static std::string bytesIn(const std::string& text) {
    std::string bytes;
    for (std::size_t begin = 0; begin < text.size(); begin = text.find('\n', begin) + 1) {
      const std::size_t offset = text.find("  ", begin);
      for (std::size_t at = offset + 2; at + 1 < text.size() && text[at] != ' ' && text[at] != '\n'; at += 3) {
        bytes += text.substr(at, 2);
        if (text[at + 2] == '\n') {
          break;
        }
      }
    }
    return bytes;
  }
};

TEST_F(Dump, ShowsEveryPartOfMInt) {
  EXPECT_EQ(dumped("06 2c01 02 2c01 3c00 0c 41424344454647484950 0a00 4600 01 ff"),
            "000000  06                       code                                     mInt\n"
            "000001  2c 01                    id     QTY                    INT        300\n"
            "000003  02                       length QTY                    INT        2\n"
            "000004  2c 01                    value  QTY                    INT        300\n"
            "000006  3c 00                    id     SYMBOL                 STRING     60\n"
            "000008  0c                       length SYMBOL                 STRING     12\n"
            "000009  41 42 43 44 45 46 47 48  value  SYMBOL                 STRING     \"ABCDEFGHIP\\x0a\"\n"
            "000011  49 50 0a 00\n"
            "000015  46 00                    id     BLOB                   BUFFER     70\n"
            "000017  01                       length BLOB                   BUFFER     1\n"
            "000018  ff                       value  BLOB                   BUFFER     1 byte\n");
}

TEST_F(Dump, ShowsEveryPartOfIterMap) {
  EXPECT_EQ(dumped("01 0a00 42 2800 0000003f 3c00 0300 414200 4600 02000000 00ff 5000 40118bf5828fdaff"),
            "000000  01                       code                                     IterMap\n"
            "000001  0a 00                    id     CH                     CHAR       10\n"
            "000003  42                       value  CH                     CHAR       \"B\"\n"
            "000004  28 00                    id     VOLA                   FLOAT      40\n"
            "000006  00 00 00 3f              value  VOLA                   FLOAT      0.5\n"
            "00000a  3c 00                    id     SYMBOL                 STRING     60\n"
            "00000c  03 00                    length SYMBOL                 STRING     3\n"
            "00000e  41 42 00                 value  SYMBOL                 STRING     \"AB\"\n"
            "000011  46 00                    id     BLOB                   BUFFER     70\n"
            "000013  02 00 00 00              length BLOB                   BUFFER     2\n"
            "000017  00 ff                    value  BLOB                   BUFFER     2 bytes\n"
            "000019  50 00                    id     WHEN                   DATETIME   80\n"
            "00001b  40 11 8b f5 82 8f da ff  value  WHEN                   DATETIME   20240115 93000000 (-300)\n");
}

TEST_F(Dump, ShowsEveryPartOfMsgT) {
  EXPECT_EQ(dumped("46515231 0014 0013 00000008 8000000000000000 0016 0005 00000008 4059500000000000 "
                   "005a 0016 00000008 4bac23449174d517"),
            "000000  46                       code                                     MsgT\n"
            "000001  51 52 31                 mark                                     \"QR1\"\n"
            "000004  00 14                    id     SEQ                    INT64      20\n"
            "000006  00 13                    type   SEQ                    INT64      19\n"
            "000008  00 00 00 08              length SEQ                    INT64      8\n"
            "00000c  80 00 00 00 00 00 00 00  value  SEQ                    INT64      -9223372036854775808\n"
            "000014  00 16                    id     BID                    DOUBLE     22\n"
            "000016  00 05                    type   BID                    DOUBLE     5\n"
            "000018  00 00 00 08              length BID                    DOUBLE     8\n"
            "00001c  40 59 50 00 00 00 00 00  value  BID                    DOUBLE     101.25\n"
            "000024  00 5a                    id     RECV                   EPOCH_NSEC 90\n"
            "000026  00 16                    type   RECV                   EPOCH_NSEC 22\n"
            "000028  00 00 00 08              length RECV                   EPOCH_NSEC 8\n"
            "00002c  4b ac 23 44 91 74 d5 17  value  RECV                   EPOCH_NSEC 1717407000173980747 "
            "(2024-06-03T09:30:00.173980747Z)\n");
}

TEST_F(Dump, MarksWhatIsWrongWhereItStands) {
  const struct {
    const char* name;
    const char* hex;
    const char* row;  // the last one
  } cases[] = {
      {"Foreign", "07",
       "000000  07                       code                                     ! unknown encoding byte "
       "(01 IterMap, 06 mInt, 46 MsgT)\n"},
      {"OneByteLeft", "06 2c",
       "000001  2c                       id                                       ! one byte is too short for a field "
       "id; receivers drop it\n"},
      {"NoLength", "06 2c01",
       "000003                           length QTY                    INT        ! the message is truncated within "
       "the "
       "record\n"},
      {"NoValue", "06 2c01 04",
       "000004                           value  QTY                    INT        ! the message is truncated within "
       "the value, "
       "of which it has 0 of 4 bytes\n"},
      {"PartOfTheValue", "06 2c01 04 0102",
       "000004  01 02                    value  QTY                    INT        ! the message is truncated within "
       "the value, "
       "of which it has 2 of 4 bytes\n"},
      {"OddInt", "06 2c01 03 010203",
       "000004  01 02 03                 value  QTY                    INT        ! 3 bytes: invalid length for INT\n"},
      {"NoInt", "06 2c01 00",
       "000004                           value  QTY                    INT        ! 0 bytes: invalid length for INT\n"},
      {"LongDouble", "06 1600 09 000000000000f03f01", "00000c  01\n"},
      {"NoNul", "06 3c00 02 4142",
       "000004  41 42                    value  SYMBOL                 STRING     \"A\"  ! the last byte is not NUL; "
       "readers drop it\n"},
      {"EmptyString", "06 3c00 00",
       "000004                           value  SYMBOL                 STRING     \"\"  ! the terminating NUL of the "
       "string is missing\n"},
      {"UnknownInIterMap", "01 e703",
       "000001  e7 03                    id                                       999  ! not in the dictionary, so the "
       "length is unknown; receivers drop the id and resume parsing after it\n"},
      {"HalfALengthWord", "01 3c00 03",
       "000003  03                       length SYMBOL                 STRING     ! the message is truncated within "
       "the "
       "record\n"},
      {"NotCarried", "01 c800 0102", "000003  01 02                    value  SHORTY                 SHORT\n"},
      {"NoMark", "46515200",
       "000001  51 52 00                 mark                                     ! not \"QR1\"; receivers ignore "
       "these bytes\n"},
      {"HalfAMark", "4651",
       "000001  51                       mark                                     ! not \"QR1\"; receivers ignore "
       "these bytes\n"},
      {"NoType", "46515231 012c",
       "000006                           type   QTY                    INT        ! the message is truncated within "
       "the "
       "record\n"},
      {"HalfAType", "46515231 012c 00",
       "000006  00                       type   QTY                    INT        ! the message is truncated within "
       "the "
       "record\n"},
      {"HalfALength", "46515231 012c 0002 0000",
       "000008  00 00                    length QTY                    INT        ! the message is truncated within "
       "the "
       "record\n"},
      {"HugeLength", "46515231 012c 0002 ffffffff 01",
       "00000c  01                       value  QTY                    INT        ! the message is truncated within "
       "the value, "
       "of which it has 1 of 4294967295 bytes\n"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    DumpResult result;
    const std::string text = dumped(bytesOfHex(row.hex), &result);
    EXPECT_EQ(text.substr(text.rfind('\n', text.size() - 2) + 1), row.row);
    EXPECT_EQ(result.flaws, 1U);
  }
}

TEST_F(Dump, MarksOtherTypesAndRepeatedFields) {
  EXPECT_EQ(
      dumped("46515231 012c 0006 00000002 4100 012c 0102 00000004 00000005 012c 0002 00000004 00000006"),
      "000000  46                       code                                     MsgT\n"
      "000001  51 52 31                 mark                                     \"QR1\"\n"
      "000004  01 2c                    id     QTY                    INT        300\n"
      "000006  00 06                    type   QTY                    STRING     6  ! the dictionary declares INT; "
      "receivers drop this record\n"
      "000008  00 00 00 02              length QTY                    STRING     2\n"
      "00000c  41 00                    value  QTY                    STRING     \"A\"\n"
      "00000e  01 2c                    id     QTY                    INT        300\n"
      "000010  01 02                    type   QTY                    INT        2  ! the first byte is not 0; "
      "receivers ignore it\n"
      "000012  00 00 00 04              length QTY                    INT        4\n"
      "000016  00 00 00 05              value  QTY                    INT        5\n"
      "00001a  01 2c                    id     QTY                    INT        300  ! this field also occurs at byte "
      "14; readers use the last one\n"
      "00001c  00 02                    type   QTY                    INT        2\n"
      "00001e  00 00 00 04              length QTY                    INT        4\n"
      "000022  00 00 00 06              value  QTY                    INT        6\n");
}

TEST_F(Dump, HasColoursOnRequest) {
  EXPECT_EQ(dumped(bytesOfHex("06 2c"), nullptr, true),
            "\x1b[2m000000\x1b[0m  06                       code                                     mInt\n"
            "\x1b[2m000001\x1b[0m  2c                       \x1b[1mid\x1b[0m                                       "
            "\x1b[1;31m! one byte is too short for a field id; receivers drop it\x1b[0m\n");
}

TEST_F(Dump, NothingGivesNothing) { EXPECT_EQ(dumped(std::vector<std::uint8_t>()), ""); }

/// What receivers make of the bytes: whether they keep all of them and can read every field.
bool isSound(const std::vector<std::uint8_t>& bytes) {
  const QuietLibrary quiet;
  const auto message = MD::MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  if (message == nullptr || message->getSizeImpl() != bytes.size()) {
    return false;
  }
  std::vector<std::uint16_t> ids;
  message->get_field_ids(ids);
  MD::MD_Variant value;
  for (const std::uint16_t id : ids) {
    if (!message->get(id, value)) {
      return false;
    }
  }
  return ids.size() == message->fieldCount();
}

TEST_F(Dump, ShowsEachByteOnceWhateverTheyAre) {
  const std::string messages[] = {
      "06 0a000142 2c0104ffffffff 1400080000000000000080 3c0003412200 46000200ff 5a0008ffffffffffffffff",
      "01 0a0042 2c01ffffffff 14000000000000000080 3c000300412200 46000200000000ff 5a00ffffffffffffffff",
      "46515231 000a00010000000142 012c000200000004ffffffff 003c000600000003412200 0046000e0000000200ff"};
  std::size_t sound = 0;
  for (const std::string& hex : messages) {
    const std::vector<std::uint8_t> whole = bytesOfHex(hex);
    const auto check = [&](const std::vector<std::uint8_t>& bytes) {
      DumpResult result;
      const std::string text = dumped(bytes, &result);
      std::string wanted;
      appendHex(bytes.data(), bytes.size(), wanted);
      ASSERT_EQ(bytesIn(text), wanted) << text;
      // Whatever receivers do not read as it is shown has a mark; parts that they ignore may have a mark, too.
      if (!isSound(bytes)) {
        ASSERT_NE(result.flaws, 0U) << text;
      } else {
        ++sound;
      }
    };
    for (std::size_t size = 1; size <= whole.size(); ++size) {
      check({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    }
    for (std::size_t at = 0; at != whole.size(); ++at) {
      std::vector<std::uint8_t> changed = whole;
      for (int value = 0; value != 256; ++value) {
        changed[at] = static_cast<std::uint8_t>(value);
        check(changed);
      }
    }
  }
  EXPECT_GT(sound, 0U);
}

}  // namespace
