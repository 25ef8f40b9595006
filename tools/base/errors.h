// What keeps the program from going on, with a message, an input or at all.
#ifndef MDMSG_ERRORS_H
#define MDMSG_ERRORS_H

#include <stdexcept>
#include <string>

namespace MD::tool {

/// Ends the program: the command line, or a file that it names, cannot be used.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Why one message of an input is left out.
class LineError : public std::runtime_error {
 public:
  explicit LineError(const std::string& reason, std::string field = {})
      : std::runtime_error(reason), m_field(std::move(field)) {}

  /// The field it is about, empty when it is about the whole message.
  const std::string& field() const noexcept { return m_field; }

 private:
  std::string m_field;
};

/// Why an input cannot be read on; what came before it stands.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace MD::tool

#endif
