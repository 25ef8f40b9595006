#include "nats/subject.h"

#include <cstdint>

#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "base/errors.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/dictionary.h"

namespace {

using namespace std::string_view_literals;
using MD::tool::appendToken;
using MD::tool::FieldNames;
using MD::tool::LineError;
using MD::tool::partitionOf;
using MD::tool::SubjectTemplate;
using MD::tool::tokenValue;
using MD::tool::UsageError;

std::string tokenOf(std::string_view value) {
  std::string token;
  appendToken(value, token);
  return token;
}

struct TokenCase {
  const char* name;
  std::string_view value;
  const char* token;
};

constexpr TokenCase kTokens[] = {
    {"AnOrdinarySymbolStaysAsItIs", "BTC-USD_PERP", "BTC-USD_PERP"},
    {"SlashesStay", "NEB/USD", "NEB/USD"},
    {"DollarsStayBehindTheFirstToken", "$JS", "$JS"},
    {"ADot", "BRK.B", "BRK%2EB"},
    {"AWildcardForOneToken", "*", "%2A"},
    {"AWildcardForTheRest", ">", "%3E"},
    {"TheEscapeItself", "50%", "50%25"},
    {"ABlank", "A B", "A%20B"},
    {"ATab", "A\tB", "A%09B"},
    {"ALineEndAndAnotherCommand", "A\r\nPUB x 0", "A%0D%0APUB%20x%200"},
    {"ANul", "A\0B"sv, "A%00B"},
    {"Delete", "\x7f", "%7F"},
    {"Utf8", "\xc3\xa9", "%C3%A9"},
    {"NoUtf8", "\xff\x80", "%FF%80"},
    {"Nothing", "", "%"},
    {"TextThatLooksEscaped", "%2E", "%252E"},
    {"TextThatLooksAbsent", "%-", "%25-"},
};

class Token : public testing::TestWithParam<TokenCase> {};

TEST_P(Token, IsOneTokenAndLeadsBack) {
  const std::string token = tokenOf(GetParam().value);
  EXPECT_EQ(token, GetParam().token);
  EXPECT_EQ(tokenValue(token), std::string(GetParam().value));
}

INSTANTIATE_TEST_SUITE_P(All, Token, testing::ValuesIn(kTokens),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(TokenValue, EveryByteLeadsBackAndNoneBreaksTheToken) {
  for (int first = 0; first != 256; ++first) {
    for (int second = 0; second != 256; ++second) {
      const std::string value{static_cast<char>(first), static_cast<char>(second)};
      const std::string token = tokenOf(value);
      ASSERT_EQ(token.find_first_of(".*> \t\r\n"), token.npos) << first << ' ' << second;
      ASSERT_EQ(tokenValue(token), value);
    }
  }
}

TEST(TokenValue, RefusesWhatNoValueBecomes) {
  for (const char* const text : {"", "%-", "%2", "%2e", "%ZZ", "A%41", "a.b", "a b", "%%", "A%"}) {
    EXPECT_FALSE(tokenValue(text)) << text;
  }
}

TEST(PartitionOf, IsTheDocumentedHash) {
  // FNV-1a, 64 bits: of "" cbf29ce484222325, of "a" af63dc4c8601ec8c, of "foobar" 85944171f73967e8.
  EXPECT_EQ(partitionOf("", 1'000'000'007), 0xcbf29ce484222325 % 1'000'000'007);
  EXPECT_EQ(partitionOf("a", 16), 0xcU);
  EXPECT_EQ(partitionOf("foobar", 256), 0xe8U);
  EXPECT_EQ(partitionOf("anything", 1), 0U);
}

class Template : public testing::Test {
 protected:
  Template() {
    MD::test::loadDictionary(MD::test::kDictionary);
    m_message.add(MD::test::id::kString, "BRK.B");
    m_message.add(MD::test::id::kString2, "");
    m_message.add(MD::test::id::kInt64, std::int64_t{-7});
    m_message.add(MD::test::id::kChar, '*');
    m_message.add(MD::test::id::kEpochNS, MD::MD_EpochNS(1717407000000000001));
    m_message.add(MD::test::id::kDouble, 1.5);
  }

  static std::string subjectOf(const std::string& text, const std::uint8_t* bytes, std::uint32_t sizeBytes) {
    const FieldNames names;
    std::string subject;
    SubjectTemplate(text, names).append(bytes, sizeBytes, subject);
    return subject;
  }
  std::string subjectOf(const std::string& text) const {
    return subjectOf(text, m_message.getBinary(), m_message.getSizeImpl());
  }
  static std::string complaintAbout(const std::string& text) {
    try {
      const FieldNames names;
      const SubjectTemplate subject(text, names);
    } catch (const UsageError& error) {
      return error.what();
    }
    return "none";
  }

  MD::mInt m_message;
};

TEST_F(Template, FieldsBecomeTokens) {
  EXPECT_EQ(subjectOf("md"), "md");
  EXPECT_EQ(subjectOf("md.{SYMBOL}"), "md.BRK%2EB");
  EXPECT_EQ(subjectOf("md.{60}.quotes"), "md.BRK%2EB.quotes");
  EXPECT_EQ(subjectOf("md.{VENUE}.{CH}.{SEQ}"), "md.%.%2A.-7");
  EXPECT_EQ(subjectOf("md.v{SEQ}x.{RECV}"), "md.v-7x.1717407000000000001");
}

TEST_F(Template, AnAbsentFieldDiffersFromAnEmptyOne) {
  EXPECT_EQ(subjectOf("md.{VENUE}.{QTY}"), "md.%.%-");
  const std::uint8_t truncated[] = {6, 60, 0, 40, 0, 'A'};
  EXPECT_EQ(subjectOf("md.{SYMBOL}", truncated, sizeof truncated), "md.%-");
  EXPECT_EQ(subjectOf("md.{SYMBOL}", nullptr, 0), "md.%-");
}

TEST_F(Template, PartitionsGoByTheValue) {
  EXPECT_EQ(subjectOf("md.{SYMBOL%16}.{SYMBOL}"), "md." + std::to_string(partitionOf("BRK.B", 16)) + ".BRK%2EB");
  EXPECT_EQ(subjectOf("md.{VENUE%7}"), "md." + std::to_string(partitionOf("", 7)));
  EXPECT_EQ(subjectOf("md.{QTY%7}"), "md." + std::to_string(partitionOf("", 7)));
}

TEST_F(Template, LongValuesAreKeptUpToTheLimitOfASubject) {
  const auto subjectWith = [](std::size_t length, char filling) {
    MD::MsgT message;
    message.add(MD::test::id::kString, std::string(length, filling));
    return subjectOf("md.{SYMBOL}", message.getBinary(), message.getSizeImpl());
  };
  constexpr std::size_t kMostBytes = SubjectTemplate::kMostBytes - 3;
  EXPECT_EQ(subjectWith(kMostBytes, 'A'), "md." + std::string(kMostBytes, 'A'));
  EXPECT_THROW(subjectWith(kMostBytes + 1, 'A'), LineError);
  // Each byte takes three.
  EXPECT_EQ(subjectWith(kMostBytes / 3, '.').size(), 3 + kMostBytes / 3 * 3);
  EXPECT_THROW(subjectWith(kMostBytes / 3 + 1, '.'), LineError);
  EXPECT_THROW(subjectWith(65000, '.'), LineError);
}

TEST_F(Template, WildcardMatchesAllSubjects) {
  const FieldNames names;
  EXPECT_EQ(SubjectTemplate("md.{SYMBOL%4}.v{SEQ}.x.{SYMBOL}", names).wildcard(), "md.*.*.x.*");
  EXPECT_EQ(SubjectTemplate("md", names).wildcard(), "md");
}

TEST_F(Template, RefusesWhatIsNoSubject) {
  EXPECT_EQ(complaintAbout("md.{SYMBOL}"), "none");
  EXPECT_EQ(complaintAbout(""), "--subject \"\": it is empty");
  EXPECT_EQ(complaintAbout("md..x"), "--subject \"md..x\": it has an empty token");
  EXPECT_EQ(complaintAbout(".md"), "--subject \".md\": it has an empty token");
  EXPECT_EQ(complaintAbout("md."), "--subject \"md.\": it has an empty token");
  for (const char* const text : {"md.*", "md.>", "md x", "md.\xc3\xa9"}) {
    EXPECT_NE(complaintAbout(text).find("must not contain white space, wildcards or characters outside ASCII"),
              std::string::npos)
        << text;
  }
  // A received value would choose a subject of the server's, or another client's inbox.
  for (const char* const text : {"{SYMBOL}", "{SYMBOL}.x", "$JS.API", "_INBOX.x"}) {
    EXPECT_NE(complaintAbout(text).find("must begin with fixed text"), std::string::npos) << text;
  }
  EXPECT_NE(complaintAbout("md.{SYMBOL").find("a brace is not closed"), std::string::npos);
  EXPECT_NE(complaintAbout("md.SYMBOL}").find("a brace is not opened"), std::string::npos);
  EXPECT_NE(complaintAbout("md.{NOPE}").find("field NOPE: "), std::string::npos);
  EXPECT_NE(complaintAbout("md.{BID}").find("values of its type cannot be in a subject"), std::string::npos);
  for (const char* const text : {"md.{SYMBOL%0}", "md.{SYMBOL%}", "md.{SYMBOL%-1}", "md.{SYMBOL%99999999999}"}) {
    EXPECT_NE(complaintAbout(text).find("is not a number of partitions"), std::string::npos) << text;
  }
}

}  // namespace
