// Dictionaries as large, as broken and as changeable as files and programs can make them.
#include <cstdint>

#include <fstream>
#include <iostream>
#include <memory>
#include <ostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/assertions.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/messages.h"

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#include <sys/resource.h>
#define MD_MEMORY_IS_MEASURED
#endif

namespace MD::test {
namespace {

const MD_FieldMap& map() { return MD_FieldMap::instance(); }

constexpr std::uint32_t kMostFields = 65'535;

/// `count` fields of type INT, with the ids from `first` on.
std::string fields(std::uint32_t first, std::uint32_t count) {
  std::string text;
  for (std::uint32_t id = first; id < first + count; ++id) {
    text += "F" + std::to_string(id) + " " + std::to_string(id) + " INT\n";
  }
  return text;
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  for (std::size_t i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

/// What a load threw, empty for nothing.
template <class Load>
std::string errorOf(Load load) {
  try {
    load();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

/// Expects every lookup to agree with the rows, and finds every row.
void expectConsistent() {
  std::size_t known = 0;
  for (std::uint32_t i = 0; i <= 65535; ++i) {
    const auto id = static_cast<std::uint16_t>(i);
    const auto row = map().findById(id);
    ASSERT_EQ(row != map().end(), map().packed(id).isKnown()) << id;
    if (row != map().end()) {
      ++known;
      ASSERT_EQ(row->id, id);
      ASSERT_EQ(map().packed(id).type, row->type);
      ASSERT_EQ(map().packed(id).slot, row->compact + 1);
      ASSERT_TRUE(map().findByCompact(row->compact) == row);
      ASSERT_EQ(map().idToName(id), row->name);
      ASSERT_TRUE(map().findByName(row->name) != map().end());
    }
    const auto byCompact = map().findByCompact(id);
    ASSERT_TRUE(byCompact == map().end() || byCompact->compact == id);
  }
  EXPECT_EQ(known, map().size());
}

/// Builds, reads and erases a message of the ids 0 to `count` - 1.
void useAllFields(std::uint8_t code, std::uint32_t count) {
  const auto message = MD_Message::createFromPB(code);
  Ids ids;
  for (std::uint32_t id = 0; id < count; ++id) {
    ASSERT_TRUE(message->add(static_cast<std::uint16_t>(id), static_cast<std::int32_t>(id) + 70000)) << id;
    ids.push_back(static_cast<std::uint16_t>(id));
  }
  EXPECT_EQ(message->fieldCount(), count);
  const auto received = parse(code, bytesOf(*message));
  const auto copy = received->clone();
  for (std::uint32_t id = 0; id < count; ++id) {
    std::int32_t value = 0;
    ASSERT_TRUE(copy->get(static_cast<std::uint16_t>(id), value)) << id;
    ASSERT_EQ(value, static_cast<std::int32_t>(id) + 70000);
  }
  EXPECT_EQ(idsOf(*copy), ids);
  EXPECT_TRUE(copy->eraseArrayImpl(ids));
  EXPECT_EQ(copy->fieldCount(), 0u);
  EXPECT_TRUE(received->eraseImpl(0));
  EXPECT_EQ(received->fieldCount(), count - 1);
}

class DictionaryAbuse : public testing::Test {
 protected:
  ConfigurationFolder m_folder;
};

// Size ----------------------------------------------------------------------------------------------------------------

TEST_F(DictionaryAbuse, MessagesHoldEveryFieldOfTheLargest) {
  loadDictionary(fields(0, kMostFields));
  expectConsistent();
  for (const auto& [code, name] : ENCODINGS::kAll) {
    SCOPED_TRACE(name);
    useAllFields(code, kMostFields);
  }
}

TEST_F(DictionaryAbuse, TheLargestIdHasAPlace) {
  loadDictionary(fields(1, kMostFields));
  expectConsistent();
  for (const auto& [code, name] : ENCODINGS::kAll) {
    SCOPED_TRACE(name);
    const auto message = MD_Message::createFromPB(code);
    EXPECT_FALSE(message->existsImpl(0));
    EXPECT_TRUE(message->add(65535, 70000));
    EXPECT_TRUE(message->update(65535, 5));
    EXPECT_EQ(idsOf(*parse(code, bytesOf(*message))), Ids{65535});
  }
}

TEST_F(DictionaryAbuse, SixtyThousandLinesOfTextAndOfXmlAreOneDictionary) {
  constexpr std::uint32_t kLines = 60'000;
  ConfigurationFolder::write("fields.txt", fields(0, kLines));
  std::string entries;
  for (std::uint32_t id = 0; id < kLines; ++id) {
    entries += xmlEntry("F" + std::to_string(id), std::to_string(id), "INT");
  }
  ConfigurationFolder::write("fields.xml", xmlDefinitions(entries));
  for (const bool isXml : {false, true}) {
    isXml ? MD_FieldMap::reload_xml("fields.xml") : MD_FieldMap::reload_text("fields.txt");
    EXPECT_EQ(map().size(), kLines);
    EXPECT_EQ(map().compactCount(), kLines);
    EXPECT_EQ(map().nameToId("F59999"), 59'999);
    expectConsistent();
  }
}

struct HugeFile {
  const char* name;
  const char* start;
  const char* filling;
  const char* end;
  void (*load)();
  const char* error;
  const char* row;  ///< the name of the one field loaded; empty for none
};

void PrintTo(const HugeFile& row, std::ostream* out) { *out << row.name; }

constexpr std::size_t kHugeBytes = 100'000'000;
constexpr const char* kXmlStart = "<?xml version=\"1.0\"?><D><FieldDefinition>";
constexpr const char* kXmlEnd = "<Entry><Name>A</Name><Code>1</Code><Type>INT</Type></Entry></FieldDefinition></D>";

void loadHugeText() { MD_FieldMap::reload_text("huge"); }
void loadHugeXml() { MD_FieldMap::reload_xml("huge"); }

const HugeFile kHugeFiles[] = {
    {"TextOfBlanks", "", "\n \t \n", "A 1 INT\n", &loadHugeText, "", "A"},
    {"TextOfOneToken", "", "ABCDEFGH", " 1 INT B 2 INT\n", &loadHugeText, "", "ABCDEFGH"},
    {"XmlOfBlanks", kXmlStart, "  \n", kXmlEnd, &loadHugeXml, "", "A"},
    {"XmlOfEmptyElements", kXmlStart, "<a/>", kXmlEnd, &loadHugeXml,
     "Failed to load field def file: huge: more than 1000000 tags", ""},
    {"XmlOfAttributes", "<D ", "a='' ", "></D>", &loadHugeXml,
     "Failed to load field def file: huge: an element of more than 100 attributes", ""},
    {"XmlOfZeros", "", nullptr, "", &loadHugeXml, "Failed to load field def file: huge", ""},
};

void writeHuge(const HugeFile& file) {
  std::string block = file.filling != nullptr ? std::string() : std::string(1'000'000, '\0');
  while (block.size() < 1'000'000) {
    block += file.filling;
  }
  std::ofstream out("huge", std::ios::binary);
  out << file.start;
  for (std::size_t written = 0; written < kHugeBytes; written += block.size()) {
    out << block;
  }
  out << file.end;
}

class HugeDefinitionFilesDeathTest : public testing::TestWithParam<HugeFile> {
 protected:
  static void load() {
    const ConfigurationFolder folder;
    writeHuge(GetParam());
    EXPECT_EQ(errorOf(GetParam().load), GetParam().error);
    const std::string row = GetParam().row;
    EXPECT_EQ(map().findById(1) != map().end(), !row.empty());
    if (!row.empty()) {
      EXPECT_EQ(map().idToName(1).substr(0, 8), row);
    }
#if defined(MD_MEMORY_IS_MEASURED)
    rusage usage;
    ASSERT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
    EXPECT_LT(static_cast<std::size_t>(usage.ru_maxrss) * 1024, 5 * kHugeBytes);
#endif
  }
};

// Each in a process of its own, whose memory is measured.
TEST_P(HugeDefinitionFilesDeathTest, TakeMemoryInProportion) { expectInFreshProcess(&load); }

INSTANTIATE_TEST_SUITE_P(Each, HugeDefinitionFilesDeathTest, testing::ValuesIn(kHugeFiles),
                         [](const auto& row) { return row.param.name; });

// Garbage -------------------------------------------------------------------------------------------------------------

void reloadAnyText() { MD_FieldMap::reload_text("any"); }
void reloadAnyXml() { MD_FieldMap::reload_xml("any"); }

/// Loads `text`. Whatever comes of it, the dictionary is one that can be used.
void loadAnyhow(const std::string& text, void (*load)()) {
  ConfigurationFolder::write("any", text);
  const std::string error = errorOf(load);
  if (!error.empty()) {
    EXPECT_EQ(error.find("Failed to load field def file: any"), 0u) << error;
    EXPECT_FALSE(map().findById(1) != map().end());
    return;
  }
  for (const FIELDS::field_rec& row : map()) {
    ASSERT_TRUE(map().findById(row.id) != map().end());
    ASSERT_EQ(map().idToType(row.id), row.type);
  }
}

TEST_F(DictionaryAbuse, BinaryGarbageIsRefusedOrPassedOver) {
  std::mt19937 random(5);
  for (int round = 0; round < 140; ++round) {
    SCOPED_TRACE(round);
    std::string garbage(random() % 3000, '\0');
    for (char& c : garbage) {
      c = static_cast<char>(random());
    }
    const char* starts[] = {"",    "<?xml version=\"1.0\"?>", "\xEF\xBB\xBF<D>", "\xFF\xFE", "A 1 INT\n", kXmlStart,
                            "<!--"};
    loadAnyhow(starts[round % 7] + garbage, &reloadAnyText);
    loadAnyhow(starts[round % 7] + garbage, &reloadAnyXml);
  }
}

TEST_F(DictionaryAbuse, ChangedBytesOfAnXmlFileAreRefusedOrPassedOver) {
  const std::string whole = xmlDefinitions("<!-- c --><?p?><![CDATA[x]]>" + xmlEntry("A&amp;B", "1", "INT") +
                                           xmlEntry("C&#65;&#x41;", "2", "STRING") + "<Other a=\"1\" b='2'/>");
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const char c : {'\0', '<', '&', '"'}) {
      std::string changed = whole;
      changed[at] = c;
      loadAnyhow(changed, &reloadAnyXml);
    }
    loadAnyhow(whole.substr(0, at), &reloadAnyXml);
  }
}

// Entities ------------------------------------------------------------------------------------------------------------

struct EntityCase {
  const char* name;
  std::string text;
  std::string field;  ///< the name it becomes
};

TEST_F(DictionaryAbuse, EntitiesStandForOneCharacterAtMost) {
  std::string bomb = "<!DOCTYPE D [<!ENTITY a0 \"lol\">";
  for (int i = 1; i < 10; ++i) {
    const std::string before = "&a" + std::to_string(i - 1) + ";";
    bomb += "<!ENTITY a" + std::to_string(i) + " \"" + repeated(before, 10) + "\">";
  }
  ConfigurationFolder::write("secret", "secret");
  const EntityCase kCases[] = {
      {"Predefined", "A&amp;B&lt;&gt;&quot;&apos;", "A&B<>\"'"},
      {"Numbers", "&#65;&#x42;&#x20AC;", "AB\xE2\x82\xAC"},
      {"Unknown", "A&nbsp;B", "Anbsp;B"},
      {"Unfinished", "A&amp", "Aamp"},
      {"Alone", "A & B", "A  B"},
      {"Nested", "&amp;lt;", "&lt;"},
  };
  for (const EntityCase& row : kCases) {
    SCOPED_TRACE(row.name);
    ConfigurationFolder::write("fields.xml", xmlDefinitions(xmlEntry(row.text, "1", "INT")));
    MD_FieldMap::reload_xml("fields.xml");
    ASSERT_EQ(map().size(), 1u);
    EXPECT_EQ(map().idToName(1), row.field);
  }
  // Declared ones are not followed, neither into files nor into ever longer texts.
  const std::string kHostile[] = {
      bomb + "]>" + xmlDefinitions(xmlEntry("&a9;", "1", "INT")),
      "<!DOCTYPE D [<!ENTITY s SYSTEM \"secret\">]>" + xmlDefinitions(xmlEntry("&s;", "1", "INT")),
      "<!DOCTYPE D SYSTEM \"secret\">" + xmlDefinitions(xmlEntry("&s;", "1", "INT")),
  };
  for (const std::string& text : kHostile) {
    ConfigurationFolder::write("fields.xml", text);
    errorOf([] { MD_FieldMap::reload_xml("fields.xml"); });
    for (const FIELDS::field_rec& row : map()) {
      EXPECT_EQ(row.name.find("lol"), std::string::npos);
      EXPECT_EQ(row.name.find("secret"), std::string::npos);
      EXPECT_LT(row.name.size(), 10u);
    }
  }
}

// Bounds --------------------------------------------------------------------------------------------------------------

struct BoundCase {
  const char* name;
  std::string text;
  const char* excess;  ///< empty: none
};

TEST_F(DictionaryAbuse, XmlBoundsAreExact) {
  const auto attributes = [](int count) {
    std::string text = "<Other";
    for (int i = 0; i < count; ++i) {
      text += " a" + std::to_string(i) + "='='";
    }
    return text + "/>";
  };
  // Eight tags belong to the file around them; a declaration is one as well.
  const std::string entry = xmlEntry("A", "1", "INT");
  const BoundCase kCases[] = {
      {"Nesting", repeated("<A>", 98) + repeated("</A>", 98) + entry, ""},
      {"NestingOfEmptyElements", repeated("<A>", 97) + "<B/><C a='b'/>" + repeated("</A>", 97) + entry, ""},
      {"NestingInACommentAndCData",
       "<!--" + repeated("<A>", 200) + "--><B><![CDATA[" + repeated("<A>", 200) + "]]></B>" + entry, ""},
      {"TooMuchNesting", repeated("<A>", 99) + repeated("</A>", 99) + entry, ": elements nested deeper than 100"},
      {"Attributes", attributes(100) + entry, ""},
      {"TooManyAttributes", attributes(101) + entry, ": an element of more than 100 attributes"},
      {"AttributesOfTwoElements", attributes(60) + attributes(60) + entry, ""},
      {"Tags", repeated("<A/>", 1'000'000 - 13) + entry, ""},
      {"TooManyTags", repeated("<A/>", 1'000'000 - 12) + entry, ": more than 1000000 tags"},
  };
  for (const BoundCase& row : kCases) {
    SCOPED_TRACE(row.name);
    ConfigurationFolder::write("fields.xml", xmlDefinitions(row.text));
    const std::string error = errorOf([] { MD_FieldMap::reload_xml("fields.xml"); });
    EXPECT_EQ(error, *row.excess != '\0' ? "Failed to load field def file: fields.xml" + std::string(row.excess) : "");
    EXPECT_EQ(map().findById(1) != map().end(), *row.excess == '\0');
  }
}

// Streams -------------------------------------------------------------------------------------------------------------

/// Gives a text, and then fails as a disk does.
class FailingBuffer : public std::stringbuf {
 public:
  explicit FailingBuffer(const std::string& text) : std::stringbuf(text) {}

 private:
  int_type underflow() override {
    const int_type next = std::stringbuf::underflow();
    if (next == traits_type::eof()) {
      throw std::runtime_error("the disk is gone");
    }
    return next;
  }
};

TEST_F(DictionaryAbuse, AStreamThatFailsEndsTheText) {
  FailingBuffer buffer("A 1 INT\nB 2 CHAR\n");
  std::istream text(&buffer);
  MD_FieldMap::reload_text(text, "fields");
  EXPECT_EQ(map().size(), 2u);
  EXPECT_EQ(map().nameToId("B"), 2);
  EXPECT_TRUE(text.bad());
  EXPECT_EQ(text.exceptions(), std::ios_base::goodbit);
}

TEST_F(DictionaryAbuse, AStreamThatThrowsGoesOnThrowing) {
  FailingBuffer buffer("A 1 INT\n");
  std::istream text(&buffer);
  text.exceptions(std::ios_base::badbit);
  EXPECT_EQ(errorOf([&] { MD_FieldMap::reload_text(text, "fields"); }), "the disk is gone");
  EXPECT_EQ(text.exceptions(), std::ios_base::badbit);
  EXPECT_FALSE(map().findById(1) != map().end());
}

TEST_F(DictionaryAbuse, AStreamThatIsBadHoldsNoFields) {
  std::istringstream text("A 1 INT\n");
  text.setstate(std::ios_base::badbit);
  MD_FieldMap::reload_text(text, "fields");
  EXPECT_EQ(map().size(), 0u);
  EXPECT_TRUE(text.bad());
}

// Reloads -------------------------------------------------------------------------------------------------------------

/// Does everything that can be done with any of the ids. The results depend on what the dictionary was when.
void useAnyhow(MD_Message& message, const Ids& ids) {
  const RecordedAssertions assertions;
  const auto other = message.createEmpty();
  other->copyMsg(message);
  for (const std::uint16_t id : ids) {
    std::int32_t value = 0;
    static_cast<void>(message.get(id, value));
    message.existsImpl(id);
    message.add(id, 70000);
    message.update(id, 5);
    std::uint8_t type = 0;
    std::uint32_t sizeBytes = 0;
    message.fieldData(id, type, sizeBytes);
  }
  const auto copy = message.clone();
  EXPECT_EQ(bytesOf(*copy), bytesOf(message));
  EXPECT_EQ(copy->fieldCount(), message.fieldCount());
  std::ostringstream text;
  text << message;
  for (std::size_t i = 0; i < ids.size(); i += 2) {
    message.eraseImpl(ids[i]);
  }
  message.eraseArrayImpl(ids);
  other->swap(message);
}

// Tables stay in pools, and messages alive, from before a reload: no index is ever out of range.
TEST_F(DictionaryAbuse, ReloadsOfAnySizeLeaveMessagesAndPoolsUsable) {
  const std::uint32_t kSizes[] = {0, 1, 100, 5, kMostFields, 3, 1000, 0, 65'000, 10};
  const Ids ids = {0, 1, 2, 3, 4, 5, 9, 10, 50, 99, 100, 500, 999, 1000, 64'999, 65'000, 65'533, 65'534, 65'535};
  std::ostringstream errors;
  std::streambuf* const previous = std::cerr.rdbuf(errors.rdbuf());
  const MD_Message::Allocator pools(std::make_shared<ReusableContainer<MsgData>>(),
                                    std::make_shared<ReusableContainer<Optimizer>>());
  std::vector<std::unique_ptr<MD_Message>> alive;
  for (const std::uint32_t size : kSizes) {
    loadDictionary(fields(0, size));
    for (auto& message : alive) {
      useAnyhow(*message, ids);
    }
    for (const auto& [code, name] : ENCODINGS::kAll) {
      const Bytes empty = bytesOf(*MD_Message::createFromPB(code));
      for (const auto& allocator : {pools, MD_Message::DEFAULT_ALLOCATOR}) {
        auto message = MD_Message::createFromBytes(empty.data(), static_cast<std::uint32_t>(empty.size()), allocator);
        EXPECT_EQ(message->fieldCount(), 0u);
        for (const std::uint16_t id : ids) {
          EXPECT_EQ(message->add(id, 70000), id < size);
        }
        const Bytes bytes = bytesOf(*message);
        EXPECT_EQ(parse(code, bytes)->fieldCount(), message->fieldCount());
        for (auto& old : alive) {
          old->setBinaryImpl(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        }
        alive.push_back(std::move(message));
      }
    }
    alive.erase(alive.begin(), alive.begin() + static_cast<std::ptrdiff_t>(alive.size() / 2));
  }
  alive.clear();
  std::cerr.rdbuf(previous);
  loadDictionary(fields(0, 10));
  for (const auto& [code, name] : ENCODINGS::kAll) {
    useAllFields(code, 10);
  }
}

// destroy() -----------------------------------------------------------------------------------------------------------

TEST(DictionaryAbuseDeathTest, AfterItsEndMessagesAreLikeThoseOfAnEmptyOne) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    ConfigurationFolder::write("field_map.txt", fields(0, 100));
    const Ids ids = {0, 5, 99, 100, 65535};
    std::vector<std::unique_ptr<MD_Message>> alive;
    for (const auto& [code, name] : ENCODINGS::kAll) {
      alive.push_back(MD_Message::createFromPB(code));
      EXPECT_TRUE(alive.back()->add(5, 70000));
      EXPECT_TRUE(alive.back()->add(99, 70000));
    }
    MD_FieldMap::destroy();
    std::ostringstream errors;
    std::streambuf* const previous = std::cerr.rdbuf(errors.rdbuf());
    for (auto& message : alive) {
      useAnyhow(*message, ids);
      const auto fresh = message->createEmpty();
      EXPECT_FALSE(fresh->add(5, 70000));
      useAnyhow(*fresh, ids);
    }
    EXPECT_EQ(map().size(), 0u);
    // What a load creates then is not seen by instance().
    std::istringstream text(fields(0, 10));
    MD_FieldMap::reload_text(text, "fields");
    for (auto& message : alive) {
      EXPECT_FALSE(message->add(5, 70000));
    }
    MD_FieldMap::destroy();
    std::cerr.rdbuf(previous);
    EXPECT_EQ(map().size(), 0u);
  });
}

}  // namespace
}  // namespace MD::test
