// Messages as comma-separated records, a column a field.
#ifndef MDMSG_CSV_WRITER_H
#define MDMSG_CSV_WRITER_H

#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "text/time_text.h"

namespace MD::tool {

class CsvWriter {
 public:
  /// @param zone  if given, EPOCH_NSEC values are written as timestamps in it
  CsvWriter(const std::vector<Field>& columns, const FieldNames& names, const TimeZone* zone, Reporter& reporter)
      : m_columns(columns), m_names(names), m_zone(zone), m_reporter(reporter) {}

  void appendHeader(std::string& out) const;

  /// A field that the message does not have is an empty cell, an empty string or buffer a pair of quotes. One that
  /// cannot be read is noted and left empty.
  void append(const MD_Message& message, std::string& out) const;

 private:
  bool appendCell(const MD_Message& message, Field field, std::string& out) const;

  const std::vector<Field>& m_columns;
  const FieldNames& m_names;
  const TimeZone* m_zone;
  Reporter& m_reporter;
};

}  // namespace MD::tool

#endif
