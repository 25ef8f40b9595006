#include "md/md_variant.h"

#include <cstdint>
#include <cstring>

#include <iomanip>
#include <limits>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "md/md_mint.h"
#include "support/allocations.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/messages.h"

namespace MD {
namespace {

using String = MD_Message::String;
using Buffer = MD_Message::Buffer;
using test::bufferOf;
using test::rawOf;
namespace id = test::id;

static_assert(std::is_nothrow_move_constructible_v<MD_Variant>);
static_assert(std::is_nothrow_move_assignable_v<MD_Variant>);
static_assert(!std::is_convertible_v<int, MD_Variant>);
static_assert(!std::is_convertible_v<double, MD_Variant>);
static_assert(!std::is_convertible_v<std::string, MD_Variant>);

constexpr const char* kMismatch = "md_message/include/md/md_variant:334: false";

std::string printed(const MD_Variant& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

/// A variant of each kind that there is, the empty one first; no two are equal.
std::vector<MD_Variant> oneOfEach() {
  std::vector<MD_Variant> values;
  values.emplace_back();
  values.emplace_back('A');
  values.emplace_back(65);
  values.emplace_back(std::int64_t{65});
  values.emplace_back(1.5F);
  values.emplace_back(1.5);
  values.emplace_back(std::string("text"));
  values.emplace_back(bufferOf("text"));
  values.emplace_back(MD_DateTime(20240115, 93000000, -300));
  values.emplace_back(MD_EpochNS(65));
  values.push_back(MD_Variant::ofShort(65));
  values.push_back(MD_Variant::ofUnsigned(65));
  values.push_back(MD_Variant::ofUnsignedLong(65));
  values.push_back(MD_Variant::ofFoldedInts({{1, 2}}));
  return values;
}

// A value by itself ---------------------------------------------------------------------------------------------------

TEST(Variant, IsEmptyAtFirst) {
  const MD_Variant value;
  EXPECT_EQ(value.type(), 0u);
  EXPECT_TRUE(value.empty());
}

TEST(Variant, HasTheTagOfWhatItHolds) {
  struct Row {
    MD_Variant value;
    std::uint32_t tag;
  };
  const Row kRows[] = {
      {MD_Variant('A'), 1},
      {MD_Variant(5), 2},
      {MD_Variant(1.5F), 4},
      {MD_Variant(1.5), 5},
      {MD_Variant(String("abc", 3)), 6},
      {MD_Variant(std::string("abc")), 6},
      {MD_Variant("abc"), 6},
      {MD_Variant(bufferOf("abc")), 14},
      {MD_Variant(std::int64_t{5}), 19},
      {MD_Variant(MD_DateTime()), 20},
      {MD_Variant(MD_EpochNS()), 22},
      {MD_Variant::ofShort(5), 3},
      {MD_Variant::ofFoldedInts({}), 13},
      {MD_Variant::ofUnsigned(5), 16},
      {MD_Variant::ofUnsignedLong(5), 18},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.tag);
    EXPECT_EQ(row.value.type(), row.tag);
    EXPECT_FALSE(row.value.empty());
  }
}

template <class T>
class VariantOf : public testing::Test {
 protected:
  VariantOf() { test::loadDictionary(test::kDictionary); }
};

using ValueTypes =
    testing::Types<char, std::int32_t, std::int64_t, float, double, String, Buffer, MD_DateTime, MD_EpochNS>;

struct NameOfValueType {
  template <class T>
  static std::string GetName(int) {
    std::string found;
    test::forEachValueType([&](auto sample, const char* name) {
      if (std::is_same_v<decltype(sample), T>) {
        found = name;
      }
    });
    return found;
  }
};

TYPED_TEST_SUITE(VariantOf, ValueTypes, NameOfValueType);

TYPED_TEST(VariantOf, GivesBackWhatItWasMadeFromOrSetTo) {
  const test::RecordedAssertions assertions;
  for (const TypeParam& sample : test::samplesOf<TypeParam>()) {
    const MD_Variant made(sample);
    EXPECT_EQ(rawOf(made.get<TypeParam>()), rawOf(sample));
    for (const MD_Variant& before : oneOfEach()) {
      SCOPED_TRACE(before.type());
      MD_Variant value(before);
      value.set(sample);
      EXPECT_EQ(value.type(), made.type());
      EXPECT_EQ(rawOf(value.get<TypeParam>()), rawOf(sample));
    }
  }
  EXPECT_TRUE(assertions.entries().empty());
}

TYPED_TEST(VariantOf, OwnsACopy) {
  for (const TypeParam& sample : test::samplesOf<TypeParam>()) {
    if constexpr (std::is_same_v<TypeParam, String> || std::is_same_v<TypeParam, Buffer>) {
      std::string bytes = rawOf(sample);
      MD_Variant value;
      if constexpr (std::is_same_v<TypeParam, String>) {
        value.set(String(std::string_view(bytes)));
      } else {
        value.set(bufferOf(bytes));
      }
      bytes.assign(bytes.size(), '#');
      EXPECT_EQ(rawOf(value.get<TypeParam>()), rawOf(sample));
    } else {
      TypeParam source = sample;
      const MD_Variant value(source);
      source = TypeParam{};
      EXPECT_EQ(rawOf(value.get<TypeParam>()), rawOf(sample));
    }
  }
}

TEST(Variant, StringsMayBeOfAnyLength) {
  const std::string text = std::string(70'000, 'x') + '\0' + "y";
  MD_Variant value(text);
  EXPECT_EQ(value.get<std::string>(), text);
  EXPECT_EQ(value.get<String>().length, 4'466) << "a view's length has 16 bits";
  EXPECT_EQ(printed(value), text);
  value.set(std::string());
  EXPECT_EQ(value.type(), DATATYPES::STRING);
  EXPECT_EQ(value.get<std::string>(), "");
}

TEST(Variant, TakesViewsWithoutCharactersOrBytes) {
  const MD_Variant text{String()};
  EXPECT_EQ(text.type(), DATATYPES::STRING);
  EXPECT_EQ(text.get<String>().length, 0);
  const MD_Variant buffer{Buffer()};
  EXPECT_EQ(buffer.type(), DATATYPES::BUFFER);
  EXPECT_EQ(buffer.get<Buffer>().length, 0);
}

TEST(Variant, TakesAViewIntoItself) {
  MD_Variant text(std::string("a longer text than fits into a string object"));
  String view = text.get<String>();
  text.set(String(view.data + 2, 6));
  EXPECT_EQ(text.get<std::string>(), "longer");
  text.set(text.get<String>());
  EXPECT_EQ(text.get<std::string>(), "longer");

  MD_Variant buffer(bufferOf("0123456789"));
  const Buffer bytes = buffer.get<Buffer>();
  buffer.set(Buffer(bytes.data + 3, 4));
  EXPECT_EQ(rawOf(buffer.get<Buffer>()), "3456");

  const Buffer rest = buffer.get<Buffer>();
  buffer.set(String(reinterpret_cast<const char*>(rest.data), rest.length));
  EXPECT_EQ(buffer.get<std::string>(), "3456");
}

TEST(Variant, ClearReleasesTheValue) {
  for (MD_Variant& value : oneOfEach()) {
    SCOPED_TRACE(value.type());
    value.clear();
    EXPECT_TRUE(value.empty());
    EXPECT_EQ(value, MD_Variant());
    value.clear();
    EXPECT_TRUE(value.empty());
    value.set(5);
    EXPECT_EQ(value.get<int>(), 5);
  }
}

TEST(Variant, IsEqualToWhatHasTheSameTagAndValueOnly) {
  const std::vector<MD_Variant> values = oneOfEach();
  const std::vector<MD_Variant> again = oneOfEach();
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t k = 0; k < again.size(); ++k) {
      SCOPED_TRACE(std::to_string(values[i].type()) + " and " + std::to_string(again[k].type()));
      EXPECT_EQ(values[i] == again[k], i == k);
      EXPECT_EQ(values[i] != again[k], i != k);
    }
  }

  EXPECT_NE(MD_Variant('A'), MD_Variant('B'));
  EXPECT_NE(MD_Variant(1), MD_Variant(-1));
  EXPECT_NE(MD_Variant(std::int64_t{1}), MD_Variant(std::int64_t{1} << 32 | 1));
  EXPECT_NE(MD_Variant(1.5F), MD_Variant(1.25F));
  EXPECT_NE(MD_Variant(1.5), MD_Variant(1.25));
  EXPECT_NE(MD_Variant("text"), MD_Variant("texts"));
  EXPECT_NE(MD_Variant("text"), MD_Variant("Text"));
  EXPECT_NE(MD_Variant(bufferOf("text")), MD_Variant(bufferOf("texts")));
  EXPECT_NE(MD_Variant(bufferOf("text")), MD_Variant(bufferOf("Text")));
  EXPECT_EQ(MD_Variant{Buffer()}, MD_Variant{bufferOf("")});
  EXPECT_NE(MD_Variant(MD_DateTime(20240115, 1, 0)), MD_Variant(MD_DateTime(20240115, 1, 60)));
  EXPECT_NE(MD_Variant(MD_EpochNS(1)), MD_Variant(MD_EpochNS(2)));
  EXPECT_NE(MD_Variant::ofFoldedInts({{1, 2}}), MD_Variant::ofFoldedInts({{1, 3}}));
}

TEST(Variant, CopiesAreIndependent) {
  for (const MD_Variant& original : oneOfEach()) {
    SCOPED_TRACE(original.type());
    MD_Variant source(original);
    MD_Variant copy(source);
    EXPECT_EQ(copy, original);
    source.clear();
    EXPECT_EQ(copy, original);
    copy.set(7);
    EXPECT_TRUE(source.empty());
  }
}

TEST(Variant, AssignsEachKindToEachKind) {
  for (const MD_Variant& source : oneOfEach()) {
    for (const MD_Variant& before : oneOfEach()) {
      SCOPED_TRACE(std::to_string(source.type()) + " to " + std::to_string(before.type()));
      MD_Variant copied(before);
      MD_Variant& result = copied = source;
      EXPECT_EQ(&result, &copied);
      EXPECT_EQ(copied, source);

      MD_Variant moved(before);
      MD_Variant temporary(source);
      moved = std::move(temporary);
      EXPECT_EQ(moved, source);
    }
  }
}

TEST(Variant, AssignsItself) {
  for (const MD_Variant& original : oneOfEach()) {
    SCOPED_TRACE(original.type());
    MD_Variant value(original);
    MD_Variant& same = value;
    value = same;
    EXPECT_EQ(value, original);
    value = std::move(same);
    EXPECT_EQ(value, original);
  }
}

TEST(Variant, MovesWithoutAllocation) {
  for (const MD_Variant& original : oneOfEach()) {
    SCOPED_TRACE(original.type());
    MD_Variant source(original);
    const long before = test::Allocations::count;
    MD_Variant target(std::move(source));
    EXPECT_EQ(test::Allocations::count, before);
    EXPECT_EQ(target, original);
    EXPECT_TRUE(source.empty());  // NOLINT(bugprone-use-after-move): it is a valid, empty variant
  }
}

TEST(Variant, Swaps) {
  for (const MD_Variant& first : oneOfEach()) {
    for (const MD_Variant& second : oneOfEach()) {
      SCOPED_TRACE(std::to_string(first.type()) + " and " + std::to_string(second.type()));
      MD_Variant a(first);
      MD_Variant b(second);
      a.swap(b);
      EXPECT_EQ(a, second);
      EXPECT_EQ(b, first);
      swap(a, b);
      EXPECT_EQ(a, first);
      EXPECT_EQ(b, second);
      a.swap(a);
      EXPECT_EQ(a, first);
    }
  }
}

// The tag's assertion -------------------------------------------------------------------------------------------------

template <class T>
void expectMismatch(const MD_Variant& value, const T& expected) {
  const test::RecordedAssertions assertions;
  const T read = value.get<T>();
  EXPECT_EQ(assertions.entries(), std::vector<std::string>{kMismatch});
  EXPECT_EQ(read, expected);
}

TEST(VariantMismatch, InPlaceValuesAreReadAsTheBitsHeld) {
  expectMismatch<char>(MD_Variant(65), 'A');
  expectMismatch<int>(MD_Variant('A'), 65);
  expectMismatch<int>(MD_Variant(std::int64_t{0x1234567800000007}), 7);
  expectMismatch<std::int64_t>(MD_Variant(1.0), 0x3FF0000000000000);
  expectMismatch<double>(MD_Variant(std::int64_t{0x3FF8000000000000}), 1.5);
  expectMismatch<float>(MD_Variant(0x3FC00000), 1.5F);
  expectMismatch<MD_EpochNS>(MD_Variant(std::int64_t{77}), MD_EpochNS(77));
  expectMismatch<int>(MD_Variant(), 0);
}

TEST(VariantMismatch, OwnedValuesReadAsEmpty) {
  for (const MD_Variant& value : oneOfEach()) {
    SCOPED_TRACE(value.type());
    if (value.type() != DATATYPES::STRING) {
      expectMismatch<std::string>(value, "");
    }
    if (value.type() != DATATYPES::DATETIME) {
      expectMismatch<MD_DateTime>(value, MD_DateTime());
    }
    if (value.type() != DATATYPES::BUFFER) {
      const test::RecordedAssertions assertions;
      EXPECT_EQ(value.get<Buffer>().length, 0);
      EXPECT_EQ(assertions.entries(), std::vector<std::string>{kMismatch});
    }
  }
}

TEST(VariantMismatch, EveryReadOfAnEmptyVariantAsserts) {
  test::forEachValueType([](auto sample, const char* name) {
    SCOPED_TRACE(name);
    const test::RecordedAssertions assertions;
    static_cast<void>(MD_Variant().get<decltype(sample)>());
    EXPECT_EQ(assertions.entries(), std::vector<std::string>{kMismatch});
  });
}

TEST(VariantMismatchDeathTest, StopsTheProcessByDefault) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const MD_Variant value('A');
  EXPECT_DEATH(static_cast<void>(value.get<double>()), "md_message/include/md/md_variant.*334");
}

// Formatted text ------------------------------------------------------------------------------------------------------

struct PrintedValue {
  const char* name;
  MD_Variant value;
  std::string text;
};

std::vector<PrintedValue> printedValues() {
  return {
      {"Nothing", MD_Variant(), "<VARIANT>"},
      {"Char", MD_Variant('x'), "x"},
      {"ZeroChar", MD_Variant('\0'), std::string(1, '\0')},
      {"Int", MD_Variant(-2147483647 - 1), "-2147483648"},
      {"Short", MD_Variant::ofShort(-32768), "-32768"},
      {"Float", MD_Variant(3.25F), "3.25"},
      {"FloatInExponentForm", MD_Variant(1e10F), "1e+10"},
      {"Double", MD_Variant(0.05), "0.05"},
      {"DoubleWithoutFraction", MD_Variant(3.0), "3.0"},
      {"DoubleNeverInExponentForm", MD_Variant(1e10), "10000000000.0"},
      {"DoubleWithoutBinaryNoise", MD_Variant(0.1 + 0.2), "0.3"},
      {"String", MD_Variant("some text"), "some text"},
      {"StringWithZero", MD_Variant(std::string("a\0b", 3)), std::string("a\0b", 3)},
      {"EmptyString", MD_Variant(""), ""},
      {"FoldedInts", MD_Variant::ofFoldedInts({{1, 2}}), "<MAP>"},
      {"NoFoldedInts", MD_Variant::ofFoldedInts({}), "<MAP>"},
      {"Buffer", MD_Variant(bufferOf({"a\0\xFFz", 4})), std::string("a\0\xFFz", 4)},
      {"EmptyBuffer", MD_Variant(Buffer()), "<BUFFER>"},
      {"UnsignedInt", MD_Variant::ofUnsigned(4294967295u), "4294967295"},
      {"UnsignedLong", MD_Variant::ofUnsignedLong(18446744073709551615u), "18446744073709551615"},
      {"Int64", MD_Variant(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
      {"DateTime", MD_Variant(MD_DateTime(20240115, 93000000, -300)), "20240115 93000000 (-300)"},
      {"EpochNS", MD_Variant(MD_EpochNS(18446744073709551615u)), "18446744073709551615"},
  };
}

TEST(VariantPrintOut, OfEachTag) {
  const test::RecordedAssertions assertions;
  for (const PrintedValue& row : printedValues()) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(printed(row.value), row.text);
  }
  EXPECT_TRUE(assertions.entries().empty());
}

TEST(VariantPrintOut, LeavesTheStreamAsItWas) {
  for (const MD_Variant& value : oneOfEach()) {
    SCOPED_TRACE(value.type());
    std::ostringstream out;
    out << std::hex << std::showbase << std::left << std::setfill('*') << std::setw(9);
    const std::ios_base::fmtflags flags = out.flags();
    out << value;
    EXPECT_EQ(out.flags(), flags);
    EXPECT_EQ(out.fill(), '*');
  }
}

TEST(VariantPrintOut, TheWidthIsThatOfTheWholeText) {
  for (const auto& [name, value, text] : printedValues()) {
    SCOPED_TRACE(name);
    const auto length = static_cast<int>(text.size());
    std::ostringstream out;
    out << std::setfill('*') << std::left << std::setw(length + 2) << value << '|' << std::right
        << std::setw(length + 3) << value << '|' << std::setw(length) << value << '|' << std::setw(1) << value << '|';
    std::string expected = text + "**|***" + text + "|" + text + "|";
    expected += (text.empty() ? "*" : text) + "|";
    EXPECT_EQ(out.str(), expected);
    EXPECT_EQ(out.width(), 0);
  }
}

// BufferHolder --------------------------------------------------------------------------------------------------------

TEST(BufferHolderTest, OwnsACopy) {
  std::uint8_t bytes[] = {1, 2, 3};
  const BufferHolder holder(3, bytes);
  bytes[0] = 9;
  ASSERT_EQ(holder.size(), 3u);
  EXPECT_NE(holder.data(), bytes);
  EXPECT_EQ(holder.data()[0], 1);
  EXPECT_EQ(holder.data()[2], 3);
}

TEST(BufferHolderTest, HoldsMoreThanAViewCan) {
  const std::vector<std::uint8_t> bytes(100'000, 7);
  const BufferHolder holder(100'000, bytes.data());
  EXPECT_EQ(holder.size(), 100'000u);
  EXPECT_EQ(holder.data()[99'999], 7);
}

TEST(BufferHolderTest, HasNoBlockForNoBytes) {
  const BufferHolder holder(0, nullptr);
  EXPECT_EQ(holder.size(), 0u);
  EXPECT_EQ(holder.data(), nullptr);
}

TEST(BufferHolderTest, ReportsAFailedAllocation) {
  const std::uint8_t bytes[12] = {};
  test::CapturedErrors errors;
  bool hasThrown = false;
  {
    const test::FailingAllocation failing;
    try {
      const BufferHolder holder(12, bytes);
    } catch (const std::bad_alloc&) {
      hasThrown = true;
    }
  }
  EXPECT_TRUE(hasThrown);
  EXPECT_EQ(errors.take(), "BufferHolder::BufferHolder - unable to make allocation of size 12\n");
}

TEST(BufferHolderTest, AVariantThatCannotTakeANewValueKeepsTheOld) {
  // The holder itself, then its block.
  for (long succeeding = 0; succeeding < 2; ++succeeding) {
    SCOPED_TRACE(succeeding);
    const test::CapturedErrors errors;
    MD_Variant value("the old value, which is long enough for the heap");
    bool hasThrown = false;
    {
      const test::FailingAllocation failing(succeeding);
      try {
        value.set(bufferOf("new"));
      } catch (const std::bad_alloc&) {
        hasThrown = true;
      }
    }
    EXPECT_TRUE(hasThrown);
    EXPECT_EQ(value.type(), DATATYPES::STRING);
    EXPECT_EQ(value.get<std::string>(), "the old value, which is long enough for the heap");
  }
}

// Through a message ---------------------------------------------------------------------------------------------------

TYPED_TEST(VariantOf, IsReadFromAMessage) {
  const test::RecordedAssertions assertions;
  for (const TypeParam& sample : test::samplesOf<TypeParam>()) {
    MD_Variant value("what was there before");
    {
      mInt message;
      ASSERT_TRUE(message.add(test::fieldOf<TypeParam>(), sample));
      ASSERT_TRUE(message.get(test::fieldOf<TypeParam>(), value));
      message.clearImpl();
      ASSERT_TRUE(message.add(id::kString2, std::string(200, '#')));
    }
    EXPECT_EQ(value.type(), MD_Variant(sample).type());
    EXPECT_EQ(rawOf(value.get<TypeParam>()), rawOf(sample)) << "also when the message is gone";
  }
  EXPECT_TRUE(assertions.entries().empty());
}

TYPED_TEST(VariantOf, IsAddedAsTheTypedValueIs) {
  const test::RecordedAssertions assertions;
  for (const TypeParam& sample : test::samplesOf<TypeParam>()) {
    const std::uint16_t field = test::fieldOf<TypeParam>();
    mInt typed;
    ASSERT_TRUE(typed.add(field, sample));
    mInt message;
    EXPECT_TRUE(message.add(field, MD_Variant(sample)));
    EXPECT_EQ(test::hexOf(message), test::hexOf(typed));
    EXPECT_EQ(message.fieldCount(), 1u);
    EXPECT_FALSE(message.add(field, MD_Variant(sample))) << "it is there already";
    EXPECT_EQ(test::hexOf(message), test::hexOf(typed));
  }
  EXPECT_TRUE(assertions.entries().empty());
}

TYPED_TEST(VariantOf, UpdatesAsTheTypedValueDoes) {
  const test::RecordedAssertions assertions;
  const std::vector<TypeParam> samples = test::samplesOf<TypeParam>();
  const std::uint16_t field = test::fieldOf<TypeParam>();
  for (const TypeParam& before : samples) {
    for (const TypeParam& after : samples) {
      mInt typed;
      mInt message;
      ASSERT_TRUE(typed.update(field, before));
      EXPECT_TRUE(message.update(field, MD_Variant(before)));
      ASSERT_TRUE(typed.add(test::fieldOf<TypeParam>(true), before));
      ASSERT_TRUE(message.add(test::fieldOf<TypeParam>(true), before));
      ASSERT_TRUE(typed.update(field, after));
      EXPECT_TRUE(message.update(field, MD_Variant(after)));
      EXPECT_EQ(test::hexOf(message), test::hexOf(typed));
    }
  }
  EXPECT_TRUE(assertions.entries().empty());
}

class VariantOfAMessage : public testing::Test {
 protected:
  VariantOfAMessage() { test::loadDictionary(test::kDictionary); }

  void expectAssertion(const std::string& assertion) {
    EXPECT_EQ(m_assertions.entries(), std::vector<std::string>{assertion});
    m_assertions.entries().clear();
  }

  const test::RecordedAssertions m_assertions;
  mInt m_message;
};

TEST_F(VariantOfAMessage, GetOfAFieldThatIsNotThereChangesNothing) {
  for (const std::uint16_t field : {std::uint16_t{id::kInt}, std::uint16_t{id::kString}, std::uint16_t{id::kUnknown},
                                    std::uint16_t{id::kBeyond}, std::uint16_t{65535}}) {
    SCOPED_TRACE(field);
    MD_Variant value("as it was");
    EXPECT_FALSE(m_message.get(field, value));
    EXPECT_EQ(value, MD_Variant("as it was"));
  }
  EXPECT_TRUE(m_assertions.entries().empty());
}

TEST_F(VariantOfAMessage, GetOfATruncatedFieldChangesNothing) {
  const auto message = test::parse<mInt>(test::fromHex("06 3C 00 09 41 42"));
  ASSERT_TRUE(message->existsImpl(id::kString));
  MD_Variant value(7);
  EXPECT_FALSE(message->get(id::kString, value));
  EXPECT_EQ(value, MD_Variant(7));
  EXPECT_TRUE(m_assertions.entries().empty());
}

TEST_F(VariantOfAMessage, GetReplacesAStringByANumber) {
  ASSERT_TRUE(m_message.add(id::kInt, 5));
  MD_Variant value(std::string(1000, 'x'));
  EXPECT_TRUE(m_message.get(id::kInt, value));
  EXPECT_EQ(value, MD_Variant(5));
}

TEST_F(VariantOfAMessage, APriceIsAnInt) {
  EXPECT_TRUE(m_message.add(id::kOptiPrice, MD_Variant(70'000)));
  EXPECT_TRUE(m_message.update(id::kOptiPrice, MD_Variant(80'000)));
  MD_Variant value;
  EXPECT_TRUE(m_message.get(id::kOptiPrice, value));
  EXPECT_EQ(value, MD_Variant(80'000));
  EXPECT_TRUE(m_assertions.entries().empty());
}

TEST_F(VariantOfAMessage, TypesThatMessagesDoNotCarryAreAssertedAgainst) {
  for (const std::uint16_t field : {std::uint16_t{id::kRaw}, std::uint16_t{id::kShort}, std::uint16_t{id::kFraction}}) {
    SCOPED_TRACE(field);
    MD_Variant value("as it was");
    EXPECT_FALSE(m_message.get(field, value));
    expectAssertion("md_message/src/md_message:177: 0");
    EXPECT_EQ(value, MD_Variant("as it was"));
    EXPECT_FALSE(m_message.add(field, MD_Variant(5)));
    expectAssertion("md_message/src/md_message:217: 0");
    EXPECT_FALSE(m_message.update(field, MD_Variant(5)));
    expectAssertion("md_message/src/md_message:257: 0");
    EXPECT_EQ(test::hexOf(m_message), "06");
  }
}

TEST_F(VariantOfAMessage, AddAndUpdateOfAnUnknownFieldAreAssertedAgainst) {
  for (const std::uint16_t field : {std::uint16_t{id::kUnknown}, std::uint16_t{id::kBeyond}, std::uint16_t{65535}}) {
    SCOPED_TRACE(field);
    EXPECT_FALSE(m_message.add(field, MD_Variant(5)));
    expectAssertion("md_message/src/md_message:217: 0");
    EXPECT_FALSE(m_message.update(field, MD_Variant()));
    expectAssertion("md_message/src/md_message:257: 0");
    EXPECT_EQ(test::hexOf(m_message), "06");
  }
}

TEST_F(VariantOfAMessage, AMismatchIsAssertedAgainstAndTheDictionarysTypeIsWritten) {
  EXPECT_TRUE(m_message.add(id::kInt, MD_Variant('A')));
  expectAssertion(kMismatch);
  EXPECT_EQ(test::hexOf(m_message), "06 2C 01 01 41");

  EXPECT_TRUE(m_message.update(id::kInt, MD_Variant(MD_EpochNS(0x1234567800000142))));
  expectAssertion(kMismatch);
  EXPECT_EQ(test::hexOf(m_message), "06 2C 01 02 42 01");

  EXPECT_TRUE(m_message.add(id::kString, MD_Variant(5)));
  expectAssertion(kMismatch);
  EXPECT_EQ(test::hexOf(m_message), "06 2C 01 02 42 01 3C 00 01 00");

  EXPECT_TRUE(m_message.add(id::kBuffer, MD_Variant("text")));
  expectAssertion(kMismatch);
  EXPECT_EQ(test::hexOf(m_message), "06 2C 01 02 42 01 3C 00 01 00 46 00 00");

  EXPECT_TRUE(m_message.add(id::kDateTime, MD_Variant()));
  expectAssertion(kMismatch);
  EXPECT_EQ(test::hexOf(m_message), "06 2C 01 02 42 01 3C 00 01 00 46 00 00 50 00 08 00 00 00 00 00 00 00 00");
}

TEST_F(VariantOfAMessage, TheSlotsResultIsReturned) {
  test::CapturedErrors errors;
  EXPECT_FALSE(m_message.add(id::kString, MD_Variant(std::string(255, 'x'))));
  EXPECT_EQ(errors.take(), "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n");
  EXPECT_TRUE(m_message.add(id::kString, MD_Variant("short")));
  EXPECT_FALSE(m_message.update(id::kString, MD_Variant(std::string(300, 'x'))));
  EXPECT_EQ(errors.take(), "mInt Error: Attempting to ADD field of length 301 which is > max length 255\n");
  EXPECT_TRUE(m_assertions.entries().empty());
}

TEST_F(VariantOfAMessage, AStringsLengthIsCutTo16Bits) {
  EXPECT_TRUE(m_message.add(id::kString, MD_Variant(std::string(65'540, 'x'))));
  std::string text;
  EXPECT_TRUE(m_message.get(id::kString, text));
  EXPECT_EQ(text, "xxxx");
}

}  // namespace
}  // namespace MD
