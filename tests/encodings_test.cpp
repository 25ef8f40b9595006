// Guarantees of every encoding, tested for all of them. Traits has the differences.
#include <cstdint>

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/fresh_buffer.h"
#include "support/messages.h"

namespace MD::test {
namespace {

using String = MD_Message::String;
using Buffer = MD_Message::Buffer;
using Pools = MD_Message::Allocator;

struct EncodingRules {
  const char* name;
  std::uint8_t code;
  const char* header;
  bool erasingNothingFromAnEmptyMessage;
  bool takesOwnPools;
  const std::type_info* type;
};

void PrintTo(const EncodingRules& rules, std::ostream* out) { *out << rules.name; }

const EncodingRules kEncodings[] = {
    {"mInt", 6, "06", false, true, &typeid(mInt)},
    {"IterMap", 1, "01", true, false, &typeid(IterMap)},
    {"MsgT", 70, "46 51 52 31", true, true, &typeid(MsgT)},
};

Pools newPools() {
  return {std::make_shared<ReusableContainer<MsgData>>(), std::make_shared<ReusableContainer<Optimizer>>()};
}

class Encodings : public testing::TestWithParam<EncodingRules> {
 protected:
  Encodings() { loadDictionary(kDictionary); }

  static std::unique_ptr<MD_Message> makeOwned() { return MD_Message::createFromPB(GetParam().code); }

  /// An empty message that lives as long as the test.
  MD_Message& make() {
    m_made.push_back(makeOwned());
    return *m_made.back();
  }

  static std::unique_ptr<MD_Message> parsed(const Bytes& bytes) { return parse(GetParam().code, bytes); }

  static bool isOfThisKind(const MD_Message& other) { return typeid(other) == *GetParam().type; }

  /// The bytes of a record: those of a message of one field, without the header.
  template <class T>
  static Bytes record(std::uint16_t id, T value) {
    const auto one = makeOwned();
    EXPECT_TRUE(one->add(id, value));
    const Bytes bytes = bytesOf(*one);
    return {bytes.begin() + static_cast<std::ptrdiff_t>(headerBytes()), bytes.end()};
  }

  static std::size_t headerBytes() { return fromHex(GetParam().header).size(); }

  /// A message's bytes from its records.
  static Bytes wire(const std::vector<Bytes>& records) {
    Bytes bytes = fromHex(GetParam().header);
    for (const Bytes& record : records) {
      bytes.insert(bytes.end(), record.begin(), record.end());
    }
    return bytes;
  }

  /// Adds a field of each type.
  static void fill(MD_Message& target) {
    for (const ValueType& type : valueTypes()) {
      EXPECT_TRUE(type.add(target, type.field, 0));
    }
  }

  static std::string textOf(const MD_Message& source, std::uint16_t id) {
    std::string text = "(none)";
    static_cast<void>(source.get(id, text));
    return text;
  }

  static int intOf(const MD_Message& source, std::uint16_t id) {
    int value = -999;
    static_cast<void>(source.get(id, value));
    return value;
  }

