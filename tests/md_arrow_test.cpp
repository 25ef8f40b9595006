// Messages as columns, read back by the rules of the Arrow C data interface.
#include "md/md_arrow.h"

#include <cstdint>

#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "md/md_mint.h"
#include "support/arrow_text.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"
#include "support/random_choices.h"
#include "support/scripted_message.h"

namespace MD::test {
namespace {

class Columns : public testing::Test {
 protected:
  Columns() { loadDictionary(kDictionary); }
};

class ColumnsOfEncoding : public testing::TestWithParam<std::uint8_t> {
 protected:
  ColumnsOfEncoding() { loadDictionary(kDictionary); }
};

INSTANTIATE_TEST_SUITE_P(Each, ColumnsOfEncoding,
                         testing::Values(std::uint8_t{ENCODINGS::MINT}, std::uint8_t{ENCODINGS::ITERMAP},
                                         std::uint8_t{ENCODINGS::MSGT}),
                         [](const auto& row) { return "Code" + std::to_string(row.param); });

const Ids kEachType = {id::kChar,   id::kInt,    id::kInt64,    id::kFloat,  id::kDouble,
                       id::kString, id::kBuffer, id::kDateTime, id::kEpochNS};

ColumnOptions binaryText() {
  ColumnOptions options;
  options.binaryFields = {id::kChar, id::kChar2, id::kString, id::kString2};
  return options;
}

bool appendBytes(ColumnBuilder& columns, const Bytes& bytes) {
  const HeapBlock block(bytes);
  return columns.append(block.data(), block.size());
}

std::string streamTextOf(ColumnBuilder& columns) {
  Released<ArrowArrayStream> stream;
  columns.exportStream(&stream);
  return streamText(*stream);
}

std::unique_ptr<MD_Message> quote(std::uint8_t code, const char* symbol, double bid) {
  auto message = MD_Message::createFromPB(code);
  EXPECT_TRUE(message->addString(id::kString, symbol));
  EXPECT_TRUE(message->add(id::kDouble, bid));
  return message;
}

TEST_F(Columns, HaveTheTypesOfTheirFields) {
  ColumnOptions options;
  options.binaryFields = {id::kChar2, id::kString2};
  options.dictionaryFields = {id::kString2, id::kDouble};
  Ids fields = kEachType;
  fields.insert(fields.end(), {id::kChar2, id::kString2, id::kOptiPrice});
  const ColumnBuilder columns(fields, options);
  Released<ArrowSchema> schema;
  columns.exportSchema(&schema);
  EXPECT_EQ(typeText(*schema),
            ":+s(CH:u? QTY:i? SEQ:l? VOLA:f? BID:g? SYMBOL:u? BLOB:z? WHEN:+s?(date:i time:i offset:s) RECV:tsn:UTC? "
            "CH2:z? VENUE:i?[:z?] TICK:i?)");
}

TEST_P(ColumnsOfEncoding, HoldAValuePerRow) {
  ColumnBuilder columns(kEachType);
  auto message = MD_Message::createFromPB(GetParam());
  ASSERT_TRUE(message->add(id::kChar, 'B'));
  ASSERT_TRUE(message->add(id::kInt, -7));
  ASSERT_TRUE(message->add(id::kInt64, std::int64_t{1} << 40));
  ASSERT_TRUE(message->add(id::kFloat, 0.5F));
  ASSERT_TRUE(message->add(id::kDouble, 184.25));
  ASSERT_TRUE(message->addString(id::kString, "J\xc3\xa4ger"));
  ASSERT_TRUE(message->add(id::kBuffer, bufferOf("ab")));
  ASSERT_TRUE(message->add(id::kDateTime, MD_DateTime(20240115, 93000000, -300)));
  ASSERT_TRUE(message->add(id::kEpochNS, MD_EpochNS(1705310000123456789)));
  ASSERT_TRUE(columns.append(*message));
  ASSERT_TRUE(appendBytes(columns, bytesOf(*message)));
  ASSERT_TRUE(columns.append(*MD_Message::createFromPB(GetParam())));
  message->erase(id::kInt);
  message->erase(id::kString);
  message->erase(id::kDateTime);
  ASSERT_TRUE(appendBytes(columns, bytesOf(*message)));
  EXPECT_EQ(columns.rows(), 4U);
  EXPECT_EQ(streamTextOf(columns),
            "'B' -7 1099511627776 0.5 184.25 'J\xc3\xa4ger' x'ab' (20240115 93000000 -300) 1705310000123456789\n"
            "'B' -7 1099511627776 0.5 184.25 'J\xc3\xa4ger' x'ab' (20240115 93000000 -300) 1705310000123456789\n"
            "null null null null null null null null null\n"
            "'B' null 1099511627776 0.5 184.25 null x'ab' null 1705310000123456789\n");
  EXPECT_EQ(columns.rows(), 0U);
}

/// How the row that bytes give differs from the message that is built from them; empty when it does not.
std::string rowDifference(const Bytes& bytes) {
  ColumnOptions options = binaryText();
  Ids fields;
  for (const ValueType& type : valueTypes()) {
    fields.insert(fields.end(), {type.field, type.otherField});
  }
  ColumnBuilder columns(fields, options);
  const HeapBlock block(bytes);
  const CapturedErrors errors;
  const auto message = MD_Message::createFromBytes(block.data(), block.size());
  const bool isAppended = columns.append(block.data(), block.size());
  if (message == nullptr) {
    return isAppended || columns.rows() != 0 ? "a row of no message" : "";
  }
  MD_EpochNS time;
  for (const std::uint16_t field : {id::kEpochNS, id::kEpochNS2}) {
    if (message->get(field, time) && time.get() >> 63 != 0) {
      return isAppended || columns.rows() != 0 ? "a time that is no timestamp" : "";
    }
  }
  // The second row is that of the message.
  if (!isAppended || !columns.append(*message) || columns.rows() != 2) {
    return "no row: " + to_string(columns.failure());
  }
  Released<ArrowSchema> schema;
  Released<ArrowArray> batch;
  columns.exportSchema(&schema);
  columns.exportBatch(&batch);
  std::string difference;
  for (std::size_t i = 0; i != fields.size(); ++i) {
    const ValueType& type = valueTypes()[i / 2];
    const ArrowSchema& columnType = *schema->children[i];
    const ArrowArray& column = *batch->children[i];
    std::string raw;
    const bool isPresent = type.get(*message, fields[i], 0, raw);
    MD_DateTime dateTime;
    if (isPresent && type.code == DATATYPES::DATETIME && message->get(fields[i], dateTime)) {
      raw = std::to_string(dateTime.date()) + " " + std::to_string(dateTime.time()) + " " +
            std::to_string(dateTime.exch_gmt_offset());
    }
    for (const int row : {0, 1}) {
      if (isNull(column, row) == isPresent || (isPresent && arrowRaw(columnType, column, row) != raw)) {
        difference += std::string(columnType.name) + " of row " + std::to_string(row) + ": " +
                      arrowText(columnType, column, row) + "; ";
      }
    }
  }
  return difference;
}

std::unique_ptr<MD_Message> messageOfAllTypes(std::uint8_t code) {
  auto message = MD_Message::createFromPB(code);
  for (const ValueType& type : valueTypes()) {
    EXPECT_TRUE(type.add(*message, type.field, 0)) << type.name;
  }
  return message;
}

TEST_P(ColumnsOfEncoding, AgreeWithTheMessageOnEveryPrefix) {
  const Bytes bytes = bytesOf(*messageOfAllTypes(GetParam()));
  for (std::size_t length = 0; length <= bytes.size(); ++length) {
    ASSERT_EQ(rowDifference(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length))), "") << length;
  }
}

