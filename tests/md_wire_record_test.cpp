#include "md/md_wire_record.h"

#include <cstdint>

#include <string>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "md/md_record_range.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD::test {
namespace {

const char* nameOf(WireRecord::Kind kind) {
  constexpr const char* kNames[] = {"field", "unknown", "other type", "lone byte"};
  return kNames[static_cast<std::size_t>(kind)];
}

const char* nameOf(WireRecord::Value value) {
  constexpr const char* kNames[] = {"readable", "truncated", "wrong size", "too long", "not carried"};
  return kNames[static_cast<std::size_t>(value)];
}

/// The records as text: "300 INT 1: head 3 (type 0), value 1 to 5: field, readable".
std::string textOf(const Bytes& bytes) {
  const HeapBlock block(bytes);
  std::string text;
  forEachWireRecord(block.data(), block.size(), MD_FieldMap::instance(), [&](const WireRecord& record) {
    text += (text.empty() ? "" : "; ") + std::to_string(record.id) + " at " + std::to_string(record.position) + ": " +
            std::to_string(record.headBytes) + "/" + std::to_string(record.typeBytes) + "+" +
            std::to_string(record.valueBytes) + " to " + std::to_string(record.endPosition) + ", type " +
            std::to_string(record.type) + ", " + nameOf(record.kind) + ", " + nameOf(record.value);
  });
  return text;
}

/// The records by the form of the walk that reports readable fields apart, or by the other one, as the same text.
std::string kindsOf(const HeapBlock& block, bool isSplit) {
  std::string text;
  const auto addReadable = [&](FIELDS::packed_rec field, std::uint16_t id) {
    text += "readable " + std::to_string(id) + " slot " + std::to_string(field.slot) + "; ";
  };
  const auto add = [&](const WireRecord& record) {
    if (!isSplit && record.kind == WireRecord::Kind::Field && record.value == WireRecord::Value::Readable) {
      addReadable(record.field, record.id);
      return;
    }
    text += std::to_string(record.id) + " at " + std::to_string(record.position) + " to " +
            std::to_string(record.endPosition) + ' ' + nameOf(record.kind) + ' ' + nameOf(record.value) + "; ";
  };
  if (isSplit) {
    forEachWireRecord(block.data(), block.size(), MD_FieldMap::instance(), addReadable, add);
  } else {
    forEachWireRecord(block.data(), block.size(), MD_FieldMap::instance(), add);
  }
  return text;
}

struct WireCase {
  const char* name;
  const char* bytes;
  const char* records;
};

constexpr WireCase kWireCases[] = {
    {"MInt", "06 2C 01 01 05 3C 00 03 41 42 00",
     "300 at 1: 3/0+1 to 5, type 2, field, readable; 60 at 5: 3/0+3 to 11, type 6, field, readable"},
    {"IterMap", "01 2C 01 05 00 00 00", "300 at 1: 2/0+4 to 7, type 2, field, readable"},
    {"MsgT", "46 51 52 31 01 2C 00 02 00 00 00 04 00 00 00 05", "300 at 4: 8/2+4 to 16, type 2, field, readable"},
    {"UnknownField", "06 0F 27 02 01 02", "9999 at 1: 3/0+2 to 6, type 0, unknown, not carried"},
    {"UnknownFieldWithAType", "46 51 52 31 27 0F 00 02 00 00 00 03 01 02 03",
     "9999 at 4: 8/2+3 to 15, type 2, unknown, wrong size"},
    {"UnknownFieldOfIterMap", "01 0F 27 2C 01 05 00 00 00",
     "9999 at 1: 2/0+0 to 3, type 0, unknown, not carried; 300 at 3: 2/0+4 to 9, type 2, field, readable"},
    {"OtherType", "46 51 52 31 01 2C 00 06 00 00 00 02 41 00", "300 at 4: 8/2+2 to 14, type 6, other type, readable"},
    {"ShortIntegers", "06 2C 01 02 05 05 2C 01 04 05 05 05 05",
     "300 at 1: 3/0+2 to 6, type 2, field, readable; 300 at 6: 3/0+4 to 13, type 2, field, readable"},
    {"NoInteger", "06 2C 01 03 05 05 05", "300 at 1: 3/0+3 to 7, type 2, field, wrong size"},
    {"NoShortIntegerElsewhere", "46 51 52 31 01 2C 00 02 00 00 00 02 00 05",
     "300 at 4: 8/2+2 to 14, type 2, field, wrong size"},
    {"NoDouble", "06 16 00 04 01 02 03 04", "22 at 1: 3/0+4 to 8, type 5, field, wrong size"},
    {"EmptyString", "06 3C 00 00", "60 at 1: 3/0+0 to 4, type 6, field, readable"},
    {"TruncatedValue", "06 16 00 08 01", "22 at 1: 3/0+8 to 5, type 5, field, truncated"},
    {"TruncatedHead", "06 16 00", "22 at 1: 3/0+0 to 3, type 5, field, truncated"},
    {"LoneByte", "06 16", "22 at 1: 0/0+0 to 2, type 0, lone byte, truncated"},
    {"TheHeaderAlone", "06", ""},
    {"ATruncatedHeader", "46 51", ""},
    {"NoEncoding", "07 2C 01 01 05", ""},
    {"NoBytes", "", ""},
};

class WireRecordsOf : public testing::TestWithParam<WireCase> {};

INSTANTIATE_TEST_SUITE_P(WireRecord, WireRecordsOf, testing::ValuesIn(kWireCases),
                         [](const auto& row) { return row.param.name; });

TEST_P(WireRecordsOf, HaveWhatMessagesKeepAndDrop) {
  loadDictionary(kDictionary);
  EXPECT_EQ(textOf(fromHex(GetParam().bytes)), GetParam().records);
}

TEST(WireRecord, ALengthBeyondWhatAReadReturnsIsTooLong) {
  loadDictionary(kDictionary);
  Bytes buffer = fromHex("46 51 52 31 00 46 00 0E 00 01 00 00");
  buffer.resize(buffer.size() + 65536);
  EXPECT_EQ(textOf(buffer), "70 at 4: 8/2+65536 to 65548, type 14, field, too long");
  // A string has its NUL besides.
  Bytes text = fromHex("46 51 52 31 00 3C 00 06 00 01 00 00");
  text.resize(text.size() + 65536);
  EXPECT_EQ(textOf(text), "60 at 4: 8/2+65536 to 65548, type 6, field, readable");
  text[10] = 0x00;
  text[11] = 0x01;
  text.push_back(0);
  EXPECT_EQ(textOf(text), "60 at 4: 8/2+65537 to 65549, type 6, field, too long");
}

TEST(WireRecord, FieldsAreTheRecordsOfARange) {
  loadDictionary(kDictionary);
  std::uint32_t random = 1;
  for (int round = 0; round != 20000; ++round) {
    Bytes bytes(random % 40);
    for (std::uint8_t& byte : bytes) {
      random = random * 1664525 + 1013904223;
      constexpr std::uint8_t kLikely[] = {0x2c, 0x01, 0x3c, 0x00, 0x02, 0x16, 0x08, 0x46};
      byte = (random >> 31) != 0 ? kLikely[random >> 24 & 7] : static_cast<std::uint8_t>(random >> 16);
    }
    random = random * 1664525 + 1013904223;
    if (!bytes.empty()) {
      constexpr std::uint8_t kCodes[] = {ENCODINGS::ITERMAP, ENCODINGS::MINT, ENCODINGS::MSGT};
      bytes[0] = kCodes[(random >> 16) % 3];
    }
    const HeapBlock block(bytes);
    ASSERT_EQ(kindsOf(block, true), kindsOf(block, false));
    const RecordRange range(block.data(), block.size());
    auto expected = range.begin();
    std::uint64_t next = 0;
    forEachWireRecord(block.data(), block.size(), MD_FieldMap::instance(), [&](const WireRecord& record) {
      EXPECT_TRUE(next == 0 || record.position == next);
      next = record.endPosition;
      if (record.kind != WireRecord::Kind::Field) {
        return;
      }
      ASSERT_NE(expected, range.end());
      EXPECT_EQ(expected->id, record.id);
      EXPECT_EQ(expected->type, record.type);
      EXPECT_EQ(expected->isTruncated, record.value == WireRecord::Value::Truncated);
      ++expected;
    });
    ASSERT_EQ(expected, range.end());
    ASSERT_TRUE(next == 0 || next == block.size());
  }
}

TEST_P(WireRecordsOf, AreTheSameWithReadableFieldsApart) {
  loadDictionary(kDictionary);
  const HeapBlock block(fromHex(GetParam().bytes));
  EXPECT_EQ(kindsOf(block, true), kindsOf(block, false));
}

// An integer, an unknown field, a string, a value of another type or length, another integer, and a truncated string.
TEST(WireRecord, ReadableFieldsApartKeepTheWireOrder) {
  loadDictionary(kDictionary);
  const auto split = [](const char* bytes) { return kindsOf(HeapBlock(fromHex(bytes)), true); };
  const auto slot = [](std::uint16_t id) {
    return " slot " + std::to_string(MD_FieldMap::instance().packed(id).slot) + "; ";
  };
  const std::string integer = "readable 300" + slot(300);
  const std::string text = "readable 60" + slot(60);
  EXPECT_EQ(split("06  2C 01 01 05  0F 27 01 00  3C 00 02 41 00  16 00 04 00 00 00 00  2C 01 01 07  3C 00 09 41"),
            integer + "9999 at 5 to 9 unknown not carried; " + text + "22 at 14 to 21 field wrong size; " + integer +
                "60 at 25 to 29 field truncated; ");
  EXPECT_EQ(split("01  2C 01 05 00 00 00  0F 27  3C 00 02 00 41 00  2C 01 07 00 00 00  3C 00 09 00 41"),
            integer + "9999 at 7 to 9 unknown not carried; " + text + integer + "60 at 21 to 26 field truncated; ");
  EXPECT_EQ(split("46 51 52 31  01 2C 00 02 00 00 00 04 00 00 00 05  27 0F 00 00 00 00 00 00"
                  "  00 3C 00 06 00 00 00 02 41 00  00 16 00 05 00 00 00 02 00 00  01 2C 00 06 00 00 00 02 42 00"
                  "  01 2C 00 02 00 00 00 04 00 00 00 07  00 3C 00 06 00 00 00 09 41"),
            integer + "9999 at 16 to 24 unknown not carried; " + text +
                "22 at 34 to 44 field wrong size; 300 at 44 to 54 other type readable; " + integer +
                "60 at 66 to 75 field truncated; ");
}

// The last record is an empty string, which ends where its head does.
TEST(WireRecord, AReadableFieldAtTheEndIsReportedApart) {
  loadDictionary(kDictionary);
  const std::string text = "readable 60 slot " + std::to_string(MD_FieldMap::instance().packed(60).slot) + "; ";
  EXPECT_EQ(kindsOf(HeapBlock(fromHex("06  3C 00 00")), true), text);
  EXPECT_EQ(kindsOf(HeapBlock(fromHex("01  3C 00 00 00")), true), text);
  EXPECT_EQ(kindsOf(HeapBlock(fromHex("46 51 52 31  00 3C 00 06 00 00 00 00")), true), text);
}

TEST(WireRecord, FixedSizesAreThoseOfValuesThatMessagesCarry) {
  constexpr struct {
    std::uint8_t type;
    std::uint32_t sizeBytes;
  } kSizes[] = {
      {DATATYPES::CHAR, 1},
      {DATATYPES::INT, 4},
      {DATATYPES::INT64, 8},
      {DATATYPES::FLOAT, 4},
      {DATATYPES::DOUBLE, 8},
      {DATATYPES::DATETIME, 8},
      {DATATYPES::EPOCH_NSEC, 8},
      {DATATYPES::STRING, 0},
      {DATATYPES::BUFFER, 0},
      {DATATYPES::DATE, 0},
      {DATATYPES::FRACTION, 0},
      {15, 0},
      {23, 0},
      {255, 0},
  };
  for (const auto& row : kSizes) {
    EXPECT_EQ(fixedValueBytes(row.type), row.sizeBytes) << int{row.type};
  }
}

TEST(WireRecord, HeadersAreThoseOfEmptyMessages) {
  EXPECT_EQ(encodingHeader(ENCODINGS::MINT), "\x06");
  EXPECT_EQ(encodingHeader(ENCODINGS::ITERMAP), "\x01");
  EXPECT_EQ(encodingHeader(ENCODINGS::MSGT), "FQR1");
  EXPECT_EQ(encodingHeader(7), "");
}

}  // namespace
}  // namespace MD::test