 private:
  std::vector<std::unique_ptr<MD_Message>> m_made;
};

INSTANTIATE_TEST_SUITE_P(Each, Encodings, testing::ValuesIn(kEncodings),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(Encodings, StartEmpty) {
  const MD_Message& message = make();
  EXPECT_EQ(hexOf(message), GetParam().header);
  EXPECT_EQ(message.getPB(), GetParam().code);
  EXPECT_TRUE(message.emptyImpl());
  EXPECT_EQ(message.fieldCount(), 0u);
  EXPECT_EQ(idsOf(message), Ids());
  EXPECT_FALSE(message.existsImpl(id::kInt));
}

TEST_P(Encodings, RoundTripEveryType) {
  for (const ValueType& type : valueTypes()) {
    for (std::size_t sample = 0; sample < type.sampleCount; ++sample) {
      SCOPED_TRACE(std::string(type.name) + " sample " + std::to_string(sample));
      const std::size_t other = sample == 0 ? 1 : 0;
      CapturedErrors errors;
      MD_Message& message = make();
      EXPECT_TRUE(type.add(message, type.field, sample));
      EXPECT_TRUE(message.existsImpl(type.field));
      EXPECT_FALSE(message.emptyImpl());
      EXPECT_EQ(message.fieldCount(), 1u);
      EXPECT_EQ(idsOf(message), Ids{type.field});
      std::string read;
      EXPECT_TRUE(type.get(message, type.field, other, read));
      EXPECT_EQ(read, type.raw(sample));

      const auto received = parsed(bytesOf(message));
      EXPECT_EQ(hexOf(*received), hexOf(message));
      EXPECT_EQ(received->fieldCount(), 1u);
      EXPECT_TRUE(type.get(*received, type.field, other, read));
      EXPECT_EQ(read, type.raw(sample));
      EXPECT_EQ(errors.take(), "");
    }
  }
}

TEST_P(Encodings, HoldFieldsOfAllTypesAtOnce) {
  MD_Message& message = make();
  fill(message);
  EXPECT_EQ(message.fieldCount(), 9u);
  const auto received = parsed(bytesOf(message));
  EXPECT_EQ(received->fieldCount(), 9u);
  for (const ValueType& type : valueTypes()) {
    SCOPED_TRACE(type.name);
    std::string read;
    EXPECT_TRUE(type.get(*received, type.field, 1, read));
    EXPECT_EQ(read, type.raw(0));
  }
}

TEST_P(Encodings, StoreAnOptiPriceAsAnInt) {
  MD_Message& message = make();
  EXPECT_TRUE(message.add(id::kOptiPrice, -7));
  EXPECT_EQ(intOf(message, id::kOptiPrice), -7);
  EXPECT_TRUE(message.update(id::kOptiPrice, 70000));
  EXPECT_EQ(intOf(message, id::kOptiPrice), 70000);
}

TEST_P(Encodings, ReadAViewIntoTheMessageItself) {
  MD_Message& message = make();
  message.add(id::kString, "IBM");
  message.add(id::kBuffer, bufferOf("raw"));
  const auto isInside = [&](const void* first) {
    return std::less_equal<const void*>()(message.getBinary(), first) &&
           std::less<const void*>()(first, message.getBinary() + message.getSizeImpl());
  };
  String text;
  EXPECT_TRUE(message.get(id::kString, text));
  EXPECT_TRUE(isInside(text.data));
  EXPECT_EQ(text.data[3], '\0');
  Buffer buffer;
  EXPECT_TRUE(message.get(id::kBuffer, buffer));
  EXPECT_TRUE(isInside(buffer.data));
}

TEST_P(Encodings, LeaveTheOutputOfAFailedReadUnchanged) {
  MD_Message& message = make();
  fill(message);
  const CapturedErrors errors;
  for (const ValueType& type : valueTypes()) {
    Ids ids = {type.otherField, id::kUnknown, id::kBeyond};
    for (const ValueType& stored : valueTypes()) {
      if (stored.code != type.code) {
        ids.push_back(stored.field);
      }
    }
    for (const std::uint16_t id : ids) {
      SCOPED_TRACE(std::string(type.name) + " from field " + std::to_string(id));
      std::string read;
      EXPECT_FALSE(type.get(message, id, type.lastSample(), read));
      EXPECT_EQ(read, type.raw(type.lastSample()));
    }
  }
}

TEST_P(Encodings, AddAFieldOnlyOnceAndSilently) {
  MD_Message& message = make();
  fill(message);
  const std::string before = hexOf(message);
  CapturedErrors errors;
  for (const ValueType& type : valueTypes()) {
    for (const ValueType& stored : valueTypes()) {
      EXPECT_FALSE(type.add(message, stored.field, type.lastSample())) << type.name << " " << stored.name;
    }
  }
  EXPECT_EQ(errors.take(), "");
  EXPECT_EQ(hexOf(message), before);
  EXPECT_EQ(message.fieldCount(), 9u);
}

TEST_P(Encodings, RefuseFieldsThatTheDictionaryDoesNotKnowOrTypesOtherwise) {
  MD_Message& message = make();
  message.add(id::kInt, 5);
  const std::string before = hexOf(message);
  CapturedErrors errors;
  for (const ValueType& type : valueTypes()) {
    Ids ids = {id::kUnknown, id::kBeyond, id::kShort, id::kRaw, id::kFraction};
    for (const ValueType& other : valueTypes()) {
      if (other.code != type.code) {
        ids.push_back(other.otherField);
      }
    }
    for (const std::uint16_t id : ids) {
      SCOPED_TRACE(std::string(type.name) + " as field " + std::to_string(id));
      EXPECT_FALSE(type.add(message, id, 0));
      EXPECT_NE(errors.take(), "");
      EXPECT_FALSE(type.update(message, id, 0));
      EXPECT_NE(errors.take(), "");
      EXPECT_FALSE(message.existsImpl(id));
    }
  }
  EXPECT_EQ(hexOf(message), before);
  EXPECT_EQ(message.fieldCount(), 1u);
}

TEST_P(Encodings, AddAnAbsentFieldByUpdate) {
  MD_Message& added = make();
  MD_Message& updated = make();
  for (const ValueType& type : valueTypes()) {
    SCOPED_TRACE(type.name);
    EXPECT_TRUE(type.add(added, type.field, 0));
    EXPECT_TRUE(type.update(updated, type.field, 0));
  }
  EXPECT_EQ(hexOf(updated), hexOf(added));
  EXPECT_EQ(updated.fieldCount(), 9u);
}

TEST_P(Encodings, UpdateAValueOfTheSameLengthInItsPlace) {
  const auto check = [&](auto before, auto after) {
    MD_Message& message = make();
    using T = decltype(before);
    message.add(fieldOf<T>(), before);
    message.add(id::kInt2, 7);
    const std::uint32_t size = message.getSizeImpl();
    EXPECT_TRUE(message.update(fieldOf<T>(), after));
    EXPECT_EQ(message.getSizeImpl(), size);
    EXPECT_EQ(idsOf(message), (Ids{fieldOf<T>(), id::kInt2}));
    T read{};
    EXPECT_TRUE(message.get(fieldOf<T>(), read));
    EXPECT_EQ(rawOf(read), rawOf(after));
    EXPECT_EQ(intOf(message, id::kInt2), 7);
    EXPECT_EQ(message.fieldCount(), 2u);
  };
  check('a', 'b');
  check(70000, -5);
  check(std::int64_t{1}, std::numeric_limits<std::int64_t>::min());
  check(1.5f, -2.5f);
  check(1.5, -2.5);
  check(String(std::string_view("abc")), String(std::string_view("x\0z", 3)));
  check(String(std::string_view("")), String(std::string_view("")));
  check(bufferOf("abc"), bufferOf("xyz"));
  check(MD_DateTime(20240115, 1, 2), MD_DateTime(20250116, 3, -4));
  check(MD_EpochNS(1), MD_EpochNS(2));
}

TEST_P(Encodings, MoveAFieldWhoseLengthChangesToTheEnd) {
  MD_Message& message = make();
  message.add(id::kString, "abc");
  message.add(id::kBuffer, bufferOf("abc"));
  message.add(id::kInt, 70000);
  EXPECT_TRUE(message.update(id::kString, "abcd"));
  EXPECT_EQ(idsOf(message), (Ids{id::kBuffer, id::kInt, id::kString}));
  EXPECT_TRUE(message.update(id::kBuffer, bufferOf("")));
  EXPECT_EQ(idsOf(message), (Ids{id::kInt, id::kString, id::kBuffer}));
  EXPECT_TRUE(message.update(id::kString, ""));
  EXPECT_EQ(idsOf(message), (Ids{id::kInt, id::kBuffer, id::kString}));
  EXPECT_TRUE(message.update(id::kString, "x"));
  EXPECT_EQ(hexOf(message),
            toHex(wire({record(id::kInt, 70000), record(id::kBuffer, bufferOf("")), record(id::kString, "x")})));
  EXPECT_EQ(message.fieldCount(), 3u);
  EXPECT_EQ(textOf(message, id::kString), "x");
  EXPECT_EQ(intOf(message, id::kInt), 70000);
}

TEST_P(Encodings, ResizeAFieldOverAndOver) {
  MD_Message& message = make();
  message.add(id::kInt, 70000);
  for (std::size_t i = 0; i < 2000; ++i) {
    const std::string text(i % 7, 'x');
    ASSERT_TRUE(message.update(id::kString, text));
    ASSERT_EQ(textOf(message, id::kString), text);
  }
  EXPECT_EQ(message.fieldCount(), 2u);
  EXPECT_EQ(intOf(message, id::kInt), 70000);
}

TEST_P(Encodings, EraseOneField) {
  MD_Message& message = make();
  EXPECT_FALSE(message.eraseImpl(id::kInt));
  message.add(id::kInt, 70000);
  message.add(id::kString, "IBM");
  message.add(id::kChar, 'x');
  const CapturedErrors errors;

  EXPECT_FALSE(message.eraseImpl(id::kDouble));
  EXPECT_FALSE(message.eraseImpl(id::kUnknown));
  EXPECT_FALSE(message.eraseImpl(id::kBeyond));
  EXPECT_EQ(message.fieldCount(), 3u);

  EXPECT_TRUE(message.eraseImpl(id::kString));
  EXPECT_EQ(hexOf(message), toHex(wire({record(id::kInt, 70000), record(id::kChar, 'x')})));
  EXPECT_FALSE(message.existsImpl(id::kString));
  EXPECT_FALSE(message.eraseImpl(id::kString));
  EXPECT_EQ(textOf(message, id::kString), "(none)");
  char letter = 0;
  EXPECT_TRUE(message.get(id::kChar, letter));
  EXPECT_EQ(letter, 'x');

  EXPECT_TRUE(message.eraseImpl(id::kInt));
  EXPECT_TRUE(message.eraseImpl(id::kChar));
  EXPECT_TRUE(message.emptyImpl());
  EXPECT_EQ(message.fieldCount(), 0u);
  EXPECT_EQ(hexOf(message), GetParam().header);
  EXPECT_TRUE(message.add(id::kString, "again"));
  EXPECT_EQ(textOf(message, id::kString), "again");
}

// Erasing from a message that holds, in this order, kInt kString kChar kDouble kBuffer.
struct EraseCase {
  const char* name;
  Ids ids;
  bool result;
  Ids left;
};

const EraseCase kEraseCases[] = {
    {"Nothing", {}, true, {id::kInt, id::kString, id::kChar, id::kDouble, id::kBuffer}},
    {"First", {id::kInt}, true, {id::kString, id::kChar, id::kDouble, id::kBuffer}},
    {"Last", {id::kBuffer}, true, {id::kInt, id::kString, id::kChar, id::kDouble}},
    {"Neighbours", {id::kString, id::kChar}, true, {id::kInt, id::kDouble, id::kBuffer}},
    {"NeighboursBackwards", {id::kChar, id::kString}, true, {id::kInt, id::kDouble, id::kBuffer}},
    {"Apart", {id::kDouble, id::kInt}, true, {id::kString, id::kChar, id::kBuffer}},
    {"TwoRuns", {id::kBuffer, id::kInt, id::kDouble, id::kString}, true, {id::kChar}},
    {"All", {id::kBuffer, id::kDouble, id::kChar, id::kString, id::kInt}, true, {}},
    {"OneAbsent", {id::kString, id::kInt2, id::kDouble}, false, {id::kInt, id::kChar, id::kBuffer}},
    {"OneUnknown", {id::kUnknown, id::kChar}, false, {id::kInt, id::kString, id::kDouble, id::kBuffer}},
    {"OnlyAbsent", {id::kInt2, id::kBeyond}, false, {id::kInt, id::kString, id::kChar, id::kDouble, id::kBuffer}},
    {"Repeated", {id::kChar, id::kChar}, true, {id::kInt, id::kString, id::kDouble, id::kBuffer}},
    {"RepeatedAmongOthers", {id::kChar, id::kInt, id::kString, id::kChar, id::kInt}, true, {id::kDouble, id::kBuffer}},
    {"RepeatedAndAbsent", {id::kChar, id::kChar, id::kInt2}, false, {id::kInt, id::kString, id::kDouble, id::kBuffer}},
};

TEST_P(Encodings, EraseSeveralFields) {
  const auto makeFrom = [](MD_Message& message, const Ids& ids) {
    for (const std::uint16_t id : ids) {
      switch (id) {
        case id::kInt:
          message.add(id, 70000);
          break;
        case id::kString:
          message.add(id, "IBM");
          break;
        case id::kChar:
          message.add(id, 'x');
          break;
        case id::kDouble:
          message.add(id, 1.25);
          break;
        case id::kBuffer:
          message.add(id, bufferOf("raw"));
          break;
      }
    }
  };
  const Ids all = {id::kInt, id::kString, id::kChar, id::kDouble, id::kBuffer};
  for (const EraseCase& row : kEraseCases) {
    SCOPED_TRACE(row.name);
    MD_Message& expected = make();
    makeFrom(expected, row.left);
    const auto isAsExpected = [&](MD_Message& message) {
      EXPECT_EQ(hexOf(message), hexOf(expected));
      EXPECT_EQ(idsOf(message), row.left);
      EXPECT_EQ(message.fieldCount(), row.left.size());
      for (const std::uint16_t id : all) {
        const bool isLeft = std::count(row.left.begin(), row.left.end(), id) != 0;
        EXPECT_EQ(message.existsImpl(id), isLeft);
        MD_Variant value;
        EXPECT_EQ(message.get(id, value), isLeft);
        MD_Variant original;
        static_cast<void>(expected.get(id, original));
        EXPECT_EQ(value, original);
      }
      // What was erased can be added again.
      makeFrom(message, all);
      EXPECT_EQ(message.fieldCount(), all.size());
    };
    CapturedErrors errors;
    MD_Message& byArray = make();
    makeFrom(byArray, all);
    EXPECT_EQ(byArray.eraseArrayImpl(row.ids), row.result);
    isAsExpected(byArray);

    const std::set<std::uint16_t> set(row.ids.begin(), row.ids.end());
    MD_Message& bySet = make();
    makeFrom(bySet, all);
    EXPECT_EQ(bySet.eraseSetImpl(set), row.result);
    isAsExpected(bySet);
    EXPECT_EQ(errors.take(), "");
  }
}

TEST_P(Encodings, EraseSeveralFieldsOfAnEmptyMessage) {
  MD_Message& message = make();
  EXPECT_EQ(message.eraseArrayImpl({}), GetParam().erasingNothingFromAnEmptyMessage);
  EXPECT_EQ(message.eraseSetImpl({}), GetParam().erasingNothingFromAnEmptyMessage);
  EXPECT_FALSE(message.eraseArrayImpl({id::kInt}));
  EXPECT_FALSE(message.eraseSetImpl({id::kInt}));
  EXPECT_EQ(hexOf(message), GetParam().header);
}

TEST_P(Encodings, EraseAnyOfManyFields) {
  std::string dictionary;
  constexpr std::uint16_t kFields = 300;
  for (std::uint16_t id = 1; id <= kFields; ++id) {
    dictionary += "F" + std::to_string(id) + " " + std::to_string(id) + (id % 3 == 0 ? " STRING\n" : " INT\n");
  }
  loadDictionary(dictionary);
  const auto add = [](MD_Message& message, std::uint16_t id) {
    return id % 3 == 0 ? message.add(id, std::string(id % 50, 'x')) : message.add(id, id * 1000);
  };
  for (const unsigned step : {2u, 3u, 7u, 64u}) {
    SCOPED_TRACE(step);
    MD_Message& message = make();
    MD_Message& expected = make();
    Ids erased;
    for (std::uint16_t id = 1; id <= kFields; ++id) {
      ASSERT_TRUE(add(message, id));
      if (id % step == 0 || id % step == 1) {
        erased.insert(erased.begin() + id % (static_cast<int>(erased.size()) + 1), id);
      } else {
        add(expected, id);
      }
    }
    EXPECT_TRUE(message.eraseArrayImpl(erased));
    EXPECT_EQ(hexOf(message), hexOf(expected));
    EXPECT_EQ(idsOf(message), idsOf(expected));
    EXPECT_EQ(message.fieldCount(), expected.fieldCount());
    for (const std::uint16_t id : idsOf(expected)) {
      MD_Variant value;
      MD_Variant original;
      EXPECT_TRUE(message.get(id, value));
      EXPECT_TRUE(expected.get(id, original));
      EXPECT_EQ(value, original);
    }
  }
}

TEST_P(Encodings, CloneIntoAnIndependentMessage) {
  MD_Message& message = make();
  fill(message);
  const std::string before = hexOf(message);
  auto copy = message.clone();
  EXPECT_TRUE(isOfThisKind(*copy));
  EXPECT_EQ(hexOf(*copy), before);
  EXPECT_EQ(copy->fieldCount(), 9u);
  EXPECT_NE(copy->getBinary(), message.getBinary());

  EXPECT_TRUE(copy->eraseImpl(id::kString));
  EXPECT_TRUE(copy->update(id::kInt, 12345));
  EXPECT_EQ(hexOf(message), before);
  EXPECT_EQ(message.fieldCount(), 9u);
  EXPECT_EQ(textOf(message, id::kString), "IBM");

  message.clearImpl();
  EXPECT_EQ(intOf(*copy, id::kInt), 12345);
  EXPECT_EQ(copy->fieldCount(), 8u);
}

TEST_P(Encodings, CloneAnEmptyMessage) {
  const auto copy = makeOwned()->clone();
  EXPECT_EQ(hexOf(*copy), GetParam().header);
  EXPECT_EQ(copy->fieldCount(), 0u);
  EXPECT_TRUE(copy->add(id::kInt, 5));
  EXPECT_EQ(intOf(*copy, id::kInt), 5);
}

TEST_P(Encodings, CreateAnEmptyMessageOfTheirOwnKind) {
  MD_Message& message = make();
  fill(message);
  const auto other = message.createEmpty();
  EXPECT_TRUE(isOfThisKind(*other));
  EXPECT_EQ(hexOf(*other), GetParam().header);
  EXPECT_EQ(other->fieldCount(), 0u);
  EXPECT_EQ(message.fieldCount(), 9u);
}

TEST_P(Encodings, MoveTheirContentsToANewMessage) {
  MD_Message& message = make();
  fill(message);
  const std::string before = hexOf(message);
  const std::uint8_t* const bytes = message.getBinary();
  {
    // The next objects of the pools were used by another encoding.
    const auto other = MD_Message::createFromPB(GetParam().code == 70 ? 6 : 70);
    fill(*other);
  }
  const auto moved = message.moveToNew();
  EXPECT_TRUE(isOfThisKind(*moved));
  EXPECT_EQ(hexOf(*moved), before);
  EXPECT_EQ(moved->getBinary(), bytes);
  EXPECT_EQ(moved->fieldCount(), 9u);
  EXPECT_EQ(textOf(*moved, id::kString), "IBM");

  message.clearImpl();
  EXPECT_EQ(hexOf(message), GetParam().header);
  EXPECT_EQ(message.fieldCount(), 0u);
  EXPECT_FALSE(message.existsImpl(id::kString));
  EXPECT_TRUE(message.add(id::kString, "again"));
  EXPECT_EQ(textOf(message, id::kString), "again");
  EXPECT_EQ(textOf(*moved, id::kString), "IBM");
}

TEST_P(Encodings, ClearAMessageThatWasLeftWithoutMemory) {
  MD_Message& message = make();
  fill(message);
  const FreshNextBuffer fresh;
  const auto moved = message.moveToNew();
  message.clearImpl();
  EXPECT_EQ(hexOf(message), GetParam().header);
  EXPECT_TRUE(message.add(id::kInt, 5));
  EXPECT_EQ(intOf(message, id::kInt), 5);
}

TEST_P(Encodings, ClearKeepsTheMemory) {
  MD_Message& message = make();
  for (int i = 0; i < 4; ++i) {
    message.add(id::kString, std::string(250, 'x'));
    message.add(id::kString2, std::string(250, 'x'));
    message.add(id::kBuffer, bufferOf(std::string(250, 'x')));
    message.add(id::kBuffer2, bufferOf(std::string(250, 'x')));
    message.add(id::kInt, i);
    const std::uint8_t* const bytes = message.getBinary();
    message.clearImpl();
    EXPECT_EQ(message.getBinary(), bytes);
    EXPECT_EQ(hexOf(message), GetParam().header);
    EXPECT_TRUE(message.emptyImpl());
    EXPECT_EQ(message.fieldCount(), 0u);
    EXPECT_FALSE(message.existsImpl(id::kInt));
    EXPECT_EQ(idsOf(message), Ids());
  }
}

TEST_P(Encodings, ADestroyedMessagesMemoryServesTheNext) {
  const std::uint8_t* bytes = nullptr;
  {
    const auto message = makeOwned();
    fill(*message);
    bytes = message->getBinary();
  }
  const auto message = makeOwned();
  EXPECT_EQ(message->getBinary(), bytes);
  EXPECT_EQ(hexOf(*message), GetParam().header);
  EXPECT_EQ(message->fieldCount(), 0u);
  EXPECT_FALSE(message->existsImpl(id::kString));
}

TEST_P(Encodings, RefuseNullBytes) {
  MD_Message& message = make();
  fill(message);
  const std::string before = hexOf(message);
  EXPECT_FALSE(message.setBinaryImpl(nullptr, 0));
  EXPECT_FALSE(message.setBinaryImpl(nullptr, 100));
  EXPECT_EQ(hexOf(message), before);
  EXPECT_EQ(message.fieldCount(), 9u);
}

TEST_P(Encodings, ReplaceTheirContentsByReceivedBytes) {
  MD_Message& message = make();
  fill(message);
  const auto bytes = wire({record(id::kInt2, 5), record(id::kString2, "MSFT")});
  const HeapBlock block(bytes);
  EXPECT_TRUE(message.setBinaryImpl(block.data(), block.size()));
  EXPECT_EQ(hexOf(message), toHex(bytes));
  EXPECT_EQ(message.fieldCount(), 2u);
  EXPECT_FALSE(message.existsImpl(id::kString));
  EXPECT_EQ(textOf(message, id::kString2), "MSFT");
}

TEST_P(Encodings, AreEmptyOfZeroReceivedBytes) {
  MD_Message& message = make();
  fill(message);
  const std::uint8_t byte = 9;
  EXPECT_TRUE(message.setBinaryImpl(&byte, 0));
  EXPECT_EQ(message.getSizeImpl(), 0u);
  EXPECT_TRUE(message.emptyImpl());
  EXPECT_EQ(message.fieldCount(), 0u);
  EXPECT_EQ(idsOf(message), Ids());
  EXPECT_FALSE(message.existsImpl(id::kInt));
  EXPECT_FALSE(message.eraseImpl(id::kInt));
  EXPECT_TRUE(message.begin() == message.end());
  EXPECT_EQ(message.clone()->getSizeImpl(), 0u);

  message.clearImpl();
  EXPECT_EQ(hexOf(message), GetParam().header);
}

TEST_P(Encodings, AddBehindAWholeHeaderWhateverWasReceivedOfIt) {
  const Bytes header = fromHex(GetParam().header);
  for (std::size_t count = 0; count <= header.size(); ++count) {
    SCOPED_TRACE(count);
    const auto message = parsed(Bytes(header.begin(), header.begin() + static_cast<std::ptrdiff_t>(count)));
    EXPECT_TRUE(message->emptyImpl());
    EXPECT_TRUE(message->add(id::kInt, 70000));
    EXPECT_EQ(hexOf(*message), toHex(wire({record(id::kInt, 70000)})));
    EXPECT_EQ(intOf(*message, id::kInt), 70000);
    EXPECT_TRUE(message->eraseImpl(id::kInt));
    EXPECT_EQ(hexOf(*message), GetParam().header);
  }
}

TEST_P(Encodings, TakeTheHeaderAsItStands) {
  Bytes bytes = wire({record(id::kInt, 70000)});
  std::fill_n(bytes.begin(), headerBytes(), std::uint8_t{0xEE});
  const auto message = parsed(bytes);
  EXPECT_EQ(hexOf(*message), toHex(bytes));
  EXPECT_EQ(message->getPB(), GetParam().code);
  EXPECT_EQ(intOf(*message, id::kInt), 70000);
  message->clearImpl();
  EXPECT_EQ(hexOf(*message), toHex(Bytes(headerBytes(), 0xEE)));
  EXPECT_EQ(hexOf(make()), GetParam().header);
}

TEST_P(Encodings, TakeTheirOwnBytes) {
  MD_Message& message = make();
  fill(message);
  const std::string before = hexOf(message);
  EXPECT_TRUE(message.setBinaryImpl(message.getBinary(), message.getSizeImpl()));
  EXPECT_EQ(hexOf(message), before);
  EXPECT_EQ(message.fieldCount(), 9u);
  EXPECT_EQ(textOf(message, id::kString), "IBM");
}

TEST_P(Encodings, TakeAPartOfTheirOwnBytes) {
  const Bytes first = record(id::kString, "something that is cut off");
  const Bytes rest = wire({record(id::kInt, 70000), record(id::kChar, 'x')});
  MD_Message& message = make();
  message.add(id::kString, "something that is cut off");
  message.add(id::kInt, 70000);
  message.add(id::kChar, 'x');
  // The last bytes of the first record are read as the header.
  EXPECT_TRUE(message.setBinaryImpl(message.getBinary() + first.size(), static_cast<std::uint32_t>(rest.size())));
  EXPECT_EQ(idsOf(message), (Ids{id::kInt, id::kChar}));
  EXPECT_EQ(message.fieldCount(), 2u);
  EXPECT_EQ(intOf(message, id::kInt), 70000);
  EXPECT_FALSE(message.existsImpl(id::kString));
  EXPECT_EQ(message.getSizeImpl(), rest.size());
}

TEST_P(Encodings, AddAViewIntoTheSameMessage) {
  const FreshNextBuffer fresh;
  std::string text(254, 'x');
  std::iota(text.begin(), text.end(), '\1');
  const std::string bytes = text + '\xFF';
  MD_Message& message = make();
  message.add(id::kString, text);
  message.add(id::kBuffer, bufferOf(bytes));
  message.add(id::kChar, 'x');

  // The first add fits, the second grows the buffer.
  Buffer buffer;
  EXPECT_TRUE(message.get(id::kBuffer, buffer));
  EXPECT_TRUE(message.add(id::kBuffer2, buffer));
  EXPECT_LT(message.getSizeImpl(), 1024u);
  String view;
  EXPECT_TRUE(message.get(id::kString, view));
  EXPECT_TRUE(message.add(id::kString2, view));
  EXPECT_GT(message.getSizeImpl(), 1024u);

  EXPECT_EQ(textOf(message, id::kString), text);
  EXPECT_EQ(textOf(message, id::kString2), text);
  EXPECT_TRUE(message.get(id::kBuffer2, buffer));
  EXPECT_EQ(rawOf(buffer), bytes);
}

TEST_P(Encodings, AddABufferThatIsAViewWhileTheMessageGrows) {
  const FreshNextBuffer fresh;
  const std::string bytes(255, '\xA5');
  MD_Message& message = make();
  message.add(id::kBuffer, bufferOf(bytes));
  message.add(id::kString, std::string(254, 'x'));
  message.add(id::kString2, std::string(254, 'y'));
  Buffer buffer;
  EXPECT_TRUE(message.get(id::kBuffer, buffer));
  EXPECT_TRUE(message.update(id::kBuffer2, buffer));
  EXPECT_GT(message.getSizeImpl(), 1024u);
  EXPECT_TRUE(message.get(id::kBuffer2, buffer));
  EXPECT_EQ(rawOf(buffer), bytes);
}

// Updates of a field with a view into the same message, which holds a string before and one after it.
struct OwnViewCase {
  const char* name;
  std::uint16_t source;
  std::size_t first;
  std::size_t count;
};

const OwnViewCase kOwnViewCases[] = {
    {"ItselfWhole", id::kBuffer, 0, 12},
    {"ItselfShortened", id::kBuffer, 0, 5},
    {"ItselfFromWithin", id::kBuffer, 3, 9},
    {"ItselfAndBytesBehindInPlace", id::kBuffer, 4, 12},
    {"ItselfAndBytesBehindShortened", id::kBuffer, 8, 9},
    {"ItselfAndBytesBehindLengthened", id::kBuffer, 4, 20},
    {"BytesBefore", id::kString, 0, 20},
    {"BytesBeforeInPlace", id::kString, 5, 12},
    {"BytesBehind", id::kString2, 0, 20},
    {"BytesBehindInPlace", id::kString2, 2, 12},
    {"Nothing", id::kString2, 0, 0},
};

TEST_P(Encodings, UpdateWithAViewIntoTheSameMessage) {
  for (const OwnViewCase& row : kOwnViewCases) {
    SCOPED_TRACE(row.name);
    MD_Message& message = make();
    message.add(id::kString, "abcdefghijklmnopqrstuvwxyz");
    message.add(id::kBuffer, bufferOf("0123456789AB"));
    message.add(id::kString2, "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    std::uint8_t type = 0;
    std::uint32_t size = 0;
    const std::uint8_t* source = message.fieldData(row.source, type, size);
    ASSERT_NE(source, nullptr);
    const Buffer view(source + row.first, static_cast<std::uint16_t>(row.count));
    const std::string expected = rawOf(view);

    EXPECT_TRUE(message.update(id::kBuffer, view));

    Buffer read;
    EXPECT_TRUE(message.get(id::kBuffer, read));
    EXPECT_EQ(rawOf(read), expected);
    EXPECT_EQ(textOf(message, id::kString), "abcdefghijklmnopqrstuvwxyz");
    EXPECT_EQ(textOf(message, id::kString2), "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    EXPECT_EQ(message.fieldCount(), 3u);
  }
}

TEST_P(Encodings, UpdateAStringWithAPartOfItself) {
  MD_Message& message = make();
  message.add(id::kString, "abcdef");
  message.add(id::kInt, 70000);
  String view;
  EXPECT_TRUE(message.get(id::kString, view));
  EXPECT_TRUE(message.update(id::kString, String(view.data + 2, 4)));
  EXPECT_EQ(textOf(message, id::kString), "cdef");
  EXPECT_TRUE(message.get(id::kString, view));
  EXPECT_TRUE(message.update(id::kString, view));
  EXPECT_EQ(textOf(message, id::kString), "cdef");
  EXPECT_EQ(intOf(message, id::kInt), 70000);
}

TEST_P(Encodings, UpdateWithAViewWhileTheMessageGrows) {
  const FreshNextBuffer fresh;
  std::string text(254, 'x');
  std::iota(text.begin(), text.end(), '\1');
  MD_Message& message = make();
  message.add(id::kBuffer, bufferOf(""));
  message.add(id::kString, text);
  message.add(id::kBuffer2, bufferOf(std::string(255, 'y')));
  message.add(id::kString2, std::string(254, 'z'));
  EXPECT_LT(message.getSizeImpl(), 1024u);
  String view;
  EXPECT_TRUE(message.get(id::kString, view));
  EXPECT_TRUE(message.update(id::kBuffer, bufferOf(view)));
  EXPECT_GT(message.getSizeImpl(), 1024u);
  Buffer read;
  EXPECT_TRUE(message.get(id::kBuffer, read));
  EXPECT_EQ(rawOf(read), text);
  EXPECT_EQ(textOf(message, id::kString), text);
}

TEST_P(Encodings, ListFieldsInWireOrder) {
  MD_Message& message = make();
  message.add(id::kString, "x");
  message.add(id::kChar, 'x');
  message.add(id::kHigh, 70000);
  message.add(id::kInt, 70000);
  EXPECT_EQ(idsOf(message), (Ids{id::kString, id::kChar, id::kHigh, id::kInt}));
  message.eraseImpl(id::kChar);
  message.update(id::kString, "longer");
  message.add(id::kChar, 'y');
  message.update(id::kHigh, 80000);
  EXPECT_EQ(idsOf(message), (Ids{id::kHigh, id::kInt, id::kString, id::kChar}));
}

TEST_P(Encodings, ShowAFieldsTypeLengthAndBytes) {
  MD_Message& message = make();
  fill(message);
  const auto check = [&](std::uint16_t id, std::uint8_t expectedType, const std::string& expected) {
    SCOPED_TRACE(id);
    std::uint8_t type = 255;
    std::uint32_t size = 99999;
    const std::uint8_t* const data = message.fieldData(id, type, size);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(type, expectedType);
    ASSERT_EQ(size, expected.size());
    EXPECT_EQ(std::string(data, data + size), expected);
    EXPECT_GE(data, message.getBinary());
    EXPECT_LE(data + size, message.getBinary() + message.getSizeImpl());
  };
  check(id::kChar, 1, "A");
  check(id::kString, 6, std::string("IBM\0", 4));
  check(id::kBuffer, 14, std::string("\x01\x00\xFF", 3));
  check(id::kDateTime, 20, rawOf(MD_DateTime(20240115, 93000000, -300)));
  check(id::kEpochNS, 22, rawOf(MD_EpochNS(1705310000123456789)));

  std::uint8_t type = 255;
  std::uint32_t size = 99999;
  for (const std::uint16_t id : {id::kInt2, id::kUnknown, id::kBeyond}) {
    EXPECT_EQ(message.fieldData(id, type, size), nullptr);
  }
  EXPECT_EQ(type, 255);
  EXPECT_EQ(size, 99999u);
}

TEST_P(Encodings, ReadTheLaterOfTwoRecordsOfOneField) {
  const auto bytes = wire({record(id::kInt, 70001), record(id::kChar, 'x'), record(id::kInt, 70002)});
  CapturedErrors errors;
  const auto message = parsed(bytes);
  EXPECT_EQ(hexOf(*message), toHex(bytes));
  EXPECT_EQ(idsOf(*message), (Ids{id::kInt, id::kChar, id::kInt}));
  EXPECT_EQ(message->fieldCount(), 2u);
  EXPECT_EQ(intOf(*message, id::kInt), 70002);
  EXPECT_EQ(errors.take(), "");
}

// The earlier record of a repeated field is found again when re-indexing passes over it, and only then.
TEST_P(Encodings, ErasingTheLaterOfTwoRecordsLeavesTheEarlierUnindexed) {
  const auto message = parsed(wire({record(id::kChar, 'x'), record(id::kInt, 70001), record(id::kInt, 70002)}));
  EXPECT_TRUE(message->eraseImpl(id::kInt));
  EXPECT_FALSE(message->existsImpl(id::kInt));
  EXPECT_EQ(idsOf(*message), (Ids{id::kChar, id::kInt}));
  EXPECT_EQ(message->fieldCount(), 1u);

  EXPECT_TRUE(message->eraseImpl(id::kChar));
  EXPECT_EQ(message->fieldCount(), 1u);
  EXPECT_EQ(intOf(*message, id::kInt), 70001);
}

TEST_P(Encodings, BorrowFromTheirOwnPools) {
  const Pools pools = newPools();
  const Bytes bytes = wire({record(id::kInt, 70000)});
  const void* data = nullptr;
  {
    const auto message = MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), pools);
    ASSERT_TRUE(isOfThisKind(*message));
    data = message->getBinary();
    EXPECT_EQ(intOf(*message, id::kInt), 70000);
  }
  const ReusableContainerWrapper<MsgData> next(true, pools.first);
  if (GetParam().takesOwnPools) {
    EXPECT_EQ(next->data(), data);
    EXPECT_EQ(next->capacity(), 1024u);
  } else {
    EXPECT_EQ(next->capacity(), 0u);
  }
}

TEST_P(Encodings, OwnPoolsMoveAlongWithTheContents) {
  const Pools pools = newPools();
  const auto next = [&] {
    return static_cast<const void*>(ReusableContainerWrapper<MsgData>(true, pools.first)->data());
  };
  const Bytes bytes = wire({record(id::kInt, 70000)});
  auto message = MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), pools);
  const void* const data = message->getBinary();
  const auto copy = message->clone();
  auto moved = message->moveToNew();
  EXPECT_EQ(moved->getBinary(), data);
  message.reset();
  EXPECT_EQ(next(), nullptr);
  moved.reset();
  EXPECT_EQ(next(), GetParam().takesOwnPools ? data : nullptr);
  EXPECT_EQ(intOf(*copy, id::kInt), 70000);
}

TEST_P(Encodings, OwnPoolsLiveAsLongAsTheirMessages) {
  const Bytes bytes = wire({record(id::kInt, 70000)});
  std::unique_ptr<MD_Message> message;
  {
    const Pools pools = newPools();
    message = MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), pools);
  }
  EXPECT_TRUE(message->add(id::kString, "IBM"));
  EXPECT_EQ(textOf(*message, id::kString), "IBM");
}

