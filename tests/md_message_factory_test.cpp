// Messages by encoding code, from received bytes and by the site's preference.
#include <cstdint>
#include <cstring>

#include <memory>
#include <new>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "md/md_mint.h"
#include "support/allocations.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/fresh_process.h"
#include "support/golden_records.h"
#include "support/messages.h"

namespace MD {
namespace {

using test::Bytes;
using test::CapturedErrors;
using test::ConfigurationFolder;
using test::HeapBlock;
namespace id = test::id;

/// The code of the message's encoding, 0 for an empty pointer.
int codeOf(const std::unique_ptr<MD_Message>& message) { return message != nullptr ? message->getPB() : 0; }

std::unique_ptr<MD_Message> fromBytes(const Bytes& bytes) {
  const HeapBlock block(bytes);
  return MD_Message::createFromBytes(block.data(), block.size());
}

using test::Encoding;

class Factory : public testing::TestWithParam<Encoding> {
 protected:
  void SetUp() override { test::loadDictionary(test::kDictionary); }

  static std::string emptyHex() { return test::goldenHeader(GetParam().code); }
  /// QTY 300 is 100000, SYMBOL 60 is "IBM".
  static std::string filledHex() { return test::goldenMessage(GetParam().code, {"IntHundredThousand", "StringIbm"}); }
  static Bytes filled() { return test::fromHex(filledHex()); }
};

INSTANTIATE_TEST_SUITE_P(Encodings, Factory, test::eachEncoding(), test::nameOfEncoding);

TEST_P(Factory, MakesAnEmptyMessageOfACode) {
  const std::unique_ptr<MD_Message> message = MD_Message::createFromPB(GetParam().code);
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->getPB(), GetParam().code);
  EXPECT_TRUE(message->emptyImpl());
  EXPECT_EQ(test::hexOf(*message), emptyHex());
  EXPECT_EQ(message->fieldCount(), 0U);
}

TEST_P(Factory, MessagesOfACodeAreIndependent) {
  const auto first = MD_Message::createFromPB(GetParam().code);
  const auto second = MD_Message::createFromPB(GetParam().code);
  ASSERT_TRUE(first->add(id::kInt, 5));
  EXPECT_TRUE(second->emptyImpl());
  EXPECT_EQ(test::hexOf(*second), emptyHex());
}

TEST_P(Factory, RecognisesReceivedBytesByTheFirst) {
  CapturedErrors errors;
  const auto message = fromBytes(filled());  // a copy: the bytes are gone
  EXPECT_EQ(codeOf(message), GetParam().code);
  EXPECT_EQ(test::hexOf(*message), filledHex());
  EXPECT_EQ(message->fieldCount(), 2U);
  std::int32_t quantity = 0;
  EXPECT_TRUE(message->get(id::kInt, quantity));
  EXPECT_EQ(quantity, 100000);
  std::string symbol;
  EXPECT_TRUE(message->get(id::kString, symbol));
  EXPECT_EQ(symbol, "IBM");
  EXPECT_EQ(errors.take(), "");
}

TEST_P(Factory, AMessageOfReceivedBytesGoesOnAsOneOfItsOwn) {
  const auto message = fromBytes(filled());
  EXPECT_FALSE(message->add(id::kInt, 1));
  EXPECT_TRUE(message->add(id::kChar, 'x'));
  EXPECT_TRUE(message->eraseImpl(id::kInt));
  EXPECT_EQ(test::idsOf(*message), (test::Ids{id::kString, id::kChar}));
}

TEST_P(Factory, AHeaderAloneIsAnEmptyMessage) {
  const auto message = fromBytes(test::fromHex(emptyHex()));
  EXPECT_EQ(codeOf(message), GetParam().code);
  EXPECT_TRUE(message->emptyImpl());
  EXPECT_EQ(test::hexOf(*message), emptyHex());
}

TEST_P(Factory, TheFirstByteAloneIsAnEmptyMessage) {
  CapturedErrors errors;
  const auto message = fromBytes({GetParam().code});
  EXPECT_EQ(codeOf(message), GetParam().code);
  EXPECT_TRUE(message->emptyImpl());
  EXPECT_EQ(message->getSizeImpl(), 1U);
  EXPECT_EQ(test::idsOf(*message), test::Ids{});
  EXPECT_EQ(errors.take(), "");
}

TEST_P(Factory, AFieldUnknownToTheDictionaryIsCutOut) {
  Bytes bytes = filled();
  // A record of the unknown id 999 without a value, after the others.
  const Bytes record = GetParam().code == 1   ? test::fromHex("E7 03")
                       : GetParam().code == 6 ? test::fromHex("E7 03 00")
                                              : test::fromHex("03 E7 00 02 00 00 00 00");
  bytes.insert(bytes.end(), record.begin(), record.end());
  CapturedErrors errors;
  const auto message = fromBytes(bytes);
  EXPECT_EQ(test::hexOf(*message), filledHex());
  const std::uint8_t typeOnTheWire = GetParam().code == 70 ? 2 : 0;
  EXPECT_EQ(errors.take(), test::badField(999, typeOnTheWire, 0) +
                               test::remainder("QTY                    = 100000\nSYMBOL                 = IBM\n"));
}

TEST(MsgTFactory, ParsesFromTheFifthByteWhateverTheMarkSays) {
  test::loadDictionary(test::kDictionary);
  const auto message = fromBytes(test::fromHex("46 00 2C 01 01 2C 00 02 00 00 00 04 00 00 00 05"));
  ASSERT_EQ(codeOf(message), 70);
  std::int32_t quantity = 0;
  EXPECT_TRUE(message->get(id::kInt, quantity));
  EXPECT_EQ(quantity, 5);
  EXPECT_EQ(test::hexOf(*message), "46 00 2C 01 01 2C 00 02 00 00 00 04 00 00 00 05");
}

TEST(MessageFactory, KnowsNoOtherCode) {
  const CapturedErrors errors;  // of fields that a dictionary does not know
  for (int code = 0; code < 256; ++code) {
    SCOPED_TRACE(code);
    const bool isKnown = code == 1 || code == 6 || code == 70;
    const auto byte = static_cast<std::uint8_t>(code);
    EXPECT_EQ(codeOf(MD_Message::createFromPB(byte)), isKnown ? code : 0);
    EXPECT_EQ(codeOf(fromBytes({byte, 0x2C, 0x01, 0x01, 0x05})), isKnown ? code : 0);
  }
}

TEST(MessageFactory, NoBytesAreNoMessageAndNothingIsRead) {
  EXPECT_EQ(MD_Message::createFromBytes(nullptr, 0), nullptr);
  EXPECT_EQ(MD_Message::createFromBytes(nullptr, 5), nullptr);
  EXPECT_EQ(MD_Message::createFromBytes(nullptr, 5, MD_Message::DEFAULT_ALLOCATOR), nullptr);
  const HeapBlock block(Bytes{6});
  EXPECT_EQ(MD_Message::createFromBytes(block.data() + 1, 0), nullptr);
  EXPECT_EQ(MD_Message::createFromBytes(block.data() + 1, 0, MD_Message::DEFAULT_ALLOCATOR), nullptr);
  EXPECT_EQ(MD_Message::createFromBytes(block.data(), 0), nullptr);
}

// Pools ------------------------------------------------------------------------------------------------------------

using Buffers = ReusableContainer<MsgData>;
using Tables = ReusableContainer<Optimizer>;

/// Puts a buffer of 3000 bytes into the pool. @return the address of its memory
const std::uint8_t* addIdleBuffer(const std::shared_ptr<Buffers>& pool) {
  ReusableContainerWrapper<MsgData> buffer(true, pool);
  buffer->reserve(3000);
  return buffer->data();
}

/// The objects on top of the pool: the bytes of a buffer, the number of fields of a table; nothing for a new object.
Bytes topOf(const std::shared_ptr<Buffers>& pool) {
  const ReusableContainerWrapper<MsgData> buffer(true, pool);
  return Bytes(buffer->begin(), buffer->end());
}
std::size_t topOf(const std::shared_ptr<Tables>& pool) {
  const ReusableContainerWrapper<Optimizer> table(true, pool);
  return table->get_field_count();
}

TEST_P(Factory, TheAllocatorLendsToMIntAndMsgTOnly) {
  const MD_Message::Allocator allocator(std::make_shared<Buffers>(), std::make_shared<Tables>());
  const std::uint8_t* idle = addIdleBuffer(allocator.first);
  const bool borrows = GetParam().code != 1;

  auto message = MD_Message::createFromBytes(filled().data(), static_cast<std::uint32_t>(filled().size()), allocator);
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->getBinary() == idle, borrows);
  EXPECT_EQ(test::hexOf(*message), filledHex());
  EXPECT_EQ(message->fieldCount(), 2U);

