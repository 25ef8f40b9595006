// The memory that messages take when the dictionary is large.
#include <cstddef>
#include <cstdint>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_mint.h"
#include "md/md_reusable_container.h"
#include "support/dictionary.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define MD_MEMORY_OF_A_SANITIZER
#endif
#endif
#if defined(__linux__) && !defined(MD_MEMORY_OF_A_SANITIZER) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)
#define MD_MEMORY_IS_MEASURED
#endif

namespace MD::test {
namespace {

constexpr std::uint16_t kFields = 20'070;

std::size_t linesOf(const char* path) {
  std::ifstream file(path);
  std::size_t lines = 0;
  for (std::string line; std::getline(file, line);) {
    ++lines;
  }
  return lines;
}

/// What of the process is in memory, in whole pages.
std::size_t residentBytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) {
      return std::stoul(line.substr(6)) * 1024;
    }
  }
  return 0;
}

using Table = ReusableContainerWrapper<Optimizer>;

/// INT fields with the ids from 1 to `count`.
void loadFields(std::uint32_t count) {
  std::string text;
  for (std::uint32_t id = 1; id <= count; ++id) {
    text += "F" + std::to_string(id) + " " + std::to_string(id) + " INT\n";
  }
  loadDictionary(text);
}

class TableMemory : public testing::Test {
 protected:
  TableMemory() { loadFields(kFields); }

  void SetUp() override {
#if !defined(MD_MEMORY_IS_MEASURED)
    GTEST_SKIP() << "memory is measured under Linux, without sanitizers";
#endif
  }

  /// What each of `count` messages takes that `fill` has filled.
  template <class Fill>
  static std::size_t bytesForEach(std::size_t count, Fill fill) {
    std::vector<std::unique_ptr<mInt>> messages(count);
    const std::size_t before = residentBytes();
    for (auto& message : messages) {
      message = std::make_unique<mInt>();
      fill(*message);
    }
    return (residentBytes() - before) / count;
  }
};

// Wherever the three fields are in the dictionary.
TEST_F(TableMemory, OfAMessageOfThreeFieldsIsAtMost16KiB) {
  EXPECT_LE(bytesForEach(1000,
                         [](mInt& message) {
                           message.add(1, 5);
                           message.add(kFields / 2, 5);
                           message.add(kFields, 5);
                         }),
            16'384U);
}

TEST_F(TableMemory, OfAMessageOfNeighbouringFieldsIsAPageMoreThanItsBytes) {
  EXPECT_LE(bytesForEach(1000,
                         [](mInt& message) {
                           message.add(3, 5);
                           message.add(4, 5);
                           message.add(5, 5);
                         }),
            7'000U);
}

TEST_F(TableMemory, OfATableIsGivenBackWhenItHasBeenClearedOftenEnough) {
  constexpr int kMostClears = 1'048'576;
  const auto pool = std::make_shared<ReusableContainer<Optimizer>>();
  std::vector<std::unique_ptr<Table>> tables;
  for (int i = 0; i < 100; ++i) {
    tables.push_back(std::make_unique<Table>(true, pool));
  }
  const std::size_t before = residentBytes();
  for (const auto& table : tables) {
    for (std::uint16_t id = 1; id <= kFields; ++id) {
      (*table)->set(id, id);
    }
  }
  EXPECT_GE(residentBytes(), before + 100 * sizeof(std::uint64_t) * kFields);
  for (const auto& table : tables) {
    for (int clears = 0; clears < kMostClears; ++clears) {
      (*table)->clear();
    }
    ASSERT_EQ((*table)->get(kFields), 0U);
    ASSERT_TRUE((*table)->set(kFields, 7));
    ASSERT_EQ((*table)->get(kFields), 7U);
    ASSERT_EQ((*table)->get_field_count(), 1U);
  }
  EXPECT_LE(residentBytes(), before + std::size_t{100} * 16'384);
}

/// Tables of one page more than those that are taken from the heap.
std::vector<std::unique_ptr<Table>> manyTables(std::size_t count,
                                               const std::shared_ptr<ReusableContainer<Optimizer>>& pool) {
  loadFields(2'500);
  std::vector<std::unique_ptr<Table>> tables;
  for (std::size_t i = 0; i < count; ++i) {
    tables.push_back(std::make_unique<Table>(true, pool));
  }
  return tables;
}

// A process may have some 65,000 mappings of memory.
TEST_F(TableMemory, OfManyTablesIsOfFewMappings) {
  const std::size_t before = linesOf("/proc/self/maps");
  const auto tables = manyTables(70'000, std::make_shared<ReusableContainer<Optimizer>>());
  EXPECT_LE(linesOf("/proc/self/maps"), before + 100);
  EXPECT_TRUE((*tables.back())->set(2'500, 7));
}

// Every second one ends first, which leaves more gaps than a process may have mappings.
TEST_F(TableMemory, OfManyTablesGoesInAnyOrder) {
  constexpr std::size_t kTables = 140'000;
  const std::size_t before = residentBytes();
  auto pool = std::make_shared<ReusableContainer<Optimizer>>();
  auto tables = manyTables(kTables, pool);
  for (std::size_t i = 0; i < kTables; i += 4) {
    ASSERT_TRUE((*tables[i])->set(1, 7));
  }
  const std::size_t most = residentBytes();
  for (const std::size_t first : {0U, 1U}) {
    for (std::size_t i = first; i < kTables; i += 2) {
      tables[i].reset();
    }
  }
  pool.reset();
  EXPECT_GE(most, before + kTables / 4 * 4096);
  EXPECT_LE(residentBytes(), before + (most - before) / 2);
  Optimizer table;
  EXPECT_TRUE(table.set(2'500, 7));
}

TEST(LargeTables, GrowWithTheDictionaryAndKeepTheirFields) {
  loadFields(3);
  mInt message;
  message.add(1, 70000);
  message.add(3, 5);
  loadFields(60'000);
  message.add(60'000, 9);
  std::int32_t value = 0;
  EXPECT_TRUE(message.get(1, value) && value == 70000);
  EXPECT_TRUE(message.get(3, value) && value == 5);
  EXPECT_TRUE(message.get(60'000, value) && value == 9);
  EXPECT_FALSE(message.existsImpl(2));
  EXPECT_FALSE(message.existsImpl(59'999));
  EXPECT_EQ(message.fieldCount(), 3U);
  const auto copy = message.clone();
  EXPECT_TRUE(copy->get(60'000, value) && value == 9);
}

}  // namespace
}  // namespace MD::test
