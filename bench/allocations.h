// Counts heap allocations: this program replaces malloc and its relatives, which operator new calls.
#ifndef MD_BENCH_ALLOCATIONS_H
#define MD_BENCH_ALLOCATIONS_H

#include <cstdint>

namespace bench {

/// How many blocks this thread has allocated so far; a block that is made larger counts again. Always 0 where the C
/// library has no second names for what is replaced.
std::uint64_t allocations() noexcept;

}  // namespace bench

#endif
