#include "md/md_reusable_container.h"

#include <pthread.h>

#include <cstddef>
#include <cstdint>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "cache_lines.h"
#include "message_memory.h"
#include "poison.h"

namespace MD {
namespace {

using detail::kCacheLinesBytes;
using MessageBlock = detail::MessageMemory::Block;

template <class T>
struct alignas(kCacheLinesBytes) Pooled final : T {};

template <>
struct alignas(kCacheLinesBytes) Pooled<Optimizer> final : Optimizer {
  Pooled() : Optimizer(ForPools()) {}
};

/// How a pool makes and frees its objects.
template <class T>
struct Making {
  static T* make() { return new Pooled<T>; }
  static void free(T* item) noexcept { delete static_cast<Pooled<T>*>(item); }
};

// By the global operators: a block may also be memory that a program got from them itself.
template <>
struct Making<MessageBlock> {
  static MessageBlock* make() { return static_cast<MessageBlock*>(::operator new(sizeof(MessageBlock))); }
  static void free(MessageBlock* item) noexcept { ::operator delete(item); }
};

}  // namespace

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

  struct alignas(kCacheLinesBytes) Memory {
    unsigned char bytes[sizeof(ReusableContainer<T>)];
  };
  static Memory s_memory;
};

template <class T>
typename ReusableContainer<T>::Shared::Memory ReusableContainer<T>::Shared::s_memory;

#if defined(__GNUC__) && !defined(_WIN32)
#define MD_FAST_THREAD_LOCAL thread_local __attribute__((tls_model("initial-exec")))
#else
#define MD_FAST_THREAD_LOCAL thread_local
#endif

/// The idle objects that a thread caches in front of the shared pool. What the thread returned last it is lent first,
/// as with the pool itself. Objects go to the pool and come from it in batches, under one lock; those that were idle
/// longest go first.
///
/// A thread caches up to kBaseLimit objects beside the last. The limit doubles, up to kMostLimit, when the thread asks
/// the pool for objects after it gave some away. It falls again when some of the objects were not used for a period.
template <class T>
class ReusableContainer<T>::ThreadCache {
 public:
  /// @return an idle object or a new one; null where the thread has no cache
  static T* take() {
    Stack& idle = *s_idle;
    // Not std::exchange(): threads without a cache share one empty stack, which nobody writes.
    if (T* const last = idle.last) {
      idle.last = nullptr;
      return last;
    }
    if (MD_UNLIKELY(idle.count == 0)) {
      return takeFromPool();
    }
    return idle.items[--idle.count];
  }

  /// @return false where the thread has no cache: nothing was done
  static bool keep(T* item) {
    Stack& idle = *s_idle;
    if (MD_UNLIKELY(idle.count >= idle.plainLimit)) {
      return keepBeyond(item);
    }
    if (T* const previous = std::exchange(idle.last, item)) {
      idle.items[idle.count++] = previous;
    }
    return true;
  }

  /// Returns the cached objects of the calling thread to the pool, and all objects that it returns later.
  static void end() noexcept {
    if (Idle* const idle = active()) {
      pthread_setspecific(atThreadEnd().key, nullptr);
      end(idle);
    }
    s_idle = &s_ended;
  }

 private:
  static constexpr std::uint32_t kBatch = 32;
  static constexpr std::uint32_t kBaseLimit = 63;
  static constexpr std::uint32_t kMostLimit = 1023;
  // In calls of keep() beyond kBaseLimit.
  static constexpr std::uint32_t kPeriod = 4096;

  // The last object has a place of its own: a thread with one message at a time reads and writes only that.
  struct Stack {
    T* last = nullptr;  ///< returned after all others; null after it was taken
    T** items = nullptr;
    std::uint32_t count = 0;       ///< of items
    std::uint32_t plainLimit = 0;  ///< with fewer items keep() only adds one; 0: there is no cache
  };

  struct alignas(kCacheLinesBytes) Idle : Stack {
    Idle() noexcept : Stack{nullptr, baseItems, 0, kBaseLimit} {}

    std::uint32_t limit = kBaseLimit;
    std::uint32_t batch = 1;
    std::uint32_t keptInPeriod = 0;
    std::uint32_t fewestInPeriod = kMostLimit;
    bool hasGivenAway = false;
    bool hasMissed = false;  ///< objects, after it had given some away
    std::unique_ptr<T*[]> moreItems;
    T* baseItems[kBaseLimit] = {};
  };

