// Replays recorded quotes and trades through the library: each row of a CSV file becomes a message, its bytes are
// parsed into a second message as in a receiver, and every field is read and compared with the row. This is done for
// all three encodings and all conversions between them.
//
//   quote_replay FILE.csv     such as data/quotes_sample.csv
//
// The CSV has the columns of `kColumns`, in that order, and an empty cell where a venue sent nothing. Exit status: 0
// if everything matched, 1 if a row was malformed or a field differed, 2 if the file cannot be used.

#include <md/md_itermap.h>
#include <md/md_message.h>
#include <md/md_mint.h>
#include <md/md_msgt.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Column {
  const char* name;
  std::uint16_t id;
  const char* type;
};

// The columns of the file, and at the same time the fields of the dictionary.
constexpr Column kColumns[] = {
    {"recv_ns", 1, "EPOCH_NSEC"}, {"venue", 2, "STRING"}, {"symbol", 3, "STRING"},    {"kind", 4, "CHAR"},
    {"event_ms", 5, "INT64"},     {"txn_ms", 6, "INT64"}, {"seq", 7, "INT64"},        {"bid", 20, "DOUBLE"},
    {"bid_size", 21, "DOUBLE"},   {"ask", 22, "DOUBLE"},  {"ask_size", 23, "DOUBLE"}, {"price", 24, "DOUBLE"},
    {"size", 25, "DOUBLE"},       {"side", 26, "CHAR"},   {"ord_type", 27, "STRING"},
};
constexpr std::size_t kColumnCount = std::size(kColumns);

struct Encoding {
  const char* name;
  std::uint8_t code;
};
constexpr Encoding kEncodings[] = {{"mInt", 6}, {"IterMap", 1}, {"MsgT", 70}};
constexpr std::size_t kEncodingCount = std::size(kEncodings);

using Cells = std::array<std::string_view, kColumnCount>;

struct Tally {
  std::uint64_t messages = 0;
  std::uint64_t bytes = 0;
  std::uint64_t mismatches = 0;
};

void loadDictionary() {
  std::stringstream text;
  for (const Column& column : kColumns) {
    text << column.name << ' ' << column.id << ' ' << column.type << '\n';
  }
  MD::MD_FieldMap::reload_text(text, "fields of quote_replay");
}

/// Splits a line at its commas. @return false when the number of cells is not that of the columns
bool split(std::string_view line, Cells& cells) {
  std::size_t count = 0;
  while (count < kColumnCount) {
    const std::size_t comma = line.find(',');
    cells[count++] = line.substr(0, comma);
    if (comma == std::string_view::npos) {
      return count == kColumnCount;
    }
    line.remove_prefix(comma + 1);
  }
  return false;
}

template <class Number>
std::optional<Number> parse(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional<Number>(number) : std::nullopt;
}

/// Calls `use` with a cell's value in the type of its field. @return false when the cell is no such value
template <class Use>
bool withValue(const Column& column, std::string_view cell, Use use) {
  const auto number = [&use](auto parsed) { return parsed.has_value() && use(*parsed); };
  switch (MD::MD_FieldMap::instance().idToType(column.id)) {
    case MD::DATATYPES::CHAR:
      return cell.size() == 1 && use(cell[0]);
    case MD::DATATYPES::INT64:
      return number(parse<std::int64_t>(cell));
    case MD::DATATYPES::DOUBLE:
      return number(parse<double>(cell));
    case MD::DATATYPES::EPOCH_NSEC: {
      const auto nanoseconds = parse<std::uint64_t>(cell);
      return nanoseconds.has_value() && use(MD::MD_EpochNS(*nanoseconds));
    }
    default:
      return cell.size() <= 65535 && use(MD::MD_Message::String(cell));
  }
}

bool isEqual(MD::MD_Message::String a, MD::MD_Message::String b) { return std::string_view(a) == std::string_view(b); }
template <class T>
bool isEqual(T a, T b) {
  return a == b;
}

/// Makes a message of a row. @return the name of the column that could not be used, or null
const char* fill(MD::MD_Message& message, const Cells& cells) {
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    const std::uint16_t id = kColumns[i].id;
    if (!cells[i].empty() && !withValue(kColumns[i], cells[i], [&](auto value) { return message.add(id, value); })) {
      return kColumns[i].name;
    }
  }
  return nullptr;
}

