#include "message_printer.h"

#include <iomanip>
#include <ostream>
#include <sstream>

#include "report.h"
#include "stream_state.h"

namespace MD {

void MessagePrinter::print(std::ostream& out, const MD_Message& message, bool names) {
  printFields(out, message.begin(), message, names);
}

void MessagePrinter::dump(std::ostream& out, const MD_Message& message) {
  std::vector<std::uint16_t> ids;
  message.getFieldIdsImpl(ids);
  printFields(out, {message, std::move(ids), MD_Message::Unreadable::ReadsAsEmpty}, message, true);
}

void MessagePrinter::printFields(std::ostream& out, MD_Message::const_iterator field, const MD_Message& message,
                                 bool names) {
  const detail::StreamState state(out);
  const MD_FieldMap& map = message.fieldMap();
  for (const auto end = message.end(); field != end; ++field) {
    out << std::left << std::setfill(' ') << std::setw(22);
    const auto row = map.findById(field.id());
    if (names && row != map.end()) {
      out << row->name;
    } else {
      out << field.id();
    }
    out << " = " << field.value() << '\n';
  }
}

namespace detail {

void reportRemainder(const MD_Message& message) {
  std::ostringstream text;
  text << "Remainder of message after stripping fields:\n  ";
  MessagePrinter::dump(text, message);
  text << '\n';
  report(text.str());
}

}  // namespace detail
}  // namespace MD
