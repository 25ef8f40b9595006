#include "md/md_itermap.h"

#include <cstdint>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD::test {
namespace {

constexpr const char* kAddError = "IterMap Error: Attempting to ADD a field with incorrect id or type";
constexpr const char* kUpdateError = "IterMap Error: Attempting to UPDATE a field with incorrect type";
constexpr const char* kGetError = "IterMap Error: Attempting to GET a field of incorrect type OR overflow error";

class IterMapBytes : public testing::Test {
 protected:
  IterMapBytes() { loadDictionary(kDictionary); }

  IterMap m_message;
  CapturedErrors m_errors;
};

TEST_F(IterMapBytes, StartAsTheHeader) {
  EXPECT_EQ(m_message.getPB(), 1);
  EXPECT_EQ(hexOf(m_message), "01");
  EXPECT_TRUE(m_message.emptyImpl());
}

TEST_F(IterMapBytes, OfTheLongestBuffer) {
  const std::string bytes(65535, 'x');
  EXPECT_TRUE(m_message.add(id::kBuffer, bufferOf(bytes)));
  EXPECT_EQ(m_message.getSizeImpl(), 1u + 2 + 4 + 65535);
  EXPECT_EQ(hexOf(m_message).substr(0, 20), "01 46 00 FF FF 00 00");
  MD_Message::Buffer read;
  EXPECT_TRUE(m_message.get(id::kBuffer, read));
  EXPECT_EQ(rawOf(read), bytes);
}

TEST_F(IterMapBytes, OfAStringOf65534Characters) {
  EXPECT_TRUE(m_message.add(id::kString, std::string(65534, 'x')));
  EXPECT_TRUE(m_message.add(id::kChar, 'q'));
  EXPECT_EQ(hexOf(m_message).substr(0, 14), "01 3C 00 FF FF");
  const auto received = parse<IterMap>(bytesOf(m_message));
  EXPECT_EQ(received->fieldCount(), 2u);
  std::string text;
  EXPECT_TRUE(received->get(id::kString, text));
  EXPECT_EQ(text, std::string(65534, 'x'));
}

// A string of 65,535 characters: its length field counts the NUL as well and wraps to 0.
class LongestIterMapString : public IterMapBytes {
 protected:
  LongestIterMapString() {
    for (std::size_t i = 0; i < m_text.size(); ++i) {
      m_text[i] = static_cast<char>('a' + i % 26);
    }
    EXPECT_TRUE(m_message.add(id::kString, m_text));
  }

