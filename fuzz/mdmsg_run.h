// The commands of mdmsg, in process and over text.
#ifndef MD_FUZZ_MDMSG_RUN_H
#define MD_FUZZ_MDMSG_RUN_H

#include <algorithm>
#include <sstream>
#include <string>

#include "base/diagnostics.h"
#include "base/output.h"
#include "commands/commands.h"
#include "fuzz_dictionary.h"
#include "transport/inputs.h"
#include "transport/message_inputs.h"

namespace MD::fuzz {

/// What a command wrote, and its exit status.
struct Run {
  std::string out;
  std::string err;
  tool::ExitStatus status;

  bool isClean() const { return status == tool::kDone; }
};

/// The streams of a run over hex lines or text.
class RunStreams {
 public:
  explicit RunStreams(const std::string& text) : m_in(text) { useDictionary(); }

  tool::Inputs& inputs() noexcept { return m_inputs; }
  tool::Output& out() noexcept { return m_output; }
  tool::Reporter& reporter() noexcept { return m_reporter; }
  tool::Task task() noexcept { return {m_messages, m_selection, m_output, m_reporter}; }

  Run result() {
    m_output.flush();
    return {m_out.str(), m_err.str(), m_reporter.status()};
  }

 private:
  static tool::SourceOptions hexLines() {
    tool::SourceOptions options;
    options.form = tool::InputForm::HexLines;
    return options;
  }

  const tool::QuietLibrary m_quiet;
  std::istringstream m_in;
  std::ostringstream m_out;
  std::ostringstream m_err;
  tool::Output m_output{m_out};
  tool::Reporter m_reporter{m_err, m_output};
  tool::Inputs m_inputs{{}, m_in, false, m_reporter};
  tool::MessageInputs m_messages{m_inputs, hexLines(), m_output, m_reporter};
  const tool::SelectionOptions m_selection;
};

inline Run decode(const std::string& text, tool::Format format) {
  RunStreams run(text);
  tool::DecodeOptions options;
  options.format = format;
  tool::decode(run.task(), options);
  return run.result();
}

inline Run encode(const std::string& text, const std::string& encoding, bool isCsv = false) {
  RunStreams run(text);
  tool::EncodeOptions options;
  options.encoding = encoding;
  options.isCsv = isCsv;
  tool::encode(run.inputs(), {}, options, run.out(), run.reporter());
  return run.result();
}

inline Run convert(const std::string& text, const std::string& encoding) {
  RunStreams run(text);
  tool::convert(run.task(), {encoding, {}});
  return run.result();
}

constexpr const char* kEncodingNames[] = {"mInt", "IterMap", "MsgT"};

/// The encoding of a line of hex digits, by its first byte.
inline std::string encodingOf(const std::string& hex) {
  const std::string code = hex.substr(0, 2);
  return code == "06" ? "mInt" : code == "01" ? "IterMap" : code == "46" ? "MsgT" : "none";
}

/// Calls `use` with each line, its line end included where it has one.
template <class Use>
void forEachLine(const std::string& text, Use use) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size() - 1) + 1;
    use(text.substr(start, end - start));
    start = end;
  }
}

}  // namespace MD::fuzz

#endif
