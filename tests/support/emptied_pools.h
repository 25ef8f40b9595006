// Shared pools that have nothing to lend, and messages that need memory of the heap.
#ifndef MD_TESTS_SUPPORT_EMPTIED_POOLS_H
#define MD_TESTS_SUPPORT_EMPTIED_POOLS_H

#include <memory>
#include <new>
#include <vector>

#include "md/md_message.h"
#include "md/md_reusable_container.h"
#include "support/failing_heap.h"

namespace MD::test {

/// Borrows everything that the shared pools hold, so that the next borrower needs memory.
class EmptiedPools {
 public:
  EmptiedPools() {
    borrowAll(m_buffers);
    borrowAll(m_tables);
  }

 private:
  template <class T>
  static void borrowAll(std::vector<std::unique_ptr<ReusableContainerWrapper<T>>>& borrowed) {
    long made = 0;
    while (made == 0) {
      borrowed.push_back(std::make_unique<ReusableContainerWrapper<T>>(false, nullptr));
      made = allocationsOf([&] { borrowed.back()->set(); });
    }
  }

  std::vector<std::unique_ptr<ReusableContainerWrapper<MsgData>>> m_buffers;
  std::vector<std::unique_ptr<ReusableContainerWrapper<Optimizer>>> m_tables;
};

/// Takes all memory of destroyed messages, so that the next one made on the heap needs some, and frees it at the end.
class EmptiedMessageMemory {
 public:
  EmptiedMessageMemory() {
    long made = 0;
    while (made == 0) {
      m_taken.push_back(nullptr);
      made = allocationsOf([&] { m_taken.back() = MD_Message::operator new(sizeof(MD_Message)); });
    }
  }
  ~EmptiedMessageMemory() {
    for (void* memory : m_taken) {
      ::operator delete(memory);
    }
  }
  EmptiedMessageMemory(const EmptiedMessageMemory&) = delete;
  EmptiedMessageMemory& operator=(const EmptiedMessageMemory&) = delete;

 private:
  std::vector<void*> m_taken;
};

}  // namespace MD::test

#endif
