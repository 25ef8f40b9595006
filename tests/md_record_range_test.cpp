#include "md/md_record_range.h"

#include <cstdint>

#include <algorithm>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "support/dictionary.h"
#include "support/messages.h"

namespace MD::test {
namespace {

/// The records as text: id, type, value bytes, and a mark for a truncated one.
std::string textOf(const Bytes& bytes) {
  const HeapBlock block(bytes);
  std::string text;
  for (const RecordView& record : RecordRange(block.data(), block.size())) {
    text += (text.empty() ? "" : ", ") + std::to_string(record.id) + " " + std::to_string(record.type) + " [" +
            toHex(Bytes(record.data, record.data + record.sizeBytes)) + "]" + (record.isTruncated ? "!" : "");
  }
  return text;
}

struct RangeCase {
  const char* name;
  const char* bytes;
  const char* records;
};

constexpr RangeCase kRangeCases[] = {
    {"MInt", "06 2C 01 01 05 3C 00 03 41 42 00", "300 2 [05], 60 6 [41 42 00]"},
    {"IterMap", "01 2C 01 05 00 00 00 3C 00 03 00 41 42 00", "300 2 [05 00 00 00], 60 6 [41 42 00]"},
    {"MsgT", "46 51 52 31 01 2C 00 02 00 00 00 04 00 00 00 05", "300 2 [00 00 00 05]"},
    {"RepeatedFieldsEachTime", "06 2C 01 01 05 2C 01 01 06", "300 2 [05], 300 2 [06]"},
    {"UnknownFieldsAreSkipped", "06 0F 27 02 01 02 2C 01 01 05", "300 2 [05]"},
    {"AnUnknownFieldOfIterMapIsItsIdAlone", "01 0F 27 2C 01 05 00 00 00", "300 2 [05 00 00 00]"},
    {"AnotherTypeOnTheWireIsSkipped", "46 51 52 31 01 2C 00 05 00 00 00 01 07 01 2D 00 02 00 00 00 01 08",
     "301 2 [08]"},
    {"ATruncatedValue", "06 2C 01 01 05 14 00 08 01 02", "300 2 [05], 20 19 [01 02]!"},
    {"ATruncatedHead", "06 2C 01 01 05 14 00", "300 2 [05], 20 19 []!"},
    {"ALoneByteIsSkipped", "06 2C 01 01 05 14", "300 2 [05]"},
    {"TheHeaderAlone", "06", ""},
    {"ATruncatedHeader", "46 51", ""},
    {"NoEncoding", "07 2C 01 01 05", ""},
    {"NoBytes", "", ""},
};

class RangeOf : public testing::TestWithParam<RangeCase> {};

INSTANTIATE_TEST_SUITE_P(RecordRange, RangeOf, testing::ValuesIn(kRangeCases),
                         [](const auto& row) { return row.param.name; });

TEST_P(RangeOf, HasTheRecordsThatAMessageHolds) {
  loadDictionary(kDictionary);
  EXPECT_EQ(textOf(fromHex(GetParam().bytes)), GetParam().records);
}

TEST(RecordRange, NamesTheEncoding) {
  const auto encodingOf = [](const Bytes& bytes) {
    return RecordRange(bytes.data(), static_cast<std::uint32_t>(bytes.size())).encoding();
  };
  EXPECT_EQ(encodingOf({6}), 6);
  EXPECT_EQ(encodingOf({1, 2}), 1);
  EXPECT_EQ(encodingOf({70}), 70);
  EXPECT_EQ(encodingOf({7}), 0);
  EXPECT_EQ(encodingOf({}), 0);
  EXPECT_EQ(RecordRange(nullptr, 5).encoding(), 0);
}

TEST(RecordRange, IsEmptyOverNull) {
  const RecordRange range(nullptr, 5);
  EXPECT_TRUE(range.begin() == range.end());
  EXPECT_TRUE(range.begin() == RecordRange::const_iterator());
}

TEST(RecordRange, ReadsValuesOfTheirTypeAlone) {
  loadDictionary(kDictionary);
  const Bytes bytes = fromHex("06 2C 01 01 05 14 00 08 01 02");
  const RecordRange range(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  auto record = range.begin();
  std::int32_t quantity = 0;
  EXPECT_TRUE(record->get(quantity));
  EXPECT_EQ(quantity, 5);
  double price = 1.5;
  EXPECT_FALSE(record->get(price));
  ++record;
  std::int64_t sequence = 7;
  EXPECT_FALSE(record->get(sequence)) << "truncated";
  EXPECT_EQ(sequence, 7);
  EXPECT_EQ(price, 1.5);
  EXPECT_FALSE(RecordView().get(quantity));
}

TEST(RecordRange, IteratorsCanBeCopiedAndCompared) {
  loadDictionary(kDictionary);
  const Bytes bytes = fromHex("06 2C 01 01 05 2D 01 01 06");
  const RecordRange range(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  auto i = range.begin();
  const auto first = i++;
  EXPECT_TRUE(first == range.begin());
  EXPECT_TRUE(first != i);
  EXPECT_EQ(first->id, 300);
  EXPECT_EQ((*i).id, 301);
  EXPECT_TRUE(++i == range.end());
  EXPECT_TRUE(++i == range.end()) << "there is nothing after the end";
  EXPECT_EQ(std::distance(range.begin(), range.end()), 2);
}

}  // namespace
}  // namespace MD::test
