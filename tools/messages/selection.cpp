#include "messages/selection.h"

#include <algorithm>
#include <functional>

#include "base/diagnostics.h"
#include "text/hex_reader.h"
#include "text/time_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// What a cell in double quotes holds, where two of them stand for one; without quotes the text as it is.
std::string withoutQuotes(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') {
    return std::string(text);
  }
  text = text.substr(1, text.size() - 2);
  std::string value;
  for (std::size_t i = 0; i != text.size(); ++i) {
    value += text[i];
    if (text.substr(i, 2) == "\"\"") {
      ++i;
    }
  }
  return value;
}

/// Orders as the date and the time do; the offset plays no part.
std::uint64_t sortKey(MD_DateTime value) {
  return static_cast<std::uint64_t>(value.date()) << 32 | static_cast<std::uint32_t>(value.time());
}

}  // namespace

Condition::Condition(std::string_view text, const FieldNames& names) {
  constexpr struct {
    std::string_view text;
    Operator value;
  } kOperators[] = {{"!=", Operator::NotEqual}, {"<=", Operator::LessOrEqual}, {">=", Operator::GreaterOrEqual},
                    {"==", Operator::Equal},    {"=", Operator::Equal},        {"<", Operator::Less},
                    {">", Operator::Greater},   {"~", Operator::Contains}};
  const std::string_view whole = trimmed(text);
  const std::size_t nameEnd = std::min(whole.find_first_of(" \t=!<>~"), whole.size());
  std::string_view rest = trimmed(whole.substr(nameEnd));
  const auto* const found = std::find_if(std::begin(kOperators), std::end(kOperators),
                                         [&](const auto& row) { return rest.substr(0, row.text.size()) == row.text; });
  if (nameEnd == 0 || found == std::end(kOperators)) {
    throw UsageError("--where " + inQuotes(text) + " is not a field, one of = != < <= > >= ~, and a value");
  }
  m_operator = found->value;
  rest = rest.substr(found->text.size());
  if (!rest.empty() && std::string_view("=!<>~").find(rest.front()) != std::string_view::npos) {
    throw UsageError("--where " + inQuotes(text) + ": " + inQuotes(std::string(found->text) + rest.front()) +
                     " is none of = != < <= > >= ~; put a space before a value that begins with " +
                     inQuotes(rest.substr(0, 1)));
  }
  rest = trimmed(rest);
  try {
    m_field = names.find(std::string(whole.substr(0, nameEnd)));
    parseValue(withoutQuotes(rest));
  } catch (const LineError& error) {
    throw UsageError("--where " + inQuotes(text) + ": " +
                     (error.field().empty() ? std::string() : "field " + printable(error.field()) + ": ") +
                     error.what());
  }
}

void Condition::parseValue(const std::string& text) {
  if (m_operator == Operator::Contains && m_field.type != DATATYPES::STRING) {
    throw LineError(std::string("~ requires a STRING, not ") + typeName(m_field.type));
  }
  switch (m_field.type) {
    case DATATYPES::CHAR:
      if (text.size() != 1) {
        throw LineError(inQuotes(text) + " is " + std::to_string(text.size()) + " bytes, a CHAR is one");
      }
      m_whole = static_cast<std::uint8_t>(text[0]);
      return;
    case DATATYPES::INT:
    case DATATYPES::INT64:
      m_whole = parseWhole<std::int64_t>(text, typeName(m_field.type));
      return;
    case DATATYPES::FLOAT:
      m_real = parseRealOrName<float>(text);
      return;
    case DATATYPES::DOUBLE:
      m_real = parseRealOrName<double>(text);
      return;
    case DATATYPES::STRING:
      m_text = text;
      return;
    case DATATYPES::BUFFER: {
      std::vector<std::uint8_t> bytes;
      parseHex(text, Blanks::Refused, bytes);
      m_text.assign(bytes.begin(), bytes.end());
      return;
    }
    case DATATYPES::DATETIME:
      m_unsigned = sortKey(parseDateTime(text));
      return;
    default:
      m_unsigned = parseEpochNs(text).get();
  }
}

