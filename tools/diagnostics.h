// What the program tells its user: one line a finding, on standard error, with input, line number and field.
#ifndef MDMSG_DIAGNOSTICS_H
#define MDMSG_DIAGNOSTICS_H

#include <cstdint>

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>

#include "output.h"

namespace MD::tool {

enum ExitStatus { kDone = 0, kBadData = 1, kBadUsage = 2 };

/// Ends the program: the command line, or a file that it names, cannot be used.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Why one line of input is left out.
class LineError : public std::runtime_error {
 public:
  explicit LineError(const std::string& reason, std::string field = {})
      : std::runtime_error(reason), m_field(std::move(field)) {}

  /// The field it is about, empty when it is about the whole line.
  const std::string& field() const noexcept { return m_field; }

 private:
  std::string m_field;
};

/// `text` for a report: cut to a readable length, control characters and broken characters as \xNN.
std::string printable(std::string_view text);
/// The same in double quotes.
std::string inQuotes(std::string_view text);

/// Writes the reports and keeps the exit status that follows from them.
class Reporter {
 public:
  /// @param out  written out before each report, so that both appear in order where they share a terminal
  Reporter(std::ostream& err, Output& out) : m_err(err), m_out(out) {}

  /// The input that the reports are about from here on, and the line in it.
  void setInput(std::string name) { m_input = std::move(name); }
  void setLine(std::uint64_t line) noexcept { m_line = line; }

  /// The current line is left out.
  void error(const LineError& error);
  /// The current line went out, not all of it as it came.
  /// @param field  empty when the note is about the whole line
  void note(std::string_view field, std::string_view text);
  /// Something to know about the dictionary, which leaves the exit status as it is.
  void hint(std::string_view file, std::uint64_t line, std::string_view text);
  /// An input cannot be read, or the program not be used in this way.
  void unusable(std::string_view text);

  ExitStatus status() const noexcept { return m_status; }

 private:
  void reportLine(std::string_view kind, std::string_view field, std::string_view text);
  void write(std::string text);
  void raise(ExitStatus status) noexcept { m_status = status > m_status ? status : m_status; }

  std::ostream& m_err;
  Output& m_out;
  std::string m_input;
  std::uint64_t m_line = 0;
  ExitStatus m_status = kDone;
};

/// For its lifetime the library neither writes to std::cerr nor ends the process by an assertion: received bytes may be
/// anything, and the program reports on them itself, by line and field.
class QuietLibrary {
 public:
  QuietLibrary();
  ~QuietLibrary();
  QuietLibrary(const QuietLibrary&) = delete;
  QuietLibrary& operator=(const QuietLibrary&) = delete;

 private:
  std::streambuf* m_cerr;
  void (*m_assertionHandler)(const char*, const char*, unsigned);
};

}  // namespace MD::tool

#endif
