#include "md/md_msgdata.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <limits>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertions.h"

namespace MD {
namespace {

using Bytes = std::vector<std::uint8_t>;

static_assert(!std::is_copy_constructible_v<MsgData>);
static_assert(!std::is_copy_assignable_v<MsgData>);

Bytes contents(const MsgData& buffer) { return Bytes(buffer.begin(), buffer.end()); }

/// `count` bytes, each different from its neighbours.
Bytes pattern(std::size_t count, std::size_t start = 1) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) {
    bytes[i] = static_cast<std::uint8_t>((start + i) % 251);
  }
  return bytes;
}

void append(MsgData& buffer, const Bytes& bytes) {
  buffer.insert(buffer.end(), bytes.data(), bytes.data() + bytes.size());
}

TEST(MsgDataTest, HasNoMemoryAtFirst) {
  const MsgData buffer;
  EXPECT_EQ(buffer.data(), nullptr);
  EXPECT_EQ(buffer.begin(), nullptr);
  EXPECT_EQ(buffer.end(), nullptr);
  EXPECT_EQ(buffer.size(), 0u);
  EXPECT_EQ(buffer.capacity(), 0u);
}

TEST(MsgDataTest, BeginsAtItsDataAndEndsBehindItsSize) {
  MsgData buffer;
  append(buffer, pattern(5));
  EXPECT_EQ(buffer.begin(), buffer.data());
  EXPECT_EQ(buffer.end(), buffer.data() + 5);
  const MsgData& constant = buffer;
  EXPECT_EQ(constant.data(), buffer.data());
  EXPECT_EQ(constant.begin(), buffer.begin());
  EXPECT_EQ(constant.end(), buffer.end());
}

TEST(MsgDataTest, GrowsToTheNextMultipleOf1024) {
  struct Row {
    const char* name;
    std::size_t sizeBytes;
    std::uint64_t capacity;
  };
  constexpr Row kRows[] = {
      {"OneByte", 1, 1024},
      {"OneLessThanAStep", 1023, 1024},
      {"AStep", 1024, 1024},
      {"OneMoreThanAStep", 1025, 2048},
      {"TwoSteps", 2048, 2048},
      {"OneMoreThanTwoSteps", 2049, 3072},
      {"AThousandSteps", 1024000, 1024000},
      {"OneMoreThanAThousandSteps", 1024001, 1025024},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    MsgData buffer;
    append(buffer, pattern(row.sizeBytes));
    EXPECT_EQ(buffer.size(), row.sizeBytes);
    EXPECT_EQ(buffer.capacity(), row.capacity);
  }
}

TEST(MsgDataTest, GrowsByOneStepAtATime) {
  MsgData buffer;
  const Bytes one = {7};
  std::vector<std::uint64_t> capacities;
  while (buffer.size() < 5000) {
    append(buffer, one);
    if (capacities.empty() || capacities.back() != buffer.capacity()) {
      capacities.push_back(buffer.capacity());
    }
  }
  EXPECT_EQ(capacities, (std::vector<std::uint64_t>{1024, 2048, 3072, 4096, 5120}));
  EXPECT_EQ(contents(buffer), Bytes(5000, 7));
}

TEST(MsgDataTest, StaysWhereItIsWhileItsContentsFit) {
  MsgData buffer;
  append(buffer, pattern(1));
  const std::uint8_t* const data = buffer.data();
  append(buffer, pattern(1023));
  EXPECT_EQ(buffer.data(), data);
  buffer.erase(buffer.begin(), buffer.end());
  EXPECT_EQ(buffer.size(), 0u);
  EXPECT_EQ(buffer.capacity(), 1024u);
  append(buffer, pattern(1024));
  EXPECT_EQ(buffer.data(), data);
  EXPECT_EQ(buffer.capacity(), 1024u);
}

TEST(MsgDataTest, KeepsItsContentsWhenItGrows) {
  MsgData buffer;
  append(buffer, pattern(1024));
  append(buffer, pattern(3000, 1025));
  EXPECT_EQ(contents(buffer), pattern(4024));
}

// A truncated header is completed by bytes after the size, see the encodings' parse.
TEST(MsgDataTest, KeepsAllOfItsMemoryWhenItGrows) {
  std::vector<std::unique_ptr<std::uint8_t[]>> between;
  MsgData buffer;
  buffer.reserve(1);
  for (std::size_t steps = 1; steps <= 200; ++steps) {
    const Bytes bytes = pattern(1024 * steps, steps);
    std::memcpy(buffer.data(), bytes.data(), bytes.size());
    between.push_back(std::make_unique<std::uint8_t[]>(100 * (steps % 7) + 1));  // in the way of growing where it is
    buffer.reserve(1024 * steps + 1);
    ASSERT_EQ(Bytes(buffer.data(), buffer.data() + bytes.size()), bytes) << steps;
  }
}

