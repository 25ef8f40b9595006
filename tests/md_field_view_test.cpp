#include "md/md_field_view.h"

#include <cstdint>

#include <iomanip>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD {
namespace {

using test::Bytes;
using test::fromHex;

constexpr Field<double> BID{22};
constexpr Field<MD_Message::String> SYMBOL{60};

/// A line for each field: id, name, value or reason, number of records.
std::string describe(const MD_Message& message) {
  std::ostringstream out;
  for (const FieldView& field : message.fields()) {
    out << field.id() << ' ' << field.name() << ' ' << int{field.type()} << ' ';
    if (field.isReadable()) {
      out << field.value();
    } else {
      EXPECT_TRUE(field.value().empty());
      out << '(' << field.reason() << ')';
    }
    EXPECT_EQ(field.isReadable(), field.reason().empty());
    out << ' ' << field.recordCount() << '\n';
  }
  return out.str();
}

struct FieldsCase {
  const char* name;
  const char* bytes;
  const char* fields;
  const char* text;
};

TEST(Fields, ListWhatIsReadableAndWhyTheRestIsNot) {
  test::loadDictionary(test::kDictionary);
  const FieldsCase kCases[] = {
      {"Empty", "06", "", ""},
      {"MInt", "06 3C00 03 4142 00 2C01 01 05", "60 SYMBOL 6 AB 1\n300 QTY 2 5 1\n",
       "SYMBOL                 = AB\nQTY                    = 5\n"},
      {"MIntTruncated", "06 2C01 01 05 1600 08 00000000 0000", "300 QTY 2 5 1\n22 BID 5 (truncated: 6 of 8 bytes) 1\n",
       "QTY                    = 5\nBID                    = <truncated: 6 of 8 bytes>\n"},
      {"MIntTruncatedChar", "06 0A00 01", "10 CH 1 (truncated: 0 of 1 byte) 1\n",
       "CH                     = <truncated: 0 of 1 byte>\n"},
      {"MIntTruncatedString", "06 3C00 05 4142", "60 SYMBOL 6 (truncated: 2 of 5 bytes) 1\n",
       "SYMBOL                 = <truncated: 2 of 5 bytes>\n"},
      {"MIntTruncatedHead", "06 1600", "22 BID 5 (truncated: the message ends before the value) 1\n",
       "BID                    = <truncated: the message ends before the value>\n"},
      {"MIntLengthOfNoInt", "06 2C01 03 050505", "300 QTY 2 (invalid length for type INT: 3 bytes) 1\n",
       "QTY                    = <invalid length for type INT: 3 bytes>\n"},
      {"TypeOfNoMessage", "06 C800 02 0102", "200 SHORTY 3 (messages do not carry values of type SHORT) 1\n",
       "SHORTY                 = <messages do not carry values of type SHORT>\n"},
      {"IterMapTruncated", "01 2C01 0500", "300 QTY 2 (truncated: 2 of 4 bytes) 1\n",
       "QTY                    = <truncated: 2 of 4 bytes>\n"},
      {"MsgTTruncated", "46515231 0016 0005 00000008 000000", "22 BID 5 (truncated: 3 of 8 bytes) 1\n",
       "BID                    = <truncated: 3 of 8 bytes>\n"},
      {"MsgTHugeLength", "46515231 003C 0006 FFFFFFFF 414200", "60 SYMBOL 6 (truncated: 3 of 4294967295 bytes) 1\n",
       "SYMBOL                 = <truncated: 3 of 4294967295 bytes>\n"},
      {"Repeated", "06 2C01 01 05 3C00 02 41 00 2C01 01 06 2C01 01 07", "60 SYMBOL 6 A 1\n300 QTY 2 7 3\n",
       "SYMBOL                 = A\nQTY                    = 7 <the last of 3 records>\n"},
      {"RepeatedAndTruncated", "06 2C01 01 05 2C01 01", "300 QTY 2 (truncated: 0 of 1 byte) 2\n",
       "QTY                    = <truncated: 0 of 1 byte> <the last of 2 records>\n"},
  };
  for (const FieldsCase& row : kCases) {
    SCOPED_TRACE(row.name);
    test::CapturedErrors errors;
    const test::RecordedAssertions assertions;
    const auto message = MD_Message::createFromBytes(fromHex(row.bytes));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(describe(*message), row.fields);
    EXPECT_EQ(to_string(*message), row.text);
    std::ostringstream out;
    print(out, *message);
    EXPECT_EQ(out.str(), row.text);
    EXPECT_EQ(errors.take(), "");
    EXPECT_TRUE(assertions.entries().empty());
  }
}

TEST(Fields, SayWhatAnotherDictionaryMakesOfThem) {
  MD_FieldMap::loadText("A 1 INT  B 2 INT");
  MsgT message;
  ASSERT_TRUE(message.add(1, 5) && message.add(2, 6));
  MD_FieldMap::loadText("A 1 FLOAT  X 3 INT");
  test::CapturedErrors errors;
  EXPECT_EQ(describe(message), "1 A 4 (stored as INT, not as FLOAT) 1\n2  0 (not in the dictionary) 1\n");
  EXPECT_EQ(
      to_string(message),
      "A                      = <stored as INT, not as FLOAT>\n2                      = <not in the dictionary>\n");
  EXPECT_EQ(errors.take(), "");
}

// The first record was truncated when the second one was appended: the update overwrites the head of the second, whose
// value is listed as a record of the field.
TEST(Fields, OfOverwrittenRecordsNameWhatIsThere) {
  MD_FieldMap::loadText("A 27 INT64  B 513 INT64");
  test::CapturedErrors errors;
  MsgT message(test::fromHex("46515231 001B 0013 00000008"));
  ASSERT_TRUE(message.add(513, std::int64_t{0x0201001300000000}) &&
              message.update(27, std::int64_t{0x0201006300000008}));
  EXPECT_EQ(describe(message), "27 A 19 144397088254328840 1\n513 B 19 (stored as type 99, not as INT64) 1\n");
  ASSERT_TRUE(message.update(27, std::int64_t{0x0201000500000008}));
  EXPECT_EQ(describe(message), "27 A 19 144396684527403016 1\n513 B 19 (stored as DOUBLE, not as INT64) 1\n");
  EXPECT_EQ(errors.take(), "");
}

TEST(Fields, GiveTypedValues) {
  test::loadDictionary(test::kDictionary);
  MsgT message;
  ASSERT_TRUE(message.add(BID, 184.15) && message.add(SYMBOL, "NEB"));
  const std::vector<FieldView> fields = message.fields();
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields[0].get<double>(), 184.15);
  EXPECT_EQ(fields[0].get<float>(), std::nullopt);
  EXPECT_EQ(fields[1].get<MD_Message::String>(), "NEB");
  EXPECT_EQ(fields[1].get<double>(), std::nullopt);
  EXPECT_EQ(fields[1].value(), MD_Variant(std::string("NEB")));
}