TEST_P(ColumnsOfEncoding, AgreeWithTheMessageOnEveryChangedByte) {
  const Bytes bytes = bytesOf(*messageOfAllTypes(GetParam()));
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (const int change : {1, 2, 0x10, 0x80, 0xFF}) {
      Bytes changed = bytes;
      changed[at] = static_cast<std::uint8_t>(changed[at] ^ change);
      ASSERT_EQ(rowDifference(changed), "") << toHex(changed);
    }
  }
}

TEST_P(ColumnsOfEncoding, AgreeWithTheMessageOnRandomBytes) {
  for (std::uint32_t seed = 1; seed <= 2000; ++seed) {
    RandomChoices random(seed);
    auto message = MD_Message::createFromPB(GetParam());
    for (unsigned count = random.below(8); count > 0; --count) {
      const std::uint16_t id = random.someId();
      const ModelValue value = random.someValue(id);
      const CapturedErrors errors;
      RandomChoices::withTyped(value, [&](auto typed) { return message->add(id, typed); });
    }
    const Bytes bytes = random.someBytes(*message);
    ASSERT_EQ(rowDifference(bytes), "") << "seed " << seed << ": " << toHex(bytes);
  }
}

// Whatever encoding it says it has.
TEST_F(Columns, TakeTheValuesOfAMessageOfAnotherClass) {
  for (const std::uint8_t code : {std::uint8_t{0}, std::uint8_t{ENCODINGS::MINT}}) {
    std::vector<std::string> calls;
    ScriptedMessage message(calls);
    message.m_code = code;
    ColumnBuilder columns({id::kInt, id::kString});
    ASSERT_TRUE(columns.append(message));
    EXPECT_EQ(calls, (std::vector<std::string>{"get Int " + std::to_string(id::kInt),
                                               "get String " + std::to_string(id::kString)}));
    message.m_isReadable = false;
    ASSERT_TRUE(columns.append(message));
    EXPECT_EQ(streamTextOf(columns), "0 ''\nnull null\n");
  }
}