  std::string m_text = std::string(65535, ' ');
};

TEST_F(LongestIterMapString, IsWrittenWithALengthWordOfZero) {
  EXPECT_EQ(m_message.getSizeImpl(), 1u + 2 + 2 + 65536);
  EXPECT_EQ(hexOf(m_message).substr(0, 20), "01 3C 00 00 00 61 62");
  EXPECT_EQ(m_message.getBinary()[m_message.getSizeImpl() - 1], 0);
  EXPECT_EQ(m_errors.take(), "");
}

TEST_F(LongestIterMapString, IsReadBackInFull) {
  std::string text;
  EXPECT_TRUE(m_message.get(id::kString, text));
  EXPECT_EQ(text, m_text);
}

TEST_F(LongestIterMapString, HasAWidthOfZeroOtherwise) {
  std::uint8_t type = 0;
  std::uint32_t size = 1;
  EXPECT_EQ(m_message.fieldData(id::kString, type, size), m_message.getBinary() + 5);
  EXPECT_EQ(type, 6);
  EXPECT_EQ(size, 0u);
}

// Parsing goes by the word too: the characters are read as records.
TEST_F(LongestIterMapString, LosesItsCharactersToAParse) {
  loadDictionary("SYMBOL 60 STRING\n");
  const auto received = parse<IterMap>(bytesOf(m_message));
  EXPECT_EQ(hexOf(*received), "01 3C 00 00 00");
  std::string text = "before";
  EXPECT_TRUE(received->get(60, text));
  EXPECT_EQ(text, "");
}

TEST_F(LongestIterMapString, IsReadWhenAllItsBytesLieInTheMessage) {
  // "aa" is a record of no value, "bb" one of a single byte.
  loadDictionary("SYMBOL 60 STRING\nPAD 24929 RAW\nTAIL 25186 CHAR\n");
  Bytes bytes = fromHex("01 3C 00 00 00");
  bytes.resize(5 + 65536, 'a');
  std::string text = "before";
  EXPECT_TRUE(parse<IterMap>(bytes)->get(60, text));
  EXPECT_EQ(text, std::string(65535, 'a'));
  bytes.resize(5 + 65532);
  bytes.insert(bytes.end(), 3, 'b');
  const auto oneByteTooFew = parse<IterMap>(bytes);
  EXPECT_EQ(oneByteTooFew->getSizeImpl(), 5u + 65535);
  EXPECT_TRUE(oneByteTooFew->get(60, text));
  EXPECT_EQ(text, "");
}

TEST_F(LongestIterMapString, IsErasedByItsWord) {
  loadDictionary("SYMBOL 60 STRING\nPAD 24929 RAW\n");
  Bytes bytes = fromHex("01 3C 00 00 00");
  bytes.resize(5 + 65536, 'a');
  const auto message = parse<IterMap>(bytes);
  EXPECT_TRUE(message->eraseImpl(60));
  EXPECT_EQ(message->getSizeImpl(), 1u + 65536);
  EXPECT_EQ(message->fieldCount(), 1u);
}

// A new value of the same length needs 65,536 bytes, and the length field is 0. The old characters are read as records,
// which the dictionary does not know, and dropped.
TEST_F(LongestIterMapString, IsNeverUpdatedInPlace) {
  loadDictionary("TAIL 10 CHAR\nSYMBOL 60 STRING\n");
  IterMap message;
  message.add(60, m_text);
  message.add(10, 'q');
  const std::uint32_t sizeBefore = message.getSizeImpl();
  EXPECT_TRUE(message.update(60, std::string(65535, 'z')));
  EXPECT_EQ(message.getSizeImpl(), sizeBefore);
  EXPECT_EQ(hexOf(message).substr(0, 29), "01 0A 00 71 3C 00 00 00 7A 7A");
  std::string text;
  EXPECT_TRUE(message.get(60, text));
  EXPECT_EQ(text, std::string(65535, 'z'));
  EXPECT_EQ(message.fieldCount(), 2u);
}

// The width of an empty buffer is 0 as well: the widths agree, so the type decides.
TEST_F(LongestIterMapString, RefusesAnEmptyBufferInItsPlace) {
  EXPECT_FALSE(m_message.update(id::kString, bufferOf("")));
  EXPECT_EQ(m_errors.take(), report(kUpdateError, id::kString, 6, 0));
}

TEST_F(IterMapBytes, OfAnIntGivenAFloatStay) {
  m_message.add(id::kInt, 5);
  EXPECT_FALSE(m_message.update(id::kInt, 1.5f));
  EXPECT_EQ(m_errors.take(), report(kUpdateError, id::kInt, 2, 4));
  EXPECT_EQ(hexOf(m_message), "01 2C 01 05 00 00 00");
}

TEST_F(IterMapBytes, OfAnIntGivenAnInt64AreErased) {
  m_message.add(id::kChar, 'x');
  m_message.add(id::kInt, 5);
  EXPECT_FALSE(m_message.update(id::kInt, std::int64_t{5}));
  EXPECT_EQ(m_errors.take(), report(kAddError, id::kInt, 19, 8));
  EXPECT_FALSE(m_message.existsImpl(id::kInt));
  EXPECT_EQ(hexOf(m_message), "01 0A 00 78");
  EXPECT_EQ(m_message.fieldCount(), 1u);
}

struct UpdateCase {
  const char* name;
  std::function<bool(MD_Message&)> update;
  bool result;
  const char* bytes;
  std::string errors;
};

// Updates of a message of kInt = 5 and kString = "abc".
TEST_F(IterMapBytes, AfterUpdates) {
  const std::string text("abc");
  const UpdateCase cases[] = {
      {"IntInPlace", [](MD_Message& m) { return m.update(id::kInt, -1); }, true,
       "01 2C 01 FF FF FF FF 3C 00 04 00 61 62 63 00", ""},
      {"IntAsStringOfItsWidth", [](MD_Message& m) { return m.update(id::kInt, "xyz"); }, false,
       "01 2C 01 05 00 00 00 3C 00 04 00 61 62 63 00", report(kUpdateError, id::kInt, 2, 4)},
      {"IntAsBufferOfItsWidth", [](MD_Message& m) { return m.update(id::kInt, bufferOf("wxyz")); }, false,
       "01 2C 01 05 00 00 00 3C 00 04 00 61 62 63 00", report(kUpdateError, id::kInt, 2, 4)},
      {"IntAsStringOfAnotherWidth", [](MD_Message& m) { return m.update(id::kInt, "xy"); }, false,
       "01 3C 00 04 00 61 62 63 00", report(kAddError, id::kInt, 6, 3)},
      {"IntAsChar", [](MD_Message& m) { return m.update(id::kInt, 'x'); }, false, "01 3C 00 04 00 61 62 63 00",
       report(kAddError, id::kInt, 1, 1)},
      {"StringInPlace", [](MD_Message& m) { return m.update(id::kString, "xyz"); }, true,
       "01 2C 01 05 00 00 00 3C 00 04 00 78 79 7A 00", ""},
      {"StringMoves", [](MD_Message& m) { return m.update(id::kString, "x"); }, true,
       "01 2C 01 05 00 00 00 3C 00 02 00 78 00", ""},
      {"StringAsIntOfItsWidth", [](MD_Message& m) { return m.update(id::kString, 7); }, false,
       "01 2C 01 05 00 00 00 3C 00 04 00 61 62 63 00", report(kUpdateError, id::kString, 6, 4)},
      {"StringAsInt64", [](MD_Message& m) { return m.update(id::kString, std::int64_t{7}); }, false,
       "01 2C 01 05 00 00 00", report(kAddError, id::kString, 19, 8)},
      {"AbsentOfAWrongType", [](MD_Message& m) { return m.update(id::kDouble, 7); }, false,
       "01 2C 01 05 00 00 00 3C 00 04 00 61 62 63 00", report(kAddError, id::kDouble, 2, 4)},
      {"Unknown", [](MD_Message& m) { return m.update(id::kUnknown, bufferOf("abc")); }, false,
       "01 2C 01 05 00 00 00 3C 00 04 00 61 62 63 00", report(kAddError, id::kUnknown, 14, 3)},
  };
  for (const UpdateCase& row : cases) {
    SCOPED_TRACE(row.name);
    IterMap message;
    message.add(id::kInt, 5);
    message.add(id::kString, text);
    EXPECT_EQ(row.update(message), row.result);
    EXPECT_EQ(hexOf(message), row.bytes);
    EXPECT_EQ(m_errors.take(), row.errors);
  }
}

TEST_F(IterMapBytes, WithAnUnknownIdLoseTwoBytesAtATime) {
  // The bytes after the unknown id, E7 03, are read as a further unknown id, then as kChar.
  const auto message = parse<IterMap>(fromHex("01 2C 01 05 00 00 00 E7 03 E8 03 0A 00 41"));
  EXPECT_EQ(hexOf(*message), "01 2C 01 05 00 00 00 0A 00 41");
  EXPECT_EQ(message->fieldCount(), 2u);
  char letter = 0;
  EXPECT_TRUE(message->get(id::kChar, letter));
  EXPECT_EQ(letter, 'A');
}

TEST_F(IterMapBytes, OfOneByteAtTheEndAreCutOff) {
  EXPECT_EQ(hexOf(*parse<IterMap>(fromHex("01 0A 00 41 2C"))), "01 0A 00 41");
  EXPECT_EQ(hexOf(*parse<IterMap>(fromHex("01 E7 03 2C"))), "01");
}

TEST_F(IterMapBytes, OfABufferThatNoViewCanCarryAreNotRead) {
  Bytes bytes = fromHex("01 46 00 00 00 01 00");
  bytes.resize(bytes.size() + 65536, 'x');
  const auto message = parse<IterMap>(bytes);
  MD_Message::Buffer read;
  EXPECT_FALSE(message->get(id::kBuffer, read));
  EXPECT_EQ(read.data, nullptr);
  EXPECT_EQ(m_errors.take(), report(kGetError, id::kBuffer, 14, 65536));
}

TEST_F(IterMapBytes, OfTypesThatMessagesDoNotCarryAreSteppedOver) {
  const auto message =
      parse<IterMap>(fromHex("01 C8 00 01 02 C9 00 CA 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0A 00 41"));
  EXPECT_EQ(idsOf(*message), (Ids{id::kShort, id::kRaw, id::kFraction, id::kChar}));
  EXPECT_EQ(message->fieldCount(), 4u);
  EXPECT_EQ(m_errors.take(), "");
  int value = 0;
  EXPECT_FALSE(message->get(id::kShort, value));
  EXPECT_EQ(m_errors.take(), report(kGetError, id::kShort, 3, 2));
}

// The widths by type code, seen through records that are stepped over.
TEST_F(IterMapBytes, HaveTheWidthOfEachTypeCode) {
  const struct {
    const char* type;
    std::uint32_t width;
  } widths[] = {{"RAW", 0},       {"CHAR", 1},      {"INT", 4},        {"SHORT", 2},     {"FLOAT", 4},
                {"DOUBLE", 8},    {"VECTOR", 0},    {"MSG_T", 0},      {"DATE", 4},      {"TIME", 4},
                {"FRACTION", 12}, {"CHILD_MSG", 0}, {"FOLDED_INT", 0}, {"UINT", 4},      {"LONG_INT", 4},
                {"ULONG_INT", 4}, {"INT64", 8},     {"DATETIME", 8},   {"EPOCH_NSEC", 8}};
  for (const auto& row : widths) {
    SCOPED_TRACE(row.type);
    loadDictionary(std::string("F 1 ") + row.type + "\nEND 2 CHAR\n");
    Bytes bytes = fromHex("01 01 00");
    bytes.insert(bytes.end(), row.width, 0xAA);
    bytes.insert(bytes.end(), {2, 0, 'x'});
    const auto message = parse<IterMap>(bytes);
    EXPECT_EQ(idsOf(*message), (Ids{1, 2}));
    EXPECT_EQ(message->getSizeImpl(), bytes.size());
    std::uint8_t type = 0;
    std::uint32_t size = 99;
    EXPECT_EQ(message->fieldData(1, type, size), message->getBinary() + 3);
    EXPECT_EQ(size, row.width);
  }
}

class IterMapField : public testing::Test {
 protected:
  IterMapField() {
    loadDictionary(kDictionary);
    m_message.add(id::kChar, 'A');
    m_message.add(id::kInt, -5);
    m_message.add(id::kInt64, std::int64_t{-6});
    m_message.add(id::kFloat, 1.5f);
    m_message.add(id::kDouble, -1.25);
    m_message.add(id::kString, std::string("a\0b", 3));
    m_message.add(id::kBuffer, bufferOf({"\x00\xFF", 2}));
    m_message.add(id::kDateTime, MD_DateTime(20240115, 1, 2));
    m_message.add(id::kEpochNS, MD_EpochNS(77));
    m_message.add(id::kOptiPrice, 8);
  }