/// Compares every field of a message with its row. @return the number of differences
std::uint64_t compare(const MD::MD_Message& message, const Cells& cells) {
  std::uint64_t mismatches = 0;
  std::size_t sent = 0;
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    const std::uint16_t id = kColumns[i].id;
    if (cells[i].empty()) {
      mismatches += message.existsImpl(id) ? 1U : 0U;
      continue;
    }
    ++sent;
    const bool matches = withValue(kColumns[i], cells[i], [&](auto expected) {
      decltype(expected) actual{};
      return message.get(id, actual) && isEqual(actual, expected);
    });
    mismatches += matches ? 0U : 1U;
  }
  return mismatches + (message.fieldCount() == sent ? 0U : 1U);
}

class Replay {
 public:
  void run(std::istream& file);
  bool isClean() const;
  void printSummary() const;

 private:
  void replayRow(const Cells& cells);
  void parseAndCompare(const MD::MD_Message& sent, const Cells& cells, Tally& tally);

  std::uint64_t m_rows = 0;
  std::uint64_t m_badRows = 0;
  std::array<Tally, kEncodingCount> m_encoded;
  std::array<std::array<Tally, kEncodingCount>, kEncodingCount> m_converted;
};

void Replay::run(std::istream& file) {
  std::string line;
  std::getline(file, line);  // the header
  for (std::uint64_t lineNumber = 2; std::getline(file, line); ++lineNumber) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    Cells cells;
    if (!split(line, cells)) {
      std::cerr << "line " << lineNumber << ": not " << kColumnCount << " cells\n";
      ++m_badRows;
      continue;
    }
    MD::mInt probe;
    if (const char* column = fill(probe, cells)) {
      std::cerr << "line " << lineNumber << ": column " << column << " cannot be used\n";
      ++m_badRows;
      continue;
    }
    if (m_rows++ < 3) {
      std::cout << probe << '\n';
    }
    replayRow(cells);
  }
}

void Replay::replayRow(const Cells& cells) {
  for (std::size_t from = 0; from < kEncodingCount; ++from) {
    const auto sent = MD::MD_Message::createFromPB(kEncodings[from].code);
    fill(*sent, cells);
    parseAndCompare(*sent, cells, m_encoded[from]);
    for (std::size_t to = 0; to < kEncodingCount; ++to) {
      if (to != from) {
        const auto converted = MD::MD_Message::createFromPB(kEncodings[to].code);
        converted->copyMsg(*sent);
        parseAndCompare(*converted, cells, m_converted[from][to]);
      }
    }
  }
}

void Replay::parseAndCompare(const MD::MD_Message& sent, const Cells& cells, Tally& tally) {
  const auto received = MD::MD_Message::createFromBytes(sent.getBinary(), sent.getSizeImpl());
  ++tally.messages;
  tally.bytes += sent.getSizeImpl();
  tally.mismatches += received != nullptr ? compare(*received, cells) : 1;
}

bool Replay::isClean() const {
  std::uint64_t mismatches = 0;
  for (std::size_t from = 0; from < kEncodingCount; ++from) {
    mismatches += m_encoded[from].mismatches;
    for (const Tally& tally : m_converted[from]) {
      mismatches += tally.mismatches;
    }
  }
  return m_rows != 0 && m_badRows == 0 && mismatches == 0;
}

void Replay::printSummary() const {
  std::printf("rows %llu, bad rows %llu\n\n", static_cast<unsigned long long>(m_rows),
              static_cast<unsigned long long>(m_badRows));
  std::printf("%-20s %10s %12s %14s %11s\n", "encoding", "messages", "bytes", "bytes/message", "mismatches");
  const auto printTally = [](const std::string& label, const Tally& tally) {
    const double perMessage =
        tally.messages == 0 ? 0 : static_cast<double>(tally.bytes) / static_cast<double>(tally.messages);
    std::printf("%-20s %10llu %12llu %14.1f %11llu\n", label.c_str(), static_cast<unsigned long long>(tally.messages),
                static_cast<unsigned long long>(tally.bytes), perMessage,
                static_cast<unsigned long long>(tally.mismatches));
  };
  for (std::size_t from = 0; from < kEncodingCount; ++from) {
    printTally(kEncodings[from].name, m_encoded[from]);
  }
  for (std::size_t from = 0; from < kEncodingCount; ++from) {
    for (std::size_t to = 0; to < kEncodingCount; ++to) {
      if (to != from) {
        printTally(std::string(kEncodings[from].name) + " to " + kEncodings[to].name, m_converted[from][to]);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: quote_replay FILE.csv\n";
    return 2;
  }
  const char* path = argv[1];
  std::ifstream file(path);
  if (!file) {
    std::cerr << "quote_replay: cannot read " << path << '\n';
    return 2;
  }
  loadDictionary();
  Replay replay;
  replay.run(file);
  std::cout.flush();
  if (file.bad()) {
    std::cerr << "quote_replay: cannot read on\n";
    return 2;
  }
  replay.printSummary();
  return replay.isClean() ? 0 : 1;
}