// Field tables that were made for a smaller dictionary are in the pools when a larger one is loaded.
TEST_P(Encodings, FollowADictionaryThatHasGrown) {
  loadDictionary("A 1 INT\n");
  {
    const auto one = makeOwned();
    const auto two = makeOwned();
    const auto copied = one->clone();
  }
  std::string dictionary;
  for (int id = 1; id <= 500; ++id) {
    dictionary += "F" + std::to_string(id) + " " + std::to_string(id) + " INT\n";
  }
  loadDictionary(dictionary);
  MD_Message& message = make();
  for (std::uint16_t id = 500; id > 0; --id) {
    ASSERT_TRUE(message.add(id, id + 70000));
  }
  const auto received = parsed(bytesOf(message));
  const auto copy = message.clone();
  for (MD_Message* each : {&message, received.get(), copy.get()}) {
    EXPECT_EQ(each->fieldCount(), 500u);
    for (std::uint16_t id = 1; id <= 500; ++id) {
      ASSERT_EQ(intOf(*each, id), id + 70000);
    }
  }
}

// A dictionary that repeats an id assigns more dense indexes than it has entries.
TEST_P(Encodings, FollowADictionaryThatRepeatsIds) {
  loadDictionary("A 1 INT\nB 1 INT\nC 1 INT\nD 2 INT\nE 2 INT\nF 3 INT\n");
  MD_Message& message = make();
  EXPECT_TRUE(message.add(3, 70003));
  EXPECT_TRUE(message.add(1, 70001));
  EXPECT_TRUE(message.add(2, 70002));
  EXPECT_EQ(message.fieldCount(), 3u);
  EXPECT_EQ(intOf(message, 1), 70001);
  EXPECT_EQ(intOf(message, 2), 70002);
  EXPECT_EQ(intOf(message, 3), 70003);
}