  /// A cursor over the record of a field.
  IterMap::Field at(std::uint16_t id) const {
    std::uint8_t type = 0;
    std::uint32_t size = 0;
    const std::uint8_t* const value = m_message.fieldData(id, type, size);
    const int head = type == DATATYPES::STRING ? 4 : type == DATATYPES::BUFFER ? 6 : 2;
    return IterMap::Field(reinterpret_cast<const char*>(value) - head);
  }

  IterMap m_message;
};

TEST_F(IterMapField, ShowsARecord) {
  const struct {
    std::uint16_t id;
    std::uint8_t type;
    std::uint32_t size;
    int head;
  } rows[] = {{id::kChar, 1, 1, 2},     {id::kInt, 2, 4, 2},      {id::kInt64, 19, 8, 2},  {id::kFloat, 4, 4, 2},
              {id::kDouble, 5, 8, 2},   {id::kString, 6, 4, 4},   {id::kBuffer, 14, 2, 6}, {id::kDateTime, 20, 8, 2},
              {id::kEpochNS, 22, 8, 2}, {id::kOptiPrice, 2, 4, 2}};
  const char* record = reinterpret_cast<const char*>(m_message.getBinary()) + 1;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.id);
    const IterMap::Field field(record);
    EXPECT_TRUE(field.isValid());
    EXPECT_EQ(field.id(), row.id);
    EXPECT_EQ(field.type(), row.type);
    EXPECT_EQ(field.size(), row.size);
    EXPECT_EQ(field.data_ptr(), record + row.head);
    record += row.head + static_cast<int>(row.size);
  }
}

