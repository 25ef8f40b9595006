/// @file
/// Where the library's diagnostics go: to standard error, or to a handler of the program's own. Thread-safe: the
/// handler is one process-wide atomic pointer.
#ifndef MD_REPORT_H
#define MD_REPORT_H

#include <cstddef>

#include "md/md_api.h"

namespace MD {

/// Called with the whole text of one diagnostic instead of writing it: `length` characters, line ends included, that
/// hold raw bytes of received messages (NUL too), and a NUL behind them. The text is valid until the handler returns.
///
/// It may be called from several threads at once. The library holds no lock meanwhile, so the handler may use messages
/// other than the one that is reported about. It must not throw.
using ReportHandler = void (*)(const char* text, std::size_t length);

/// Installs `handler` for the whole process; null restores the default, which writes each diagnostic to standard error
/// (`std::cerr`) in one piece. A call of the previous handler that another thread has begun may end later.
/// @return the handler that was installed before, null when it was the default
MD_API ReportHandler set_report_handler(ReportHandler handler) noexcept;

}  // namespace MD

#endif