/// Everything that can be seen of a message without changing it, of every field with every type.
std::string describe(const MD_Message& message) {
  std::ostringstream out;
  out << hexOf(message) << '\n' << message.fieldCount() << (message.emptyImpl() ? " empty" : "");
  Ids ids = idsOf(message);
  for (const std::uint16_t id : ids) {
    out << ' ' << id;
  }
  for (const ValueType& type : valueTypes()) {
    ids.push_back(type.field);
  }
  for (const std::uint16_t id : ids) {
    out << '\n' << id << (message.existsImpl(id) ? " present" : " absent");
    std::uint8_t type = 0;
    std::uint32_t size = 0;
    if (const std::uint8_t* data = message.fieldData(id, type, size)) {
      out << ' ' << +type << ' ' << size << " at " << data - message.getBinary();
    }
    for (const ValueType& valueType : valueTypes()) {
      std::string raw;
      if (valueType.get(message, id, 0, raw)) {
        out << ' ' << valueType.name << ' ' << raw;
      }
    }
  }
  out << '\n' << message;
  return out.str();
}

/// A message of received bytes in a buffer that held nothing but `old` before.
std::unique_ptr<MD_Message> parseOver(std::uint8_t code, std::uint8_t old, const Bytes& bytes) {
  auto message = parse(code, Bytes(600, old));
  const HeapBlock block(bytes);
  EXPECT_TRUE(message->setBinaryImpl(block.data(), block.size()));
  return message;
}

