#include <cstdint>

#include <algorithm>
#include <functional>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "commands/workers.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "md/md_price_output.h"
#include "messages/arrow_writer.h"
#include "messages/csv_writer.h"
#include "messages/json_writer.h"
#include "messages/received.h"

namespace MD::tool {
namespace {

/// The formatted text of the library stops before a field with this id.
constexpr std::uint16_t kEndOfPrintOut = 65535;

/// Appends what is written to it to a string.
class StringAppender : public std::streambuf {
 public:
  explicit StringAppender(std::string& text) : m_text(text) {}

 protected:
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      m_text += traits_type::to_char_type(c);
    }
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    m_text.append(text, static_cast<std::size_t>(count));
    return count;
  }

 private:
  std::string& m_text;
};

/// Writes messages in one of the formats.
class MessageWriter {
 public:
  virtual ~MessageWriter() = default;
  /// Writes what goes before all messages.
  virtual void begin() {}
  /// The next message is the first of a block.
  virtual void beginBlock() {}
  /// @throws LineError when the message cannot be written
  virtual void append(const MD_Message& message, const InputMessage& input) = 0;
};

/// Writes messages as text, each field once.
class TextWriter : public MessageWriter {
 public:
  TextWriter(const FieldNames& names, const Selection& selection, const DecodeOptions& options, const Task& task)
      : m_names(names),
        m_selection(selection),
        m_isPrice(options.format == Format::PriceText),
        m_isRaw(options.isRawText),
        m_task(task),
        m_appender(task.out.text()),
        m_printed(&m_appender) {
    // Else the stream would keep to itself that memory is short, and write nothing from then on.
    m_printed.exceptions(std::ios_base::badbit);
  }

  void beginBlock() override { m_isFirst = true; }

  void append(const MD_Message& message, const InputMessage&) override {
    // Of a message with fields that are repeated or cannot be read, the library's stream operators write the last value
    // as often as the field is there, and a placeholder.
    bool isPlain = listFields(message, m_names, m_task.reporter, m_ids);
    m_selection.keepIncluded(m_ids);
    for (const std::uint16_t id : m_ids) {
      if (!isReadable(message, id, m_names.type(id))) {
        noteUnreadable(message, id, m_names, m_task.reporter);
        isPlain = false;
      }
    }
    if (!m_isFirst) {
      m_task.out.text() += '\n';
    }
    if (m_selection.hasFields()) {
      const auto part = message.clone();
      m_selection.keepFields(*part);
      print(*part, isPlain);
    } else {
      print(message, isPlain);
    }
    m_isFirst = false;
  }

 private:
  void print(const MD_Message& message, bool isPlain) {
    if (!m_isRaw) {
      m_task.out.text() += m_isPrice ? to_string(PriceOutput(message)) : to_string(message);
    } else if (isPlain) {
      printRaw(message);
    } else {
      const auto once = message.createEmpty();
      static_cast<void>(copyReadable(message, *once));  // what cannot be read has been noted
      printRaw(*once);
    }
  }

  void printRaw(const MD_Message& message) {
    if (std::find(m_ids.begin(), m_ids.end(), kEndOfPrintOut) != m_ids.end()) {
      m_task.reporter.note(ReportKind::Unreadable, m_names.label(kEndOfPrintOut),
                           "ends the raw text; omit --raw-text to see all fields");
    }
    m_printed.clear();
    if (m_isPrice) {
      m_printed << PriceOutput(message);
    } else {
      m_printed << message;
    }
  }

  const FieldNames& m_names;
  const Selection& m_selection;
  bool m_isPrice;
  bool m_isRaw;
  const Task& m_task;
  StringAppender m_appender;
  std::ostream m_printed;
  std::vector<std::uint16_t> m_ids;
  bool m_isFirst = true;
};

class JsonLineWriter : public MessageWriter {
 public:
  JsonLineWriter(const FieldNames& names, const Selection& selection, const TimeFormat& time, const Task& task)
      : m_writer(names, task.reporter, &selection, time), m_out(task.out) {}

  void append(const MD_Message& message, const InputMessage& input) override {
    m_writer.append(message, m_out.text(), &input);
    m_out.text() += '\n';
  }

 private:
  JsonWriter m_writer;
  Output& m_out;
};

class CsvRecordWriter : public MessageWriter {
 public:
  CsvRecordWriter(const FieldNames& names, const Selection& selection, const DecodeOptions& options, const Task& task)
      : m_writer(selection.columns(), names, options.time, options.csv, task.reporter),
        m_hasHeader(options.csv.hasHeader),
        m_out(task.out) {}

  void begin() override {
    if (m_hasHeader) {
      m_writer.appendHeader(m_out.text());
    }
    m_out.lineDone();
  }

  void append(const MD_Message& message, const InputMessage& input) override {
    m_writer.append(message, input, m_out.text());
  }

 private:
  const CsvWriter m_writer;
  bool m_hasHeader;
  Output& m_out;
};

std::unique_ptr<MessageWriter> makeWriter(const DecodeOptions& options, const FieldNames& names,
                                          const Selection& selection, const Task& task) {
  switch (options.format) {
    case Format::Json:
      return std::make_unique<JsonLineWriter>(names, selection, options.time, task);
    case Format::Csv:
      if (!selection.hasFields()) {
        throw UsageError(
            "--format csv requires --fields, its columns, such as --fields SYMBOL,BID,ASK or --fields all");
      }
      return std::make_unique<CsvRecordWriter>(names, selection, options, task);
    case Format::ArrowStream:
    case Format::ArrowFile:
    case Format::Text:
    case Format::PriceText:
      break;
  }
  selection.refusePseudoFields("requires --format json or csv");
  return std::make_unique<TextWriter>(names, selection, options, task);
}

class Decoder final : public Worker {
 public:
  Decoder(const Task& task, const DecodeOptions& options)
      : m_task(task), m_selection(task.selection, m_names), m_options(options), m_messages(task, m_selection) {
    m_writer = makeWriter(m_options, m_names, m_selection, m_task);
  }

  void begin() override { m_writer->begin(); }

  std::function<void()> run() override {
    m_writer->beginBlock();
    while (const MD_Message* const message = m_messages.next()) {
      attempt(m_task, [&] { m_writer->append(*message, m_messages.input()); });
    }
    return {};
  }

 private:
  const Task& m_task;
  const FieldNames m_names;
  Selection m_selection;
  const DecodeOptions& m_options;
  TakenMessages m_messages;
  std::unique_ptr<MessageWriter> m_writer;
};

/// By one thread: the columns and the batches are those of the whole input.
void decodeToArrow(const Task& task, const DecodeOptions& options) {
  const FieldNames names;
  Selection selection(task.selection, names);
  selection.refusePseudoFields("requires --format json or csv");
  ArrowOptions arrow;
  arrow.isFile = options.format == Format::ArrowFile;
  arrow.isTextBinary = options.isTextBinary;
  ArrowWriter writer(selection.fields(), names, arrow, task.out, task.reporter);
  TakenMessages messages(task, selection);
  while (const MD_Message* const message = messages.next()) {
    attempt(task, [&] { writer.append(*message); });
  }
  writer.finish();
}

}  // namespace

void decode(const Task& task, const DecodeOptions& options) {
  if (options.format == Format::ArrowStream || options.format == Format::ArrowFile) {
    decodeToArrow(task, options);
    return;
  }
  const bool isText = options.format == Format::Text || options.format == Format::PriceText;
  runWorkers(
      task, [&](const Task& part) { return std::make_unique<Decoder>(part, options); }, isText ? "\n" : "");
}

}  // namespace MD::tool
