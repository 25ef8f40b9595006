#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "dictionary/field_names.h"
#include "messages/csv_message.h"
#include "messages/json_reader.h"
#include "text/csv_reader.h"
#include "text/line_reader.h"

namespace MD::tool {
namespace {

/// The messages that one input describes.
class MessageTexts {
 public:
  virtual ~MessageTexts() = default;

  /// Fills `message`, which is empty, and tells the reporter where its text stands.
  /// @return false at the end
  /// @throws LineError when the text describes none; the next one can be read
  virtual bool next(MD_Message& message) = 0;
};

/// A message in each line.
class JsonLines : public MessageTexts {
 public:
  JsonLines(InputBuffer& in, const FieldNames& names, Output& out, Reporter& reporter)
      : m_lines(in, out), m_reader(names), m_reporter(reporter) {}

  bool next(MD_Message& message) override {
    std::string_view line;
    if (!m_lines.nextFilled(line)) {
      return false;
    }
    m_reporter.setLine(m_lines.lineNumber());
    m_reader.read(line, message);
    return true;
  }

 private:
  LineReader m_lines;
  JsonReader m_reader;
  Reporter& m_reporter;
};

/// A message in each record behind the header. With a header that cannot be used there is none.
class CsvRecords : public MessageTexts {
 public:
  CsvRecords(InputBuffer& in, const FieldNames& names, Output& out, Reporter& reporter)
      : m_lines(in, out), m_record(m_lines), m_names(names), m_reporter(reporter) {}

  bool next(MD_Message& message) override {
    if (!m_columns) {
      m_columns.emplace();
      if (nextRecord()) {
        m_columns = readCsvHeader(m_record, m_names);
      }
    }
    if (m_columns->empty() || !nextRecord()) {
      return false;
    }
    readCsvRecord(m_record, *m_columns, m_names, message);
    return true;
  }

 private:
  bool nextRecord() {
    try {
      const bool isThere = m_record.next();
      m_reporter.setLine(m_record.line());
      return isThere;
    } catch (const LineError&) {
      m_reporter.setLine(m_record.line());
      throw;
    }
  }

  LineReader m_lines;
  CsvReader m_record;
  const FieldNames& m_names;
  Reporter& m_reporter;
  std::optional<std::vector<Field>> m_columns;
};

}  // namespace

void encode(Inputs& inputs, const SelectionOptions& selectionOptions, const EncodeOptions& options, Output& out,
            Reporter& reporter) {
  const FieldNames names;
  Selection selection(selectionOptions, names);
  const auto message = createMessage(options.encoding);
  MessageSink sink(options.sink, names, out);
  const auto encodeNext = [&](MessageTexts& texts) {
    try {
      message->clearImpl();
      if (!texts.next(*message)) {
        return false;
      }
      if (selection.takes(*message)) {
        selection.keepFields(*message);
        sink.append(*message, std::nullopt);
        out.lineDone();
      }
    } catch (const LineError& error) {
      out.dropLine();
      reporter.error(error);
    } catch (const std::bad_alloc&) {
      out.dropLine();
      out.releaseMemory();
      reporter.error(outOfMemory());
    }
    return true;
  };
  while (InputBuffer* const in = selection.isDone() ? nullptr : inputs.next()) {
    std::unique_ptr<MessageTexts> texts;
    if (options.isCsv) {
      texts = std::make_unique<CsvRecords>(*in, names, out, reporter);
    } else {
      texts = std::make_unique<JsonLines>(*in, names, out, reporter);
    }
    inputs.attempt([&] {
      while (!selection.isDone() && encodeNext(*texts)) {
        reporter.advance(in->sourceBytes());
      }
    });
  }
}

}  // namespace MD::tool
