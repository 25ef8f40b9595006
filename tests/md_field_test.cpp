#include "md/md_field.h"

#include <cstddef>
#include <cstdint>

#include <array>
#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"
#include "support/scripted_message.h"

namespace MD {
namespace {

using test::Bytes;
using test::bytesOf;
using test::fromHex;

constexpr Field<char> CH{10};
constexpr Field<std::int32_t> QTY{300};
constexpr Field<std::int64_t> SEQ{20};
constexpr Field<float> VOLA{40};
constexpr Field<double> BID{22};
constexpr Field<MD_Message::String> SYMBOL{60};
constexpr Field<MD_Message::Buffer> BLOB{70};
constexpr Field<MD_DateTime> WHEN{80};
constexpr Field<MD_EpochNS> RECV{90};

static_assert(sizeof(Field<double>) == 2 && std::is_trivially_copyable_v<Field<double>>);
static_assert(BID.id() == 22 && BID.type() == DATATYPES::DOUBLE);
static_assert(std::is_same_v<Field<double>::value_type, double>);
static_assert(!std::is_convertible_v<std::uint16_t, Field<double>> &&
              !std::is_convertible_v<Field<double>, std::uint16_t>);

static_assert(std::is_same_v<decltype(std::declval<mInt&>().get(SYMBOL)), std::optional<std::string_view>>);
static_assert(std::is_same_v<decltype(std::declval<MD_Message&>().get(BLOB)), std::optional<MD_Message::Buffer>>);
static_assert(std::is_same_v<decltype(std::declval<MD_Message&>().get<double>(22)), std::optional<double>>);

template <class Encoding>
class FieldTest : public testing::Test {
 protected:
  FieldTest() { test::loadDictionary(test::kDictionary); }

  Encoding m_message;
};

/// The messages of an encoding through MD_Message.
template <class Encoding>
class ThroughBase {
 public:
  template <class T>
  auto get(T field) const {
    return m_base->get(field);
  }
  template <class T>
  auto getById(std::uint16_t id) const {
    return m_base->template get<T>(id);
  }
  template <class T, class Value>
  bool add(T field, const Value& value) {
    return m_base->add(field, value);
  }
  template <class T, class Value>
  bool update(T field, const Value& value) {
    return m_base->update(field, value);
  }
  template <class T, class Value>
  auto value_or(T field, Value value) const {
    return m_base->value_or(field, value);
  }
  Encoding& message() { return *static_cast<Encoding*>(m_base.get()); }

