#include "md/md_delta.h"

#include <cstdint>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD {
namespace {

using test::Bytes;
using test::bytesOf;
using test::fromHex;
using test::hexOf;
using test::Ids;

constexpr Field<double> BID{22};
constexpr Field<double> ASK{23};
constexpr Field<std::int32_t> QTY{300};
constexpr Field<MD_Message::String> SYMBOL{60};
constexpr Field<MD_Message::String> VENUE{61};
constexpr Field<MD_Message::Buffer> REMOVED{71};

class DeltaTest : public testing::Test {
 protected:
  DeltaTest() { test::loadDictionary(test::kDictionary); }

  Delta m_delta{REMOVED, {SYMBOL.id()}};
};

TEST_F(DeltaTest, HoldsNewAndChangedFieldsKeysAndTheListOfRemovedOnes) {
  mInt before;
  ASSERT_TRUE(before.add(SYMBOL, "A") && before.add(BID, 1.5) && before.add(QTY, 5) && before.add(VENUE, "X"));
  MsgT after;
  ASSERT_TRUE(after.add(BID, 2.5) && after.add(SYMBOL, "A") && after.add(ASK, 2.5) && after.add(VENUE, "X"));
  mInt delta;
  ASSERT_TRUE(delta.add(QTY, 9));  // replaced
  ASSERT_TRUE(m_delta.diff(before, after, delta));
  EXPECT_EQ(hexOf(delta),
            "06 16 00 08 00 00 00 00 00 00 04 40"  // BID
            " 17 00 08 00 00 00 00 00 00 04 40"    // ASK
            " 3C 00 02 41 00"                      // SYMBOL, a key
            " 47 00 02 2C 01");                    // removed: QTY
  ASSERT_TRUE(m_delta.apply(delta, before));
  EXPECT_TRUE(sameFields(before, after));
  EXPECT_FALSE(before.contains(REMOVED));
}

TEST_F(DeltaTest, OfNoChangeHoldsTheKeys) {
  mInt message;
  ASSERT_TRUE(message.add(SYMBOL, "A") && message.add(BID, 1.5));
  mInt delta;
  ASSERT_TRUE(m_delta.diff(message, message, delta));
  EXPECT_EQ(hexOf(delta), "06 3C 00 02 41 00");
  Delta withoutKeys(REMOVED);
  ASSERT_TRUE(withoutKeys.diff(message, message, delta));
  EXPECT_EQ(hexOf(delta), "06");
  const Bytes bytes = bytesOf(message);
  EXPECT_TRUE(m_delta.apply(delta, message));
  EXPECT_EQ(bytesOf(message), bytes);
  // A key that is absent is not sent.
  mInt empty;
  ASSERT_TRUE(m_delta.diff(empty, empty, delta));
  EXPECT_TRUE(delta.empty());
}

TEST_F(DeltaTest, CannotSayWhatItsEncodingCannotHold) {
  const test::CapturedErrors errors;
  mInt before;
  IterMap after;
  mInt delta;
  ASSERT_TRUE(after.add(SYMBOL, std::string(255, 'x')));
  EXPECT_FALSE(m_delta.diff(before, after, delta));
  EXPECT_TRUE(delta.empty());
  MsgT larger;
  EXPECT_TRUE(m_delta.diff(before, after, larger));

  // 127 ids of two bytes are a buffer of an mInt, 128 are not.
  std::string dictionary = "REMOVED 71 BUFFER\n";
  for (int i = 0; i < 128; ++i) {
    dictionary += "F" + std::to_string(i) + " " + std::to_string(1000 + i) + " CHAR\n";
  }
  MD_FieldMap::loadText(dictionary);
  for (const int count : {127, 128}) {
    mInt full;
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(full.add(static_cast<std::uint16_t>(1000 + i), 'x'));
    }
    mInt none;
    mInt list;
    EXPECT_EQ(Delta(REMOVED).diff(full, none, list), count == 127);
    EXPECT_EQ(list.empty(), count == 128);
    if (count == 127) {
      EXPECT_EQ(list.get(REMOVED)->length, 254);
      EXPECT_TRUE(Delta(REMOVED).apply(list, full));
      EXPECT_TRUE(full.empty());
    }
  }
}

