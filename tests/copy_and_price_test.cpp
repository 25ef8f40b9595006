// Copies between messages, prices read from whole, numerator and denominator, and prices in print-outs.
#include <cmath>
#include <cstdint>

#include <iomanip>
#include <ios>
#include <limits>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "md/md_price_output.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/fresh_buffer.h"
#include "support/messages.h"

namespace MD {
namespace {

using test::Bytes;
using test::CapturedErrors;
using test::Ids;
using test::RecordedAssertions;
namespace id = test::id;
using Report = std::vector<std::string>;

struct Encoding {
  const char* name;
  std::uint8_t code;
  /// CH 'x', QTY 5, SEQ -2, VOLA 1.5, BID 1.25, SYMBOL "AB", BLOB 00 FF 80, WHEN 20240115 93000000 (-300), RECV
  /// 1700000000123456789
  const char* allTypesHex;

  friend std::ostream& operator<<(std::ostream& out, const Encoding& encoding) { return out << encoding.name; }
};

constexpr Encoding kEncodings[] = {
    {"IterMap", 1,
     "01 "
     "0A 00 78 "
     "2C 01 05 00 00 00 "
     "14 00 FE FF FF FF FF FF FF FF "
     "28 00 00 00 C0 3F "
     "16 00 00 00 00 00 00 00 F4 3F "
     "3C 00 03 00 41 42 00 "
     "46 00 03 00 00 00 00 FF 80 "
     "50 00 40 11 8B F5 82 8F DA FF "
     "5A 00 15 CD 85 3D FE 9C 97 17"},
    {"MInt", 6,
     "06 "
     "0A 00 01 78 "
     "2C 01 01 05 "
     "14 00 08 FE FF FF FF FF FF FF FF "
     "28 00 04 00 00 C0 3F "
     "16 00 08 00 00 00 00 00 00 F4 3F "
     "3C 00 03 41 42 00 "
     "46 00 03 00 FF 80 "
     "50 00 08 40 11 8B F5 82 8F DA FF "
     "5A 00 08 15 CD 85 3D FE 9C 97 17"},
    {"MsgT", 70,
     "46 51 52 31 "
     "00 0A 00 01 00 00 00 01 78 "
     "01 2C 00 02 00 00 00 04 00 00 00 05 "
     "00 14 00 13 00 00 00 08 FF FF FF FF FF FF FF FE "
     "00 28 00 04 00 00 00 04 3F C0 00 00 "
     "00 16 00 05 00 00 00 08 3F F4 00 00 00 00 00 00 "
     "00 3C 00 06 00 00 00 03 41 42 00 "
     "00 46 00 0E 00 00 00 03 00 FF 80 "
     "00 50 00 14 00 00 00 08 40 11 8B F5 82 8F DA FF "
     "00 5A 00 16 00 00 00 08 15 CD 85 3D FE 9C 97 17"},
};

const Ids kAllTypes = {id::kChar,   id::kInt,    id::kInt64,    id::kFloat,  id::kDouble,
                       id::kString, id::kBuffer, id::kDateTime, id::kEpochNS};

std::unique_ptr<MD_Message> emptyOf(const Encoding& encoding) { return MD_Message::createFromPB(encoding.code); }

std::unique_ptr<MD_Message> fromBytes(const Bytes& bytes) {
  const test::HeapBlock block(bytes);
  return MD_Message::createFromBytes(block.data(), block.size());
}

std::unique_ptr<MD_Message> allTypesOf(const Encoding& encoding) {
  return fromBytes(test::fromHex(encoding.allTypesHex));
}

/// The header of an empty message and records behind it.
std::unique_ptr<MD_Message> ofRecords(const Encoding& encoding, const std::string& recordsHex) {
  Bytes bytes = test::bytesOf(*emptyOf(encoding));
  const Bytes records = test::fromHex(recordsHex);
  bytes.insert(bytes.end(), records.begin(), records.end());
  return fromBytes(bytes);
}

/// The one of three texts that is meant for the encoding.
const char* ofEncoding(const Encoding& encoding, const char* iterMap, const char* mInt, const char* msgT) {
  return encoding.code == 1 ? iterMap : encoding.code == 6 ? mInt : msgT;
}

std::int32_t intOf(const MD_Message& message, std::uint16_t field) {
  std::int32_t value = -999;
  EXPECT_TRUE(message.get(field, value)) << field;
  return value;
}

std::string textOf(const MD_Message& message, std::uint16_t field) {
  std::string value = "(none)";
  EXPECT_TRUE(message.get(field, value)) << field;
  return value;
}

std::string nameOf(const testing::TestParamInfo<Encoding>& info) { return info.param.name; }

// copyMsg ----------------------------------------------------------------------------------------------------------

class CopyBetween : public testing::TestWithParam<std::tuple<Encoding, Encoding>> {
 protected:
  void SetUp() override { test::loadDictionary(test::kDictionary); }

  const Encoding& from() const { return std::get<0>(GetParam()); }
  const Encoding& to() const { return std::get<1>(GetParam()); }

