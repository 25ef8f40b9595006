#include "dictionary.h"

#include <fstream>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "md/md_fieldmap.h"
#include "test_data.h"

namespace bench {
namespace {

// The names of the kinds' types in a dictionary file.
namespace type_name {
constexpr const char* Char = "CHAR";
constexpr const char* Int = "INT";
constexpr const char* SInt = "INT";
constexpr const char* Int64 = "INT64";
constexpr const char* Float = "FLOAT";
constexpr const char* Double = "DOUBLE";
constexpr const char* String = "STRING";
constexpr const char* Buffer = "BUFFER";
constexpr const char* DateTime = "DATETIME";
constexpr const char* EpochNS = "EPOCH_NSEC";
}  // namespace type_name

std::string smallText() {
  std::ostringstream text;
#define MD_BENCH_ROW(name, Name, Kind, id, number) << #name "_" #id " " << id << ' ' << type_name::Kind << '\n'
  text MD_BENCH_QUOTE_FIELDS(MD_BENCH_ROW) MD_BENCH_WIDE_FIELDS(MD_BENCH_ROW) MD_BENCH_TICK_FIELDS(MD_BENCH_ROW);
#undef MD_BENCH_ROW
  return text.str();
}

const char* typeOf(const std::string& fixType) {
  static const std::unordered_map<std::string, const char*> kTypes = {{"INT", "INT"},
                                                                      {"NUMINGROUP", "INT"},
                                                                      {"LENGTH", "INT"},
                                                                      {"SEQNUM", "INT64"},
                                                                      {"PRICE", "DOUBLE"},
                                                                      {"AMT", "DOUBLE"},
                                                                      {"QTY", "DOUBLE"},
                                                                      {"FLOAT", "DOUBLE"},
                                                                      {"PERCENTAGE", "FLOAT"},
                                                                      {"PRICEOFFSET", "DOUBLE"},
                                                                      {"CHAR", "CHAR"},
                                                                      {"BOOLEAN", "CHAR"},
                                                                      {"DATA", "BUFFER"},
                                                                      {"XMLDATA", "BUFFER"},
                                                                      {"UTCTIMESTAMP", "DATETIME"}};
  const auto found = kTypes.find(fixType);
  return found != kTypes.end() ? found->second : "STRING";
}

struct LargeDictionary {
  std::string text;  // empty when there is no data
  std::array<std::uint16_t, kFieldCount<Quote> + 1> ids{};
};

LargeDictionary makeLarge() {
  struct Row {
    std::uint16_t id;
    std::string name;
    std::string type;
  };
  std::vector<Row> rows;
  std::ifstream file(testDataPath("fix_fields.tsv"));
  std::string line;
  std::getline(file, line);  // the header
  Row row;
  std::string fixType;
  while (file >> row.id >> row.name >> fixType) {
    row.type = typeOf(fixType);
    rows.push_back(row);
  }
  LargeDictionary made;
  if (rows.empty()) {
    return made;
  }
  // The fields are spread evenly; neighbours in the message are far from each other.
  const auto place = [&](std::size_t number, const char* type) {
    constexpr std::size_t kCount = kFieldCount<Quote>;
    Row& chosen = rows[(2 * (number * 5 % kCount) + 1) * rows.size() / (2 * kCount)];
    chosen.type = type;
    made.ids[number] = chosen.id;
  };
#define MD_BENCH_PLACE(name, Name, Kind, id, number) place(number, type_name::Kind);
  MD_BENCH_QUOTE_FIELDS(MD_BENCH_PLACE)
#undef MD_BENCH_PLACE
  std::ostringstream text;
  for (const Row& each : rows) {
    text << each.name << ' ' << each.id << ' ' << each.type << '\n';
  }
  made.text = text.str();
  return made;
}

const LargeDictionary& large() {
  static const LargeDictionary made = makeLarge();
  return made;
}

Dictionary g_current = Dictionary::Any;

}  // namespace

void useDictionary(Dictionary dictionary) {
  if (dictionary == Dictionary::Any || dictionary == g_current) {
    return;
  }
  std::istringstream text(dictionary == Dictionary::Small ? smallText() : large().text);
  MD::MD_FieldMap::reload_text(text, "the benchmark's dictionary");
  g_current = dictionary;
}

void forgetDictionary() { g_current = Dictionary::Any; }

const std::array<std::uint16_t, kFieldCount<Quote> + 1>& largeIds() { return large().ids; }

const char* whyNoLargeDictionary() {
  return large().text.empty() ? "X left out: MD_TEST_DATA names no folder that holds fix_fields.tsv" : nullptr;
}

}  // namespace bench
