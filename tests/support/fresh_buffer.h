// The next message's buffer without memory of former messages.
#ifndef MD_TESTS_SUPPORT_FRESH_BUFFER_H
#define MD_TESTS_SUPPORT_FRESH_BUFFER_H

#include <memory>
#include <vector>

#include "md/md_msgdata.h"
#include "md/md_reusable_container.h"

namespace MD::test {

/// For its lifetime, the shared pool's next buffer is one that has no memory yet.
class FreshNextBuffer {
 public:
  FreshNextBuffer() {
    do {
      m_used.push_back(std::make_unique<ReusableContainerWrapper<MsgData>>(true, nullptr));
    } while ((*m_used.back())->capacity() != 0);
    m_used.pop_back();
  }

 private:
  std::vector<std::unique_ptr<ReusableContainerWrapper<MsgData>>> m_used;
};

}  // namespace MD::test

#endif
