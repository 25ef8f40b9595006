#include "md/md_reusable_container.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include <memory>
#include <new>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_mint.h"
#include "support/allocations.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"

namespace MD {
namespace {

namespace id = test::id;

static_assert(std::is_default_constructible_v<ReusableContainer<MsgData>>);
static_assert(!std::is_copy_constructible_v<ReusableContainer<MsgData>>);
static_assert(!std::is_copy_assignable_v<ReusableContainer<Optimizer>>);

// Every pool behaves alike, for buffers and for field tables.
template <class T>
class ReusableContainerTest : public testing::Test {
 protected:
  static std::shared_ptr<ReusableContainer<T>> newPool() { return std::make_shared<ReusableContainer<T>>(); }

  ReusableContainerTest() { test::loadDictionary(test::kDictionary); }
};

using PooledTypes = testing::Types<MsgData, Optimizer>;

struct NameOfPooledType {
  template <class T>
  static std::string GetName(int) {
    return std::is_same_v<T, MsgData> ? "MsgData" : "Optimizer";
  }
};

TYPED_TEST_SUITE(ReusableContainerTest, PooledTypes, NameOfPooledType);

TYPED_TEST(ReusableContainerTest, LendsAtOnceOrWhenAsked) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  const Wrapper full(true, this->newPool());
  EXPECT_NE(full.get(), nullptr);
  EXPECT_EQ(full.operator->(), full.get());
  EXPECT_EQ(&*full, full.get());

  Wrapper empty(false, this->newPool());
  EXPECT_EQ(empty.get(), nullptr);
  empty.set();
  EXPECT_NE(empty.get(), nullptr);
}

TYPED_TEST(ReusableContainerTest, UnsetOfAnEmptyHandleAndSetOfAFullOneDoNothing) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  const auto pool = this->newPool();
  Wrapper handle(false, pool);
  handle.unset();
  EXPECT_EQ(handle.get(), nullptr);

  handle.set();
  TypeParam* const item = handle.get();
  handle.set();
  EXPECT_EQ(handle.get(), item);

  handle.unset();
  EXPECT_EQ(handle.get(), nullptr);
  handle.unset();
  EXPECT_EQ(handle.get(), nullptr);

  // It went back once: two borrowers get two objects.
  const Wrapper first(true, pool);
  const Wrapper second(true, pool);
  EXPECT_EQ(first.get(), item);
  EXPECT_NE(second.get(), item);
}

TYPED_TEST(ReusableContainerTest, LendsTheLastReturnedFirst) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  for (const bool isShared : {false, true}) {
    SCOPED_TRACE(isShared ? "shared pool" : "own pool");
    const auto pool = isShared ? nullptr : this->newPool();
    Wrapper a(true, pool);
    Wrapper b(true, pool);
    Wrapper c(true, pool);
    const TypeParam* const itemOfA = a.get();
    const TypeParam* const itemOfB = b.get();
    const TypeParam* const itemOfC = c.get();
    EXPECT_NE(itemOfA, itemOfB);
    EXPECT_NE(itemOfA, itemOfC);
    EXPECT_NE(itemOfB, itemOfC);

    b.unset();
    c.unset();
    a.unset();
    const Wrapper first(true, pool);
    const Wrapper second(true, pool);
    const Wrapper third(true, pool);
    EXPECT_EQ(first.get(), itemOfA);
    EXPECT_EQ(second.get(), itemOfC);
    EXPECT_EQ(third.get(), itemOfB);
  }
}

// More than a thread keeps: some of them pass the pool.
TYPED_TEST(ReusableContainerTest, LendsTheLastReturnedFirstHoweverManyThereAre) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  for (const bool isShared : {false, true}) {
    SCOPED_TRACE(isShared ? "shared pool" : "own pool");
    const auto pool = isShared ? nullptr : this->newPool();
    for (const std::size_t count : {63U, 64U, 65U, 97U, 500U, 3000U}) {
      SCOPED_TRACE(count);
      std::vector<std::unique_ptr<Wrapper>> handles;
      std::vector<const TypeParam*> items;
      for (std::size_t i = 0; i < count; ++i) {
        handles.push_back(std::make_unique<Wrapper>(true, pool));
        items.push_back(handles.back()->get());
      }
      ASSERT_EQ(std::set<const TypeParam*>(items.begin(), items.end()).size(), count);
      for (auto& handle : handles) {
        handle->unset();
      }
      for (std::size_t i = count; i-- != 0;) {
        handles[i]->set();
        ASSERT_EQ(handles[i]->get(), items[i]) << i;
      }
    }
  }
}

TYPED_TEST(ReusableContainerTest, ObjectsOfThePoolsLieApartFromAllElse) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  for (const bool isShared : {false, true}) {
    const auto pool = isShared ? nullptr : this->newPool();
    std::vector<std::unique_ptr<Wrapper>> handles;
    for (int i = 0; i < 200; ++i) {
      handles.push_back(std::make_unique<Wrapper>(true, pool));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(handles.back()->get()) % 128, 0u) << i;
    }
  }
}

