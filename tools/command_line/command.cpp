#include "command_line/command.h"

namespace MD::tool {

Task taskOf(const Session& session, const CommonOptions& options, const SourceOptions& source,
            const SelectionOptions& selection) {
  // Not written inside the task: g++ 12 destroys parts of a nested aggregate twice when what stands behind it throws.
  const Inputs inputs{options.files, session.streams.in};
  return {inputs, source, selection, session.out, session.reporter};
}

}  // namespace MD::tool