/// Tries every operation on a message of received bytes.
void exercise(std::uint8_t code, const Bytes& bytes) {
  const auto message = parseOver(code, 0xFF, bytes);
  const std::string seen = describe(*message);
  // Bytes of the buffer after the end are neither read nor shown.
  ASSERT_EQ(describe(*parseOver(code, 0, bytes)), seen);
  // Parsing the bytes of a message results in the same message.
  ASSERT_EQ(describe(*parse(code, bytesOf(*message))), seen);
  ASSERT_EQ(describe(*message->clone()), seen);

  const auto changed = message->clone();
  for (const ValueType& type : valueTypes()) {
    EXPECT_TRUE(!type.update(*changed, type.field, type.lastSample()) || changed->existsImpl(type.field));
    type.add(*changed, type.otherField, type.lastSample());
  }
  describe(*changed);
  const Ids ids = idsOf(*message);
  for (const std::uint16_t id : ids) {
    const auto erased = message->clone();
    EXPECT_EQ(erased->eraseImpl(id), message->existsImpl(id));
    describe(*erased);
  }
  const auto erased = message->clone();
  erased->eraseArrayImpl(ids);
  describe(*erased);
}

TEST_P(Encodings, SurviveEveryPrefixOfAMessage) {
  MD_Message& message = make();
  fill(message);
  const Bytes whole = bytesOf(message);
  CapturedErrors errors;
  const RecordedAssertions assertions;
  for (std::size_t count = 0; count <= whole.size(); ++count) {
    SCOPED_TRACE(count);
    exercise(GetParam().code, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(count)));
    errors.take();
    assertions.entries().clear();
  }
}

