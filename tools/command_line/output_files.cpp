#include "command_line/output_files.h"

#include <algorithm>
#include <utility>

#include "base/errors.h"
#include "base/platform.h"
#include "base/quoted_text.h"

namespace MD::tool {
namespace {

/// @throws UsageError when the file is also read
void refuseInputs(const OutputFile& file, const CommonOptions& options) {
  const std::string& path = file.path();
  const auto isRead = [&](const std::string& input) { return input == "-" ? isStandardInput(path) : file.isAt(input); };
  if (options.files.empty() ? isStandardInput(path) : std::any_of(options.files.begin(), options.files.end(), isRead)) {
    throw UsageError(pathText(path) + " is an input, too");
  }
  if (options.dictionary && file.isAt(*options.dictionary)) {
    throw UsageError(pathText(path) + " is the dictionary, too");
  }
}

}  // namespace

void Files::open(OutputFile& file, const std::string& path, const CommonOptions& options) {
  file.open(path, options.isForced);
  refuseInputs(file, options);
}

void Files::setBeforeLeaving(std::function<void()> write) {
  const std::lock_guard lock(m_mutex);
  m_beforeLeaving = std::move(write);
}

std::string Files::leaveUnfinished() {
  {
    const std::lock_guard lock(m_mutex);
    if (m_beforeLeaving) {
      m_beforeLeaving();
    }
  }
  std::string text;
  for (OutputFile* const file : {&output, &svg, &html}) {
    file->removeIfEmpty();
    if (file->isPartial()) {
      text += (text.empty() ? "" : "; ") + pathText(file->path()) + " holds only a part of the output";
    }
  }
  if (isSplitting) {
    text += std::string(text.empty() ? "" : "; ") + "the files of --split-by hold only a part of the output";
  }
  return text;
}

}  // namespace MD::tool
