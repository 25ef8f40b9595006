// "did you mean".
#include "text/similar_words.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using MD::tool::SimilarWord;

struct SimilarCase {
  const char* name;
  const char* wanted;
  const char* question;
};

constexpr SimilarCase kCases[] = {
    {"ALetterInserted", "BIDS", "; did you mean BID?"},
    {"ALetterRemoved", "BD", "; did you mean BID?"},
    {"ALetterReplaced", "BIT", "; did you mean BID?"},
    {"NeighboursExchanged", "BDI", "; did you mean BID?"},
    {"CaseIsIgnored", "bidd", "; did you mean BID?"},
    {"TwoOfFive", "SIMBL", "; did you mean SYMBOL?"},
    {"TwoOfFour", "SMBL", ""},
    {"ThreeOfEight", "TRADEVOL", "; did you mean TRADE_VOLI?"},
    {"FourOfMany", "TRADE_PRICE_IS", ""},
    {"TheMostSimilar", "BID_QTX", "; did you mean BID_QTY?"},
    {"TheFirstOfThoseEquallySimilar", "XSK", "; did you mean ASK?"},
    {"NothingIsLikeOneLetter", "X", ""},
    {"NothingIsLikeNothing", "", ""},
};

class SimilarWords : public testing::TestWithParam<SimilarCase> {};

TEST_P(SimilarWords, AreAskedFor) {
  SimilarWord similar(GetParam().wanted);
  for (const char* const word : {"BID", "ASK", "OSK", "BID_QTX_2", "BID_QTY", "SYMBOL", "TRADE_VOLI", "TRADE", ""}) {
    similar.offer(word);
  }
  EXPECT_EQ(similar.question(), GetParam().question);
}

INSTANTIATE_TEST_SUITE_P(All, SimilarWords, testing::ValuesIn(kCases),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(SimilarWord, MayBeHostile) {
  SimilarWord escape("aaaaa\x1b\x1b");
  escape.offer("aaaaa\x1b");
  EXPECT_EQ(escape.question(), "; did you mean aaaaa\\x1b?");
  // Beyond 64 characters nothing is compared.
  SimilarWord atMost(std::string(64, 'x'));
  atMost.offer(std::string(64, 'x'));
  EXPECT_NE(atMost.question(), "");
  SimilarWord longer(std::string(65, 'x'));
  longer.offer(std::string(65, 'x'));
  longer.offer(std::string(64, 'x'));
  EXPECT_EQ(longer.question(), "");
}

}  // namespace
