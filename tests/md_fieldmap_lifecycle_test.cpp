// What happens to the dictionary once a process. Each test's body runs in a process of its own.
#include "md/md_fieldmap.h"

#include <cstdint>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_mint.h"
#include "md/md_optimizer.h"
#include "md/md_peek.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/threads.h"

namespace MD {
namespace {

using test::ConfigurationFolder;
using test::expectInFreshProcess;
using test::inThreads;
using test::xmlDefinitions;
using test::xmlEntry;

constexpr std::size_t kThreads = 16;

void expectEmpty(const MD_FieldMap& map) {
  EXPECT_EQ(map.size(), 0u);
  EXPECT_TRUE(map.begin() == map.end());
  EXPECT_TRUE(map.findById(0) == map.end());
  EXPECT_TRUE(map.findById(1) == map.end());
  EXPECT_TRUE(map.findById(65535) == map.end());
  EXPECT_TRUE(map.findByCompact(0) == map.end());
  EXPECT_TRUE(map.findByName("A") == map.end());
  EXPECT_THROW(map.idToType(1), std::domain_error);
  EXPECT_THROW(map.idToName(1), std::domain_error);
  EXPECT_THROW(map.nameToId("A"), std::domain_error);
  EXPECT_THROW(map.nameToType("A"), std::domain_error);
  EXPECT_FALSE(map.packed(1).isKnown());
}

/// Expects the row A, a field with the id 1, and no other.
void expectOnlyA(const MD_FieldMap& map) {
  ASSERT_EQ(map.size(), 1u);
  EXPECT_EQ(map.begin()->name, "A");
  EXPECT_EQ(map.nameToId("A"), 1);
}

// instance() ----------------------------------------------------------------------------------------------------------

TEST(DictionaryDeathTest, IsLoadedOnFirstUseFromTheSearchPath) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    expectOnlyA(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, IsEmptyWhenThereIsNoDefinitionFile) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    expectEmpty(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, IsLoadedOnce) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    const MD_FieldMap* const first = &MD_FieldMap::instance();
    folder.write("field_map.txt", "B 2 INT\n");
    EXPECT_EQ(&MD_FieldMap::instance(), first);
    expectOnlyA(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, IsCreatedByTheFirstFieldTableOrMessage) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    Optimizer table;
    EXPECT_TRUE(table.set(1, 5));
    EXPECT_EQ(MD_FieldMap::load_file("missing.xml"), -1);
  });
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    mInt message;
    EXPECT_TRUE(message.add(1, 5));
    EXPECT_EQ(MD_FieldMap::load_file("missing.xml"), -1);
  });
}

TEST(DictionaryDeathTest, IsOneForAllThreadsThatAskAtOnce) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    std::vector<const MD_FieldMap*> seen(kThreads);
    std::vector<std::size_t> sizes(kThreads);
    inThreads(kThreads, [&](std::size_t thread) {
      seen[thread] = &MD_FieldMap::instance();
      sizes[thread] = seen[thread]->size();
    });
    EXPECT_EQ(seen, std::vector<const MD_FieldMap*>(kThreads, &MD_FieldMap::instance()));
    EXPECT_EQ(sizes, std::vector<std::size_t>(kThreads, 1));
  });
}

// Whatever needs it first makes it: lookups, field tables, messages of each encoding, received bytes.
TEST(DictionaryDeathTest, IsMadeOnceByAnyFirstUseInManyThreads) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    std::string text = "A 1 INT\n";
    for (int id = 2; id <= 5000; ++id) {
      text += "F" + std::to_string(id) + " " + std::to_string(id) + " INT\n";
    }
    folder.write("field_map.txt", text);
    std::atomic<int> wrong{0};
    inThreads(kThreads, [&](std::size_t thread) {
      const auto fill = [](MD_Message& message) { return message.add(5000, 5) && message.fieldCount() == 1; };
      const std::uint8_t bytes[] = {6, 0x88, 0x13, 1, 5};
      bool isRight = false;
      switch (thread % 6) {
        case 0:
          isRight = MD_FieldMap::instance().size() == 5000 && MD_FieldMap::instance().nameToId("F5000") == 5000;
          break;
        case 1:
          isRight = Optimizer().set(5000, 5);
          break;
        case 2:
          isRight = MD_Message::createFromBytes(bytes, sizeof bytes)->existsImpl(5000);
          break;
        default:
          isRight = fill(*MD_Message::createFromPB(thread % 6 == 3 ? 1 : thread % 6 == 4 ? 6 : 70));
          break;
      }
      wrong += isRight ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0);
  });
}

