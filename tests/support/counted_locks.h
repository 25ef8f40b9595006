// Counts the mutexes that a thread locks. It takes the place of the C library's functions, so it is included in one
// source of a program.
#ifndef MD_TESTS_SUPPORT_COUNTED_LOCKS_H
#define MD_TESTS_SUPPORT_COUNTED_LOCKS_H

#include <pthread.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define MD_LOCKS_OF_A_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MD_LOCKS_OF_A_SANITIZER
#endif
#if defined(__GLIBC__) && !defined(MD_LOCKS_OF_A_SANITIZER)
#define MD_LOCKS_ARE_COUNTED
#include <dlfcn.h>
#endif

namespace MD::test {

inline thread_local long t_locks = 0;

/// Locks that this thread takes while `work` runs; 0 where they are not counted.
template <class Work>
long locksOf(Work work) {
  const long before = t_locks;
  work();
  return t_locks - before;
}

#if defined(MD_LOCKS_ARE_COUNTED)

using LockFunction = int (*)(pthread_mutex_t*);

inline LockFunction nextFunction(const char* name) noexcept {
  return reinterpret_cast<LockFunction>(dlsym(RTLD_NEXT, name));
}

#endif

}  // namespace MD::test

#if defined(MD_LOCKS_ARE_COUNTED)

extern "C" {
int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static const MD::test::LockFunction lock = MD::test::nextFunction("pthread_mutex_lock");
  ++MD::test::t_locks;
  return lock(mutex);
}
int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  static const MD::test::LockFunction lock = MD::test::nextFunction("pthread_mutex_trylock");
  ++MD::test::t_locks;
  return lock(mutex);
}
}

#endif

#endif
