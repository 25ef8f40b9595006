#include "md_typemap.h"

#include <cstdint>

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/assertions.h"

namespace MD::detail {
namespace {

struct Row {
  const char* name;
  std::uint8_t code;
  std::uint8_t lengthBytes;
};

constexpr Row kRows[] = {
    {"RAW", 0, 0},        {"CHAR", 1, 1},        {"INT", 2, 4},        {"SHORT", 3, 2},       {"FLOAT", 4, 4},
    {"DOUBLE", 5, 8},     {"STRING", 6, 0},      {"VECTOR", 7, 0},     {"MSG_T", 8, 0},       {"DATE", 9, 4},
    {"TIME", 10, 4},      {"FRACTION", 11, 12},  {"CHILD_MSG", 12, 0}, {"FOLDED_INT", 13, 0}, {"BUFFER", 14, 0},
    {"OPTI_PRICE", 2, 4}, {"UINT", 16, 4},       {"LONG_INT", 17, 4},  {"ULONG_INT", 18, 4},  {"INT64", 19, 8},
    {"DATETIME", 20, 8},  {"EPOCH_NSEC", 22, 8},
};

TEST(TypeMapTest, HoldsEachNameWithItsCodeAndSize) {
  const TypeMap types;
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const auto found = types.find(row.name);
    ASSERT_TRUE(found != types.end());
    EXPECT_EQ(found->second.id, row.code);
    EXPECT_EQ(found->second.lengthBytes, row.lengthBytes);
  }
}

TEST(TypeMapTest, HoldsNoOtherName) {
  const TypeMap types;
  std::set<std::string> names;
  for (const auto& type : types) {
    names.insert(type.first);
  }
  std::set<std::string> expected;
  for (const Row& row : kRows) {
    expected.insert(row.name);
  }
  EXPECT_EQ(names, expected);
  EXPECT_EQ(names.size(), 22u);
}

TEST(TypeMapTest, MatchesNamesExactly) {
  const TypeMap types;
  for (const char* name : {"", "double", "Double", "DOUBLE ", " DOUBLE", "DOUBL", "DOUBLES", "INT32", "5"}) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(types.find(name) == types.end());
  }
}

TEST(TypeMapTest, FindsANameOfEachCode) {
  const TypeMap types;
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const auto found = types.findByCode(row.code);
    ASSERT_TRUE(found != types.end());
    EXPECT_EQ(found->second.id, row.code);
    EXPECT_EQ(found->second.lengthBytes, row.lengthBytes);
  }
}

TEST(TypeMapTest, NoNameYieldsAnUnusedCode) {
  const TypeMap types;
  for (const std::uint8_t code : {std::uint8_t{15}, std::uint8_t{21}, std::uint8_t{23}, std::uint8_t{255}}) {
    SCOPED_TRACE(int{code});
    EXPECT_TRUE(types.findByCode(code) == types.end());
  }
}

TEST(TypeMapTest, IsMadeWithoutAnAssertion) {
  const test::RecordedAssertions assertions;
  const TypeMap types;
  EXPECT_TRUE(types.find("EPOCH_NSEC") != types.end());
  EXPECT_TRUE(assertions.entries().empty());
}

TEST(TypeMapTest, SharesOneTable) {
  const TypeMap& shared = TypeMap::shared();
  EXPECT_EQ(&TypeMap::shared(), &shared);
  EXPECT_TRUE(shared.find("OPTI_PRICE") != shared.end());
}

}  // namespace
}  // namespace MD::detail