TEST_F(DeltaTest, CannotSayWhatCannotBeRead) {
  const test::CapturedErrors errors;
  const auto truncated = MD_Message::createFromBytes(fromHex("06 3C00 02 4100 1600 08 000000"));
  mInt before;
  ASSERT_TRUE(before.add(SYMBOL, "A"));
  mInt delta;
  EXPECT_FALSE(m_delta.diff(before, *truncated, delta));
  EXPECT_TRUE(delta.empty());
  // What neither message can be read for has not changed.
  EXPECT_TRUE(m_delta.diff(*truncated, *truncated->clone(), delta));
  EXPECT_EQ(hexOf(delta), "06 3C 00 02 41 00");
  // A field that can no longer be read before is gone after.
  EXPECT_TRUE(m_delta.diff(*truncated, before, delta));
  EXPECT_EQ(hexOf(delta), "06 3C 00 02 41 00 47 00 02 16 00");
}

TEST_F(DeltaTest, RefusesMessagesWithTheFieldOfTheList) {
  mInt with;
  mInt without;
  ASSERT_TRUE(with.add(REMOVED, Bytes{1, 2}));
  mInt delta;
  EXPECT_FALSE(m_delta.diff(with, without, delta));
  EXPECT_FALSE(m_delta.diff(without, with, delta));
  EXPECT_TRUE(delta.empty());
}

TEST_F(DeltaTest, IsNotOneOfTheMessages) {
  mInt message;
  mInt other;
  ASSERT_TRUE(message.add(BID, 1.5));
  EXPECT_FALSE(m_delta.diff(other, message, message));
  EXPECT_TRUE(message.empty());
  EXPECT_FALSE(m_delta.diff(other, message, other));
  ASSERT_TRUE(message.add(BID, 1.5));
  EXPECT_FALSE(m_delta.apply(message, message));
  EXPECT_EQ(message.get(BID), 1.5);
}

struct BadDelta {
  const char* name;
  const char* bytes;
};

TEST_F(DeltaTest, ThatIsNoneChangesNothing) {
  const BadDelta kCases[] = {
      {"TruncatedField", "06 1700 08 0000000000000440 1600 08 000000"},
      {"TruncatedList", "06 1700 08 0000000000000440 4700 02 16"},
      {"OddList", "06 1700 08 0000000000000440 4700 03 160017"},
      {"ListOfAFieldOfTheDelta", "06 1700 08 0000000000000440 4700 02 1700"},
      {"ListOfTheList", "06 4700 02 4700"},
      {"FieldOfNoMessageType", "06 C800 02 0102"},
      {"LengthOfNoInteger", "06 2C01 03 010101"},
  };
  for (const BadDelta& row : kCases) {
    SCOPED_TRACE(row.name);
    test::CapturedErrors errors;
    MsgT state;
    ASSERT_TRUE(state.add(BID, 1.5) && state.add(QTY, 5));
    const Bytes before = bytesOf(state);
    EXPECT_FALSE(m_delta.apply(*MD_Message::createFromBytes(fromHex(row.bytes)), state));
    EXPECT_EQ(bytesOf(state), before);
    EXPECT_EQ(errors.take(), "");
  }
  mInt small;
  ASSERT_TRUE(small.add(BID, 1.5));
  IterMap delta;
  ASSERT_TRUE(delta.add(ASK, 2.5) && delta.add(SYMBOL, std::string(255, 'x')));
  EXPECT_FALSE(m_delta.apply(delta, small));
  EXPECT_EQ(small.fieldCount(), 1u);
}

// The state was truncated when its string was appended, so that two records overlap: the INT of the delta overwrites
// the header of the string, which is then the record of a DOUBLE.
TEST_F(DeltaTest, ThatFailsHalfwayChangesNothingWhereRecordsOverlap) {
  test::CapturedErrors errors;
  IterMap state(fromHex("01 2C01"));
  ASSERT_TRUE(state.add(SYMBOL, "ab"));
  MsgT delta;
  ASSERT_TRUE(delta.add(QTY, 0x10016) && delta.add(SYMBOL, "1234567"));
  EXPECT_FALSE(m_delta.apply(delta, state));
  EXPECT_EQ(hexOf(state), "01 2C 01 3C 00 03 00 61 62 00");
  EXPECT_EQ(state.get(SYMBOL), "ab");
  EXPECT_EQ(errors.take(), "");
  // A value of the string's length does not change the header of another record, in whichever order.
  MsgT first;
  ASSERT_TRUE(first.add(SYMBOL, "cd") && first.add(QTY, 0x3003C));
  ASSERT_TRUE(m_delta.apply(first, state));
  EXPECT_EQ(hexOf(state), "01 2C 01 3C 00 03 00 63 64 00");
}