 private:
  std::unique_ptr<MD_Message> m_base = std::make_unique<Encoding>();
};

/// The same through their own class.
template <class Encoding>
class Own : public ThroughBase<Encoding> {
 public:
  template <class T>
  auto get(T field) const {
    return const_cast<Own*>(this)->message().get(field);
  }
  template <class T>
  auto getById(std::uint16_t id) const {
    return const_cast<Own*>(this)->message().template get<T>(id);
  }
  template <class T, class Value>
  bool add(T field, const Value& value) {
    return this->message().add(field, value);
  }
  template <class T, class Value>
  bool update(T field, const Value& value) {
    return this->message().update(field, value);
  }
  template <class T, class Value>
  auto value_or(T field, Value value) const {
    return const_cast<Own*>(this)->message().value_or(field, value);
  }
};

using Messages =
    testing::Types<Own<mInt>, Own<IterMap>, Own<MsgT>, ThroughBase<mInt>, ThroughBase<IterMap>, ThroughBase<MsgT>>;
TYPED_TEST_SUITE(FieldTest, Messages);

TYPED_TEST(FieldTest, GivesValuesOfEveryType) {
  TypeParam& message = this->m_message;
  const MD_DateTime when(20240603, 93'000'000, -300);
  const std::uint8_t bytes[] = {1, 0, 255};
  EXPECT_TRUE(message.add(CH, 'B'));
  EXPECT_TRUE(message.add(QTY, 300));
  EXPECT_TRUE(message.add(SEQ, std::int64_t{1} << 40));
  EXPECT_TRUE(message.add(VOLA, 0.25F));
  EXPECT_TRUE(message.add(BID, 184.15));
  EXPECT_TRUE(message.add(SYMBOL, "NEB/USD"));
  EXPECT_TRUE(message.add(BLOB, bytes));
  EXPECT_TRUE(message.add(WHEN, when));
  EXPECT_TRUE(message.add(RECV, MD_EpochNS(17)));

  EXPECT_EQ(message.get(CH), 'B');
  EXPECT_EQ(message.get(QTY), 300);
  EXPECT_EQ(message.get(SEQ), std::int64_t{1} << 40);
  EXPECT_EQ(message.get(VOLA), 0.25F);
  EXPECT_EQ(message.get(BID), 184.15);
  EXPECT_EQ(message.get(SYMBOL), "NEB/USD");
  EXPECT_EQ(message.get(BLOB), MD_Message::Buffer(bytes, 3));
  EXPECT_EQ(message.get(WHEN), when);
  EXPECT_EQ(message.get(RECV), MD_EpochNS(17));
  EXPECT_EQ(message.template getById<double>(22), 184.15);
  EXPECT_EQ(message.template getById<MD_Message::String>(60), "NEB/USD");
}

TYPED_TEST(FieldTest, GivesNothingForAbsentFieldsAndOtherTypes) {
  TypeParam& message = this->m_message;
  EXPECT_EQ(message.get(BID), std::nullopt);
  EXPECT_EQ(message.value_or(BID, 1.5), 1.5);
  EXPECT_EQ(message.value_or(SYMBOL, std::string_view("none")), "none");
  ASSERT_TRUE(message.add(QTY, 300));
  EXPECT_EQ(message.value_or(QTY, 1), 300);
  const test::CapturedErrors errors;
  EXPECT_EQ(message.get(Field<double>(300)), std::nullopt);
  EXPECT_EQ(message.template getById<double>(300), std::nullopt);
  EXPECT_EQ(message.template getById<std::int32_t>(300), 300);
  EXPECT_EQ(message.get(Field<double>(test::id::kUnknown)), std::nullopt);
}

TYPED_TEST(FieldTest, TakesValuesThatConvertWithoutLoss) {
  TypeParam& message = this->m_message;
  EXPECT_TRUE(message.update(BID, 300) && message.get(BID) == 300.0);
  EXPECT_TRUE(message.update(BID, 4'294'967'295U) && message.get(BID) == 4294967295.0);
  EXPECT_TRUE(message.update(BID, 0.5F) && message.get(BID) == 0.5);
  EXPECT_TRUE(message.update(VOLA, std::int16_t{-32768}) && message.get(VOLA) == -32768.0F);
  EXPECT_TRUE(message.update(QTY, std::uint16_t{65535}) && message.get(QTY) == 65535);
  EXPECT_TRUE(message.update(QTY, std::int8_t{-1}) && message.get(QTY) == -1);
  EXPECT_TRUE(message.update(SEQ, -5) && message.get(SEQ) == -5);
  EXPECT_TRUE(message.update(SEQ, 4'294'967'295U) && message.get(SEQ) == 4'294'967'295);
  EXPECT_TRUE(message.update(SEQ, -5LL) && message.get(SEQ) == -5);

  const std::string text("a\0b", 3);
  EXPECT_TRUE(message.update(SYMBOL, text) && message.get(SYMBOL) == text);
  EXPECT_TRUE(message.update(SYMBOL, std::string_view("view")) && message.get(SYMBOL) == "view");
  EXPECT_TRUE(message.update(SYMBOL, MD_Message::String("own", 2)) && message.get(SYMBOL) == "ow");
  EXPECT_TRUE(message.update(SYMBOL, text.c_str()) && message.get(SYMBOL) == "a");
  EXPECT_TRUE(message.update(SYMBOL, "") && message.get(SYMBOL) == "");
  const char unterminated[] = {'x', 'y'};
  EXPECT_TRUE(message.update(SYMBOL, unterminated) && message.get(SYMBOL) == "xy");
  const char* const null = nullptr;
  EXPECT_FALSE(message.update(SYMBOL, null));
  EXPECT_EQ(message.get(SYMBOL), "xy");

  const std::vector<std::uint8_t> bytes = {1, 2, 3};
  const MD_Message::Buffer expected(bytes.data(), 3);
  EXPECT_TRUE(message.update(BLOB, bytes) && message.get(BLOB) == expected);
  EXPECT_TRUE(message.update(BLOB, std::array<std::byte, 3>{std::byte{1}, std::byte{2}, std::byte{3}}));
  EXPECT_EQ(message.get(BLOB), expected);
  EXPECT_TRUE(message.update(BLOB, std::string_view("\1\2\3")) && message.get(BLOB) == expected);
  EXPECT_TRUE(message.update(BLOB, std::vector<std::uint8_t>()) && message.get(BLOB)->length == 0);

  using std::chrono::system_clock;
  const system_clock::time_point now = system_clock::now();
  EXPECT_TRUE(message.update(RECV, now) && message.get(RECV) == MD_EpochNS::fromTimePoint(now));
  const std::chrono::time_point<system_clock, std::chrono::seconds> seconds(std::chrono::seconds(5));
  EXPECT_TRUE(message.update(RECV, seconds) && message.get(RECV) == MD_EpochNS(5'000'000'000));
  EXPECT_FALSE(message.update(RECV, seconds - std::chrono::seconds(6)));
  EXPECT_EQ(message.get(RECV), MD_EpochNS(5'000'000'000));
}

TYPED_TEST(FieldTest, RefusesLongTextInsteadOfCuttingIt) {
  TypeParam& message = this->m_message;
  const test::CapturedErrors errors;
  const bool isMInt = message.message().getPB() == ENCODINGS::MINT;
  const std::size_t mostCharacters = isMInt ? 254 : 65'535;
  const std::size_t mostBytes = isMInt ? 255 : 65'535;
  ASSERT_TRUE(message.add(BID, 1.5) && message.add(Field<MD_Message::String>(61), "behind"));
  for (const bool isPresent : {false, true}) {
    SCOPED_TRACE(isPresent);
    const Bytes before = bytesOf(message.message());
    EXPECT_FALSE(message.update(SYMBOL, std::string(mostCharacters + 1, 'x')));
    EXPECT_FALSE(message.update(SYMBOL, std::string(70'000, 'x')));
    EXPECT_FALSE(message.update(BLOB, Bytes(mostBytes + 1)));
    EXPECT_FALSE(message.update(BLOB, Bytes(70'000)));
    EXPECT_FALSE(message.add(SYMBOL, std::string(mostCharacters + 1, 'x')));
    EXPECT_FALSE(message.add(BLOB, Bytes(mostBytes + 1)));
    EXPECT_EQ(bytesOf(message.message()), before);
    if (!isPresent) {
      ASSERT_TRUE(message.add(SYMBOL, "short") && message.add(BLOB, Bytes(3)));
    }
  }
  EXPECT_TRUE(message.update(BLOB, Bytes(mostBytes)));
  EXPECT_EQ(message.get(BLOB)->length, mostBytes);
  EXPECT_TRUE(message.update(SYMBOL, std::string(mostCharacters, 'x')));
  EXPECT_EQ(message.get(SYMBOL)->size(), mostCharacters);
}

TYPED_TEST(FieldTest, UpdatesValuesOfAnyLength) {
  TypeParam& message = this->m_message;
  for (const std::int32_t number : {5, 500, 70'000, -1, 7}) {
    EXPECT_TRUE(message.update(QTY, number));
    EXPECT_EQ(message.get(QTY), number);
  }
  for (const char* const text : {"a", "bb", "cc", "", "ddd"}) {
    EXPECT_TRUE(message.update(SYMBOL, text));
    EXPECT_EQ(message.get(SYMBOL), text);
  }
  // A view into the message itself.
  ASSERT_TRUE(message.update(SYMBOL, "0123456789"));
  EXPECT_TRUE(message.update(SYMBOL, message.get(SYMBOL)->substr(4)));
  EXPECT_EQ(message.get(SYMBOL), "456789");
  EXPECT_EQ(message.message().fieldCount(), 2u);
}

TYPED_TEST(FieldTest, NeverErasesOrReinterpretsWhatTheDictionaryGivesAnotherType) {
  TypeParam& message = this->m_message;
  test::CapturedErrors errors;
  ASSERT_TRUE(message.add(QTY, 70'000) && message.add(BID, 1.5) && message.add(SYMBOL, "abc"));
  const Bytes before = bytesOf(message.message());
  EXPECT_FALSE(message.update(Field<float>(300), 1.5F));      // of the same width
  EXPECT_FALSE(message.update(Field<std::int64_t>(300), 1));  // of another
  EXPECT_FALSE(message.update(Field<std::int64_t>(22), 1));
  EXPECT_FALSE(message.update(Field<MD_Message::Buffer>(60), Bytes(4)));  // of the same length as the record
  EXPECT_FALSE(message.update(Field<double>(test::id::kUnknown), 1.5));
  EXPECT_FALSE(message.update(Field<double>(test::id::kShort), 1.5));
  EXPECT_FALSE(message.add(Field<double>(test::id::kUnknown), 1.5));
  EXPECT_FALSE(message.add(Field<float>(23), 1.5F));
  EXPECT_EQ(bytesOf(message.message()), before);
  EXPECT_NE(errors.take().find(test::report("MD_Message Error: Attempting to UPDATE a field with incorrect type!", 300,
                                            DATATYPES::FLOAT, 4)),
            std::string::npos);
}

TYPED_TEST(FieldTest, AddsNothingOverAPresentField) {
  TypeParam& message = this->m_message;
  EXPECT_TRUE(message.add(BID, 1.5));
  EXPECT_FALSE(message.add(BID, 2.5));
  EXPECT_EQ(message.get(BID), 1.5);
  EXPECT_TRUE(message.message().exists(BID) && message.message().contains(BID));
  EXPECT_TRUE(message.message().erase(BID));
  EXPECT_FALSE(message.message().exists(BID) || message.message().erase(BID));
}

struct RecordCase {
  const char* name;
  const char* bytes;
  std::uint8_t type;  ///< reported
  bool isUpdated;
};

// Each record is that of BID, a DOUBLE; another field follows it.
TEST(FieldUpdate, LeavesRecordsThatAreNoValueOfTheField) {
  test::loadDictionary(test::kDictionary);
  const RecordCase kCases[] = {
      {"MIntDouble", "06 1600 08 0000000000000000 3C00 01 41", 0, true},
      {"MIntFourBytes", "06 1600 04 00000000 3C00 01 00", DATATYPES::DOUBLE, false},
      {"MIntNoByte", "06 1600 00 3C00 01 00", DATATYPES::DOUBLE, false},
      {"MsgTDouble", "46515231 0016 0005 00000008 0000000000000000 003C 0006 00000001 00", 0, true},
      {"MsgTFourBytes", "46515231 0016 0005 00000004 00000000 003C 0006 00000001 00", DATATYPES::DOUBLE, false},
      {"TruncatedMInt", "06 1600 08 000000", 0, true},
      {"TruncatedIterMap", "01 1600 000000", 0, true},
      {"TruncatedMsgT", "46515231 0016 0005 00000008 000000", 0, true},
  };
  for (const RecordCase& row : kCases) {
    test::CapturedErrors errors;
    const Bytes bytes = fromHex(row.bytes);
    const auto message = MD_Message::createFromBytes(bytes);
    ASSERT_NE(message, nullptr) << row.name;
    EXPECT_EQ(message->update(BID, 2.5), row.isUpdated) << row.name;
    if (row.isUpdated) {
      EXPECT_EQ(message->get(BID), 2.5) << row.name;
      EXPECT_EQ(errors.take(), "") << row.name;
    } else {
      EXPECT_EQ(bytesOf(*message), bytes) << row.name;
      EXPECT_EQ(errors.take(),
                test::report("MD_Message Error: Attempting to UPDATE a record of incorrect id, type or length!", 22,
                             row.type, 8))
          << row.name;
    }
  }
}

TEST(FieldUpdate, LeavesRecordsOfTheTypeThatAnEarlierDictionaryGave) {
  for (const std::uint8_t code : {ENCODINGS::MINT, ENCODINGS::ITERMAP, ENCODINGS::MSGT}) {
    MD_FieldMap::loadText("A 1 INT");
    const auto message = MD_Message::createFromPB(code);
    ASSERT_TRUE(message->add(Field<std::int32_t>(1), 70'000));
    const Bytes before = bytesOf(*message);
    MD_FieldMap::loadText("A 1 FLOAT");
    const test::CapturedErrors errors;
    // IterMap cannot detect it: its records have neither type nor length.
    EXPECT_EQ(message->update(Field<std::int32_t>(1), 5), false);
    EXPECT_EQ(bytesOf(*message), before);
    if (code == ENCODINGS::MSGT) {
      EXPECT_FALSE(message->update(Field<float>(1), 5.0F));
      EXPECT_EQ(bytesOf(*message), before);
    }
  }
}

// A program's own class may have the code of an encoding: it is not taken for the class of that encoding.
TEST(FieldUpdate, OfAProgramsOwnClassCallsItsSlot) {
  test::loadDictionary(test::kDictionary);
  std::vector<std::string> calls;
  test::ScriptedMessage message(calls);
  for (const std::uint8_t code : {std::uint8_t{0}, std::uint8_t{ENCODINGS::MINT}, std::uint8_t{ENCODINGS::ITERMAP},
                                  std::uint8_t{ENCODINGS::MSGT}}) {
    message.m_code = code;
    test::forEachValueType([&](auto sample, const std::string& typeName) {
      using T = decltype(sample);
      SCOPED_TRACE(typeName + " of a class with the code " + std::to_string(code));
      const std::uint16_t id = test::fieldOf<T>();
      const std::vector<std::string> expected = {"update " + typeName + ' ' + std::to_string(id)};
      for (const bool isUpdated : {true, false}) {
        message.m_takesUpdates = isUpdated;
        calls.clear();
        EXPECT_EQ(message.update(Field<T>(id), sample), isUpdated);
        EXPECT_EQ(calls, expected);
      }
      calls.clear();
      test::CapturedErrors errors;
      constexpr std::uint16_t kShorty = 200;
      EXPECT_FALSE(message.update(Field<T>(kShorty), sample));
      EXPECT_EQ(calls, std::vector<std::string>{});
      const std::string reported = errors.take();
      EXPECT_EQ(reported.substr(0, reported.find('\n')),
                "MD_Message Error: Attempting to UPDATE a field with incorrect type!");
    });
  }
}

// Integers by id -----------------------------------------------------------------------------------------------------

struct IntegerCase {
  const char* name;
  bool (*put)(MD_Message& message);
  std::optional<std::int64_t> stored;  ///< nothing: refused
};

template <class Integer, Integer kValue, std::uint16_t kId>
bool addTo(MD_Message& message) {
  return message.add(kId, kValue);
}
template <class Integer, Integer kValue, std::uint16_t kId>
bool updateIn(MD_Message& message) {
  return message.update(kId, kValue);
}

TEST(IntegersById, AreTestedForTheRangeOfTheField) {
  test::loadDictionary(test::kDictionary);
  constexpr std::uint16_t kInt = 300;
  constexpr std::uint16_t kInt64 = 20;
  constexpr auto kMostInt = std::numeric_limits<std::int32_t>::max();
  constexpr auto kMostInt64 = std::numeric_limits<std::int64_t>::max();
  const IntegerCase kCases[] = {
      {"UnsignedToInt", &addTo<unsigned, 300, kInt>, 300},
      {"MostUnsignedToInt", &addTo<unsigned, kMostInt, kInt>, kMostInt},
      {"TooLargeUnsignedToInt", &addTo<unsigned, unsigned{kMostInt} + 1, kInt>, std::nullopt},
      {"UnsignedToInt64", &addTo<unsigned, 4'294'967'295, kInt64>, 4'294'967'295},
      {"SizeToInt", &addTo<std::size_t, 300, kInt>, 300},
      {"SizeToInt64", &addTo<std::size_t, kMostInt64, kInt64>, kMostInt64},
      {"TooLargeSizeToInt64", &addTo<std::size_t, std::size_t{kMostInt64} + 1, kInt64>, std::nullopt},
      {"LongLongToInt64", &addTo<long long, -5, kInt64>, -5},
      {"UnsignedLongLongToInt", &addTo<unsigned long long, 7, kInt>, 7},
      {"UnsignedToChar", &addTo<unsigned, 7, 10>, std::nullopt},
      {"UnsignedToDouble", &addTo<unsigned, 7, 22>, std::nullopt},
      {"UnsignedToUnknown", &addTo<unsigned, 7, test::id::kUnknown>, std::nullopt},
      {"UpdateInt", &updateIn<unsigned, 8, kInt>, 8},
      {"UpdateIntTooLarge", &updateIn<std::uint64_t, 4'294'967'296, kInt>, std::nullopt},
      {"UpdateInt64", &updateIn<std::uint64_t, 4'294'967'296, kInt64>, 4'294'967'296},
  };
  for (const std::uint8_t code : {ENCODINGS::MINT, ENCODINGS::ITERMAP, ENCODINGS::MSGT}) {
    for (const IntegerCase& row : kCases) {
      SCOPED_TRACE(row.name);
      test::CapturedErrors errors;
      const auto message = MD_Message::createFromPB(code);
      const Bytes before = bytesOf(*message);
      EXPECT_EQ(row.put(*message), row.stored.has_value());
      const auto stored = message->get(QTY) ? std::int64_t{*message->get(QTY)} : message->get(SEQ);
      EXPECT_EQ(stored, row.stored);
      if (row.stored) {
        EXPECT_EQ(errors.take(), "");
      } else {
        EXPECT_EQ(bytesOf(*message), before);
        EXPECT_NE(errors.take(), "");
      }
    }
  }
  test::CapturedErrors errors;
  mInt message;
  EXPECT_TRUE(message.add(300, 5U) && message.add(20, 5U) && message.update(300, 70'000U));
  EXPECT_FALSE(message.update(300, 3'000'000'000U));
  EXPECT_EQ(errors.take(),
            test::report("MD_Message Error: Attempting to ADD or UPDATE a field with an integer out of range!", 300,
                         DATATYPES::INT, 4));
  EXPECT_EQ(message.get(QTY), 70'000);
  EXPECT_FALSE(message.update(22, 5U));
}

TEST(IntegersById, OfSmallTypesAreIntsAsBefore) {
  test::loadDictionary(test::kDictionary);
  mInt message;
  EXPECT_TRUE(message.add(300, std::int16_t{-7}));
  EXPECT_TRUE(message.add(301, std::uint8_t{7}));
  EXPECT_EQ(message.get(QTY), -7);
}

// Containers of bytes ------------------------------------------------------------------------------------------------

TEST(PlainNames, AreThoseOfAContainer) {
  test::loadDictionary(test::kDictionary);
  mInt message;
  MD_Message& base = message;
  EXPECT_TRUE(base.empty());
  EXPECT_EQ(base.size(), 1u);
  EXPECT_TRUE(message.add(22, 1.5) && message.add(60, "abc"));
  EXPECT_FALSE(base.empty());
  EXPECT_EQ(base.size(), message.getSizeImpl());
  EXPECT_EQ(base.data(), message.getBinary());
  EXPECT_TRUE(base.contains(22));
  EXPECT_FALSE(base.contains(23));
  EXPECT_TRUE(base.erase(22));
  EXPECT_FALSE(base.erase(22));
  base.clear();
  EXPECT_TRUE(base.empty());
}

template <class Range>
void expectParsed(const Range& bytes) {
  mInt message;
  EXPECT_TRUE(message.parse(bytes));
  EXPECT_EQ(message.get(SYMBOL), "AB");
  if constexpr (!std::is_same_v<Range, mInt>) {
    EXPECT_EQ(mInt(bytes).get(SYMBOL), "AB");
  }
  const auto received = MD_Message::createFromBytes(bytes);
  ASSERT_NE(received, nullptr);
  EXPECT_EQ(received->get(SYMBOL), "AB");
}

TEST(Parse, TakesBytesOneAfterTheOther) {
  test::loadDictionary(test::kDictionary);
  const std::uint8_t array[] = {6, 60, 0, 3, 'A', 'B', 0};
  expectParsed(array);
  expectParsed(std::vector<std::uint8_t>(std::begin(array), std::end(array)));
  expectParsed(std::vector<char>(std::begin(array), std::end(array)));
  std::vector<std::byte> bytes;
  for (const std::uint8_t byte : array) {
    bytes.push_back(std::byte{byte});
  }
  expectParsed(bytes);
  expectParsed(std::string(std::begin(array), std::end(array)));
  expectParsed(std::string_view(reinterpret_cast<const char*>(array), sizeof array));
  mInt message;
  ASSERT_TRUE(message.parse(array));
  expectParsed(message);  // a message is its bytes
  EXPECT_TRUE(message.parse(message));
  EXPECT_EQ(message.get(SYMBOL), "AB");
}

TEST(Parse, LeavesTheMessageForBytesOfAnotherEncodingAndNone) {
  test::loadDictionary(test::kDictionary);
  mInt message;
  ASSERT_TRUE(message.add(BID, 1.5));
  const Bytes before = bytesOf(message);
  EXPECT_FALSE(message.parse(Bytes()));
  EXPECT_FALSE(message.parse(Bytes{1}));
  EXPECT_FALSE(message.parse(Bytes{70, 'Q', 'R', '1'}));
  EXPECT_FALSE(message.parse(std::string_view()));
  EXPECT_EQ(bytesOf(message), before);
  EXPECT_TRUE(message.parse(Bytes{6}));
  EXPECT_TRUE(message.empty());
  EXPECT_TRUE(mInt(Bytes{70, 'Q', 'R', '1'}).empty());
  EXPECT_EQ(IterMap(Bytes{1}).size(), 1u);
  EXPECT_EQ(MsgT(Bytes{70, 'Q', 'R', '1'}).size(), 4u);
  EXPECT_EQ(MD_Message::createFromBytes(Bytes()), nullptr);
  EXPECT_EQ(MD_Message::createFromBytes(Bytes{5}), nullptr);
}

static_assert(!std::is_copy_constructible_v<mInt> && !std::is_constructible_v<mInt, const MsgT&> &&
              !std::is_constructible_v<mInt, const MD_Message&>);
static_assert(!std::is_convertible_v<Bytes, mInt>);

TEST(GetStringView, ReadsIntoTheMessage) {
  test::loadDictionary(test::kDictionary);
  MsgT message;
  ASSERT_TRUE(message.add(60, "abc"));
  std::string_view text = "before";
  EXPECT_FALSE(message.get(61, text));
  EXPECT_EQ(text, "before");
  EXPECT_TRUE(message.get(60, text));
  EXPECT_EQ(text, "abc");
  EXPECT_GE(reinterpret_cast<const std::uint8_t*>(text.data()), message.data());
}

}  // namespace
}  // namespace MD
