// The factory from several threads at once. A data race is the thread sanitizer's to see.
#include <cstdint>

#include <atomic>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/messages.h"
#include "support/threads.h"

namespace MD {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 50;

/// Counts how many messages are of encoding `code` when all threads make preferred ones; in half of them, or all,
/// cached.
template <class IsCached>
int preferredOfCode(int code, IsCached isCached) {
  std::atomic<int> count{0};
  test::inThreads(kThreads, [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      const auto message = MD_Message::createPreferred(isCached(thread));
      count += message != nullptr && message->getPB() == code ? 1 : 0;
    }
  });
  return count;
}

// In processes of their own: the cache, the preferred code and the dictionary are made by whichever thread is first.

TEST(PreferredFromThreads, CachedCallsAgree) {
  test::expectInFreshProcess([] {
    const test::ConfigurationFolder folder;
    test::ConfigurationFolder::write("message/preferred.conf", "6");
    EXPECT_EQ(preferredOfCode(6, [](int) { return true; }), kThreads * kRounds);
    test::ConfigurationFolder::write("message/preferred.conf", "1");
    EXPECT_EQ(preferredOfCode(6, [](int) { return true; }), kThreads * kRounds);
  });
}

TEST(PreferredFromThreads, UncachedCallsAgree) {
  test::expectInFreshProcess([] {
    const test::ConfigurationFolder folder;
    test::ConfigurationFolder::write("message/preferred.conf", "6");
    EXPECT_EQ(preferredOfCode(6, [](int) { return false; }), kThreads * kRounds);
    test::ConfigurationFolder::write("message/preferred.conf", "1");
    EXPECT_EQ(preferredOfCode(1, [](int) { return false; }), kThreads * kRounds);
  });
}

TEST(PreferredFromThreads, CachedAndUncachedCallsMix) {
  test::expectInFreshProcess([] {
    const test::ConfigurationFolder folder;
    test::ConfigurationFolder::write("message/preferred.conf", "1");
    EXPECT_EQ(preferredOfCode(1, [](int thread) { return thread % 2 == 0; }), kThreads * kRounds);
  });
}

TEST(PreferredFromThreads, WithoutAFileEveryCallGivesMsgT) {
  test::expectInFreshProcess([] {
    const test::ConfigurationFolder folder;
    EXPECT_EQ(preferredOfCode(70, [](int thread) { return thread % 2 == 0; }), kThreads * kRounds);
  });
}

TEST(FactoryFromThreads, MessagesOfAllEncodingsFromSharedAndOwnPools) {
  test::loadDictionary(test::kDictionary);
  const test::Bytes received[] = {
      test::fromHex("01 2C 01 05 00 00 00"),
      test::fromHex("06 2C 01 01 05"),
      test::fromHex("46 51 52 31 01 2C 00 02 00 00 00 04 00 00 00 05"),
  };
  const MD_Message::Allocator own(std::make_shared<ReusableContainer<MsgData>>(),
                                  std::make_shared<ReusableContainer<Optimizer>>());
  std::atomic<int> good{0};
  test::inThreads(kThreads, [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      for (const test::Bytes& bytes : received) {
        const auto message =
            MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                                        (thread + round) % 2 == 0 ? own : MD_Message::DEFAULT_ALLOCATOR);
        std::int32_t value = 0;
        const bool isRead = message != nullptr && message->get(test::id::kInt, value) && value == 5;
        good += isRead && message->update(test::id::kInt, 1000 + thread) && message->get(test::id::kInt, value) &&
                        value == 1000 + thread && message->getPB() == bytes[0]
                    ? 1
                    : 0;
      }
    }
  });
  EXPECT_EQ(good, kThreads * kRounds * 3);
}

}  // namespace
}  // namespace MD
