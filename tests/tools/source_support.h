// Messages read from bytes in memory.
#ifndef MD_TESTS_TOOLS_SOURCE_SUPPORT_H
#define MD_TESTS_TOOLS_SOURCE_SUPPORT_H

#include <sstream>
#include <string>

#include "base/hex.h"
#include "tools/tool_support.h"
#include "transport/input_buffer.h"
#include "transport/open_messages.h"

namespace MD::test {

/// The messages of an input as hex, one per line, followed by the diagnostics.
inline std::string messagesOf(const std::string& bytes, const tool::SourceOptions& options) {
  using namespace tool;
  Reports reports;
  reports.reporter.setInput("f");
  std::stringbuf source(bytes);
  InputBuffer in(source);
  std::string text;
  InputMessage message;
  try {
    const auto messages = openMessages(in, options, reports.out, reports.reporter);
    for (bool isThere = true; isThere;) {
      try {
        isThere = messages->next(message);
        if (isThere) {
          appendHex(message.data, message.sizeBytes, text);
          text += '\n';
        }
      } catch (const LineError& error) {
        reports.reporter.error(error);
      }
    }
    messages->reportWhole();
  } catch (const InputError& error) {
    reports.reporter.wholeInput(error.what());
  } catch (const UsageError& error) {
    reports.reporter.unusable(error.what());
  }
  return text + reports.text();
}

inline tool::SourceOptions formed(tool::InputForm form, tool::Framing framing = {}) {
  tool::SourceOptions options;
  options.form = form;
  options.framing = framing;
  return options;
}

}  // namespace MD::test

#endif