TEST(DictionaryDeathTest, IsLoadedByOneOfManyThreadsThatLoadAFile) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("fields.xml", xmlDefinitions(xmlEntry("A", "1", "INT")));
    std::atomic<int> loaded{0};
    std::atomic<int> refused{0};
    std::atomic<int> wrong{0};
    inThreads(kThreads, [&](std::size_t thread) {
      if (thread % 2 == 0) {
        const int result = MD_FieldMap::load_file("fields.xml");
        loaded += result == 0 ? 1 : 0;
        refused += result == -1 ? 1 : 0;
      }
      // A thread that is too early for the file finds none on the configuration search path.
      const std::size_t size = MD_FieldMap::instance().size();
      wrong += size <= 1 ? 0 : 1;
    });
    EXPECT_LE(loaded, 1);
    EXPECT_EQ(loaded + refused, 8);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(MD_FieldMap::instance().size(), static_cast<std::size_t>(loaded));
  });
}

TEST(DictionaryDeathTest, AFailedDefaultLoadThrowsOnceAndLeavesAnEmptyDictionary) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("FieldDefinition.xml", "<Any><FieldDefinition>");
    std::string error;
    try {
      MD_FieldMap::instance();
    } catch (const std::runtime_error& failure) {
      error = failure.what();
    }
    EXPECT_EQ(error, "Failed to load field def file: ./FieldDefinition.xml");
    EXPECT_EQ(MD_FieldMap::load_file("missing.xml"), -1) << "it stays created";
    expectEmpty(MD_FieldMap::instance());
    test::loadDictionary("A 1 INT\n");
    expectOnlyA(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, AFailedDefaultLoadNamesATextFileToo) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.makeFolder("message/field_map.txt");
    std::string error;
    try {
      const mInt message;
    } catch (const std::runtime_error& failure) {
      error = failure.what();
    }
    EXPECT_EQ(error, "Unable to open file: ./message/field_map.txt");
    const mInt message;
    EXPECT_EQ(message.getSizeImpl(), 1u);
    expectEmpty(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, APeekFindsNothingWhenTheDefaultLoadFails) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("FieldDefinition.xml", "<Any><FieldDefinition>");
    const std::uint8_t bytes[] = {6, 0x01, 0x00, 0x01, 0x05};
    std::int32_t value = 7;
    EXPECT_FALSE(peek(bytes, sizeof bytes, 1, value));
    EXPECT_EQ(value, 7);
    test::loadDictionary("A 1 INT\n");
    EXPECT_TRUE(peek(bytes, sizeof bytes, 1, value));
    EXPECT_EQ(value, 5);
  });
}

// Reloads before anything else ----------------------------------------------------------------------------------------

TEST(DictionaryDeathTest, AFirstReloadCreatesIt) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "B 2 INT\n");
    folder.write("fields.txt", "A 1 INT\n");
    MD_FieldMap::reload_text("fields.txt");
    expectOnlyA(MD_FieldMap::instance());
    EXPECT_EQ(MD_FieldMap::load_file("missing.xml"), -1);
  });
}

TEST(DictionaryDeathTest, AFirstReloadRunsTheDefaultLoadBeforeItsOwn) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.makeFolder("field_map.txt");
    folder.write("fields.txt", "A 1 INT\n");
    std::string error;
    try {
      MD_FieldMap::reload_text("fields.txt");
    } catch (const std::runtime_error& failure) {
      error = failure.what();
    }
    EXPECT_EQ(error, "Unable to open file: ./field_map.txt");
    MD_FieldMap::reload_text("fields.txt");
    expectOnlyA(MD_FieldMap::instance());
  });
}

// load_file() ---------------------------------------------------------------------------------------------------------

