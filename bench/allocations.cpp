#include "allocations.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

// Only glibc offers its functions under second names; sanitizers bring a malloc of their own.
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define MD_BENCH_COUNTS_ALLOCATIONS
#endif

namespace {

// Thread-local, so that threads share no memory when they count.
thread_local std::uint64_t t_allocations = 0;

}  // namespace

std::uint64_t bench::allocations() noexcept { return t_allocations; }

#if defined(MD_BENCH_COUNTS_ALLOCATIONS)
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) {
  ++t_allocations;
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  ++t_allocations;
  return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
  ++t_allocations;
  return __libc_realloc(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
  ++t_allocations;
  return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}

void free(void* block) { __libc_free(block); }
}
#endif
