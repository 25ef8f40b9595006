// Recorded market data through the library. Needs the folder that MD_TEST_DATA names; skipped without it.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <charconv>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/dictionary.h"

namespace MD {
namespace {

std::string dataFile(const char* name) {
  const char* folder = std::getenv("MD_TEST_DATA");
  return folder != nullptr ? std::string(folder) + "/" + name : std::string();
}

struct WideField {
  std::uint16_t id;
  std::string type;
  std::string value;
};
using WideMessage = std::vector<WideField>;

std::vector<std::string> split(const std::string& line, char separator) {
  std::vector<std::string> cells;
  std::size_t start = 0;
  for (std::size_t end; (end = line.find(separator, start)) != std::string::npos; start = end + 1) {
    cells.push_back(line.substr(start, end - start));
  }
  cells.push_back(line.substr(start));
  return cells;
}

template <class Number>
Number number(const std::string& text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  EXPECT_TRUE(error == std::errc() && end == text.data() + text.size()) << text;
  return value;
}

/// Reads the messages of a file of wide messages, one field a row. The same field name has different types at different
/// venues, so a field of the dictionary is a name with a type.
std::vector<WideMessage> readWide(std::istream& file, std::string& dictionary) {
  static const std::map<std::string, std::string> typeNames = {
      {"string", "STRING"}, {"real", "DOUBLE"}, {"int", "INT64"}, {"bool", "CHAR"}, {"null", "BUFFER"}};
  std::map<std::string, std::uint16_t> ids;
  std::vector<WideMessage> messages;
  std::string line;
  std::string current;
  std::getline(file, line);
  while (std::getline(file, line)) {
    const std::vector<std::string> cells = split(line, '\t');
    if (cells.size() != 7) {
      ADD_FAILURE() << "not seven cells: " << line;
      continue;
    }
    const std::string name = cells[4] + ":" + cells[5];
    const auto [found, isNew] = ids.emplace(name, static_cast<std::uint16_t>(3 * ids.size() + 1));
    if (isNew) {
      dictionary += name + " " + std::to_string(found->second) + " " + typeNames.at(cells[5]) + "\n";
    }
    if (messages.empty() || cells[0] != current) {
      current = cells[0];
      messages.emplace_back();
    }
    messages.back().push_back({found->second, cells[5], cells[6]});
  }
  return messages;
}

bool addWide(MD_Message& message, const WideField& field) {
  if (field.type == "string") {
    return message.add(field.id, field.value);
  }
  if (field.type == "real") {
    return message.add(field.id, number<double>(field.value));
  }
  if (field.type == "int") {
    return message.add(field.id, number<std::int64_t>(field.value));
  }
  if (field.type == "bool") {
    return message.add(field.id, field.value == "true" ? 'Y' : 'N');
  }
  return message.add(field.id, MD_Message::Buffer());
}

template <class T>
T read(const MD_Message& message, std::uint16_t id) {
  T value{};
  EXPECT_TRUE(message.get(id, value)) << id;
  return value;
}

void expectWide(const MD_Message& message, const WideMessage& fields) {
  ASSERT_EQ(message.fieldCount(), fields.size());
  std::vector<std::uint16_t> ids;
  message.get_field_ids(ids);
  ASSERT_EQ(ids.size(), fields.size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const WideField& field = fields[i];
    EXPECT_EQ(ids[i], field.id);
    if (field.type == "string") {
      EXPECT_EQ(read<std::string>(message, field.id), field.value);
    } else if (field.type == "real") {
      EXPECT_EQ(read<double>(message, field.id), number<double>(field.value));
    } else if (field.type == "int") {
      EXPECT_EQ(read<std::int64_t>(message, field.id), number<std::int64_t>(field.value));
    } else if (field.type == "bool") {
      EXPECT_EQ(read<char>(message, field.id), field.value == "true" ? 'Y' : 'N');
    } else {
      EXPECT_EQ(read<MD_Message::Buffer>(message, field.id).length, 0);
    }
  }
}

TEST(RealData, WideMessagesSurviveEveryEncodingAndConversion) {
  std::ifstream file(dataFile("wide.tsv"));
  if (!file) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with wide.tsv";
  }
  std::string dictionary;
  const std::vector<WideMessage> messages = readWide(file, dictionary);
  test::loadDictionary(dictionary);
  ASSERT_EQ(messages.size(), 1019u);
  std::size_t fieldCount = 0;
  for (const WideMessage& fields : messages) {
    fieldCount += fields.size();
    for (const auto& [code, name] : ENCODINGS::kAll) {
      SCOPED_TRACE(name);
      const auto sent = MD_Message::createFromPB(code);
      for (const WideField& field : fields) {
        ASSERT_TRUE(addWide(*sent, field)) << field.id << " " << field.value;
      }
      const auto received = MD_Message::createFromBytes(sent->getBinary(), sent->getSizeImpl());
      ASSERT_NE(received, nullptr);
      expectWide(*received, fields);
      for (const auto& other : ENCODINGS::kAll) {
        const auto converted = MD_Message::createFromPB(other.code);
        converted->copyMsg(*received);
        expectWide(*converted, fields);
      }
    }
    if (HasFailure()) {
      break;
    }
  }
  EXPECT_EQ(fieldCount, 24288u);
}

TEST(RealData, ForeignDatagramsAreNotOurs) {
  std::ifstream file(dataFile("udp_realtime.pcap"), std::ios::binary);
  if (!file) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with udp_realtime.pcap";
  }
  test::loadDictionary(test::kDictionary);
  std::stringstream content;
  content << file.rdbuf();
  const std::string bytes = content.str();
  constexpr std::size_t kFileHeader = 24;
  constexpr std::size_t kPacketHeader = 16;
  constexpr std::size_t kBeforePayload = 14 + 20 + 8;  // Ethernet, IPv4, UDP
  std::size_t packets = 0;
  std::size_t taken = 0;
  for (std::size_t at = kFileHeader; at + kPacketHeader <= bytes.size(); ++packets) {
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data() + at + 8, sizeof length);
    at += kPacketHeader;
    ASSERT_LE(at + length, bytes.size());
    std::vector<std::uint8_t> payload(bytes.begin() + static_cast<std::ptrdiff_t>(at + kBeforePayload),
                                      bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
    at += length;
    const auto message = MD_Message::createFromBytes(payload.data(), static_cast<std::uint32_t>(payload.size()));
    taken += message != nullptr ? 1U : 0U;
  }
  EXPECT_EQ(packets, 739u);
  // The first byte, the low byte of a length, is no encoding id in any of them.
  EXPECT_EQ(taken, 0u);
}

#ifdef QUOTE_REPLAY
TEST(RealData, QuotesAndTradesAreReplayedWithoutMismatch) {
  const std::string ticks = dataFile("ticks_small.csv");
  if (!std::ifstream(ticks)) {
    GTEST_SKIP() << "MD_TEST_DATA names no folder with ticks_small.csv";
  }
  const std::string output = testing::TempDir() + "quote_replay_output.txt";
  std::string command = "\"" QUOTE_REPLAY "\" \"" + ticks + "\" > \"" + output + '"';
#ifdef _WIN32
  command = '"' + command + '"';  // the shell takes the outer quotes away
#endif
  ASSERT_EQ(std::system(command.c_str()), 0);
  std::ifstream printed(output);
  std::string line;
  std::size_t cleanTallies = 0;
  bool hasAllRows = false;
  while (std::getline(printed, line)) {
    hasAllRows = hasAllRows || line == "rows 11983, bad rows 0";
    cleanTallies += line.find("      11983 ") != std::string::npos && line.substr(line.size() - 2) == " 0" ? 1U : 0U;
  }
  EXPECT_TRUE(hasAllRows);
  EXPECT_EQ(cleanTallies, 9u);  // three encodings, six conversions
}
#endif

}  // namespace
}  // namespace MD
