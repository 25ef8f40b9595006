/// @file
/// The library's assertions. They guard states that callers must not produce and stay active in every build.
/// Thread-safe: the handler is one process-wide atomic pointer.
#ifndef MD_ASSERT_H
#define MD_ASSERT_H

#include "md/md_api.h"

namespace MD {

/// Called with the text of a failed assertion, the source it is filed under and its line there. It may throw or not
/// return; when it returns, the operation goes on as its own description says.
using AssertionHandler = void (*)(const char* expression, const char* file, unsigned line);

/// Installs `handler` for the whole process; null restores the default, which hands expression, file and line to the
/// C runtime (a message on standard error, then abort).
/// @return the handler that was installed before, null when it was the default
MD_API AssertionHandler set_assertion_handler(AssertionHandler handler) noexcept;

}  // namespace MD

#endif
