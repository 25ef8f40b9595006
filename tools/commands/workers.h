// The messages of a command, worked on by several threads in blocks. Output, reports and exit status are those of one.
#ifndef MDMSG_WORKERS_H
#define MDMSG_WORKERS_H

#include <functional>
#include <memory>
#include <string_view>

#include "commands/commands.h"

namespace MD::tool {

/// What one thread does with messages. It is made, used and destroyed with a task of its own.
class Worker {
 public:
  virtual ~Worker() = default;

  /// Writes what the output begins with. Called once, of one worker.
  virtual void begin() {}

  /// Works on the messages of the task's source until there is none.
  /// @return what is to be done when the output before it has been written, in that order and on one thread; may be
  ///         empty
  virtual std::function<void()> run() = 0;

  /// Called at the end of each worker, on one thread.
  virtual void end() {}
};

using MakeWorker = std::function<std::unique_ptr<Worker>(const Task&)>;

/// Works on all messages of a task with as many workers as it has jobs; with one, on this thread and as they come.
/// @param separator  goes between the outputs of two blocks
void runWorkers(const Task& task, const MakeWorker& makeWorker, std::string_view separator = {});

}  // namespace MD::tool

#endif
