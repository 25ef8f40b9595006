// sameFields(), changedFields(), copyFields() and copyReadable().
#include <cstdint>

#include <limits>
#include <memory>
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
using test::bytesOf;
using test::fromHex;
using test::Ids;
using test::idsOf;

constexpr Field<double> BID{22};
constexpr Field<double> ASK{23};
constexpr Field<std::int32_t> QTY{300};
constexpr Field<MD_Message::String> SYMBOL{60};
constexpr Field<MD_Message::String> VENUE{61};
constexpr Field<MD_Message::Buffer> BLOB{70};

/// A message from its bytes in hex; of received bytes.
std::unique_ptr<MD_Message> received(const char* hex) { return MD_Message::createFromBytes(fromHex(hex)); }

class FieldComparison : public testing::Test {
 protected:
  FieldComparison() { test::loadDictionary(test::kDictionary); }
};

struct SameCase {
  const char* name;
  const char* a;
  const char* b;
  bool areSame;
};

TEST_F(FieldComparison, LooksAtIdsTypesAndBits) {
  const SameCase kCases[] = {
      {"Empty", "06", "01", true},
      {"OtherEncoding", "06 2C01 01 05 3C00 02 4100", "01 2C01 05000000 3C00 0200 4100", true},
      {"OtherOrder", "06 2C01 01 05 3C00 02 4100", "46515231 003C 0006 00000002 4100 012C 0002 00000004 00000005",
       true},
      {"OtherWidthOfAnInteger", "06 2C01 01 05", "06 2C01 04 05000000", true},
      {"OtherValue", "06 2C01 01 05", "06 2C01 01 06", false},
      {"OtherId", "06 2C01 01 05", "06 2D01 01 05", false},
      {"TruncatedBeforeTheValue", "06 1600 08", "06 1600 08", true},
      {"TruncatedWithinTheHead", "06 1600", "06 1600", true},
      {"OtherPartOfATruncatedValue", "06 1600 08 01", "06 1600 08 0102", false},
      {"OtherLengthOfATruncatedValue", "06 3C00 05 41", "06 3C00 06 41", false},
      {"FieldMore", "06 2C01 01 05", "06 2C01 01 05 0A00 01 41", false},
      {"OtherLength", "06 3C00 02 4100", "06 3C00 03 414100", false},
      {"ZeroAndMinusZero", "06 1600 08 0000000000000000", "06 1600 08 0000000000000080", false},
      {"SameNotANumber", "06 1600 08 010000000000F87F", "01 1600 010000000000F87F", true},
      {"OtherNotANumber", "06 1600 08 010000000000F87F", "06 1600 08 020000000000F87F", false},
      {"TheLastOfRepeatedOnesCounts", "06 2C01 01 05 2C01 01 07", "06 2C01 01 07", true},
      {"TheFirstOfRepeatedOnesDoesNot", "06 2C01 01 05 2C01 01 07", "06 2C01 01 05", false},
      {"RepeatedOnBothSides", "06 2C01 01 05 2C01 01 07 0A00 01 41", "06 2C01 01 07 0A00 01 41 0A00 01 41", true},
      {"TruncatedAlike", "06 1600 08 000000", "06 1600 08 000000", true},
      {"TruncatedElsewhere", "06 1600 08 000000", "06 1600 08 0000", false},
      {"TruncatedWithOtherBytes", "06 1600 08 000000", "06 1600 08 000001", false},
      {"TruncatedInAnotherEncoding", "01 1600 000000", "06 1600 08 000000", false},
      {"TruncatedAndWhole", "06 1600 08 000000", "06 1600 08 0000000000000000", false},
      {"TypeOfNoMessage", "06 C800 02 0102", "06 C800 02 0102", true},
      {"OtherBytesOfATypeOfNoMessage", "06 C800 02 0102", "06 C800 02 0103", false},
  };
  for (const SameCase& row : kCases) {
    SCOPED_TRACE(row.name);
    test::CapturedErrors errors;
    const auto a = received(row.a);
    const auto b = received(row.b);
    EXPECT_EQ(sameFields(*a, *b), row.areSame);
    EXPECT_EQ(sameFields(*b, *a), row.areSame);
    EXPECT_TRUE(sameFields(*a, *a));
    Ids changed = {1, 2};
    Ids removed = {3};
    changedFields(*a, *b, changed, removed);
    EXPECT_EQ(changed.empty() && removed.empty(), row.areSame);
    EXPECT_EQ(errors.take(), "");
  }
}

