/// @file
/// The assertions of the library. They guard preconditions and stay active in every build.
/// Thread-safe: the handler is one process-wide atomic pointer.
#ifndef MD_ASSERT_H
#define MD_ASSERT_H

#include "md/md_api.h"

namespace MD {

/// Called with the text of a failed assertion, its source file and its line. It may throw or not return; if it returns,
/// the operation continues as documented.
using AssertionHandler = void (*)(const char* expression, const char* file, unsigned line);

/// Installs `handler` for the whole process; null restores the default, which passes expression, file and line to the
/// C runtime (a message on standard error, then abort).
/// @return the handler that was installed before, null for the default
MD_API AssertionHandler set_assertion_handler(AssertionHandler handler) noexcept;

}  // namespace MD

#endif
