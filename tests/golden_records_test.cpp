// The bytes that each value of each type takes in each encoding, written and read.
#include <cstdint>

#include <string>
#include <tuple>
#include <type_traits>
#include <variant>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/golden_records.h"
#include "support/messages.h"

namespace MD::test {
namespace {

class GoldenRecords : public testing::TestWithParam<std::tuple<Encoding, GoldenRecord>> {
 protected:
  GoldenRecords() { loadDictionary(kDictionary); }

  static std::uint8_t code() { return std::get<0>(GetParam()).code; }
  static const GoldenRecord& record() { return std::get<1>(GetParam()); }
  static std::string wholeHex() { return std::string(goldenHeader(code())) + " " + record().in(code()); }
};

INSTANTIATE_TEST_SUITE_P(All, GoldenRecords, testing::Combine(eachEncoding(), testing::ValuesIn(kGoldenRecords)),
                         [](const auto& row) {
                           return std::string(std::get<0>(row.param).name) + "_" + std::get<1>(row.param).name;
                         });

TEST_P(GoldenRecords, AreWritten) {
  CapturedErrors errors;
  std::visit(
      [](const auto& value) {
        const auto added = MD_Message::createFromPB(code());
        EXPECT_TRUE(added->add(record().id, value));
        EXPECT_EQ(hexOf(*added), wholeHex());
        const auto updated = MD_Message::createFromPB(code());
        EXPECT_TRUE(updated->update(record().id, value));
        EXPECT_EQ(hexOf(*updated), wholeHex());
      },
      record().value);
  EXPECT_EQ(errors.take(), "");
}

TEST_P(GoldenRecords, AreRead) {
  CapturedErrors errors;
  std::visit(
      [](const auto& value) {
        const auto message = received(fromHex(wholeHex()));
        std::decay_t<decltype(value)> read{};
        EXPECT_TRUE(message->get(record().id, read));
        EXPECT_EQ(rawOf(read), rawOf(value));
        EXPECT_EQ(idsOf(*message), Ids{record().id});
        EXPECT_EQ(hexOf(*message), wholeHex());
      },
      record().value);
  EXPECT_EQ(errors.take(), "");
}

// Through the class itself, where these operations are inlined.
template <class Encoding>
void expectByOwnClass(const GoldenRecord& record, const std::string& wholeHex) {
  Encoding message;
  std::visit(
      [&](const auto& value) {
        EXPECT_TRUE(message.add(record.id, value));
        EXPECT_EQ(hexOf(message), wholeHex);
        std::decay_t<decltype(value)> read{};
        EXPECT_TRUE(message.get(record.id, read));
        EXPECT_EQ(rawOf(read), rawOf(value));
      },
      record.value);
}

TEST_P(GoldenRecords, AreWrittenAndReadByTheOwnClass) {
  switch (code()) {
    case ENCODINGS::MINT:
      return expectByOwnClass<mInt>(record(), wholeHex());
    case ENCODINGS::ITERMAP:
      return expectByOwnClass<IterMap>(record(), wholeHex());
    default:
      return expectByOwnClass<MsgT>(record(), wholeHex());
  }
}

class GoldenMessages : public testing::TestWithParam<Encoding> {
 protected:
  GoldenMessages() { loadDictionary(kDictionary); }
};

INSTANTIATE_TEST_SUITE_P(Encodings, GoldenMessages, eachEncoding(), nameOfEncoding);

TEST_P(GoldenMessages, AreTheirRecordsInTheOrderOfTheAdds) {
  const auto message = emptyOf(GetParam());
  EXPECT_EQ(hexOf(*message), goldenHeader(GetParam().code));
  std::string expected = goldenHeader(GetParam().code);
  for (const GoldenRecord& record : kGoldenRecords) {
    if (!message->existsImpl(record.id)) {
      std::visit([&](const auto& value) { EXPECT_TRUE(message->add(record.id, value)); }, record.value);
      expected += std::string(" ") + record.in(GetParam().code);
    }
  }
  EXPECT_EQ(message->fieldCount(), 16U);
  EXPECT_EQ(hexOf(*message), expected);
}

}  // namespace
}  // namespace MD::test
