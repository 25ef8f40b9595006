// The heap of a test program: counts what this thread allocates, and lets allocations fail. It takes the place of the C
// library's functions or, under a sanitizer, of the global operators, so it is included in one source of a program.
#ifndef MD_TESTS_SUPPORT_FAILING_HEAP_H
#define MD_TESTS_SUPPORT_FAILING_HEAP_H

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define MD_HEAP_OF_A_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MD_HEAP_OF_A_SANITIZER
#endif

#if defined(MD_HEAP_OF_A_SANITIZER) || defined(__GLIBC__)
#define MD_ALLOCATIONS_ARE_COUNTED
#define MD_ALLOCATIONS_CAN_FAIL
#endif

namespace MD::test {

/// What fails: one allocation, or that one and all that follow it.
enum class Failing { Once, FromThenOn };

namespace heap {

/// Whether the functions of C fail as well, with which buffers of messages grow. Under a sanitizer they do not.
#if defined(MD_HEAP_OF_A_SANITIZER)
inline constexpr bool kMallocFails = false;
#else
inline constexpr bool kMallocFails = true;
#endif

// Of the thread that runs the tests. Volatile, because compilers know what malloc does and does not look at.
inline thread_local volatile bool t_isCounting = false;
inline thread_local volatile long t_allocations = 0;
inline thread_local volatile long t_liveBlocks = 0;
inline thread_local volatile long t_untilFailure = -1;  // allocations that still succeed; negative: none fails
inline thread_local volatile bool t_failsFromThenOn = false;
inline thread_local volatile bool t_hasFailed = false;

[[maybe_unused]] inline void noteAllocation() {
  if (t_isCounting) {
    t_allocations = t_allocations + 1;
  }
}

[[maybe_unused]] inline void noteBlock(long change) { t_liveBlocks = t_liveBlocks + change; }

[[maybe_unused]] inline bool isToFail() {
  const long left = t_untilFailure;
  if (left < 0) {
    return false;
  }
  if (left != 0) {
    t_untilFailure = left - 1;
    return false;
  }
  if (!t_failsFromThenOn) {
    t_untilFailure = -1;
  }
  t_hasFailed = true;
  errno = ENOMEM;
  return true;
}

}  // namespace heap

/// Allocations of this thread while `work` runs.
template <class Work>
long allocationsOf(Work work) {
  heap::t_allocations = 0;
  heap::t_isCounting = true;
  work();
  heap::t_isCounting = false;
  return heap::t_allocations;
}

/// Makes an allocation of this thread fail for the object's lifetime: the one after `succeeding` others.
class FailingHeap {
 public:
  explicit FailingHeap(long succeeding, Failing failing = Failing::Once) {
    heap::t_hasFailed = false;
    heap::t_failsFromThenOn = failing == Failing::FromThenOn;
    heap::t_untilFailure = succeeding;
  }
  ~FailingHeap() { heap::t_untilFailure = -1; }
  FailingHeap(const FailingHeap&) = delete;
  FailingHeap& operator=(const FailingHeap&) = delete;

  static bool hasFailed() { return heap::t_hasFailed; }
};

}  // namespace MD::test

#if defined(MD_HEAP_OF_A_SANITIZER)

// A sanitizer brings a heap of its own and calls hooks.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                                         void (*onFree)(const volatile void*));

namespace MD::test::heap {

inline const int g_hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { noteAllocation(); }, [](const volatile void*) {});

// Not inlined: a compiler that sees free() but not malloc() takes the two for a mismatch.
[[gnu::noinline]] inline void* allocate(std::size_t size) noexcept {
  return isToFail() ? nullptr : std::malloc(size != 0 ? size : 1);
}
[[gnu::noinline]] inline void* allocateOrThrow(std::size_t size) {
  if (void* block = allocate(size)) {
    return block;
  }
  throw std::bad_alloc();
}
[[gnu::noinline]] inline void release(void* block) noexcept { std::free(block); }

[[gnu::noinline]] inline void* allocate(std::size_t size, std::align_val_t alignment) noexcept {
  const auto multiple = static_cast<std::size_t>(alignment);
  return isToFail() ? nullptr : std::aligned_alloc(multiple, (size + multiple - 1) / multiple * multiple);
}
[[gnu::noinline]] inline void* allocateOrThrow(std::size_t size, std::align_val_t alignment) {
  if (void* block = allocate(size, alignment)) {
    return block;
  }
  throw std::bad_alloc();
}

}  // namespace MD::test::heap

void* operator new(std::size_t size, std::align_val_t alignment) {
  return MD::test::heap::allocateOrThrow(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return MD::test::heap::allocate(size, alignment);
}
void operator delete(void* block, std::align_val_t) noexcept { MD::test::heap::release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { MD::test::heap::release(block); }

void* operator new(std::size_t size) { return MD::test::heap::allocateOrThrow(size); }
void* operator new[](std::size_t size) { return MD::test::heap::allocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return MD::test::heap::allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return MD::test::heap::allocate(size); }
void operator delete(void* block) noexcept { MD::test::heap::release(block); }
void operator delete[](void* block) noexcept { MD::test::heap::release(block); }
void operator delete(void* block, std::size_t) noexcept { MD::test::heap::release(block); }
void operator delete[](void* block, std::size_t) noexcept { MD::test::heap::release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { MD::test::heap::release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { MD::test::heap::release(block); }

#elif defined(__GLIBC__)

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace MD::test::heap {

/// Makes a block with `make`, unless it is time to fail.
template <class Make>
void* allocate(long newBlocks, Make make) {
  noteAllocation();
  void* const block = isToFail() ? nullptr : make();
  noteBlock(block != nullptr ? newBlocks : 0);
  return block;
}

}  // namespace MD::test::heap

// In place of the C library's, for the library under test and for operator new alike.
extern "C" {
void* malloc(std::size_t size) noexcept {
  return MD::test::heap::allocate(1, [=] { return __libc_malloc(size); });
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  return MD::test::heap::allocate(1, [=] { return __libc_calloc(count, size); });
}
void* realloc(void* block, std::size_t size) noexcept {
  return MD::test::heap::allocate(block == nullptr ? 1 : 0, [=] { return __libc_realloc(block, size); });
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return MD::test::heap::allocate(1, [=] { return __libc_memalign(alignment, size); });
}
void free(void* block) noexcept {
  MD::test::heap::noteBlock(block != nullptr ? -1 : 0);
  __libc_free(block);
}
}

#endif

#endif
