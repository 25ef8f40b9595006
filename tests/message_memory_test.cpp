// The memory of message objects on the heap.
#include <cstddef>
#include <cstdint>

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/dictionary.h"
#include "support/failing_heap.h"
#include "support/messages.h"
#include "support/scripted_message.h"

namespace MD::test {
namespace {

class MessageMemory : public testing::Test {
 protected:
  MessageMemory() { loadDictionary(kDictionary); }
};

TEST_F(MessageMemory, OfADestroyedMessageServesTheNextOne) {
  const void* first = nullptr;
  {
    const auto message = MD_Message::createFromPB(6);
    first = message.get();
  }
  const auto another = MD_Message::createFromPB(70);
  EXPECT_EQ(another.get(), first);
  const auto third = MD_Message::createFromPB(70);
  EXPECT_NE(third.get(), first);
}

TEST_F(MessageMemory, OfTwoMessagesHasNoCacheLineInCommon) {
  constexpr std::uint8_t kCodes[] = {6, 1, 70};
  std::vector<std::unique_ptr<MD_Message>> messages;
  std::vector<std::uintptr_t> places;
  for (std::size_t i = 0; i < 300; ++i) {
    messages.push_back(MD_Message::createFromPB(kCodes[i % std::size(kCodes)]));
    places.push_back(reinterpret_cast<std::uintptr_t>(messages.back().get()));
  }
  std::sort(places.begin(), places.end());
  for (std::size_t i = 1; i < places.size(); ++i) {
    const std::uintptr_t end = places[i - 1] + sizeof(MD_Message);
    ASSERT_GT(places[i] / 128, (end - 1) / 128);
  }
}

// As a program does that was compiled before messages had operators of their own.
TEST_F(MessageMemory, MayComeFromTheGlobalOperator) {
  for (int round = 0; round < 200; ++round) {
    std::vector<MD_Message*> messages;
    for (int i = 0; i < round; ++i) {
      auto* message = ::new mInt;
      ASSERT_TRUE(message->add(id::kInt, i));
      messages.push_back(message);
    }
    for (MD_Message* message : messages) {
      delete message;
    }
    const auto made = MD_Message::createFromPB(70);
    EXPECT_TRUE(made->add(id::kInt, 5));
  }
}

TEST_F(MessageMemory, MayBeAskedForInEveryWay) {
  const std::unique_ptr<MD_Message> single(new mInt);
  EXPECT_TRUE(single->add(id::kInt, 5));
  const std::unique_ptr<MD_Message> withoutException(new (std::nothrow) IterMap);
  ASSERT_NE(withoutException, nullptr);
  EXPECT_TRUE(withoutException->add(id::kInt, 5));
  const std::unique_ptr<MsgT[]> several(new MsgT[3]);
  EXPECT_TRUE(several[2].add(id::kInt, 5));
  const auto shared = std::make_shared<mInt>();
  EXPECT_TRUE(shared->add(id::kInt, 5));

  alignas(mInt) unsigned char place[sizeof(mInt)];
  auto* const placed = new (place) mInt;
  EXPECT_EQ(static_cast<void*>(placed), place);
  EXPECT_TRUE(placed->add(id::kInt, 5));
  placed->~mInt();
}

TEST_F(MessageMemory, WithoutAnExceptionIsNullWhenThereIsNone) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  std::vector<std::unique_ptr<MD_Message>> messages;
  bool hasFailed = false;
  while (!hasFailed) {
    ASSERT_LT(messages.size(), 2000U);
    messages.reserve(messages.size() + 1);
    void* memory = nullptr;
    {
      const FailingHeap failing(0, Failing::FromThenOn);
      memory = MD_Message::operator new(sizeof(mInt), std::nothrow);
      hasFailed = FailingHeap::hasFailed();
    }
    EXPECT_EQ(memory == nullptr, hasFailed);
    messages.emplace_back(memory != nullptr ? ::new (memory) mInt : nullptr);
  }
}

// A derived class may have another size: its memory comes from the heap each time.
TEST_F(MessageMemory, OfAnotherSizeIsTheHeaps) {
#if !defined(MD_ALLOCATIONS_ARE_COUNTED)
  GTEST_SKIP() << "allocations are counted with the GNU C library and under sanitizers";
#endif
  for (const std::size_t sizeBytes : {sizeof(MD_Message) + 8, sizeof(MD_Message) - 8}) {
    EXPECT_EQ(allocationsOf([&] {
                for (int i = 0; i < 5; ++i) {
                  MD_Message::operator delete(MD_Message::operator new(sizeBytes), sizeBytes);
                }
              }),
              5);
  }
}

/// A class of a program whose constructor throws.
class Unmakeable : public ScriptedMessage {
 public:
  explicit Unmakeable(std::vector<std::string>& calls) : ScriptedMessage(calls) { throw 5; }
};

// The sanitizer for addresses finds memory that is not freed, and a place in memory that is.
TEST_F(MessageMemory, OfAnObjectThatIsNotConstructedIsFreed) {
  std::vector<std::string> calls;
  alignas(Unmakeable) unsigned char place[sizeof(Unmakeable)];
  EXPECT_THROW(delete new Unmakeable(calls), int);
  EXPECT_THROW(delete new (std::nothrow) Unmakeable(calls), int);
  EXPECT_THROW(new (place) Unmakeable(calls), int);
  const std::unique_ptr<MD_Message> next(new mInt);
  EXPECT_TRUE(next->add(id::kInt, 5));
}

TEST_F(MessageMemory, OfAThreadThatHasEndedServesOthers) {
  constexpr std::size_t kCount = 300;
  const auto usedByAThread = [] {
    std::set<const void*> used;
    std::thread([&] {
      std::vector<std::unique_ptr<MD_Message>> messages;
      for (std::size_t i = 0; i < kCount; ++i) {
        messages.push_back(MD_Message::createFromPB(6));
        used.insert(messages.back().get());
      }
    }).join();
    return used;
  };
  const auto first = usedByAThread();
  EXPECT_EQ(first.size(), kCount);
  EXPECT_EQ(usedByAThread(), first);
}

}  // namespace
}  // namespace MD::test