TYPED_TEST(ReusableContainerTest, OwnPoolsLendTheirOwnObjects) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  const auto one = this->newPool();
  const auto two = this->newPool();
  const TypeParam* item = nullptr;
  {
    const Wrapper handle(true, one);
    item = handle.get();
  }
  const Wrapper ofTwo(true, two);
  const Wrapper ofShared(true, nullptr);
  const Wrapper ofOne(true, one);
  EXPECT_NE(ofTwo.get(), item);
  EXPECT_NE(ofShared.get(), item);
  EXPECT_EQ(ofOne.get(), item);
}

TYPED_TEST(ReusableContainerTest, HandlesShareTheirPool) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  auto pool = this->newPool();
  const std::weak_ptr<ReusableContainer<TypeParam>> watched = pool;
  {
    const Wrapper handle(true, pool);
    pool.reset();
    EXPECT_FALSE(watched.expired());
    EXPECT_NE(handle.get(), nullptr);
  }
  EXPECT_TRUE(watched.expired());
}

TYPED_TEST(ReusableContainerTest, SwapCarriesThePoolAlong) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  const auto one = this->newPool();
  const auto two = this->newPool();
  const TypeParam* itemOfOne = nullptr;
  const TypeParam* itemOfTwo = nullptr;
  {
    Wrapper a(true, one);
    Wrapper b(true, two);
    itemOfOne = a.get();
    itemOfTwo = b.get();
    a.swap(b);
    EXPECT_EQ(a.get(), itemOfTwo);
    EXPECT_EQ(b.get(), itemOfOne);
  }
  const Wrapper ofOne(true, one);
  const Wrapper ofTwo(true, two);
  EXPECT_EQ(ofOne.get(), itemOfOne);
  EXPECT_EQ(ofTwo.get(), itemOfTwo);
}

TYPED_TEST(ReusableContainerTest, SwapWithTheSharedPoolAndWithAnEmptyHandle) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  const auto pool = this->newPool();
  const TypeParam* itemOfPool = nullptr;
  const TypeParam* itemOfShared = nullptr;
  {
    Wrapper own(true, pool);
    Wrapper shared(true, nullptr);
    Wrapper empty(false, nullptr);
    itemOfPool = own.get();
    itemOfShared = shared.get();
    own.swap(shared);
    shared.swap(empty);
    EXPECT_EQ(own.get(), itemOfShared);
    EXPECT_EQ(shared.get(), nullptr);
    EXPECT_EQ(empty.get(), itemOfPool);
    empty.unset();
    empty.set();
    EXPECT_EQ(empty.get(), itemOfPool) << "the handle borrows from the pool that came with the swap";
  }
  const Wrapper ofPool(true, pool);
  const Wrapper ofShared(true, nullptr);
  EXPECT_EQ(ofPool.get(), itemOfPool);
  EXPECT_EQ(ofShared.get(), itemOfShared);
}

TYPED_TEST(ReusableContainerTest, LendsAndTakesBackWithoutAllocationOnceItHasEnough) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  for (const bool isShared : {false, true}) {
    SCOPED_TRACE(isShared ? "shared pool" : "own pool");
    const auto pool = isShared ? nullptr : this->newPool();
    Wrapper a(true, pool);
    Wrapper b(true, pool);
    Wrapper c(true, pool);
    const long before = test::Allocations::count;
    for (int i = 0; i < 100; ++i) {
      a.unset();
      b.unset();
      c.unset();
      c.set();
      a.set();
      b.set();
    }
    EXPECT_EQ(test::Allocations::count, before);
  }
}

TYPED_TEST(ReusableContainerTest, AFailedAllocationLeavesTheHandleEmptyAndThePoolUsable) {
  using Wrapper = ReusableContainerWrapper<TypeParam>;
  const auto pool = this->newPool();
  Wrapper handle(false, pool);
  int failures = 0;
  for (long succeeding = 0; handle.get() == nullptr; ++succeeding) {
    ASSERT_LT(succeeding, 20);
    const test::FailingAllocation failing(succeeding);
    try {
      handle.set();
    } catch (const std::bad_alloc&) {
      ++failures;
      EXPECT_EQ(handle.get(), nullptr);
    }
  }
  EXPECT_GE(failures, 1);
  TypeParam* const item = handle.get();
  handle.unset();
  const Wrapper next(true, pool);
  EXPECT_EQ(next.get(), item);
}

TEST(ReusableContainerOfBuffers, NewObjectsAreEmptyAndReturnedOnesStayAsTheyWere) {
  const auto pool = std::make_shared<ReusableContainer<MsgData>>();
  const std::uint8_t bytes[3] = {1, 2, 3};
  {
    const ReusableContainerWrapper<MsgData> buffer(true, pool);
    EXPECT_EQ(buffer->size(), 0u);
    EXPECT_EQ(buffer->capacity(), 0u);
    buffer->reserve(5000);
    buffer->insert(buffer->end(), bytes, bytes + 3);
  }
  const ReusableContainerWrapper<MsgData> buffer(true, pool);
  ASSERT_EQ(buffer->size(), 3u);
  EXPECT_EQ(buffer->data()[2], 3);
  EXPECT_EQ(buffer->capacity(), 5120u);
}

