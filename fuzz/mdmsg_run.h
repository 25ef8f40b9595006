// The commands of mdmsg, in process and over text.
#ifndef MD_FUZZ_MDMSG_RUN_H
#define MD_FUZZ_MDMSG_RUN_H

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>

#include "base/diagnostics.h"
#include "base/output.h"
#include "commands/commands.h"
#include "fuzz_dictionary.h"

namespace MD::fuzz {

/// What a command wrote, and its exit status.
struct Run {
  std::string out;
  std::string err;
  tool::ExitStatus status;

  bool isClean() const { return status == tool::kDone; }
};

/// Runs a command over hex lines or text.
inline Run runCommand(const std::string& text, const std::function<void(const tool::Task&)>& command) {
  useDictionary();
  const tool::QuietLibrary quiet;
  std::istringstream in(text);
  std::ostringstream out;
  std::ostringstream err;
  tool::Output output(out);
  tool::Reporter reporter(err, output);
  tool::SourceOptions lines;
  lines.form = tool::InputForm::HexLines;
  command({{{}, in}, lines, {}, output, reporter});
  output.flush();
  return {out.str(), err.str(), reporter.status()};
}

inline Run decode(const std::string& text, tool::Format format) {
  return runCommand(text, [&](const tool::Task& task) { tool::decode(task, {format, {}}); });
}

inline Run encode(const std::string& text, const std::string& encoding, bool isCsv = false) {
  return runCommand(text, [&](const tool::Task& task) { tool::encode(task, {encoding, isCsv, {}}); });
}

inline Run convert(const std::string& text, const std::string& encoding) {
  return runCommand(text, [&](const tool::Task& task) { tool::convert(task, {encoding, {}}); });
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