TEST_F(Columns, TakeTheLastRecordOfARepeatedField) {
  ColumnBuilder columns({id::kInt});
  EXPECT_TRUE(appendBytes(columns, fromHex("06 2C 01 01 05 2D 01 01 06 2C 01 01 07")));
  EXPECT_EQ(streamTextOf(columns), "7\n");
}

TEST_F(Columns, SkipUnknownFieldsAsTheParserDoes) {
  ColumnBuilder columns({id::kInt, id::kDouble});
  EXPECT_TRUE(appendBytes(columns, fromHex("06 0F 27 02 AA BB 2C 01 01 05 0F 27 01 CC 2D 01 01 06 EE")));
  EXPECT_EQ(streamTextOf(columns), "5 null\n");
}

TEST_F(Columns, HaveNullForATruncatedRecord) {
  ColumnBuilder columns({id::kInt, id::kString});
  EXPECT_TRUE(appendBytes(columns, fromHex("06 2C 01 01 05 3C 00 04 49 42")));
  EXPECT_EQ(streamTextOf(columns), "5 null\n");
}

// Batches -------------------------------------------------------------------------------------------------------------

TEST_F(Columns, FormBatches) {
  ColumnOptions options;
  options.batchRows = 2;
  ColumnBuilder columns({id::kInt}, options);
  for (int i = 0; i != 5; ++i) {
    mInt message;
    ASSERT_TRUE(message.add(id::kInt, i));
    ASSERT_TRUE(columns.append(message));
    EXPECT_EQ(columns.completeBatches(), static_cast<std::size_t>(i + 1) / 2);
  }
  Released<ArrowSchema> schema;
  columns.exportSchema(&schema);
  {
    Released<ArrowArray> batch;
    EXPECT_TRUE(columns.exportBatch(&batch));
    EXPECT_EQ(batchText(*schema, *batch), "0\n1\n");
  }
  EXPECT_EQ(columns.rows(), 3U);
  EXPECT_EQ(columns.completeBatches(), 1U);
  EXPECT_EQ(streamTextOf(columns), "2\n3\n---\n4\n");
  Released<ArrowArray> none;
  EXPECT_FALSE(columns.exportBatch(&none));
  EXPECT_EQ(none->release, nullptr);
  EXPECT_EQ(streamTextOf(columns), "");
}

TEST_F(Columns, ExportTheRowsSinceTheLastBatch) {
  ColumnBuilder columns({id::kInt});
  mInt message;
  ASSERT_TRUE(message.add(id::kInt, 1));
  ASSERT_TRUE(columns.append(message));
  Released<ArrowSchema> schema;
  columns.exportSchema(&schema);
  Released<ArrowArray> batch;
  ASSERT_TRUE(columns.exportBatch(&batch));
  EXPECT_EQ(batchText(*schema, *batch), "1\n");
  EXPECT_EQ(columns.rows(), 0U);
  ASSERT_TRUE(columns.append(message));
  EXPECT_EQ(streamTextOf(columns), "1\n");
}

