// Copies from message to message.
#include <cstdint>

#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/fresh_buffer.h"
#include "support/golden_records.h"
#include "support/messages.h"
#include "support/scripted_message.h"

namespace MD::test {
namespace {

using Report = std::vector<std::string>;

/// The one of three texts that is meant for the encoding.
const char* ofEncoding(const Encoding& encoding, const char* iterMap, const char* mInt, const char* msgT) {
  return encoding.code == ENCODINGS::ITERMAP ? iterMap : encoding.code == ENCODINGS::MINT ? mInt : msgT;
}

std::string allTypesHex(const Encoding& encoding) { return goldenMessageOfAllTypes(encoding.code); }

std::unique_ptr<MD_Message> allTypesOf(const Encoding& encoding) { return received(fromHex(allTypesHex(encoding))); }

/// The header of an empty message and records after it.
std::unique_ptr<MD_Message> ofRecords(const Encoding& encoding, const std::string& recordsHex) {
  Bytes bytes = bytesOf(*emptyOf(encoding));
  const Bytes records = fromHex(recordsHex);
  bytes.insert(bytes.end(), records.begin(), records.end());
  return received(bytes);
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

class CopyBetween : public testing::TestWithParam<std::tuple<Encoding, Encoding>> {
 protected:
  void SetUp() override { loadDictionary(kDictionary); }

  const Encoding& from() const { return std::get<0>(GetParam()); }
  const Encoding& to() const { return std::get<1>(GetParam()); }

  CapturedErrors m_errors;
  RecordedAssertions m_assertions;
};

INSTANTIATE_TEST_SUITE_P(Encodings, CopyBetween, testing::Combine(eachEncoding(), eachEncoding()),
                         [](const auto& param) {
                           return std::string(std::get<0>(param.param).name) + "To" + std::get<1>(param.param).name;
                         });

TEST_P(CopyBetween, EveryTypeArrives) {
  const auto source = allTypesOf(from());
  const auto copy = emptyOf(to());
  copy->copyMsg(*source);
  EXPECT_EQ(toHex(bytesOf(*copy)), allTypesHex(to()));
  EXPECT_EQ(copy->fieldCount(), 9U);
  EXPECT_EQ(hexOf(*source), allTypesHex(from()));
  EXPECT_EQ(source->fieldCount(), 9U);
  EXPECT_EQ(m_errors.take(), "");
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopyBetween, EveryValueOfEveryTypeArrives) {
  forEachValueType([&](auto sample, const char* name) {
    using T = decltype(sample);
    const std::uint16_t field = fieldOf<T>();
    for (const T& value : samplesOf<T>()) {
      SCOPED_TRACE(std::string(name) + " " + testing::PrintToString(rawOf(value)));
      const auto source = emptyOf(from());
      ASSERT_TRUE(source->add(field, value));
      const auto copy = emptyOf(to());
      copy->copyMsg(*source);
      T copied{};
      EXPECT_TRUE(copy->get(field, copied));
      EXPECT_EQ(rawOf(copied), rawOf(value));
      EXPECT_EQ(idsOf(*copy), Ids{field});
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
  EXPECT_EQ(hexOf(*copy), allTypesHex(to()));
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
  const Ids expected = to().code == ENCODINGS::MINT
                           ? Ids{id::kInt2,   id::kChar,   id::kInt,    id::kInt64,    id::kFloat,
                                 id::kDouble, id::kString, id::kBuffer, id::kDateTime, id::kEpochNS}
                           : Ids{id::kInt2,   id::kInt,    id::kChar,   id::kInt64,    id::kFloat,
                                 id::kDouble, id::kString, id::kBuffer, id::kDateTime, id::kEpochNS};
  EXPECT_EQ(idsOf(*copy), expected);
  EXPECT_EQ(copy->fieldCount(), 10U);
  EXPECT_EQ(intOf(*copy, id::kInt2), 9);
  EXPECT_EQ(intOf(*copy, id::kInt), 5);
  EXPECT_EQ(textOf(*copy, id::kString), "AB");
  char character = 0;
  EXPECT_TRUE(copy->get(id::kChar, character));
  EXPECT_EQ(character, 'A');
  EXPECT_EQ(m_errors.take(), "");
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopyBetween, AnEmptyMessageChangesNothing) {
  const auto source = emptyOf(from());
  const auto copy = allTypesOf(to());
  copy->copyMsg(*source);
  EXPECT_EQ(hexOf(*copy), allTypesHex(to()));
  const auto empty = emptyOf(to());
  empty->copyMsg(*source);
  EXPECT_TRUE(empty->emptyImpl());
}

// A buffer without a byte to spare is the one that would move.
TEST_P(CopyBetween, AnEmptyMessageLeavesViewsGood) {
  const auto source = emptyOf(from());
  const FreshNextBuffer fresh;
  const auto copy = emptyOf(to());
  ASSERT_TRUE(copy->add(id::kString, std::string(254, 'x')));
  ASSERT_TRUE(copy->add(id::kString2, std::string(254, 'x')));
  ASSERT_TRUE(copy->add(id::kBuffer, bufferOf(std::string(255, 'x'))));
  for (std::string rest; copy->getSizeImpl() != 1024; rest += 'x') {
    ASSERT_LT(copy->getSizeImpl(), 1024U);
    ASSERT_TRUE(copy->update(id::kBuffer2, bufferOf(rest)));
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
  ASSERT_EQ(idsOf(*source), (Ids{id::kInt, id::kChar, id::kInt}));
  const auto copy = emptyOf(to());
  copy->copyMsg(*source);
  EXPECT_EQ(copy->fieldCount(), 2U);
  EXPECT_EQ(idsOf(*copy), to().code == ENCODINGS::MINT ? (Ids{id::kChar, id::kInt}) : (Ids{id::kInt, id::kChar}));
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

// A message truncated in the value of its last field: that field is present and cannot be read.
TEST_P(CopyBetween, AValueThatCannotBeReadIsAssertedAgainst) {
  for (const CopyLines& row : kCopyLines) {
    SCOPED_TRACE(row.typeName);
    const auto whole = allTypesOf(from());
    const auto source = emptyOf(from());
    source->add(id::kInt2, 8);
    MD_Variant value;
    ASSERT_TRUE(whole->get(row.field, value));
    ASSERT_TRUE(source->add(row.field, value));
    Bytes bytes = bytesOf(*source);
    bytes.pop_back();
    const auto truncated = received(bytes);
    ASSERT_TRUE(truncated->existsImpl(row.field));

    const auto copy = emptyOf(to());
    RecordedAssertions::entries().clear();
    copy->copyMsg(*truncated);
    EXPECT_EQ(RecordedAssertions::entries(), Report{copyAssertion(row.readLine)});
    EXPECT_EQ(idsOf(*copy), Ids{id::kInt2});
  }
}

// The later of two records of a field counts; truncated, it makes both attempts fail, and the fields between are
// copied.
TEST_P(CopyBetween, GoesOnBehindAValueThatCannotBeRead) {
  const auto source = ofRecords(
      from(), ofEncoding(from(), "2C 01 01 00 00 00 0A 00 78 2C 01 02 00 00", "2C 01 01 01 0A 00 01 78 2C 01 04 02",
                         "01 2C 00 02 00 00 00 04 00 00 00 01 00 0A 00 01 00 00 00 01 78 "
                         "01 2C 00 02 00 00 00 04 00 00 00"));
  ASSERT_EQ(idsOf(*source), (Ids{id::kInt, id::kChar, id::kInt}));
  const auto copy = emptyOf(to());
  copy->copyMsg(*source);
  EXPECT_EQ(RecordedAssertions::entries(), (Report{copyAssertion(310), copyAssertion(310)}));
  EXPECT_EQ(idsOf(*copy), Ids{id::kChar});
}

TEST_P(CopyBetween, AFieldOfNoValueTypeIsAssertedAgainstAndTheRestGoesOn) {
  struct Row {
    const char* name;
    std::uint16_t field;
    const char* records[3];  ///< IterMap, mInt, MsgT; each followed by CH 'x'
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
    ASSERT_EQ(idsOf(*source), (Ids{row.field, id::kChar}));
    const auto copy = emptyOf(to());
    RecordedAssertions::entries().clear();
    copy->copyMsg(*source);
    EXPECT_EQ(RecordedAssertions::entries(), Report{"md_message/src/md_message:389: 0"});
    EXPECT_EQ(idsOf(*copy), Ids{id::kChar});
  }
  EXPECT_EQ(m_errors.take(), "");
}

class Copy : public testing::TestWithParam<Encoding> {
 protected:
  void SetUp() override { loadDictionary(kDictionary); }
};

INSTANTIATE_TEST_SUITE_P(Encodings, Copy, eachEncoding(), nameOfEncoding);

/// From the encodings that hold more than an mInt.
class CopyOfLongValues : public Copy {};

INSTANTIATE_TEST_SUITE_P(Encodings, CopyOfLongValues,
                         testing::Values(Encoding{ENCODINGS::ITERMAP, "IterMap"}, Encoding{ENCODINGS::MSGT, "MsgT"}),
                         nameOfEncoding);

TEST_P(Copy, OfAMessageIntoItselfKeepsItsValues) {
  RecordedAssertions assertions;
  CapturedErrors errors;
  const auto message = allTypesOf(GetParam());
  message->copyMsg(*message);
  if (GetParam().code == ENCODINGS::MINT) {
    // Each field is updated with its own value, which moves a short integer to the end.
    EXPECT_EQ(hexOf(*message), goldenMessage(ENCODINGS::MINT, {"Char", "Int64", "Float", "Double", "String", "Buffer",
                                                               "DateTime", "EpochNS", "IntFive"}));
  } else {
    EXPECT_EQ(hexOf(*message), allTypesHex(GetParam()));
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
  ASSERT_TRUE(source->add(id::kBuffer, bufferOf(longBytes)));
  ASSERT_TRUE(source->add(id::kInt, 5));

  RecordedAssertions assertions;
  CapturedErrors errors;
  const auto copy = MD_Message::createFromPB(ENCODINGS::MINT);
  copy->copyMsg(*source);
  EXPECT_EQ(RecordedAssertions::entries(), (Report{copyAssertion(353), copyAssertion(363)}));
  // One line of the add, one of the update.
  EXPECT_EQ(errors.take(),
            "mInt Error: Attempting to ADD field of length 301 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 301 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n");
  EXPECT_EQ(hexOf(*copy), "06 2C 01 01 05");

  RecordedAssertions::entries().clear();
  const auto holding = MD_Message::createFromPB(ENCODINGS::MINT);
  ASSERT_TRUE(holding->add(id::kString, "OLD"));
  holding->copyMsg(*source);
  EXPECT_EQ(RecordedAssertions::entries(), (Report{copyAssertion(353), copyAssertion(363)}));
  EXPECT_EQ(errors.take(),
            "mInt Error: Attempting to ADD field of length 301 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n"
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n");
  EXPECT_EQ(hexOf(*holding), "06 2C 01 01 05");
}

TEST_P(CopyOfLongValues, TheLongestValuesGoWhereTheyFit) {
  const std::string longText(65535, 'x');
  const std::string longBytes(65535, 'y');
  const auto source = emptyOf(GetParam());
  ASSERT_TRUE(source->add(id::kBuffer, bufferOf(longBytes)));
  ASSERT_TRUE(source->add(id::kString2, std::string(65534, 'z')));
  RecordedAssertions assertions;
  for (const std::uint8_t code : {ENCODINGS::ITERMAP, ENCODINGS::MSGT}) {
    SCOPED_TRACE(int{code});
    const auto copy = MD_Message::createFromPB(code);
    copy->copyMsg(*source);
    MD_Message::Buffer buffer;
    ASSERT_TRUE(copy->get(id::kBuffer, buffer));
    EXPECT_EQ(rawOf(buffer), longBytes);
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
  const auto copy = MD_Message::createFromPB(ENCODINGS::MINT);
  CapturedErrors errors;
  const AssertionHandler previous = set_assertion_handler(
      [](const char* expression, const char*, unsigned) { throw std::runtime_error(expression); });
  EXPECT_THROW(copy->copyMsg(*source), std::runtime_error);
  set_assertion_handler(previous);
  EXPECT_EQ(hexOf(*copy), "06 2C 01 01 05");
}

#ifdef __GLIBC__  // whose report the expectation spells out
TEST(CopyDeathTest, TheProcessStopsByDefault) {
  loadDictionary(kDictionary);
  const auto source = MD_Message::createFromPB(ENCODINGS::MSGT);
  ASSERT_TRUE(source->add(id::kString, std::string(255, 'x')));
  const auto copy = MD_Message::createFromPB(ENCODINGS::MINT);
  EXPECT_DEATH(copy->copyMsg(*source), "md_message/src/md_message:353: .*Assertion `b == true' failed");
}
#endif

class CopySlots : public testing::TestWithParam<CopyLines> {
 protected:
  void SetUp() override {
    loadDictionary(kDictionary);
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

// A program's own class may have the code of an encoding: it is not taken for the class of that encoding.
TEST_P(CopySlots, AreThoseOfAClassWithTheCodeOfAnEncoding) {
  m_copy.m_takesAdds = true;
  for (const Encoding& encoding : ENCODINGS::kAll) {
    m_copy.m_code = encoding.code;
    m_calls.clear();
    m_copy.copyMsg(m_source);
    EXPECT_EQ(m_calls, (std::vector<std::string>{"ids", call("get"), call("add")}));
  }
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopySlots, OfListedFieldsSayWhichAreNotCopied) {
  const Ids field{GetParam().field};
  const std::string exists = "exists " + std::to_string(GetParam().field);
  for (const std::uint8_t code :
       {std::uint8_t{0}, ENCODINGS::kAll[0].code, ENCODINGS::kAll[1].code, ENCODINGS::kAll[2].code}) {
    m_copy.m_code = code;
    m_copy.m_takesUpdates = true;
    m_calls.clear();
    EXPECT_EQ(copyFields(m_source, field, m_copy), Ids{});
    EXPECT_EQ(m_calls, (std::vector<std::string>{call("get"), exists, call("get"), call("add"), call("update")}));
    m_copy.m_takesUpdates = false;
    EXPECT_EQ(copyFields(m_source, field, m_copy), field);
  }
  m_calls.clear();
  m_source.m_isReadable = false;
  EXPECT_EQ(copyFields(m_source, field, m_copy), field);
  EXPECT_EQ(m_calls, std::vector<std::string>{call("get")});
  EXPECT_EQ(RecordedAssertions::entries(), Report{});
}

TEST_P(CopySlots, OfAFieldThatHasNoRecordAreNotUsed) {
  m_copy.m_hasFields = true;
  EXPECT_EQ(copyFields(m_source, {GetParam().field}, m_copy), Ids{GetParam().field});
  EXPECT_EQ(m_calls, (std::vector<std::string>{call("get"), "exists " + std::to_string(GetParam().field)}));
}

TEST(CopyOfNoValueType, FieldsThatTheDictionaryDoesNotKnowAreAssertedAgainst) {
  loadDictionary(kDictionary);
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
  loadDictionary(
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
  loadDictionary(kDictionary);
  std::vector<std::string> calls;
  ScriptedMessage source(calls);
  ScriptedMessage copy(calls);
  copy.m_takesAdds = true;
  source.m_ids = {id::kOptiPrice};
  copy.copyMsg(source);
  EXPECT_EQ(calls, (std::vector<std::string>{"ids", "get Int 100", "add Int 100"}));
}
}  // namespace
}  // namespace MD::test
