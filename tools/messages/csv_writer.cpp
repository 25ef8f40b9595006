#include "messages/csv_writer.h"

#include <string_view>

#include "base/hex.h"
#include "messages/received.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

template <class T>
bool appendReal(const MD_Message& message, std::uint16_t id, std::string& out) {
  T value{};
  if (!message.get(id, value)) {
    return false;
  }
  appendRealOrName(value, out);
  return true;
}

template <class T>
bool appendWhole(const MD_Message& message, std::uint16_t id, std::string& out) {
  T value{};
  if (!message.get(id, value)) {
    return false;
  }
  MD::tool::appendWhole(value, out);
  return true;
}

}  // namespace

void CsvWriter::appendHeader(std::string& out) const {
  bool isFirst = true;
  for (const Column& column : m_columns) {
    if (!isFirst) {
      out += m_style.separator;
    }
    isFirst = false;
    appendText(column.pseudo ? pseudoName(*column.pseudo) : m_names.label(column.field.id), out);
  }
  out += '\n';
}

void CsvWriter::append(const MD_Message& message, const InputMessage& input, std::string& out) const {
  bool isFirst = true;
  for (const Column& column : m_columns) {
    if (!isFirst) {
      out += m_style.separator;
    }
    isFirst = false;
    if (column.pseudo) {
      std::string value;
      appendPseudoField(input, *column.pseudo, m_time, value);
      if (!value.empty()) {
        appendText(value, out);
      }
    } else if (message.existsImpl(column.field.id) && !appendCell(message, column.field, out)) {
      noteUnreadable(message, column.field.id, m_names, m_reporter);
    }
  }
  out += '\n';
}

/// In quotes where a reader could take it for something else.
void CsvWriter::appendText(std::string_view text, std::string& out) const {
  constexpr std::string_view kMarked = "=+-@\t\r\n'";
  const char* const mark = m_style.isSafe && !text.empty() && kMarked.find(text[0]) != kMarked.npos ? "'" : "";
  const char special[] = {m_style.separator, '"', '\r', '\n'};
  if (!text.empty() && text.find_first_of({special, sizeof special}) == text.npos) {
    out.append(mark).append(text);
    return;
  }
  out.append("\"").append(mark);
  for (const char c : text) {
    out += c;
    if (c == '"') {
      out += c;
    }
  }
  out += '"';
}

bool CsvWriter::appendCell(const MD_Message& message, Field field, std::string& out) const {
  switch (field.type) {
    case DATATYPES::CHAR: {
      char value = 0;
      if (!message.get(field.id, value)) {
        return false;
      }
      appendText({&value, 1}, out);
      return true;
    }
    case DATATYPES::INT:
      return appendWhole<std::int32_t>(message, field.id, out);
    case DATATYPES::INT64:
      return appendWhole<std::int64_t>(message, field.id, out);
    case DATATYPES::FLOAT:
      return appendReal<float>(message, field.id, out);
    case DATATYPES::DOUBLE:
      return appendReal<double>(message, field.id, out);
    case DATATYPES::STRING: {
      MD_Message::String value;
      if (!message.get(field.id, value)) {
        return false;
      }
      appendText(value, out);
      return true;
    }
    case DATATYPES::BUFFER: {
      MD_Message::Buffer value;
      if (!message.get(field.id, value)) {
        return false;
      }
      if (value.length == 0) {
        appendText({}, out);
      }
      appendHex(value.data, value.length, out);
      return true;
    }
    case DATATYPES::DATETIME: {
      MD_DateTime value;
      if (!message.get(field.id, value)) {
        return false;
      }
      MD::tool::appendWhole(std::int32_t{value.date()}, out);
      out += ' ';
      MD::tool::appendWhole(std::int32_t{value.time()}, out);
      out += ' ';
      MD::tool::appendWhole(std::int16_t{value.exch_gmt_offset()}, out);
      return true;
    }
    default: {
      MD_EpochNS value;
      if (!message.get(field.id, value)) {
        return false;
      }
      std::string text;
      m_time.append(value.get(), text);
      appendText(text, out);
      return true;
    }
  }
}

}  // namespace MD::tool
