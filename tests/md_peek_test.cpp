// Reading received bytes without a message, compared with the message that is built from them.
#include "md/md_peek.h"

#include <cstdint>

#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/messages.h"
#include "support/peek_comparison.h"
#include "support/random_choices.h"

namespace MD::test {
namespace {

class Peek : public testing::Test {
 protected:
  Peek() { loadDictionary(kDictionary); }
};

class PeekOfEncoding : public testing::TestWithParam<std::uint8_t> {
 protected:
  PeekOfEncoding() { loadDictionary(kDictionary); }
};

INSTANTIATE_TEST_SUITE_P(Each, PeekOfEncoding,
                         testing::Values(std::uint8_t{ENCODINGS::MINT}, std::uint8_t{ENCODINGS::ITERMAP},
                                         std::uint8_t{ENCODINGS::MSGT}),
                         [](const auto& row) { return "Code" + std::to_string(row.param); });

/// A message with a field of each type.
std::unique_ptr<MD_Message> messageOfAllTypes(std::uint8_t code) {
  auto message = MD_Message::createFromPB(code);
  for (const ValueType& type : valueTypes()) {
    EXPECT_TRUE(type.add(*message, type.field, 0)) << type.name;
  }
  return message;
}

TEST_P(PeekOfEncoding, ReadsWhatTheMessageHolds) {
  const Bytes bytes = bytesOf(*messageOfAllTypes(GetParam()));
  MD_Message::String text;
  ASSERT_TRUE(peek(bytes.data(), static_cast<std::uint32_t>(bytes.size()), id::kString, text));
  EXPECT_EQ(text, "IBM");
  EXPECT_TRUE(text.data >= reinterpret_cast<const char*>(bytes.data()));
  EXPECT_EQ(receivedDifference(bytes), "");
}

TEST_P(PeekOfEncoding, AgreesOnEveryPrefix) {
  const Bytes bytes = bytesOf(*messageOfAllTypes(GetParam()));
  for (std::size_t length = 0; length <= bytes.size(); ++length) {
    ASSERT_EQ(receivedDifference(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length))), "")
        << length;
  }
}

TEST_P(PeekOfEncoding, AgreesOnEveryChangedByte) {
  const Bytes bytes = bytesOf(*messageOfAllTypes(GetParam()));
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (const int change : {1, 2, 0x10, 0x80, 0xFF}) {
      Bytes changed = bytes;
      changed[at] = static_cast<std::uint8_t>(changed[at] ^ change);
      ASSERT_EQ(receivedDifference(changed), "") << toHex(changed);
    }
  }
}

TEST_P(PeekOfEncoding, AgreesOnRandomBytes) {
  for (std::uint32_t seed = 1; seed <= 3000; ++seed) {
    RandomChoices random(seed);
    auto message = MD_Message::createFromPB(GetParam());
    for (unsigned fields = random.below(8); fields > 0; --fields) {
      const std::uint16_t id = random.someId();
      const ModelValue value = random.someValue(id);
      CapturedErrors errors;
      RandomChoices::withTyped(value, [&](auto typed) { return message->add(id, typed); });
    }
    const Bytes bytes = random.someBytes(*message);
    ASSERT_EQ(receivedDifference(bytes), "") << "seed " << seed << ": " << toHex(bytes);
  }
}

TEST_F(Peek, ReadsNothingFromBytesOfNoEncoding) {
  EXPECT_EQ(receivedDifference(fromHex("07 2C 01 01 05")), "");
  EXPECT_EQ(receivedDifference({}), "");
  std::int32_t value = 7;
  EXPECT_FALSE(peek(nullptr, 5, id::kInt, value));
  EXPECT_FALSE(peekFirst(nullptr, 5, id::kInt, value));
  const Bytes bytes = fromHex("06 2C 01 01 05");
  EXPECT_FALSE(peek(bytes.data(), 0, id::kInt, value));
  EXPECT_EQ(value, 7);
}

TEST_F(Peek, TakesTheLastRecordOfARepeatedField) {
  const Bytes bytes = fromHex("06 2C 01 01 05 2D 01 01 06 2C 01 01 07");
  const auto size = static_cast<std::uint32_t>(bytes.size());
  std::int32_t value = 0;
  EXPECT_TRUE(peek(bytes.data(), size, id::kInt, value));
  EXPECT_EQ(value, 7);
  EXPECT_TRUE(peekFirst(bytes.data(), size, id::kInt, value));
  EXPECT_EQ(value, 5);
  EXPECT_EQ(receivedDifference(bytes), "");
}

// A DOUBLE of two bytes takes the other six from what follows it in the message, from which field 9999 is gone.
TEST_F(Peek, ReadsOnWhereAMessageDoes) {
  const Bytes bytes = fromHex("06 16 00 02 00 00 0F 27 03 AA BB CC 2C 01 04 40 41 42 43");
  double value = 0;
  ASSERT_TRUE(peek(bytes.data(), static_cast<std::uint32_t>(bytes.size()), id::kDouble, value));
  const std::string raw = rawOf(value);
  EXPECT_EQ(toHex(Bytes(raw.begin(), raw.end())), "00 00 2C 01 04 40 41 42");
  EXPECT_EQ(receivedDifference(bytes), "");
}