TEST(DictionaryDeathTest, LoadFileCreatesItFromAnXmlFile) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "B 2 INT\n");
    folder.write("fields.xml", xmlDefinitions(xmlEntry("A", "1", "INT")));
    EXPECT_EQ(MD_FieldMap::load_file("fields.xml"), 0);
    expectOnlyA(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, LoadFileOfAnEmptyPathCreatesAnEmptyOne) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "B 2 INT\n");
    EXPECT_EQ(MD_FieldMap::load_file(""), 0);
    expectEmpty(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, LoadFileRefusesASecondDictionary) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    folder.write("fields.xml", xmlDefinitions(xmlEntry("B", "2", "INT")));
    MD_FieldMap::instance();
    EXPECT_EQ(MD_FieldMap::load_file("fields.xml"), -1);
    EXPECT_EQ(MD_FieldMap::load_file("missing.xml"), -1);
    expectOnlyA(MD_FieldMap::instance());
  });
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("one.xml", xmlDefinitions(xmlEntry("A", "1", "INT")));
    folder.write("two.xml", xmlDefinitions(xmlEntry("B", "2", "INT")));
    EXPECT_EQ(MD_FieldMap::load_file("one.xml"), 0);
    EXPECT_EQ(MD_FieldMap::load_file("two.xml"), -1);
    expectOnlyA(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, LoadFileOfAMissingFileLeavesAnEmptyOne) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "B 2 INT\n");
    EXPECT_EQ(MD_FieldMap::load_file("missing.xml"), -2);
    expectEmpty(MD_FieldMap::instance());
    folder.write("fields.xml", xmlDefinitions(xmlEntry("A", "1", "INT")));
    EXPECT_EQ(MD_FieldMap::load_file("fields.xml"), -1) << "it stays created";
    MD_FieldMap::reload_xml("fields.xml");
    expectOnlyA(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, LoadFileTellsEveryFailureByItsResult) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.makeFolder("folder");
    EXPECT_EQ(MD_FieldMap::load_file("folder"), -2);
    expectEmpty(MD_FieldMap::instance());
  });
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("text.xml", "A 1 INT\n");
    EXPECT_EQ(MD_FieldMap::load_file("text.xml"), -2);
    expectEmpty(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, LoadFileOfTooManyEntriesLeavesRowsThatNoLookUpFinds) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    std::string entries;
    for (std::uint32_t i = 0; i < 65'536; ++i) {
      entries += xmlEntry("A", std::to_string(i), "INT");
    }
    folder.write("fields.xml", xmlDefinitions(entries));
    EXPECT_EQ(MD_FieldMap::load_file("fields.xml"), -2);
    const MD_FieldMap& map = MD_FieldMap::instance();
    EXPECT_EQ(map.size(), 65'535u);
    EXPECT_TRUE(map.findById(1) == map.end());
    EXPECT_TRUE(map.findByCompact(1) == map.end());
    EXPECT_TRUE(map.findByName("A") == map.end());
    EXPECT_THROW(map.nameToId("A"), std::domain_error);
  });
}

// destroy() -----------------------------------------------------------------------------------------------------------

TEST(DictionaryDeathTest, DestroyedItIsAnEmptyOne) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    const MD_FieldMap& map = MD_FieldMap::instance();
    expectOnlyA(map);
    MD_FieldMap::destroy();
    EXPECT_EQ(&MD_FieldMap::instance(), &map);
    expectEmpty(map);
    MD_FieldMap::destroy();
    expectEmpty(map);
  });
}

TEST(DictionaryDeathTest, DestroyingWhatIsNotThereDoesNothing) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    MD_FieldMap::destroy();
    expectOnlyA(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, OneCreatedAfterDestroyIsNotSeenByInstance) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("fields.txt", "A 1 INT\n");
    folder.write("fields.xml", xmlDefinitions(xmlEntry("A", "1", "INT")));
    const MD_FieldMap& map = MD_FieldMap::instance();

    MD_FieldMap::destroy();
    EXPECT_EQ(MD_FieldMap::load_file("fields.xml"), 0);
    EXPECT_EQ(MD_FieldMap::load_file("fields.xml"), -1);
    EXPECT_EQ(&MD_FieldMap::instance(), &map);
    expectEmpty(map);

    MD_FieldMap::destroy();
    MD_FieldMap::reload_text("fields.txt");
    EXPECT_EQ(MD_FieldMap::load_file("fields.xml"), -1);
    EXPECT_EQ(&MD_FieldMap::instance(), &map);
    expectEmpty(map);

    MD_FieldMap::reload("fields.xml");
    MD_FieldMap::reload_xml("fields.xml");
    expectEmpty(map);
    MD_FieldMap::destroy();
    expectEmpty(map);
  });
}

TEST(DictionaryDeathTest, DestroyedBeforeInstanceWasAskedItIsCreatedAnew) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\n");
    folder.write("fields.xml", xmlDefinitions(xmlEntry("B", "2", "INT")));
    EXPECT_EQ(MD_FieldMap::load_file("fields.xml"), 0);
    MD_FieldMap::destroy();
    expectOnlyA(MD_FieldMap::instance());
  });
}

TEST(DictionaryDeathTest, MessagesOutliveIt) {
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    folder.write("field_map.txt", "A 1 INT\nB 2 STRING\n");
    mInt message;
    EXPECT_TRUE(message.add(1, 5));
    EXPECT_TRUE(message.add(2, "text"));
    static mInt endsWithTheProcess;
    EXPECT_TRUE(endsWithTheProcess.add(1, 5));
    MD_FieldMap::destroy();
    int value = 7;
    EXPECT_FALSE(message.get(1, value));
    EXPECT_EQ(value, 7);
    EXPECT_FALSE(message.existsImpl(1));
    EXPECT_EQ(message.clone()->getSizeImpl(), message.getSizeImpl());
    message.clearImpl();
    EXPECT_EQ(message.getSizeImpl(), 1u);
  });
}

}  // namespace
}  // namespace MD