TEST(ReusableContainerOfTables, NewObjectsAreEmptyAndReturnedOnesStayAsTheyWere) {
  test::loadDictionary(test::kDictionary);
  const auto pool = std::make_shared<ReusableContainer<Optimizer>>();
  {
    const ReusableContainerWrapper<Optimizer> table(true, pool);
    EXPECT_EQ(table->get_field_count(), 0u);
    EXPECT_TRUE(table->set(id::kInt, 7));
  }
  const ReusableContainerWrapper<Optimizer> table(true, pool);
  EXPECT_EQ(table->get_field_count(), 1u);
  EXPECT_EQ(table->get(id::kInt), 7u);
}

TEST(PooledMessages, ADestroyedMessagesPartsServeTheNextOne) {
  test::loadDictionary(test::kDictionary);
  const std::uint8_t* bytes = nullptr;
  {
    mInt message;
    for (int round = 0; round < 3; ++round) {
      const std::string text(250, 'x');
      for (std::uint16_t field : {id::kString, id::kString2}) {
        ASSERT_TRUE(message.update(field, text));
      }
    }
    ASSERT_TRUE(message.add(id::kInt, 5));
    bytes = message.getBinary();
  }
  mInt message;
  EXPECT_EQ(message.getBinary(), bytes);
  EXPECT_EQ(message.getSizeImpl(), 1u) << "the next borrower has reset them";
  EXPECT_EQ(message.fieldCount(), 0u);
  EXPECT_FALSE(message.existsImpl(id::kInt));
}

TEST(PooledMessages, KeepTheCapacityOfTheirBuffer) {
  test::loadDictionary(test::kDictionary);
  {
    mInt message;
    const std::uint8_t received[3000] = {6};
    ASSERT_TRUE(message.setBinaryImpl(received, 1));
  }
  MsgData* buffer = nullptr;
  {
    const ReusableContainerWrapper<MsgData> handle(true, nullptr);
    buffer = handle.get();
    handle->reserve(10'000);
  }
  {
    mInt message;
    EXPECT_EQ(message.getBinary(), buffer->data());
    ASSERT_TRUE(message.add(id::kInt, 5));
  }
  const ReusableContainerWrapper<MsgData> handle(true, nullptr);
  EXPECT_EQ(handle.get(), buffer);
  EXPECT_EQ(handle->capacity(), 10'240u);
}

TEST(PooledMessages, AreMadeFilledAndDestroyedWithoutAllocation) {
  test::loadDictionary(test::kDictionary);
  {
    mInt first;
    ASSERT_TRUE(first.add(id::kInt, 5));
  }
  const long before = test::Allocations::count;
  for (int i = 0; i < 100; ++i) {
    mInt message;
    message.add(id::kInt, i);
    message.add(id::kDouble, 1.5);
    message.update(id::kInt, 100'000);
  }
  EXPECT_EQ(test::Allocations::count, before);
}

// What follows runs in processes of their own, which end in order: a memory error on the way out fails them too.

/// A static object that outlives the shared pools, because it was there before them.
struct OutlivesThePools {
  ~OutlivesThePools() {
    std::fprintf(stderr, "late: %d bytes, %d fields;", static_cast<int>(message->getSizeImpl()),
                 static_cast<int>(message->fieldCount()));
    message->add(id::kDouble, 2.5);
    const std::unique_ptr<MD_Message> copy = message->clone();
    message.reset();
    double value = 0;
    static_cast<void>(copy->get(id::kDouble, value));
    std::fprintf(stderr, " a late copy reads %.1f\n", value);
  }

  std::unique_ptr<MD_Message> message;
};

TEST(SharedPoolsDeathTest, TakePartsBackAfterTheirOwnEnd) {
  test::expectInFreshProcess(
      [] {
        static OutlivesThePools holder;
        test::loadDictionary(test::kDictionary);
        holder.message = std::make_unique<mInt>();
        EXPECT_TRUE(holder.message->add(id::kInt, 5));
        const mInt returnedInTime;
      },
      "late: 5 bytes, 1 fields; a late copy reads 2.5");
}

TEST(SharedPoolsDeathTest, TakePartsBackFromStaticMessages) {
  test::expectInFreshProcess([] {
    test::loadDictionary(test::kDictionary);
    static mInt first;
    static mInt second;
    EXPECT_TRUE(first.add(id::kInt, 5));
    EXPECT_TRUE(second.add(id::kString, "text"));
    first.swap(second);
  });
}

TEST(SharedPoolsDeathTest, LendToStaticHandlesThatWereThereBefore) {
  test::expectInFreshProcess([] {
    static ReusableContainerWrapper<MsgData> buffer(false, nullptr);
    static ReusableContainerWrapper<Optimizer> table(false, nullptr);
    test::loadDictionary(test::kDictionary);
    buffer.set();
    table.set();
    buffer->reserve(2000);
    EXPECT_TRUE(table->set(id::kInt, 5));
  });
}

}  // namespace
}  // namespace MD