// SYMBOL was appended to a message that ends within ASK. The update of VENUE erases its record, and ASK then covers the
// header of SYMBOL, which is not found any more.
TEST_F(DeltaTest, ThatLosesAFieldByAnEraseChangesNothing) {
  test::CapturedErrors errors;
  MsgT state(fromHex("46515231 003D 0006 00000003 414200 0017 0005 00000008 0000"));
  ASSERT_TRUE(state.add(SYMBOL, "x"));
  const std::string before =
      "46 51 52 31 00 3D 00 06 00 00 00 03 41 42 00 00 17 00 05 00 00 00 08 00 00 00 3C 00 06 00 00 00 02 78 00";
  ASSERT_EQ(hexOf(state), before);
  mInt delta;
  ASSERT_TRUE(delta.add(VENUE, "longer") && delta.add(SYMBOL, "y"));
  EXPECT_FALSE(m_delta.apply(delta, state));
  EXPECT_EQ(hexOf(state), before);
  EXPECT_EQ(state.get(VENUE), "AB");
  EXPECT_EQ(state.get(SYMBOL), "x");
  EXPECT_EQ(errors.take(), "");
  // In another order all fields are changed.
  mInt other;
  ASSERT_TRUE(other.add(SYMBOL, "y") && other.add(VENUE, "longer"));
  EXPECT_TRUE(m_delta.apply(other, state));
  EXPECT_EQ(state.get(VENUE), "longer");
}

TEST_F(DeltaTest, MayRemoveWhatIsAbsent) {
  mInt state;
  ASSERT_TRUE(state.add(BID, 1.5));
  // BID, ASK, an unknown id, BID again.
  ASSERT_TRUE(m_delta.apply(mInt(fromHex("06 4700 08 1600 1700 E703 1600")), state));
  EXPECT_TRUE(state.empty());
}

// Random messages over three encodings
// ---------------------------------------------------------------------------------

class RandomMessages {
 public:
  explicit RandomMessages(std::uint32_t seed) : m_random(seed) {}

  std::size_t below(std::size_t bound) { return std::uniform_int_distribution<std::size_t>(0, bound - 1)(m_random); }

  std::unique_ptr<MD_Message> makeEmpty() { return MD_Message::createFromPB(ENCODINGS::kAll[below(3)].code); }

  /// Changes some fields: adds, updates and erases, in any order. The list's own field is skipped.
  void change(MD_Message& message) {
    for (std::size_t steps = below(12); steps != 0; --steps) {
      const test::ValueType& type = test::valueTypes()[below(test::valueTypes().size())];
      const std::uint16_t id = below(2) == 0 || type.otherField == REMOVED.id() ? type.field : type.otherField;
      if (below(3) == 0) {
        message.erase(id);
      } else {
        EXPECT_TRUE(type.update(message, id, below(type.sampleCount)));
      }
    }
  }

  std::unique_ptr<MD_Message> copyOf(const MD_Message& message) {
    auto copy = makeEmpty();
    EXPECT_TRUE(copyReadable(message, *copy).empty());
    return copy;
  }

 private:
  std::mt19937 m_random;
};

TEST_F(DeltaTest, TurnsAnyMessageIntoAnyOther) {
  const test::CapturedErrors errors;
  std::size_t deltasWithRemovals = 0;
  for (std::uint32_t seed = 0; seed < 5000; ++seed) {
    SCOPED_TRACE(seed);
    RandomMessages random(seed);
    const auto before = random.makeEmpty();
    random.change(*before);
    const auto after = random.copyOf(*before);
    random.change(*after);
    const auto state = random.copyOf(*before);
    const auto delta = random.makeEmpty();
    ASSERT_TRUE(sameFields(*before, *state));
    const Bytes unchanged = bytesOf(*before);

    ASSERT_TRUE(m_delta.diff(*before, *after, *delta));
    EXPECT_EQ(bytesOf(*before), unchanged);
    deltasWithRemovals += delta->contains(REMOVED) ? 1U : 0U;
    // As a receiver gets it.
    const auto received = MD_Message::createFromBytes(*delta);
    ASSERT_NE(received, nullptr);
    ASSERT_TRUE(m_delta.apply(*received, *state));
    ASSERT_TRUE(sameFields(*state, *after)) << to_string(*before) << "to\n"
                                            << to_string(*after) << "by\n"
                                            << to_string(*delta) << "is\n"
                                            << to_string(*state);
    EXPECT_EQ(state->fieldCount(), after->fieldCount());
    // A delta that is applied once more changes nothing.
    ASSERT_TRUE(m_delta.apply(*received, *state));
    ASSERT_TRUE(sameFields(*state, *after));
  }
  EXPECT_GT(deltasWithRemovals, 1000u);
}

