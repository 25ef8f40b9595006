#include "commands/commands.h"

#include <cstdint>

#include <algorithm>
#include <istream>
#include <limits>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string_view>

#include "base/utf8.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "md/md_price_output.h"
#include "messages/csv_message.h"
#include "messages/csv_writer.h"
#include "messages/dump.h"
#include "messages/json_reader.h"
#include "messages/json_writer.h"
#include "messages/message_builder.h"
#include "messages/received.h"
#include "messages/statistics.h"
#include "text/csv_reader.h"
#include "text/line_reader.h"

namespace MD::tool {
namespace {

/// The library's print-out stops before a field with this id.
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

std::unique_ptr<MD_Message> createMessage(const std::string& encoding) {
  auto message =
      encoding == "preferred" ? MD_Message::createPreferred(true) : MD_Message::createFromPB(encodingCode(encoding));
  if (message == nullptr) {
    throw UsageError("there is no encoding for " + inQuotes(encoding));
  }
  return message;
}

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

/// Writes messages as print-outs of the library.
class TextWriter {
 public:
  TextWriter(const FieldNames& names, const Selection& selection, bool isPrice, const Task& task)
      : m_names(names),
        m_selection(selection),
        m_isPrice(isPrice),
        m_task(task),
        m_appender(task.out.text()),
        m_printed(&m_appender) {}

  void append(const MD_Message& message) {
    listFields(message, m_names, m_task.reporter, m_ids);
    m_selection.keepIncluded(m_ids);
    for (const std::uint16_t id : m_ids) {
      if (!isReadable(message, id, m_names.type(id))) {
        noteUnreadable(message, id, m_names, m_task.reporter);
      }
    }
    if (std::find(m_ids.begin(), m_ids.end(), kEndOfPrintOut) != m_ids.end()) {
      m_task.reporter.note(m_names.label(kEndOfPrintOut), "ends the print-out; use --format json to see all fields");
    }
    if (!m_isFirst) {
      m_task.out.text() += '\n';
    }
    m_isFirst = false;
    if (m_selection.hasFields()) {
      const auto part = message.clone();
      m_selection.keepFields(*part);
      print(*part);
    } else {
      print(message);
    }
  }

 private:
  void print(const MD_Message& message) {
    if (m_isPrice) {
      m_printed << PriceOutput(message);
    } else {
      m_printed << message;
    }
  }