  // Not the destructor of a thread_local object: to register one takes memory, and without any the C library stops the
  // process. A thread that cannot be registered does without a cache.
  struct AtThreadEnd {
    AtThreadEnd() noexcept : isMade(pthread_key_create(&key, [](void* idle) { end(static_cast<Idle*>(idle)); }) == 0) {}
    pthread_key_t key{};
    bool isMade;
  };
  static const AtThreadEnd& atThreadEnd() noexcept {
    static const AtThreadEnd made;
    return made;
  }

  static Idle* active() noexcept { return s_idle->plainLimit != 0 ? static_cast<Idle*>(s_idle) : nullptr; }

  /// The calling thread's cache, which is made if need be; null when it cannot have one.
  static Idle* activate() noexcept {
    // Messages may be destroyed by a thread's other objects after its cache has ended.
    if (s_idle != &s_unused || !atThreadEnd().isMade) {
      return active();
    }
    std::unique_ptr<Idle> made(new (std::nothrow) Idle);
    if (made == nullptr || pthread_setspecific(atThreadEnd().key, made.get()) != 0) {
      return nullptr;
    }
    s_idle = made.get();
    return made.release();
  }

  // At a thread's end: its thread_local variables may be gone, so the cache comes as an argument.
  static void end(Idle* idle) noexcept {
    s_idle = &s_ended;
    Shared::instance().takeBackSome(idle->items, idle->count);
    if (idle->last != nullptr) {
      Shared::instance().takeBack(idle->last);
    }
    delete idle;
  }

  [[gnu::noinline]] static T* takeFromPool() {
    Idle* const idle = activate();
    if (idle == nullptr) {
      return nullptr;
    }
    idle->hasMissed = idle->hasGivenAway;
    idle->count = static_cast<std::uint32_t>(Shared::instance().lendSome(idle->items, idle->batch));
    // A thread with one message at a time needs one object; one that makes messages for other threads asks again.
    idle->batch = std::min(2 * idle->batch, kBatch);
    return idle->items[--idle->count];
  }

  [[gnu::noinline]] static bool keepBeyond(T* item) {
    Idle* const idle = activate();
    if (idle == nullptr) {
      return false;
    }
    if (idle->count >= kBaseLimit) {
      idle->fewestInPeriod = std::min(idle->fewestInPeriod, idle->count);
      if (++idle->keptInPeriod == kPeriod) {
        giveUnusedAway(*idle);
      }
    }
    if (T* const previous = std::exchange(idle->last, item)) {
      if (idle->count >= idle->limit && !(idle->hasMissed && widen(*idle))) {
        giveAway(*idle, kBatch);
        idle->hasGivenAway = true;
      }
      idle->items[idle->count++] = previous;
    }
    return true;
  }

  static void giveAway(Idle& idle, std::uint32_t count) {
    Shared::instance().takeBackSome(idle.items, count);
    std::copy(idle.items + count, idle.items + idle.count, idle.items);
    idle.count -= count;
  }

  static void giveUnusedAway(Idle& idle) {
    if (idle.fewestInPeriod > kBaseLimit) {
      giveAway(idle, idle.fewestInPeriod - kBaseLimit);
      idle.limit = std::min(idle.limit, idle.count + kBatch);
    }
    idle.fewestInPeriod = kMostLimit;
    idle.keptInPeriod = 0;
  }

  /// Makes room for twice as many. @return false when there is none to be had
  static bool widen(Idle& idle) noexcept {
    const std::uint32_t limit = std::min(2 * idle.limit + 1, kMostLimit);
    std::unique_ptr<T*[]> items(limit > idle.limit ? new (std::nothrow) T*[limit] : nullptr);
    if (items == nullptr) {
      return false;
    }
    std::copy_n(idle.items, idle.count, items.get());
    idle.moreItems.swap(items);
    idle.items = idle.moreItems.get();
    idle.limit = limit;
    idle.hasGivenAway = idle.hasMissed = false;
    return true;
  }

  static Stack s_unused;
  static Stack s_ended;
  static MD_FAST_THREAD_LOCAL Stack* s_idle;
};

