// What keeps the program from going on, with a message, an input or at all.
#ifndef MDMSG_ERRORS_H
#define MDMSG_ERRORS_H

#include <cstddef>
#include <cstdint>

#include <stdexcept>
#include <string>
#include <utility>

namespace MD::tool {

/// Which reports are alike. Hostile input must not fill a log: of each kind an input has only some.
enum class ReportKind {
  Malformed,
  UnknownEncoding,
  TooLong,
  OutOfMemory,
  NotHeld,     ///< the output cannot hold the message
  Unknown,     ///< a field that the dictionary does not have, by name
  Dropped,     ///< bytes that receivers dropped
  Repeated,    ///< a field that is there several times
  Unreadable,  ///< a value that cannot be read
  OtherBytes,  ///< a message that is not written as it came
  Dictionary,  ///< a part of a dictionary
};
constexpr std::size_t kReportKinds = 11;

/// The longest message, and line with one, that is read when nothing else is said: 64 MiB.
constexpr std::uint32_t kLongestMessage = std::uint32_t{1} << 26;

/// Ends the program: the command line, or a file that it names, cannot be used.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Why one message of an input is skipped.
class LineError : public std::runtime_error {
 public:
  explicit LineError(const std::string& reason, std::string field = {}, ReportKind kind = ReportKind::Malformed)
      : std::runtime_error(reason), m_field(std::move(field)), m_kind(kind) {}
  LineError(ReportKind kind, const std::string& reason) : LineError(reason, {}, kind) {}

  /// The field it is about, empty when it is about the whole message.
  const std::string& field() const noexcept { return m_field; }
  ReportKind kind() const noexcept { return m_kind; }

 private:
  std::string m_field;
  ReportKind m_kind;
};

/// @param what  "the line" or "the message"
inline LineError tooLongToRead(const char* what, std::uint64_t longestBytes) {
  return {ReportKind::TooLong,
          std::string(what) + " is longer than " + std::to_string(longestBytes) + " bytes (--max-message)"};
}
inline LineError outOfMemory() { return {ReportKind::OutOfMemory, "there is not enough memory for it"}; }

/// Why an input cannot be read on; what came before it remains valid.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace MD::tool

#endif