TEST_P(Encodings, SurviveEveryChangedByte) {
  MD_Message& message = make();
  fill(message);
  const Bytes whole = bytesOf(message);
  CapturedErrors errors;
  const RecordedAssertions assertions;
  for (std::size_t position = 0; position < whole.size(); ++position) {
    for (int change = 1; change < 256; ++change) {
      Bytes bytes = whole;
      bytes[position] = static_cast<std::uint8_t>(bytes[position] ^ change);
      // Every value is parsed; everything else is tried on each single bit and on the extremes.
      if ((change & (change - 1)) == 0 || bytes[position] == 0 || bytes[position] == 255) {
        SCOPED_TRACE(toHex(bytes));
        exercise(GetParam().code, bytes);
      } else {
        const auto received = parsed(bytes);
        ASSERT_EQ(hexOf(*parsed(bytesOf(*received))), hexOf(*received)) << toHex(bytes);
      }
      errors.take();
      assertions.entries().clear();
    }
  }
}

TEST_P(Encodings, SurviveEveryLengthOfRepeatedBytes) {
  CapturedErrors errors;
  const RecordedAssertions assertions;
  for (const int value : {0, 1, 6, 10, 14, 60, 70, 127, 128, 255}) {
    for (std::size_t count = 0; count < 40; ++count) {
      SCOPED_TRACE(std::to_string(count) + " bytes " + std::to_string(value));
      exercise(GetParam().code, Bytes(count, static_cast<std::uint8_t>(value)));
      errors.take();
      assertions.entries().clear();
    }
  }
}