TEST_F(IterMapField, ConvertsToItsValue) {
  EXPECT_EQ(static_cast<char>(at(id::kChar)), 'A');
  EXPECT_EQ(static_cast<int>(at(id::kInt)), -5);
  EXPECT_EQ(static_cast<int>(at(id::kOptiPrice)), 8);
  EXPECT_EQ(static_cast<std::int64_t>(at(id::kInt64)), -6);
  EXPECT_EQ(static_cast<float>(at(id::kFloat)), 1.5f);
  EXPECT_EQ(static_cast<double>(at(id::kDouble)), -1.25);
  EXPECT_EQ(static_cast<MD_EpochNS>(at(id::kEpochNS)), MD_EpochNS(77));
  const auto text = static_cast<MD_Message::String>(at(id::kString));
  EXPECT_EQ(rawOf(text), std::string("a\0b", 3));
  EXPECT_EQ(text.data, at(id::kString).data_ptr());
  EXPECT_EQ(rawOf(static_cast<MD_Message::Buffer>(at(id::kBuffer))), std::string("\x00\xFF", 2));
  EXPECT_FALSE((std::is_convertible_v<IterMap::Field, MD_DateTime>));
}

TEST_F(IterMapField, OfAnUnknownIdHasNoTypeAndNoSize) {
  const char record[] = "\xE7\x03rest";
  const IterMap::Field field(record);
  EXPECT_EQ(field.id(), id::kUnknown);
  EXPECT_EQ(field.type(), 0);
  EXPECT_EQ(field.size(), 0u);
  EXPECT_EQ(field.data_ptr(), record + 2);
  const IterMap::Field beyond("\x50\xC3");
  EXPECT_EQ(beyond.id(), id::kBeyond);
  EXPECT_EQ(beyond.type(), 0);
}

