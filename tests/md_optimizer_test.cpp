#include "md/md_optimizer.h"

#include <cstdint>

#include <map>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "md/md_reusable_container.h"
#include "support/allocations.h"
#include "support/dictionary.h"

namespace MD {
namespace {

using test::Allocations;
using test::FailingAllocation;
namespace id = test::id;

class OptimizerTest : public testing::Test {
 protected:
  OptimizerTest() { test::loadDictionary(test::kDictionary); }
};

/// INT fields with the ids from 1 to `count`, which get the dense indexes from 0 on.
void loadFields(std::uint16_t count) {
  std::string text;
  for (std::uint32_t i = 1; i <= count; ++i) {
    text += "F" + std::to_string(i) + " " + std::to_string(i) + " INT\n";
  }
  test::loadDictionary(text);
}

TEST_F(OptimizerTest, HasNoFieldsAtFirst) {
  const Optimizer table;
  EXPECT_EQ(table.get_field_count(), 0u);
  for (const auto& row : MD_FieldMap::instance()) {
    EXPECT_EQ(table.get(row.id), 0u) << row.name;
  }
}

TEST_F(OptimizerTest, KeepsOneValueAField) {
  Optimizer table;
  EXPECT_TRUE(table.set(id::kInt, 7));
  EXPECT_TRUE(table.set(id::kChar, 0xFFFF'FFFF'FFFF'FFFF));
  EXPECT_TRUE(table.set(id::kHigh, 1));
  EXPECT_EQ(table.get(id::kInt), 7u);
  EXPECT_EQ(table.get(id::kChar), 0xFFFF'FFFF'FFFF'FFFFu);
  EXPECT_EQ(table.get(id::kHigh), 1u);
  EXPECT_EQ(table.get(id::kInt2), 0u);
  EXPECT_EQ(table.get_field_count(), 3u);
}

TEST_F(OptimizerTest, CountsAFieldThatIsSetTwiceOnce) {
  Optimizer table;
  EXPECT_TRUE(table.set(id::kInt, 7));
  EXPECT_TRUE(table.set(id::kInt, 8));
  EXPECT_EQ(table.get(id::kInt), 8u);
  EXPECT_EQ(table.get_field_count(), 1u);
}

TEST_F(OptimizerTest, SettingZeroIsNotARemoval) {
  Optimizer table;
  EXPECT_TRUE(table.set(id::kInt, 7));
  EXPECT_TRUE(table.set(id::kInt, 0));
  EXPECT_EQ(table.get(id::kInt), 0u);
  EXPECT_EQ(table.get_field_count(), 1u);
}

TEST_F(OptimizerTest, UnknownFieldsHaveNoPlace) {
  struct Row {
    const char* name;
    std::uint16_t id;
  };
  constexpr Row kRows[] = {
      {"Zero", 0},
      {"BelowTheLargest", id::kUnknown},
      {"OneAboveTheLargest", id::kHigh + 1},
      {"FarAboveTheLargest", id::kBeyond},
      {"LargestOfAll", 65535},
  };
  Optimizer table;
  ASSERT_TRUE(table.set(id::kInt, 7));
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    EXPECT_FALSE(table.set(row.id, 5));
    EXPECT_FALSE(table.set(row.id, DATATYPES::INT, 5));
    EXPECT_FALSE(table.set(row.id, DATATYPES::RAW, 5)) << "the type of an unknown field reads as 0";
    EXPECT_EQ(table.get(row.id), 0u);
    table.erase(row.id);
    EXPECT_EQ(table.get_field_count(), 1u);
  }
  EXPECT_EQ(table.get(id::kInt), 7u);
}

TEST_F(OptimizerTest, SetsAFieldOfTheGivenTypeOnly) {
  struct Row {
    const char* name;
    std::uint16_t id;
    std::uint8_t type;
    bool isSet;
  };
  constexpr Row kRows[] = {
      {"RightType", id::kInt, DATATYPES::INT, true},
      {"PriceIsAnInt", id::kOptiPrice, DATATYPES::OPTI_PRICE, true},
      {"IntIsAPrice", id::kOptiPrice, DATATYPES::INT, true},
      {"RawIsATypeToo", id::kRaw, DATATYPES::RAW, true},
      {"WrongType", id::kInt, DATATYPES::INT64, false},
      {"NoType", id::kInt, DATATYPES::RAW, false},
      {"UnusedCode", id::kInt, 15, false},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    Optimizer table;
    EXPECT_EQ(table.set(row.id, row.type, 9), row.isSet);
    EXPECT_EQ(table.get(row.id), row.isSet ? 9u : 0u);
    EXPECT_EQ(table.get_field_count(), row.isSet ? 1u : 0u);
  }
}

TEST_F(OptimizerTest, AWrongTypeLeavesTheValueThatIsThere) {
  Optimizer table;
  ASSERT_TRUE(table.set(id::kInt, DATATYPES::INT, 7));
  EXPECT_FALSE(table.set(id::kInt, DATATYPES::DOUBLE, 8));
  EXPECT_EQ(table.get(id::kInt), 7u);
  EXPECT_EQ(table.get_field_count(), 1u);
}

TEST_F(OptimizerTest, ErasesAFieldOnce) {
  Optimizer table;
  ASSERT_TRUE(table.set(id::kInt, 7));
  ASSERT_TRUE(table.set(id::kChar, 8));
  table.erase(id::kInt);
  EXPECT_EQ(table.get(id::kInt), 0u);
  EXPECT_EQ(table.get_field_count(), 1u);
  table.erase(id::kInt);
  EXPECT_EQ(table.get_field_count(), 1u);
  EXPECT_EQ(table.get(id::kChar), 8u);
}

TEST_F(OptimizerTest, AFieldErasedAndSetAgainCountsOnceAndIsCleared) {
  Optimizer table;
  ASSERT_TRUE(table.set(id::kInt, 7));
  table.erase(id::kInt);
  ASSERT_TRUE(table.set(id::kInt, 8));
  EXPECT_EQ(table.get(id::kInt), 8u);
  EXPECT_EQ(table.get_field_count(), 1u);
  table.clear();
  EXPECT_EQ(table.get(id::kInt), 0u);
  EXPECT_EQ(table.get_field_count(), 0u);
}

TEST_F(OptimizerTest, ClearMakesEveryFieldAbsent) {
  Optimizer table;
  for (const auto& row : MD_FieldMap::instance()) {
    ASSERT_TRUE(table.set(row.id, row.id)) << row.name;
  }
  EXPECT_EQ(table.get_field_count(), MD_FieldMap::instance().size());
  table.erase(id::kInt);
  table.clear();
  EXPECT_EQ(table.get_field_count(), 0u);
  for (const auto& row : MD_FieldMap::instance()) {
    EXPECT_EQ(table.get(row.id), 0u) << row.name;
  }
  table.clear();
  EXPECT_EQ(table.get_field_count(), 0u);
  EXPECT_TRUE(table.set(id::kInt, 3));
  EXPECT_EQ(table.get_field_count(), 1u);
}

TEST_F(OptimizerTest, AssignmentTakesOverTheOthersFieldsAndNoneOfItsOwn) {
  Optimizer source;
  ASSERT_TRUE(source.set(id::kInt, 7));
  ASSERT_TRUE(source.set(id::kChar, 8));
  ASSERT_TRUE(source.set(id::kDouble, 9));
  source.erase(id::kDouble);

  Optimizer target;
  ASSERT_TRUE(target.set(id::kInt, 1));
  ASSERT_TRUE(target.set(id::kDouble, 2));
  ASSERT_TRUE(target.set(id::kString, 3));
  Optimizer& result = target = source;

  EXPECT_EQ(&result, &target);
  EXPECT_EQ(target.get(id::kInt), 7u);
  EXPECT_EQ(target.get(id::kChar), 8u);
  EXPECT_EQ(target.get(id::kDouble), 0u);
  EXPECT_EQ(target.get(id::kString), 0u);
  EXPECT_EQ(target.get_field_count(), 2u);

  target.erase(id::kInt);
  EXPECT_EQ(source.get(id::kInt), 7u) << "the two are independent";
  target.clear();
  EXPECT_EQ(target.get(id::kChar), 0u);
  EXPECT_EQ(target.get_field_count(), 0u);
  EXPECT_EQ(source.get_field_count(), 2u);
}

// Each table has been cleared a number of times, and holds what the first of them left in it.
TEST_F(OptimizerTest, AssignmentJoinsTablesThatWereClearedAsOftenOrMoreOrLess) {
  loadFields(4);
  for (int sourceClears = 0; sourceClears < 4; ++sourceClears) {
    for (int targetClears = 0; targetClears < 4; ++targetClears) {
      SCOPED_TRACE(std::to_string(sourceClears) + " and " + std::to_string(targetClears));
      Optimizer source;
      Optimizer target;
      const auto wear = [](Optimizer& table, int clears) {
        for (int i = 0; i < clears; ++i) {
          if (i == 0) {
            EXPECT_TRUE(table.set(1, 0xFFFF'FFFF));
            EXPECT_TRUE(table.set(3, 1));
            EXPECT_TRUE(table.set(4, 0xFFFF'FFFF'FFFF'FFFF));
          }
          table.clear();
        }
      };
      wear(source, sourceClears);
      wear(target, targetClears);
      ASSERT_TRUE(source.set(2, 0xFFFF'FFFF));
      ASSERT_TRUE(source.set(3, 1));
      ASSERT_TRUE(target.set(1, 5));
      ASSERT_TRUE(target.set(4, 6));
      target = source;
      EXPECT_EQ(target.get(1), 0u);
      EXPECT_EQ(target.get(2), 0xFFFF'FFFFu);
      EXPECT_EQ(target.get(3), 1u);
      EXPECT_EQ(target.get(4), 0u);
      EXPECT_EQ(target.get_field_count(), 2u);
      target.clear();
      for (std::uint16_t i = 1; i <= 4; ++i) {
        EXPECT_EQ(target.get(i), 0u) << i;
      }
    }
  }
}

TEST_F(OptimizerTest, AssignmentToItselfKeepsTheFields) {
  Optimizer table;
  ASSERT_TRUE(table.set(id::kInt, 7));
  const Optimizer& same = table;
  table = same;
  EXPECT_EQ(table.get(id::kInt), 7u);
  EXPECT_EQ(table.get_field_count(), 1u);
}

TEST_F(OptimizerTest, ACopyHasTheFieldsOfTheOriginal) {
  Optimizer source;
  ASSERT_TRUE(source.set(id::kInt, 7));
  Optimizer copy(source);
  EXPECT_EQ(copy.get(id::kInt), 7u);
  EXPECT_EQ(copy.get_field_count(), 1u);
  copy.clear();
  EXPECT_EQ(source.get(id::kInt), 7u);
}

TEST_F(OptimizerTest, HasAPlaceForEachCompactNumberOfAFileThatRepeatsIds) {
  test::loadDictionary(
      "A 10 INT\n"
      "AGAIN 10 INT\n"
      "ONCE_MORE 10 INT\n"
      "B 11 INT\n");
  ASSERT_EQ(MD_FieldMap::instance().size(), 2u);
  ASSERT_EQ(MD_FieldMap::instance().findById(11)->compact, 3);
  Optimizer table;
  EXPECT_TRUE(table.set(11, 7));
  EXPECT_TRUE(table.set(10, 8));
  EXPECT_EQ(table.get(11), 7u);
  EXPECT_EQ(table.get(10), 8u);
  EXPECT_EQ(table.get_field_count(), 2u);
}

TEST_F(OptimizerTest, GrowsWithAReloadedDictionary) {
  loadFields(2);
  Optimizer table;
  loadFields(1000);
  EXPECT_EQ(table.get(1000), 0u);
  table.erase(1000);
  EXPECT_EQ(table.get_field_count(), 0u);
  for (std::uint16_t i = 1; i <= 1000; ++i) {
    ASSERT_TRUE(table.set(i, std::uint64_t{i} + 1)) << i;
  }
  EXPECT_EQ(table.get_field_count(), 1000u);
  for (std::uint16_t i = 1; i <= 1000; ++i) {
    ASSERT_EQ(table.get(i), std::uint64_t{i} + 1) << i;
  }
  table.clear();
  for (std::uint16_t i = 1; i <= 1000; ++i) {
    ASSERT_EQ(table.get(i), 0u) << i;
  }
}

TEST_F(OptimizerTest, FitsADictionaryThatHasGrownByOneField) {
  for (std::uint16_t count = 0; count < 5; ++count) {
    SCOPED_TRACE(count);
    loadFields(count);
    Optimizer table;
    for (std::uint16_t i = 1; i <= count; ++i) {
      ASSERT_TRUE(table.set(i, std::uint64_t{i} + 10));
    }
    const auto last = static_cast<std::uint16_t>(count + 1);
    loadFields(last);
    const FIELDS::packed_rec field = MD_FieldMap::instance().packed(last);
    EXPECT_FALSE(table.hasRoomFor(field));
    table.fitDictionary();
    ASSERT_TRUE(table.hasRoomFor(field));
    EXPECT_TRUE(table.isAbsent(field));
    table.place(field, 7);
    EXPECT_EQ(table.get(last), 7u);
    for (std::uint16_t i = 1; i <= count; ++i) {
      EXPECT_EQ(table.get(i), std::uint64_t{i} + 10) << i;
    }
    EXPECT_EQ(table.get_field_count(), last);
    const long before = Allocations::count;
    table.fitDictionary();
    EXPECT_EQ(Allocations::count, before) << "it fits";
  }
}

TEST_F(OptimizerTest, MadeBeforeTheDictionaryHadAnyFieldItGrowsTheSame) {
  test::loadDictionary("");
  Optimizer table;
  EXPECT_FALSE(table.set(1, 5));
  loadFields(3);
  EXPECT_TRUE(table.set(3, 5));
  EXPECT_EQ(table.get(3), 5u);
  EXPECT_EQ(table.get_field_count(), 1u);
}

TEST_F(OptimizerTest, ServesASmallerDictionaryAfterAClear) {
  loadFields(100);
  Optimizer table;
  ASSERT_TRUE(table.set(100, 5));
  table.clear();
  loadFields(2);
  EXPECT_EQ(table.get(100), 0u);
  EXPECT_FALSE(table.set(100, 5));
  EXPECT_TRUE(table.set(2, 6));
  EXPECT_EQ(table.get(2), 6u);
  EXPECT_EQ(table.get_field_count(), 1u);
}

TEST_F(OptimizerTest, AssignmentJoinsTablesFromBeforeAndAfterAReload) {
  loadFields(2);
  Optimizer older;
  ASSERT_TRUE(older.set(2, 5));
  loadFields(50);
  Optimizer newer;
  ASSERT_TRUE(newer.set(50, 6));

  Optimizer fromNewer(older);
  fromNewer = newer;
  EXPECT_EQ(fromNewer.get(50), 6u);
  EXPECT_EQ(fromNewer.get(2), 0u);
  EXPECT_EQ(fromNewer.get_field_count(), 1u);

  older = newer;
  EXPECT_EQ(older.get(50), 6u);
  EXPECT_EQ(older.get(2), 0u);
  EXPECT_EQ(older.get_field_count(), 1u);

  loadFields(50);
  Optimizer wide;
  ASSERT_TRUE(wide.set(49, 7));
  test::loadDictionary("");
  const Optimizer none;
  loadFields(50);
  wide = none;
  EXPECT_EQ(wide.get(49), 0u);
  EXPECT_EQ(wide.get_field_count(), 0u);
  EXPECT_TRUE(wide.set(50, 8));
}

TEST_F(OptimizerTest, PooledTablesGrowWithAReloadedDictionary) {
  const auto pool = std::make_shared<ReusableContainer<Optimizer>>();
  loadFields(2);
  const Optimizer* lent = nullptr;
  {
    const ReusableContainerWrapper<Optimizer> table(true, pool);
    lent = table.get();
  }
  loadFields(60'000);
  const ReusableContainerWrapper<Optimizer> table(true, pool);
  ASSERT_EQ(table.get(), lent);
  EXPECT_EQ(table->get(60'000), 0u);
  EXPECT_TRUE(table->set(60'000, 5));
  EXPECT_EQ(table->get(60'000), 5u);
}

TEST_F(OptimizerTest, HoldsTheLargestDictionary) {
  loadFields(65'535);
  ASSERT_EQ(MD_FieldMap::instance().findById(65'535)->compact, 65'534);
  Optimizer table;
  for (std::uint32_t i = 1; i <= 65'535; ++i) {
    ASSERT_TRUE(table.set(static_cast<std::uint16_t>(i), i)) << i;
  }
  EXPECT_EQ(table.get_field_count(), 65'535u);
  EXPECT_EQ(table.get(1), 1u);
  EXPECT_EQ(table.get(65'535), 65'535u);
  EXPECT_EQ(table.get(0), 0u);
}

TEST_F(OptimizerTest, SettingAndErasingOverAndOverAllocatesNothing) {
  loadFields(3);
  Optimizer table;
  ASSERT_TRUE(table.set(1, 11));
  const long before = Allocations::count;
  for (std::uint64_t i = 1; i <= 200'000; ++i) {
    table.set(2, i);
    table.erase(2);
    table.set(3, i);
    table.erase(3);
  }
  EXPECT_EQ(Allocations::count, before);
  EXPECT_EQ(table.get(1), 11u);
  EXPECT_EQ(table.get(2), 0u);
  EXPECT_EQ(table.get_field_count(), 1u);
  table.clear();
  EXPECT_EQ(table.get(1), 0u);
}

TEST_F(OptimizerTest, SettingZeroOverAndOverAllocatesNothing) {
  loadFields(3);
  Optimizer table;
  ASSERT_TRUE(table.set(1, 11));
  const long before = Allocations::count;
  for (int i = 0; i < 10'000; ++i) {
    table.set(2, 0);
    table.set(3, 5);
    table.erase(3);
  }
  EXPECT_EQ(Allocations::count, before);
  EXPECT_EQ(table.get(1), 11u);
  EXPECT_EQ(table.get(2), 0u);
  table.clear();
  EXPECT_EQ(table.get_field_count(), 0u);
  EXPECT_TRUE(table.set(2, 7));
  EXPECT_EQ(table.get_field_count(), 1u);
}

TEST_F(OptimizerTest, SettingNothingButZeroKeepsToItsMemory) {
  loadFields(3);
  Optimizer table;
  ASSERT_TRUE(table.set(1, 11));
  const long before = Allocations::count;
  for (int i = 0; i < 1'000; ++i) {
    ASSERT_TRUE(table.set(2, 0));
  }
  EXPECT_EQ(Allocations::count, before);
  EXPECT_EQ(table.get_field_count(), 1'001u) << "each counts";
  EXPECT_EQ(table.get(1), 11u);
  table.clear();
  EXPECT_EQ(table.get_field_count(), 0u);
  EXPECT_EQ(table.get(1), 0u);
}

TEST_F(OptimizerTest, FillingAndClearingAllocatesNothing) {
  Optimizer table;
  const MD_FieldMap& map = MD_FieldMap::instance();
  const long before = Allocations::count;
  for (int round = 0; round < 100; ++round) {
    for (const auto& row : map) {
      table.set(row.id, 5);
    }
    table.clear();
  }
  EXPECT_EQ(Allocations::count, before);
}

TEST_F(OptimizerTest, AgreesWithAModelUnderRandomOperations) {
  constexpr std::uint16_t kFields = 6;
  loadFields(kFields);
  Optimizer table;
  Optimizer other;
  std::map<std::uint16_t, std::uint64_t> model;
  std::mt19937 random(20240115);
  for (int step = 0; step < 20'000; ++step) {
    const auto field = static_cast<std::uint16_t>(1 + random() % (kFields + 1));  // the last one is unknown
    switch (random() % 16) {
      case 0:
        table.clear();
        model.clear();
        break;
      case 1:
        other = table;
        table.clear();
        table = other;
        break;
      case 2:
      case 3:
      case 4:
      case 5:
      case 6:
      case 7:
        table.erase(field);
        model.erase(field);
        break;
      default: {
        const std::uint64_t value = 1 + random();
        EXPECT_EQ(table.set(field, value), field <= kFields);
        if (field <= kFields) {
          model[field] = value;
        }
      }
    }
    ASSERT_EQ(table.get_field_count(), model.size()) << step;
    for (std::uint16_t i = 1; i <= kFields; ++i) {
      const auto expected = model.find(i);
      ASSERT_EQ(table.get(i), expected != model.end() ? expected->second : 0) << "field " << i << ", step " << step;
    }
  }
}

TEST_F(OptimizerTest, HoldsEveryValue) {
  constexpr std::uint64_t kValues[] = {
      1,
      (std::uint64_t{1} << 39) - 1,
      std::uint64_t{1} << 39,
      (std::uint64_t{1} << 39) + 1,
      (std::uint64_t{1} << 40) - 1,
      std::uint64_t{1} << 40,
      (std::uint64_t{1} << 63) + 5,
      0xFFFF'FFFF'FFFF'FFFF,
  };
  loadFields(3);
  Optimizer table;
  ASSERT_TRUE(table.set(1, 11));
  for (const std::uint64_t value : kValues) {
    SCOPED_TRACE(value);
    for (const std::uint64_t other : kValues) {
      ASSERT_TRUE(table.set(2, value));
      ASSERT_TRUE(table.set(3, other));
      ASSERT_EQ(table.get(2), value);
      ASSERT_EQ(table.get(3), other);
      ASSERT_EQ(table.get_field_count(), 3u);
      const Optimizer copy(table);
      ASSERT_EQ(copy.get(2), value);
      ASSERT_EQ(copy.get(3), other);
      table.erase(3);
      ASSERT_EQ(table.get(3), 0u);
      ASSERT_EQ(table.get(2), value);
    }
    table.clear();
    ASSERT_EQ(table.get(2), 0u);
    ASSERT_TRUE(table.set(1, 11));
  }
  EXPECT_EQ(table.get(1), 11u);
}

// What is left of a filling must not reappear, however many clears later, nor be inside a message.
TEST_F(OptimizerTest, StaysClearThroughAsManyClearsAsCanBeTold) {
  constexpr std::uint64_t kLongerThanAnyMessage = std::uint64_t{1} << 36;
  loadFields(3);
  Optimizer table;
  ASSERT_TRUE(table.set(1, 1));
  ASSERT_TRUE(table.set(2, 0xFFFF'FFFF'FFFF'FFFF));
  const FIELDS::packed_rec fields[] = {MD_FieldMap::instance().packed(1), MD_FieldMap::instance().packed(2),
                                       MD_FieldMap::instance().packed(3)};
  for (std::uint32_t clears = 1; clears <= (1U << 24) + 2; ++clears) {
    table.clear();
    for (const FIELDS::packed_rec field : fields) {
      const std::uint64_t position = table.position(field);
      if (!table.isAbsent(field) || position < kLongerThanAnyMessage || position + 0xFFFF'FFFF < position) {
        FAIL() << "slot " << field.slot << " after " << clears << " clears: " << position;
      }
    }
    if (clears % 100'000 == 0) {
      ASSERT_TRUE(table.set(3, 0xFFFF'FFFF));
      ASSERT_EQ(table.get(3), 0xFFFF'FFFFu);
      ASSERT_EQ(table.position(fields[2]), 0xFFFF'FFFFu);
      ASSERT_EQ(table.get_field_count(), 1u);
    }
  }
  EXPECT_EQ(table.get_field_count(), 0u);
  EXPECT_TRUE(table.set(2, 5));
  EXPECT_EQ(table.get(2), 5u);
  EXPECT_EQ(table.get(1), 0u);
}

/// Makes each allocation of `operation` fail in turn and checks the table after each failure, then lets it succeed.
/// @return how many allocations there were
template <class Operation, class Check>
long failEachAllocation(Operation operation, Check check) {
  for (long succeeding = 0;; ++succeeding) {
    const FailingAllocation failing(succeeding);
    try {
      operation();
      return succeeding;
    } catch (const std::bad_alloc&) {
      check();
    }
  }
}

TEST_F(OptimizerTest, AFailedGrowthChangesNothing) {
  for (const std::uint64_t value : {std::uint64_t{6}, ~std::uint64_t{0}}) {
    SCOPED_TRACE(value);
    loadFields(2);
    Optimizer table;
    ASSERT_TRUE(table.set(2, 5));
    loadFields(1000);
    const long allocations = failEachAllocation([&] { table.set(1000, value); },
                                                [&] {
                                                  EXPECT_EQ(table.get(2), 5u);
                                                  EXPECT_EQ(table.get(1000), 0u);
                                                  EXPECT_EQ(table.get_field_count(), 1u);
                                                });
    EXPECT_EQ(allocations, value == 6 ? 1 : 2);
    EXPECT_EQ(table.get(1000), value);
    EXPECT_EQ(table.get(2), 5u);
    EXPECT_EQ(table.get_field_count(), 2u);
  }
}

TEST_F(OptimizerTest, AFailedAssignmentChangesNothing) {
  for (const std::uint64_t value : {std::uint64_t{6}, ~std::uint64_t{0}}) {
    SCOPED_TRACE(value);
    loadFields(2);
    Optimizer target;
    ASSERT_TRUE(target.set(1, ~std::uint64_t{1}));
    ASSERT_TRUE(target.set(2, 5));
    loadFields(1000);
    Optimizer source;
    ASSERT_TRUE(source.set(1000, value));
    const long allocations = failEachAllocation([&] { target = source; },
                                                [&] {
                                                  EXPECT_EQ(target.get(1), ~std::uint64_t{1});
                                                  EXPECT_EQ(target.get(2), 5u);
                                                  EXPECT_EQ(target.get(1000), 0u);
                                                  EXPECT_EQ(target.get_field_count(), 2u);
                                                });
    EXPECT_GE(allocations, value == 6 ? 1 : 2);
    EXPECT_EQ(target.get(1), 0u);
    EXPECT_EQ(target.get(1000), value);
    EXPECT_EQ(target.get_field_count(), 1u);
  }
}

}  // namespace
}  // namespace MD
