// The library's dictionary during the benchmark. It is one for the whole process, so a benchmark says which contents it
// needs, and they are exchanged between benchmarks, when no message is alive.
#ifndef MD_BENCH_DICTIONARY_H
#define MD_BENCH_DICTIONARY_H

#include <cstdint>

#include <array>

#include "messages.h"

namespace bench {

enum class Dictionary {
  Any,    ///< the benchmark does not care
  Small,  ///< the fields of the benchmark's own messages
  Large,  ///< a real one of 6,066 fields, with those of the quote spread over it
};

/// Fills the dictionary, unless it is so already. No message may exist.
void useDictionary(Dictionary dictionary);

/// To be called after other contents were loaded into the dictionary.
void forgetDictionary();

/// The ids of the quote's fields in the large dictionary, by the fields' numbers.
const std::array<std::uint16_t, kFieldCount<Quote> + 1>& largeIds();

/// Why there is no large dictionary; null when there is.
const char* whyNoLargeDictionary();

}  // namespace bench

#endif