TEST_F(Columns, GrowWithTheirRows) {
  constexpr int kRows = 70'000;
  ColumnBuilder columns({id::kInt, id::kString, id::kDouble});
  std::string expected;
  for (int i = 0; i != kRows; ++i) {
    mInt message;
    ASSERT_TRUE(i % 3 == 0 || message.add(id::kInt, i));
    ASSERT_TRUE(i % 5 == 0 || message.addString(id::kString, std::to_string(i)));
    ASSERT_TRUE(columns.append(message));
    expected += i == 65'536 ? "---\n" : "";
    expected +=
        (i % 3 == 0 ? "null" : std::to_string(i)) + (i % 5 == 0 ? " null" : " '" + std::to_string(i) + "'") + " null\n";
  }
  EXPECT_EQ(columns.completeBatches(), 1U);
  EXPECT_TRUE(streamTextOf(columns) == expected);
}

TEST_F(Columns, CountTheirNulls) {
  ColumnBuilder columns({id::kInt, id::kDouble});
  for (int i = 0; i != 130; ++i) {
    mInt message;
    ASSERT_TRUE(i % 13 != 0 || message.add(id::kInt, i));
    ASSERT_TRUE(message.add(id::kDouble, 1.0));
    ASSERT_TRUE(columns.append(message));
  }
  Released<ArrowArray> batch;
  ASSERT_TRUE(columns.exportBatch(&batch));
  EXPECT_EQ(batch->null_count, 0);
  EXPECT_EQ(batch->children[0]->null_count, 120);
  EXPECT_EQ(batch->children[1]->null_count, 0);
  EXPECT_EQ(batch->children[1]->buffers[0], nullptr);
}

TEST_F(Columns, EndABatchBeforeItsTextIsTooLong) {
  ColumnOptions options;
  options.batchTextBytes = 5;
  ColumnBuilder columns({id::kDouble, id::kString}, options);
  for (const char* symbol : {"AB", "CD", "EF", "GHIJKLMN", "O", "P"}) {
    ASSERT_TRUE(columns.append(*quote(ENCODINGS::MINT, symbol, 1.5)));
  }
  EXPECT_EQ(columns.completeBatches(), 3U);
  EXPECT_EQ(columns.rows(), 6U);
  EXPECT_EQ(streamTextOf(columns), "1.5 'AB'\n1.5 'CD'\n---\n1.5 'EF'\n---\n1.5 'GHIJKLMN'\n---\n1.5 'O'\n1.5 'P'\n");
}

TEST_F(Columns, OfNoFieldsHaveRows) {
  ColumnBuilder columns({});
  ASSERT_TRUE(columns.append(*quote(ENCODINGS::MINT, "IBM", 1)));
  Released<ArrowArray> batch;
  ASSERT_TRUE(columns.exportBatch(&batch));
  EXPECT_EQ(batch->length, 1);
  EXPECT_EQ(batch->n_children, 0);
}

// Dictionary-encoded columns ------------------------------------------------------------------------------------------

ColumnOptions encodedSymbols() {
  ColumnOptions options;
  options.dictionaryFields = {id::kString};
  return options;
}

TEST_P(ColumnsOfEncoding, EncodeByADictionary) {
  ColumnBuilder columns({id::kString, id::kDouble}, encodedSymbols());
  for (const char* symbol : {"IBM", "AAPL", "IBM", "", "AAPL"}) {
    ASSERT_TRUE(columns.append(*quote(GetParam(), symbol, 1.5)));
  }
  ASSERT_TRUE(columns.append(*MD_Message::createFromPB(GetParam())));
  Released<ArrowSchema> schema;
  Released<ArrowArray> batch;
  columns.exportSchema(&schema);
  ASSERT_TRUE(columns.exportBatch(&batch));
  EXPECT_EQ(batchText(*schema, *batch), "'IBM' 1.5\n'AAPL' 1.5\n'IBM' 1.5\n'' 1.5\n'AAPL' 1.5\nnull null\n");
  EXPECT_EQ(batch->children[0]->dictionary->length, 3);
  EXPECT_EQ(batch->children[0]->n_buffers, 2);
}

