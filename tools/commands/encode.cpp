#include <istream>
#include <memory>
#include <string_view>
#include <vector>

#include "base/utf8.h"
#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "dictionary/field_names.h"
#include "messages/csv_message.h"
#include "messages/json_reader.h"
#include "text/csv_reader.h"
#include "text/line_reader.h"

namespace MD::tool {
namespace {

/// Reads the messages that one input describes, a line or a record each.
class Encoder {
 public:
  Encoder(const Task& task, const EncodeOptions& options)
      : m_task(task),
        m_selection(task.selection, m_names),
        m_message(createMessage(options.encoding)),
        m_sink(options.sink, m_names, task.out) {}

  bool isDone() const { return m_selection.isDone(); }

  Go readJsonLines(InputBuffer& in) {
    return readRecords(in, [&](LineReader& lines) {
      std::string_view line;
      do {
        if (!lines.next(line)) {
          return false;
        }
        line = withoutCarriageReturn(line);
        if (lines.lineNumber() == 1) {
          line = withoutByteOrderMark(line);
        }
      } while (isBlankLine(line));
      m_task.reporter.setLine(lines.lineNumber());
      readJson(line, m_names, *m_message);
      return true;
    });
  }

  Go readCsv(InputBuffer& in) {
    std::istream stream(&in);
    LineReader lines(stream, m_task.out);
    CsvReader record(lines);
    std::vector<Field> columns;
    try {
      if (!record.next()) {
        return Go::On;
      }
      m_task.reporter.setLine(record.line());
      columns = readCsvHeader(record, m_names);
    } catch (const LineError& error) {
      m_task.reporter.setLine(record.line());
      m_task.reporter.error(error);
      return Go::On;
    }
    return readAll(in, [&] {
      const bool isThere = nextCsvRecord(record);
      if (isThere) {
        readCsvRecord(record, columns, m_names, *m_message);
      }
      return isThere;
    });
  }

 private:
  bool nextCsvRecord(CsvReader& record) {
    try {
      const bool isThere = record.next();
      m_task.reporter.setLine(record.line());
      return isThere;
    } catch (const LineError&) {
      m_task.reporter.setLine(record.line());
      throw;
    }
  }

  template <class Next>
  Go readRecords(InputBuffer& in, Next next) {
    std::istream stream(&in);
    LineReader lines(stream, m_task.out);
    return readAll(in, [&] { return next(lines); });
  }

  /// @param next  fills the message; @return false at the end
  template <class Next>
  Go readAll(const InputBuffer& in, Next next) {
    for (;;) {
      try {
        m_message->clearImpl();
        if (!next()) {
          return Go::On;
        }
        m_task.reporter.advance(in.sourceBytes());
        if (m_selection.takes(*m_message)) {
          m_selection.keepFields(*m_message);
          m_sink.append(*m_message, std::nullopt);
          m_task.out.lineDone();
          if (m_selection.isDone()) {
            return Go::NoFurther;
          }
        }
      } catch (const LineError& error) {
        m_task.out.dropLine();
        m_task.reporter.error(error);
      }
    }
  }

  const Task& m_task;
  FieldNames m_names;
  Selection m_selection;
  std::unique_ptr<MD_Message> m_message;
  MessageSink m_sink;
};

}  // namespace

void encode(const Task& task, const EncodeOptions& options) {
  Encoder encoder(task, options);
  if (!encoder.isDone()) {
    forEachInput(task.inputs, task.reporter,
                 [&](InputBuffer& in) { return options.isCsv ? encoder.readCsv(in) : encoder.readJsonLines(in); });
  }
}

}  // namespace MD::tool
