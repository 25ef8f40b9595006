// Messages near the largest size that getSizeImpl() can return. Their buffers are reserved and never written, so that
// they take addresses and no memory.
#include <cstdint>

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "md/md_delta.h"
#include "md/md_field.h"
#include "md/md_message.h"
#include "md/md_msgdata.h"
#include "md/md_reusable_container.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/messages.h"

namespace MD::test {
namespace {

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();

const char* fullError(std::uint8_t code) {
  return code == ENCODINGS::MINT
             ? "mInt Error: Attempting to ADD a field to a message that would exceed 4294967295 bytes!"
         : code == ENCODINGS::ITERMAP
             ? "IterMap Error: Attempting to ADD a field to a message that would exceed 4294967295 bytes"
             : "MsgT Error: Attempting to ADD a field to a message that would exceed 4294967295 bytes!";
}

std::uint64_t recordBytes(std::uint8_t code) {
  return code == ENCODINGS::MINT ? 3 + 8 : code == ENCODINGS::ITERMAP ? 2 + 8 : 8 + 8;
}

class LargestMessages : public testing::TestWithParam<Encoding> {
 protected:
  void SetUp() override {
    loadDictionary(kDictionary);
    // The buffer that was returned last is the next one lent.
    ReusableContainerWrapper<MsgData> buffer(true, nullptr);
    m_buffer = buffer.get();
    try {
      m_buffer->reserve(kLargest);
    } catch (const std::bad_alloc&) {
      GTEST_SKIP() << "no 4 GiB of addresses";
    }
    buffer.unset();
    m_message = emptyOf(GetParam());
    ASSERT_EQ(m_message->getBinary(), m_buffer->data());
    ASSERT_EQ(m_buffer->capacity(), kLargest + 1);
  }

