// Pools that several threads use at once.
#include "md/md_reusable_container.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_mint.h"
#include "support/dictionary.h"
#include "support/threads.h"
#include "support/turns.h"

namespace MD {
namespace {

namespace id = test::id;

constexpr unsigned kThreads = 4;
constexpr int kRounds = 2000;

TEST(ReusableContainerThreads, AnObjectIsLentToOneThreadAtATime) {
  for (const bool isShared : {false, true}) {
    SCOPED_TRACE(isShared ? "shared pool" : "own pool");
    const auto pool = isShared ? nullptr : std::make_shared<ReusableContainer<MsgData>>();
    std::atomic<int> intrusions{0};
    test::inThreads(kThreads, [&](unsigned index) {
      std::uint8_t mark[64];
      std::memset(mark, static_cast<int>(index + 1), sizeof mark);
      for (int round = 0; round < kRounds; ++round) {
        const ReusableContainerWrapper<MsgData> buffer(true, pool);
        buffer->erase(buffer->begin(), buffer->end());
        buffer->insert(buffer->end(), mark, mark + sizeof mark);
        if (round % 16 == 0) {
          std::this_thread::yield();
        }
        if (buffer->size() != sizeof mark || std::memcmp(buffer->data(), mark, sizeof mark) != 0) {
          ++intrusions;
        }
      }
    });
    EXPECT_EQ(intrusions, 0);
  }
}

TEST(ReusableContainerThreads, AnOwnPoolMakesNoMoreObjectsThanAreLentAtOnce) {
  const auto pool = std::make_shared<ReusableContainer<MsgData>>();
  std::mutex mutex;
  std::set<const MsgData*> seen;
  test::inThreads(kThreads, [&](unsigned) {
    std::set<const MsgData*> mine;
    for (int round = 0; round < kRounds; ++round) {
      const ReusableContainerWrapper<MsgData> a(true, pool);
      const ReusableContainerWrapper<MsgData> b(true, pool);
      mine.insert(a.get());
      mine.insert(b.get());
    }
    const std::lock_guard<std::mutex> lock(mutex);
    seen.insert(mine.begin(), mine.end());
  });
  EXPECT_GE(seen.size(), 2u);
  EXPECT_LE(seen.size(), std::size_t{2} * kThreads);
}

TEST(ReusableContainerThreads, MessagesAreMadeAndDestroyedInAnyThread) {
  test::loadDictionary(test::kDictionary);
  std::atomic<int> failures{0};
  test::inThreads(kThreads, [&](unsigned index) {
    const int number = static_cast<int>(index) * 1'000'000;
    const std::string text = "thread " + std::to_string(index);
    for (int round = 0; round < kRounds; ++round) {
      mInt message;
      const bool isFilled = message.add(id::kInt, number + round) && message.add(id::kString, text);
      const std::unique_ptr<MD_Message> copy = message.clone();
      int value = 0;
      std::string read;
      const bool isRead = copy->get(id::kInt, value) && copy->get(id::kString, read);
      if (!isFilled || !isRead || value != number + round || read != text || copy->fieldCount() != 2) {
        ++failures;
      }
    }
  });
  EXPECT_EQ(failures, 0);
}

TEST(ReusableContainerThreads, AMessageMayEndInAnotherThreadThanItBeganIn) {
  test::loadDictionary(test::kDictionary);
  std::vector<std::unique_ptr<MD_Message>> messages(kThreads);
  for (int round = 0; round < 50; ++round) {
    test::inThreads(kThreads, [&](unsigned index) {
      messages[index] = std::make_unique<mInt>();
      messages[index]->add(id::kInt, static_cast<int>(index));
    });
    for (unsigned i = 0; i < kThreads; ++i) {
      int value = -1;
      ASSERT_TRUE(messages[i]->get(id::kInt, value));
      EXPECT_EQ(value, static_cast<int>(i));
    }
    test::inThreads(kThreads, [&](unsigned index) { messages[(index + 1) % kThreads].reset(); });
  }
}

using Buffer = ReusableContainerWrapper<MsgData>;

/// Handles of the shared pool, all with an object.
std::vector<std::unique_ptr<Buffer>> borrowed(std::size_t count) {
  std::vector<std::unique_ptr<Buffer>> handles;
  for (std::size_t i = 0; i < count; ++i) {
    handles.push_back(std::make_unique<Buffer>(true, nullptr));
  }
  return handles;
}

std::set<const MsgData*> itemsOf(const std::vector<std::unique_ptr<Buffer>>& handles) {
  std::set<const MsgData*> items;
  for (const auto& handle : handles) {
    items.insert(handle->get());
  }
  return items;
}

TEST(ReusableContainerThreads, WhatAThreadKeptServesOthersWhenItHasEnded) {
  constexpr std::size_t kCount = 700;
  std::set<const MsgData*> ofThread;
  std::thread([&] { ofThread = itemsOf(borrowed(kCount)); }).join();
  ASSERT_EQ(ofThread.size(), kCount);
  std::thread([&] { EXPECT_EQ(itemsOf(borrowed(kCount)), ofThread); }).join();
}

// One thread only takes and another one only returns.
TEST(ReusableContainerThreads, ObjectsThatAreHandedOnComeBackToTheThreadThatBorrowsThem) {
  constexpr int kTurns = 300;
  constexpr std::size_t kAtOnce = 100;
  // The objects that the returning thread caches, and one batch in transit.
  constexpr std::size_t kMostAround = kAtOnce + 64 + 32;
  std::set<const MsgData*> seen;
  std::vector<std::unique_ptr<Buffer>> handles;
  test::inTurns(
      kTurns,
      [&] {
        handles = borrowed(kAtOnce);
        const auto items = itemsOf(handles);
        seen.insert(items.begin(), items.end());
      },
      [&] { handles.clear(); });
  EXPECT_GE(seen.size(), kAtOnce);
  EXPECT_LE(seen.size(), kMostAround);
}

/// Has a thread use `count` objects at a time, then `timesOne` times one, and lets another thread borrow as many.
/// @return how many of the first thread's objects that one got
std::size_t foundByAnotherThread(std::size_t count, int timesOne) {
  std::set<const MsgData*> ofFirst;
  std::vector<std::unique_ptr<Buffer>> ofSecond;
  test::inTurns(
      1,
      [&] {
        for (int round = 0; round < 20; ++round) {
          ofFirst = itemsOf(borrowed(count));
        }
        for (int i = 0; i < timesOne; ++i) {
          borrowed(1);
        }
      },
      [&] { ofSecond = borrowed(count); });
  std::size_t found = 0;
  for (const auto& handle : ofSecond) {
    found += ofFirst.count(handle->get());
  }
  return found;
}

TEST(ReusableContainerThreads, AThreadKeepsAsManyAsItUses) {
  EXPECT_EQ(foundByAnotherThread(30, 0), 0u);
  EXPECT_EQ(foundByAnotherThread(60, 10'000), 0u);
  EXPECT_EQ(foundByAnotherThread(900, 0), 0u);
  EXPECT_EQ(foundByAnotherThread(900, 1000), 0u);
}

TEST(ReusableContainerThreads, AThreadGivesAwayWhatItDoesNotUseAnyMore) {
  constexpr std::size_t kMostKept = 64 + 32;
  EXPECT_GE(foundByAnotherThread(900, 10'000), 900 - kMostKept);
}

TEST(ReusableContainerThreads, AThreadKeepsNoMoreThan1024) {
  EXPECT_GE(foundByAnotherThread(3000, 0), 3000u - 1024);
  EXPECT_LE(foundByAnotherThread(3000, 0), 3000u - 1024 + 32);
}

TEST(ReusableContainerThreads, AThreadKeepsWhatItReturnedLastToItself) {
  const MsgData* mine = nullptr;
  {
    const ReusableContainerWrapper<MsgData> buffer(true, nullptr);
    mine = buffer.get();
  }
  std::thread([&] {
    const ReusableContainerWrapper<MsgData> buffer(true, nullptr);
    EXPECT_NE(buffer.get(), mine);
  }).join();
  const ReusableContainerWrapper<MsgData> buffer(true, nullptr);
  EXPECT_EQ(buffer.get(), mine);
}

}  // namespace
}  // namespace MD