  message.reset();  // objects go back as they are
  EXPECT_EQ(topOf(allocator.first), borrows ? filled() : Bytes{});
  EXPECT_EQ(topOf(allocator.second), borrows ? 2U : 0U);
}

TEST_P(Factory, WhatTheAllocatorLendsIsReset) {
  const MD_Message::Allocator allocator(std::make_shared<Buffers>(), std::make_shared<Tables>());
  MD_Message::createFromBytes(filled().data(), static_cast<std::uint32_t>(filled().size()), allocator).reset();
  const Bytes header = test::fromHex(emptyHex());
  const auto message = MD_Message::createFromBytes(header.data(), static_cast<std::uint32_t>(header.size()), allocator);
  EXPECT_EQ(test::hexOf(*message), emptyHex());
  EXPECT_EQ(message->fieldCount(), 0U);
  EXPECT_FALSE(message->existsImpl(id::kInt));
}

TEST_P(Factory, AnAllocatorMayHaveOnePoolOnly) {
  const bool borrows = GetParam().code != 1;
  const auto size = static_cast<std::uint32_t>(filled().size());
  const MD_Message::Allocator buffersOnly(std::make_shared<Buffers>(), nullptr);
  MD_Message::createFromBytes(filled().data(), size, buffersOnly).reset();
  EXPECT_EQ(topOf(buffersOnly.first), borrows ? filled() : Bytes{});

  const MD_Message::Allocator tablesOnly(nullptr, std::make_shared<Tables>());
  MD_Message::createFromBytes(filled().data(), size, tablesOnly).reset();
  EXPECT_EQ(topOf(tablesOnly.second), borrows ? 2U : 0U);
}