  MsgData* m_buffer = nullptr;
  std::unique_ptr<MD_Message> m_message;
};

INSTANTIATE_TEST_SUITE_P(Encodings, LargestMessages, eachEncoding(), nameOfEncoding);

TEST_P(LargestMessages, AreFilledToTheLastByte) {
  m_buffer->setSize(kLargest - recordBytes(GetParam().code));
  CapturedErrors errors;
  EXPECT_TRUE(m_message->add(id::kInt64, std::int64_t{5}));
  EXPECT_EQ(m_message->getSizeImpl(), kLargest);
  std::int64_t value = 0;
  EXPECT_TRUE(m_message->get(id::kInt64, value));
  EXPECT_EQ(value, 5);
  EXPECT_EQ(errors.take(), "");
}

TEST_P(LargestMessages, RefuseAnAddThatIsOneByteTooLong) {
  const std::uint64_t size = kLargest - recordBytes(GetParam().code) + 1;
  m_buffer->setSize(size);
  CapturedErrors errors;
  EXPECT_FALSE(m_message->add(id::kInt64, std::int64_t{5}));
  EXPECT_EQ(errors.take(), report(fullError(GetParam().code), id::kInt64, 19, 8));
  EXPECT_FALSE(m_message->update(id::kDouble, 1.5));
  EXPECT_EQ(errors.take(), report(fullError(GetParam().code), id::kDouble, 5, 8));
  EXPECT_EQ(m_message->getSizeImpl(), size);
  EXPECT_EQ(m_message->fieldCount(), 0U);
  EXPECT_FALSE(m_message->existsImpl(id::kInt64));
  EXPECT_TRUE(m_message->add(id::kChar, 'x'));
}

// The string would move to the end. It is followed by one record that extends to the end.
TEST_P(LargestMessages, RefuseAnUpdateThatGrowsThemTooLong) {
  ASSERT_TRUE(m_message->add(id::kString, "x"));
  const Bytes before = bytesOf(*m_message);
  m_buffer->setSize(kLargest);
  CapturedErrors errors;
  EXPECT_FALSE(m_message->update(id::kString, "xy"));
  EXPECT_EQ(errors.take(), report(fullError(GetParam().code), id::kString, 6, 3));
  EXPECT_EQ(m_message->getSizeImpl(), kLargest);
  EXPECT_EQ(m_message->fieldCount(), 1U);
  EXPECT_EQ(Bytes(m_message->getBinary(), m_message->getBinary() + before.size()), before);
  EXPECT_TRUE(m_message->update(id::kString, "y"));
}

class LargestMessagesWithALongValue : public LargestMessages {};

// No value of an mInt is that long.
INSTANTIATE_TEST_SUITE_P(Encodings, LargestMessagesWithALongValue,
                         testing::Values(Encoding{ENCODINGS::ITERMAP, "IterMap"}, Encoding{ENCODINGS::MSGT, "MsgT"}),
                         nameOfEncoding);

// A BUFFER of nearly all bytes comes first, so that the strings are the only bytes that are moved.
TEST_P(LargestMessagesWithALongValue, KeepTheFieldOfACopyThatGrowsThemTooLong) {
  constexpr std::uint16_t kFirst = 2;
  constexpr std::uint16_t kTooLong = 14;
  constexpr std::uint16_t kLast = 15;
  std::string dictionary = "BLOB 1 BUFFER\n";
  for (std::uint16_t id = kFirst; id <= kLast; ++id) {
    dictionary += 'F' + std::to_string(id) + ' ' + std::to_string(id) + " STRING\n";
  }
  loadDictionary(dictionary);
  constexpr std::uint32_t kFree = 2000;
  const bool isMsgT = GetParam().code == ENCODINGS::MSGT;
  const std::uint32_t headerBytes = m_message->getSizeImpl();
  Bytes head = fromHex(isMsgT ? "00 01 00 0E" : "01 00");
  const auto length = static_cast<std::uint32_t>(kLargest - kFree - headerBytes - head.size() - 4);
  for (unsigned i = 0; i != 4; ++i) {
    head.push_back(static_cast<std::uint8_t>(length >> 8 * (isMsgT ? 3 - i : i)));
  }
  std::copy(head.begin(), head.end(), m_buffer->data() + headerBytes);
  m_buffer->setSize(kLargest - kFree);
  const auto source = MD_Message::createFromPB(ENCODINGS::MSGT);
  Ids ids;
  for (std::uint16_t id = kFirst; id <= kLast; ++id) {
    ids.push_back(id);
    ASSERT_TRUE(m_message->add(id, "x"));
    ASSERT_TRUE(source->add(id, id == kTooLong ? std::string(3000, 'y') : "longer"));
  }
  const std::uint32_t size = m_message->getSizeImpl();
  EXPECT_EQ(copyFields(*source, ids, *m_message), Ids{kTooLong});
  EXPECT_EQ(m_message->getSizeImpl(), size + 13 * 5);
  EXPECT_EQ(idsOf(*m_message), (Ids{1, 14, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15}));
  for (const std::uint16_t id : ids) {
    std::string value;
    EXPECT_TRUE(m_message->get(id, value)) << id;
    EXPECT_EQ(value, id == kTooLong ? "x" : "longer") << id;
  }
}

// What comes near the limit is not tried: see MD_Message::takeChanges().
TEST_P(LargestMessages, AreNotChangedByADelta) {
  ASSERT_TRUE(m_message->add(id::kInt, 5));
  const Bytes before = bytesOf(*m_message);
  Delta delta{Field<MD_Message::Buffer>(id::kBuffer)};
  const auto changes = emptyOf(GetParam());
  ASSERT_TRUE(changes->add(id::kInt, 6));
  m_buffer->setSize(kLargest);
  EXPECT_FALSE(delta.apply(*changes, *m_message));
  EXPECT_EQ(m_message->getSizeImpl(), kLargest);
  m_buffer->setSize(before.size());
  EXPECT_EQ(bytesOf(*m_message), before);
  EXPECT_TRUE(delta.apply(*changes, *m_message));
  std::int32_t value = 0;
  EXPECT_TRUE(m_message->get(id::kInt, value));
  EXPECT_EQ(value, 6);
}

// The type and, in mInt, the length of a value come first.
TEST_P(LargestMessages, ReportAWrongTypeFirst) {
  m_buffer->setSize(kLargest);
  CapturedErrors errors;
  EXPECT_FALSE(m_message->add(id::kInt64, 1.5));
  const std::string text = errors.take();
  EXPECT_NE(text.find("with incorrect id"), std::string::npos) << text;
}

}  // namespace
}  // namespace MD::test