  CapturedErrors m_errors;
  RecordedAssertions m_assertions;
};

INSTANTIATE_TEST_SUITE_P(Encodings, CopyBetween,
                         testing::Combine(testing::ValuesIn(kEncodings), testing::ValuesIn(kEncodings)),
                         [](const auto& param) {
                           return std::string(std::get<0>(param.param).name) + "To" + std::get<1>(param.param).name;
                         });

TEST_P(CopyBetween, EveryTypeArrives) {
  const auto source = allTypesOf(from());
  const auto copy = emptyOf(to());
  copy->copyMsg(*source);
  EXPECT_EQ(test::toHex(test::bytesOf(*copy)), to().allTypesHex);
  EXPECT_EQ(copy->fieldCount(), 9U);
  EXPECT_EQ(test::hexOf(*source), from().allTypesHex);
  EXPECT_EQ(source->fieldCount(), 9U);
  EXPECT_EQ(m_errors.take(), "");
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopyBetween, EveryValueOfEveryTypeArrives) {
  test::forEachValueType([&](auto sample, const char* name) {
    using T = decltype(sample);
    const std::uint16_t field = test::fieldOf<T>();
    for (const T& value : test::samplesOf<T>()) {
      SCOPED_TRACE(std::string(name) + " " + testing::PrintToString(test::rawOf(value)));
      const auto source = emptyOf(from());
      ASSERT_TRUE(source->add(field, value));
      const auto copy = emptyOf(to());
      copy->copyMsg(*source);
      T copied{};
      EXPECT_TRUE(copy->get(field, copied));
      EXPECT_EQ(test::rawOf(copied), test::rawOf(value));
      EXPECT_EQ(test::idsOf(*copy), Ids{field});
    }
  });
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopyBetween, TheCopyOwnsItsValues) {
  auto source = allTypesOf(from());
  const auto copy = emptyOf(to());
  copy->copyMsg(*source);
  source->clearImpl();
  source->add(id::kString, "overwritten, and a good deal longer");
  source.reset();
  EXPECT_EQ(test::hexOf(*copy), to().allTypesHex);
}

TEST_P(CopyBetween, SharedFieldsTakeTheValueAndOthersStay) {
  const auto source = allTypesOf(from());
  const auto copy = emptyOf(to());
  ASSERT_TRUE(copy->add(id::kInt2, 9));
  ASSERT_TRUE(copy->add(id::kInt, 7));
  ASSERT_TRUE(copy->add(id::kString, "LONGER"));
  ASSERT_TRUE(copy->add(id::kChar, 'y'));
  copy->copyMsg(*source);
  // A resized string moves to the end; in an mInt a short integer does so, too.
  const Ids expected = to().code == 6 ? Ids{id::kInt2,   id::kChar,   id::kInt,    id::kInt64,    id::kFloat,
                                            id::kDouble, id::kString, id::kBuffer, id::kDateTime, id::kEpochNS}
                                      : Ids{id::kInt2,   id::kInt,    id::kChar,   id::kInt64,    id::kFloat,
                                            id::kDouble, id::kString, id::kBuffer, id::kDateTime, id::kEpochNS};
  EXPECT_EQ(test::idsOf(*copy), expected);
  EXPECT_EQ(copy->fieldCount(), 10U);
  EXPECT_EQ(intOf(*copy, id::kInt2), 9);
  EXPECT_EQ(intOf(*copy, id::kInt), 5);
  EXPECT_EQ(textOf(*copy, id::kString), "AB");
  char character = 0;
  EXPECT_TRUE(copy->get(id::kChar, character));
  EXPECT_EQ(character, 'x');
  EXPECT_EQ(m_errors.take(), "");
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopyBetween, AnEmptyMessageChangesNothing) {
  const auto source = emptyOf(from());
  const auto copy = allTypesOf(to());
  copy->copyMsg(*source);
  EXPECT_EQ(test::hexOf(*copy), to().allTypesHex);
  const auto empty = emptyOf(to());
  empty->copyMsg(*source);
  EXPECT_TRUE(empty->emptyImpl());
}

// A buffer without a byte to spare is the one that would move.
TEST_P(CopyBetween, AnEmptyMessageLeavesViewsGood) {
  const auto source = emptyOf(from());
  const test::FreshNextBuffer fresh;
  const auto copy = emptyOf(to());
  ASSERT_TRUE(copy->add(id::kString, std::string(254, 'x')));
  ASSERT_TRUE(copy->add(id::kString2, std::string(254, 'x')));
  ASSERT_TRUE(copy->add(id::kBuffer, test::bufferOf(std::string(255, 'x'))));
  for (std::string rest; copy->getSizeImpl() != 1024; rest += 'x') {
    ASSERT_LT(copy->getSizeImpl(), 1024U);
    ASSERT_TRUE(copy->update(id::kBuffer2, test::bufferOf(rest)));
  }
  const std::uint8_t* const before = copy->getBinary();
  copy->copyMsg(*source);
  EXPECT_EQ(copy->getBinary(), before);
}

TEST_P(CopyBetween, ARepeatedFieldArrivesOnceWithItsLaterValue) {
  const auto source = ofRecords(
      from(), ofEncoding(from(), "2C 01 01 00 00 00 0A 00 78 2C 01 02 00 00 00", "2C 01 01 01 0A 00 01 78 2C 01 01 02",
                         "01 2C 00 02 00 00 00 04 00 00 00 01 00 0A 00 01 00 00 00 01 78 "
                         "01 2C 00 02 00 00 00 04 00 00 00 02"));
  ASSERT_EQ(test::idsOf(*source), (Ids{id::kInt, id::kChar, id::kInt}));
  const auto copy = emptyOf(to());
  copy->copyMsg(*source);
  EXPECT_EQ(copy->fieldCount(), 2U);
  EXPECT_EQ(test::idsOf(*copy), to().code == 6 ? (Ids{id::kChar, id::kInt}) : (Ids{id::kInt, id::kChar}));
  EXPECT_EQ(intOf(*copy, id::kInt), 2);
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

/// The assertion of a failed copy, as it is recorded.
std::string copyAssertion(unsigned line) { return "md_message/src/md_message:" + std::to_string(line) + ": b == true"; }

struct CopyLines {
  std::uint16_t field;
  const char* typeName;
  unsigned readLine;
  unsigned storeLine;
};

constexpr CopyLines kCopyLines[] = {
    {id::kChar, "Char", 300, 303},     {id::kInt, "Int", 310, 313},           {id::kInt64, "Int64", 320, 323},
    {id::kFloat, "Float", 330, 333},   {id::kDouble, "Double", 340, 343},     {id::kString, "String", 350, 353},
    {id::kBuffer, "Buffer", 360, 363}, {id::kDateTime, "DateTime", 370, 373}, {id::kEpochNS, "EpochNS", 380, 383},
};

// A message cut off in the value of its last field: that field is present and cannot be read.
TEST_P(CopyBetween, AValueThatCannotBeReadIsAssertedAgainst) {
  for (const CopyLines& row : kCopyLines) {
    SCOPED_TRACE(row.typeName);
    const auto whole = allTypesOf(from());
    const auto source = emptyOf(from());
    source->add(id::kInt2, 8);
    MD_Variant value;
    ASSERT_TRUE(whole->get(row.field, value));
    ASSERT_TRUE(source->add(row.field, value));
    Bytes bytes = test::bytesOf(*source);
    bytes.pop_back();
    const auto truncated = fromBytes(bytes);
    ASSERT_TRUE(truncated->existsImpl(row.field));

    const auto copy = emptyOf(to());
    RecordedAssertions::entries().clear();
    copy->copyMsg(*truncated);
    EXPECT_EQ(RecordedAssertions::entries(), Report{copyAssertion(row.readLine)});
    EXPECT_EQ(test::idsOf(*copy), Ids{id::kInt2});
  }
}

// The later of two records of a field counts; cut off, it makes both attempts fail, and what lies between goes on.
TEST_P(CopyBetween, GoesOnBehindAValueThatCannotBeRead) {
  const auto source = ofRecords(
      from(), ofEncoding(from(), "2C 01 01 00 00 00 0A 00 78 2C 01 02 00 00", "2C 01 01 01 0A 00 01 78 2C 01 04 02",
                         "01 2C 00 02 00 00 00 04 00 00 00 01 00 0A 00 01 00 00 00 01 78 "
                         "01 2C 00 02 00 00 00 04 00 00 00"));
  ASSERT_EQ(test::idsOf(*source), (Ids{id::kInt, id::kChar, id::kInt}));
  const auto copy = emptyOf(to());
  copy->copyMsg(*source);
  EXPECT_EQ(RecordedAssertions::entries(), (Report{copyAssertion(310), copyAssertion(310)}));
  EXPECT_EQ(test::idsOf(*copy), Ids{id::kChar});
}

TEST_P(CopyBetween, AFieldOfNoValueTypeIsAssertedAgainstAndTheRestGoesOn) {
  struct Row {
    const char* name;
    std::uint16_t field;
    const char* records[3];  ///< IterMap, mInt, MsgT; each with CH 'x' behind
  };
  constexpr Row kRows[] = {
      {"SHORT",
       id::kShort,
       {"C8 00 01 02 0A 00 78", "C8 00 02 01 02 0A 00 01 78",
        "00 C8 00 03 00 00 00 02 01 02 00 0A 00 01 00 00 00 01 78"}},
      {"RAW",
       id::kRaw,
       {"C9 00 0A 00 78", "C9 00 02 01 02 0A 00 01 78", "00 C9 00 00 00 00 00 02 01 02 00 0A 00 01 00 00 00 01 78"}},
      {"FRACTION",
       id::kFraction,
       {"CA 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0A 00 78",
        "CA 00 0C 01 02 03 04 05 06 07 08 09 0A 0B 0C 0A 00 01 78",
        "00 CA 00 0B 00 00 00 0C 01 02 03 04 05 06 07 08 09 0A 0B 0C 00 0A 00 01 00 00 00 01 78"}},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const auto source = ofRecords(from(), ofEncoding(from(), row.records[0], row.records[1], row.records[2]));
    ASSERT_EQ(test::idsOf(*source), (Ids{row.field, id::kChar}));
    const auto copy = emptyOf(to());
    RecordedAssertions::entries().clear();
    copy->copyMsg(*source);
    EXPECT_EQ(RecordedAssertions::entries(), Report{"md_message/src/md_message:389: 0"});
    EXPECT_EQ(test::idsOf(*copy), Ids{id::kChar});
  }
  EXPECT_EQ(m_errors.take(), "");
}

class Copy : public testing::TestWithParam<Encoding> {
 protected:
  void SetUp() override { test::loadDictionary(test::kDictionary); }
};

INSTANTIATE_TEST_SUITE_P(Encodings, Copy, testing::ValuesIn(kEncodings), nameOf);

/// From the encodings that hold more than an mInt.
class CopyOfLongValues : public Copy {};

INSTANTIATE_TEST_SUITE_P(Encodings, CopyOfLongValues, testing::Values(kEncodings[0], kEncodings[2]), nameOf);

TEST_P(Copy, OfAMessageIntoItselfKeepsItsValues) {
  RecordedAssertions assertions;
  CapturedErrors errors;
  const auto message = allTypesOf(GetParam());
  message->copyMsg(*message);
  if (GetParam().code == 6) {
    // Each field is updated with its own value, which moves a short integer to the end.
    EXPECT_EQ(test::hexOf(*message),
              "06 "
              "0A 00 01 78 "
              "14 00 08 FE FF FF FF FF FF FF FF "
              "28 00 04 00 00 C0 3F "
              "16 00 08 00 00 00 00 00 00 F4 3F "
              "3C 00 03 41 42 00 "
              "46 00 03 00 FF 80 "
              "50 00 08 40 11 8B F5 82 8F DA FF "
              "5A 00 08 15 CD 85 3D FE 9C 97 17 "
              "2C 01 01 05");
  } else {
    EXPECT_EQ(test::hexOf(*message), GetParam().allTypesHex);
  }
  EXPECT_EQ(message->fieldCount(), 9U);
  EXPECT_EQ(intOf(*message, id::kInt), 5);
  EXPECT_EQ(errors.take(), "");
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

// What an mInt has no room for, and what a destination leaves of a field that it held.
TEST_P(CopyOfLongValues, AValueTooLongForAnMIntIsAssertedAgainst) {
  const std::string longText(300, 'x');
  const std::string longBytes(256, 'y');
  const auto source = emptyOf(GetParam());
  ASSERT_TRUE(source->add(id::kString, longText));
  ASSERT_TRUE(source->add(id::kBuffer, test::bufferOf(longBytes)));
  ASSERT_TRUE(source->add(id::kInt, 5));

  RecordedAssertions assertions;
  CapturedErrors errors;
  const auto copy = MD_Message::createFromPB(6);
  copy->copyMsg(*source);
  EXPECT_EQ(RecordedAssertions::entries(), (Report{copyAssertion(353), copyAssertion(363)}));
  // One line of the add, one of the update.
  EXPECT_EQ(errors.take(),
            "mInt Error: Attempting to ADD field of length 301 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 301 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n");
  EXPECT_EQ(test::hexOf(*copy), "06 2C 01 01 05");

  RecordedAssertions::entries().clear();
  const auto holding = MD_Message::createFromPB(6);
  ASSERT_TRUE(holding->add(id::kString, "OLD"));
  holding->copyMsg(*source);
  EXPECT_EQ(RecordedAssertions::entries(), (Report{copyAssertion(353), copyAssertion(363)}));
  EXPECT_EQ(errors.take(),
            "mInt Error: Attempting to ADD field of length 301 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n");
  EXPECT_EQ(test::hexOf(*holding), "06 2C 01 01 05");
}

TEST_P(CopyOfLongValues, TheLongestValuesGoWhereTheyFit) {
  const std::string longText(65535, 'x');
  const std::string longBytes(65535, 'y');
  const auto source = emptyOf(GetParam());
  ASSERT_TRUE(source->add(id::kBuffer, test::bufferOf(longBytes)));
  ASSERT_TRUE(source->add(id::kString2, std::string(65534, 'z')));
  RecordedAssertions assertions;
  for (const std::uint8_t code : {std::uint8_t{1}, std::uint8_t{70}}) {
    SCOPED_TRACE(int{code});
    const auto copy = MD_Message::createFromPB(code);
    copy->copyMsg(*source);
    MD_Message::Buffer buffer;
    ASSERT_TRUE(copy->get(id::kBuffer, buffer));
    EXPECT_EQ(test::rawOf(buffer), longBytes);
    EXPECT_EQ(textOf(*copy, id::kString2), std::string(65534, 'z'));
  }
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

// A handler that throws ends the copy; what came before it stays.
TEST_P(CopyOfLongValues, AThrowingHandlerEndsTheCopy) {
  const auto source = emptyOf(GetParam());
  ASSERT_TRUE(source->add(id::kInt, 5));
  ASSERT_TRUE(source->add(id::kString, std::string(255, 'x')));
  ASSERT_TRUE(source->add(id::kChar, 'x'));
  const auto copy = MD_Message::createFromPB(6);
  CapturedErrors errors;
  const AssertionHandler previous = set_assertion_handler(
      [](const char* expression, const char*, unsigned) { throw std::runtime_error(expression); });
  EXPECT_THROW(copy->copyMsg(*source), std::runtime_error);
  set_assertion_handler(previous);
  EXPECT_EQ(test::hexOf(*copy), "06 2C 01 01 05");
}

#ifdef __GLIBC__  // whose report the expectation spells out
TEST(CopyDeathTest, TheProcessStopsByDefault) {
  test::loadDictionary(test::kDictionary);
  const auto source = MD_Message::createFromPB(70);
  ASSERT_TRUE(source->add(id::kString, std::string(255, 'x')));
  const auto copy = MD_Message::createFromPB(6);
  EXPECT_DEATH(copy->copyMsg(*source), "md_message/src/md_message:353: .*Assertion `b == true' failed");
}
#endif

/// A message of no encoding, all of whose fields answer alike: it shows what is asked of a message, and in which order.
class ScriptedMessage final : public MD_Message {
 public:
  explicit ScriptedMessage(std::vector<std::string>& calls) : m_calls(calls) {}

  Ids m_ids;
  bool m_isReadable = true;
  bool m_takesAdds = false;
  bool m_takesUpdates = false;

  std::uint8_t getPB() const override { return 0; }
  const std::uint8_t* fieldData(std::uint16_t, std::uint8_t&, std::uint32_t&) const override { return nullptr; }
  std::unique_ptr<MD_Message> createEmpty() const override { return nullptr; }
  std::unique_ptr<MD_Message> clone() const override { return nullptr; }
  std::unique_ptr<MD_Message> moveToNew() override { return nullptr; }
  bool eraseArrayImpl(const std::vector<std::uint16_t>&) override { return called("eraseArray", 0, false); }
  bool eraseSetImpl(const std::set<std::uint16_t>&) override { return called("eraseSet", 0, false); }
  bool eraseImpl(std::uint16_t field) override { return called("erase", field, false); }
  void clearImpl() override { called("clear", 0, false); }
  bool emptyImpl() const override { return m_ids.empty(); }
  bool existsImpl(std::uint16_t field) const override { return called("exists", field, false); }
  const std::uint8_t* getBinary() const override { return nullptr; }
  bool setBinaryImpl(const std::uint8_t*, std::uint32_t) override { return called("setBinary", 0, false); }
  std::uint32_t getSizeImpl() const override { return 0; }
  void getFieldIdsImpl(Ids& out) const override {
    called("ids", 0, true);
    out.insert(out.end(), m_ids.begin(), m_ids.end());
  }

 protected:
#define MD_SLOT(T, name, code) \
  bool getImpl(std::uint16_t field, T&) const override { return called("get " #name, field, m_isReadable); }
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
#define MD_SLOT(T, name, code) \
  bool addImpl(std::uint16_t field, T) override { return called("add " #name, field, m_takesAdds); }
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
#define MD_SLOT(T, name, code) \
  bool updateImpl(std::uint16_t field, T) override { return called("update " #name, field, m_takesUpdates); }
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT

 private:
  bool called(const char* slot, std::uint16_t field, bool result) const {
    m_calls.push_back(slot + (field != 0 ? " " + std::to_string(field) : std::string()));
    return result;
  }

  std::vector<std::string>& m_calls;
};

class CopySlots : public testing::TestWithParam<CopyLines> {
 protected:
  void SetUp() override {
    test::loadDictionary(test::kDictionary);
    m_source.m_ids = {GetParam().field};
  }

  std::string call(const char* operation) const {
    return std::string(operation) + " " + GetParam().typeName + " " + std::to_string(GetParam().field);
  }

  std::vector<std::string> m_calls;
  ScriptedMessage m_source{m_calls};
  ScriptedMessage m_copy{m_calls};
  RecordedAssertions m_assertions;
};

INSTANTIATE_TEST_SUITE_P(Types, CopySlots, testing::ValuesIn(kCopyLines),
                         [](const auto& param) { return std::string(param.param.typeName); });

TEST_P(CopySlots, ReadsAndAdds) {
  m_copy.m_takesAdds = true;
  m_copy.copyMsg(m_source);
  EXPECT_EQ(m_calls, (std::vector<std::string>{"ids", call("get"), call("add")}));
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopySlots, UpdatesWhatCannotBeAdded) {
  m_copy.m_takesUpdates = true;
  m_copy.copyMsg(m_source);
  EXPECT_EQ(m_calls, (std::vector<std::string>{"ids", call("get"), call("add"), call("update")}));
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopySlots, AssertsThatAValueIsStored) {
  m_source.m_ids.push_back(GetParam().field);
  m_copy.copyMsg(m_source);
  EXPECT_EQ(m_calls, (std::vector<std::string>{"ids", call("get"), call("add"), call("update"), call("get"),
                                               call("add"), call("update")}));
  EXPECT_EQ(RecordedAssertions::entries(),
            (Report{copyAssertion(GetParam().storeLine), copyAssertion(GetParam().storeLine)}));
}

TEST_P(CopySlots, AssertsThatAValueIsRead) {
  m_source.m_isReadable = false;
  m_source.m_ids.push_back(GetParam().field);
  m_copy.copyMsg(m_source);
  EXPECT_EQ(m_calls[0], "ids");
  EXPECT_EQ(m_calls[1], call("get"));
  EXPECT_EQ(RecordedAssertions::entries(),
            (Report{copyAssertion(GetParam().readLine), copyAssertion(GetParam().readLine)}));
}

TEST(CopyOfNoValueType, FieldsThatTheDictionaryDoesNotKnowAreAssertedAgainst) {
  test::loadDictionary(test::kDictionary);
  std::vector<std::string> calls;
  ScriptedMessage source(calls);
  ScriptedMessage copy(calls);
  copy.m_takesAdds = true;
  source.m_ids = {id::kUnknown, id::kBeyond, 65535, 0, id::kInt};
  const RecordedAssertions assertions;
  copy.copyMsg(source);
  const std::string zero = "md_message/src/md_message:389: 0";
  EXPECT_EQ(RecordedAssertions::entries(), (Report{zero, zero, zero, zero}));
  EXPECT_EQ(calls, (std::vector<std::string>{"ids", "get Int 300", "add Int 300"}));
}

TEST(CopyOfNoValueType, NoFieldOfADictionaryTypeWithoutValuesIsCopied) {
  // Every type name whose code is not among the nine.
  test::loadDictionary(
      "A 1 RAW B 2 SHORT C 3 VECTOR D 4 MSG_T E 5 DATE F 6 TIME G 7 FRACTION H 8 CHILD_MSG I 9 FOLDED_INT "
      "J 10 UINT K 11 LONG_INT L 12 ULONG_INT");
  std::vector<std::string> calls;
  ScriptedMessage source(calls);
  ScriptedMessage copy(calls);
  source.m_ids = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  const RecordedAssertions assertions;
  copy.copyMsg(source);
  EXPECT_EQ(RecordedAssertions::entries(), Report(12, "md_message/src/md_message:389: 0"));
  EXPECT_EQ(calls, std::vector<std::string>{"ids"});
}

TEST(CopyOfOptiPrice, IsACopyOfAnInt) {
  test::loadDictionary(test::kDictionary);
  std::vector<std::string> calls;
  ScriptedMessage source(calls);
  ScriptedMessage copy(calls);
  copy.m_takesAdds = true;
  source.m_ids = {id::kOptiPrice};
  copy.copyMsg(source);
  EXPECT_EQ(calls, (std::vector<std::string>{"ids", "get Int 100", "add Int 100"}));
}

// getWND -----------------------------------------------------------------------------------------------------------

class ReadPrice : public testing::TestWithParam<Encoding> {
 protected:
  static constexpr std::uint16_t kWhole = 1, kNum = 2, kDenom = 3;

  void SetUp() override {
    test::loadDictionary(
        "PX_WHOLE 1 INT PX_NUM 2 INT PX_DENOM 3 OPTI_PRICE DBL 4 DOUBLE TEXT 5 STRING LONG 6 INT64 TEXT2 7 STRING");
  }
};

INSTANTIATE_TEST_SUITE_P(Encodings, ReadPrice, testing::ValuesIn(kEncodings), nameOf);

constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kIntMin = std::numeric_limits<std::int32_t>::min();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST_P(ReadPrice, IsWholeAndNumeratorByDenominator) {
  struct Row {
    const char* name;
    std::vector<std::pair<std::uint16_t, std::int32_t>> fields;
    double price;
  };
  const Row kRows[] = {
      {"AllThree", {{kWhole, 12}, {kNum, 5}, {kDenom, 8}}, 12.625},
      {"NoDenominator", {{kWhole, 12}, {kNum, 5}}, 12.05},
      {"NumeratorOnly", {{kNum, 5}}, 0.05},
      {"WholeOnly", {{kWhole, 12}}, 12.0},
      {"DenominatorOnly", {{kDenom, 8}}, 0.0},
      {"WholeAndDenominator", {{kWhole, 12}, {kDenom, 8}}, 12.0},
      {"NumeratorAndDenominator", {{kNum, 5}, {kDenom, 8}}, 0.625},
      {"AllZeroButTheDenominator", {{kWhole, 0}, {kNum, 0}, {kDenom, 1}}, 0.0},
      {"NegativeWhole", {{kWhole, -12}, {kNum, 5}, {kDenom, 8}}, -11.375},
      {"NegativeNumerator", {{kWhole, 12}, {kNum, -5}, {kDenom, 8}}, 11.375},
      {"NegativeDenominator", {{kWhole, 12}, {kNum, 5}, {kDenom, -8}}, 11.375},
      {"NumeratorAboveTheDenominator", {{kWhole, 1}, {kNum, 250}, {kDenom, 100}}, 3.5},
      {"ZeroDenominator", {{kWhole, 12}, {kNum, 5}, {kDenom, 0}}, kInfinity},
      {"ZeroDenominatorNegativeNumerator", {{kWhole, 12}, {kNum, -5}, {kDenom, 0}}, -kInfinity},
      {"ZeroByZero", {{kWhole, 12}, {kNum, 0}, {kDenom, 0}}, kNaN},
      {"ZeroDenominatorNoNumerator", {{kWhole, 12}, {kDenom, 0}}, kNaN},
      {"ZeroDenominatorOnly", {{kDenom, 0}}, kNaN},
      {"NothingWrapsAtTheTop", {{kWhole, kIntMax}, {kNum, kIntMax}, {kDenom, 1}}, 4294967294.0},
      {"NothingWrapsAtTheBottom", {{kWhole, kIntMin}, {kNum, kIntMin}, {kDenom, 1}}, -4294967296.0},
      {"TheSmallestByMinusOne", {{kNum, kIntMin}, {kDenom, -1}}, 2147483648.0},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const auto message = emptyOf(GetParam());
    for (const auto& [field, value] : row.fields) {
      ASSERT_TRUE(message->add(field, value));
    }
    CapturedErrors errors;
    double price = -1.0;
    EXPECT_TRUE(message->getWND(kWhole, kNum, kDenom, price));
    if (std::isnan(row.price)) {
      EXPECT_TRUE(std::isnan(price)) << price;
    } else {
      EXPECT_EQ(price, row.price);
    }
    EXPECT_EQ(errors.take(), "");
  }
}

TEST_P(ReadPrice, FailsQuietlyWithoutAnyOfTheThree) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{4}, 1.5));
  CapturedErrors errors;
  double price = -1.0;
  EXPECT_FALSE(message->getWND(kWhole, kNum, kDenom, price));
  EXPECT_FALSE(message->getWND(999, 50000, 65535, price));  // the dictionary knows none of them
  EXPECT_EQ(price, -1.0);
  EXPECT_EQ(errors.take(), "");
}

/// The report of an int get of a field of another type; an mInt makes none.
std::string getError(const Encoding& encoding, std::uint16_t field, std::uint8_t type, std::size_t size) {
  switch (encoding.code) {
    case 1:
      return test::report("IterMap Error: Attempting to GET a field of incorrect type OR overflow error", field, type,
                          size);
    case 70:
      return test::report("MsgT Error: Attempting to GET a field of incorrect type!", field, type, size);
    default:
      return "";
  }
}

TEST_P(ReadPrice, AFieldOfAnotherTypeCountsAsNotRead) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{4}, 1.5));
  ASSERT_TRUE(message->add(std::uint16_t{5}, "12"));
  ASSERT_TRUE(message->add(std::uint16_t{6}, std::int64_t{7}));
  CapturedErrors errors;
  double price = -1.0;
  EXPECT_FALSE(message->getWND(4, 5, 6, price));
  EXPECT_EQ(price, -1.0);
  // All three are tried, in this order.
  const std::string expected =
      getError(GetParam(), 4, 5, 8) + getError(GetParam(), 5, 6, 3) + getError(GetParam(), 6, 19, 8);
  EXPECT_EQ(errors.take(), expected);

  ASSERT_TRUE(message->add(kWhole, 12));
  EXPECT_TRUE(message->getWND(kWhole, 4, kDenom, price));
  EXPECT_EQ(price, 12.0);
  EXPECT_EQ(errors.take(), getError(GetParam(), 4, 5, 8));

  ASSERT_TRUE(message->add(kNum, 5));
  EXPECT_TRUE(message->getWND(kWhole, kNum, 6, price));
  EXPECT_EQ(price, 12.05);
  EXPECT_EQ(errors.take(), getError(GetParam(), 6, 19, 8));
}

TEST_P(ReadPrice, OneFieldMayServeThreeTimes) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(kWhole, 5));
  double price = -1.0;
  EXPECT_TRUE(message->getWND(kWhole, kWhole, kWhole, price));
  EXPECT_EQ(price, 6.0);
}

TEST(ReadPriceSlots, AllThreeReadsAreMadeInOrder) {
  std::vector<std::string> calls;
  ScriptedMessage message(calls);
  message.m_isReadable = false;
  double price = -1.0;
  EXPECT_FALSE(message.getWND(7, 5, 6, price));
  EXPECT_EQ(price, -1.0);
  EXPECT_EQ(calls, (std::vector<std::string>{"get Int 7", "get Int 5", "get Int 6"}));
}

// PriceOutput ------------------------------------------------------------------------------------------------------

class PricePrintOut : public testing::TestWithParam<Encoding> {
 protected:
  void SetUp() override {
    test::loadDictionary(
        "PX_WHOLE 1 INT PX_NUM 2 INT PX_DENOM 3 INT "
        "TICK_WHOLE 4 OPTI_PRICE TICK_NUM 5 OPTI_PRICE TICK_DENOM 6 OPTI_PRICE "
        "LONE_WHOLE 7 INT STRAY_NUM 8 INT STRAY_DENOM 9 INT "
        "DBL_WHOLE 10 DOUBLE DBL_NUM 11 INT DBL_DENOM 12 INT "
        "MIX_WHOLE 13 INT MIX_NUM 14 DOUBLE MIX_DENOM 15 STRING "
        "_WHOLE 16 INT _NUM 17 INT _DENOM 18 INT "
        "A_STEM_LONGER_THAN_22_CHARACTERS_WHOLE 19 INT "
        "px_whole 20 INT PX_WHOLES 21 INT WHOLE 22 INT NUM 23 INT PXDENOM 24 INT "
        "TWICE_WHOLE 25 INT TWICE_NUM 26 INT TWICE_NUM 27 INT "
        "PX_WHOLE_WHOLE 28 INT PX_WHOLE_NUM 29 INT "
        "PAIR_WHOLE 30 INT PAIR_WHOLE 31 INT PAIR_NUM 32 INT PAIR_DENOM 33 INT "
        "CH 40 CHAR QTY 41 INT SEQ 42 INT64 VOLA 43 FLOAT BID 44 DOUBLE SYMBOL 45 STRING BLOB 46 BUFFER "
        "WHEN 47 DATETIME RECV 48 EPOCH_NSEC THE_NAME_IS_22_LETTERS 49 INT HIGH 50000 INT");
  }

  static std::string priceOf(const MD_Message& message) {
    std::ostringstream out;
    out << PriceOutput(message);
    return out.str();
  }

  static std::string plainOf(const MD_Message& message) {
    std::ostringstream out;
    out << message;
    return out.str();
  }

  std::unique_ptr<MD_Message> messageOf(const std::vector<std::pair<std::uint16_t, std::int32_t>>& fields) const {
    auto message = emptyOf(GetParam());
    for (const auto& [field, value] : fields) {
      EXPECT_TRUE(message->add(field, value)) << field;
    }
    return message;
  }
};

INSTANTIATE_TEST_SUITE_P(Encodings, PricePrintOut, testing::ValuesIn(kEncodings), nameOf);

TEST_P(PricePrintOut, PricesStandInOneLine) {
  struct Row {
    const char* name;
    std::vector<std::pair<std::uint16_t, std::int32_t>> fields;
    const char* printOut;
  };
  const Row kRows[] = {
      {"AllThree", {{1, 12}, {2, 34}, {3, 100}}, "PX                     = 12.34\n"},
      {"NoDenominator", {{1, 12}, {2, 34}}, "PX                     = 12.34\n"},
      {"NoNumerator", {{1, 12}, {3, 8}}, "PX                     = 12.0\n"},
      {"WholeOnly", {{1, 12}}, "PX                     = 12.0\n"},
      {"Eighths", {{1, 12}, {2, 5}, {3, 8}}, "PX                     = 12.625\n"},
      {"Thirds", {{1, 12}, {2, 1}, {3, 3}}, "PX                     = 12.3333333333333\n"},
      {"NoWholeUnits", {{1, 0}, {2, 5}, {3, 100}}, "PX                     = 0.05\n"},
      {"Nothing", {{1, 0}, {2, 0}, {3, 100}}, "PX                     = 0.0\n"},
      {"NegativeWhole", {{1, -12}, {2, 34}, {3, 100}}, "PX                     = -11.66\n"},
      {"NegativeNumerator", {{1, 0}, {2, -34}, {3, 100}}, "PX                     = -0.34\n"},
      {"NegativeBoth", {{1, -12}, {2, -34}, {3, 100}}, "PX                     = -12.34\n"},
      {"ZeroDenominator", {{1, 12}, {2, 34}, {3, 0}}, "PX                     = 0.0\n"},
      {"NegativeDenominator", {{1, 12}, {2, 34}, {3, -100}}, "PX                     = 0.0\n"},
      {"DenominatorOfOne", {{1, 12}, {2, 3}, {3, 1}}, "PX                     = 15.0\n"},
      {"TheLargest", {{1, kIntMax}, {2, kIntMax}, {3, 1}}, "PX                     = 4294967294.0\n"},
      {"TheSmallest", {{1, kIntMin}, {2, kIntMin}, {3, 1}}, "PX                     = -4294967296.0\n"},
      {"TheLargestDenominator", {{1, 0}, {2, 1}, {3, kIntMax}}, "PX                     = 0.00000000046566\n"},
      {"ThePriceStandsWhereItsWholePartDoes",
       {{3, 100}, {41, 7}, {2, 34}, {1, 12}, {50000, 8}},
       "QTY                    = 7\n"
       "PX                     = 12.34\n"
       "HIGH                   = 8\n"},
      {"DeclaredAsOptiPrice", {{4, 99}, {5, 1}, {6, 2}}, "TICK                   = 99.5\n"},
      {"SeveralPrices",
       {{1, 12}, {4, 99}, {2, 34}, {5, 1}, {6, 2}, {3, 100}},
       "PX                     = 12.34\n"
       "TICK                   = 99.5\n"},
      {"CompanionsUnknownToTheDictionary", {{7, 12}}, "LONE                   = 12.0\n"},
      {"WithoutItsWholePart",
       {{2, 34}, {3, 100}},
       "PX_NUM                 = 34\n"
       "PX_DENOM               = 100\n"},
      {"WithItsWholePartUnknownToTheDictionary",
       {{8, 34}, {9, 100}},
       "STRAY_NUM              = 34\n"
       "STRAY_DENOM            = 100\n"},
      {"OfAnotherStem",
       {{1, 12}, {5, 34}, {6, 100}},
       "PX                     = 12.0\n"
       "TICK_NUM               = 34\n"
       "TICK_DENOM             = 100\n"},
      {"AnEmptyStem", {{16, 12}, {17, 34}, {18, 1000}}, "                       = 12.034\n"},
      {"ALongStem", {{19, 12}}, "A_STEM_LONGER_THAN_22_CHARACTERS = 12.0\n"},
      {"NamesThatOnlyLookAlike",
       {{20, 1}, {21, 2}, {22, 3}, {23, 4}, {24, 5}},
       "px_whole               = 1\n"
       "PX_WHOLES              = 2\n"
       "WHOLE                  = 3\n"
       "NUM                    = 4\n"
       "PXDENOM                = 5\n"},
      {"OfTwoFieldsOfOneNameThePriceShowsTheHigher",
       {{25, 12}, {26, 34}, {27, 56}},
       "TWICE                  = 12.56\n"
       "TWICE_NUM              = 34\n"},
      {"TheLowerOfThemIsNotThePrices",
       {{25, 12}, {26, 34}},
       "TWICE                  = 12.0\n"
       "TWICE_NUM              = 34\n"},
      {"OfTwoWholePartsOfOneNameTheLowerShowsThePriceToo",
       {{30, 12}, {32, 34}, {33, 100}},
       "PAIR                   = 12.34\n"},
      {"TheHigherOfTwoWholePartsOfOneName", {{32, 34}, {33, 100}, {31, 12}}, "PAIR                   = 12.34\n"},
      {"BothWholePartsOfOneName",
       {{30, 12}, {32, 34}, {31, 56}},
       "PAIR                   = 12.34\n"
       "PAIR                   = 56.34\n"},
      {"OnlyTheLastSuffixCounts",
       {{28, 12}, {29, 34}, {1, 56}},
       "PX_WHOLE               = 12.34\n"
       "PX                     = 56.0\n"},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    CapturedErrors errors;
    const RecordedAssertions assertions;
    const auto message = messageOf(row.fields);
    EXPECT_EQ(priceOf(*message), row.printOut);
    EXPECT_EQ(errors.take(), "");
    EXPECT_EQ(RecordedAssertions::entries(), Report{});
  }
}

TEST_P(PricePrintOut, AnEmptyMessagePrintsNothing) { EXPECT_EQ(priceOf(*emptyOf(GetParam())), ""); }

TEST_P(PricePrintOut, AWholePartThatIsNoIntPrintsPlainlyAndSoDoItsCompanions) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{11}, 34));
  ASSERT_TRUE(message->add(std::uint16_t{10}, 12.5));
  ASSERT_TRUE(message->add(std::uint16_t{12}, 100));
  CapturedErrors errors;
  EXPECT_EQ(priceOf(*message),
            "DBL_NUM                = 34\n"
            "DBL_WHOLE              = 12.5\n"
            "DBL_DENOM              = 100\n");
  EXPECT_EQ(errors.take(), "");
}

