// The print-out of a message, behind the stream operators and the dump of a stripped message.
#ifndef MD_SRC_MESSAGE_PRINTER_H
#define MD_SRC_MESSAGE_PRINTER_H

#include <iosfwd>

#include "md/md_message.h"

namespace MD {

class MessagePrinter {
 public:
  /// Prints one line a field.
  static void print(std::ostream& out, const MD_Message& message, bool names);

  /// The same for a message of received bytes: a field whose value cannot be read prints as an empty variant.
  static void dump(std::ostream& out, const MD_Message& message);

 private:
  static void printFields(std::ostream& out, MD_Message::const_iterator field, const MD_Message& message, bool names);
};

namespace detail {

/// Reports what is left of a message after fields were stripped.
void reportRemainder(const MD_Message& message);

}  // namespace detail
}  // namespace MD

#endif