TEST(MsgDataTest, HasCacheLinesOfItsOwn) {
  std::vector<std::unique_ptr<MsgData>> buffers;
  for (std::size_t i = 0; i < 300; ++i) {
    buffers.push_back(std::make_unique<MsgData>());
    for (std::size_t bytes = 1; bytes < 100 * i; bytes += 900) {
      buffers.back()->reserve(bytes);
      buffers[i / 2]->reserve(buffers[i / 2]->capacity() + 1);
    }
  }
  for (const auto& buffer : buffers) {
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(buffer->data()) % 128, 0u);
    ASSERT_EQ(buffer->capacity() % 1024, 0u);
  }
}

TEST(MsgDataTest, InsertsNothingIntoABufferWithoutMemory) {
  MsgData buffer;
  buffer.insert(buffer.begin(), nullptr, nullptr);
  EXPECT_EQ(buffer.size(), 0u);
  EXPECT_EQ(buffer.capacity(), 0u);
}

TEST(MsgDataTest, InsertsAtEveryPosition) {
  const Bytes before = pattern(12);
  for (std::size_t position = 0; position <= before.size(); ++position) {
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{5}, std::size_t{2000}}) {
      SCOPED_TRACE(std::to_string(count) + " bytes before " + std::to_string(position));
      const Bytes added = pattern(count, 100);
      Bytes expected = before;
      expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(position), added.begin(), added.end());

      MsgData buffer;
      append(buffer, before);
      buffer.insert(buffer.begin() + position, added.data(), added.data() + count);
      EXPECT_EQ(contents(buffer), expected);
    }
  }
}

// Every range of the buffer before every one of its positions.
TEST(MsgDataTest, InsertsBytesOfItsOwn) {
  const Bytes before = pattern(9);
  for (std::size_t position = 0; position <= before.size(); ++position) {
    for (std::size_t first = 0; first <= before.size(); ++first) {
      for (std::size_t last = first; last <= before.size(); ++last) {
        SCOPED_TRACE("[" + std::to_string(first) + ", " + std::to_string(last) + ") before " +
                     std::to_string(position));
        const Bytes added(before.begin() + static_cast<std::ptrdiff_t>(first),
                          before.begin() + static_cast<std::ptrdiff_t>(last));
        Bytes expected = before;
        expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(position), added.begin(), added.end());

        MsgData buffer;
        append(buffer, before);
        buffer.insert(buffer.begin() + position, buffer.begin() + first, buffer.begin() + last);
        EXPECT_EQ(contents(buffer), expected);
      }
    }
  }
}

TEST(MsgDataTest, InsertsBytesOfItsOwnWhileItGrows) {
  struct Row {
    const char* name;
    std::size_t position;
    std::size_t first;
    std::size_t last;
  };
  constexpr Row kRows[] = {
      {"AllBehindTheEnd", 1024, 0, 1024},
      {"AllBeforeTheBeginning", 0, 0, 1024},
      {"AllIntoTheMiddle", 500, 0, 1024},
      {"APartAcrossThePosition", 500, 499, 501},
      {"APartBelowThePosition", 500, 10, 20},
      {"APartAboveThePosition", 500, 900, 1024},
      {"APartThatEndsAtThePosition", 500, 490, 500},
      {"APartThatBeginsAtThePosition", 500, 500, 510},
  };
  const Bytes before = pattern(1024);
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const Bytes added(before.begin() + static_cast<std::ptrdiff_t>(row.first),
                      before.begin() + static_cast<std::ptrdiff_t>(row.last));
    Bytes expected = before;
    expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(row.position), added.begin(), added.end());

    MsgData buffer;
    append(buffer, before);
    ASSERT_EQ(buffer.capacity(), 1024u);
    buffer.insert(buffer.begin() + row.position, buffer.begin() + row.first, buffer.begin() + row.last);
    EXPECT_EQ(contents(buffer), expected);
    EXPECT_EQ(buffer.capacity(), 2048u);
  }
}

TEST(MsgDataTest, ErasesEveryRange) {
  const Bytes before = pattern(12);
  for (std::size_t first = 0; first <= before.size(); ++first) {
    for (std::size_t last = first; last <= before.size(); ++last) {
      SCOPED_TRACE("[" + std::to_string(first) + ", " + std::to_string(last) + ")");
      Bytes expected = before;
      expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(first),
                     expected.begin() + static_cast<std::ptrdiff_t>(last));

      MsgData buffer;
      append(buffer, before);
      std::uint8_t* const from = buffer.begin() + first;
      EXPECT_EQ(buffer.erase(from, buffer.begin() + last), from);
      EXPECT_EQ(contents(buffer), expected);
      EXPECT_EQ(buffer.capacity(), 1024u);
    }
  }
}

