#include "message_printer.h"

#include <algorithm>
#include <iomanip>
#include <ios>
#include <locale>
#include <ostream>
#include <stdexcept>
#include <streambuf>
#include <utility>
#include <vector>

#include "md/md_frac_double.h"
#include "report.h"

namespace MD {
namespace {

constexpr std::string_view kWhole = "_WHOLE";
constexpr std::string_view kNum = "_NUM";
constexpr std::string_view kDenom = "_DENOM";

bool endsWith(std::string_view name, std::string_view suffix) noexcept {
  return name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
}

std::string withSuffix(std::string_view stem, std::string_view suffix) { return std::string(stem).append(suffix); }

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

/// Takes so many characters and refuses those behind.
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
  if (m_mode == kPriceMode && isNamed && (printPrice(row->name, field.value) || isShownInPrice(row->name, field.id))) {
    return;
  }
  if (isNamed) {
    printLabel(row->name);
  } else {
    m_out << std::setw(22) << field.id << " = ";
  }
  m_out << field.value << '\n';
}

void MessagePrinter::printLabel(std::string_view label) { m_out << std::setw(22) << label << " = "; }

/// Prints the price of a field that holds its whole part. @return false, with nothing printed, for any other field
bool MessagePrinter::printPrice(std::string_view name, const MD_Variant& value) {
  if (!endsWith(name, kWhole) || value.type() != DATATYPES::INT) {
    return false;
  }
  const std::string_view stem = name.substr(0, name.size() - kWhole.size());
  std::int32_t num = 0;
  std::int32_t denom = 100;
  readInt(withSuffix(stem, kNum), num);
  readInt(withSuffix(stem, kDenom), denom);
  const double price = denom > 0 ? double{1} * num / denom + value.get<std::int32_t>() : 0.0;
  printLabel(stem);
  m_out << frac_double_to_string(price) << '\n';
  return true;
}

/// Whether the field is the numerator or denominator of a price that this message prints.
bool MessagePrinter::isShownInPrice(std::string_view name, std::uint16_t id) {
  for (const std::string_view suffix : {kNum, kDenom}) {
    if (endsWith(name, suffix)) {
      const MD_FieldMap& map = m_message.fieldMap();
      // Of two fields of the same name the price shows the one that the name leads to.
      if (map.packed(id).type != DATATYPES::INT || map.nameToId(std::string(name)) != id) {
        return false;
      }
      if (!m_printedStems) {
        m_printedStems = printedStems();
      }
      return m_printedStems->count(name.substr(0, name.size() - suffix.size())) != 0;
    }
  }
  return false;
}

/// The stems of the prices that this message prints. Several rows of the dictionary may have a whole part's name.
std::set<std::string_view> MessagePrinter::printedStems() const {
  const MD_FieldMap& map = m_message.fieldMap();
  std::vector<std::uint16_t> ids;
  m_message.getFieldIdsImpl(ids);
  std::set<std::string_view> stems;
  for (const std::uint16_t id : ids) {
    if (id == MD_Message::const_iterator::kEnd) {
      break;
    }
    std::int32_t ignored = 0;
    const auto row = map.findById(id);
    if (row != map.end() && row->type == DATATYPES::INT && endsWith(row->name, kWhole) && m_message.get(id, ignored)) {
      stems.insert(std::string_view(row->name).substr(0, row->name.size() - kWhole.size()));
    }
  }
  return stems;
}

/// Reads an `INT` field by name. @return false, `out` unchanged, when dictionary or message do not have it
bool MessagePrinter::readInt(const std::string& name, std::int32_t& out) const {
  const MD_FieldMap& map = m_message.fieldMap();
  try {
    return map.nameToType(name) == DATATYPES::INT && m_message.get(map.nameToId(name), out);
  } catch (const std::domain_error&) {
    return false;
  }
}

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
      out.clear();  // the limit is reached, and the rest is left out
    }
    return "Remainder of message after stripping fields:\n  " + printed.text() + '\n';
  });
}

}  // namespace detail
}  // namespace MD