// No assertion and no exception comes of parsing alone, whatever the bytes.
TEST_P(Encodings, ParseAnyBytesWithoutAnAssertion) {
  MD_Message& message = make();
  fill(message);
  const Bytes whole = bytesOf(message);
  CapturedErrors errors;
  const RecordedAssertions assertions;
  for (std::size_t position = 0; position < whole.size(); ++position) {
    Bytes bytes = whole;
    bytes[position] = static_cast<std::uint8_t>(~bytes[position]);
    parsed(bytes);
    parsed(Bytes(whole.begin() + static_cast<std::ptrdiff_t>(position), whole.end()));
  }
  EXPECT_EQ(assertions.entries(), std::vector<std::string>());
}

TEST_P(Encodings, ParseAMegabyteOfGarbage) {
  Bytes bytes(1 << 20);
  std::uint32_t state = 1;
  for (std::uint8_t& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  CapturedErrors errors;
  const auto message = parsed(bytes);
  EXPECT_LT(message->getSizeImpl(), bytes.size());
  EXPECT_EQ(hexOf(*parsed(bytesOf(*message))), hexOf(*message));
}

/// Messages that fill the first memory of a buffer.
class FullBuffers : public Encodings {
 protected:
  static constexpr std::uint32_t kStepBytes = 1024;

  FullBuffers() {
    std::string dictionary = kDictionary;
    for (int id = 1001; id <= 1008; ++id) {
      dictionary += "F" + std::to_string(id) + " " + std::to_string(id) + " BUFFER\n";
    }
    loadDictionary(dictionary);
  }

  static std::uint32_t bufferHeadBytes() { return GetParam().code == 6 ? 3 : GetParam().code == 1 ? 6 : 8; }

  /// A message of buffers that is `sizeBytes` long.
  static std::unique_ptr<MD_Message> padded(std::uint32_t sizeBytes) {
    auto message = makeOwned();
    for (std::uint16_t id = 1001; message->getSizeImpl() != sizeBytes; ++id) {
      const std::uint32_t free = sizeBytes - message->getSizeImpl() - bufferHeadBytes();
      EXPECT_TRUE(message->add(id, bufferOf(std::string(free > 240 ? 220 : free, 'x'))));
    }
    return message;
  }
};

INSTANTIATE_TEST_SUITE_P(Each, FullBuffers, testing::ValuesIn(kEncodings),
                         [](const auto& row) { return std::string(row.param.name); });

// A sanitizer reports writes after the memory.
TEST_P(FullBuffers, TakeValuesUpToTheirLastByte) {
  const FreshNextBuffer fresh;
  for (const ValueType& type : valueTypes()) {
    for (std::size_t sample = 0; sample < type.sampleCount; ++sample) {
      const auto alone = makeOwned();
      ASSERT_TRUE(type.add(*alone, type.field, sample));
      const Bytes whole = bytesOf(*alone);
      const Bytes record(whole.begin() + static_cast<std::ptrdiff_t>(headerBytes()), whole.end());
      for (std::uint32_t left = 0; left < 10; ++left) {
        SCOPED_TRACE(std::string(type.name) + ", sample " + std::to_string(sample) + ", " + std::to_string(left) +
                     " bytes left");
        const void* memory = nullptr;
        {
          const auto message = padded(kStepBytes - left - static_cast<std::uint32_t>(record.size()));
          memory = message->getBinary();
          Bytes expected = bytesOf(*message);
          expected.insert(expected.end(), record.begin(), record.end());
          ASSERT_TRUE(type.add(*message, type.field, sample));
          EXPECT_EQ(hexOf(*message), toHex(expected));
          std::string raw;
          EXPECT_TRUE(type.get(*message, type.field, type.lastSample() - sample, raw));
          EXPECT_EQ(raw, type.raw(sample));
          EXPECT_EQ(message->getBinary(), memory) << "has moved";
        }
        const ReusableContainerWrapper<MsgData> buffer(true, nullptr);
        ASSERT_EQ(static_cast<const void*>(buffer->data()), memory);
        EXPECT_EQ(buffer->capacity(), kStepBytes) << "has grown";
      }
    }
  }
}

// A sanitizer reports reads after the last byte of a full buffer.
TEST_P(FullBuffers, AreNotReadBehindTheirEnd) {
  for (std::uint32_t tailBytes = 1; tailBytes <= 12; ++tailBytes) {
    SCOPED_TRACE(tailBytes);
    const auto whole = padded(kStepBytes - tailBytes);
    const std::size_t fields = whole->fieldCount();
    ASSERT_TRUE(whole->add(id::kInt64, std::int64_t{5}));
    Bytes bytes = bytesOf(*whole);
    bytes.resize(kStepBytes);
    CapturedErrors errors;
    const FreshNextBuffer fresh;
    const auto message = parsed(bytes);
    std::int64_t value = 7;
    EXPECT_EQ(message->get(id::kInt64, value),
              bufferHeadBytes() + 8 <= tailBytes || (GetParam().code == 1 && tailBytes >= 10));
    EXPECT_EQ(value, message->get(id::kInt64, value) ? 5 : 7);
    EXPECT_GE(message->fieldCount(), fields);
    EXPECT_LE(idsOf(*message).size(), fields + 1);
    EXPECT_TRUE(message->update(id::kInt64, std::int64_t{6}));
    EXPECT_TRUE(message->get(id::kInt64, value));
    EXPECT_EQ(value, 6);
  }
}

}  // namespace
}  // namespace MD::test
