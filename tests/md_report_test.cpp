#include "md/md_report.h"

#include <cstddef>
#include <cstdint>

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/messages.h"
#include "support/recorded_reports.h"

namespace MD::test {
namespace {

using Texts = std::vector<std::string>;

void ignore(const char*, std::size_t) {}

void refuse(const char* text, std::size_t) { throw std::logic_error(text); }

const std::string kRefusedAdd = report("mInt Error: Attempting to ADD a field with incorrect id!", id::kUnknown, 2, 1);

class ReportHandlerTest : public testing::Test {
 protected:
  ReportHandlerTest() { loadDictionary(kDictionary); }

  mInt m_message;
  CapturedErrors m_errors;
};

TEST_F(ReportHandlerTest, IsExchangedForThePreviousOne) {
  EXPECT_EQ(set_report_handler(&ignore), nullptr) << "the default reads as null";
  EXPECT_EQ(set_report_handler(&refuse), &ignore);
  EXPECT_EQ(set_report_handler(nullptr), &refuse);
  EXPECT_EQ(set_report_handler(nullptr), nullptr);
}

TEST_F(ReportHandlerTest, GetsEachReportAsAWholeInsteadOfStandardError) {
  const RecordedReports reports;
  EXPECT_FALSE(m_message.add(id::kUnknown, 5));
  EXPECT_FALSE(m_message.add(id::kString, std::string(255, 'x')));
  EXPECT_EQ(RecordedReports::take(),
            (Texts{kRefusedAdd, "mInt Error: Attempting to ADD field of length 256 which is > max length 255\n"}));
  EXPECT_EQ(m_errors.take(), "");
}

TEST_F(ReportHandlerTest, IsNotCalledWhereNothingIsReported) {
  const RecordedReports reports;
  int value = 0;
  EXPECT_TRUE(m_message.add(id::kInt, 5));
  EXPECT_FALSE(m_message.add(id::kInt, 5));
  EXPECT_FALSE(m_message.get(id::kUnknown, value));
  EXPECT_EQ(RecordedReports::take(), Texts());
}

TEST_F(ReportHandlerTest, FindsANulBehindTheText) {
  static bool isTerminated = false;
  const ReportHandler previous =
      set_report_handler([](const char* text, std::size_t length) { isTerminated = text[length] == '\0'; });
  m_message.add(id::kUnknown, 5);
  set_report_handler(previous);
  EXPECT_TRUE(isTerminated);
}

TEST_F(ReportHandlerTest, GivesWayToStandardErrorOnceNullIsGiven) {
  set_report_handler(&ignore);
  m_message.add(id::kUnknown, 5);
  EXPECT_EQ(m_errors.take(), "");
  set_report_handler(nullptr);
  m_message.add(id::kUnknown, 5);
  EXPECT_EQ(m_errors.take(), kRefusedAdd);
}

TEST_F(ReportHandlerTest, MayUseOtherMessages) {
  const ReportHandler previous = set_report_handler([](const char* text, std::size_t length) {
    if (length < 1000) {
      mInt message;
      message.add(id::kInt, 5);
      message.add(id::kString, std::string(text, length));
      set_report_handler(nullptr);
      message.add(id::kUnknown, 5);
    }
  });
  m_message.add(id::kUnknown, 5);
  set_report_handler(previous);
  EXPECT_EQ(m_errors.take(), kRefusedAdd) << "of the handler's own message";
}

// It must not throw; what it throws in spite of that does not reach an operation halfway.
TEST_F(ReportHandlerTest, ThrowsToNobody) {
  const ReportHandler previous = set_report_handler(&refuse);
  EXPECT_NO_THROW(EXPECT_FALSE(m_message.add(id::kUnknown, 5)));
  const Bytes received = fromHex("06 2C 01 01 05 E7 03 00");
  EXPECT_NO_THROW(m_message.setBinaryImpl(received.data(), static_cast<std::uint32_t>(received.size())));
  set_report_handler(previous);
  EXPECT_EQ(hexOf(m_message), toHex(fromHex("06 2C 01 01 05")));
}

// The reports of bad fields are counted once a process, so this takes one of its own.
TEST(ReportHandlerDeathTest, GetsBadFieldsAndTheDumpOfWhatIsLeft) {
  expectInFreshProcess([] {
    loadDictionary(kDictionary);
    CapturedErrors errors;
    const RecordedReports reports;
    parse(6, fromHex("06 2C 01 01 05 E7 03 03 AA BB CC 0A 00 01 41"));
    EXPECT_EQ(RecordedReports::take(), (Texts{badField(999, 0, 3), remainder("QTY                    = 5\n"
                                                                             "CH                     = A\n")}));
    parse(1, fromHex("01 E7 03 3C 00 09 00 42"));
    EXPECT_EQ(RecordedReports::take(),
              (Texts{badField(999, 0, 0),
                     report("IterMap Error: Attempting to GET a field of incorrect type OR overflow error", 60, 6, 9),
                     remainder("SYMBOL                 = <VARIANT>\n")}));
    EXPECT_EQ(errors.take(), "");
  });
}

}  // namespace
}  // namespace MD::test