TEST_F(FieldComparison, LooksAtTheStoredTypesOfFieldsThatCannotBeRead) {
  MD_FieldMap::loadText("A 1 INT");
  MsgT a;
  MsgT same;
  ASSERT_TRUE(a.add(1, 5) && same.add(1, 5));
  MD_FieldMap::loadText("A 1 FLOAT");
  MsgT other;
  ASSERT_TRUE(other.add(1, 5.0F));
  MD_FieldMap::loadText("A 1 INT64");
  EXPECT_TRUE(sameFields(a, same));
  EXPECT_FALSE(sameFields(a, other));
}

// The first of its records stays in the bytes.
TEST_F(FieldComparison, TakesAnErasedRepeatedFieldForAbsent) {
  for (const char* const hex : {"01 2C01 05000000 2C01 06000000 3D00 0200 5800",  //
                                "06 2C01 01 05 2C01 01 06 3D00 02 5800",
                                "46515231 012C 0002 00000004 00000005 012C 0002 00000004 00000006 "
                                "003D 0006 00000002 5800"}) {
    SCOPED_TRACE(hex);
    const auto before = received(hex);
    const auto after = received(hex);
    ASSERT_TRUE(after->erase(QTY));
    EXPECT_EQ(idsOf(*after), (Ids{300, 61}));
    EXPECT_FALSE(after->contains(QTY));
    EXPECT_EQ(after->fields().size(), 1U);
    EXPECT_EQ(to_string(*after), "VENUE                  = X\n");

    EXPECT_TRUE(sameFields(*after, *after->clone()));
    mInt venue;
    ASSERT_TRUE(venue.add(VENUE, "X"));
    EXPECT_TRUE(sameFields(*after, venue));
    EXPECT_TRUE(sameFields(venue, *after));
    EXPECT_FALSE(sameFields(*after, *before));
    Ids changed;
    Ids removed;
    changedFields(*before, *after, changed, removed);
    EXPECT_EQ(changed, Ids());
    EXPECT_EQ(removed, (Ids{300}));
    changedFields(*after, *before, changed, removed);
    EXPECT_EQ(changed, (Ids{300}));
    EXPECT_EQ(removed, Ids());
    mInt copy;
    EXPECT_EQ(copyReadable(*after, copy), Ids());
    EXPECT_EQ(bytesOf(copy), bytesOf(venue));
  }
}

TEST_F(FieldComparison, ListsChangesInTheOrderOfEachMessage) {
  mInt before;
  IterMap after;
  ASSERT_TRUE(before.add(SYMBOL, "A") && before.add(BID, 1.5) && before.add(QTY, 5) && before.add(VENUE, "X"));
  ASSERT_TRUE(after.add(ASK, 1.0) && after.add(VENUE, "X") && after.add(BID, 2.5));
  Ids changed;
  Ids removed;
  changedFields(before, after, changed, removed);
  EXPECT_EQ(changed, (Ids{23, 22}));
  EXPECT_EQ(removed, (Ids{60, 300}));
  changedFields(after, before, changed, removed);
  EXPECT_EQ(changed, (Ids{60, 22, 300}));
  EXPECT_EQ(removed, (Ids{23}));
}

TEST_F(FieldComparison, HoldsForEveryTypeAndEveryPairOfEncodings) {
  const test::CapturedErrors errors;
  for (const test::ValueType& type : test::valueTypes()) {
    for (const ENCODINGS::Encoding& ofA : ENCODINGS::kAll) {
      for (const ENCODINGS::Encoding& ofB : ENCODINGS::kAll) {
        for (std::size_t i = 0; i != type.sampleCount; ++i) {
          for (std::size_t j = 0; j != type.sampleCount; ++j) {
            const auto a = MD_Message::createFromPB(ofA.code);
            const auto b = MD_Message::createFromPB(ofB.code);
            ASSERT_TRUE(type.add(*a, type.field, i) && type.add(*b, type.field, j));
            ASSERT_EQ(sameFields(*a, *b), type.raw(i) == type.raw(j)) << type.name << i << ' ' << j;
          }
        }
      }
    }
  }
}

TEST_F(FieldComparison, CopiesListedFields) {
  MsgT source;
  mInt target;
  ASSERT_TRUE(source.add(SYMBOL, "LONGER") && source.add(BID, 1.5) && source.add(QTY, 5));
  ASSERT_TRUE(target.add(SYMBOL, "A") && target.add(ASK, 2.5));
  EXPECT_EQ(copyFields(source, {60, 22}, target), Ids());
  EXPECT_EQ(target.get(SYMBOL), "LONGER");
  EXPECT_EQ(target.get(BID), 1.5);
  EXPECT_EQ(target.get(ASK), 2.5);
  EXPECT_FALSE(target.contains(QTY));
  EXPECT_EQ(copyFields(source, {}, target), Ids());
  EXPECT_EQ(copyFields(source, {300, 300}, target), Ids());
  EXPECT_EQ(target.get(QTY), 5);
}

