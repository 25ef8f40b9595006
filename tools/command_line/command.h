// A command as it stands on the command line.
#ifndef MDMSG_COMMAND_H
#define MDMSG_COMMAND_H

#include <functional>
#include <memory>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"
#include "command_line/options.h"
#include "command_line/output_files.h"
#include "command_line/streams.h"

namespace MD::tool {

/// What a command runs with.
struct Session {
  const Streams& streams;
  Files& files;
  Output& out;
  Reporter& reporter;
};

/// A command: its part of the command line, and what it does once that has been read.
struct Command {
  CLI::App* app;
  std::shared_ptr<const CommonOptions> options;  ///< the command's own options begin with them
  std::function<void(const Session&)> run;
  bool usesDictionary = true;  ///< the one that is named, or found, is loaded before it runs
  bool isSilent = false;       ///< writes nothing before its end, so that its progress can be shown
};

/// What a command reads and writes.
Task taskOf(const Session& session, const CommonOptions& options, const SourceOptions& source = {},
            const SelectionOptions& selection = {});

}  // namespace MD::tool

#endif