/// What is read from a record whose length field is 0, and which two CHAR records follow: raw bytes in hex, null for
/// nothing. Where the encoding has a width for the type, the value consists of the first bytes after the record.
struct EmptyRecordCase {
  const char* type;
  const char* ofMInt;
  const char* ofMsgT;
};

constexpr EmptyRecordCase kEmptyRecordCases[] = {
    {"Char", "0A", "00"},
    {"Int", nullptr, "01 00 0A 00"},
    {"Int64", "0A 00 01 41 0A 00 01 42", "01 00 00 00 01 00 0A 00"},
    {"Float", "0A 00 01 41", "01 00 0A 00"},
    {"Double", "0A 00 01 41 0A 00 01 42", "01 00 00 00 01 00 0A 00"},
    {"String", "", ""},
    {"Buffer", "", ""},
    {"DateTime", "0A 00 01 41 0A 00 01 42", "00 0A 00 01 00 00 00 01"},
    {"EpochNS", "0A 00 01 41 0A 00 01 42", "00 0A 00 01 00 00 00 01"},
};

TEST_F(Peek, ReadsEachTypeBeyondAnEmptyRecord) {
  std::size_t row = 0;
  forEachValueType([&](auto sample, const std::string& typeName) {
    using T = decltype(sample);
    const EmptyRecordCase& expected = kEmptyRecordCases[row++];
    ASSERT_EQ(typeName, expected.type);
    const auto id = static_cast<std::uint8_t>(fieldOf<T>(true));  // below 256 or, of an INT, 301
    const auto high = static_cast<std::uint8_t>(fieldOf<T>(true) >> 8);
    Bytes mInt = {6, id, high, 0};
    const Bytes charsOfMInt = fromHex("0A 00 01 41 0A 00 01 42");
    mInt.insert(mInt.end(), charsOfMInt.begin(), charsOfMInt.end());
    Bytes msgT = {0x46, 0x51, 0x52, 0x31, high, id, 0, detail::kTypeCode<T>, 0, 0, 0, 0};
    const Bytes charsOfMsgT = fromHex("00 0A 00 01 00 00 00 01 41 00 0A 00 01 00 00 00 01 42");
    msgT.insert(msgT.end(), charsOfMsgT.begin(), charsOfMsgT.end());
    for (const Bytes& bytes : {mInt, msgT}) {
      SCOPED_TRACE(typeName + " of " + std::to_string(bytes[0]));
      const char* const value = bytes[0] == ENCODINGS::MINT ? expected.ofMInt : expected.ofMsgT;
      const auto size = static_cast<std::uint32_t>(bytes.size());
      for (const bool isFirst : {false, true}) {
        T out{};
        EXPECT_EQ(isFirst ? peekFirst(bytes.data(), size, fieldOf<T>(true), out)
                          : peek(bytes.data(), size, fieldOf<T>(true), out),
                  value != nullptr);
        const std::string raw = rawOf(out);
        EXPECT_EQ(toHex(Bytes(raw.begin(), raw.end())), value != nullptr ? value : "00 00 00 00");
      }
      EXPECT_EQ(receivedDifference(bytes), "");
    }
  });
}

/// An IterMap of a string with the length field 0, then one-byte fields that fill `filledBytes`, some of which a
/// message drops if `isSplit`.
Bytes longestString(std::size_t filledBytes, bool isSplit) {
  Bytes bytes = fromHex("01 3C 00 00 00");
  for (std::size_t filled = 0; filled + 3 <= filledBytes; filled += 3) {
    const Bytes record = isSplit && filled == 300 ? fromHex("0F 27 0A 00 01") : fromHex("0A 00 01");
    bytes.insert(bytes.end(), record.begin(), record.end());
  }
  bytes.resize(5 + filledBytes + (isSplit ? 2 : 0), 0x0A);
  return bytes;
}

TEST_F(Peek, ReadsTheLongestStringWhereItIsContiguous) {
  for (const std::size_t filledBytes : {65533U, 65535U, 65536U, 65539U}) {
    for (const bool isSplit : {false, true}) {
      SCOPED_TRACE(std::to_string(filledBytes) + (isSplit ? " split" : ""));
      const Bytes bytes = longestString(filledBytes, isSplit);
      MD_Message::String text("x", 1);
      const bool isRead = peek(bytes.data(), static_cast<std::uint32_t>(bytes.size()), id::kString, text);
      const bool isLongest = filledBytes > 65536;  // a lone byte at the end is dropped
      EXPECT_EQ(isRead, !(isLongest && isSplit));
      EXPECT_EQ(text.length, !isRead ? 1 : isLongest ? 65535 : 0);
      EXPECT_EQ(receivedDifference(bytes), "");
    }
  }
}

}  // namespace
}  // namespace MD::test
