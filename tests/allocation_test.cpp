// What messages ask of the heap: nothing, once the pools are warm.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgdata.h"
#include "md/md_msgt.h"
#include "support/dictionary.h"
#include "support/failing_heap.h"
#include "support/messages.h"

namespace MD::test {
namespace {

template <class Encoding>
class Allocations : public testing::Test {
 protected:
  Allocations() {
    loadDictionary(kDictionary);
    fill(m_message);
    m_bytes = bytesOf(m_message);
  }

  void SetUp() override {
#if !defined(MD_ALLOCATIONS_ARE_COUNTED)
    GTEST_SKIP() << "allocations are counted with the GNU C library and under sanitizers";
#endif
  }

  /// Adds 16 fields, two of most types.
  static bool fill(MD_Message& message) {
    return message.add(id::kChar, 'a') && message.add(id::kChar2, 'b') && message.add(id::kInt, 70000) &&
           message.add(id::kInt2, 5) && message.add(id::kInt64, std::int64_t{5}) &&
           message.add(id::kInt64b, std::int64_t{-5}) && message.add(id::kFloat, 1.5f) &&
           message.add(id::kFloat2, 2.5f) && message.add(id::kDouble, 1.25) && message.add(id::kDouble2, 99.75) &&
           message.add(id::kString, MD_Message::String("a string that is longer than any short one", 42)) &&
           message.add(id::kString2, "MSFT") && message.add(id::kBuffer, bufferOf("0123456789")) &&
           message.add(id::kBuffer2, bufferOf("")) && message.add(id::kDateTime, MD_DateTime(20240115, 1, 2)) &&
           message.add(id::kEpochNS, MD_EpochNS(1));
  }

  /// Reads every field that fill() adds. @return how many could be read
  static int readAll(const MD_Message& message) {
    char c = 0;
    std::int32_t i = 0;
    std::int64_t i64 = 0;
    float f = 0;
    double d = 0;
    MD_Message::String s;
    MD_Message::Buffer b;
    MD_DateTime dt;
    MD_EpochNS ns;
    return message.get(id::kChar, c) + message.get(id::kChar2, c) + message.get(id::kInt, i) +
           message.get(id::kInt2, i) + message.get(id::kInt64, i64) + message.get(id::kInt64b, i64) +
           message.get(id::kFloat, f) + message.get(id::kFloat2, f) + message.get(id::kDouble, d) +
           message.get(id::kDouble2, d) + message.get(id::kString, s) + message.get(id::kString2, s) +
           message.get(id::kBuffer, b) + message.get(id::kBuffer2, b) + message.get(id::kDateTime, dt) +
           message.get(id::kEpochNS, ns);
  }

  /// Runs `work` until the pools are warm, then many times more. @return the allocations of the latter
  template <class Work>
  static long steadyStateAllocationsOf(Work work) {
    for (int i = 0; i < 3; ++i) {
      work();
    }
    return allocationsOf([&] {
      for (int i = 0; i < 200; ++i) {
        work();
      }
    });
  }

