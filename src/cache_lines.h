// Separates data that different threads write: two writers of one cache line wait for each other.
#ifndef MD_SRC_CACHE_LINES_H
#define MD_SRC_CACHE_LINES_H

#include <cstddef>

namespace MD::detail {

/// What one thread writes to begins and ends at multiples of this many bytes: x86-64 fetches lines of 64 in
/// pairs, and some ARM processors have lines of 128.
inline constexpr std::size_t kCacheLinesBytes = 128;

}  // namespace MD::detail

#endif
