#include "messages/csv_message.h"

#include <cstdint>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>

#include "base/diagnostics.h"
#include "messages/message_builder.h"
#include "messages/pseudo_fields.h"
#include "text/hex_reader.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

/// Without the spaces that people put after commas.
std::string withoutSpaces(const std::string& text) {
  return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

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
      throw LineError(std::string("values of type ") + typeName(field.type) + " are not carried by messages");
  }
}

}  // namespace

std::vector<std::optional<Field>> readCsvHeader(const CsvReader& record, const FieldNames& names) {
  std::vector<std::optional<Field>> columns;
  std::set<std::uint16_t> ids;
  for (std::size_t i = 0; i != record.size(); ++i) {
    const bool isKnown = MD_FieldMap::instance().findByName(record[i]) != MD_FieldMap::instance().end();
    const std::string name = isKnown ? record[i] : withoutSpaces(record[i]);
    if (!isKnown && isPseudoName(name)) {
      parsePseudoField(name);
      columns.emplace_back();
      continue;
    }
    columns.emplace_back(names.find(name));
    if (!ids.insert(columns.back()->id).second) {
      throw LineError("is given twice", record[i]);
    }
  }
  return columns;
}

void readCsvRecord(const CsvReader& record, const std::vector<std::optional<Field>>& columns, const FieldNames& names,
                   MD_Message& message) {
  if (record.size() != columns.size()) {
    throw LineError("the number of cells is " + std::to_string(record.size()) + ", that of the header " +
                    std::to_string(columns.size()));
  }
  for (std::size_t i = 0; i != columns.size(); ++i) {
    if (!columns[i]) {
      continue;
    }
    const bool canBeEmpty = columns[i]->type == DATATYPES::STRING || columns[i]->type == DATATYPES::BUFFER;
    if (record[i].empty() && !(canBeEmpty && record.isQuotedEmpty(i))) {
      continue;
    }
    try {
      const bool isText = canBeEmpty || columns[i]->type == DATATYPES::CHAR;
      addCell(message, *columns[i], isText ? record[i] : withoutSpaces(record[i]));
    } catch (const LineError& error) {
      throw LineError(error.what(), names.label(columns[i]->id));
    }
  }
}

}  // namespace MD::tool