TEST_P(PricePrintOut, CompanionsThatAreNoIntsCountAsAbsentAndPrintPlainly) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{13}, 12));
  ASSERT_TRUE(message->add(std::uint16_t{14}, 0.5));
  ASSERT_TRUE(message->add(std::uint16_t{15}, "8"));
  CapturedErrors errors;
  EXPECT_EQ(priceOf(*message),
            "MIX                    = 12.0\n"
            "MIX_NUM                = 0.5\n"
            "MIX_DENOM              = 8\n");
  EXPECT_EQ(errors.take(), "");
}

TEST_P(PricePrintOut, OtherFieldsPrintAsInThePlainLayout) {
  const auto message = emptyOf(GetParam());
  ASSERT_TRUE(message->add(std::uint16_t{40}, 'x'));
  ASSERT_TRUE(message->add(std::uint16_t{41}, -5));
  ASSERT_TRUE(message->add(std::uint16_t{42}, std::numeric_limits<std::int64_t>::min()));
  ASSERT_TRUE(message->add(std::uint16_t{43}, 1.5F));
  ASSERT_TRUE(message->add(std::uint16_t{44}, 123.456));
  ASSERT_TRUE(message->add(std::uint16_t{45}, "IBM"));
  ASSERT_TRUE(message->add(std::uint16_t{46}, test::bufferOf("bytes")));
  ASSERT_TRUE(message->add(std::uint16_t{47}, MD_DateTime(20240115, 93000000, -300)));
  ASSERT_TRUE(message->add(std::uint16_t{48}, MD_EpochNS(std::numeric_limits<std::uint64_t>::max())));
  ASSERT_TRUE(message->add(std::uint16_t{49}, 1));
  const std::string expected =
      "CH                     = x\n"
      "QTY                    = -5\n"
      "SEQ                    = -9223372036854775808\n"
      "VOLA                   = 1.5\n"
      "BID                    = 123.456\n"
      "SYMBOL                 = IBM\n"
      "BLOB                   = bytes\n"
      "WHEN                   = 20240115 93000000 (-300)\n"
      "RECV                   = 18446744073709551615\n"
      "THE_NAME_IS_22_LETTERS = 1\n";
  EXPECT_EQ(priceOf(*message), expected);
  EXPECT_EQ(plainOf(*message), expected);
}

