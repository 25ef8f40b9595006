// Received records that the message ends within, and records whose bytes another operation has changed: an update of a
// truncated record, once something was added after it, overwrites the records that follow, and a reload makes ids
// lead to other records. The field table leads to a record; its own bytes decide from there on.
#include <cstddef>
#include <cstdint>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/golden_records.h"
#include "support/messages.h"

namespace MD::test {
namespace {

using String = MD_Message::String;
using Buffer = MD_Message::Buffer;

// Truncated records ---------------------------------------------------------------------------------------------------

constexpr const char* kIterMapGet = "IterMap Error: Attempting to GET a field of incorrect type OR overflow error";
constexpr const char* kMsgTGet = "MsgT Error: Attempting to GET a field of incorrect type!";

/// The last record of a message, and what the message reports about it.
struct TruncatedRecord {
  const char* name;
  std::uint8_t code;
  const char* record;
  std::uint16_t id;
  std::uint8_t type;
  std::size_t sizeBytes;

  std::string getReport() const {
    return code == ENCODINGS::MINT ? "" : report(code == ENCODINGS::MSGT ? kMsgTGet : kIterMapGet, id, type, sizeBytes);
  }
};

void PrintTo(const TruncatedRecord& row, std::ostream* out) { *out << row.name; }

constexpr std::uint8_t kMInt = ENCODINGS::MINT;
constexpr std::uint8_t kIterMap = ENCODINGS::ITERMAP;
constexpr std::uint8_t kMsgT = ENCODINGS::MSGT;

const TruncatedRecord kTruncatedRecords[] = {
    {"MIntStringLongerThanTheMessage", kMInt, "3C 00 04 49 42 4D", id::kString, 6, 4},
    {"MIntStringOfNoBytes", kMInt, "3C 00 04", id::kString, 6, 4},
    {"MIntStringWithoutALength", kMInt, "3C 00", id::kString, 6, 0},
    {"MIntBufferOfOneByteTooFew", kMInt, "46 00 02 61", id::kBuffer, 14, 2},
    {"MIntDoubleOfOneByte", kMInt, "16 00 08 01", id::kDouble, 5, 8},
    {"MIntDoubleWithoutALength", kMInt, "16 00", id::kDouble, 5, 0},
    {"MIntIntOfNoBytes", kMInt, "2C 01 01", id::kInt, 2, 1},
    {"MIntIntOfOneByteOfTwo", kMInt, "2C 01 02 01", id::kInt, 2, 2},
    {"MIntIntOfThreeBytes", kMInt, "2C 01 04 01 00 00", id::kInt, 2, 4},
    {"MIntDateTimeOfSevenBytes", kMInt, "50 00 08 01 02 03 04 05 06 07", id::kDateTime, 20, 8},
    {"IterMapIntOfThreeBytes", kIterMap, "2C 01 05 00 00", id::kInt, 2, 4},
    {"IterMapIntOfNoBytes", kIterMap, "2C 01", id::kInt, 2, 4},
    {"IterMapStringLongerThanTheMessage", kIterMap, "3C 00 04 00 61 62 63", id::kString, 6, 4},
    {"IterMapStringOfHalfALengthWord", kIterMap, "3C 00 04", id::kString, 6, 4},
    {"IterMapStringWithoutALengthWord", kIterMap, "3C 00", id::kString, 6, 0},
    {"IterMapBufferLongerThanTheMessage", kIterMap, "46 00 03 00 00 00 61 62", id::kBuffer, 14, 3},
    {"IterMapBufferOfAHugeLength", kIterMap, "46 00 FF FF FF FF 61", id::kBuffer, 14, 4294967295},
    {"IterMapBufferOfHalfALengthWord", kIterMap, "46 00 03 00 00", id::kBuffer, 14, 3},
    {"IterMapDateTimeOfSevenBytes", kIterMap, "50 00 01 02 03 04 05 06 07", id::kDateTime, 20, 8},
    {"MsgTIntOfThreeBytes", kMsgT, "01 2C 00 02 00 00 00 04 00 00 00", id::kInt, 2, 4},
    {"MsgTIntOfNoBytes", kMsgT, "01 2C 00 02 00 00 00 04", id::kInt, 2, 4},
    {"MsgTIntWithoutALength", kMsgT, "01 2C 00 02", id::kInt, 2, 0},
    {"MsgTIntOfHalfALength", kMsgT, "01 2C 00 02 00 00", id::kInt, 2, 0},
    {"MsgTHugeString", kMsgT, "00 3C 00 06 FF FF FF FF 41", id::kString, 6, 4294967295},
    {"MsgTBufferOfOneByteTooFew", kMsgT, "00 46 00 0E 00 00 00 02 41", id::kBuffer, 14, 2},
    {"MsgTRawWithoutAType", kMsgT, "00 C9", id::kRaw, 0, 0},
};

class TruncatedRecords : public testing::TestWithParam<TruncatedRecord> {
 protected:
  TruncatedRecords() { loadDictionary(kDictionary); }