TEST(Fields, OfEveryTypeHaveTheirValue) {
  test::loadDictionary(test::kDictionary);
  for (const ENCODINGS::Encoding& encoding : ENCODINGS::kAll) {
    for (const test::ValueType& type : test::valueTypes()) {
      SCOPED_TRACE(std::string(encoding.name) + " " + type.name);
      const auto message = MD_Message::createFromPB(encoding.code);
      ASSERT_TRUE(type.add(*message, type.field, type.lastSample()));
      ASSERT_EQ(message->fields().size(), 1u);
      MD_Variant expected;
      ASSERT_TRUE(message->get(type.field, expected));
      const MD_Variant value = message->fields()[0].value();
      EXPECT_EQ(value.type(), type.code);
      EXPECT_TRUE(value == expected || value != value);  // a not-a-number is unequal to itself
    }
  }
}

TEST(Fields, OfManyRecordsComeOnceAndInOrder) {
  test::loadDictionary(test::kDictionary);
  Bytes bytes = {6};
  const auto append = [&bytes](std::uint16_t id, std::uint8_t value) {
    bytes.insert(bytes.end(), {static_cast<std::uint8_t>(id & 255), static_cast<std::uint8_t>(id >> 8), 1, value});
  };
  for (int i = 0; i < 1000; ++i) {
    append(300, static_cast<std::uint8_t>(i & 127));
    append(10, 'x');
  }
  append(301, 9);
  append(300, 8);
  const auto message = MD_Message::createFromBytes(bytes);
  EXPECT_EQ(describe(*message), "10 CH 1 x 1000\n301 QTY2 2 9 1\n300 QTY 2 8 1001\n");
  // An erase leaves the earlier records in the bytes; they are no field.
  ASSERT_TRUE(message->erase(300));
  EXPECT_EQ(describe(*message), "10 CH 1 x 1000\n301 QTY2 2 9 1\n");
}