TEST_F(Columns, EncodeManyValues) {
  ColumnOptions options = encodedSymbols();
  options.batchRows = 1500;
  ColumnBuilder columns({id::kString}, options);
  std::string expected;
  for (int i = 0; i != 4000; ++i) {
    const std::string symbol = "symbol " + std::to_string(i % 700);
    mInt message;
    ASSERT_TRUE(message.addString(id::kString, symbol));
    ASSERT_TRUE(columns.append(message));
    expected += (i % 1500 == 0 && i != 0 ? "---\n'" : "'") + symbol + "'\n";
  }
  EXPECT_TRUE(streamTextOf(columns) == expected);
}

TEST_F(Columns, HaveAnEmptyDictionaryWhereAllIsNull) {
  ColumnBuilder columns({id::kString}, encodedSymbols());
  ASSERT_TRUE(columns.append(MD::mInt()));
  Released<ArrowArray> batch;
  ASSERT_TRUE(columns.exportBatch(&batch));
  EXPECT_EQ(batch->children[0]->null_count, 1);
  EXPECT_EQ(batch->children[0]->dictionary->length, 0);
  EXPECT_NE(batch->children[0]->dictionary->buffers[1], nullptr);
}

TEST_F(Columns, EndABatchBeforeItsDictionaryIsTooLong) {
  ColumnOptions options = encodedSymbols();
  options.batchTextBytes = 5;
  ColumnBuilder columns({id::kString}, options);
  for (const char* symbol : {"AB", "CD", "AB", "EF", "AB", "GHIJKLMN", "GHIJKLMN", "O"}) {
    ASSERT_TRUE(columns.append(*quote(ENCODINGS::MINT, symbol, 1)));
  }
  EXPECT_EQ(streamTextOf(columns), "'AB'\n'CD'\n'AB'\n---\n'EF'\n'AB'\n---\n'GHIJKLMN'\n'GHIJKLMN'\n---\n'O'\n");
}

// Failures ------------------------------------------------------------------------------------------------------------

TEST_P(ColumnsOfEncoding, RefuseARowWhoseStringIsNotUtf8) {
  ColumnOptions options;
  options.dictionaryFields = {id::kString};
  ColumnBuilder columns({id::kInt, id::kString, id::kString2}, options);
  const auto row = [](int quantity, const char* symbol, const char* venue) {
    auto message = MD_Message::createFromPB(GetParam());
    EXPECT_TRUE(message->add(id::kInt, quantity));
    EXPECT_TRUE(message->addString(id::kString, symbol));
    EXPECT_TRUE(message->addString(id::kString2, venue));
    return message;
  };
  EXPECT_EQ(to_string(columns.failure()), "");
  EXPECT_TRUE(columns.append(*row(1, "IBM", "N")));
  EXPECT_FALSE(columns.append(*row(2, "MSFT", "XY\xff")));
  EXPECT_EQ(to_string(columns.failure()), "message 2: field VENUE (61): byte 0xff at offset 2 is not UTF-8");
  EXPECT_EQ(columns.failure().message, 2U);
  EXPECT_EQ(columns.failure().field, id::kString2);
  EXPECT_EQ(columns.failure().reason, "field VENUE (61): byte 0xff at offset 2 is not UTF-8");
  EXPECT_FALSE(appendBytes(columns, bytesOf(*row(3, "\xc3", "N"))));
  EXPECT_EQ(to_string(columns.failure()), "message 3: field SYMBOL (60): byte 0xc3 at offset 0 is not UTF-8");
  EXPECT_TRUE(appendBytes(columns, bytesOf(*row(4, "AAPL", "Q"))));
  EXPECT_EQ(to_string(columns.failure()), "message 3: field SYMBOL (60): byte 0xc3 at offset 0 is not UTF-8");
  EXPECT_EQ(columns.rows(), 2U);

  Released<ArrowSchema> schema;
  Released<ArrowArray> batch;
  columns.exportSchema(&schema);
  ASSERT_TRUE(columns.exportBatch(&batch));
  EXPECT_EQ(batchText(*schema, *batch), "1 'IBM' 'N'\n4 'AAPL' 'Q'\n");
  EXPECT_EQ(batch->children[1]->dictionary->length, 2) << "MSFT is in no row";
}

