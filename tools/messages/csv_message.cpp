#include "messages/csv_message.h"

#include <cstdint>

#include <set>
#include <string>
#include <string_view>

#include "base/diagnostics.h"
#include "messages/message_builder.h"
#include "text/hex_reader.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

void addCell(MD_Message& message, Field field, const std::string& text) {
  switch (field.type) {
    case DATATYPES::CHAR:
      if (text.size() != 1) {
        throw LineError(inQuotes(text) + " is " + std::to_string(text.size()) + " bytes, a CHAR is one");
      }
      return addValue(message, field.id, text[0]);
    case DATATYPES::INT:
      return addValue(message, field.id, parseWhole<std::int32_t>(text, "INT"));
    case DATATYPES::INT64:
      return addValue(message, field.id, parseWhole<std::int64_t>(text, "INT64"));
    case DATATYPES::FLOAT:
      return addValue(message, field.id, parseRealOrName<float>(text));
    case DATATYPES::DOUBLE:
      return addValue(message, field.id, parseRealOrName<double>(text));
    case DATATYPES::STRING:
      return addString(message, field.id, text);
    case DATATYPES::BUFFER: {
      std::vector<std::uint8_t> bytes;
      parseHex(text, Blanks::Refused, bytes);
      return addBuffer(message, field.id, bytes.data(), bytes.size());
    }
    case DATATYPES::DATETIME:
      return addValue(message, field.id, parseDateTime(text));
    case DATATYPES::EPOCH_NSEC:
      return addValue(message, field.id, parseEpochNs(text));
    default:
      throw LineError(std::string("values of type ") + typeName(field.type) + " are carried by no message");
  }
}

}  // namespace

std::vector<Field> readCsvHeader(const CsvReader& record, const FieldNames& names) {
  std::vector<Field> columns;
  std::set<std::uint16_t> ids;
  for (std::size_t i = 0; i != record.size(); ++i) {
    columns.push_back(names.find(record[i]));
    if (!ids.insert(columns.back().id).second) {
      throw LineError("is given twice", record[i]);
    }
  }
  return columns;
}

void readCsvRecord(const CsvReader& record, const std::vector<Field>& columns, const FieldNames& names,
                   MD_Message& message) {
  if (record.size() != columns.size()) {
    throw LineError("the number of cells is " + std::to_string(record.size()) + ", that of the header " +
                    std::to_string(columns.size()));
  }
  for (std::size_t i = 0; i != columns.size(); ++i) {
    const bool canBeEmpty = columns[i].type == DATATYPES::STRING || columns[i].type == DATATYPES::BUFFER;
    if (record[i].empty() && !(canBeEmpty && record.isQuotedEmpty(i))) {
      continue;
    }
    try {
      addCell(message, columns[i], record[i]);
    } catch (const LineError& error) {
      throw LineError(error.what(), names.label(columns[i].id));
    }
  }
}

}  // namespace MD::tool