TEST_F(FieldComparison, CopiesWhatCanBeReadAndHeldAndListsTheRest) {
  test::CapturedErrors errors;
  const test::RecordedAssertions assertions;
  mInt target;
  ASSERT_TRUE(target.add(SYMBOL, "kept") && target.add(ASK, 2.5));
  const Bytes before = bytesOf(target);

  IterMap source;
  ASSERT_TRUE(source.add(SYMBOL, std::string(255, 'x')) && source.add(BLOB, Bytes(256)) && source.add(BID, 1.5));
  EXPECT_EQ(copyFields(source, {60, 70, 23, 999, 22}, target), (Ids{60, 70, 23, 999}));
  EXPECT_EQ(target.get(SYMBOL), "kept");
  EXPECT_EQ(target.get(BID), 1.5);

  mInt other(before);
  const auto truncated = received("06 2C01 01 05 2C01 01 07 C800 02 0102 1700 08 000000");
  EXPECT_EQ(copyReadable(*truncated, other), (Ids{200, 23}));
  EXPECT_EQ(other.get(QTY), 7);
  EXPECT_EQ(other.get(ASK), 2.5);
  EXPECT_EQ(other.fieldCount(), 3u);
  EXPECT_EQ(errors.take(), "");
  EXPECT_TRUE(assertions.entries().empty());
}

TEST_F(FieldComparison, CopiesNothingOverARecordThatAnEarlierDictionaryGaveAnotherType) {
  MD_FieldMap::loadText("A 1 INT  B 2 INT");
  MsgT target;
  ASSERT_TRUE(target.add(1, 5));
  MD_FieldMap::loadText("A 1 FLOAT  B 2 INT");
  MsgT source;
  ASSERT_TRUE(source.add(1, 2.5F) && source.add(2, 6));
  const test::RecordedAssertions assertions;
  EXPECT_EQ(copyReadable(source, target), Ids{1});
  EXPECT_EQ(target.get<std::int32_t>(2), 6);
  EXPECT_TRUE(assertions.entries().empty());
}

// The INT was truncated when a string was appended: the copied INT overwrites the head of the string, which is then
// the record of a DOUBLE.
TEST_F(FieldComparison, ListsAFieldWhoseRecordAnotherOneOverwrites) {
  test::CapturedErrors errors;
  const test::RecordedAssertions assertions;
  const auto target = received("01 2C01");
  ASSERT_TRUE(target->add(SYMBOL, "ab"));
  MsgT source;
  ASSERT_TRUE(source.add(QTY, 0x10016) && source.add(SYMBOL, "1234567") && source.add(ASK, 2.5));
  EXPECT_EQ(copyFields(source, {300, 60, 23}, *target), Ids{60});
  EXPECT_EQ(test::hexOf(*target), "01 2C 01 16 00 01 00 61 62 00 17 00 00 00 00 00 00 00 04 40");
  EXPECT_EQ(target->get(QTY), 0x10016);
  EXPECT_EQ(target->get(ASK), 2.5);
  EXPECT_EQ(errors.take(), "");
  EXPECT_TRUE(assertions.entries().empty());
}

TEST_F(FieldComparison, CopiesAMessageToItself) {
  mInt message(fromHex("06 2C01 01 05 1600 08 000000"));
  const Bytes before = bytesOf(message);
  EXPECT_EQ(copyReadable(message, message), Ids{22});
  EXPECT_EQ(bytesOf(message), before);
}

// Where every field can be read, the copy is that of copyMsg(), to the byte.
TEST_F(FieldComparison, CopiesAsCopyMsgDoes) {
  for (const ENCODINGS::Encoding& ofSource : ENCODINGS::kAll) {
    for (const ENCODINGS::Encoding& ofTarget : ENCODINGS::kAll) {
      for (std::size_t sample = 0; sample != 3; ++sample) {
        const auto source = MD_Message::createFromPB(ofSource.code);
        const auto target = MD_Message::createFromPB(ofTarget.code);
        for (const test::ValueType& type : test::valueTypes()) {
          ASSERT_TRUE(type.add(*source, type.field, sample % type.sampleCount));
          ASSERT_TRUE(type.add(*target, type.otherField, 0));
          ASSERT_TRUE(sample == 1 || type.add(*target, type.field, 0));
        }
        const auto expected = target->clone();
        expected->copyMsg(*source);
        EXPECT_EQ(copyReadable(*source, *target), Ids());
        EXPECT_EQ(bytesOf(*target), bytesOf(*expected)) << ofSource.name << " to " << ofTarget.name;
      }
    }
  }
}

}  // namespace
}  // namespace MD