TEST(Text, IsEscaped) {
  MD_FieldMap::loadText("SY\x1b[31mBOL 60 STRING  CH 10 CHAR  BLOB 70 BUFFER  EMPTY 71 BUFFER");
  const auto message =
      MD_Message::createFromBytes(fromHex("06 3C00 07 1B5B324A5CFF00 0A00 01 0A 4600 02 0041 4700 00"));
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(to_string(*message),
            "SY\\x1b[31mBOL          = \\x1b[2J\\\\\\xff\n"
            "CH                     = \\x0a\n"
            "BLOB                   = \\x00A\n"
            "EMPTY                  = <BUFFER>\n");
}

TEST(Text, HasTheValuesOfVariants) {
  test::loadDictionary(test::kDictionary);
  mInt message;
  ASSERT_TRUE(message.add(BID, 0.05) && message.add(40, 1.5F) && message.add(80, MD_DateTime(20240603, 93, -300)) &&
              message.add(90, MD_EpochNS(18'446'744'073'709'551'615u)) && message.add(20, std::int64_t{-7}));
  const std::string expected =
      "BID                    = 0.05\n"
      "VOLA                   = 1.5\n"
      "WHEN                   = 20240603 93 (-300)\n"
      "RECV                   = 18446744073709551615\n"
      "SEQ                    = -7\n";
  EXPECT_EQ(to_string(message), expected);
  std::ostringstream stream;
  stream << message;
  EXPECT_EQ(stream.str(), expected);
}

TEST(Print, DependsOnNoStateOfTheStreamAndLeavesItsOwn) {
  test::loadDictionary(test::kDictionary);
  mInt message;
  ASSERT_TRUE(message.add(300, 1'000'000));
  std::ostringstream out;
  out << std::hex << std::showbase << std::setfill('*') << std::setw(60);
  const std::ios_base::fmtflags flags = out.flags();
  EXPECT_EQ(&print(out, message), &out);
  EXPECT_EQ(out.str(), "QTY                    = 1000000\n");
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
}

// A message of many short records of one id and a long last one. The text grows with the message and not with its
// square.
TEST(Text, IsLinearInTheMessage) {
  test::loadDictionary(test::kDictionary);
  std::size_t lengths[2] = {};
  for (const std::size_t records : {std::size_t{1000}, std::size_t{2000}}) {
    Bytes bytes = {70, 'Q', 'R', '1'};
    for (std::size_t i = 0; i != records; ++i) {
      const Bytes record = fromHex("003C 0006 00000001 00");
      bytes.insert(bytes.end(), record.begin(), record.end());
    }
    const Bytes last = fromHex(records == 1000 ? "003C 0006 00000401" : "003C 0006 00000801");
    bytes.insert(bytes.end(), last.begin(), last.end());
    bytes.insert(bytes.end(), records == 1000 ? 1024 : 2048, 'x');
    bytes.push_back(0);
    lengths[records / 2000] = to_string(*MD_Message::createFromBytes(bytes)).size();
  }
  const std::size_t kLabelAndMark = std::string("SYMBOL                 =  <the last of 1001 records>\n").size();
  EXPECT_EQ(lengths[0], 1024 + kLabelAndMark);
  EXPECT_EQ(lengths[1], 2048 + kLabelAndMark);
}

}  // namespace
}  // namespace MD