template <class T>
bool Condition::compares(const T& there, const T& value) const {
  switch (m_operator) {
    case Operator::Equal:
      return there == value;
    case Operator::NotEqual:
      return there != value;
    case Operator::Less:
      return there < value;
    case Operator::LessOrEqual:
      return there <= value;
    case Operator::Greater:
      return there > value;
    case Operator::GreaterOrEqual:
      return there >= value;
    case Operator::Contains:
      break;
  }
  if constexpr (std::is_same_v<T, std::string_view>) {
    return there.find(value) != there.npos;
  }
  return false;
}

bool Condition::holds(const MD_Message& message) const {
  const auto test = [&](auto value, auto convert, const auto& wanted) {
    return message.get(m_field.id, value) && compares(std::decay_t<decltype(wanted)>(convert(value)), wanted);
  };
  const auto asIs = [](auto value) { return value; };
  switch (m_field.type) {
    case DATATYPES::CHAR:
      return test(
          char{}, [](char value) { return static_cast<std::uint8_t>(value); }, m_whole);
    case DATATYPES::INT:
      return test(std::int32_t{}, asIs, m_whole);
    case DATATYPES::INT64:
      return test(std::int64_t{}, asIs, m_whole);
    case DATATYPES::FLOAT:
      return test(float{}, asIs, m_real);
    case DATATYPES::DOUBLE:
      return test(double{}, asIs, m_real);
    case DATATYPES::STRING:
      return test(MD_Message::String(), asIs, std::string_view(m_text));
    case DATATYPES::BUFFER: {
      MD_Message::Buffer value;
      if (!message.get(m_field.id, value)) {
        return false;
      }
      const std::string there(value.data, value.data + value.length);
      return compares(std::string_view(there), std::string_view(m_text));
    }
    case DATATYPES::DATETIME:
      return test(
          MD_DateTime(), [](MD_DateTime value) { return sortKey(value); }, m_unsigned);
    default:
      return test(
          MD_EpochNS(), [](MD_EpochNS value) { return value.get(); }, m_unsigned);
  }
}

Selection::Selection(const SelectionOptions& options, const FieldNames& names)
    : m_skip(options.skip), m_limit(options.limit) {
  for (const std::string& condition : options.where) {
    m_conditions.emplace_back(condition, names);
  }
  for (const std::string& name : options.fields) {
    try {
      m_fields.push_back(names.find(name));
    } catch (const LineError& error) {
      throw UsageError("--fields: field " + printable(error.field()) + ": " + error.what());
    }
    m_isIncluded.resize(std::max<std::size_t>(m_isIncluded.size(), std::size_t{m_fields.back().id} + 1));
    if (m_isIncluded[m_fields.back().id]) {
      throw UsageError("--fields: field " + printable(name) + " is given twice");
    }
    m_isIncluded[m_fields.back().id] = true;
  }
}

bool Selection::takes(const MD_Message& message) {
  return std::all_of(m_conditions.begin(), m_conditions.end(),
                     [&](const Condition& condition) { return condition.holds(message); }) &&
         count();
}

bool Selection::takesUnreadable() { return m_conditions.empty() && count(); }

bool Selection::count() {
  if (m_skip != 0) {
    --m_skip;
    return false;
  }
  if (isDone()) {
    return false;
  }
  ++m_taken;
  return true;
}

bool Selection::includes(std::uint16_t id) const {
  return m_fields.empty() || (id < m_isIncluded.size() && m_isIncluded[id]);
}

void Selection::keepIncluded(std::vector<std::uint16_t>& ids) const {
  ids.erase(std::remove_if(ids.begin(), ids.end(), [this](std::uint16_t id) { return !includes(id); }), ids.end());
}

void Selection::keepFields(MD_Message& message) const {
  if (m_fields.empty()) {
    return;
  }
  std::vector<std::uint16_t> ids;
  message.get_field_ids(ids);
  ids.erase(std::remove_if(ids.begin(), ids.end(), [this](std::uint16_t id) { return includes(id); }), ids.end());
  message.eraseArrayImpl(ids);
}

}  // namespace MD::tool
