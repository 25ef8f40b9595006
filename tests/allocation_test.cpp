// What messages ask of the heap: nothing, once the pools are warm; and what they do when it has nothing left.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/messages.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define MD_HEAP_OF_A_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MD_HEAP_OF_A_SANITIZER
#endif

namespace {

// Of the thread that runs the tests. Volatile, because compilers know what malloc does and does not look at.
thread_local volatile bool t_isCounting = false;
thread_local volatile long t_allocations = 0;

[[maybe_unused]] void noteAllocation() {
  if (t_isCounting) {
    t_allocations = t_allocations + 1;
  }
}

}  // namespace

#if defined(MD_HEAP_OF_A_SANITIZER)

#define MD_ALLOCATIONS_ARE_COUNTED
// A sanitizer brings a heap of its own and calls hooks. It lets no allocation fail.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                                         void (*onFree)(const volatile void*));
namespace {
const int g_hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { noteAllocation(); }, [](const volatile void*) {});
}  // namespace

#elif defined(__GLIBC__)

#define MD_ALLOCATIONS_ARE_COUNTED
#define MD_ALLOCATIONS_CAN_FAIL

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

thread_local volatile long t_untilFailure =
    -1;  // allocations that still succeed before one fails; negative: none fails

bool isToFail() {
  noteAllocation();
  const long left = t_untilFailure;
  if (left < 0) {
    return false;
  }
  t_untilFailure = left - 1;
  return left == 0;
}

}  // namespace

// In place of the C library's, for the library under test and for operator new alike.
extern "C" {
void* malloc(std::size_t size) noexcept { return isToFail() ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) noexcept { return isToFail() ? nullptr : __libc_calloc(count, size); }
void* realloc(void* block, std::size_t size) noexcept { return isToFail() ? nullptr : __libc_realloc(block, size); }
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return isToFail() ? nullptr : __libc_memalign(alignment, size);
}
}

#endif

namespace MD::test {
namespace {

/// Allocations of this thread while `work` runs.
template <class Work>
long allocationsOf(Work work) {
  t_allocations = 0;
  t_isCounting = true;
  work();
  t_isCounting = false;
  return t_allocations;
}

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

#if defined(MD_ALLOCATIONS_CAN_FAIL)

/// What an operation must leave alone when it fails.
struct Contents {
  explicit Contents(const MD_Message& message)
      : bytes(hexOf(message)), ids(idsOf(message)), count(message.fieldCount()) {
    const CapturedErrors errors;
    for (const ValueType& type : valueTypes()) {
      for (const std::uint16_t id : {type.field, type.otherField}) {
        std::string raw;
        values += type.get(message, id, 0, raw) ? raw + "," : message.existsImpl(id) ? "unread," : "absent,";
      }
    }
  }
  bool operator==(const Contents& other) const {
    return bytes == other.bytes && ids == other.ids && count == other.count && values == other.values;
  }