TEST(MsgDataTest, NeverShrinks) {
  MsgData buffer;
  append(buffer, pattern(5000));
  const std::uint8_t* const data = buffer.data();
  buffer.erase(buffer.begin(), buffer.end());
  EXPECT_EQ(buffer.size(), 0u);
  EXPECT_EQ(buffer.capacity(), 5120u);
  EXPECT_EQ(buffer.data(), data);
}

TEST(MsgDataTest, TellsItsOwnMemoryFromOthers) {
  MsgData buffer;
  MsgData other;
  EXPECT_FALSE(buffer.owns(nullptr));
  append(buffer, pattern(3));
  append(other, pattern(3));
  EXPECT_TRUE(buffer.owns(buffer.begin()));
  EXPECT_TRUE(buffer.owns(buffer.begin() + 1023));
  EXPECT_FALSE(buffer.owns(buffer.begin() + 1024));
  EXPECT_FALSE(buffer.owns(other.begin()));
  EXPECT_FALSE(buffer.owns(nullptr));
}

TEST(MsgDataTest, RefusesMoreThanMemoryCanHoldAndKeepsItsContents) {
  MsgData buffer;
  append(buffer, pattern(10));
  EXPECT_THROW(buffer.reserve(std::numeric_limits<std::uint64_t>::max()), std::bad_alloc);
  EXPECT_EQ(contents(buffer), pattern(10));
  EXPECT_EQ(buffer.capacity(), 1024u);
}

// A buffer of ten bytes, of which the last three are out of use; what asserts, changes nothing.
class MsgDataAssertion : public testing::Test {
 protected:
  MsgDataAssertion() {
    append(m_buffer, pattern(10));
    m_buffer.erase(m_buffer.begin() + 7, m_buffer.end());
  }

  void expectOne(const std::string& assertion) {
    ASSERT_EQ(m_assertions.entries().size(), 1u);
    EXPECT_EQ(m_assertions.entries()[0], assertion);
    EXPECT_EQ(contents(m_buffer), pattern(7));
    EXPECT_EQ(m_buffer.capacity(), 1024u);
  }

  const test::RecordedAssertions m_assertions;
  MsgData m_buffer;
  const Bytes m_bytes = pattern(4, 100);
};

TEST_F(MsgDataAssertion, InsertOfARangeThatEndsBeforeItBegins) {
  m_buffer.insert(m_buffer.begin(), m_bytes.data() + 1, m_bytes.data());
  expectOne("md_message/include/md/md_msgdata:98: last >= first");
}

TEST_F(MsgDataAssertion, InsertBeforeTheBeginning) {
  m_buffer.insert(nullptr, m_bytes.data(), m_bytes.data() + 4);
  expectOne("md_message/include/md/md_msgdata:99: pos >= begin()");
}

TEST_F(MsgDataAssertion, InsertBehindTheEnd) {
  m_buffer.insert(m_buffer.end() + 1, m_bytes.data(), m_bytes.data() + 4);
  expectOne("md_message/include/md/md_msgdata:100: pos <= end()");
}

TEST_F(MsgDataAssertion, InsertTestsTheRangeFirst) {
  m_buffer.insert(m_buffer.end() + 1, m_bytes.data() + 1, m_bytes.data());
  expectOne("md_message/include/md/md_msgdata:98: last >= first");
}

TEST_F(MsgDataAssertion, EraseOfARangeThatEndsBeforeItBegins) {
  m_buffer.erase(m_buffer.begin() + 2, m_buffer.begin() + 1);
  expectOne("md_message/include/md/md_msgdata:164: last >= first");
}

TEST_F(MsgDataAssertion, EraseFromBeforeTheBeginning) {
  m_buffer.erase(nullptr, m_buffer.end());
  expectOne("md_message/include/md/md_msgdata:165: first >= begin()");
}

TEST_F(MsgDataAssertion, EraseToBehindTheEnd) {
  m_buffer.erase(m_buffer.begin(), m_buffer.end() + 1);
  expectOne("md_message/include/md/md_msgdata:166: last <= end()");
}

TEST_F(MsgDataAssertion, EraseTestsTheRangeFirst) {
  m_buffer.erase(m_buffer.end() + 2, m_buffer.end() + 1);
  expectOne("md_message/include/md/md_msgdata:164: last >= first");
}

TEST_F(MsgDataAssertion, NoneOfPositionsAtTheLimits) {
  m_buffer.insert(m_buffer.end(), m_bytes.data(), m_bytes.data());
  m_buffer.insert(m_buffer.begin(), m_bytes.data(), m_bytes.data());
  m_buffer.erase(m_buffer.end(), m_buffer.end());
  m_buffer.erase(m_buffer.begin(), m_buffer.begin());
  EXPECT_TRUE(m_assertions.entries().empty());
  EXPECT_EQ(contents(m_buffer), pattern(7));
}

}  // namespace
}  // namespace MD