TEST_P(Factory, AMessageKeepsItsPoolsAlive) {
  auto message = MD_Message::createFromBytes(filled().data(), static_cast<std::uint32_t>(filled().size()),
                                             {std::make_shared<Buffers>(), std::make_shared<Tables>()});
  EXPECT_TRUE(message->add(id::kChar, 'x'));
  EXPECT_EQ(message->fieldCount(), 3U);
  message.reset();
}

TEST_P(Factory, UnrecognisedBytesBorrowNothing) {
  const MD_Message::Allocator allocator(std::make_shared<Buffers>(), std::make_shared<Tables>());
  addIdleBuffer(allocator.first);
  Bytes bytes = filled();
  bytes[0] = static_cast<std::uint8_t>(bytes[0] + 1);
  EXPECT_EQ(MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), allocator), nullptr);
  EXPECT_EQ(allocator.first.use_count(), 1);
  EXPECT_EQ(allocator.second.use_count(), 1);
  EXPECT_EQ(topOf(allocator.first), Bytes{});
}

// Every allocation fails once: the exception comes out, nothing leaks, and what was borrowed is back in its pool.
TEST_P(Factory, AnAllocationFailureComesOutAndLeavesNothingBehind) {
  const Bytes bytes = filled();
  // What destroyed messages left is in use, so that a message needs memory.
  std::vector<std::unique_ptr<MD_Message>> messages;
  messages.reserve(1000);
  for (bool isMemoryLeft = true; isMemoryLeft;) {
    const long before = test::Allocations::count;
    messages.push_back(MD_Message::createFromPB(GetParam().code));
    isMemoryLeft = test::Allocations::count == before;
  }
  int failures = 0;
  for (bool isMade = false; !isMade;) {
    SCOPED_TRACE(failures);
    ASSERT_LT(failures, 100);
    const MD_Message::Allocator allocator(std::make_shared<Buffers>(), std::make_shared<Tables>());
    std::unique_ptr<MD_Message> message;
    try {
      const test::FailingAllocation failing(failures);
      message = MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), allocator);
      isMade = !test::FailingAllocation::hasHappened();
    } catch (const std::bad_alloc&) {
      EXPECT_EQ(allocator.first.use_count(), 1);
      EXPECT_EQ(allocator.second.use_count(), 1);
      ++failures;
      continue;
    }
    ASSERT_TRUE(isMade) << "a failure was swallowed";
    EXPECT_EQ(test::bytesOf(*message), bytes);
    EXPECT_EQ(message->fieldCount(), 2U);
  }
  EXPECT_GT(failures, 0);
}

