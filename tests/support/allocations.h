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

  static bool isToFail() noexcept {
    ++count;
    if (untilFailure == 0) {
      untilFailure = -1;
      return true;
    }
    if (untilFailure > 0) {
      --untilFailure;
    }
    return false;
  }
  static void* allocate(std::size_t size) noexcept { return isToFail() ? nullptr : std::malloc(size != 0 ? size : 1); }
  // Not inlined: a compiler that sees free() but not malloc() takes the two for a mismatch.
  [[gnu::noinline]] static void release(void* block) noexcept { std::free(block); }
  static void* allocateOrThrow(std::size_t size) {
    if (void* block = allocate(size)) {
      return block;
    }
    throw std::bad_alloc();
  }

  // The C library of Windows frees aligned blocks by a function of their own.
  static void* allocate(std::size_t size, std::align_val_t alignment) noexcept {
    const auto multiple = static_cast<std::size_t>(alignment);
    const std::size_t whole = (size + multiple - 1) / multiple * multiple;
#if defined(_WIN32)
    return isToFail() ? nullptr : _aligned_malloc(whole, multiple);
#else
    return isToFail() ? nullptr : std::aligned_alloc(multiple, whole);
#endif
  }
  static void* allocateOrThrow(std::size_t size, std::align_val_t alignment) {
    if (void* block = allocate(size, alignment)) {
      return block;
    }
    throw std::bad_alloc();
  }
  [[gnu::noinline]] static void releaseAligned(void* block) noexcept {
#if defined(_WIN32)
    _aligned_free(block);
#else
    std::free(block);
#endif
  }
};

/// Makes one allocation fail: the first one, or the one after `succeeding` others. Later ones succeed.
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
void* operator new(std::size_t size, std::align_val_t alignment) {
  return MD::test::Allocations::allocateOrThrow(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return MD::test::Allocations::allocate(size, alignment);
}
void operator delete(void* block, std::align_val_t) noexcept { MD::test::Allocations::releaseAligned(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  MD::test::Allocations::releaseAligned(block);
}

#endif
