// The files that a command writes.
#ifndef MDMSG_OUTPUT_FILES_H
#define MDMSG_OUTPUT_FILES_H

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

#include "base/output_file.h"
#include "command_line/options.h"

namespace MD::tool {

/// What is written besides standard output.
struct Files {
  OutputFile output;
  OutputFile svg;
  OutputFile html;
  std::atomic<bool> isSplitting{false};  ///< further files are being written, one per value of a field

  /// Opens a file to write, which must not exist, or not be an input, as the options have it.
  /// @throws UsageError
  static void open(OutputFile& file, const std::string& path, const CommonOptions& options);

  /// Sets what leaveUnfinished() calls first, which writes what has been collected; empty for nothing. Waits for a call
  /// that goes on.
  void setBeforeLeaving(std::function<void()> write);

  /// After a run that did not come to its end: removes files that were made and got nothing, which would be in the way
  /// of the next try. @return what is to be said of the others, empty for nothing
  std::string leaveUnfinished();

 private:
  std::mutex m_mutex;
  std::function<void()> m_beforeLeaving;  // under the mutex
};

}  // namespace MD::tool

#endif
