// Messages that are still there when their thread or the process ends. Each body runs in a process of its own, which
// has to end in order; what is freed twice or too late is the sanitizers' to see.
#include <cstdint>
#include <cstdlib>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <iterator>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/messages.h"

namespace MD::test {
namespace {

constexpr int kThreads = 4;

/// A message of each encoding, and one over pools of its own.
class Messages {
 public:
  Messages() {
    for (MD_Message* message : all()) {
      message->add(id::kInt, 70000);
      message->add(id::kString, "some text");
    }
  }
  /// Uses the messages once more, however late.
  ~Messages() {
    for (MD_Message* message : all()) {
      std::int32_t value = 0;
      const bool isRight = message->get(id::kInt, value) && value == 70000 &&
                           message->update(id::kString, "another text") && message->clone()->fieldCount() == 2;
      if (!isRight) {
        std::abort();
      }
    }
  }
  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;

 private:
  std::array<MD_Message*, 4> all() { return {&m_mInt, &m_iterMap, &m_msgT, m_ofOwnPools.get()}; }

  static std::unique_ptr<MD_Message> ofOwnPools() {
    const Bytes bytes = fromHex("06");
    return MD_Message::createFromBytes(
        bytes.data(), 1,
        {std::make_shared<ReusableContainer<MsgData>>(), std::make_shared<ReusableContainer<Optimizer>>()});
  }

  mInt m_mInt;
  IterMap m_iterMap;
  MsgT m_msgT;
  std::unique_ptr<MD_Message> m_ofOwnPools = ofOwnPools();
};

// Made before anything of the library, so that they end after it.
std::unique_ptr<Messages> g_earlyMessages;
thread_local std::unique_ptr<Messages> t_messages;

void useOfThread() { t_messages = std::make_unique<Messages>(); }

using ManyMessages = std::vector<std::unique_ptr<Messages>>;

thread_local ManyMessages t_many;

/// Destroys more messages than a thread keeps objects of. @return as many others
ManyMessages useMany() {
  ManyMessages destroyed;
  ManyMessages kept;
  for (int i = 0; i < 600; ++i) {
    (i % 2 == 0 ? destroyed : kept).push_back(std::make_unique<Messages>());
  }
  return kept;
}

void inThreads(void (*body)()) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back(body);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

struct EndCase {
  const char* name;
  void (*body)();
  bool keepsMessagesInThreads = true;
};

const EndCase kEnds[] = {
    {"StaticMessages",
     [] {
       loadDictionary(kDictionary);
       g_earlyMessages = std::make_unique<Messages>();
       static const Messages late;
     },
     false},
    {"StaticMessagesOfAnotherThread",
     [] {
       loadDictionary(kDictionary);
       std::thread([] { g_earlyMessages = std::make_unique<Messages>(); }).join();
     },
     false},
    {"MessagesOfThreads",
     [] {
       loadDictionary(kDictionary);
       inThreads(&useOfThread);
     }},
    {"ManyMessagesOfThreads",
     [] {
       loadDictionary(kDictionary);
       inThreads([] { t_many = useMany(); });
       t_many = useMany();
     }},
    {"ManyMessagesOfThreadsThatOthersDestroy",
     [] {
       loadDictionary(kDictionary);
       static ManyMessages many;
       static std::mutex mutex;
       inThreads([] {
         ManyMessages mine = useMany();
         const std::lock_guard<std::mutex> lock(mutex);
         std::move(mine.begin(), mine.end(), std::back_inserter(many));
       });
       many.resize(many.size() / 2);
     },
     false},
    {"MessagesOfTheMainThread",
     [] {
       loadDictionary(kDictionary);
       useOfThread();
       inThreads(&useOfThread);
     }},
    {"MessagesThatAThreadUsedBeforeTheOnesItKeeps",
     [] {
       loadDictionary(kDictionary);
       inThreads([] {
         mInt().add(id::kInt, 5);
         useOfThread();
         mInt().add(id::kInt, 5);
       });
     }},
    {"StaticMessagesAndMessagesOfThreads",
     [] {
       loadDictionary(kDictionary);
       g_earlyMessages = std::make_unique<Messages>();
       useOfThread();
       inThreads(&useOfThread);
     }},
    {"ThreadsThatAreStillAlive",
     [] {
       // Never destroyed: threads wait on them until the very end.
       static auto& mutex = *new std::mutex;
       static auto& changed = *new std::condition_variable;
       static int ready = 0;
       loadDictionary(kDictionary);
       for (int i = 0; i < kThreads; ++i) {
         std::thread([] {
           useOfThread();
           std::unique_lock<std::mutex> lock(mutex);
           ++ready;
           changed.notify_all();
           changed.wait(lock, [] { return false; });
         }).detach();
       }
       std::unique_lock<std::mutex> lock(mutex);
       changed.wait(lock, [] { return ready == kThreads; });
     }},
    {"AnExitFromAnotherThread",
     [] {
       loadDictionary(kDictionary);
       useOfThread();
       std::thread([] {
         useOfThread();
         std::exit(testing::Test::HasFailure() ? 1 : 0);
       }).join();
     }},
};

void PrintTo(const EndCase& row, std::ostream* out) { *out << row.name; }

class EndOfProcessDeathTest : public testing::TestWithParam<EndCase> {};

TEST_P(EndOfProcessDeathTest, FindsEverythingInOrder) {
#if defined(__MINGW32__)
  if (GetParam().keepsMessagesInThreads) {
    GTEST_SKIP() << "the compiler's run-time frees thread_local objects before their destructors run";
  }
#endif
  expectInFreshProcess(GetParam().body);
}

INSTANTIATE_TEST_SUITE_P(Each, EndOfProcessDeathTest, testing::ValuesIn(kEnds),
                         [](const auto& row) { return row.param.name; });

// A pool ends with the last message that borrows from it, wherever that is destroyed.
TEST(EndOfPools, IsTheirLastMessagesInAnyThread) {
  loadDictionary(kDictionary);
  const Bytes bytes = fromHex("06 2C 01 01 05");
  for (int round = 0; round < 50; ++round) {
    std::vector<std::unique_ptr<MD_Message>> messages;
    {
      const MD_Message::Allocator pools(std::make_shared<ReusableContainer<MsgData>>(),
                                        std::make_shared<ReusableContainer<Optimizer>>());
      for (int i = 0; i < kThreads; ++i) {
        messages.push_back(MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), pools));
      }
    }
    std::vector<std::thread> threads;
    for (auto& message : messages) {
      threads.emplace_back([&message] { message.reset(); });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(messages.front(), nullptr);
  }
}

}  // namespace
}  // namespace MD::test
