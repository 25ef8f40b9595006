#include "zero_pages.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace MD::detail {

#if defined(_WIN32)

std::size_t pageBytes() noexcept {
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  return system.dwPageSize;
}

void* newZeroPages(std::size_t bytes) noexcept {
  return VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

void freePages(void* pages, std::size_t) noexcept { VirtualFree(pages, 0, MEM_RELEASE); }

// Pages could be decommitted, but not surely committed again.
bool zeroPagesAnew(void*, std::size_t) noexcept { return false; }

#else

std::size_t pageBytes() noexcept { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

void* newZeroPages(std::size_t bytes) noexcept {
  void* const pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) {
    return nullptr;
  }
#if defined(MADV_NOHUGEPAGE)
  // Neighbours become one mapping, in which a huge page would fill many tables at once.
  madvise(pages, bytes, MADV_NOHUGEPAGE);
#endif
  return pages;
}

void freePages(void* pages, std::size_t bytes) noexcept {
  // Where it would leave more mappings than a process may have, the memory goes and the addresses stay.
  if (munmap(pages, bytes) != 0) {
    zeroPagesAnew(pages, bytes);
  }
}

bool zeroPagesAnew([[maybe_unused]] void* pages, [[maybe_unused]] std::size_t bytes) noexcept {
#if defined(__linux__)
  return madvise(pages, bytes, MADV_DONTNEED) == 0;
#else
  return false;
#endif
}

#endif

}  // namespace MD::detail
