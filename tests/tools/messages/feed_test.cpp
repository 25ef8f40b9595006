// Generated feeds.
#include "messages/feed.h"

#include <map>

#include <gtest/gtest.h>

#include "base/hex.h"
#include "dictionary/dictionary.h"
#include "messages/message_builder.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;

class FeedBytes : public testing::Test {
 protected:
  FeedBytes() { loadBuiltInDictionary(); }

  static std::vector<std::string> hexOf(const FeedOptions& options) {
    Feed feed(options);
    std::vector<std::string> lines;
    while (feed.next()) {
      appendHex(feed.bytes().data(), feed.bytes().size(), lines.emplace_back());
    }
    return lines;
  }
};

TEST_F(FeedBytes, AreTheSameForTheSameOptions) {
  FeedOptions options;
  options.messages = 500;
  options.damagedPercent = 10;
  const auto lines = hexOf(options);
  EXPECT_EQ(lines.size(), 500U);
  EXPECT_EQ(hexOf(options), lines);
  options.seed = 2;
  EXPECT_NE(hexOf(options), lines);
}

TEST_F(FeedBytes, SendTheFieldsOfTheBuiltInDictionary) {
  FeedOptions options;
  options.messages = 200;
  options.tradesPercent = 50;
  Feed feed(options);
  const MD::MD_FieldMap& map = MD::MD_FieldMap::instance();
  std::uint64_t trades = 0;
  std::int64_t seq = 0;
  std::int64_t lastNs = options.startNs;
  while (feed.next()) {
    const auto message =
        MD::MD_Message::createFromBytes(feed.bytes().data(), static_cast<std::uint32_t>(feed.bytes().size()));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->getSizeImpl(), feed.bytes().size());
    std::int64_t number = 0;
    char kind = 0;
    MD::MD_EpochNS time;
    std::string symbol;
    ASSERT_TRUE(message->get(map.nameToId("SEQ"), number));
    ASSERT_TRUE(message->get(map.nameToId("MSG_KIND"), kind));
    ASSERT_TRUE(message->get(map.nameToId("SEND_TIME"), time));
    ASSERT_TRUE(message->get(map.nameToId("SYMBOL"), symbol));
    EXPECT_EQ(number, ++seq);
    EXPECT_EQ(time, MD::MD_EpochNS(static_cast<std::uint64_t>(feed.timeNs())));
    EXPECT_NE(std::find(options.symbols.begin(), options.symbols.end(), symbol), options.symbols.end());
    // At 1000 a second they are half a millisecond to one and a half apart.
    if (seq == 1) {
      EXPECT_EQ(feed.timeNs(), options.startNs);
    } else {
      EXPECT_GE(feed.timeNs() - lastNs, 500'000);
      EXPECT_LE(feed.timeNs() - lastNs, 1'500'000);
    }
    lastNs = feed.timeNs();
    if (kind == 'T') {
      ++trades;
      double last = 0;
      char side = 0;
      ASSERT_TRUE(message->get(map.nameToId("LAST"), last));
      ASSERT_TRUE(message->get(map.nameToId("SIDE"), side));
      EXPECT_TRUE(side == 'B' || side == 'S');
      EXPECT_GE(last, 1.0);
    } else {
      double bid = 0;
      double ask = 0;
      std::int32_t orders = 0;
      ASSERT_TRUE(message->get(map.nameToId("BID"), bid));
      ASSERT_TRUE(message->get(map.nameToId("ASK"), ask));
      ASSERT_TRUE(message->get(map.nameToId("BID_ORDERS"), orders));
      EXPECT_LT(bid, ask);
      EXPECT_GE(bid, 1.0);
    }
  }
  EXPECT_EQ(feed.counts().messages, 200U);
  EXPECT_EQ(feed.counts().trades, trades);
  EXPECT_GT(trades, 50U);
  EXPECT_LT(trades, 150U);
}

TEST_F(FeedBytes, DamageIsOfEveryKindAndCounted) {
  FeedOptions options;
  options.messages = 400;
  options.damagedPercent = 100;
  Feed feed(options);
  while (feed.next()) {
  }
  const auto& damages = feed.counts().damages;
  EXPECT_EQ(damages[0], 0U);
  std::uint64_t all = 0;
  for (std::size_t kind = 1; kind != damages.size(); ++kind) {
    EXPECT_GT(damages[kind], 50U);
    all += damages[kind];
  }
  EXPECT_EQ(all, 400U);
}

}  // namespace
