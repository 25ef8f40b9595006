#include "md/md_msgt.h"

#include <cstdint>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD::test {
namespace {

constexpr const char* kAddError = "MsgT Error: Attempting to ADD a field with incorrect id or type!";
constexpr const char* kUpdateError = "MsgT Error: Attempting to UPDATE a field with an incorrect type!";
constexpr const char* kGetError = "MsgT Error: Attempting to GET a field of incorrect type!";

const std::string kMagic = "46 51 52 31";

class MsgTBytes : public testing::Test {
 protected:
  MsgTBytes() { loadDictionary(kDictionary); }

  static std::unique_ptr<MsgT> parsed(const std::string& records) { return parse<MsgT>(fromHex(kMagic + records)); }

  MsgT m_message;
  CapturedErrors m_errors;
};

TEST_F(MsgTBytes, StartAsTheMagic) {
  EXPECT_EQ(m_message.getPB(), 70);
  EXPECT_EQ(m_message.getSizeImpl(), 4u);
  EXPECT_EQ(hexOf(m_message), "46 51 52 31");
  EXPECT_TRUE(m_message.emptyImpl());
}

TEST_F(MsgTBytes, OfTheLongestStringAndBuffer) {
  const std::string text(65535, 'x');
  EXPECT_TRUE(m_message.add(id::kString, text));
  EXPECT_TRUE(m_message.add(id::kBuffer, bufferOf(text)));
  EXPECT_EQ(m_message.getSizeImpl(), 4u + 8 + 65536 + 8 + 65535);
  EXPECT_EQ(hexOf(m_message).substr(12, 26), "00 3C 00 06 00 01 00 00 78");
  const auto received = parse<MsgT>(bytesOf(m_message));
  std::string read;
  EXPECT_TRUE(received->get(id::kString, read));
  EXPECT_EQ(read, text);
  MD_Message::Buffer buffer;
  EXPECT_TRUE(received->get(id::kBuffer, buffer));
  EXPECT_EQ(rawOf(buffer), text);
  EXPECT_TRUE(received->update(id::kString, std::string(65535, 'y')));
  EXPECT_EQ(idsOf(*received), (Ids{id::kString, id::kBuffer}));
}

TEST_F(MsgTBytes, OfAStringThatNoViewCanCarryAreNotRead) {
  Bytes bytes = fromHex(kMagic + "00 3C 00 06 00 01 00 01");
  bytes.resize(bytes.size() + 65537, 'x');
  std::string text = "before";
  EXPECT_FALSE(parse<MsgT>(bytes)->get(id::kString, text));
  EXPECT_EQ(text, "before");
  EXPECT_EQ(m_errors.take(), report(kGetError, id::kString, 6, 65537));

  bytes = fromHex(kMagic + "00 46 00 0E 00 01 00 00");
  bytes.resize(bytes.size() + 65536, 'x');
  MD_Message::Buffer buffer;
  EXPECT_FALSE(parse<MsgT>(bytes)->get(id::kBuffer, buffer));
  EXPECT_EQ(m_errors.take(), report(kGetError, id::kBuffer, 14, 65536));
}

TEST_F(MsgTBytes, OfAnotherTypeAreNotRead) {
  m_message.add(id::kInt, 5);
  for (const ValueType& type : valueTypes()) {
    SCOPED_TRACE(type.name);
    if (type.code != DATATYPES::INT) {
      std::string read;
      EXPECT_FALSE(type.get(m_message, id::kInt, 0, read));
      EXPECT_EQ(read, type.raw(0));
      EXPECT_EQ(m_errors.take(), report(kGetError, id::kInt, 2, 4));
    }
    std::string read;
    EXPECT_FALSE(type.get(m_message, id::kInt2, 0, read));
    EXPECT_EQ(m_errors.take(), "");
  }
}

struct UpdateCase {
  const char* name;
  std::function<bool(MD_Message&)> update;
  bool result;
  const char* records;
  std::string errors;
};

// Updates of a message of kInt = 5 and kString = "abc": the type is tested before the length.
TEST_F(MsgTBytes, AfterUpdates) {
  constexpr const char* kBefore = " 01 2C 00 02 00 00 00 04 00 00 00 05 00 3C 00 06 00 00 00 04 61 62 63 00";
  const UpdateCase cases[] = {
      {"IntInPlace", [](MD_Message& m) { return m.update(id::kInt, -1); }, true,
       " 01 2C 00 02 00 00 00 04 FF FF FF FF 00 3C 00 06 00 00 00 04 61 62 63 00", ""},
      {"IntAsFloat", [](MD_Message& m) { return m.update(id::kInt, 1.5f); }, false, kBefore,
       report(kUpdateError, id::kInt, 2, 4)},
      {"IntAsInt64", [](MD_Message& m) { return m.update(id::kInt, std::int64_t{1}); }, false, kBefore,
       report(kUpdateError, id::kInt, 2, 8)},
      {"IntAsString", [](MD_Message& m) { return m.update(id::kInt, "xy"); }, false, kBefore,
       report(kUpdateError, id::kInt, 2, 3)},
      {"StringInPlace", [](MD_Message& m) { return m.update(id::kString, "xyz"); }, true,
       " 01 2C 00 02 00 00 00 04 00 00 00 05 00 3C 00 06 00 00 00 04 78 79 7A 00", ""},
      {"StringLonger", [](MD_Message& m) { return m.update(id::kString, "wxyz"); }, true,
       " 01 2C 00 02 00 00 00 04 00 00 00 05 00 3C 00 06 00 00 00 05 77 78 79 7A 00", ""},
      {"StringAsBuffer", [](MD_Message& m) { return m.update(id::kString, bufferOf("wxyz")); }, false, kBefore,
       report(kUpdateError, id::kString, 6, 4)},
      {"AbsentOfAWrongType", [](MD_Message& m) { return m.update(id::kDouble, 7); }, false, kBefore,
       report(kAddError, id::kDouble, 2, 4)},
      {"Unknown", [](MD_Message& m) { return m.update(id::kUnknown, 'x'); }, false, kBefore,
       report(kAddError, id::kUnknown, 1, 1)},
  };
  for (const UpdateCase& row : cases) {
    SCOPED_TRACE(row.name);
    MsgT message;
    message.add(id::kInt, 5);
    message.add(id::kString, "abc");
    EXPECT_EQ(row.update(message), row.result);
    EXPECT_EQ(hexOf(message), kMagic + row.records);
    EXPECT_EQ(m_errors.take(), row.errors);
    EXPECT_EQ(message.fieldCount(), 2u);
  }
}

TEST_F(MsgTBytes, OfAMovedFieldLieAtTheEnd) {
  m_message.add(id::kString, "a");
  m_message.add(id::kChar, 'x');
  EXPECT_TRUE(m_message.update(id::kString, "ab"));
  EXPECT_EQ(hexOf(m_message), "46 51 52 31 00 0A 00 01 00 00 00 01 78 00 3C 00 06 00 00 00 03 61 62 00");
  EXPECT_TRUE(m_message.update(id::kChar, 'y'));
  EXPECT_EQ(idsOf(m_message), (Ids{id::kChar, id::kString}));
}

TEST_F(MsgTBytes, OfTheTypesHighByteAreNotLookedAt) {
  const auto message = parsed(" 01 2C AB 02 00 00 00 04 00 00 00 05");
  int value = 0;
  EXPECT_TRUE(message->get(id::kInt, value));
  EXPECT_EQ(value, 5);
  EXPECT_TRUE(message->update(id::kInt, 6));
  EXPECT_EQ(hexOf(*message), kMagic + " 01 2C AB 02 00 00 00 04 00 00 00 06");
  EXPECT_EQ(m_errors.take(), "");
}

struct StripCase {
  const char* name;
  const char* records;
  const char* left;
};

const StripCase kStripCases[] = {
    {"UnknownId", " 03 E7 00 02 00 00 00 02 AA BB 00 0A 00 01 00 00 00 01 41", " 00 0A 00 01 00 00 00 01 41"},
    {"IdBeyondTheLargest", " C3 50 00 02 00 00 00 02 AA BB 00 0A 00 01 00 00 00 01 41", " 00 0A 00 01 00 00 00 01 41"},
    {"KnownIdOfAnotherType", " 01 2C 00 05 00 00 00 02 AA BB 00 0A 00 01 00 00 00 01 41",
     " 00 0A 00 01 00 00 00 01 41"},
    {"UnknownIdUpToTheEnd", " 00 0A 00 01 00 00 00 01 41 03 E7 00 02 FF FF FF FF AA BB", " 00 0A 00 01 00 00 00 01 41"},
    {"CutAfterTheLength", " 00 0A 00 01 00 00 00 01 41 03 E7 00 02 00 00 00 01", " 00 0A 00 01 00 00 00 01 41"},
    {"CutInTheLength", " 00 0A 00 01 00 00 00 01 41 03 E7 00 02 00", " 00 0A 00 01 00 00 00 01 41"},
    {"CutAfterTheId", " 00 0A 00 01 00 00 00 01 41 01 2C", " 00 0A 00 01 00 00 00 01 41"},
    {"CutInTheId", " 00 0A 00 01 00 00 00 01 41 01", " 00 0A 00 01 00 00 00 01 41"},
    {"Everything", " FF", ""},
};

TEST_F(MsgTBytes, OfBadFieldsAreCutOut) {
  for (const StripCase& row : kStripCases) {
    SCOPED_TRACE(row.name);
    const auto message = parsed(row.records);
    EXPECT_EQ(hexOf(*message), kMagic + row.left);
    EXPECT_EQ(message->fieldCount(), message->emptyImpl() ? 0u : 1u);
  }
}

// Records keep the type they were written with.
TEST_F(MsgTBytes, OfAnotherTypeThanTheDictionaryGivesByNowAreNotRead) {
  const auto loadFieldOfType = [](const ValueType& type) {
    loadDictionary("FIELD 1 " + type.definedAs + "\nREST 2 STRING\n");
  };
  for (const ValueType& written : valueTypes()) {
    for (const ValueType& now : valueTypes()) {
      SCOPED_TRACE(std::string(written.name) + " as " + now.name);
      loadFieldOfType(written);
      MsgT message;
      ASSERT_TRUE(written.add(message, 1, 0));
      ASSERT_TRUE(message.add(2, "enough to read on into"));
      loadFieldOfType(now);
      std::string read;
      EXPECT_EQ(now.get(message, 1, now.lastSample(), read), &now == &written);
      EXPECT_EQ(read, &now == &written ? written.raw(0) : now.raw(now.lastSample()));
    }
  }
}

TEST_F(MsgTBytes, OfTooShortAValueReadOnIntoTheNextRecord) {
  const auto message = parsed(" 01 2C 00 02 00 00 00 01 05 00 0A 00 01 00 00 00 01 41");
  int value = 0;
  EXPECT_TRUE(message->get(id::kInt, value));
  EXPECT_EQ(value, 0x05000A00);
  const auto last = parsed(" 01 2C 00 02 00 00 00 01 05");
  EXPECT_TRUE(last->get(id::kInt, value));
  EXPECT_EQ(value, 0x05000000);
  const auto none = parsed(" 01 2C 00 02 00 00 00 00");
  EXPECT_TRUE(none->get(id::kInt, value));
  EXPECT_EQ(value, 0);
}

TEST_F(MsgTBytes, OfAStringOfLengthZeroReadAsAnEmptyString) {
  std::string text = "before";
  EXPECT_TRUE(parsed(" 00 3C 00 06 00 00 00 00")->get(id::kString, text));
  EXPECT_EQ(text, "");
}

TEST_F(MsgTBytes, OfLessThanAMagicHoldNoFields) {
  for (std::size_t count = 0; count <= 4; ++count) {
    SCOPED_TRACE(count);
    const auto message = parse<MsgT>(Bytes(count, 1));
    EXPECT_EQ(message->getSizeImpl(), count);
    EXPECT_TRUE(message->emptyImpl());
    EXPECT_EQ(idsOf(*message), Ids());
  }
  EXPECT_EQ(m_errors.take(), "");
}

}  // namespace
}  // namespace MD::test