  Encoding m_message;
  Bytes m_bytes;
};

using Encodings = testing::Types<mInt, IterMap, MsgT>;
TYPED_TEST_SUITE(Allocations, Encodings, );

TYPED_TEST(Allocations, AreSeenWhicheverWayTheyAreMade) {
  void* volatile block = nullptr;
  EXPECT_EQ(allocationsOf([&] { block = std::malloc(10); }), 1);
  EXPECT_EQ(allocationsOf([&] { block = std::realloc(block, 1 << 20); }), 1);
  std::free(block);
  EXPECT_EQ(allocationsOf([&] { block = std::calloc(3, 10); }), 1);
  std::free(block);
  EXPECT_EQ(allocationsOf([&] { block = ::operator new(10); }), 1);
  ::operator delete(block);
  EXPECT_EQ(allocationsOf([&] { std::vector<std::string>(1, std::string(100, 'x')); }), 3);
  EXPECT_EQ(allocationsOf([] {}), 0);
}

// The library's own: what is measured below is not zero because nobody looks.
TYPED_TEST(Allocations, OfTheLibraryAreSeen) {
  EXPECT_GE(allocationsOf([&] { this->m_message.clone(); }), 1);
  MsgData buffer;
  const std::uint8_t byte = 1;
  EXPECT_EQ(allocationsOf([&] { buffer.insert(buffer.end(), &byte, &byte + 1); }), 1);
}

TYPED_TEST(Allocations, AreNoneForCreatingFillingAndDestroying) {
  bool isFilled = true;
  EXPECT_EQ(this->steadyStateAllocationsOf([&] {
    TypeParam message;
    isFilled = isFilled && this->fill(message);
  }),
            0);
  EXPECT_TRUE(isFilled);
}

TYPED_TEST(Allocations, AreNoneForParsingReadingAndDestroying) {
  int read = 0;
  EXPECT_EQ(this->steadyStateAllocationsOf([&] {
    TypeParam message;
    message.setBinaryImpl(this->m_bytes.data(), static_cast<std::uint32_t>(this->m_bytes.size()));
    read = this->readAll(message);
  }),
            0);
  EXPECT_EQ(read, 16);
}

TYPED_TEST(Allocations, AreNoneForUpdatesInPlace) {
  MD_Message& message = this->m_message;
  bool isUpdated = true;
  int i = 70000;
  EXPECT_EQ(this->steadyStateAllocationsOf([&] {
    ++i;
    isUpdated = isUpdated && message.update(id::kChar, 'z') && message.update(id::kInt, i) &&
                message.update(id::kInt64, std::int64_t{i}) && message.update(id::kFloat, 3.5f) &&
                message.update(id::kDouble, i * 0.25) &&
                message.update(id::kString, MD_Message::String("A STRING THAT IS LONGER THAN ANY SHORT ONE", 42)) &&
                message.update(id::kBuffer, bufferOf("9876543210")) &&
                message.update(id::kDateTime, MD_DateTime(20250115, 2, 3)) &&
                message.update(id::kEpochNS, MD_EpochNS(7));
  }),
            0);
  EXPECT_TRUE(isUpdated);
  EXPECT_EQ(bytesOf(message).size(), this->m_bytes.size());
  std::int32_t stored = 0;
  EXPECT_TRUE(message.get(id::kInt, stored));
  EXPECT_EQ(stored, i);
}

TYPED_TEST(Allocations, AreNoneForUpdatesThatMoveAField) {
  MD_Message& message = this->m_message;
  bool isUpdated = true;
  std::uint16_t length = 0;
  EXPECT_EQ(this->steadyStateAllocationsOf([&] {
    length = static_cast<std::uint16_t>((length + 1) % 40);
    isUpdated = isUpdated && message.updateString(id::kString, "a string that is longer than any short one", length) &&
                message.update(id::kInt2, length * 100);
  }),
            0);
  EXPECT_TRUE(isUpdated);
}

TYPED_TEST(Allocations, AreNoneForErasingAndClearing) {
  MD_Message& message = this->m_message;
  const Ids some = {id::kString, id::kChar, id::kEpochNS, id::kShort};
  const std::set<std::uint16_t> others = {id::kInt, id::kBuffer};
  bool isDone = true;
  EXPECT_EQ(this->steadyStateAllocationsOf([&] {
    isDone = isDone && message.eraseImpl(id::kDouble) && !message.eraseArrayImpl(some) && message.eraseSetImpl(others);
    message.clearImpl();
    isDone = isDone && this->fill(message);
  }),
            0);
  EXPECT_TRUE(isDone);
}

TYPED_TEST(Allocations, AreNoneForSwapping) {
  TypeParam other;
  EXPECT_EQ(this->steadyStateAllocationsOf([&] { this->m_message.swap(other); }), 0);
}

TEST(BufferAllocations, AreMadeByTheStepAndNotBeforeTheLastByteIsUsed) {
#if !defined(MD_ALLOCATIONS_ARE_COUNTED)
  GTEST_SKIP() << "allocations are counted with the GNU C library and under sanitizers";
#endif
  MsgData buffer;
  buffer.reserve(1);
  ASSERT_EQ(buffer.capacity(), 1024u);
  for (const std::uint64_t bytes : {0U, 1U, 1023U, 1024U}) {
    EXPECT_EQ(allocationsOf([&] { buffer.reserve(bytes); }), 0) << bytes;
  }
  EXPECT_EQ(buffer.capacity(), 1024u);
  EXPECT_EQ(allocationsOf([&] { buffer.reserve(1025); }), 1);
  EXPECT_EQ(buffer.capacity(), 2048u);
}

}  // namespace
}  // namespace MD::test