  std::string bytes;
  Ids ids;
  std::size_t count;
  std::string values;
};

/// Lets each allocation of `work` fail in turn until it succeeds, and expects `message` unchanged after each failure.
/// @return how often it failed
template <class Work>
int failEachAllocation(const MD_Message& message, Work work) {
  const Contents before(message);
  for (int failing = 0; failing < 100; ++failing) {
    bool hasFailed = false;
    t_untilFailure = failing;
    try {
      work();
    } catch (const std::bad_alloc&) {
      hasFailed = true;
    }
    t_untilFailure = -1;
    if (!hasFailed) {
      return failing;
    }
    EXPECT_TRUE(Contents(message) == before) << "allocation " << failing;
  }
  ADD_FAILURE() << "it never succeeds";
  return -1;
}

/// Leaves the message's buffer almost full, so that it must grow.
void fillUp(MD_Message& message) {
  message.clearImpl();
  message.add(id::kInt, 70000);
  message.add(id::kBuffer, bufferOf(std::string(255, 'x')));
  message.add(id::kBuffer2, bufferOf(std::string(255, 'x')));
  message.add(id::kString2, std::string(254, 'x'));
  message.add(id::kString, "IBM");
  EXPECT_GT(message.getSizeImpl(), 1024u - 254);
  EXPECT_LE(message.getSizeImpl(), 1024u);
}

/// A message in a buffer of its own that no other test has made larger.
template <class Encoding>
std::unique_ptr<Encoding> withFreshBuffer() {
  std::vector<std::unique_ptr<ReusableContainerWrapper<MsgData>>> used;
  do {
    used.push_back(std::make_unique<ReusableContainerWrapper<MsgData>>(true, nullptr));
  } while ((*used.back())->capacity() != 0);
  used.pop_back();
  return std::make_unique<Encoding>();
}

TYPED_TEST(Allocations, ThatFailLeaveTheMessageOfAnAdd) {
  const auto message = withFreshBuffer<TypeParam>();
  fillUp(*message);
  message->eraseImpl(id::kString);
  const std::string text(254, 'y');
  bool isAdded = false;
  EXPECT_GE(failEachAllocation(*message, [&] { isAdded = message->add(id::kString, text); }), 1);
  EXPECT_TRUE(isAdded);
  std::string read;
  EXPECT_TRUE(message->get(id::kString, read));
  EXPECT_EQ(read, text);
}

TYPED_TEST(Allocations, ThatFailLeaveTheMessageOfAnUpdate) {
  const auto message = withFreshBuffer<TypeParam>();
  fillUp(*message);
  const std::string text(254, 'y');
  bool isUpdated = false;
  EXPECT_GE(failEachAllocation(*message, [&] { isUpdated = message->update(id::kString, text); }), 1);
  EXPECT_TRUE(isUpdated);
  std::string read;
  EXPECT_TRUE(message->get(id::kString, read));
  EXPECT_EQ(read, text);
}

TYPED_TEST(Allocations, ThatFailLeaveTheMessageOfAnUpdateWithAViewIntoIt) {
  const auto message = withFreshBuffer<TypeParam>();
  fillUp(*message);
  bool isUpdated = false;
  EXPECT_GE(failEachAllocation(*message,
                               [&] {
                                 MD_Message::String view;
                                 message->get(id::kString2, view);
                                 isUpdated = message->update(id::kString, view);
                               }),
            2);
  EXPECT_TRUE(isUpdated);
  std::string read;
  EXPECT_TRUE(message->get(id::kString, read));
  EXPECT_EQ(read, std::string(254, 'x'));
}

TYPED_TEST(Allocations, ThatFailLeaveTheMessageOfAParse) {
  const auto message = withFreshBuffer<TypeParam>();
  fillUp(*message);
  TypeParam large;
  fillUp(large);
  large.update(id::kString, std::string(254, 'y'));
  const Bytes bytes = bytesOf(large);
  EXPECT_GT(bytes.size(), 1024u);
  EXPECT_GE(failEachAllocation(*message,
                               [&] { message->setBinaryImpl(bytes.data(), static_cast<std::uint32_t>(bytes.size())); }),
            1);
  EXPECT_EQ(hexOf(*message), toHex(bytes));
  EXPECT_EQ(message->fieldCount(), 5u);
}

TYPED_TEST(Allocations, ThatFailLeaveTheMessageThatIsClonedOrMoved) {
  MD_Message& message = this->m_message;
  std::unique_ptr<MD_Message> copy;
  EXPECT_GE(failEachAllocation(message, [&] { copy = message.clone(); }), 1);
  EXPECT_EQ(hexOf(*copy), hexOf(message));
  std::unique_ptr<MD_Message> empty;
  EXPECT_GE(failEachAllocation(message, [&] { empty = message.createEmpty(); }), 1);
  EXPECT_EQ(empty->fieldCount(), 0u);
  const std::string before = hexOf(message);
  std::unique_ptr<MD_Message> moved;
  EXPECT_GE(failEachAllocation(message, [&] { moved = message.moveToNew(); }), 1);
  EXPECT_EQ(hexOf(*moved), before);
  message.clearImpl();
}

// More fields than an erase keeps on the stack.
TYPED_TEST(Allocations, ThatFailLeaveTheMessageOfAnErase) {
  std::string dictionary;
  for (int id = 1; id <= 100; ++id) {
    dictionary += "F" + std::to_string(id) + " " + std::to_string(id) + " INT\n";
  }
  loadDictionary(dictionary);
  TypeParam message;
  Ids ids;
  for (std::uint16_t id = 1; id <= 100; ++id) {
    message.add(id, 70000);
    ids.push_back(id);
  }
  bool isErased = false;
  EXPECT_GE(failEachAllocation(message, [&] { isErased = message.eraseArrayImpl(ids); }), 1);
  EXPECT_TRUE(isErased);
  EXPECT_EQ(message.fieldCount(), 0u);
}

// Reports take memory too. Where there is none for them, an operation fails and changes nothing, or does without.
TYPED_TEST(Allocations, ThatFailInReportsLeaveTheMessageOfAParse) {
  expectInFreshProcess([] {
    loadDictionary(kDictionary);
    TypeParam message;
    message.add(id::kInt, 5);
    TypeParam received;
    received.add(id::kChar, 'a');
    Bytes bytes = bytesOf(received);
    bytes.insert(bytes.end(), 8, 0);
    received.add(id::kInt, 70000);
    const Bytes whole = bytesOf(received);
    bytes.insert(bytes.end(), whole.begin() + static_cast<std::ptrdiff_t>(bytes.size() - 8), whole.end());
    CapturedErrors errors;
    failEachAllocation(message, [&] { message.setBinaryImpl(bytes.data(), static_cast<std::uint32_t>(bytes.size())); });
    EXPECT_TRUE(message.existsImpl(id::kChar));
    EXPECT_EQ(parse<TypeParam>(bytesOf(message))->fieldCount(), message.fieldCount());
  });
}

TYPED_TEST(Allocations, ThatFailInReportsLeaveTheMessageOfARefusedOperation) {
  MD_Message& message = this->m_message;
  const std::string text(300, 'x');
  CapturedErrors errors;
  bool result = true;
  failEachAllocation(message, [&] { result = message.add(id::kEpochNS2, text); });
  EXPECT_FALSE(result);
  result = true;
  failEachAllocation(message, [&] { result = message.update(id::kShort, 5); });
  EXPECT_FALSE(result);
  message.eraseImpl(id::kString);
  failEachAllocation(message, [&] { message.add(id::kString, text); });
  const std::string longest(65535, 'x');
  failEachAllocation(message, [&] { message.update(id::kString, bufferOf(longest)); });
}

TYPED_TEST(Allocations, ThatFailWhileBytesAreReceivedLeakNothing) {
  for (int failing = 0; failing < 100; ++failing) {
    const MD_Message::Allocator pools(std::make_shared<ReusableContainer<MsgData>>(),
                                      std::make_shared<ReusableContainer<Optimizer>>());
    std::unique_ptr<MD_Message> message;
    t_untilFailure = failing;
    try {
      message =
          MD_Message::createFromBytes(this->m_bytes.data(), static_cast<std::uint32_t>(this->m_bytes.size()), pools);
    } catch (const std::bad_alloc&) {
      t_untilFailure = -1;
      continue;
    }
    t_untilFailure = -1;
    EXPECT_GE(failing, 1);
    EXPECT_EQ(hexOf(*message), toHex(this->m_bytes));
    return;
  }
  ADD_FAILURE() << "it never succeeds";
}

#endif

}  // namespace
}  // namespace MD::test
