// Shared pools that have nothing to lend.
#ifndef MD_TESTS_SUPPORT_EMPTIED_POOLS_H
#define MD_TESTS_SUPPORT_EMPTIED_POOLS_H

#include <memory>
#include <vector>

#include "md/md_reusable_container.h"
#include "support/failing_heap.h"

namespace MD::test {

/// Borrows everything that the shared pools hold, so that whoever borrows next needs memory.
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

}  // namespace MD::test

#endif
