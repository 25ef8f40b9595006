// What messages ask of the heap and of locks: nothing, once the pools are warm.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgdata.h"
#include "md/md_msgt.h"
#include "support/counted_locks.h"
#include "support/dictionary.h"
#include "support/failing_heap.h"
#include "support/messages.h"
#include "support/turns.h"

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
  EXPECT_GE(allocationsOf([&] { idsOf(this->m_message); }), 1);
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

TYPED_TEST(Allocations, AreNoneForMessagesOfTheFactory) {
  const auto size = static_cast<std::uint32_t>(this->m_bytes.size());
  int read = 0;
  EXPECT_EQ(this->steadyStateAllocationsOf([&] {
    const auto received = MD_Message::createFromBytes(this->m_bytes.data(), size);
    const auto copy = received->clone();
    const auto moved = received->moveToNew();
    const auto empty = MD_Message::createFromPB(copy->getPB())->createEmpty();
    read = this->readAll(*copy) + this->readAll(*moved) + this->readAll(*empty);
  }),
            0);
  EXPECT_EQ(read, 32);
}

// However many messages are alive at a time: `alive` are made, one after the other, and then destroyed in that order.
class SteadyState : public testing::TestWithParam<int> {
 protected:
  SteadyState() { loadDictionary(kDictionary); }

  void SetUp() override {
#if !defined(MD_LOCKS_ARE_COUNTED)
    GTEST_SKIP() << "locks are counted with the GNU C library and without sanitizers";
#endif
  }

  /// Expects `round` to allocate and to lock nothing, after some rounds that may. In a thread of its own, whose past is
  /// no other test.
  template <class Round>
  static void expectNothingTaken(Round round) {
    std::thread([&] {
      constexpr int kWarmingUp = 16;
      constexpr int kRounds = 500;
      for (int i = 0; i < kWarmingUp; ++i) {
        round();
      }
      long locks = 0;
      const long allocations = allocationsOf([&] {
        locks = locksOf([&] {
          for (int i = 0; i < kRounds; ++i) {
            round();
          }
        });
      });
      EXPECT_EQ(allocations, 0);
      EXPECT_EQ(locks, 0);
    }).join();
  }
};

TEST_P(SteadyState, OfFreshMessagesTakesNoMemoryAndNoLock) {
  std::vector<std::optional<mInt>> messages(static_cast<std::size_t>(GetParam()));
  expectNothingTaken([&] {
    for (auto& message : messages) {
      message.emplace();
      message->add(id::kInt, 5);
      message->add(id::kString, "text");
    }
    for (auto& message : messages) {
      message.reset();
    }
  });
}

TEST_P(SteadyState, OfMessagesOfTheFactoryTakesNoMemoryAndNoLock) {
  const Bytes bytes[] = {fromHex("06 2C 01 01 05"), fromHex("01 2C 01 05 00 00 00"), fromHex("46 51 52 31")};
  std::vector<std::unique_ptr<MD_Message>> messages(static_cast<std::size_t>(GetParam()));
  expectNothingTaken([&] {
    for (std::size_t i = 0; i < messages.size(); ++i) {
      const Bytes& received = bytes[i % std::size(bytes)];
      messages[i] = MD_Message::createFromBytes(received.data(), static_cast<std::uint32_t>(received.size()));
    }
    for (auto& message : messages) {
      message.reset();
    }
  });
}

// A cache of messages, in which each is replaced by a new one time and again.
TEST_P(SteadyState, OfReplacedMessagesTakesNoMemoryAndNoLock) {
  std::vector<std::unique_ptr<MD_Message>> messages(static_cast<std::size_t>(GetParam()));
  expectNothingTaken([&] {
    for (auto& message : messages) {
      auto replacement = MD_Message::createFromPB(6);
      replacement->add(id::kInt, 5);
      message = std::move(replacement);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Alive, SteadyState, testing::Values(1, 2, 3, 8, 32, 64, 65, 100, 200, 1000),
                         [](const auto& row) { return std::to_string(row.param); });

// One thread makes messages, another one destroys them: objects change hands 32 at a time.
TEST(HandOver, LocksNoMoreThanOnceForABatch) {
#if !defined(MD_LOCKS_ARE_COUNTED)
  GTEST_SKIP() << "locks are counted with the GNU C library and without sanitizers";
#endif
  constexpr int kTurns = 200;
  constexpr int kTurnsBefore = 10;  // in which objects are made, one at a time
  constexpr int kMessages = 96;
  constexpr long kMostLocks = 3 * kTurns * kMessages / 32;  // of buffers, field tables and the messages themselves
  loadDictionary(kDictionary);
  std::vector<std::unique_ptr<MD_Message>> messages(kMessages);
  long locksOfMaker = 0;
  long locksOfDestroyer = 0;
  int turn = 0;
  inTurns(
      kTurnsBefore + kTurns,
      [&] {
        if (turn++ == kTurnsBefore) {
          locksOfMaker = locksOfDestroyer = 0;
        }
        locksOfMaker += locksOf([&] {
          for (auto& message : messages) {
            message = MD_Message::createFromPB(6);
            message->add(id::kInt, 5);
          }
        });
      },
      [&] {
        locksOfDestroyer += locksOf([&] {
          for (auto& message : messages) {
            message.reset();
          }
        });
      });
  EXPECT_GE(locksOfMaker, 1);
  EXPECT_GE(locksOfDestroyer, 1);
  EXPECT_LE(locksOfMaker, kMostLocks);
  EXPECT_LE(locksOfDestroyer, kMostLocks);
}

TEST(Locks, AreSeen) {
#if !defined(MD_LOCKS_ARE_COUNTED)
  GTEST_SKIP() << "locks are counted with the GNU C library and without sanitizers";
#endif
  std::mutex mutex;
  EXPECT_EQ(locksOf([&] { const std::lock_guard<std::mutex> lock(mutex); }), 1);
  EXPECT_EQ(locksOf([] {}), 0);
  // The library's own: a thread's first message comes from the shared pools.
  loadDictionary(kDictionary);
  std::thread([] { EXPECT_GE(locksOf([] { mInt().add(id::kInt, 5); }), 2); }).join();
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
