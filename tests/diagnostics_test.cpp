// What messages write to standard error, to the letter.
#include <cstdint>

#include <functional>
#include <iostream>
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
#include "support/encodings.h"
#include "support/fresh_process.h"
#include "support/grouping_locale.h"
#include "support/messages.h"
#include "support/recorded_reports.h"

namespace MD::test {
namespace {

using namespace std::string_literals;

constexpr std::uint8_t kMInt = ENCODINGS::MINT;
constexpr std::uint8_t kIterMap = ENCODINGS::ITERMAP;
constexpr std::uint8_t kMsgT = ENCODINGS::MSGT;

struct OperationCase {
  const char* name;
  std::uint8_t code;
  bool (*operation)(MD_Message&);
  std::string text;
};

// Operations on a message of kInt = 70000 and kString = "abc". Field types are raw bytes, NUL included.
const OperationCase kOperationCases[] = {
    {"MIntAddOfAnUnknownId", kMInt, [](MD_Message& m) { return m.add(id::kUnknown, 5); },
     "mInt Error: Attempting to ADD a field with incorrect id!\n"
     "  Field id:   999\n  Field type: \x02\n  Field size: 1\n"},
    {"MIntAddOfAnIdBeyondTheLargest", kMInt, [](MD_Message& m) { return m.add(id::kBeyond, 300); },
     "mInt Error: Attempting to ADD a field with incorrect id!\n"
     "  Field id:   50000\n  Field type: \x02\n  Field size: 2\n"},
    {"MIntAddOfAnotherType", kMInt, [](MD_Message& m) { return m.add(id::kDouble, -1); },
     "mInt Error: Attempting to ADD a field with incorrect id!\n"
     "  Field id:   22\n  Field type: \x02\n  Field size: 4\n"},
    {"MIntUpdateOfAnotherType", kMInt, [](MD_Message& m) { return m.update(id::kInt, "abcde"); },
     "mInt Error: Attempting to ADD a field with incorrect id!\n"
     "  Field id:   300\n  Field type: \x06\n  Field size: 6\n"},
    {"MIntAddOfTooLongAString", kMInt, [](MD_Message& m) { return m.add(id::kString2, std::string(255, 'x')); },
     "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n"},
    {"MIntUpdateWithTooLongABuffer", kMInt,
     [](MD_Message& m) { return m.update(id::kBuffer, bufferOf(std::string(1000, 'x'))); },
     "mInt Error: Attempting to ADD field of length 1000 which is > max length 255\n"},
    {"IterMapAddOfAnUnknownId", kIterMap, [](MD_Message& m) { return m.add(id::kUnknown, 5); },
     "IterMap Error: Attempting to ADD a field with incorrect id or type\n"
     "  Field id:   999\n  Field type: \x02\n  Field size: 4\n"},
    {"IterMapAddOfAnotherType", kIterMap, [](MD_Message& m) { return m.add(id::kDouble, "IBM"); },
     "IterMap Error: Attempting to ADD a field with incorrect id or type\n"
     "  Field id:   22\n  Field type: \x06\n  Field size: 4\n"},
    {"IterMapUpdateOfAnotherType", kIterMap, [](MD_Message& m) { return m.update(id::kString, 1.5f); },
     "IterMap Error: Attempting to UPDATE a field with incorrect type\n"
     "  Field id:   60\n  Field type: \x06\n  Field size: 4\n"},
    {"IterMapUpdateOfAnotherTypeAndWidth", kIterMap, [](MD_Message& m) { return m.update(id::kString, 1.5); },
     "IterMap Error: Attempting to ADD a field with incorrect id or type\n"
     "  Field id:   60\n  Field type: \x05\n  Field size: 8\n"},
    {"IterMapGetOfAnotherType", kIterMap,
     [](MD_Message& m) {
       double value = 0;
       return m.get(id::kInt, value);
     },
     "IterMap Error: Attempting to GET a field of incorrect type OR overflow error\n"
     "  Field id:   300\n  Field type: \x02\n  Field size: 4\n"},
    {"IterMapGetOfAStringAsAnInt", kIterMap,
     [](MD_Message& m) {
       int value = 0;
       return m.get(id::kString, value);
     },
     "IterMap Error: Attempting to GET a field of incorrect type OR overflow error\n"
     "  Field id:   60\n  Field type: \x06\n  Field size: 4\n"},
    {"MsgTAddOfAnUnknownId", kMsgT, [](MD_Message& m) { return m.add(id::kUnknown, 'x'); },
     "MsgT Error: Attempting to ADD a field with incorrect id or type!\n"
     "  Field id:   999\n  Field type: \x01\n  Field size: 1\n"},
    {"MsgTAddOfAnotherType", kMsgT, [](MD_Message& m) { return m.add(id::kDouble, MD_EpochNS(1)); },
     "MsgT Error: Attempting to ADD a field with incorrect id or type!\n"
     "  Field id:   22\n  Field type: \x16\n  Field size: 8\n"},
    {"MsgTUpdateOfAnotherType", kMsgT, [](MD_Message& m) { return m.update(id::kInt, MD_DateTime()); },
     "MsgT Error: Attempting to UPDATE a field with an incorrect type!\n"
     "  Field id:   300\n  Field type: \x02\n  Field size: 8\n"},
    {"MsgTGetOfAnotherType", kMsgT,
     [](MD_Message& m) {
       std::string text;
       return m.getString(id::kInt, text);
     },
     "MsgT Error: Attempting to GET a field of incorrect type!\n"
     "  Field id:   300\n  Field type: \x02\n  Field size: 4\n"},
};

class OperationErrors : public testing::TestWithParam<OperationCase> {};

TEST_P(OperationErrors, AreReportedToTheLetter) {
  loadDictionary(kDictionary);
  const auto message = MD_Message::createFromPB(GetParam().code);
  message->add(id::kInt, 70000);
  message->add(id::kString, "abc");
  CapturedErrors errors;
  EXPECT_FALSE(GetParam().operation(*message));
  EXPECT_EQ(errors.take(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Each, OperationErrors, testing::ValuesIn(kOperationCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(AddErrors, NameTheTypeAndTheLengthThatTheValueWouldHave) {
  loadDictionary(kDictionary);
  const struct {
    const char* type;
    std::size_t sizeBytes;
    std::size_t sizeInMInt;
  } sizes[] = {{"Char", 1, 1},   {"Int", 4, 1},    {"Int64", 8, 8},    {"Float", 4, 4},  {"Double", 8, 8},
               {"String", 4, 4}, {"Buffer", 3, 3}, {"DateTime", 8, 8}, {"EpochNS", 8, 8}};
  ASSERT_EQ(std::size(sizes), valueTypes().size());
  mInt compact;
  IterMap wide;
  MsgT described;
  CapturedErrors errors;
  for (std::size_t i = 0; i < std::size(sizes); ++i) {
    const ValueType& type = valueTypes()[i];
    SCOPED_TRACE(type.name);
    ASSERT_EQ(std::string(type.name), sizes[i].type);
    type.add(compact, id::kShort, 0);
    EXPECT_EQ(errors.take(), report("mInt Error: Attempting to ADD a field with incorrect id!", id::kShort, type.code,
                                    sizes[i].sizeInMInt));
    type.add(wide, id::kShort, 0);
    EXPECT_EQ(errors.take(), report("IterMap Error: Attempting to ADD a field with incorrect id or type", id::kShort,
                                    type.code, sizes[i].sizeBytes));
    type.add(described, id::kShort, 0);
    EXPECT_EQ(errors.take(), report("MsgT Error: Attempting to ADD a field with incorrect id or type!", id::kShort,
                                    type.code, sizes[i].sizeBytes));
  }
}

TEST(SilentFailures, WriteNothing) {
  loadDictionary(kDictionary);
  CapturedErrors errors;
  for (const std::uint8_t code : {kMInt, kIterMap, kMsgT}) {
    const auto message = MD_Message::createFromPB(code);
    message->add(id::kInt, 5);
    int value = 0;
    EXPECT_FALSE(message->add(id::kInt, 6));
    EXPECT_FALSE(message->add(id::kInt, "abc"));
    EXPECT_FALSE(message->get(id::kInt2, value));
    EXPECT_FALSE(message->get(id::kUnknown, value));
    EXPECT_FALSE(message->eraseImpl(id::kInt2));
    EXPECT_FALSE(message->eraseArrayImpl({id::kInt2, id::kUnknown}));
    EXPECT_FALSE(message->setBinaryImpl(nullptr, 4));
    EXPECT_EQ(errors.take(), "");
  }
}

// A dictionary that knows types beyond the printable ones, read by a fresh process whose counters are at zero.
struct BadFieldCase {
  const char* name;
  std::uint8_t code;
  const char* bytes;
  std::string text;
};

const BadFieldCase kBadFieldCases[] = {
    {"NoneInMInt", kMInt, "06 2C 01 01 05", ""},
    {"UnknownIdInMInt", kMInt, "06 2C 01 01 05 E7 03 03 AA BB CC 0A 00 01 41",
     "Error: Bad Field on wire!  Skipping!\n"
     "  Field id:   999\n  Field type: \0\n  Field size: 3\n"
     "Remainder of message after stripping fields:\n"
     "  QTY                    = 5\n"
     "CH                     = A\n"
     "\n"s},
    {"NothingLeftInMInt", kMInt, "06 E7 03 00",
     badField(999, 0, 0) + "Remainder of message after stripping fields:\n  \n"},
    {"LengthBeyondTheEndInMInt", kMInt, "06 E7 03 FF 01", badField(999, 0, 255) + remainder("")},
    {"NoLengthInMInt", kMInt, "06 E7 03", badField(999, 0, 0) + remainder("")},
    {"OneByteTailInMInt", kMInt, "06 2C 01 01 05 E7", badField(0xE7, 0, 0) + remainder("QTY                    = 5\n")},
    {"ZeroByteTailInMInt", kMInt, "06 00", badField(0, 0, 0) + remainder("")},
    {"SeveralInMInt", kMInt, "06 E7 03 01 AA 50 C3 00 2C 01 01 05 E7",
     badField(999, 0, 1) + badField(50000, 0, 0) + badField(0xE7, 0, 0) + remainder("QTY                    = 5\n")},
    {"UnreadableFieldsLeftInMInt", kMInt, "06 E7 03 00 C8 00 01 AA 0A 00 01 41 3C 00 09 42",
     badField(999, 0, 0) + remainder("SHORTY                 = <VARIANT>\n"
                                     "CH                     = A\n"
                                     "SYMBOL                 = <VARIANT>\n")},
    {"UnknownIdInIterMap", kIterMap, "01 2C 01 05 00 00 00 E7 03 0A 00 41",
     "Error: Bad Field on wire!  Skipping!\n"
     "  Field id:   999\n  Field type: \0\n  Field size: 0\n"
     "Remainder of message after stripping fields:\n"
     "  QTY                    = 5\n"
     "CH                     = A\n"
     "\n"s},
    {"TwoBytesAtATimeInIterMap", kIterMap, "01 E7 03 AA BB CC DD 0A 00 41",
     badField(999, 0, 0) + badField(0xBBAA, 0, 0) + badField(0xDDCC, 0, 0) + remainder("CH                     = A\n")},
    {"OneByteTailInIterMap", kIterMap, "01 0A 00 41 2C",
     badField(0x2C, 0, 0) + remainder("CH                     = A\n")},
    {"UnreadableFieldLeftInIterMap", kIterMap, "01 E7 03 3C 00 09 00 42",
     badField(999, 0, 0) +
         report("IterMap Error: Attempting to GET a field of incorrect type OR overflow error", 60, 6, 9) +
         remainder("SYMBOL                 = <VARIANT>\n")},
    {"UnknownIdInMsgT", kMsgT, "46 51 52 31 03 E7 00 05 00 00 00 02 AA BB 00 0A 00 01 00 00 00 01 41",
     "Error: Bad Field on wire!  Skipping!\n"
     "  Field id:   999\n  Field type: \x05\n  Field size: 2\n"
     "Remainder of message after stripping fields:\n"
     "  CH                     = A\n"
     "\n"},
    {"AnotherTypeInMsgT", kMsgT, "46 51 52 31 01 2C 00 0A 00 00 00 00 00 0A 00 01 00 00 00 01 41",
     "Error: Bad Field on wire!  Skipping!\n"
     "  Field id:   300\n  Field type: \n\n  Field size: 0\n"
     "Remainder of message after stripping fields:\n"
     "  CH                     = A\n"
     "\n"},
    {"HugeLengthInMsgT", kMsgT, "46 51 52 31 03 E7 FF 41 FF FF FF FF 01",
     badField(999, 'A', 4294967295) + remainder("")},
    {"NoTypeInMsgT", kMsgT, "46 51 52 31 01 2C", badField(300, 0, 0) + remainder("")},
    {"OneByteTailInMsgT", kMsgT, "46 51 52 31 00 0A 00 01 00 00 00 01 41 9C",
     badField(0x9C, 0, 0) + remainder("CH                     = A\n")},
    {"UnreadableFieldLeftInMsgT", kMsgT, "46 51 52 31 03 E7 00 05 00 00 00 00 00 3C 00 06 00 00 00 09 42",
     badField(999, 5, 0) + report("MsgT Error: Attempting to GET a field of incorrect type!", 60, 6, 9) +
         remainder("SYMBOL                 = <VARIANT>\n")},
};

// The reports are counted once a process, so each case has a process of its own.
class BadFieldDeathTest : public testing::TestWithParam<BadFieldCase> {
 protected:
  static void parseAndCompare() {
    loadDictionary(kDictionary);
    const RecordedAssertions assertions;
    CapturedErrors errors;
    parse(GetParam().code, fromHex(GetParam().bytes));
    EXPECT_EQ(errors.take(), GetParam().text);
    EXPECT_EQ(assertions.entries(), std::vector<std::string>());
  }
  static void parseForAHandlerAndCompare() {
    loadDictionary(kDictionary);
    CapturedErrors errors;
    const RecordedReports reports;
    parse(GetParam().code, fromHex(GetParam().bytes));
    std::string text;
    for (const std::string& report : RecordedReports::take()) {
      text += report;
    }
    EXPECT_EQ(text, GetParam().text);
    EXPECT_EQ(errors.take(), "");
  }
  static void makeAndCompare() {
    loadDictionary(kDictionary);
    const Bytes bytes = fromHex(GetParam().bytes);
    CapturedErrors errors;
    MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    EXPECT_EQ(errors.take(), GetParam().text);
  }
};

TEST_P(BadFieldDeathTest, IsReportedToTheLetterByParsing) { expectInFreshProcess(&parseAndCompare); }

TEST_P(BadFieldDeathTest, IsReportedToTheLetterByTheFactory) { expectInFreshProcess(&makeAndCompare); }

TEST_P(BadFieldDeathTest, IsReportedToTheLetterToAHandler) { expectInFreshProcess(&parseForAHandlerAndCompare); }

INSTANTIATE_TEST_SUITE_P(Each, BadFieldDeathTest, testing::ValuesIn(kBadFieldCases),
                         [](const auto& row) { return std::string(row.param.name); });

// A message of `count` fields that no dictionary contains, each without a value, after kChar = 'A'.
Bytes withBadFields(std::uint8_t code, int count) {
  auto message = MD_Message::createFromPB(code);
  message->add(id::kChar, 'A');
  Bytes bytes = bytesOf(*message);
  const Bytes record = unknownRecord(code);
  for (int i = 0; i < count; ++i) {
    bytes.insert(bytes.end(), record.begin(), record.end());
  }
  return bytes;
}

std::string badFields(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += badField(999, 0, 0);
  }
  return text;
}

const std::string kRemainderOfOneField = remainder("CH                     = A\n");

struct LimitCase {
  const char* name;
  std::vector<int> messages;  // bad fields of one message after the other
  std::vector<int> reports;
  std::vector<bool> remainders;
};

const LimitCase kLimitCases[] = {
    {"HundredAreReportedWithTheRemainder", {100}, {100}, {true}},
    {"HundredAndOneAreReportedWithoutIt", {101}, {101}, {false}},
    {"NoMoreThanHundredAndOneAreReported", {150}, {101}, {false}},
    {"TheCountGoesOnFromMessageToMessage", {60, 40, 1, 1, 5}, {60, 40, 1, 0, 0}, {true, true, false, false, false}},
    {"TheLastReportMayBeOneOfMany", {100, 3}, {100, 1}, {true, false}},
};

struct LimitParam {
  std::uint8_t code;
  const LimitCase* row;
};

class ReportLimitDeathTest : public testing::TestWithParam<LimitParam> {
 protected:
  static void parseAndCompare() {
    loadDictionary(kDictionary);
    const LimitCase& row = *GetParam().row;
    for (std::size_t i = 0; i < row.messages.size(); ++i) {
      SCOPED_TRACE(i);
      const Bytes bytes = withBadFields(GetParam().code, row.messages[i]);
      CapturedErrors errors;
      const auto message = parse(GetParam().code, bytes);
      EXPECT_EQ(errors.take(), badFields(row.reports[i]) + (row.remainders[i] ? kRemainderOfOneField : ""));
      // What is no longer reported is still stripped.
      EXPECT_EQ(hexOf(*message), toHex(withBadFields(GetParam().code, 0)));
    }
  }
};

TEST_P(ReportLimitDeathTest, HoldsForTheProcess) { expectInFreshProcess(&parseAndCompare); }

std::vector<LimitParam> limitParams() {
  std::vector<LimitParam> params;
  for (const std::uint8_t code : {kMInt, kIterMap, kMsgT}) {
    for (const LimitCase& row : kLimitCases) {
      params.push_back({code, &row});
    }
  }
  return params;
}

INSTANTIATE_TEST_SUITE_P(Each, ReportLimitDeathTest, testing::ValuesIn(limitParams()), [](const auto& row) {
  return std::string(row.param.row->name) + "Of" + std::to_string(row.param.code);
});

class ReportsDeathTest : public testing::Test {};

TEST_F(ReportsDeathTest, AreCountedForEachEncodingByItself) {
  expectInFreshProcess([] {
    loadDictionary(kDictionary);
    CapturedErrors errors;
    for (const std::uint8_t code : {kMInt, kIterMap, kMsgT}) {
      SCOPED_TRACE(code);
      parse(code, withBadFields(code, 101));
      EXPECT_EQ(errors.take(), badFields(101));
    }
    for (const std::uint8_t code : {kMInt, kIterMap, kMsgT}) {
      SCOPED_TRACE(code);
      parse(code, withBadFields(code, 1));
      EXPECT_EQ(errors.take(), "");
    }
  });
}

// Other diagnostics are not limited and not counted.
TEST_F(ReportsDeathTest, OfOperationsHaveNoLimit) {
  expectInFreshProcess([] {
    loadDictionary(kDictionary);
    IterMap message;
    CapturedErrors errors;
    const std::string expected =
        report("IterMap Error: Attempting to ADD a field with incorrect id or type", id::kUnknown, 2, 4);
    for (int i = 0; i < 300; ++i) {
      message.add(id::kUnknown, 5);
      ASSERT_EQ(errors.take(), expected);
    }
    parse(kIterMap, withBadFields(kIterMap, 1));
    EXPECT_EQ(errors.take(), badFields(1) + kRemainderOfOneField);
  });
}

// A field that the dictionary loses while a message holds it is found when an erase re-indexes the records after it.
TEST_F(ReportsDeathTest, ComeOfErasingToo) {
  expectInFreshProcess([] {
    for (const std::uint8_t code : {kMInt, kIterMap, kMsgT}) {
      SCOPED_TRACE(code);
      loadDictionary("A 10 CHAR\nB 11 CHAR\nC 999 CHAR\n");
      const auto message = MD_Message::createFromPB(code);
      message->add(10, 'a');
      message->add(999, 'c');
      message->add(11, 'b');
      loadDictionary("A 10 CHAR\nB 11 CHAR\n");
      CapturedErrors errors;
      EXPECT_TRUE(message->eraseImpl(10));
      const std::string printed = remainder("B                      = b\n");
      switch (code) {
        case kMInt:
          EXPECT_EQ(errors.take(), badField(999, 0, 1) + printed);
          break;
        case kMsgT:
          EXPECT_EQ(errors.take(), badField(999, 1, 1) + printed);
          break;
        default:
          // The value's byte and the next id's first make an id, the rest of that and its value another.
          EXPECT_EQ(errors.take(),
                    badField(999, 0, 0) + badField(0x0B63, 0, 0) + badField(0x6200, 0, 0) + remainder(""));
      }
    }
  });
}

// What received bytes repeat prints its last value each time: a short message could make a report of any length.
TEST_F(ReportsDeathTest, OfWhatIsLeftAreNoLongerThanTheMessageAllows) {
  expectInFreshProcess([] {
    constexpr int kRepetitions = 1000;
    loadDictionary(kDictionary);
    for (const std::uint8_t code : {kMInt, kIterMap, kMsgT}) {
      SCOPED_TRACE(code);
      const std::string value(code == kMInt ? 254 : 2000, 'x');
      const auto empty = MD_Message::createFromPB(code);
      const Bytes header = bytesOf(*empty);
      Bytes bytes = withBadFields(code, 1);
      empty->add(id::kString, "");
      for (int i = 0; i < kRepetitions; ++i) {
        bytes.insert(bytes.end(), empty->getBinary() + header.size(), empty->getBinary() + empty->getSizeImpl());
      }
      const auto last = MD_Message::createFromPB(code);
      last->add(id::kString, value);
      bytes.insert(bytes.end(), last->getBinary() + header.size(), last->getBinary() + last->getSizeImpl());

      std::string printed = "CH                     = A\n";
      for (int i = 0; i <= kRepetitions; ++i) {
        printed += "SYMBOL                 = " + value + "\n";
      }
      CapturedErrors errors;
      const auto message = parse(code, bytes);
      const std::size_t limit = 65536 + 64 * std::size_t{message->getSizeImpl()};
      EXPECT_EQ(errors.take(), badFields(1) + remainder(printed.substr(0, limit)));
      EXPECT_EQ(printed.size() > limit, code != kMInt);
    }
  });
}

// As the message prints to standard error, whose locale is the classic one.
TEST_F(ReportsDeathTest, DoNotFollowTheGlobalLocale) {
  expectInFreshProcess([] {
    loadDictionary(kDictionary);
    const GroupingGlobalLocale global;
    CapturedErrors errors;
    parse(kMInt, fromHex("06 FF FF 00 2C 01 04 87 D6 12 00"));
    EXPECT_EQ(errors.take(), badField(65535, 0, 0) + remainder("QTY                    = 1234567\n"));
  });
}

// To the process's standard error itself, in the child and unchanged by any stream of the test.
TEST_F(ReportsDeathTest, GoToStandardError) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        loadDictionary(kDictionary);
        parse(kMsgT, fromHex("46 51 52 31 03 E7 00 41 00 00 00 00 00 0A 00 01 00 00 00 01 41"));
        std::_Exit(0);
      },
      testing::ExitedWithCode(0),
      testing::Eq("Error: Bad Field on wire!  Skipping!\n"
                  "  Field id:   999\n  Field type: A\n  Field size: 0\n"
                  "Remainder of message after stripping fields:\n"
                  "  CH                     = A\n"
                  "\n"s));
}

// Each report reaches the stream's buffer in one piece, so that reports of two threads do not mix.
class PieceCounter : public std::streambuf {
 public:
  std::vector<std::string> pieces;

 protected:
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    pieces.emplace_back(text, static_cast<std::size_t>(count));
    return count;
  }
  int_type overflow(int_type c) override {
    pieces.emplace_back(1, traits_type::to_char_type(c));
    return c;
  }
};

TEST_F(ReportsDeathTest, AreWrittenInOnePieceEach) {
  expectInFreshProcess([] {
    loadDictionary(kDictionary);
    PieceCounter counter;
    std::streambuf* const previous = std::cerr.rdbuf(&counter);
    IterMap message;
    message.add(id::kUnknown, 5);
    parse(kMInt, fromHex("06 E7 03 00 0A 00 01 41"));
    mInt().add(id::kString, std::string(300, 'x'));
    std::cerr.rdbuf(previous);
    EXPECT_EQ(counter.pieces,
              (std::vector<std::string>{
                  report("IterMap Error: Attempting to ADD a field with incorrect id or type", id::kUnknown, 2, 4),
                  badField(999, 0, 0), kRemainderOfOneField,
                  "mInt Error: Attempting to ADD field of length 301 which is > max length 255\n"}));
  });
}

}  // namespace
}  // namespace MD::test
