#include "md/md_reusable_container.h"

#include <pthread.h>

#include <cstddef>

#include <new>
#include <utility>

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
  struct ClosesAtExit;
  static ReusableContainer& make();

  alignas(std::max_align_t) static unsigned char s_memory[];
};

template <class T>
alignas(std::max_align_t) unsigned char ReusableContainer<T>::Shared::s_memory[sizeof(ReusableContainer<T>)];

#if defined(__GNUC__) && !defined(_WIN32)
#define MD_FAST_THREAD_LOCAL thread_local __attribute__((tls_model("initial-exec")))
#else
#define MD_FAST_THREAD_LOCAL thread_local
#endif

/// One idle object of the shared pool that a thread keeps at hand, so that making and destroying messages one after
/// another takes no lock. What a thread returned last is what it is lent first, as with the pool itself.
template <class T>
class ReusableContainer<T>::ThreadSpare {
 public:
  /// @return the spare, or null
  static T* take() noexcept { return std::exchange(s_slot.item, nullptr); }

  /// Keeps `item`.
  /// @return what has to go to the pool instead, or null
  static T* keep(T* item) noexcept {
    if (s_slot.state != State::Active && !activate()) {
      return item;
    }
    return std::exchange(s_slot.item, item);
  }

  /// Hands the calling thread's spare on to the pool, and all that it returns from now on.
  static void end() noexcept {
    s_slot.state = State::Ended;
    if (T* item = take()) {
      Shared::instance().takeBack(item);
    }
  }

 private:
  // Messages may be destroyed by a thread's other objects after its spare has been handed on.
  enum class State : unsigned char { Unused, Active, Ended };
  struct Slot {
    T* item;
    State state;
  };

  // Not the destructor of a thread_local object: to register one takes memory, and without any the C library stops the
  // process. A thread that cannot be registered does without a spare.
  static bool activate() noexcept {
    struct AtThreadEnd {
      AtThreadEnd() noexcept : isMade(pthread_key_create(&key, [](void*) { end(); }) == 0) {}
      pthread_key_t key{};
      bool isMade;
    };
    static const AtThreadEnd atThreadEnd;
    if (s_slot.state == State::Ended || !atThreadEnd.isMade || pthread_setspecific(atThreadEnd.key, &s_slot) != 0) {
      return false;
    }
    s_slot.state = State::Active;
    return true;
  }

  static MD_FAST_THREAD_LOCAL Slot s_slot;
};

template <class T>
MD_FAST_THREAD_LOCAL typename ReusableContainer<T>::ThreadSpare::Slot ReusableContainer<T>::ThreadSpare::s_slot{
    nullptr, ReusableContainer<T>::ThreadSpare::State::Unused};

/// The thread that ends the process ends no other way; its spare is freed with the pool.
template <class T>
struct ReusableContainer<T>::Shared::ClosesAtExit {
  explicit ClosesAtExit(ReusableContainer& pool) : m_pool(pool) {}
  ~ClosesAtExit() {
    ThreadSpare::end();
    m_pool.close();
  }
  ReusableContainer& m_pool;
};

template <class T>
ReusableContainer<T>& ReusableContainer<T>::Shared::make() {
  auto* pool = new (s_memory) ReusableContainer;
  pool->m_idle.reserve(1);
  static const ClosesAtExit closer(*pool);
  return *pool;
}

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
  if (m_item != nullptr) {
    return;
  }
  if (!m_container) {
    m_item = ReusableContainer<T>::ThreadSpare::take();
  }
  if (m_item == nullptr) {
    m_item = rcInstance().lend();
  }
}

template <class T>
void ReusableContainerWrapper<T>::unset() {
  T* item = std::exchange(m_item, nullptr);
  if (item != nullptr && !m_container) {
    item = ReusableContainer<T>::ThreadSpare::keep(item);
  }
  if (item != nullptr) {
    rcInstance().takeBack(item);
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
