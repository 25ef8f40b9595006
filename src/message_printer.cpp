#include "message_printer.h"

#include <algorithm>
#include <iomanip>
#include <ios>
#include <locale>
#include <ostream>
#include <streambuf>
#include <utility>
#include <vector>

#include "report.h"

namespace MD {
namespace {

/// Gives a stream back with the flags and fill it came with, and the width 0.
class StreamState {
 public:
  explicit StreamState(std::ostream& stream) : m_stream(stream), m_flags(stream.flags()), m_fill(stream.fill()) {
    m_stream.width(0);
  }
  ~StreamState() {
    m_stream.flags(m_flags);
    m_stream.fill(m_fill);
    m_stream.width(0);
  }
  StreamState(const StreamState&) = delete;
  StreamState& operator=(const StreamState&) = delete;

 private:
  std::ostream& m_stream;
  std::ios_base::fmtflags m_flags;
  char m_fill;
};

/// Accepts a limited number of characters and refuses later ones.
class LimitedText : public std::streambuf {
 public:
  explicit LimitedText(std::size_t limit) : m_limit(limit) {}

  const std::string& text() const noexcept { return m_text; }

 private:
  int_type overflow(int_type character) override {
    const char single = traits_type::to_char_type(character);
    return xsputn(&single, 1) == 1 ? character : traits_type::eof();
  }

  std::streamsize xsputn(const char* characters, std::streamsize count) override {
    const std::size_t taken = std::min(static_cast<std::size_t>(count), m_limit - m_text.size());
    m_text.append(characters, taken);
    return static_cast<std::streamsize>(taken);
  }

  std::size_t m_limit;
  std::string m_text;
};

}  // namespace

void MessagePrinter::print(MD_Message::const_iterator field) {
  const StreamState state(m_out);
  m_out << std::left << std::setfill(' ');
  for (const auto end = m_message.end(); field != end; ++field) {
    printLine(*field);
  }
}

MD_Message::const_iterator MessagePrinter::tolerantBegin(const MD_Message& message) {
  std::vector<std::uint16_t> ids;
  message.getFieldIdsImpl(ids);
  return {message, std::move(ids), MD_Message::Unreadable::ReadsAsEmpty};
}

void MessagePrinter::printLine(const MD_Message::const_iterator::Field& field) {
  const MD_FieldMap& map = m_message.fieldMap();
  const auto row = map.findById(field.id);
  const bool isNamed = row != map.end();
  if (m_mode == kPriceMode && isNamed) {
    if (const auto price = m_prices.price(row->name, field.value)) {
      printLabel(price->stem);
      m_out << price->value << '\n';
      return;
    }
    if (m_prices.isShownInPrice(row->name, field.id)) {
      return;
    }
  }
  if (isNamed) {
    printLabel(row->name);
  } else {
    m_out << std::setw(22) << field.id << " = ";
  }
  m_out << field.value << '\n';
}

void MessagePrinter::printLabel(std::string_view label) { m_out << std::setw(22) << label << " = "; }

namespace detail {

// A field that received bytes repeat prints its value each time: without a limit the report would grow with the square
// of their number.
void reportRemainder(const MD_Message& message) noexcept {
  constexpr std::size_t kAlways = 65536;
  constexpr std::size_t kForEachByte = 64;
  report([&message] {
    LimitedText printed(kAlways + kForEachByte * message.getSizeImpl());
    std::ostream out(&printed);
    out.imbue(std::locale::classic());
    out.exceptions(std::ios_base::badbit);
    try {
      MessagePrinter(out, message, MessagePrinter::kPlainMode).print(MessagePrinter::tolerantBegin(message));
    } catch (const std::ios_base::failure&) {
      out.clear();  // the limit is reached, and the rest is skipped
    }
    return "Remainder of message after stripping fields:\n  " + printed.text() + '\n';
  });
}

}  // namespace detail
}  // namespace MD
