#include "md/md_reusable_container.h"

#include <cstddef>

#include <new>
#include <utility>

#include "md/md_msgdata.h"
#include "md/md_optimizer.h"

namespace MD {

/// The pool of all messages that have none of their own. It is emptied at process exit but never destroyed: messages in
/// static objects made before the pool give their parts back after that, and these are then freed at once.
template <class T>
struct ReusableContainer<T>::Shared {
  static ReusableContainer& instance() {
    static ReusableContainer& pool = make();
    return pool;
  }

 private:
  static ReusableContainer& make() {
    struct ClosesAtExit {
      explicit ClosesAtExit(ReusableContainer& pool) : m_pool(pool) {}
      ~ClosesAtExit() { m_pool.close(); }
      ReusableContainer& m_pool;
    };
    auto* pool = new (s_memory) ReusableContainer;
    pool->m_idle.reserve(1);
    static const ClosesAtExit closer(*pool);
    return *pool;
  }

  alignas(std::max_align_t) static unsigned char s_memory[];
};

template <class T>
alignas(std::max_align_t) unsigned char ReusableContainer<T>::Shared::s_memory[sizeof(ReusableContainer<T>)];

template <class T>
ReusableContainer<T>::~ReusableContainer() {
  close();
}

template <class T>
T* ReusableContainer<T>::lend() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_idle.empty()) {
    T* item = m_idle.back();
    m_idle.pop_back();
    return item;
  }
  if (m_idle.capacity() <= m_owned) {
    m_idle.reserve(2 * m_owned + 1);
  }
  T* item = new T;
  ++m_owned;
  return item;
}

template <class T>
void ReusableContainer<T>::takeBack(T* item) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isClosed) {
      m_idle.push_back(item);
      return;
    }
    --m_owned;
  }
  delete item;
}

template <class T>
void ReusableContainer<T>::close() noexcept {
  std::vector<T*> idle;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isClosed = true;
    m_owned -= m_idle.size();
    m_idle.swap(idle);
  }
  for (T* item : idle) {
    delete item;
  }
}

template <class T>
ReusableContainerWrapper<T>::ReusableContainerWrapper(bool borrowNow, std::shared_ptr<ReusableContainer<T>> container)
    : m_container(std::move(container)) {
  if (borrowNow) {
    set();
  }
}

template <class T>
ReusableContainerWrapper<T>::~ReusableContainerWrapper() {
  unset();
}

template <class T>
ReusableContainer<T>& ReusableContainerWrapper<T>::rcInstance() {
  return m_container ? *m_container : ReusableContainer<T>::Shared::instance();
}

template <class T>
void ReusableContainerWrapper<T>::set() {
  if (m_item == nullptr) {
    m_item = rcInstance().lend();
  }
}

template <class T>
void ReusableContainerWrapper<T>::unset() {
  if (m_item != nullptr) {
    rcInstance().takeBack(m_item);
    m_item = nullptr;
  }
}

template <class T>
void ReusableContainerWrapper<T>::swap(ReusableContainerWrapper& other) noexcept {
  std::swap(m_item, other.m_item);
  m_container.swap(other.m_container);
}

template class ReusableContainer<MsgData>;
template class ReusableContainer<Optimizer>;
template class ReusableContainerWrapper<MsgData>;
template class ReusableContainerWrapper<Optimizer>;

}  // namespace MD