TEST_F(IterMapField, NeedsNoAlignment) {
  const char bytes[] = "?\x2C\x01\x05\x00\x00\x00";
  EXPECT_EQ(static_cast<int>(IterMap::Field(bytes + 1)), 5);
}

struct ConversionCase {
  const char* name;
  void (*convert)(const IterMap::Field&);
  const char* expression;
  std::uint16_t id;  // the field that converts without an assertion
};

const ConversionCase kConversionCases[] = {
    {"Char", [](const IterMap::Field& f) { static_cast<void>(static_cast<char>(f)); }, "type() == MD::DATATYPES::CHAR",
     id::kChar},
    {"Int", [](const IterMap::Field& f) { static_cast<void>(static_cast<int>(f)); },
     "type() == MD::DATATYPES::INT || type() == MD::DATATYPES::OPTI_PRICE", id::kInt},
    {"Int64", [](const IterMap::Field& f) { static_cast<void>(static_cast<std::int64_t>(f)); },
     "type() == MD::DATATYPES::INT64", id::kInt64},
    {"Float", [](const IterMap::Field& f) { static_cast<void>(static_cast<float>(f)); },
     "type() == MD::DATATYPES::FLOAT", id::kFloat},
    {"Double", [](const IterMap::Field& f) { static_cast<void>(static_cast<double>(f)); },
     "type() == MD::DATATYPES::DOUBLE", id::kDouble},
    {"String", [](const IterMap::Field& f) { static_cast<void>(static_cast<MD_Message::String>(f)); },
     "type() == MD::DATATYPES::STRING", id::kString},
    {"Buffer", [](const IterMap::Field& f) { static_cast<void>(static_cast<MD_Message::Buffer>(f)); },
     "type() == MD::DATATYPES::BUFFER", id::kBuffer},
    {"EpochNS", [](const IterMap::Field& f) { static_cast<void>(static_cast<MD_EpochNS>(f)); },
     "type() == MD::DATATYPES::EPOCH_NSEC", id::kEpochNS},
};

