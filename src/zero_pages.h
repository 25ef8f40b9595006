// Memory in pages that are zero and take no memory until they are written.
#ifndef MD_SRC_ZERO_PAGES_H
#define MD_SRC_ZERO_PAGES_H

#include <cstddef>

namespace MD::detail {

/// The size of a page: 4 KiB on x86-64, 4, 16 or 64 KiB on ARM.
std::size_t pageBytes() noexcept;

/// @return null when there are none to be had
void* newZeroPages(std::size_t bytes) noexcept;

/// @param bytes  as for newZeroPages()
void freePages(void* pages, std::size_t bytes) noexcept;

/// Zeroes pages and gives their memory back.
/// @return false, and nothing done, where the system cannot do it
bool zeroPagesAnew(void* pages, std::size_t bytes) noexcept;

}  // namespace MD::detail

#endif
