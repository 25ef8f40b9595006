#include "dictionary/derive.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <iterator>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/hex.h"
#include "base/utf8.h"
#include "md/md_datatypes.h"
#include "text/csv_reader.h"
#include "text/json_parser.h"
#include "text/line_reader.h"
#include "text/time_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

/// Types that a value may be of, by preference.
constexpr std::uint8_t kCandidates[] = {DATATYPES::INT,    DATATYPES::EPOCH_NSEC, DATATYPES::INT64,
                                        DATATYPES::DOUBLE, DATATYPES::FLOAT,      DATATYPES::DATETIME,
                                        DATATYPES::BUFFER, DATATYPES::CHAR,       DATATYPES::STRING};
using Types = std::uint32_t;  // a bit for each type code

constexpr Types only(std::uint8_t type) { return Types{1} << type; }
constexpr Types kReal = only(DATATYPES::DOUBLE) | only(DATATYPES::FLOAT);
constexpr Types kAllTypes = std::numeric_limits<Types>::max();

constexpr std::size_t kLongestString = 65535;
constexpr std::uint16_t kLastId = 65534;  // 65535 ends every listing

/// Integers count as nanosecond timestamps if all are in these years: 2000 to 2099.
constexpr std::uint64_t kFirstNs = 946'684'800'000'000'000;
constexpr std::uint64_t kLastNs = 4'102'444'799'999'999'999;

struct Column {
  std::string name;
  Types types = kAllTypes;
  bool hasValue = false;
  bool isReported = false;
};

std::uint8_t typeOf(const Column& column) {
  if (!column.hasValue) {
    return DATATYPES::STRING;
  }
  return *std::find_if(std::begin(kCandidates), std::end(kCandidates),
                       [&](std::uint8_t type) { return (column.types & only(type)) != 0; });
}

template <class Parse>
bool canParse(Parse parse) {
  try {
    parse();
    return true;
  } catch (const LineError&) {
    return false;
  }
}

/// Whether a number would lose its form: "007", "-0".
bool hasFormOfText(std::string_view text) {
  const std::string_view digits = !text.empty() && text[0] == '-' ? text.substr(1) : text;
  return (digits.size() > 1 && digits[0] == '0' && digits[1] >= '0' && digits[1] <= '9') || text == "-0";
}

/// Whether a CSV cell may be of a type. A cell is any text, so that STRING takes what nothing else does.
bool suitsCell(const std::string& text, std::uint8_t type) {
  switch (type) {
    case DATATYPES::INT:
      return !hasFormOfText(text) && canParse([&] { parseWhole<std::int32_t>(text, ""); });
    case DATATYPES::INT64:
      return !hasFormOfText(text) && canParse([&] { parseWhole<std::int64_t>(text, ""); });
    case DATATYPES::EPOCH_NSEC:
      return canParse([&] {
        const std::uint64_t ns = parseEpochNs(text).get();
        if (isOfDigits(text) && (ns < kFirstNs || ns > kLastNs)) {
          throw LineError("");
        }
      });
    case DATATYPES::DOUBLE:
      // An integer that INT64 cannot hold would lose digits.
      return !hasFormOfText(text) && canParse([&] {
        parseRealOrName<double>(text);
      }) && (!isOfDigits(text.substr(text[0] == '-' ? 1 : 0)) || canParse([&] { parseWhole<std::int64_t>(text, ""); }));
    case DATATYPES::DATETIME:
      return canParse([&] { parseDateTime(text); });
    case DATATYPES::CHAR:
      return text.size() == 1;
    case DATATYPES::STRING:
      return text.size() <= kLongestString;
    default:
      return false;
  }
}

Types typesOfCell(const std::string& text, Types possible) {
  Types types = 0;
  for (const std::uint8_t type : kCandidates) {
    if ((possible & only(type)) != 0 && suitsCell(text, type)) {
      types |= only(type);
    }
  }
  return types;
}

Types typesOfBytes(std::size_t sizeBytes) {
  return sizeBytes > kLongestString ? 0 : only(DATATYPES::STRING) | (sizeBytes == 1 ? only(DATATYPES::CHAR) : Types{0});
}

/// A member of a JSON object that is a value.
struct Member {
  std::string_view name;
  std::size_t characters = 1;  ///< of a string
};

