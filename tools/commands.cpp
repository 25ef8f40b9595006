#include "commands.h"

#include <cstdint>

#include <algorithm>
#include <istream>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string_view>

#include "csv_message.h"
#include "csv_reader.h"
#include "field_names.h"
#include "hex.h"
#include "json_reader.h"
#include "json_writer.h"
#include "line_reader.h"
#include "md/md_message.h"
#include "md/md_price_output.h"
#include "message_builder.h"
#include "received.h"
#include "utf8.h"

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
  constexpr struct {
    const char* name;
    std::uint8_t code;
  } kEncodings[] = {{"mInt", 6}, {"IterMap", 1}, {"MsgT", 70}};
  for (const auto& [name, code] : kEncodings) {
    if (encoding == name) {
      return MD_Message::createFromPB(code);
    }
  }
  auto message = encoding == "preferred" ? MD_Message::createPreferred(true) : nullptr;
  if (message == nullptr) {
    throw UsageError("there is no encoding for " + inQuotes(encoding));
  }
  return message;
}

/// Calls `use` with each line that is not blank. A LineError that comes back is reported, and what it had put out so
/// far for the line is taken back.
template <class Use>
void forEachLine(const Inputs& inputs, Output& out, Reporter& reporter, Use use) {
  forEachInput(inputs, reporter, [&](InputBuffer& in) {
    std::istream stream(&in);
    LineReader lines(stream, out);
    std::string_view line;
    while (lines.next(line)) {
      line = withoutCarriageReturn(line);
      if (lines.lineNumber() == 1) {
        line = withoutByteOrderMark(line);
      }
      if (isBlankLine(line)) {
        continue;
      }
      reporter.setLine(lines.lineNumber());
      try {
        use(line);
        out.lineDone();
      } catch (const LineError& error) {
        out.dropLine();
        reporter.error(error);
      }
    }
    return Go::On;
  });
}

void appendHexLine(const MD_Message& message, std::string& out) {
  appendHex(message.getBinary(), message.getSizeImpl(), out);
  out += '\n';
}

void encodeCsv(LineReader& lines, const FieldNames& names, MD_Message& message, Output& out, Reporter& reporter) {
  CsvReader record(lines);
  std::vector<Field> columns;
  for (;;) {
    try {
      if (!record.next()) {
        return;
      }
      reporter.setLine(record.line());
      if (columns.empty()) {
        columns = readCsvHeader(record, names);
        continue;
      }
      message.clearImpl();
      readCsvRecord(record, columns, names, message);
      appendHexLine(message, out.text());
      out.lineDone();
    } catch (const LineError& error) {
      reporter.setLine(record.line());
      reporter.error(error);
      if (columns.empty()) {
        return;
      }
    }
  }
}

}  // namespace

void encode(const Inputs& inputs, const std::string& encoding, bool isCsv, Output& out, Reporter& reporter) {
  const FieldNames names;
  const auto message = createMessage(encoding);
  if (isCsv) {
    forEachInput(inputs, reporter, [&](InputBuffer& in) {
      std::istream stream(&in);
      LineReader lines(stream, out);
      encodeCsv(lines, names, *message, out, reporter);
      return Go::On;
    });
    return;
  }
  forEachLine(inputs, out, reporter, [&](std::string_view line) {
    message->clearImpl();
    readJson(line, names, *message);
    appendHexLine(*message, out.text());
  });
}

void decode(const Inputs& inputs, const SourceOptions& source, Format format, Output& out, Reporter& reporter) {
  const FieldNames names;
  JsonWriter json(names, reporter);
  StringAppender appender(out.text());
  std::ostream printed(&appender);
  std::vector<std::uint16_t> ids;
  bool isFirst = true;
  forEachMessage(inputs, source, out, reporter, [&](const InputMessage& input) {
    const auto message = receive(input, reporter);
    if (format == Format::Json) {
      json.append(*message, out.text());
      out.text() += '\n';
      return Go::On;
    }
    listFields(*message, names, reporter, ids);
    for (const std::uint16_t id : ids) {
      if (!isReadable(*message, id, names.type(id))) {
        noteUnreadable(*message, id, names, reporter);
      }
    }
    if (std::find(ids.begin(), ids.end(), kEndOfPrintOut) != ids.end()) {
      reporter.note(names.label(kEndOfPrintOut), "ends the print-out; use --format json to see all fields");
    }
    if (!isFirst) {
      out.text() += '\n';
    }
    isFirst = false;
    if (format == Format::PriceText) {
      printed << PriceOutput(*message);
    } else {
      printed << *message;
    }
    return Go::On;
  });
}

void convert(const Inputs& inputs, const SourceOptions& source, const std::string& encoding, Output& out,
             Reporter& reporter) {
  const FieldNames names;
  const auto message = createMessage(encoding);
  std::vector<std::uint16_t> ids;
  forEachMessage(inputs, source, out, reporter, [&](const InputMessage& input) {
    const auto received = receive(input, reporter);
    listFields(*received, names, reporter, ids);
    message->clearImpl();
    message->copyMsg(*received);
    for (const std::uint16_t id : ids) {
      if (!isReadable(*received, id, names.type(id))) {
        noteUnreadable(*received, id, names, reporter);
      } else if (!message->existsImpl(id) || !isStoredWhole(*message, id)) {
        const std::size_t terminator = names.type(id) == DATATYPES::STRING ? 1 : 0;
        throw LineError(tooLong(*message, id, valueBytes(*received, id).sizeBytes - terminator).what(),
                        names.label(id));
      }
    }
    appendHexLine(*message, out.text());
    return Go::On;
  });
}

}  // namespace MD::tool
