/// @file
/// The destination of the diagnostics of the library: standard error, or a handler of the program. Thread-safe: the
/// handler is one process-wide atomic pointer.
#ifndef MD_REPORT_H
#define MD_REPORT_H

#include <cstddef>

#include "md/md_api.h"

namespace MD {

/// Called with the complete text of one diagnostic, which is then not written to standard error: `length` characters,
/// including line ends, followed by a NUL. The text may contain raw bytes of received messages, including NUL. It is
/// valid until the handler returns.
///
/// The handler may be called from several threads at once. The library holds no lock during the call, so the handler
/// may use messages other than the one that the diagnostic concerns. It must not throw.
using ReportHandler = void (*)(const char* text, std::size_t length);

/// Installs `handler` for the whole process; null restores the default, which writes each diagnostic to standard error
/// (`std::cerr`) with a single write. Calls of the previous handler in other threads may end later.
/// @return the handler that was installed before, null for the default
MD_API ReportHandler set_report_handler(ReportHandler handler) noexcept;

}  // namespace MD

#endif
