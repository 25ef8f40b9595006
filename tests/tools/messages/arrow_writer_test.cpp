// Messages as Arrow IPC: its bytes are compared with files that other implementations read (tests/arrow/).
#include "messages/arrow_writer.h"

#include <cstdint>
#include <cstring>

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_mint.h"
#include "support/messages.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::lineErrorOf;
using MD::test::Reports;
namespace id = MD::test::id;

#if defined(MDMSG_HAS_FLATBUFFERS)

/// The messages of a stream, each as its metadata; the end is empty.
std::vector<std::string> metadataOf(std::string_view stream) {
  std::vector<std::string> all;
  while (!stream.empty()) {
    std::uint32_t mark = 0;
    std::uint32_t sizeBytes = 0;
    std::memcpy(&mark, stream.data(), 4);
    std::memcpy(&sizeBytes, stream.data() + 4, 4);
    EXPECT_EQ(mark, 0xffffffffU);
    EXPECT_EQ(sizeBytes % 8, 0U);
    all.emplace_back(stream.substr(8, sizeBytes));
    stream.remove_prefix(8 + sizeBytes);
    // The next message begins with the mark; nothing in these tests has it in a body.
    const std::size_t next = stream.find("\xff\xff\xff\xff");
    stream.remove_prefix(next == stream.npos ? stream.size() : next);
  }
  return all;
}

class ArrowOutput : public testing::Test {
 protected:
  ArrowOutput() { MD::test::loadDictionary(MD::test::kDictionary); }

  void write(const std::vector<Field>& columns, const std::vector<MD::mInt*>& messages) {
    const FieldNames names;
    ArrowWriter writer(columns, names, m_options, m_reports.out, m_reports.reporter);
    m_reports.reporter.setInput("in");
    std::uint64_t line = 0;
    for (const MD::mInt* const message : messages) {
      m_reports.reporter.setLine(++line);
      try {
        writer.append(*message);
      } catch (const LineError& error) {
        m_reports.reporter.error(error);
      }
    }
    m_reports.reporter.setLine(99);
    writer.finish();
    m_reports.out.finish();
  }

  /// The names of columns in the schema.
  std::string columns() const {
    const std::string schema = metadataOf(m_reports.outText.str()).at(0);
    std::string found;
    for (const char* name : {"QTY", "BID", "SYMBOL", "VENUE"}) {
      found += schema.find(name) != std::string::npos ? std::string(name) + " " : "";
    }
    return found;
  }

  ArrowOptions m_options;
  Reports m_reports;
};

TEST_F(ArrowOutput, HasTheChosenColumnsAndABatchPerSoManyRows) {
  m_options.batchRows = 2;
  MD::mInt message;
  ASSERT_TRUE(message.add(id::kInt, 5));
  ASSERT_TRUE(message.add(id::kDouble, 0.5));
  write({{id::kInt, MD::DATATYPES::INT}}, {&message, &message, &message, &message, &message});
  EXPECT_EQ(columns(), "QTY ");
  EXPECT_EQ(metadataOf(m_reports.outText.str()).size(), 1U + 3 + 1);
  EXPECT_EQ(m_reports.text(), "");
}

TEST_F(ArrowOutput, HasTheFieldsOfTheFirstBatchWhenNoneAreChosen) {
  m_options.batchRows = 2;
  MD::mInt first;
  ASSERT_TRUE(first.add(id::kDouble, 0.5));
  MD::mInt second;
  ASSERT_TRUE(second.add(id::kInt, 5));
  MD::mInt later;
  ASSERT_TRUE(later.add(id::kInt, 5));
  ASSERT_TRUE(later.addString(id::kString2, "Q"));
  write({}, {&first, &second, &later, &later});
  EXPECT_EQ(columns(), "QTY BID ");
  EXPECT_EQ(m_reports.text(),
            "mdmsg: in:3: note: field VENUE: is not a column, because no message of the first batch has it; choose "
            "columns with "
            "--fields\n");
  EXPECT_EQ(m_reports.reporter.status(), kBadData);
}

TEST_F(ArrowOutput, IsASchemaAndAnEndWithoutMessages) {
  write({}, {});
  EXPECT_EQ(metadataOf(m_reports.outText.str()).size(), 2U);
}

TEST_F(ArrowOutput, NamesTheMessageAndTheFieldOfTextThatIsNotUtf8) {
  MD::mInt good;
  ASSERT_TRUE(good.addString(id::kString, "IBM"));
  MD::mInt bad;
  ASSERT_TRUE(bad.addString(id::kString, "I\xff"));
  const std::string report = "mdmsg: in:2: field SYMBOL (60): byte 0xff at offset 1 is not UTF-8\n";
  write({{id::kString, MD::DATATYPES::STRING}}, {&good, &bad, &good});
  EXPECT_EQ(m_reports.text(), report);
  // The place is that of the message also where it was held.
  m_reports.errText.str({});
  write({}, {&good, &bad, &good});
  EXPECT_EQ(m_reports.text(), report);
}

TEST_F(ArrowOutput, HoldsAnyTextAsBinary) {
  m_options.isTextBinary = true;
  MD::mInt message;
  ASSERT_TRUE(message.addString(id::kString, "I\xff"));
  write({}, {&message});
  EXPECT_EQ(m_reports.text(), "");
  EXPECT_NE(m_reports.outText.str().find("I\xff"), std::string::npos);
}

TEST_F(ArrowOutput, NotesWhatCannotBeRead) {
  const auto message = MD::test::parse<MD::mInt>(MD::test::fromHex("06 16 00 08 01 02"));
  write({{id::kDouble, MD::DATATYPES::DOUBLE}}, {message.get()});
  EXPECT_NE(m_reports.text().find("mdmsg: in:1: note: field BID: "), std::string::npos) << m_reports.text();
}

#else

TEST(ArrowOutput, SaysWhatIsMissing) {
  Reports reports;
  EXPECT_THROW(ArrowWriter({}, FieldNames(), {}, reports.out, reports.reporter), UsageError);
}

#endif

}  // namespace
