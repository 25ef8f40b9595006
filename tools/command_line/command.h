// A command of the command line.
#ifndef MDMSG_COMMAND_H
#define MDMSG_COMMAND_H

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "base/diagnostics.h"
#include "base/end_watch.h"
#include "base/output.h"
#include "command_line/options.h"
#include "command_line/output_files.h"
#include "command_line/streams.h"
#include "transport/inputs.h"
#include "transport/message_inputs.h"

namespace MD::tool {

/// What a command runs with.
struct Session {
  const Streams& streams;
  Files& files;
  EndWatch& watch;
  Output& out;
  Reporter& reporter;
};

/// A program that is installed separately, and the package that contains it.
struct CompanionProgram {
  const char* name;
  const char* package;
};

/// A command: its part of the command line, and what it does once that has been read.
struct Command {
  CLI::App* app;
  std::shared_ptr<const CommonOptions> options;  ///< the command's own options begin with them
  std::function<void(const Session&)> run;
  bool usesDictionary = true;  ///< the one that is named, or found, is loaded before it runs
  bool isSilent = false;       ///< writes nothing before its end, so that its progress can be shown
  std::optional<CompanionProgram> program = std::nullopt;  ///< runs the command in the place of this one
};

/// The messages of a command's inputs, and what it needs besides.
class InputTask {
 public:
  InputTask(const Session& session, const CommonOptions& options, SourceOptions source, SelectionOptions selection,
            unsigned jobs = 1)
      : m_inputs(options.files, session.streams.in, !options.outputFile, session.reporter),
        m_messages(m_inputs, std::move(source), session.out, session.reporter),
        m_selection(std::move(selection)),
        m_task{m_messages, m_selection, session.out, session.reporter, jobs} {}

  const Task& task() const noexcept { return m_task; }

 private:
  Inputs m_inputs;
  MessageInputs m_messages;
  SelectionOptions m_selection;
  Task m_task;
};

}  // namespace MD::tool

#endif
