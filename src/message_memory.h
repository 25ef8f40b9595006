// The memory of message objects on the heap, as the factory makes them. Threads cache released memory, as they cache
// the objects of the shared pools, so that making and destroying messages asks nothing of the heap.
#ifndef MD_SRC_MESSAGE_MEMORY_H
#define MD_SRC_MESSAGE_MEMORY_H

#include <cstddef>

#include "cache_lines.h"
#include "md/md_message.h"

namespace MD::detail {

class MessageMemory {
 public:
  /// What every encoding's object takes.
  static constexpr std::size_t kObjectBytes = sizeof(MD_Message);

  /// Memory for one object, as from the global operator new.
  static void* take();

  /// Takes memory for one object: what take() or the global operator new gave, as programs of older versions use that.
  static void giveBack(void* object) noexcept;

  /// So long that two objects have no cache line in common, wherever the heap puts them.
  struct Block {
    unsigned char bytes[kObjectBytes + kCacheLinesBytes];
  };
};

}  // namespace MD::detail

#endif
