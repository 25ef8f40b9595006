#include "md/md_assert.h"

#include <csignal>
#include <cstdint>

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "md/md_msgdata.h"
#include "support/assertions.h"

namespace MD {
namespace {

void ignore(const char*, const char*, unsigned) {}

void refuse(const char* expression, const char*, unsigned) { throw std::logic_error(expression); }

// Any failed assertion will do: the end of the range is before its start.
void failAnAssertion(MsgData& buffer) {
  const std::uint8_t bytes[2] = {1, 2};
  buffer.insert(buffer.end(), bytes + 1, bytes);
}

TEST(AssertionHandler, IsExchangedForThePreviousOne) {
  EXPECT_EQ(set_assertion_handler(&ignore), nullptr) << "the default is told as null";
  EXPECT_EQ(set_assertion_handler(&refuse), &ignore);
  EXPECT_EQ(set_assertion_handler(nullptr), &refuse);
  EXPECT_EQ(set_assertion_handler(nullptr), nullptr);
}

TEST(AssertionHandler, GetsExpressionFileAndLine) {
  const test::RecordedAssertions assertions;
  MsgData buffer;
  failAnAssertion(buffer);
  ASSERT_EQ(assertions.entries().size(), 1u);
  EXPECT_EQ(assertions.entries()[0], "md_message/include/md/md_msgdata:98: last >= first");
}

TEST(AssertionHandler, MayReturnAndTheOperationGoesOn) {
  const AssertionHandler previous = set_assertion_handler(&ignore);
  MsgData buffer;
  failAnAssertion(buffer);
  set_assertion_handler(previous);
  EXPECT_EQ(buffer.size(), 0u);
  EXPECT_EQ(buffer.capacity(), 0u);
}

TEST(AssertionHandler, MayThrow) {
  const AssertionHandler previous = set_assertion_handler(&refuse);
  MsgData buffer;
  std::string text;
  try {
    failAnAssertion(buffer);
  } catch (const std::logic_error& error) {
    text = error.what();
  }
  set_assertion_handler(previous);
  EXPECT_EQ(text, "last >= first");
  EXPECT_EQ(buffer.size(), 0u);
}

// The default calls the C runtime, whose words differ from system to system.
TEST(AssertionHandlerDeathTest, StopsTheProcessWithAMessageByDefault) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MsgData buffer;
#if defined(__GLIBC__)
  EXPECT_EXIT(failAnAssertion(buffer), testing::KilledBySignal(SIGABRT),
              "md_message/include/md/md_msgdata:98: .*Assertion .last >= first. failed\\.");
#else
  EXPECT_DEATH(failAnAssertion(buffer), "last >= first, .*md_message/include/md/md_msgdata, line 98");
#endif
}

TEST(AssertionHandlerDeathTest, StopsTheProcessAgainOnceNullIsGiven) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MsgData buffer;
  set_assertion_handler(&ignore);
  failAnAssertion(buffer);
  set_assertion_handler(nullptr);
  EXPECT_DEATH(failAnAssertion(buffer), "last >= first");
}

}  // namespace
}  // namespace MD
