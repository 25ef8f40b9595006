// Keeps apart in memory what different threads write to: two writers of one cache line wait for each other.
#ifndef MD_SRC_CACHE_LINES_H
#define MD_SRC_CACHE_LINES_H

#include <cstddef>

namespace MD::detail {

/// What one thread writes to begins and ends at multiples of this many bytes: processors fetch lines of 64 in pairs.
inline constexpr std::size_t kCacheLinesBytes = 128;

}  // namespace MD::detail

#endif