// The preferred encoding -------------------------------------------------------------------------------------------

constexpr const char* kFile = "message/preferred.conf";

int preferred(bool cached = false) { return codeOf(MD_Message::createPreferred(cached)); }

/// What a call without the cache makes once the file says `text`.
int preferredOf(const std::string& text) {
  ConfigurationFolder::write(kFile, text);
  return preferred();
}

struct PreferenceCase {
  const char* name;
  const char* text;
  int code;  ///< 0: an empty pointer
};

constexpr int kUnchanged = -1;

constexpr PreferenceCase kPreferences[] = {
    {"IterMap", "1", 1},
    {"MInt", "6", 6},
    {"MsgT", "70", 70},
    {"ALineEndBehind", "6\n", 6},
    {"WhitespaceAround", " \n\t 6 \r\n", 6},
    {"OnlyTheFirstToken", "6 1", 6},
    {"DigitsAndThenOthers", "6abc", 6},
    {"APlusSign", "+6", 6},
    {"LeadingZerosAreDecimal", "006", 6},
    {"AnEncodingThatIsNone", "2", 0},
    {"TheLargestThatIsNone", "69", 0},
    {"TheLowByteOf300Is44", "300", 0},
    {"TheLowByteOf262Is6", "262", 6},
    {"TheLowByteOf326Is70", "326", 70},
    {"TheLowByteOfMinus250Is6", "-250", 6},
    {"Zero", "0", kUnchanged},
    {"JustTooLarge", "71", kUnchanged},
    {"MinusOne", "-1", kUnchanged},
    {"TheLowByteOf256Is0", "256", kUnchanged},
    {"TheLowByteOf327Is71", "327", kUnchanged},
    {"Hexadecimal", "0x6", kUnchanged},
    {"AWord", "mInt", kUnchanged},
    {"Nothing", "", kUnchanged},
    {"WhitespaceOnly", " \n\n", kUnchanged},
};

TEST(Preferred, TheFileNamesTheEncoding) {
  const ConfigurationFolder folder;
  for (const PreferenceCase& row : kPreferences) {
    for (const int before : {1, 6, 70}) {
      SCOPED_TRACE(std::string(row.name) + " behind " + std::to_string(before));
      ASSERT_EQ(preferredOf(std::to_string(before)), before);
      EXPECT_EQ(preferredOf(row.text), row.code != kUnchanged ? row.code : before);
    }
  }
}

TEST(Preferred, ACodeThatIsNoEncodingStaysAsWell) {
  const ConfigurationFolder folder;
  EXPECT_EQ(preferredOf("300"), 0);
  EXPECT_EQ(preferredOf("0"), 0);
  ConfigurationFolder::remove(kFile);
  EXPECT_EQ(preferred(), 0);
  EXPECT_EQ(preferredOf("6"), 6);
}

TEST(Preferred, StaysWhenTheFileIsGone) {
  const ConfigurationFolder folder;
  EXPECT_EQ(preferredOf("6"), 6);
  ConfigurationFolder::remove(kFile);
  EXPECT_EQ(preferred(), 6);
  ConfigurationFolder::makeFolder(kFile);  // found, and not readable
  EXPECT_EQ(preferred(), 6);
}

