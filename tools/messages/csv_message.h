// Messages from comma-separated records under a header of field names.
#ifndef MDMSG_CSV_MESSAGE_H
#define MDMSG_CSV_MESSAGE_H

#include <optional>
#include <string_view>
#include <vector>

#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "text/csv_reader.h"

namespace MD::tool {

/// The fields that the current record, a header, names.
/// @throws LineError when one is unknown, not carried by messages, or there twice
std::vector<std::optional<Field>> readCsvHeader(const CsvReader& record, const FieldNames& names);

/// Fills an empty message from the current record. An empty cell is a field that is not sent; a pair of quotes is
/// an empty string or buffer.
/// @throws LineError when a value does not fit its field; the message is then half filled
void readCsvRecord(const CsvReader& record, const std::vector<std::optional<Field>>& columns, const FieldNames& names,
                   MD_Message& message);

}  // namespace MD::tool

#endif