/// The types that `encode` reads from a JSON object of these members.
Types typesOfObject(const std::vector<Member>& members) {
  const auto holds = [&](std::initializer_list<std::string_view> names) {
    return members.size() == names.size() && std::all_of(names.begin(), names.end(), [&](std::string_view name) {
             return std::any_of(members.begin(), members.end(),
                                [&](const Member& member) { return member.name == name; });
           });
  };
  if (holds({"hex"})) {
    const std::size_t digits = members[0].characters;
    return digits % 2 != 0 || digits / 2 > kLongestString ? 0 : typesOfBytes(digits / 2) | only(DATATYPES::BUFFER);
  }
  if (holds({"bits"})) {
    const std::size_t digits = members[0].characters;
    return digits == 8 ? only(DATATYPES::FLOAT) : digits == 16 ? only(DATATYPES::DOUBLE) : 0;
  }
  if (holds({"value", "bytes"})) {
    return only(DATATYPES::INT);
  }
  return holds({"date", "time", "offset"}) || holds({"date", "time", "offset", "packed"}) ? only(DATATYPES::DATETIME)
                                                                                          : 0;
}

/// Whether a text is an integer of this type.
template <class T>
bool isWhole(std::string_view text) {
  T value{};
  const char* const end = text.data() + text.size();
  const auto [rest, code] = std::from_chars(text.data(), end, value);
  return code == std::errc() && rest == end;
}

Types typesOfNumber(std::string_view text) {
  Types types = kReal;
  types |= isWhole<std::int32_t>(text) ? only(DATATYPES::INT) : 0;
  types |= isWhole<std::int64_t>(text) ? only(DATATYPES::INT64) : 0;
  if (isWhole<std::uint64_t>(text)) {
    const auto whole = parseWhole<std::uint64_t>(text, "");
    types |= whole >= kFirstNs && whole <= kLastNs ? only(DATATYPES::EPOCH_NSEC) : 0;
  }
  return types;
}

Types typesOfString(std::string_view text) {
  Types types = typesOfBytes(text.size());
  types |= text == "NaN" || text == "Infinity" || text == "-Infinity" ? kReal : 0;
  types |= parseIsoTime(text) ? only(DATATYPES::EPOCH_NSEC) : 0;
  return types;
}

/// Receives the parts of one line: what types the values of its object may be of, in the order of their keys.
class JsonSample {
 public:
  struct Value {
    std::string_view key;
    Types types;
  };

  const std::vector<Value>& values() const noexcept { return m_values; }

  bool hasKeyTwice() const {
    std::vector<std::string_view> keys;
    for (const Value& value : m_values) {
      keys.push_back(value.key);
    }
    std::sort(keys.begin(), keys.end());
    return std::adjacent_find(keys.begin(), keys.end()) != keys.end();
  }

  // Each returns whether such a part can be here: the line is one object.
  bool null() { return take(0, 1); }
  bool boolean(bool) { return take(0, 1); }
  bool number(std::string_view text) { return take(m_depth == 1 ? typesOfNumber(text) : 0, 1); }
  bool string(std::string_view text) { return take(m_depth == 1 ? typesOfString(text) : 0, text.size()); }
  bool key(std::string_view text) {
    if (m_depth <= 2) {
      (m_depth == 1 ? m_key : m_member) = text;
    }
    return true;
  }
  bool startObject() { return enter(true); }
  bool startArray() { return m_depth != 0 && enter(false); }
  bool endObject() { return leave(); }
  bool endArray() { return leave(); }

 private:
  bool take(Types types, std::size_t characters) {
    if (m_depth == 1) {
      m_values.push_back({m_key, types});
    } else if (m_depth == 2) {
      m_members.push_back({m_member, characters});
    }
    return m_depth != 0;
  }

  bool enter(bool isObject) {
    if (m_depth == 1) {
      m_isObject = isObject;
      m_members.clear();
    } else if (m_depth == 2) {
      take(0, 1);
    }
    ++m_depth;
    return true;
  }

  bool leave() {
    --m_depth;
    return m_depth != 1 || take(m_isObject ? typesOfObject(m_members) : 0, 1);
  }

  std::vector<Value> m_values;
  std::string_view m_key;
  bool m_isObject = false;        // the value is one, not an array, which no type takes
  std::vector<Member> m_members;  // of that object
  std::string_view m_member;
  std::size_t m_depth = 0;
};

/// The columns of all samples.
class Deriver {
 public:
  explicit Deriver(Reporter& reporter) : m_reporter(reporter) {}

  void readCsv(InputBuffer& in, Output& out) {
    LineReader lines(in, out);
    CsvReader record(lines);
    std::vector<Column*> columns;
    for (;;) {
      try {
        if (!record.next()) {
          return;
        }
        m_reporter.setLine(record.line());
        if (columns.empty()) {
          columns = readHeader(record);
        } else {
          readRecord(record, columns);
        }
        m_reporter.advance(in.sourceBytes());
      } catch (const LineError& error) {
        m_reporter.setLine(record.line());
        m_reporter.error(error);
        if (columns.empty()) {
          return;
        }
      }
    }
  }

