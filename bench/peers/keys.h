// Field numbers as the short texts that peers with named fields use for keys.
#ifndef MD_BENCH_PEERS_KEYS_H
#define MD_BENCH_PEERS_KEYS_H

#include <string_view>

namespace bench {

/// The number that a key of digits denotes.
inline unsigned numberOf(std::string_view key) noexcept {
  unsigned number = 0;
  for (const char digit : key) {
    number = number * 10 + static_cast<unsigned>(digit - '0');
  }
  return number;
}

}  // namespace bench

#endif
