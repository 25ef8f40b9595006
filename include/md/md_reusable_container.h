/// @file
/// Object pools, and the handle that takes an object from one. A pool may be used by any number of threads; a handle
/// belongs to one thread at a time.
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

/// A pool of idle objects, last in, first out. Objects are returned unchanged and keep their memory; they are freed
/// with the pool. Objects of different threads never share a cache line. For `MsgData` and `Optimizer`.
///
/// Each thread has a cache in front of the shared pool of the process, from which it takes the object that it returned
/// last without a lock. The cache exchanges up to 32 objects at a time with the pool. It holds up to 64 objects, and up
/// to 1,024 while the thread uses them. When the thread ends, they are returned to the pool.
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
  std::size_t m_owned = 0;  // in use and idle; the capacity of m_idle covers all, so a return cannot fail
  bool m_isClosed = false;
};

/// Takes one object from a pool and returns it in the destructor.
template <class T>
class MD_API ReusableContainerWrapper {
 public:
  /// @param borrowNow  whether to take an object immediately
  /// @param container  the pool; empty for the shared pool of `T`
  /// @throws std::bad_alloc, std::system_error if the mutex of the pool fails
  ReusableContainerWrapper(bool borrowNow, std::shared_ptr<ReusableContainer<T>> container);
  ~ReusableContainerWrapper();
  ReusableContainerWrapper(const ReusableContainerWrapper&) = delete;
  ReusableContainerWrapper& operator=(const ReusableContainerWrapper&) = delete;

  /// Takes an object, unless there is already one.
  void set();
  /// Returns the object unchanged, if there is one.
  void unset();
  /// Exchanges object and pool with `other`: every object is returned to the pool it came from.
  void swap(ReusableContainerWrapper& other) noexcept;

  /// The object, or null. Constness applies to the handle, not to the object.
  T* get() const noexcept { return m_item; }
  /// @{
  /// The object; there must be one.
  T* operator->() const noexcept { return m_item; }
  T& operator*() const noexcept { return *m_item; }
  /// @}

 private:
  ReusableContainer<T>& rcInstance();

  T* m_item = nullptr;
  std::shared_ptr<ReusableContainer<T>> m_container;
};

// Both are instantiated in the library for `MsgData` and `Optimizer`. This is not declared here: programs would then
// look for the inline members in the library, and a DLL does not export those.

}  // namespace MD

#endif
