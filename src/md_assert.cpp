// The library's assertions are active in every build, so the C runtime's handler must be declared in every build.
#undef NDEBUG

#include "md/md_assert.h"

#include <cassert>
#include <cstdio>
#include <cstdlib>

#include <atomic>

#include "assertion.h"

namespace MD {
namespace {

// Sequentially consistent, the default: the handler sees all writes before its installation.
std::atomic<AssertionHandler> g_handler{nullptr};

void defaultHandler(const char* expression, const char* file, unsigned line) {
#if defined(_WIN32)
  _assert(expression, file, line);
#elif defined(__GLIBC__)
  __assert_fail(expression, file, line, "md_message");
#else
  std::fprintf(stderr, "Assertion failed: %s, file %s, line %u\n", expression, file, line);
  std::abort();
#endif
}

}  // namespace

AssertionHandler set_assertion_handler(AssertionHandler handler) noexcept { return g_handler.exchange(handler); }

namespace detail {

void assertionFailed(const char* expression, const char* file, unsigned line) {
  if (AssertionHandler handler = g_handler.load()) {
    handler(expression, file, line);
  } else {
    defaultHandler(expression, file, line);
  }
}

}  // namespace detail
}  // namespace MD
