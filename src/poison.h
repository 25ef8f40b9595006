// Memory that the library owns but that holds nothing, for the address sanitizer: an access to it is reported.
#ifndef MD_SRC_POISON_H
#define MD_SRC_POISON_H

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MD_HAS_POISON
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define MD_HAS_POISON
#endif

#if defined(MD_HAS_POISON)
#include <sanitizer/asan_interface.h>
#endif

namespace MD::detail {

/// Nobody may access the bytes until unpoison().
inline void poison([[maybe_unused]] const void* bytes, [[maybe_unused]] std::size_t count) noexcept {
#if defined(MD_HAS_POISON)
  __asan_poison_memory_region(bytes, count);
#endif
}

inline void unpoison([[maybe_unused]] const void* bytes, [[maybe_unused]] std::size_t count) noexcept {
#if defined(MD_HAS_POISON)
  __asan_unpoison_memory_region(bytes, count);
#endif
}

}  // namespace MD::detail

#endif