// Deltas may be any bytes: they are applied whole or not at all, and what is applied is what the message holds then.
TEST_F(DeltaTest, OfRandomBytesIsAppliedWholeOrNotAtAll) {
  const test::CapturedErrors errors;
  std::size_t applied = 0;
  for (std::uint32_t seed = 0; seed < 5000; ++seed) {
    SCOPED_TRACE(seed);
    RandomMessages random(seed);
    const auto state = random.makeEmpty();
    random.change(*state);
    const auto delta = random.makeEmpty();
    random.change(*delta);
    if (random.below(2) == 0) {
      ASSERT_TRUE(delta->update(REMOVED, Bytes(random.below(6), static_cast<std::uint8_t>(random.below(100)))));
    }
    Bytes bytes = bytesOf(*delta);
    for (std::size_t i = random.below(3); i != 0; --i) {
      bytes[random.below(bytes.size())] = static_cast<std::uint8_t>(random.below(256));
    }
    bytes[0] = delta->getPB();
    bytes.resize(bytes.size() - random.below(3) % bytes.size());
    const auto received = MD_Message::createFromBytes(bytes);
    ASSERT_NE(received, nullptr);
    const Bytes before = bytesOf(*state);
    if (!m_delta.apply(*received, *state)) {
      ASSERT_EQ(bytesOf(*state), before);
      continue;
    }
    ++applied;
    for (const FieldView& field : received->fields()) {
      if (field.id() != REMOVED.id()) {
        MD_Variant value;
        ASSERT_TRUE(field.isReadable());
        ASSERT_TRUE(state->get(field.id(), value));
        ASSERT_TRUE(value == field.value() || value != value);
      }
    }
  }
  EXPECT_GT(applied, 500u);
}

/// Erases and updates one field after the other, as apply() does. @return whether each could be updated
bool changeFieldByField(const MD_Message& delta, MD_Message& state) {
  Ids ids;
  if (const auto removed = delta.get(REMOVED)) {
    for (std::size_t i = 0; i + 1 < removed->length; i += 2) {
      ids.push_back(static_cast<std::uint16_t>(removed->data[i] | removed->data[i + 1] << 8));
    }
    state.eraseArrayImpl(ids);
  }
  bool areChanged = true;
  for (const FieldView& field : delta.fields()) {
    areChanged = areChanged && (field.id() == REMOVED.id() || state.update(field.id(), field.value()));
  }
  return areChanged;
}

std::string contentsOf(const MD_Message& message) {
  return hexOf(message) + '\n' + std::to_string(message.fieldCount()) + '\n' + to_string(message);
}

// States of received bytes that end within a record, and were changed since. What fails for the fields one by one fails
// for the delta, and changes nothing.
TEST_F(DeltaTest, IsAppliedWholeOrNotAtAllWhereRecordsOverlap) {
  const test::CapturedErrors errors;
  std::size_t applied = 0;
  std::size_t refused = 0;
  for (std::uint32_t seed = 0; seed < 20'000; ++seed) {
    SCOPED_TRACE(seed);
    RandomMessages random(seed);
    const auto whole = random.makeEmpty();
    random.change(*whole);
    Bytes bytes = bytesOf(*whole);
    bytes.resize(bytes.size() - random.below(bytes.size()));
    bytes[0] = whole->getPB();
    const auto state = MD_Message::createFromBytes(bytes);
    const auto delta = random.makeEmpty();
    {
      const auto added = random.makeEmpty();
      random.change(*added);
      static_cast<void>(copyReadable(*added, *state));
      random.change(*delta);
      if (random.below(2) == 0) {
        const std::uint16_t id = test::valueTypes()[random.below(test::valueTypes().size())].field;
        delta->erase(id);
        ASSERT_TRUE(delta->update(REMOVED, Bytes{static_cast<std::uint8_t>(id), static_cast<std::uint8_t>(id >> 8)}));
      }
    }
    const auto expected = state->clone();
    const std::string before = contentsOf(*state);
    const bool isChanged = changeFieldByField(*delta, *expected);
    if (m_delta.apply(*delta, *state)) {
      ++applied;
      ASSERT_TRUE(isChanged);
      ASSERT_EQ(contentsOf(*state), contentsOf(*expected));
    } else {
      ++refused;
      ASSERT_EQ(contentsOf(*state), before);
    }
  }
  EXPECT_GT(applied, 1000u);
  EXPECT_GT(refused, 100u);
}

}  // namespace
}  // namespace MD