TEST_P(PricePrintOut, ThePlainLayoutKnowsNoPrices) {
  EXPECT_EQ(plainOf(*messageOf({{1, 12}, {2, 34}, {3, 100}})),
            "PX_WHOLE               = 12\n"
            "PX_NUM                 = 34\n"
            "PX_DENOM               = 100\n");
}

TEST_P(PricePrintOut, FollowsTheMessage) {
  const auto message = messageOf({{1, 12}, {2, 34}});
  const PriceOutput price(*message);
  std::ostringstream out;
  out << price;
  ASSERT_TRUE(message->update(std::uint16_t{2}, 35));
  out << price << PriceOutput(*messageOf({{4, 1}})) << "end";
  EXPECT_EQ(out.str(),
            "PX                     = 12.34\n"
            "PX                     = 12.35\n"
            "TICK                   = 1.0\n"
            "end");
}

// A whole part that is cut off is no int to print: it and its companions print plainly.
TEST_P(PricePrintOut, AWholePartThatCannotBeReadPrintsAsAnEmptyValue) {
  Bytes bytes = test::bytesOf(*messageOf({{2, 34}, {3, 100}, {1, 100000}}));
  bytes.pop_back();
  const auto message = fromBytes(bytes);
  ASSERT_EQ(test::idsOf(*message), (Ids{2, 3, 1}));
  CapturedErrors errors;
  const RecordedAssertions assertions;
  EXPECT_EQ(priceOf(*message),
            "PX_NUM                 = 34\n"
            "PX_DENOM               = 100\n"
            "PX_WHOLE               = <VARIANT>\n");
  EXPECT_EQ(RecordedAssertions::entries().size(), 1U);  // the iterator's
}

TEST_P(PricePrintOut, StreamsComeBackAsTheyWere) {
  const auto message = messageOf({{1, 12}, {2, 34}, {3, 100}, {41, 255}});
  std::ostringstream out;
  out << std::hex << std::showbase << std::uppercase << std::right << std::showpos << std::setfill('*')
      << std::setprecision(3) << std::setw(30);
  const std::ios_base::fmtflags flags = out.flags();
  out << PriceOutput(*message);
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
  EXPECT_EQ(out.precision(), 3);
  // The caller's width and fill pad nothing, and prices are texts; other numbers follow the stream.
  EXPECT_EQ(out.str(),
            "PX                     = 12.34\n"
            "QTY                    = 0XFF\n");

  out.str({});
  out << std::setw(30) << *message;
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
  EXPECT_EQ(out.str(),
            "PX_WHOLE               = 0XC\n"
            "PX_NUM                 = 0X22\n"
            "PX_DENOM               = 0X64\n"
            "QTY                    = 0XFF\n");

  out.str({});
  out << std::setw(30) << PriceOutput(*emptyOf(GetParam()));
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace MD
