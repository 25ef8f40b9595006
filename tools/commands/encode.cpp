#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "commands/workers.h"
#include "dictionary/field_names.h"
#include "messages/csv_message.h"
#include "messages/json_reader.h"
#include "text/csv_reader.h"
#include "text/line_reader.h"
#include "transport/message_inputs.h"

namespace MD::tool {
namespace {

/// One message per record after the header; none if the header cannot be used.
class CsvRecords {
 public:
  CsvRecords(InputBuffer& in, std::uint64_t longestBytes, char separator, const FieldNames& names, Output& out,
             Reporter& reporter)
      : m_lines(in, out, longestBytes),
        m_record(m_lines, longestBytes, separator),
        m_names(names),
        m_reporter(reporter) {}

  /// Fills `message`, which is empty, and sets the reporter's place to that of its text.
  /// @return false at the end
  /// @throws LineError when the text describes none; the next one can be read
  bool next(MD_Message& message) {
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
  std::optional<std::vector<std::optional<Field>>> m_columns;
};

/// What encoding needs, whatever the text is.
class Encoder {
 public:
  Encoder(const SelectionOptions& selection, const EncodeOptions& options, Output& out)
      : m_selection(selection, m_names),
        m_message(createMessage(options.encoding)),
        m_sink(options.sink, m_names, out),
        m_out(out) {
    m_selection.refusePseudoFields("is a property of messages, which JSON and CSV input does not have");
  }

  const FieldNames& names() const noexcept { return m_names; }
  bool isDone() const noexcept { return m_selection.isDone(); }

  /// The message to fill.
  MD_Message& empty() {
    m_message->clearImpl();
    return *m_message;
  }

  /// Writes it, when it is selected.
  void put() {
    if (m_selection.takes(*m_message)) {
      m_selection.keepFields(*m_message);
      m_sink.append(*m_message, std::nullopt);
      m_out.lineDone();
    }
  }

 private:
  const FieldNames m_names;
  Selection m_selection;
  std::unique_ptr<MD_Message> m_message;
  MessageSink m_sink;
  Output& m_out;
};

/// A message in each line.
class JsonEncoder final : public Worker {
 public:
  JsonEncoder(const Task& task, const EncodeOptions& options)
      : m_task(task), m_lines(task), m_encoder(task.selection, options, task.out), m_reader(m_encoder.names()) {}

  std::function<void()> run() override {
    while (const InputMessage* const line = m_encoder.isDone() ? nullptr : m_lines.next()) {
      const void* const text = line->data;
      attempt(m_task, [&] {
        m_reader.read({static_cast<const char*>(text), line->sizeBytes}, m_encoder.empty());
        m_encoder.put();
      });
    }
    m_task.out.lineDone();
    return {};
  }

 private:
  const Task& m_task;
  MessageReader m_lines;
  Encoder m_encoder;
  JsonReader m_reader;
};

void encodeCsv(Inputs& inputs, const SelectionOptions& selection, const EncodeOptions& options, Output& out,
               Reporter& reporter) {
  Encoder encoder(selection, options, out);
  const auto encodeNext = [&](CsvRecords& records) {
    try {
      if (!records.next(encoder.empty())) {
        return false;
      }
      encoder.put();
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
  while (InputBuffer* const in = encoder.isDone() ? nullptr : inputs.next()) {
    CsvRecords records(*in, options.longestLineBytes, options.csvSeparator, encoder.names(), out, reporter);
    inputs.attempt([&] {
      while (!encoder.isDone() && encodeNext(records)) {
        reporter.advance(in->sourceBytes());
      }
    });
  }
}

}  // namespace

void encode(Inputs& inputs, const SelectionOptions& selection, const EncodeOptions& options, Output& out,
            Reporter& reporter) {
  if (options.isCsv) {
    encodeCsv(inputs, selection, options, out, reporter);
    return;
  }
  SourceOptions source;
  source.form = InputForm::Lines;
  source.longestMessageBytes = options.longestLineBytes;
  MessageInputs lines(inputs, source, out, reporter);
  const unsigned jobs = isMessageByMessage(options.sink.form) ? options.jobs : 1;
  runWorkers({lines, selection, out, reporter, jobs},
             [&](const Task& part) { return std::make_unique<JsonEncoder>(part, options); });
}

}  // namespace MD::tool
