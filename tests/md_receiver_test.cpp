// MD::Receiver and MD::visit, which together read received messages through their own classes.
#include "md/md_receiver.h"

#include <cstdint>

#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "md/md_visit.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD::test {
namespace {

constexpr const char* kMIntBytes = "06 2C 01 01 05";
constexpr const char* kIterMapBytes = "01 2C 01 06 00 00 00";
constexpr const char* kMsgTBytes = "46 51 52 31 01 2C 00 02 00 00 00 04 00 00 00 07";

class ReceiverTest : public testing::Test {
 protected:
  ReceiverTest() { loadDictionary(kDictionary); }

  MD_Message* parse(const Bytes& bytes) {
    const HeapBlock block(bytes);
    return m_receiver.parse(block.data(), block.size());
  }

  Receiver m_receiver;
};

TEST_F(ReceiverTest, ParsesEachEncoding) {
  for (const char* hex : {kMIntBytes, kIterMapBytes, kMsgTBytes, kMIntBytes}) {
    const Bytes bytes = fromHex(hex);
    const MD_Message* const message = parse(bytes);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->getPB(), bytes[0]);
    EXPECT_EQ(bytesOf(*message), bytes);
  }
}

TEST_F(ReceiverTest, RefusesBytesOfNoEncodingAndKeepsItsMessages) {
  const MD_Message* const message = parse(fromHex(kMIntBytes));
  EXPECT_EQ(parse(fromHex("07 2C 01 01 05")), nullptr);
  EXPECT_EQ(parse({}), nullptr);
  EXPECT_EQ(m_receiver.parse(nullptr, 5), nullptr);
  EXPECT_EQ(hexOf(*message), kMIntBytes);
}

TEST_F(ReceiverTest, ReusesAMessageOfAnEncoding) {
  MD_Message* const first = parse(fromHex(kMIntBytes));
  first->add(id::kInt2, 9);
  EXPECT_EQ(parse(fromHex(kMIntBytes)), first);
  EXPECT_EQ(hexOf(*first), kMIntBytes) << "nothing of an earlier message is left";
}

TEST_F(ReceiverTest, ReportsDroppedRecordsAsTheFactoryDoes) {
  const Bytes bytes = fromHex("06 0F 27 01 07 2C 01 01 05");
  CapturedErrors errors;
  MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  const std::string expected = errors.take();
  EXPECT_NE(expected, "");
  EXPECT_EQ(hexOf(*parse(bytes)), kMIntBytes);
  EXPECT_EQ(errors.take(), expected);
}

template <class Message>
const char* nameOf(const Message&) {
  return std::is_same_v<Message, mInt> ? "mInt" : std::is_same_v<Message, IterMap> ? "IterMap" : "MsgT";
}

TEST_F(ReceiverTest, IsVisitedByClass) {
  struct {
    const char* bytes;
    const char* name;
    std::int32_t value;
  } const cases[] = {{kMIntBytes, "mInt", 5}, {kIterMapBytes, "IterMap", 6}, {kMsgTBytes, "MsgT", 7}};
  for (const auto& row : cases) {
    MD_Message& message = *parse(fromHex(row.bytes));
    const MD_Message& constant = message;
    EXPECT_STREQ(visit(constant, [](const auto& own) { return nameOf(own); }), row.name);
    std::int32_t value = 0;
    EXPECT_TRUE(visit(constant, [&](const auto& own) { return own.get(id::kInt, value); }));
    EXPECT_EQ(value, row.value);
    EXPECT_TRUE(visit(message, [](auto& own) { return own.add(id::kInt2, 8); }));
    EXPECT_TRUE(constant.existsImpl(id::kInt2));
  }
}

TEST_F(ReceiverTest, VisitReturnsReferences) {
  MD_Message& message = *parse(fromHex(kMsgTBytes));
  decltype(auto) same = visit(message, [](auto& own) -> MD_Message& { return own; });
  static_assert(std::is_same_v<decltype(same), MD_Message&>);
  EXPECT_EQ(&same, &message);
}

}  // namespace
}  // namespace MD::test
