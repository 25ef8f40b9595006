/// @file
/// Object pools, and the handle that borrows from one. A pool may be used by any number of threads; a handle belongs
/// to one thread at a time.
#ifndef MD_REUSABLE_CONTAINER_H
#define MD_REUSABLE_CONTAINER_H

#include <cstddef>

#include <memory>
#include <mutex>
#include <vector>

#include "md/md_api.h"
#include "md/md_msgdata.h"
#include "md/md_optimizer.h"

namespace MD {

namespace detail {
class MessageMemory;
}

template <class T>
class MD_API ReusableContainerWrapper;

/// A pool of idle objects, last returned first lent. Objects come back as they are and keep their memory; they are
/// freed with the pool. Objects of different threads never share a cache line. Made for `MsgData` and `Optimizer`.
///
/// In front of the process's shared pool each thread has a cache, from which it is lent what it returned last without a
/// lock. The cache exchanges up to 32 objects at a time with the pool. It holds up to 64 objects, and more, up to
/// 1,024, as long as the thread uses them. When the thread ends they go to the pool.
template <class T>
class MD_API ReusableContainer {
 public:
  /// No object yet.
  ReusableContainer() = default;
  ~ReusableContainer();
  ReusableContainer(const ReusableContainer&) = delete;
  ReusableContainer& operator=(const ReusableContainer&) = delete;

 private:
  friend class ReusableContainerWrapper<T>;
  friend class detail::MessageMemory;
  struct MD_LOCAL Shared;
  class MD_LOCAL ThreadCache;

  T* lend();
  std::size_t lendSome(T** items, std::size_t most);
  void takeBack(T* item);
  void takeBackSome(T* const* items, std::size_t count);
  void close() noexcept;

  std::mutex m_mutex;
  std::vector<T*> m_idle;
  std::size_t m_owned = 0;  // lent and idle ones; m_idle always has room for all, so that giving back cannot fail
  bool m_isClosed = false;
};

/// Borrows one object from a pool and gives it back at the end.
template <class T>
class MD_API ReusableContainerWrapper {
 public:
  /// @param borrowNow  whether to borrow at once
  /// @param container  the pool; empty for the process's shared pool of `T`
  /// @throws std::bad_alloc, std::system_error when the pool's mutex fails
  ReusableContainerWrapper(bool borrowNow, std::shared_ptr<ReusableContainer<T>> container);
  ~ReusableContainerWrapper();
  ReusableContainerWrapper(const ReusableContainerWrapper&) = delete;
  ReusableContainerWrapper& operator=(const ReusableContainerWrapper&) = delete;

  /// Borrows an object, unless there is one already.
  void set();
  /// Gives the object back as it is, if there is one.
  void unset();
  /// Exchanges object and pool with `other`: every object goes back to the pool it came from.
  void swap(ReusableContainerWrapper& other) noexcept;

  /// The borrowed object, or null. Constness is the handle's, not the object's.
  T* get() const noexcept { return m_item; }
  /// @{
  /// The borrowed object; there must be one.
  T* operator->() const noexcept { return m_item; }
  T& operator*() const noexcept { return *m_item; }
  /// @}

 private:
  ReusableContainer<T>& rcInstance();

  T* m_item = nullptr;
  std::shared_ptr<ReusableContainer<T>> m_container;
};

// Both are instantiated in the library for `MsgData` and `Optimizer`. Not declared so here: programs would then look
// for the inline members in the library, and a DLL does not export those.

}  // namespace MD

#endif