struct Utf8Case {
  const char* name;
  std::string_view text;
  std::size_t validBytes;  ///< npos: all
};
constexpr Utf8Case kUtf8Cases[] = {
    {"Empty", "", std::string_view::npos},
    {"Ascii", "sixteen letters.", std::string_view::npos},
    {"TwoThreeAndFourBytes", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", std::string_view::npos},
    {"LastCharacter", "\xf4\x8f\xbf\xbf", std::string_view::npos},
    {"BeyondTheLast", "\xf4\x90\x80\x80", 0},
    {"Surrogate", "a\xed\xa0\x80", 1},
    {"Overlong", "\xc0\x80", 0},
    {"OverlongThree", "\xe0\x80\x80", 0},
    {"LoneContinuation", "abcdefgh\x80", 8},
    {"Truncated", "abcdefghij\xe2\x82", 10},
    {"InAWordOfAscii", "abcdefghijk\xff lmnopqrs", 11},
};

TEST_F(Columns, KnowUtf8) {
  for (const Utf8Case& row : kUtf8Cases) {
    SCOPED_TRACE(row.name);
    ColumnBuilder columns({id::kString});
    mInt message;
    ASSERT_TRUE(message.add(id::kString, MD_Message::String(row.text)));
    EXPECT_EQ(columns.append(message), row.validBytes == std::string_view::npos);
    if (row.validBytes != std::string_view::npos) {
      const std::string where = " at offset " + std::to_string(row.validBytes) + " ";
      EXPECT_NE(columns.failure().reason.find(where), std::string::npos) << columns.failure().reason;
    }
    ColumnBuilder binary({id::kString}, binaryText());
    ASSERT_TRUE(binary.append(message));
    EXPECT_EQ(streamTextOf(binary), "x'" + std::string(row.text) + "'\n");
  }
}

TEST_F(Columns, FindTheInvalidByteAtEveryPosition) {
  ColumnBuilder columns({id::kString});
  for (std::size_t length = 1; length <= 40; ++length) {
    for (std::size_t at = 0; at != length; ++at) {
      std::string text(length, 'x');
      text[at] = '\x80';
      MD::mInt message;
      ASSERT_TRUE(message.addString(id::kString, text));
      const HeapBlock bytes(bytesOf(message));
      ASSERT_FALSE(columns.append(bytes.data(), bytes.size())) << length << " " << at;
      ASSERT_EQ(columns.failure().reason,
                "field SYMBOL (60): byte 0x80 at offset " + std::to_string(at) + " is not UTF-8");
    }
  }
}

TEST_F(Columns, HoldCharsThatAreCharacters) {
  ColumnBuilder columns({id::kChar});
  mInt message;
  ASSERT_TRUE(message.add(id::kChar, '\0'));
  EXPECT_TRUE(columns.append(message));
  ASSERT_TRUE(message.update(id::kChar, '\xe4'));
  EXPECT_FALSE(columns.append(message));
  EXPECT_EQ(to_string(columns.failure()), "message 2: field CH (10): byte 0xe4 at offset 0 is not UTF-8");
  EXPECT_EQ(streamTextOf(columns), std::string("'\0'\n", 4));
  ColumnBuilder binary({id::kChar}, binaryText());
  EXPECT_TRUE(binary.append(message));
  EXPECT_EQ(streamTextOf(binary), "x'\xe4'\n");
}

TEST_F(Columns, RefuseATimeThatNoTimestampHolds) {
  ColumnBuilder columns({id::kInt, id::kEpochNS});
  mInt message;
  ASSERT_TRUE(message.add(id::kEpochNS, MD_EpochNS(9223372036854775807)));
  EXPECT_TRUE(columns.append(message));
  ASSERT_TRUE(message.update(id::kEpochNS, MD_EpochNS(9223372036854775808U)));
  EXPECT_FALSE(columns.append(message));
  EXPECT_EQ(to_string(columns.failure()),
            "message 2: field RECV (90): 9223372036854775808 ns is later than a timestamp can be");
  EXPECT_EQ(streamTextOf(columns), "null 9223372036854775807\n");
}

TEST_F(Columns, RefuseBytesOfNoEncoding) {
  ColumnBuilder columns({id::kInt});
  EXPECT_FALSE(appendBytes(columns, fromHex("07 2C 01 01 05")));
  EXPECT_EQ(to_string(columns.failure()), "message 1: no bytes of a known encoding");
  EXPECT_FALSE(columns.append(nullptr, 5));
  EXPECT_FALSE(appendBytes(columns, {}));
  EXPECT_EQ(to_string(columns.failure()), "message 3: no bytes of a known encoding");
  EXPECT_EQ(columns.rows(), 0U);
}

TEST_F(Columns, ReportNothing) {
  CapturedErrors errors;
  ColumnBuilder columns({id::kInt});
  EXPECT_TRUE(appendBytes(columns, fromHex("01 0F 27 AA BB 2C 01 05")));
  EXPECT_EQ(errors.take(), "");
}

template <class Error>
std::string refusalOf(Ids fields, std::size_t batchRows = 1) {
  ColumnOptions options;
  options.batchRows = batchRows;
  try {
    const ColumnBuilder columns(std::move(fields), options);
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

TEST_F(Columns, AreOfFieldsThatMessagesCarry) {
  EXPECT_EQ(refusalOf<std::domain_error>({id::kInt, id::kUnknown}),
            "ColumnBuilder: the dictionary has no field with the id 999");
  EXPECT_EQ(refusalOf<std::domain_error>({id::kRaw}),
            "ColumnBuilder: field RAWLY (201) has a type that messages do not carry");
  EXPECT_EQ(refusalOf<std::invalid_argument>({id::kInt, id::kInt2, id::kInt}),
            "ColumnBuilder: field 300 is there twice");
  EXPECT_EQ(refusalOf<std::invalid_argument>({id::kInt}, 0), "ColumnBuilder: a batch has at least one row");
  EXPECT_EQ(refusalOf<std::invalid_argument>(Ids(65'536, id::kInt)), "ColumnBuilder: more than 65535 fields");
}

// Ownership -----------------------------------------------------------------------------------------------------------

TEST_F(Columns, OutliveTheirBuilder) {
  Released<ArrowArrayStream> stream;
  {
    ColumnBuilder columns({id::kString, id::kDouble}, encodedSymbols());
    ASSERT_TRUE(columns.append(*quote(ENCODINGS::MINT, "IBM", 1.5)));
    columns.exportStream(&stream);
  }
  EXPECT_EQ(streamText(*stream), "'IBM' 1.5\n");
  EXPECT_EQ(stream->get_last_error(&stream), nullptr);
}

TEST_F(Columns, MayBeTakenOutOfTheirBatch) {
  Released<ArrowArray> column;
  Released<ArrowSchema> type;
  {
    ColumnBuilder columns({id::kDateTime, id::kInt});
    mInt message;
    ASSERT_TRUE(message.add(id::kDateTime, MD_DateTime(20240115, 1, 2)));
    ASSERT_TRUE(columns.append(message));
    Released<ArrowSchema> schema;
    Released<ArrowArray> batch;
    columns.exportSchema(&schema);
    ASSERT_TRUE(columns.exportBatch(&batch));
    *column = *batch->children[0];
    batch->children[0]->release = nullptr;
    *type = *schema->children[0];
    schema->children[0]->release = nullptr;
  }
  EXPECT_EQ(arrowText(*type, *column, 0), "(20240115 1 2)");
}

TEST_F(Columns, MoveWithTheirBuilder) {
  ColumnBuilder columns({id::kString});
  ASSERT_TRUE(columns.append(*quote(ENCODINGS::MINT, "IBM", 1)));
  ColumnBuilder moved(std::move(columns));
  ASSERT_TRUE(moved.append(*quote(ENCODINGS::MINT, "AAPL", 1)));
  columns = std::move(moved);
  EXPECT_EQ(streamTextOf(columns), "'IBM'\n'AAPL'\n");
}

}  // namespace
}  // namespace MD::test
