#include "md/md_mint.h"

#include <cstdint>

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_msgdata.h"
#include "md/md_reusable_container.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/golden_records.h"
#include "support/messages.h"

namespace MD::test {
namespace {

class MInt : public testing::Test {
 protected:
  MInt() { loadDictionary(kDictionary); }

  mInt m_message;
  CapturedErrors m_errors;
};

TEST_F(MInt, StartsAsItsHeader) {
  EXPECT_EQ(m_message.getPB(), 6);
  EXPECT_EQ(m_message.getSizeImpl(), 1u);
  EXPECT_EQ(m_message.getBinary()[0], 6);
  EXPECT_TRUE(m_message.emptyImpl());
  EXPECT_EQ(idsOf(m_message), Ids());
}

// The buffer has 1,024 bytes; sanitizers report writes after them.
TEST_F(MInt, IntegersFillTheBufferToItsLastByte) {
  loadDictionary("S1 1 STRING\nS2 2 STRING\nS3 3 STRING\nS4 4 STRING\nN 5 INT\n");
  for (const GoldenRecord& row : kGoldenRecords) {
    const auto* const value = std::get_if<std::int32_t>(&row.value);
    if (value == nullptr) {
      continue;
    }
    const std::uint32_t recordBytes = static_cast<std::uint32_t>(std::string(row.mInt).size() + 1) / 3;
    for (std::uint32_t left = 0; left < 10; ++left) {
      SCOPED_TRACE(std::string(row.name) + ", " + std::to_string(left) + " bytes left");
      const auto buffers = std::make_shared<ReusableContainer<MsgData>>();
      {
        const auto message = MD_Message::createFromBytes(m_message.getBinary(), 1, {buffers, nullptr});
        std::uint32_t fillBytes = 1024 - 1 - recordBytes - left;
        for (std::uint16_t string = 1; string <= 4; ++string) {
          const std::uint32_t bytes = fillBytes / (5U - string);
          ASSERT_TRUE(message->add(string, std::string(bytes - 4, 'x')));
          fillBytes -= bytes;
        }
        auto& typed = static_cast<mInt&>(*message);
        ASSERT_TRUE(typed.add(5, *value));
        ASSERT_EQ(message->getSizeImpl(), 1024 - left);
        std::string record = row.mInt;
        record.replace(0, 5, "05 00");
        EXPECT_EQ(hexOf(*message).substr(3 * (1024 - left - recordBytes)), record);
        std::int32_t read = 7;
        EXPECT_TRUE(typed.get(5, read));
        EXPECT_EQ(read, *value);
      }
      const ReusableContainerWrapper<MsgData> buffer(true, buffers);
      EXPECT_EQ(buffer->capacity(), 1024u) << "has not grown";
    }
  }
}

TEST_F(MInt, HoldsStringsOfUpTo254Characters) {
  EXPECT_TRUE(m_message.add(id::kString, std::string(254, 'x')));
  EXPECT_EQ(m_message.getSizeImpl(), 1u + 3 + 255);
  EXPECT_EQ(m_message.getBinary()[3], 255);
  std::string text;
  EXPECT_TRUE(m_message.get(id::kString, text));
  EXPECT_EQ(text, std::string(254, 'x'));

  const std::string before = hexOf(m_message);
  EXPECT_FALSE(m_message.add(id::kString2, std::string(255, 'x')));
  EXPECT_EQ(m_errors.take(), "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n");
  EXPECT_EQ(hexOf(m_message), before);
  EXPECT_FALSE(m_message.existsImpl(id::kString2));
  EXPECT_EQ(m_message.fieldCount(), 1u);
  EXPECT_TRUE(m_message.add(id::kString2, "fits"));
}

TEST_F(MInt, HoldsBuffersOfUpTo255Bytes) {
  EXPECT_TRUE(m_message.add(id::kBuffer, bufferOf(std::string(255, 'x'))));
  const std::string before = hexOf(m_message);
  EXPECT_FALSE(m_message.add(id::kBuffer2, bufferOf(std::string(256, 'x'))));
  EXPECT_EQ(m_errors.take(), "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n");
  EXPECT_FALSE(m_message.add(id::kBuffer2, bufferOf(std::string(65535, 'x'))));
  EXPECT_EQ(m_errors.take(), "mInt Error: Attempting to ADD field of length 65535 which is > max length 255\n");
  EXPECT_EQ(hexOf(m_message), before);
  EXPECT_FALSE(m_message.existsImpl(id::kBuffer2));
  EXPECT_EQ(m_message.fieldCount(), 1u);
}

TEST_F(MInt, RefusesTheLongestStringByItsLength) {
  EXPECT_FALSE(m_message.add(id::kString, std::string(65535, 'x')));
  EXPECT_EQ(m_errors.take(), "mInt Error: Attempting to ADD field of length 65536 which is > max length 255\n");
}

// The type comes first: a field that is both of a wrong type and too long is refused for its type.
TEST_F(MInt, TestsTheTypeBeforeTheLength) {
  EXPECT_FALSE(m_message.add(id::kInt, std::string(300, 'x')));
  EXPECT_EQ(m_errors.take(), report("mInt Error: Attempting to ADD a field with incorrect id!", id::kInt, 6, 301));
}

TEST_F(MInt, AnUpdateThatIsTooLongCostsTheField) {
  m_message.add(id::kString, "IBM");
  m_message.add(id::kInt, 5);
  EXPECT_FALSE(m_message.update(id::kString, std::string(255, 'x')));
  EXPECT_EQ(m_errors.take(), "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n");
  EXPECT_FALSE(m_message.existsImpl(id::kString));
  EXPECT_EQ(hexOf(m_message), "06 2C 01 01 05");
  EXPECT_EQ(m_message.fieldCount(), 1u);
}

struct IntUpdateCase {
  const char* name;
  std::int32_t before;
  std::int32_t after;
  const char* bytes;
};

// Fields kInt and kChar, then an update of kInt.
const IntUpdateCase kIntUpdateCases[] = {
    {"OneByteToOneByteMoves", 4, 5, "06 0A 00 01 78 2C 01 01 05"},
    {"OneByteToTwoBytesMoves", 4, 300, "06 0A 00 01 78 2C 01 02 2C 01"},
    {"OneByteToFourBytesMoves", 4, -1, "06 0A 00 01 78 2C 01 04 FF FF FF FF"},
    {"TwoBytesToTwoBytesMoves", 300, 301, "06 0A 00 01 78 2C 01 02 2D 01"},
    {"TwoBytesToOneByteMoves", 300, 5, "06 0A 00 01 78 2C 01 01 05"},
    {"FourBytesToSmallStays", 70000, 5, "06 2C 01 04 05 00 00 00 0A 00 01 78"},
    {"FourBytesToMediumStays", 70000, 300, "06 2C 01 04 2C 01 00 00 0A 00 01 78"},
    {"FourBytesToNegativeStays", 70000, -1, "06 2C 01 04 FF FF FF FF 0A 00 01 78"},
};

class MIntIntegerUpdate : public testing::TestWithParam<IntUpdateCase> {
 protected:
  MIntIntegerUpdate() { loadDictionary(kDictionary); }
};

TEST_P(MIntIntegerUpdate, OverwritesFullWidthOnly) {
  mInt message;
  message.add(id::kInt, GetParam().before);
  message.add(id::kChar, 'x');
  EXPECT_TRUE(message.update(id::kInt, GetParam().after));
  EXPECT_EQ(hexOf(message), GetParam().bytes);
  std::int32_t read = 0;
  EXPECT_TRUE(message.get(id::kInt, read));
  EXPECT_EQ(read, GetParam().after);
  EXPECT_EQ(message.fieldCount(), 2u);
}

INSTANTIATE_TEST_SUITE_P(Widths, MIntIntegerUpdate, testing::ValuesIn(kIntUpdateCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(MInt, AnUpdateOfAnotherTypeAndTheSameLengthOverwrites) {
  m_message.add(id::kInt, 70000);
  m_message.add(id::kChar, 'x');
  EXPECT_TRUE(m_message.update(id::kInt, 1.5f));
  EXPECT_EQ(hexOf(m_message), "06 2C 01 04 00 00 C0 3F 0A 00 01 78");
  EXPECT_TRUE(m_message.update(id::kInt, "abc"));
  EXPECT_EQ(hexOf(m_message), "06 2C 01 04 61 62 63 00 0A 00 01 78");
  EXPECT_TRUE(m_message.update(id::kChar, bufferOf("y")));
  EXPECT_EQ(hexOf(m_message), "06 2C 01 04 61 62 63 00 0A 00 01 79");
  EXPECT_EQ(m_errors.take(), "");
}

TEST_F(MInt, AnUpdateOfAnotherTypeAndLengthCostsTheField) {
  m_message.add(id::kInt, 70000);
  m_message.add(id::kChar, 'x');
  EXPECT_FALSE(m_message.update(id::kInt, 1.5));
  EXPECT_EQ(m_errors.take(), report("mInt Error: Attempting to ADD a field with incorrect id!", id::kInt, 5, 8));
  EXPECT_FALSE(m_message.existsImpl(id::kInt));
  EXPECT_EQ(hexOf(m_message), "06 0A 00 01 78");
}

TEST_F(MInt, AnIntegerNeverOverwritesAShortFieldOfAnotherType) {
  m_message.add(id::kChar, 'x');
  EXPECT_FALSE(m_message.update(id::kChar, 5));
  EXPECT_EQ(m_errors.take(), report("mInt Error: Attempting to ADD a field with incorrect id!", id::kChar, 2, 1));
  EXPECT_EQ(hexOf(m_message), "06");
  m_message.add(id::kFloat, 1.5f);
  EXPECT_TRUE(m_message.update(id::kFloat, 5));
  EXPECT_EQ(hexOf(m_message), "06 28 00 04 05 00 00 00");
}

TEST_F(MInt, FailedReadsAreSilent) {
  m_message.add(id::kInt, 5);
  std::string text = "before";
  double number = 1.5;
  EXPECT_FALSE(m_message.get(id::kInt, text));
  EXPECT_FALSE(m_message.get(id::kInt, number));
  EXPECT_FALSE(m_message.get(id::kString, text));
  EXPECT_EQ(text, "before");
  EXPECT_EQ(number, 1.5);
  EXPECT_EQ(m_errors.take(), "");
}

struct IntReadCase {
  const char* name;
  const char* bytes;
  bool result;
  std::int32_t value;
};

const IntReadCase kIntReadCases[] = {
    {"NoBytes", "06 2C 01 00", false, 7},
    {"OneByteIsZeroExtended", "06 2C 01 01 FF", true, 255},
    {"TwoBytesAreSignExtended", "06 2C 01 02 FF FF", true, -1},
    {"TwoBytesMinimum", "06 2C 01 02 00 80", true, -32768},
    {"ThreeBytes", "06 2C 01 03 01 00 00", false, 7},
    {"FourBytes", "06 2C 01 04 01 00 00 80", true, -2147483647},
    {"FiveBytes", "06 2C 01 05 01 00 00 00 00", false, 7},
};

TEST_F(MInt, ReadsReceivedIntegersByTheirStoredLength) {
  for (const IntReadCase& row : kIntReadCases) {
    SCOPED_TRACE(row.name);
    const auto message = parse<mInt>(fromHex(row.bytes));
    EXPECT_TRUE(message->existsImpl(id::kInt));
    EXPECT_EQ(idsOf(*message), Ids{id::kInt});
    std::int32_t value = 7;
    EXPECT_EQ(message->get(id::kInt, value), row.result);
    EXPECT_EQ(value, row.value);
  }
  EXPECT_EQ(m_errors.take(), "");
}

// Only the stored length determines where a record ends, also for a type that has a usual length.
TEST_F(MInt, StepsOverValuesOfEveryLengthInEveryType) {
  const auto append = [](Bytes& bytes, std::uint16_t id, unsigned lengthBytes) {
    bytes.push_back(static_cast<std::uint8_t>(id));
    bytes.push_back(static_cast<std::uint8_t>(id >> 8));
    bytes.push_back(static_cast<std::uint8_t>(lengthBytes));
    bytes.insert(bytes.end(), lengthBytes, 0xFF);
  };
  for (const ValueType& type : valueTypes()) {
    for (unsigned lengthBytes = 0; lengthBytes < 256; ++lengthBytes) {
      SCOPED_TRACE(std::string(type.name) + " of " + std::to_string(lengthBytes) + " bytes");
      Bytes bytes = fromHex("06");
      append(bytes, type.field, lengthBytes);
      append(bytes, type.otherField, lengthBytes);
      append(bytes, id::kOptiPrice, 1);
      const auto message = parse<mInt>(bytes);
      EXPECT_EQ(hexOf(*message), toHex(bytes));
      EXPECT_EQ(idsOf(*message), (Ids{type.field, type.otherField, id::kOptiPrice}));
      EXPECT_EQ(message->fieldCount(), 3u);
      std::uint8_t storedType = 0;
      std::uint32_t storedBytes = 0;
      EXPECT_EQ(message->fieldData(type.otherField, storedType, storedBytes) - message->getBinary(),
                1 + 3 + static_cast<std::ptrdiff_t>(lengthBytes) + 3);
      EXPECT_EQ(storedBytes, lengthBytes);
      std::int32_t price = 7;
      EXPECT_TRUE(message->get(id::kOptiPrice, price));
      EXPECT_EQ(price, 255);
    }
  }
  EXPECT_EQ(m_errors.take(), "");
}

TEST_F(MInt, ReadsTheFirstByteOfACharOfAnyLength) {
  char value = 'q';
  EXPECT_TRUE(parse<mInt>(fromHex("06 0A 00 03 41 42 43"))->get(id::kChar, value));
  EXPECT_EQ(value, 'A');
}

// The stored length is not compared with the type's: the value reads on into the next record, or zeros at the end.
TEST_F(MInt, ReadsFixedWidthValuesWhateverTheirStoredLength) {
  double value = 9;
  EXPECT_TRUE(parse<mInt>(fromHex("06 16 00 0A 00 00 00 00 00 00 F4 BF AA AA"))->get(id::kDouble, value));
  EXPECT_EQ(value, -1.25);

  std::int64_t number = 9;
  EXPECT_TRUE(parse<mInt>(fromHex("06 14 00 02 01 02 0A 00 01 41 0B 00 01 42"))->get(id::kInt64, number));
  EXPECT_EQ(number, 0x000B4101000A0201);
  EXPECT_TRUE(parse<mInt>(fromHex("06 14 00 02 01 02"))->get(id::kInt64, number));
  EXPECT_EQ(number, 0x0201);
  EXPECT_TRUE(parse<mInt>(fromHex("06 14 00 00"))->get(id::kInt64, number));
  EXPECT_EQ(number, 0);

  char letter = 'q';
  EXPECT_TRUE(parse<mInt>(fromHex("06 0A 00 00 2C 01 01 05"))->get(id::kChar, letter));
  EXPECT_EQ(letter, '\x2C');
  EXPECT_TRUE(parse<mInt>(fromHex("06 0A 00 00"))->get(id::kChar, letter));
  EXPECT_EQ(letter, '\0');
}

TEST_F(MInt, ReadsAStringWithoutItsLastByteWhateverThatIs) {
  std::string text = "before";
  EXPECT_TRUE(parse<mInt>(fromHex("06 3C 00 03 41 42 43"))->get(id::kString, text));
  EXPECT_EQ(text, "AB");
  EXPECT_TRUE(parse<mInt>(fromHex("06 3C 00 01 41"))->get(id::kString, text));
  EXPECT_EQ(text, "");
  text = "before";
  EXPECT_TRUE(parse<mInt>(fromHex("06 3C 00 00"))->get(id::kString, text));
  EXPECT_EQ(text, "");
}

TEST_F(MInt, CutsOutARecordOfAnUnknownIdAndKeepsTheOthers) {
  const auto message = parse<mInt>(fromHex("06 2C 01 01 05 E7 03 03 AA BB CC 0A 00 01 41"));
  EXPECT_EQ(hexOf(*message), "06 2C 01 01 05 0A 00 01 41");
  EXPECT_EQ(idsOf(*message), (Ids{id::kInt, id::kChar}));
  EXPECT_EQ(message->fieldCount(), 2u);
  int value = 0;
  char letter = 0;
  EXPECT_TRUE(message->get(id::kInt, value));
  EXPECT_EQ(value, 5);
  EXPECT_TRUE(message->get(id::kChar, letter));
  EXPECT_EQ(letter, 'A');
}

TEST_F(MInt, CutsOutAnUnknownLastRecordUpToTheEnd) {
  EXPECT_EQ(hexOf(*parse<mInt>(fromHex("06 2C 01 01 05 E7 03 FF AA BB"))), "06 2C 01 01 05");
  EXPECT_EQ(hexOf(*parse<mInt>(fromHex("06 2C 01 01 05 E7 03"))), "06 2C 01 01 05");
  EXPECT_EQ(hexOf(*parse<mInt>(fromHex("06 2C 01 01 05 E7"))), "06 2C 01 01 05");
  EXPECT_EQ(hexOf(*parse<mInt>(fromHex("06 E7"))), "06");
}

TEST_F(MInt, KeepsRecordsOfTypesThatMessagesDoNotCarry) {
  const auto message = parse<mInt>(fromHex("06 C8 00 02 01 02 2C 01 01 05"));
  EXPECT_EQ(hexOf(*message), "06 C8 00 02 01 02 2C 01 01 05");
  EXPECT_EQ(idsOf(*message), (Ids{id::kShort, id::kInt}));
  std::uint8_t type = 0;
  std::uint32_t size = 0;
  EXPECT_EQ(message->fieldData(id::kShort, type, size), message->getBinary() + 4);
  EXPECT_EQ(type, 3);
  EXPECT_EQ(size, 2u);
  int value = 7;
  EXPECT_FALSE(message->get(id::kShort, value));
  EXPECT_EQ(m_errors.take(), "");
}

TEST_F(MInt, ShowsTheStoredLengthOfAFieldsData) {
  m_message.add(id::kInt, 300);
  std::uint8_t type = 0;
  std::uint32_t size = 0;
  const std::uint8_t* const data = m_message.fieldData(id::kInt, type, size);
  EXPECT_EQ(data, m_message.getBinary() + 4);
  EXPECT_EQ(type, 2);
  EXPECT_EQ(size, 2u);
}

TEST_F(MInt, TakesTheBytesOfOtherEncodingsAsItsOwn) {
  const auto message = parse<mInt>(fromHex("01 2C 01 05 00 00 00"));
  EXPECT_EQ(hexOf(*message), "01 2C 01 05 00 00 00");
  EXPECT_EQ(idsOf(*message), Ids{id::kInt});
  EXPECT_EQ(message->getPB(), 6);
}

TEST_F(MInt, AddingMovesNoEarlierRecord) {
  m_message.add(id::kString, "IBM");
  const std::string first = hexOf(m_message);
  m_message.add(id::kInt, 5);
  m_message.add(id::kDouble, 1.5);
  EXPECT_EQ(hexOf(m_message).substr(0, first.size()), first);
}

}  // namespace
}  // namespace MD::test