template <class T>
typename ReusableContainer<T>::ThreadCache::Stack ReusableContainer<T>::ThreadCache::s_unused;
template <class T>
typename ReusableContainer<T>::ThreadCache::Stack ReusableContainer<T>::ThreadCache::s_ended;
template <class T>
MD_FAST_THREAD_LOCAL typename ReusableContainer<T>::ThreadCache::Stack* ReusableContainer<T>::ThreadCache::s_idle =
    &ReusableContainer<T>::ThreadCache::s_unused;

/// The thread that ends the process has no other end; its cached objects are freed with the pool.
template <class T>
struct ReusableContainer<T>::Shared::ClosesAtExit {
  explicit ClosesAtExit(ReusableContainer& pool) : m_pool(pool) {}
  ~ClosesAtExit() {
    ThreadCache::end();
    m_pool.close();
  }
  ReusableContainer& m_pool;
};

template <class T>
ReusableContainer<T>& ReusableContainer<T>::Shared::make() {
  auto* pool = new (&s_memory) ReusableContainer;
  pool->m_idle.reserve(1);
  static const ClosesAtExit closer(*pool);
  return *pool;
}

template <class T>
ReusableContainer<T>::~ReusableContainer() {
  close();
}

// Not inlined, like takeBack(): the fast path by the cache of the thread then needs no stack frame.
template <class T>
[[gnu::noinline]] T* ReusableContainer<T>::lend() {
  T* item = nullptr;
  lendSome(&item, 1);
  return item;
}

/// Lends up to `most` idle objects, the last returned as the last of them; a new one when there is none.
/// @return how many
template <class T>
std::size_t ReusableContainer<T>::lendSome(T** items, std::size_t most) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_idle.empty()) {
    const std::size_t count = std::min(most, m_idle.size());
    std::copy_n(m_idle.end() - static_cast<std::ptrdiff_t>(count), count, items);
    m_idle.resize(m_idle.size() - count);
    return count;
  }
  if (m_idle.capacity() <= m_owned) {
    m_idle.reserve(2 * m_owned + 1);
  }
  *items = Making<T>::make();
  ++m_owned;
  return 1;
}

template <class T>
[[gnu::noinline]] void ReusableContainer<T>::takeBack(T* item) {
  takeBackSome(&item, 1);
}

template <class T>
void ReusableContainer<T>::takeBackSome(T* const* items, std::size_t count) {
  std::size_t kept = 0;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isClosed) {
      // There is room for all that the pool made, but blocks of messages may come from elsewhere.
      kept = std::min(count, m_idle.capacity() - m_idle.size());
      m_idle.insert(m_idle.end(), items, items + kept);
    }
    m_owned -= std::min(m_owned, count - kept);
  }
  std::for_each(items + kept, items + count, &Making<T>::free);
}

template <class T>
void ReusableContainer<T>::close() noexcept {
  std::vector<T*> idle;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isClosed = true;
    m_owned -= std::min(m_owned, m_idle.size());
    m_idle.swap(idle);
  }
  std::for_each(idle.begin(), idle.end(), &Making<T>::free);
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
    m_item = ReusableContainer<T>::ThreadCache::take();
  }
  if (m_item == nullptr) {
    m_item = rcInstance().lend();
  }
}

template <class T>
void ReusableContainerWrapper<T>::unset() {
  T* const item = std::exchange(m_item, nullptr);
  if (item != nullptr && (m_container || !ReusableContainer<T>::ThreadCache::keep(item))) {
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

namespace detail {

// Between messages a block holds nothing: who reads a destroyed message is to be seen by the address sanitizer.
void* MessageMemory::take() {
  using Pool = ReusableContainer<Block>;
  Block* block = Pool::ThreadCache::take();
  if (block == nullptr) {
    block = Pool::Shared::instance().lend();
  }
  unpoison(block, kObjectBytes);
  return block;
}

void MessageMemory::giveBack(void* object) noexcept {
  using Pool = ReusableContainer<Block>;
  auto* const block = static_cast<Block*>(object);
  poison(block, kObjectBytes);
  if (!Pool::ThreadCache::keep(block)) {
    Pool::Shared::instance().takeBack(block);
  }
}

}  // namespace detail
}  // namespace MD