  void readJsonLines(InputBuffer& in, Output& out) {
    LineReader lines(in, out);
    for (std::string_view line; nextLine(lines, line);) {
      JsonSample sample;
      if (!isObject(line, sample)) {
        m_reporter.error(LineError("a message is one JSON object"));
        continue;
      }
      if (sample.hasKeyTwice()) {
        m_reporter.error(LineError("a key is given twice"));
        continue;
      }
      for (const auto& [key, types] : sample.values()) {
        take(columnOf(std::string(key)), types);
      }
      m_reporter.advance(in.sourceBytes());
    }
  }

  const std::deque<Column>& columns() const noexcept { return m_columns; }

 private:
  /// The next line that can be read.
  bool nextLine(LineReader& lines, std::string_view& line) {
    for (;;) {
      try {
        return lines.nextFilled(line, m_reporter);
      } catch (const LineError& error) {
        m_reporter.error(error);
      }
    }
  }

  bool isObject(std::string_view line, JsonSample& sample) {
    m_line = line;
    try {
      // The parser takes a NUL byte for the end of the line.
      return line.find('\0') == line.npos && parseJson<JsonNesting::Any>(m_line, sample);
    } catch (const LineError&) {
      return false;
    }
  }

  std::vector<Column*> readHeader(const CsvReader& record) {
    std::vector<Column*> columns;
    std::set<const Column*> seen;
    for (std::size_t i = 0; i != record.size(); ++i) {
      columns.push_back(&columnOf(record[i]));
      if (!seen.insert(columns.back()).second) {
        throw LineError("is given twice", record[i]);
      }
    }
    return columns;
  }

  void readRecord(const CsvReader& record, const std::vector<Column*>& columns) {
    if (record.size() != columns.size()) {
      throw LineError("the number of cells is " + std::to_string(record.size()) + ", that of the header " +
                      std::to_string(columns.size()));
    }
    for (std::size_t i = 0; i != columns.size(); ++i) {
      if (!record[i].empty()) {
        take(*columns[i], typesOfCell(record[i], columns[i]->types));
      }
    }
  }

  Column& columnOf(const std::string& name) {
    const auto [found, isNew] = m_byName.emplace(name, m_columns.size());
    if (isNew) {
      m_columns.emplace_back().name = name;
    }
    return m_columns[found->second];
  }

  /// Narrows a column to what a value can be, too.
  void take(Column& column, Types types) {
    if ((column.types & types) == 0) {
      if (!column.isReported) {
        column.isReported = true;
        m_reporter.note(ReportKind::Dictionary, column.name,
                        types == 0 ? "no type accepts this value" : "no type accepts this value and those before");
      }
      return;
    }
    column.types &= types;
    column.hasValue = true;
  }

  Reporter& m_reporter;
  std::string m_line;            // contains the parts of a sample
  std::deque<Column> m_columns;  // which stay where they are
  std::map<std::string, std::size_t> m_byName;
};

/// Whether JSON lines come, as far as the first bytes show.
bool looksLikeJson(InputBuffer& in) {
  constexpr std::size_t kLook = 64;
  const std::string_view text = withoutByteOrderMark(in.peek(kLook));
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  return first != text.npos && text[first] == '{';
}

}  // namespace

void deriveDictionary(Inputs& inputs, const DeriveOptions& options, Output& out, Reporter& reporter) {
  Deriver deriver(reporter);
  while (InputBuffer* const in = inputs.next()) {
    inputs.attempt([&] {
      const bool isJson =
          options.form == SampleForm::Json || (options.form == SampleForm::Recognised && looksLikeJson(*in));
      isJson ? deriver.readJsonLines(*in, out) : deriver.readCsv(*in, out);
    });
  }
  reporter.setInput("samples");
  std::uint32_t id = options.firstId;
  const bool isXml = options.format == DefinitionFormat::Xml;
  out.text() += isXml ? kXmlStart : "";
  for (const Column& column : deriver.columns()) {
    const std::string label = "field " + inQuotes(column.name) + ": ";
    const char* reason = isXml ? whyNoXmlName(column.name) : whyNoTextName(column.name);
    reason = reason == nullptr && isOfDigits(column.name) ? "a name of digits, which is taken for an id," : reason;
    if (reason != nullptr) {
      reporter.entry("samples",
                     label + reason + " cannot be in a dictionary in " + (isXml ? "XML" : "text") + "; skipped");
      continue;
    }
    if (id > kLastId) {
      reporter.entry("samples",
                     label + "no id is left for it (the last one is " + std::to_string(kLastId) + "); skipped");
      continue;
    }
    if (!column.hasValue) {
      reporter.entry("samples", label + "no value seen; assumed to be a STRING", false);
    }
    Definition entry;
    entry.name = column.name;
    entry.id = static_cast<std::uint16_t>(id++);
    entry.typeName = typeName(typeOf(column));
    isXml ? appendXmlDefinition(entry, out.text()) : appendTextDefinition(entry, out.text());
    out.lineDone();
  }
  out.text() += isXml ? kXmlEnd : "";
  out.lineDone();
}

}  // namespace MD::tool
