#include "message_printer.h"

#include <iomanip>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "md/md_frac_double.h"
#include "report.h"
#include "stream_state.h"

namespace MD {
namespace {

constexpr std::string_view kWhole = "_WHOLE";
constexpr std::string_view kNum = "_NUM";
constexpr std::string_view kDenom = "_DENOM";

bool endsWith(std::string_view name, std::string_view suffix) noexcept {
  return name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
}

std::string withSuffix(std::string_view stem, std::string_view suffix) { return std::string(stem).append(suffix); }

}  // namespace

void MessagePrinter::print(MD_Message::const_iterator field) {
  const detail::StreamState state(m_out);
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
  const bool isNamed = m_names && row != map.end();
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
bool MessagePrinter::isShownInPrice(std::string_view name, std::uint16_t id) const {
  for (const std::string_view suffix : {kNum, kDenom}) {
    if (endsWith(name, suffix)) {
      std::int32_t ignored = 0;
      const std::string_view stem = name.substr(0, name.size() - suffix.size());
      const MD_FieldMap& map = m_message.fieldMap();
      // Of two fields of the same name the price shows the one that the name leads to.
      return map.packed(id).type == DATATYPES::INT && map.nameToId(std::string(name)) == id &&
             readInt(withSuffix(stem, kWhole), ignored);
    }
  }
  return false;
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

void reportRemainder(const MD_Message& message) noexcept {
  report([&message] {
    std::ostringstream text;
    text << "Remainder of message after stripping fields:\n  ";
    MessagePrinter(text, message, MessagePrinter::kPlainMode, true).print(MessagePrinter::tolerantBegin(message));
    text << '\n';
    return text.str();
  });
}

}  // namespace detail
}  // namespace MD