  const FieldNames& m_names;
  const Selection& m_selection;
  bool m_isPrice;
  const Task& m_task;
  StringAppender m_appender;
  std::ostream m_printed;
  std::vector<std::uint16_t> m_ids;
  bool m_isFirst = true;
};

/// Calls `use` with each message that is taken and what it was read from.
template <class Use>
void forEachTaken(const Task& task, Selection& selection, Use use) {
  if (selection.isDone()) {
    return;
  }
  forEachMessage(task.inputs, task.source, task.out, task.reporter, [&](const InputMessage& input) {
    const auto message = receive(input);
    if (selection.takes(*message)) {
      noteLeftOut(*message, input, task.reporter);
      use(*message, input);
    }
    return selection.isDone() ? Go::NoFurther : Go::On;
  });
}

/// "# feed.pcap: packet 3 (byte 1084), 2024-06-03T09:30:00.173980747Z, 10.0.0.1:5 to 239.1.1.1:30001: mInt, 39 bytes"
void appendDumpTitle(const InputMessage& input, const Reporter& reporter, std::string& out) {
  out += "# " + printable(reporter.place());
  if (input.timeNs && *input.timeNs >= 0) {
    out += ", ";
    appendIsoTime(static_cast<std::uint64_t>(*input.timeNs), TimeZone(), out);
    out += ", " + textOf(input.source) + " to " + textOf(input.destination);
  }
  const char* const encoding = input.sizeBytes != 0 ? encodingOfCode(input.data[0]) : nullptr;
  out += std::string(": ") + (encoding != nullptr ? encoding : "no encoding") + ", " + std::to_string(input.sizeBytes) +
         (input.sizeBytes == 1 ? " byte\n" : " bytes\n");
}

bool takesBytes(Selection& selection, const InputMessage& input) {
  if (!selection.hasConditions()) {
    return selection.takesUnreadable();
  }
  const auto message = MD_Message::createFromBytes(input.data, static_cast<std::uint32_t>(input.sizeBytes));
  return message != nullptr && selection.takes(*message);
}

/// When a message was sent, or else captured.
std::optional<std::int64_t> timeOf(const InputMessage& input, const std::optional<Field>& timeField) {
  if (timeField) {
    const auto message = MD_Message::createFromBytes(input.data, static_cast<std::uint32_t>(input.sizeBytes));
    MD_EpochNS time;
    constexpr auto kLatest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (message != nullptr && message->get(timeField->id, time) && time.get() <= kLatest) {
      return static_cast<std::int64_t>(time.get());
    }
  }
  return input.timeNs;
}

}  // namespace

void encode(const Task& task, const EncodeOptions& options) {
  Encoder encoder(task, options);
  if (!encoder.isDone()) {
    forEachInput(task.inputs, task.reporter,
                 [&](InputBuffer& in) { return options.isCsv ? encoder.readCsv(in) : encoder.readJsonLines(in); });
  }
}

void decode(const Task& task, const DecodeOptions& options) {
  const FieldNames names;
  Selection selection(task.selection, names);
  const TimeZone* const zone = options.isoTime ? &*options.isoTime : nullptr;
  std::string& text = task.out.text();
  switch (options.format) {
    case Format::Text:
    case Format::PriceText: {
      TextWriter writer(names, selection, options.format == Format::PriceText, task);
      return forEachTaken(task, selection,
                          [&](const MD_Message& message, const InputMessage&) { writer.append(message); });
    }
    case Format::Json: {
      JsonWriter writer(names, task.reporter, &selection, zone);
      return forEachTaken(task, selection, [&](const MD_Message& message, const InputMessage&) {
        writer.append(message, text);
        text += '\n';
      });
    }
    case Format::Csv: {
      if (!selection.hasFields()) {
        throw UsageError("--format csv needs --fields, which are its columns");
      }
      const CsvWriter writer(selection.fields(), names, zone, task.reporter);
      writer.appendHeader(text);
      task.out.lineDone();
      return forEachTaken(task, selection,
                          [&](const MD_Message& message, const InputMessage&) { writer.append(message, text); });
    }
  }
}

void convert(const Task& task, const ConvertOptions& options) {
  const FieldNames names;
  Selection selection(task.selection, names);
  const auto message = createMessage(options.encoding);
  MessageSink sink(options.sink, names, task.out);
  std::vector<std::uint16_t> ids;
  forEachTaken(task, selection, [&](const MD_Message& received, const InputMessage& input) {
    listFields(received, names, task.reporter, ids);
    selection.keepIncluded(ids);
    message->clearImpl();
    message->copyMsg(received);
    for (const std::uint16_t id : ids) {
      if (!isReadable(received, id, names.type(id))) {
        noteUnreadable(received, id, names, task.reporter);
      } else if (!message->existsImpl(id) || !isStoredWhole(*message, id)) {
        const std::size_t terminator = names.type(id) == DATATYPES::STRING ? 1 : 0;
        throw LineError(tooLong(*message, id, valueBytes(received, id).sizeBytes - terminator).what(), names.label(id));
      }
    }
    selection.keepFields(*message);
    sink.append(*message, input.timeNs);
  });
}

void dump(const Task& task, bool isColored) {
  const FieldNames names;
  Selection selection(task.selection, names);
  if (selection.isDone()) {
    return;
  }
  SourceOptions source = task.source;
  source.takesForeign = true;
  bool isFirst = true;
  forEachMessage(task.inputs, source, task.out, task.reporter, [&](const InputMessage& input) {
    if (takesBytes(selection, input)) {
      std::string& out = task.out.text();
      out += isFirst ? "" : "\n";
      isFirst = false;
      appendDumpTitle(input, task.reporter, out);
      if (appendDump(input.data, input.sizeBytes, MD_FieldMap::instance(), isColored, out).flaws != 0) {
        task.reporter.flawed();
      }
    }
    return selection.isDone() ? Go::NoFurther : Go::On;
  });
}

void stats(const Task& task, const StatsOptions& options) {
  const FieldNames names;
  Selection selection(task.selection, names);
  std::optional<Field> timeField;
  if (!options.timeField.empty()) {
    timeField = timeFieldOf(options.timeField, names);
  }
  Statistics statistics;
  SourceOptions source = task.source;
  source.takesForeign = true;
  const auto countOne = [&](const InputMessage& input) {
    if (takesBytes(selection, input)) {
      const auto timeNs = timeOf(input, timeField);
      count(statistics, input, names, timeNs ? &*timeNs : nullptr);
    }
    return selection.isDone() ? Go::NoFurther : Go::On;
  };
  const auto addCapture = [&](const MessageSource& read) {
    if (const CaptureCounts* const counts = read.counts()) {
      statistics.hasCapture = true;
      add(statistics.capture, *counts);
    }
  };
  if (!selection.isDone()) {
    forEachMessage(task.inputs, source, task.out, task.reporter, countOne, addCapture);
  }
  if (statistics.bad + statistics.truncated + statistics.foreign != 0) {
    task.reporter.flawed();
  }
  appendReport(statistics, names, options.zone, options.columns, task.out.text());
  task.out.lineDone();
  if (options.svg != nullptr) {
    options.svg->text() += svgOf(statistics, options.zone);
    options.svg->lineDone();
    options.svg->flush();
  }
}

}  // namespace MD::tool
