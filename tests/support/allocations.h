// Counts the program's allocations by operator new, and lets them fail. It replaces the global operators, so it is
// included in one source of a program; in a program that links the library's objects it sees the library's as well.
#ifndef MD_TESTS_SUPPORT_ALLOCATIONS_H
#define MD_TESTS_SUPPORT_ALLOCATIONS_H

#include <cstddef>
#include <cstdlib>

#include <new>

namespace MD::test {

/// What operator new does and did. For tests of one thread.
struct Allocations {
  static inline long count = 0;
  static inline long untilFailure = -1;  ///< allocations that still succeed before one fails; negative: none fails

  static void* allocate(std::size_t size) noexcept {
    ++count;
    if (untilFailure == 0) {
      untilFailure = -1;
      return nullptr;
    }
    if (untilFailure > 0) {
      --untilFailure;
    }
    return std::malloc(size != 0 ? size : 1);
  }
  // Not inlined: a compiler that sees free() but not malloc() takes the two for a mismatch.
  [[gnu::noinline]] static void release(void* block) noexcept { std::free(block); }
  static void* allocateOrThrow(std::size_t size) {
    if (void* block = allocate(size)) {
      return block;
    }
    throw std::bad_alloc();
  }
};

/// Makes one allocation fail: the first one, or the one behind `succeeding` others. Later ones succeed.
class FailingAllocation {
 public:
  explicit FailingAllocation(long succeeding = 0) { Allocations::untilFailure = succeeding; }
  ~FailingAllocation() { Allocations::untilFailure = -1; }
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /// Whether the failure has taken place.
  static bool hasHappened() { return Allocations::untilFailure < 0; }
};

}  // namespace MD::test

void* operator new(std::size_t size) { return MD::test::Allocations::allocateOrThrow(size); }
void* operator new[](std::size_t size) { return MD::test::Allocations::allocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return MD::test::Allocations::allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return MD::test::Allocations::allocate(size); }
void operator delete(void* block) noexcept { MD::test::Allocations::release(block); }
void operator delete[](void* block) noexcept { MD::test::Allocations::release(block); }
void operator delete(void* block, std::size_t) noexcept { MD::test::Allocations::release(block); }
void operator delete[](void* block, std::size_t) noexcept { MD::test::Allocations::release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { MD::test::Allocations::release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { MD::test::Allocations::release(block); }

#endif
