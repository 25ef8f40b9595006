// Messages as comma-separated records, one column per field.
#ifndef MDMSG_CSV_WRITER_H
#define MDMSG_CSV_WRITER_H

#include <string>
#include <string_view>
#include <vector>

#include "base/diagnostics.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "messages/selection.h"
#include "text/time_text.h"
#include "transport/message_source.h"

namespace MD::tool {

struct CsvStyle {
  char separator = ',';
  bool hasHeader = true;
  /// Text that a spreadsheet could run as a formula has an apostrophe before it, and so has text that begins with one,
  /// so that the text is what follows the first apostrophe.
  bool isSafe = false;
};

class CsvWriter {
 public:
  /// All references outlive the writer.
  /// @param time  how EPOCH_NSEC values and the time of capture are written
  CsvWriter(const std::vector<Column>& columns, const FieldNames& names, const TimeFormat& time, CsvStyle style,
            Reporter& reporter)
      : m_columns(columns), m_names(names), m_time(time), m_style(style), m_reporter(reporter) {}

  void appendHeader(std::string& out) const;

  /// A field that the message does not have is an empty cell, an empty string or buffer a pair of quotes. One that
  /// cannot be read is noted and left empty.
  void append(const MD_Message& message, const InputMessage& input, std::string& out) const;

 private:
  bool appendCell(const MD_Message& message, Field field, std::string& out) const;
  void appendText(std::string_view text, std::string& out) const;

  const std::vector<Column>& m_columns;
  const FieldNames& m_names;
  const TimeFormat& m_time;
  CsvStyle m_style;
  Reporter& m_reporter;
};

}  // namespace MD::tool

#endif