// "file:line: expression" without the line.
std::string withoutLine(const std::string& entry) {
  const std::size_t line = entry.find(':') + 1;
  return entry.substr(0, line) + entry.substr(entry.find(':', line));
}

TEST_F(IterMapField, AssertsItsType) {
  for (const ConversionCase& row : kConversionCases) {
    for (const ConversionCase& stored : kConversionCases) {
      SCOPED_TRACE(std::string(row.name) + " of " + stored.name);
      // A wide value, so that an operation that goes on reads bytes of the message.
      const RecordedAssertions assertions;
      row.convert(at(stored.id));
      if (row.id == stored.id) {
        EXPECT_EQ(assertions.entries(), std::vector<std::string>());
      } else {
        ASSERT_EQ(assertions.entries().size(), 1u);
        EXPECT_EQ(withoutLine(assertions.entries()[0]),
                  std::string("md_message/include/md/md_itermap:: ") + row.expression);
      }
    }
  }
}

TEST_F(IterMapField, AssertsThatItIsValid) {
  const IterMap::Field none(nullptr);
  EXPECT_FALSE(none.isValid());
  const auto firstAssertion = [](auto operation) {
    const RecordedAssertions assertions;
    operation();
    return assertions.entries().empty() ? std::string() : withoutLine(assertions.entries().front());
  };
  const std::string expected = "md_message/include/md/md_itermap:: isValid()";
  EXPECT_EQ(firstAssertion([&] { EXPECT_EQ(none.id(), 0); }), expected);
  EXPECT_EQ(firstAssertion([&] { EXPECT_EQ(none.type(), 0); }), expected);
  EXPECT_EQ(firstAssertion([&] { EXPECT_EQ(none.size(), 0u); }), expected);
  EXPECT_EQ(firstAssertion([&] { EXPECT_EQ(none.data_ptr(), nullptr); }), expected);
  for (const ConversionCase& row : kConversionCases) {
    EXPECT_EQ(firstAssertion([&] { row.convert(none); }), expected) << row.name;
  }
}

// Of a cursor without a record nothing but the type is asked.
TEST_F(IterMapField, AsksNothingMoreOfACursorWithoutARecord) {
  const IterMap::Field none(nullptr);
  const RecordedAssertions assertions;
  const MD_Message::String text = none;
  EXPECT_EQ(text.data, nullptr);
  EXPECT_EQ(text.length, 0);
  EXPECT_EQ(assertions.entries().size(), 2u);
  const MD_Message::Buffer buffer = none;
  EXPECT_EQ(buffer.data, nullptr);
  EXPECT_EQ(assertions.entries().size(), 4u);
}

using IterMapFieldDeathTest = IterMapField;

TEST_F(IterMapFieldDeathTest, StopsWhenItIsNotValid) { EXPECT_DEATH(IterMap::Field(nullptr).id(), "isValid\\(\\)"); }

}  // namespace
}  // namespace MD::test