TEST(Preferred, TheFirstFolderOfThePathCounts) {
  const ConfigurationFolder folder;
  ConfigurationFolder::write("preferred.conf", "70");  // not the file's name
  ConfigurationFolder::write("a/message/preferred.conf", "6");
  ConfigurationFolder::write("b/message/preferred.conf", "1");
  ConfigurationFolder::setSearchPath(".:a:b");
  EXPECT_EQ(preferred(), 6);
  ConfigurationFolder::setSearchPath("b:a");
  EXPECT_EQ(preferred(), 1);
  ConfigurationFolder::setSearchPath("none:a");
  EXPECT_EQ(preferred(), 6);
}

TEST(Preferred, MessagesAreNewAndEmpty) {
  const ConfigurationFolder folder;
  ConfigurationFolder::write("field_map.txt", test::kDictionary);
  MD_FieldMap::reload("");
  ConfigurationFolder::write(kFile, "6");
  const auto first = MD_Message::createPreferred(false);
  ASSERT_NE(first, nullptr);
  EXPECT_TRUE(first->add(id::kInt, 5));
  const auto second = MD_Message::createPreferred(false);
  EXPECT_EQ(test::hexOf(*second), "06");
  EXPECT_EQ(test::hexOf(*first), "06 2C 01 01 05");
}

// What the process keeps, so in a process of its own.

TEST(PreferredOnce, IsMsgTWhenNoFileSaysOtherwise) {
  test::expectInFreshProcess([] {
    const ConfigurationFolder folder;
    EXPECT_EQ(preferred(true), 70);
    EXPECT_EQ(preferred(false), 70);
  });
}

TEST(PreferredOnce, IsMsgTWhenTheFileHoldsNothingOfUse) {
  test::expectInFreshProcess([] {
    const ConfigurationFolder folder;
    ConfigurationFolder::write(kFile, "71");
    EXPECT_EQ(preferred(false), 70);
    EXPECT_EQ(preferred(true), 70);
  });
}

TEST(PreferredOnce, TheCachedCodeIsThatOfTheFirstCachedCall) {
  test::expectInFreshProcess([] {
    const ConfigurationFolder folder;
    ConfigurationFolder::write(kFile, "6");
    EXPECT_EQ(preferred(true), 6);
    ConfigurationFolder::write(kFile, "1");
    EXPECT_EQ(preferred(true), 6);
    EXPECT_EQ(preferred(false), 1);
    EXPECT_EQ(preferred(true), 6);
    ConfigurationFolder::remove(kFile);
    EXPECT_EQ(preferred(true), 6);
    EXPECT_EQ(preferred(false), 1);
  });
}

TEST(PreferredOnce, TheFirstCachedCallReadsTheFileAlsoAfterAnUncachedOne) {
  test::expectInFreshProcess([] {
    const ConfigurationFolder folder;
    ConfigurationFolder::write(kFile, "6");
    EXPECT_EQ(preferred(false), 6);
    ConfigurationFolder::write(kFile, "1");
    EXPECT_EQ(preferred(true), 1);
    EXPECT_EQ(preferred(false), 1);
  });
}

TEST(PreferredOnce, TheCacheTakesTheLastAcceptedCodeWhenTheFileIsGone) {
  test::expectInFreshProcess([] {
    const ConfigurationFolder folder;
    ConfigurationFolder::write(kFile, "6");
    EXPECT_EQ(preferred(false), 6);
    ConfigurationFolder::remove(kFile);
    EXPECT_EQ(preferred(true), 6);
  });
}

TEST(PreferredOnce, TheCacheMayHoldACodeThatIsNoEncoding) {
  test::expectInFreshProcess([] {
    const ConfigurationFolder folder;
    ConfigurationFolder::write(kFile, "300");
    EXPECT_EQ(preferred(true), 0);
    ConfigurationFolder::write(kFile, "6");
    EXPECT_EQ(preferred(true), 0);
    EXPECT_EQ(preferred(false), 6);
  });
}

TEST(PreferredOnce, WithTheVariableUnsetTheDefaultFoldersAreSearched) {
  test::expectInFreshProcess([] {
    const ConfigurationFolder folder;
#ifdef _WIN32
    _putenv_s("CONFIG_PATH", "");
#else
    unsetenv("CONFIG_PATH");
#endif
    ConfigurationFolder::write("etc/message/preferred.conf", "6");
    EXPECT_EQ(preferred(true), 6);
  });
}

}  // namespace
}  // namespace MD
