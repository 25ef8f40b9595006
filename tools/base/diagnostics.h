// The diagnostics of the program: one line per problem, on standard error, with input, place and field.
#ifndef MDMSG_DIAGNOSTICS_H
#define MDMSG_DIAGNOSTICS_H

#include <cstddef>
#include <cstdint>

#include <array>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "base/output.h"
#include "base/progress.h"
#include "base/quoted_text.h"
#include "md/md_report.h"

namespace MD::tool {

/// How many reports of a kind are written per input when nothing else is said.
constexpr std::uint64_t kMostReports = 10;

enum ExitStatus { kDone = 0, kBadData = 1, kBadUsage = 2 };

/// The location of the current message in an input.
struct Place {
  enum class Kind {
    Whole,     ///< it is the whole input
    Line,      ///< line `number`
    Message,   ///< message `number`, from byte `offset` on
    Packet,    ///< packet `number` of a capture, from byte `offset` on
    Datagram,  ///< datagram `number` of those received
  };

  Kind kind = Kind::Line;
  std::uint64_t number = 0;  ///< from 1
  std::uint64_t offset = 0;
};

/// A report on a message, to be written later.
struct KeptReport {
  std::size_t outputBytes = 0;  ///< how much output is written before it
  Place place;
  ReportKind kind;
  std::string_view label;  ///< a literal
  std::string field;
  std::string text;
  std::vector<std::uint16_t> unknownIds;  ///< of fields that the dictionary does not have
};

/// What reports on unknown fields say of the dictionary.
struct DictionaryWords {
  std::string text;                                         ///< "dictionary fields.txt"
  std::function<std::string(const std::string&)> question;  ///< "; did you mean BID?" for an unknown name, or nothing
};

/// Writes the reports and keeps the exit status that follows from them. Of each kind it writes a bounded number per
/// input, and at the input's end how many there were besides.
class Reporter {
 public:
  /// @param out  written out before each report, so that both appear in order where they share a terminal
  Reporter(std::ostream& err, Output& out) : m_err(&err), m_out(out) {}
  /// Writes nothing, but keeps the reports on messages for replay(). @param out  what they are on
  Reporter(std::vector<KeptReport>& kept, Output& out) : m_kept(&kept), m_out(out) {}

  /// How many reports of a kind are written per input.
  void setMostReports(std::uint64_t most) noexcept { m_most = most; }

  void setDictionary(DictionaryWords words) { m_dictionary = std::move(words); }

  /// The input that the reports are about from here on, and the place in it.
  void setInput(std::string name);
  void setPlace(Place place) noexcept { m_place = place; }
  const Place& currentPlace() const noexcept { return m_place; }
  void setLine(std::uint64_t line) noexcept { m_place = {Place::Kind::Line, line, 0}; }
  const std::string& input() const noexcept { return m_input; }
  const Place& at() const noexcept { return m_place; }

  /// Shows how far the inputs have been read, where `progress` is not null; reports appear above it.
  void setProgress(Progress* progress) noexcept { m_progress = progress; }
  void beginInput(std::uint64_t sizeBytes) {
    if (m_progress != nullptr) {
      m_progress->begin(m_input, sizeBytes);
    }
  }
  /// So many messages more have been read, and so many bytes of the input.
  void advance(std::uint64_t readBytes, std::uint64_t messages = 1) {
    if (m_progress != nullptr) {
      m_progress->advance(readBytes, messages);
    }
  }

  /// What is shown instead of the number of messages, for the lifetime of the object.
  class ProgressStatus {
   public:
    ProgressStatus(Reporter& reporter, std::function<std::string()> status) : m_progress(reporter.m_progress) {
      if (m_progress != nullptr) {
        m_progress->setStatus(std::move(status));
      }
    }
    ~ProgressStatus() {
      if (m_progress != nullptr) {
        m_progress->setStatus({});
      }
    }
    ProgressStatus(const ProgressStatus&) = delete;
    ProgressStatus& operator=(const ProgressStatus&) = delete;

   private:
    Progress* m_progress;
  };
  /// Something of that status may have changed.
  void refreshProgress() {
    if (m_progress != nullptr) {
      m_progress->refresh();
    }
  }

  /// The input and the place in it, as the reports name them.
  std::string place() const;

  /// The current message has problems that the output contains.
  void flawed() noexcept { raise(kBadData); }
  /// The current message is skipped.
  void error(const LineError& error);
  /// The current message was written, but not reproduced exactly.
  /// @param field  empty when the note is about the whole message
  void note(ReportKind kind, std::string_view field, std::string_view text);
  /// Receivers dropped bytes of the current message.
  /// @param unknownIds  those that are not in the dictionary, each once
  void noteDropped(std::string_view text, const std::vector<std::uint16_t>& unknownIds);
  /// Reports what another reporter has kept.
  void replay(const KeptReport& report);
  /// Is called before each report, and before the input changes: brings out what belongs before. Empty for nothing.
  void setBeforeReport(std::function<void()> before) { m_beforeReport = std::move(before); }
  /// The current input as a whole is not what it should be.
  void wholeInput(std::string_view text);
  /// An entry of a dictionary is skipped or, if `isLeftOut` is false, reported for information.
  void entry(std::string_view place, std::string_view text, bool isLeftOut = true);
  /// Something to know about a place of the dictionary, which leaves the exit status as it is.
  void hint(std::string_view place, std::string_view text);
  /// What was done, which leaves the exit status as it is.
  void tell(std::string_view text) { write(std::string(text)); }
  /// An input cannot be read, or the program not be used in this way.
  /// @param advice  a line of its own, empty for none
  void unusable(std::string_view text, std::string_view advice = {});
  /// Reports how many reports were not written.
  void finish();

  ExitStatus status() const noexcept { return m_status; }
  /// From here on it is at least this.
  void raise(ExitStatus status) noexcept { m_status = status > m_status ? status : m_status; }

 private:
  /// Counts a report.
  bool isToBeWritten(ReportKind kind) noexcept { return m_counts[static_cast<std::size_t>(kind)]++ < m_most; }
  void reportLine(ReportKind kind, std::string_view label, std::string_view field, std::string_view text);
  void write(std::string_view text, std::string_view advice = {});
  void countUnknown(const std::vector<std::uint16_t>& ids);
  void bringOutBefore() {
    if (m_beforeReport) {
      m_beforeReport();
    }
  }

  std::ostream* m_err = nullptr;              ///< null where reports are kept
  std::vector<KeptReport>* m_kept = nullptr;  ///< null where they are written
  Output& m_out;
  std::function<void()> m_beforeReport;
  Progress* m_progress = nullptr;
  std::string m_input;
  Place m_place;
  std::uint64_t m_most = kMostReports;
  std::array<std::uint64_t, kReportKinds> m_counts{};  // of the reports about the input
  /// A question costs a comparison with every name of the dictionary.
  static constexpr unsigned kMostQuestions = 10;
  DictionaryWords m_dictionary;
  unsigned m_questions = 0;
  std::map<std::uint16_t, std::uint64_t> m_unknownIds;  // of the input, with the number of their messages
  ExitStatus m_status = kDone;
};

/// For its lifetime the library neither writes reports nor ends the process by an assertion: received bytes may be
/// anything, and the program reports on them itself, by line and field.
class QuietLibrary {
 public:
  QuietLibrary();
  ~QuietLibrary();
  QuietLibrary(const QuietLibrary&) = delete;
  QuietLibrary& operator=(const QuietLibrary&) = delete;

 private:
  ReportHandler m_reportHandler;
  void (*m_assertionHandler)(const char*, const char*, unsigned);
};

}  // namespace MD::tool

#endif
