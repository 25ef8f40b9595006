// Copies onto messages that hold the same fields already. A copy closes the target up once, where it used to do so for
// each field; the algorithm of before, an add and, where that fails, an update for each field, is the reference here.
#include <cstdint>

#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_assert.h"
#include "md/md_datatypes.h"
#include "md/md_fieldmap.h"
#include "md/md_message.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD {
namespace {

using test::Bytes;
using test::CapturedErrors;
using test::Ids;

constexpr std::uint8_t kCodes[] = {1, 6, 70};

/// Writes assertions between the reports, so that their order is compared, too.
class AssertionsAsReports {
 public:
  AssertionsAsReports() : m_previous(set_assertion_handler(&AssertionsAsReports::write)) {}
  ~AssertionsAsReports() { set_assertion_handler(m_previous); }
  AssertionsAsReports(const AssertionsAsReports&) = delete;
  AssertionsAsReports& operator=(const AssertionsAsReports&) = delete;

  static void write(const char* expression, const char* file, unsigned line) {
    std::cerr << file << ':' << line << ": " << expression << '\n';
  }

 private:
  AssertionHandler m_previous;
};

/// What copyMsg() did before.
void copyFieldByField(const MD_Message& source, MD_Message& target) {
  constexpr const char* kFile = "md_message/src/md_message";
  Ids ids;
  source.getFieldIdsImpl(ids);
  for (const std::uint16_t id : ids) {
    const std::uint8_t type = MD_FieldMap::instance().packed(id).type;
    unsigned line = 300;
    bool isValueType = false;
    const auto copyAs = [&](auto value, std::uint8_t code) {
      if (type == code) {
        isValueType = true;
        if (!source.get(id, value)) {
          AssertionsAsReports::write("b == true", kFile, line);
        } else if (!target.add(id, value) && !target.update(id, value)) {
          AssertionsAsReports::write("b == true", kFile, line + 3);
        }
      }
      line += 10;
    };
#define MD_COPY(T, name, code) copyAs(T{}, code);
    MD_VALUE_TYPES(MD_COPY)
#undef MD_COPY
    if (!isValueType) {
      AssertionsAsReports::write("0", kFile, 389);
    }
  }
}

constexpr const char* kFields =
    "S1 1 STRING S2 2 STRING S3 3 STRING S4 4 STRING B1 5 BUFFER B2 6 BUFFER I1 7 INT I2 8 INT L 9 INT64 D 10 DOUBLE "
    "C 11 CHAR T 12 DATETIME E 13 EPOCH_NSEC F 14 FLOAT SHORTY 15 SHORT RAWLY 16 RAW "
    "T1 17 STRING T2 18 STRING T3 19 STRING T4 20 STRING T5 21 STRING T6 22 STRING T7 23 STRING T8 24 STRING "
    "T9 25 STRING T10 26 STRING T11 27 STRING T12 28 STRING T13 29 STRING T14 30 STRING T15 31 BUFFER T16 32 BUFFER";
constexpr std::uint16_t kLastField = 32;  // a copy erases the first eight records at once, and all others later

class Choices {
 public:
  explicit Choices(std::uint32_t seed) : m_random(seed) {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
  bool oneIn(unsigned count) { return below(count) == 0; }
  std::uint16_t field() { return static_cast<std::uint16_t>(1 + below(kLastField)); }
  std::string text() {
    if (oneIn(120)) {
      return longText(65'534 + below(2));
    }
    std::string text(oneIn(8) ? 250 + below(8) : below(6), '\0');
    for (char& c : text) {
      c = static_cast<char>(oneIn(3) ? below(20) : 'a' + below(3));
    }
    return text;
  }

  /// Sets a field to a value, by add or update. Both may fail.
  void set(MD_Message& message, std::uint16_t id, bool isUpdate) {
    const auto put = [&](auto value) { isUpdate ? message.update(id, value) : message.add(id, value); };
    switch (MD_FieldMap::instance().packed(id).type) {
      case DATATYPES::STRING:
        return put(text());
      case DATATYPES::BUFFER:
        return put(test::bufferOf(text()));
      case DATATYPES::INT:
        return put(static_cast<std::int32_t>(oneIn(2) ? below(128) : oneIn(2) ? below(32'768) : m_random()));
      case DATATYPES::INT64:
        return put(static_cast<std::int64_t>(m_random()));
      case DATATYPES::DOUBLE:
        return put(below(1000) / 8.0);
      case DATATYPES::FLOAT:
        return put(static_cast<float>(below(1000)) / 8.0F);
      case DATATYPES::CHAR:
        return put(static_cast<char>('a' + below(26)));
      case DATATYPES::DATETIME:
        return put(MD_DateTime(20240115, static_cast<std::int32_t>(below(1000)), 0));
      case DATATYPES::EPOCH_NSEC:
        return put(MD_EpochNS(m_random()));
      default:
        return;
    }
  }

  /// Received bytes: records of any fields, repeated ones among them, and sometimes truncated or changed.
  Bytes received(std::uint8_t code) {
    const auto single = MD_Message::createFromPB(code);
    Bytes bytes = test::bytesOf(*single);
    const std::size_t header = bytes.size();
    for (unsigned count = below(oneIn(2) ? 80 : 12); count != 0; --count) {
      single->clearImpl();
      set(*single, field(), false);
      const Bytes record = test::bytesOf(*single);
      bytes.insert(bytes.end(), record.begin() + static_cast<std::ptrdiff_t>(header), record.end());
    }
    if (oneIn(8)) {
      bytes.resize(bytes.size() - below(static_cast<unsigned>(bytes.size() - header) + 1));
    }
    if (oneIn(8) && bytes.size() > header) {
      bytes[header + below(static_cast<unsigned>(bytes.size() - header))] = static_cast<std::uint8_t>(below(256));
    }
    return bytes;
  }

  /// A message with a past.
  std::unique_ptr<MD_Message> message(std::uint8_t code) {
    auto message = test::parse(code, received(code));
    for (unsigned count = below(8); count != 0; --count) {
      if (oneIn(3)) {
        message->eraseImpl(field());
      } else {
        set(*message, field(), oneIn(2));
      }
    }
    return message;
  }

 private:
  /// `IterMap` does not store the length of a string of 65,535 characters: they and the NUL after them are read as a
  /// record of SHORTY and records of C.
  static std::string longText(std::size_t length) {
    std::string text("\x0F\0ab", 4);
    while (text.size() < length) {
      text.append("\x0B\0x", 3);
    }
    text.resize(length);
    return text;
  }

  std::mt19937 m_random;
};

/// Everything that can be read from a message, and what an erase leaves of it.
std::string everythingOf(MD_Message& message, std::uint16_t erased) {
  const auto fields = [&] {
    std::string text = test::hexOf(message) + '\n' + std::to_string(message.fieldCount()) + " fields:";
    for (const std::uint16_t id : test::idsOf(message)) {
      text += ' ' + std::to_string(id);
    }
    for (std::uint16_t id = 1; id <= kLastField; ++id) {
      text += '\n' + std::to_string(id) + (message.existsImpl(id) ? " is there" : "");
      test::forEachValueType([&](auto value, const char* name) {
        if (message.get(id, value)) {
          text += std::string(" ") + name + ' ' + test::rawOf(value);
        }
      });
    }
    return text;
  };
  std::string text = fields();
  text += message.eraseImpl(erased) ? "\nerased:\n" : "\nnot erased:\n";
  return text + fields();
}

/// Bad fields are reported 101 times in a process: so that every copy has the same reports, not once from here on.
void useUpBadFieldReports() {
  const CapturedErrors errors;
  for (const std::uint8_t code : kCodes) {
    Bytes bytes = test::bytesOf(*MD_Message::createFromPB(code));
    bytes.insert(bytes.end(), 4000, 0xFF);
    for (int i = 0; i != 101; ++i) {
      test::parse(code, bytes);
    }
  }
}

class CopyReplacement : public testing::Test {
 protected:
  CopyReplacement() {
    test::loadDictionary(kFields);
    useUpBadFieldReports();
  }

  AssertionsAsReports m_assertions;
};

TEST_F(CopyReplacement, IsACopyFieldByField) {
  constexpr std::uint32_t kRounds = 3000;
  CapturedErrors errors;
  for (std::uint32_t round = 0; round != kRounds; ++round) {
    const std::uint8_t targetCode = kCodes[round % 3];
    const std::uint8_t sourceCode = kCodes[round / 3 % 3];
    const auto source = Choices(round).message(sourceCode);
    const auto target = Choices(round + kRounds).message(targetCode);
    const auto expected = Choices(round + kRounds).message(targetCode);
    ASSERT_EQ(test::hexOf(*target), test::hexOf(*expected));
    const std::uint16_t erased = Choices(round).field();
    errors.take();

    copyFieldByField(*source, *expected);
    const std::string expectedReports = errors.take();
    target->copyMsg(*source);
    const std::string reports = errors.take();
    ASSERT_EQ(reports, expectedReports) << "round " << round;
    std::string expectedContents = everythingOf(*expected, erased);
    expectedContents += errors.take();
    std::string contents = everythingOf(*target, erased);
    contents += errors.take();
    ASSERT_EQ(contents, expectedContents) << "round " << round;
  }
}

/// A message of all the fields that a dictionary of strings gives to the ids from 1 on.
std::unique_ptr<MD_Message> messageOfStrings(std::uint8_t code, std::uint16_t count, const std::string& value) {
  auto message = MD_Message::createFromPB(code);
  for (std::uint16_t id = 1; id <= count; ++id) {
    EXPECT_TRUE(message->add(id, value));
  }
  return message;
}

// Fifty thousand fields, so that a test of a debug build ends at all.
TEST_F(CopyReplacement, OfManyFieldsEndsInOrder) {
  constexpr std::uint16_t kFieldCount = 50'000;
  std::string fields;
  for (std::uint16_t id = 1; id <= kFieldCount; ++id) {
    fields += "F" + std::to_string(id) + ' ' + std::to_string(id) + " STRING\n";
  }
  test::loadDictionary(fields);
  for (const std::uint8_t targetCode : kCodes) {
    for (const std::uint8_t sourceCode : kCodes) {
      SCOPED_TRACE(std::to_string(sourceCode) + " to " + std::to_string(targetCode));
      const auto target = messageOfStrings(targetCode, kFieldCount, "some value");
      target->copyMsg(*messageOfStrings(sourceCode, kFieldCount, "another one"));
      EXPECT_EQ(test::bytesOf(*target), test::bytesOf(*messageOfStrings(targetCode, kFieldCount, "another one")));
      std::string value;
      EXPECT_TRUE(target->get(kFieldCount, value));
      EXPECT_EQ(value, "another one");
    }
  }
}

// An assertion's handler may leave by an exception: the message is then as after the fields before.
TEST_F(CopyReplacement, ThatAHandlerEndsLeavesTheFieldsBefore) {
  const auto source = MD_Message::createFromPB(70);
  ASSERT_TRUE(source->add(2, "two2"));
  ASSERT_TRUE(source->add(3, std::string(255, 'x')));
  ASSERT_TRUE(source->add(1, "one1"));
  const auto target = MD_Message::createFromPB(6);
  ASSERT_TRUE(target->add(1, "one"));
  ASSERT_TRUE(target->add(2, "two"));
  ASSERT_TRUE(target->add(4, "four"));
  const AssertionHandler previous =
      set_assertion_handler([](const char*, const char*, unsigned line) { throw static_cast<int>(line); });
  const CapturedErrors errors;
  int line = 0;
  try {
    target->copyMsg(*source);
  } catch (int thrown) {
    line = thrown;
  }
  set_assertion_handler(previous);
  EXPECT_EQ(line, 353);
  EXPECT_EQ(test::hexOf(*target), "06 01 00 04 6F 6E 65 00 04 00 05 66 6F 75 72 00 02 00 05 74 77 6F 32 00");
}

// A repeated field's earlier record comes into use where the field is absent when a record before it is erased.
TEST_F(CopyReplacement, EarlierRecordsComeIntoUseAsBefore) {
  CapturedErrors errors;
  const auto source = MD_Message::createFromPB(70);
  ASSERT_TRUE(source->add(2, std::string(255, 'x')));  // too long for the target, which loses the field's last record
  ASSERT_TRUE(source->add(1, "longer"));
  // Field 1 "a", field 2 "b", field 2 "c".
  const auto target = test::parse(6, test::fromHex("06 01 00 02 61 00 02 00 02 62 00 02 00 02 63 00"));
  target->copyMsg(*source);
  EXPECT_EQ(test::hexOf(*target), "06 02 00 02 62 00 01 00 07 6C 6F 6E 67 65 72 00");
  std::string value;
  EXPECT_TRUE(target->get(2, value));
  EXPECT_EQ(value, "b");
  EXPECT_EQ(errors.take(),
            "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n"
            "md_message/src/md_message:353: b == true\n");
}

// `IterMap` does not store the length of a string of 65,535 characters: the next erase moves what is read as records.
TEST_F(CopyReplacement, OfAStringWithoutAValidLengthIsAsBefore) {
  constexpr std::uint16_t kFirst = 17;
  constexpr std::uint16_t kLast = 30;
  constexpr std::uint16_t kLong = 28;
  CapturedErrors errors;
  const auto source = MD_Message::createFromPB(ENCODINGS::MSGT);
  const auto target = MD_Message::createFromPB(ENCODINGS::ITERMAP);
  const auto expected = MD_Message::createFromPB(ENCODINGS::ITERMAP);
  for (std::uint16_t id = kFirst; id <= kLast; ++id) {
    ASSERT_TRUE(source->add(id, id == kLong ? std::string(65'535, 'x') : "longer"));
    ASSERT_TRUE(target->add(id, "old"));
    ASSERT_TRUE(expected->add(id, "old"));
  }
  copyFieldByField(*source, *expected);
  const std::string expectedReports = errors.take();
  target->copyMsg(*source);
  EXPECT_EQ(errors.take(), expectedReports);
  EXPECT_EQ(test::bytesOf(*target), test::bytesOf(*expected));
}

}  // namespace
}  // namespace MD