  static std::string header() { return goldenHeader(GetParam().code); }
  /// A message of nothing but the record.
  static std::unique_ptr<MD_Message> alone() {
    return parse(GetParam().code, fromHex(header() + " " + GetParam().record));
  }

  CapturedErrors m_errors;
};

INSTANTIATE_TEST_SUITE_P(Each, TruncatedRecords, testing::ValuesIn(kTruncatedRecords),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(TruncatedRecords, AreListedButNotRead) {
  const auto message = alone();
  EXPECT_EQ(m_errors.take(), "");
  EXPECT_EQ(hexOf(*message), header() + " " + GetParam().record);
  EXPECT_EQ(idsOf(*message), Ids{GetParam().id});
  EXPECT_EQ(message->fieldCount(), 1U);
  EXPECT_TRUE(message->existsImpl(GetParam().id));
  for (const ValueType& type : valueTypes()) {
    SCOPED_TRACE(type.name);
    std::string read;
    EXPECT_FALSE(type.get(*message, GetParam().id, 0, read));
    EXPECT_EQ(read, type.raw(0));
    EXPECT_EQ(m_errors.take(), GetParam().getReport());
  }
}

TEST_P(TruncatedRecords, AreLocatedInTheMessage) {
  const auto message = alone();
  std::uint8_t type = 0;
  std::uint32_t size = 0;
  const std::uint8_t* const data = message->fieldData(GetParam().id, type, size);
  EXPECT_GT(data, message->getBinary());
  EXPECT_LE(data, message->getBinary() + message->getSizeImpl());
  EXPECT_EQ(type, GetParam().type);
  EXPECT_EQ(size, GetParam().sizeBytes);
}

TEST_P(TruncatedRecords, AreErasedUpToTheEnd) {
  const auto one = alone();
  EXPECT_TRUE(one->eraseImpl(GetParam().id));
  EXPECT_EQ(hexOf(*one), header());
  EXPECT_EQ(one->fieldCount(), 0U);
  const auto several = alone();
  EXPECT_TRUE(several->eraseArrayImpl({GetParam().id}));
  EXPECT_EQ(hexOf(*several), header());
}

TEST_P(TruncatedRecords, AreReplacedByAnUpdate) {
  for (const ValueType& type : valueTypes()) {
    if (type.field == GetParam().id) {
      for (std::size_t sample = 0; sample < type.sampleCount; ++sample) {
        SCOPED_TRACE(sample);
        const auto message = alone();
        EXPECT_TRUE(type.update(*message, type.field, sample));
        const auto fresh = MD_Message::createFromPB(GetParam().code);
        EXPECT_TRUE(type.add(*fresh, type.field, sample));
        EXPECT_EQ(hexOf(*message), hexOf(*fresh));
      }
    }
  }
  EXPECT_EQ(m_errors.take(), "");
}

TEST_P(TruncatedRecords, StayBeforeWhatIsAdded) {
  const auto message = alone();
  EXPECT_TRUE(message->add(id::kChar, 'A'));
  EXPECT_EQ(hexOf(*message), header() + " " + GetParam().record + " " + goldenRecord("Char").in(GetParam().code));
}

// The type is tested before whether there is room for the value.
TEST(TruncatedRecord, KeepsItsTypeInIterMap) {
  loadDictionary(kDictionary);
  CapturedErrors errors;
  const auto message = parse(kIterMap, fromHex("01 2C 01 05 00"));
  EXPECT_FALSE(message->update(id::kInt, 1.5F));
  EXPECT_EQ(hexOf(*message), "01 2C 01 05 00");
  EXPECT_EQ(errors.take(), report("IterMap Error: Attempting to UPDATE a field with incorrect type", id::kInt, 2, 4));
}

// Overwritten records -------------------------------------------------------------------------------------------------

/// Reads a field twice, through the base class and through the message's own, and expects the same of both.
template <class T>
bool read(const MD_Message& message, std::uint16_t id, T& out, std::string& report) {
  const T before = out;
  CapturedErrors errors;
  const bool result = message.get(id, out);
  report = errors.take();
  const auto again = [&](const auto& own) {
    T value = before;
    EXPECT_EQ(own.get(id, value), result);
    EXPECT_EQ(rawOf(value), rawOf(out));
    EXPECT_EQ(errors.take(), report);
  };
  switch (message.getPB()) {
    case ENCODINGS::MINT:
      again(static_cast<const mInt&>(message));
      break;
    case ENCODINGS::ITERMAP:
      again(static_cast<const IterMap&>(message));
      break;
    default:
      again(static_cast<const MsgT&>(message));
  }
  return result;
}

struct OverwrittenCase {
  const char* name;
  const char* dictionary;
  const char* received;
  std::function<bool(MD_Message&)> change;
  const char* changed;  ///< the bytes afterwards, as far as they matter
  std::function<void(const MD_Message&)> expect;
};

void PrintTo(const OverwrittenCase& row, std::ostream* out) { *out << row.name; }

template <class T>
void expectRead(const MD_Message& message, std::uint16_t id, const T& expected) {
  T value{};
  std::string report;
  EXPECT_TRUE(read(message, id, value, report));
  EXPECT_EQ(rawOf(value), rawOf(expected));
  EXPECT_EQ(report, "");
}

template <class T>
void expectNotRead(const MD_Message& message, std::uint16_t id, const T& sample, const std::string& expectedReport) {
  T value = sample;
  std::string report;
  EXPECT_TRUE(message.existsImpl(id));
  EXPECT_FALSE(read(message, id, value, report));
  EXPECT_EQ(rawOf(value), rawOf(sample));
  EXPECT_EQ(report, expectedReport);
}

void expectLocated(const MD_Message& message, std::uint16_t id, std::uint8_t type, std::uint32_t sizeBytes,
                   std::ptrdiff_t offset) {
  std::uint8_t foundType = 0;
  std::uint32_t foundBytes = 0;
  EXPECT_EQ(message.fieldData(id, foundType, foundBytes) - message.getBinary(), offset);
  EXPECT_EQ(foundType, type);
  EXPECT_EQ(foundBytes, sizeBytes);
}

const std::string kLongText(253, 'x');
constexpr const char* kMIntDictionary = "TEXT 6 STRING\nBLOB 256 BUFFER\nNAME 513 STRING\nBIG 65533 INT64\n";
constexpr const char* kMIntReceived = "06 00 01 00 FD FF 08";
bool mIntChange(MD_Message& message, std::int64_t value) {
  return message.add(6, kLongText) && message.update(65533, value);
}

const OverwrittenCase kOverwrittenCases[] = {
    {"MIntUnknownId", kMIntDictionary, kMIntReceived, [](MD_Message& m) { return mIntChange(m, 0); },
     "06 00 01 00 FD FF 08 00 00 00 00 00 00 00 00 78 78",
     [](const MD_Message& m) {
       expectNotRead(m, 6, String(std::string_view("before")), "");
       expectRead(m, 65533, std::int64_t{0});
       expectRead(m, 256, Buffer());
       // The type is that of the requested id, the length that of the record.
       expectLocated(m, 6, 6, 0, 10);
     }},
    {"MIntIdOfAnotherType", kMIntDictionary, kMIntReceived, [](MD_Message& m) { return mIntChange(m, 0x030100); },
     "06 00 01 00 FD FF 08 00 01 03 00 00 00 00 00 78 78",
     [](const MD_Message& m) { expectNotRead(m, 6, String(std::string_view("before")), ""); }},
    {"MIntIdOfTheSameType", kMIntDictionary, kMIntReceived, [](MD_Message& m) { return mIntChange(m, 0x4241030201); },
     "06 00 01 00 FD FF 08 01 02 03 41 42 00 00 00 78 78",
     [](const MD_Message& m) { expectRead(m, 6, String(std::string_view("AB"))); }},
    {"MIntTheSameId", kMIntDictionary, kMIntReceived, [](MD_Message& m) { return mIntChange(m, 0x41020006); },
     "06 00 01 00 FD FF 08 06 00 02 41 00 00 00 00 78 78",
     [](const MD_Message& m) { expectRead(m, 6, String(std::string_view("A"))); }},
    {"MIntTheSameIdTooLong", kMIntDictionary, kMIntReceived, [](MD_Message& m) { return mIntChange(m, 0xFF0006); },
     "06 00 01 00 FD FF 08 06 00 FF 00 00 00 00 00 78 78",
     [](const MD_Message& m) { expectNotRead(m, 6, String(std::string_view("before")), ""); }},
    {"MIntIdOfACharThatWasABuffer", "ZERO 0 CHAR\nSIZE 26 INT\nRATE 28 FLOAT\nBLOB 256 BUFFER\n",
     "06 1C 00 04 00 00 C0 7F 00 00 01 80 1A 00 04",
     [](MD_Message& m) { return m.add(256, bufferOf("x")) && m.update(26, 65536); },
     "06 1C 00 04 00 00 C0 7F 00 00 01 80 1A 00 04 00 00 01 00",
     [](const MD_Message& m) {
       expectNotRead(m, 256, bufferOf("before"), "");
       expectRead(m, 26, std::int32_t{65536});
       expectRead(m, 0, '\x80');
     }},
    {"IterMapUnknownId", kDictionary, "01 2C 01",
     [](MD_Message& m) { return m.add(id::kString, "ab") && m.update(id::kInt, 0x3E7); },
     "01 2C 01 E7 03 00 00 61 62 00",
     [](const MD_Message& m) {
       expectNotRead(m, id::kString, String(std::string_view("before")), report(kIterMapGet, id::kString, 0, 0));
       expectRead(m, id::kInt, std::int32_t{0x3E7});
       expectLocated(m, id::kString, 0, 0, 5);
     }},
    {"IterMapIdOfAnotherType", kDictionary, "01 2C 01",
     [](MD_Message& m) { return m.add(id::kString, "ab") && m.update(id::kInt, 0x10016); },
     "01 2C 01 16 00 01 00 61 62 00",
     [](const MD_Message& m) {
       expectNotRead(m, id::kString, String(std::string_view("before")), report(kIterMapGet, id::kString, 5, 8));
       expectNotRead(m, id::kString, 1.5, report(kIterMapGet, id::kString, 5, 8));
       expectLocated(m, id::kString, 5, 8, 5);
     }},
    {"IterMapIdOfTheSameType", kDictionary, "01 2C 01",
     [](MD_Message& m) { return m.add(id::kString, "ab") && m.update(id::kInt, 0x2003D); },
     "01 2C 01 3D 00 02 00 61 62 00",
     [](const MD_Message& m) {
       expectRead(m, id::kString, String(std::string_view("a")));
       expectLocated(m, id::kString, 6, 2, 7);
     }},
    {"IterMapNumberOfAnotherType", kDictionary, "01 2C 01",
     [](MD_Message& m) { return m.add(id::kChar, 'x') && m.add(id::kFloat, 1.5F) && m.update(id::kInt, 0x280A); },
     "01 2C 01 0A 28 00 00 00 00 00 C0 3F",
     [](const MD_Message& m) {
       // What was the char, 0A 00 78, has the id 10250 by now, and what was the float, 28 00, the id 0.
       expectNotRead(m, id::kChar, 'q', report(kIterMapGet, id::kChar, 0, 0));
       expectNotRead(m, id::kFloat, 2.5F, report(kIterMapGet, id::kFloat, 0, 0));
     }},
    {"MsgTType", "SEQ 27 INT64\nSEQ2 513 INT64\n", "46 51 52 31 00 1B 00 13 00 00 00 08",
     [](MD_Message& m) { return m.add(513, std::int64_t{5}) && m.update(27, std::int64_t{-2147483649}); },
     "46 51 52 31 00 1B 00 13 00 00 00 08 FF FF FF FF 7F FF FF FF 00 00 00 00 00 00 00 05",
     [](const MD_Message& m) {
       expectNotRead(m, 513, std::int64_t{7}, report(kMsgTGet, 65535, 255, 0x7FFFFFFF));
       expectNotRead(m, 513, String(std::string_view("before")), report(kMsgTGet, 65535, 255, 0x7FFFFFFF));
       expectRead(m, 27, std::int64_t{-2147483649});
       expectLocated(m, 513, 255, 0x7FFFFFFF, 20);
     }},
    // The id on the wire does not matter where the type is there, too.
    {"MsgTIdAlone", "SEQ 27 INT64\nSEQ2 513 INT64\n", "46 51 52 31 00 1B 00 13 00 00 00 08",
     [](MD_Message& m) { return m.add(513, std::int64_t{5}) && m.update(27, std::int64_t{0x1234001300000008}); },
     "46 51 52 31 00 1B 00 13 00 00 00 08 12 34 00 13 00 00 00 08 00 00 00 00 00 00 00 05",
     [](const MD_Message& m) { expectRead(m, 513, std::int64_t{5}); }},
};

class OverwrittenRecords : public testing::TestWithParam<OverwrittenCase> {};

TEST_P(OverwrittenRecords, AreReadByTheirOwnBytes) {
  loadDictionary(GetParam().dictionary);
  const Bytes bytes = fromHex(GetParam().received);
  const auto message = parse(bytes[0], bytes);
  CapturedErrors errors;
  ASSERT_TRUE(GetParam().change(*message));
  EXPECT_EQ(errors.take(), "");
  const std::string changed = GetParam().changed;
  EXPECT_EQ(hexOf(*message).substr(0, changed.size()), changed);
  GetParam().expect(*message);
}

INSTANTIATE_TEST_SUITE_P(Each, OverwrittenRecords, testing::ValuesIn(kOverwrittenCases),
                         [](const auto& row) { return std::string(row.param.name); });

// What an update tests is in the record as well.
TEST(OverwrittenRecord, IsUpdatedByItsOwnBytesInIterMap) {
  loadDictionary(kDictionary);
  CapturedErrors errors;
  const auto message = parse(ENCODINGS::ITERMAP, fromHex("01 2C 01"));
  ASSERT_TRUE(message->add(id::kString, "ab") && message->add(id::kDouble2, 1.25) &&
              message->update(id::kInt, 0x10016));
  // The string's record is a double of eight bytes by now: refused at the same length, replaced at another.
  EXPECT_FALSE(message->update(id::kString, "1234567"));
  EXPECT_EQ(errors.take(),
            report("IterMap Error: Attempting to UPDATE a field with incorrect type", id::kString, 5, 8));
  EXPECT_TRUE(message->update(id::kString, "abc"));
  // Its ten bytes took the head of the next record along.
  EXPECT_EQ(hexOf(*message), "01 2C 01 3C 00 04 00 61 62 63 00");
}

TEST(OverwrittenRecord, IsErasedByItsOwnBytesInIterMap) {
  loadDictionary(kDictionary);
  const auto damaged = [] {
    auto message = parse(ENCODINGS::ITERMAP, fromHex("01 2C 01"));
    EXPECT_TRUE(message->add(id::kString, "abcdefgh") && message->update(id::kInt, 0x10016));
    EXPECT_EQ(hexOf(*message), "01 2C 01 16 00 01 00 61 62 63 64 65 66 67 68 00");
    return message;
  };
  // Ten bytes from the string's position, then what is left is indexed: 67 68 is no known id, nor is the last byte.
  CapturedErrors errors;
  const auto one = damaged();
  EXPECT_TRUE(one->eraseImpl(id::kString));
  EXPECT_EQ(hexOf(*one), "01 2C 01");
  const auto several = damaged();
  EXPECT_TRUE(several->eraseArrayImpl({id::kString}));
  EXPECT_EQ(hexOf(*several), "01 2C 01");
}

struct ReloadCase {
  std::uint8_t code;
  std::string reportOfInt;  ///< of a get of the field 1 as an INT, whose place holds a STRING by now
};

// The rows change places, so that each id leads to the record of the other.
TEST(ReloadedDictionary, LeavesRecordsToTheirOwnIds) {
  const ReloadCase cases[] = {
      {ENCODINGS::MINT, ""},
      {ENCODINGS::ITERMAP, report(kIterMapGet, 1, 6, 4)},
      {ENCODINGS::MSGT, report(kMsgTGet, 2, 6, 4)},
  };
  for (const ReloadCase& row : cases) {
    SCOPED_TRACE(static_cast<int>(row.code));
    loadDictionary("SIZE 1 INT\nTEXT 2 STRING\nSIZE2 3 INT\n");
    const auto message = MD_Message::createFromPB(row.code);
    ASSERT_TRUE(message->add(1, 70000) && message->add(2, "IBM") && message->add(3, 70003));
    loadDictionary("TEXT 2 STRING\nSIZE 1 INT\nSIZE2 3 INT\n");
    expectNotRead(*message, 1, std::int32_t{7}, row.reportOfInt);
    expectRead(*message, 2, std::int32_t{70000});
    expectRead(*message, 1, String(std::string_view("IBM")));
    expectRead(*message, 3, std::int32_t{70003});
    loadDictionary("SIZE 1 INT\nTEXT 2 STRING\nSIZE2 3 DOUBLE\n");
    expectRead(*message, 1, std::int32_t{70000});
  }
}

}  // namespace
}  // namespace MD::test
