#include "md_typemap.h"

#include <cstddef>
#include <cstdint>

#include <iterator>
#include <string_view>

#include <gtest/gtest.h>

namespace MD::detail {
namespace {

constexpr FieldType kExpected[] = {
    {"RAW", 0, 0},        {"CHAR", 1, 1},        {"INT", 2, 4},        {"SHORT", 3, 2},       {"FLOAT", 4, 4},
    {"DOUBLE", 5, 8},     {"STRING", 6, 0},      {"VECTOR", 7, 0},     {"MSG_T", 8, 0},       {"DATE", 9, 4},
    {"TIME", 10, 4},      {"FRACTION", 11, 12},  {"CHILD_MSG", 12, 0}, {"FOLDED_INT", 13, 0}, {"BUFFER", 14, 0},
    {"OPTI_PRICE", 2, 4}, {"UINT", 16, 4},       {"LONG_INT", 17, 4},  {"ULONG_INT", 18, 4},  {"INT64", 19, 8},
    {"DATETIME", 20, 8},  {"EPOCH_NSEC", 22, 8},
};

constexpr bool tableIsAsExpected() {
  for (std::size_t i = 0; i != std::size(kExpected); ++i) {
    if (kFieldTypes[i].name != kExpected[i].name || kFieldTypes[i].code != kExpected[i].code ||
        kFieldTypes[i].widthBytes != kExpected[i].widthBytes) {
      return false;
    }
  }
  return std::size(kFieldTypes) == std::size(kExpected);
}
static_assert(tableIsAsExpected());

constexpr bool iterMapWidthsAreAsExpected() {
  constexpr std::uint8_t kWidths[] = {0, 1, 4, 2, 4, 8, 0, 0, 0, 4, 4, 12, 0, 0, 0, 4, 4, 4, 4, 8, 8, 0, 8, 0};
  for (std::size_t code = 0; code != std::size(kWidths); ++code) {
    if (kIterMapWidths[code] != kWidths[code]) {
      return false;
    }
  }
  return kIterMapWidths.size() == std::size(kWidths);
}
static_assert(iterMapWidthsAreAsExpected());

TEST(FieldTypes, AreFoundByName) {
  for (const FieldType& type : kExpected) {
    SCOPED_TRACE(type.name);
    const FieldType* const found = findType(type.name);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->name, type.name);
    EXPECT_EQ(found->code, type.code);
  }
}

TEST(FieldTypes, AreMatchedExactly) {
  for (const std::string_view name : {"", "double", "Double", "DOUBLE ", " DOUBLE", "DOUBL", "DOUBLES", "INT32", "5"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(findType(name), nullptr);
  }
}

}  // namespace
}  // namespace MD::detail
