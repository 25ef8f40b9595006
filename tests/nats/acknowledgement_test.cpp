#include "nats/acknowledgement.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using MD::tool::Acknowledgement;
using MD::tool::parseAcknowledgement;
using Kind = MD::tool::Acknowledgement::Kind;

struct AnswerCase {
  const char* name;
  const char* text;
  Kind kind;
  const char* stream;
  const char* reason;
};

constexpr AnswerCase kAnswers[] = {
    {"Stored", R"({"stream":"MD","seq":7})", Kind::Stored, "MD", ""},
    {"StoredInADomain", R"({"stream":"MD","domain":"hub","seq":7})", Kind::Stored, "MD", ""},
    {"StoredAsTheServerWritesIt", R"({"stream":"MD", "seq":18446744073709551615})", Kind::Stored, "MD", ""},
    {"DuplicateAsTheServerWritesIt", R"({"stream":"MD", "seq":7,"duplicate": true})", Kind::Duplicate, "MD", ""},
    {"EscapedName", R"({"stream":"M\u0044", "seq":7})", Kind::Stored, "MD", ""},
    {"NoName", R"({"stream":"", "seq":7})", Kind::Refused, "",
     R"(an answer that is not an acknowledgement: "{"stream":"", "seq":7}")"},
    {"NoSequence", R"({"stream":"MD", "seq":})", Kind::Refused, "",
     R"(an answer that is not an acknowledgement: "{"stream":"MD", "seq":}")"},
    {"LeadingZero", R"({"stream":"MD", "seq":07})", Kind::Refused, "",
     R"(an answer that is not an acknowledgement: "{"stream":"MD", "seq":07}")"},
    {"SequenceTooLarge", R"({"stream":"MD", "seq":18446744073709551616})", Kind::Refused, "MD",
     R"(an answer that is not an acknowledgement: "{"stream":"MD", "seq":18446744073709551616}")"},
    {"TextBehind", R"({"stream":"MD", "seq":7}})", Kind::Refused, "",
     R"(an answer that is not an acknowledgement: "{"stream":"MD", "seq":7}}")"},
    {"Duplicate", R"({"stream":"MD","seq":7,"duplicate":true})", Kind::Duplicate, "MD", ""},
    {"NoDuplicate", R"({"stream":"MD","seq":7,"duplicate":false})", Kind::Stored, "MD", ""},
    {"Full",
     R"({"error":{"code":503,"err_code":10077,"description":"maximum messages exceeded"},"stream":"MD","seq":0})",
     Kind::Refused, "MD", "maximum messages exceeded"},
    {"NotReady", R"({"error":{"code":503,"err_code":10008,"description":"JetStream system temporarily unavailable"}})",
     Kind::NotNow, "", "JetStream system temporarily unavailable"},
    {"ControlCharacters", R"({"error":{"description":"a\u001b[2J"}})", Kind::Refused, "", R"(a\x1b[2J)"},
    {"AnErrorThatIsNoObject", R"({"error":7})", Kind::Refused, "", "an error without a text"},
    {"WithoutAStream", R"({"seq":7})", Kind::Refused, "", R"(an answer that is not an acknowledgement: "{"seq":7}")"},
    {"ASequenceThatIsNoNumber", R"({"stream":"MD","seq":"7"})", Kind::Refused, "MD",
     R"(an answer that is not an acknowledgement: "{"stream":"MD","seq":"7"}")"},
    {"NoJson", "+OK", Kind::Refused, "", R"(an answer that is not an acknowledgement: "+OK")"},
    {"Nothing", "", Kind::Refused, "", R"(an answer that is not an acknowledgement: "")"},
    {"NoObject", "[1]", Kind::Refused, "", R"(an answer that is not an acknowledgement: "[1]")"},
};

class Answer : public testing::TestWithParam<AnswerCase> {};

TEST_P(Answer, IsRead) {
  const std::string text = GetParam().text;
  const Acknowledgement read = parseAcknowledgement(text.data(), text.size());
  EXPECT_EQ(read.kind, GetParam().kind);
  EXPECT_EQ(read.stream, GetParam().stream);
  EXPECT_EQ(read.reason, GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(All, Answer, testing::ValuesIn(kAnswers),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Answers, DeepNestingIsNoProblem) {
  const std::string text = std::string(100000, '[') + std::string(100000, ']');
  EXPECT_EQ(parseAcknowledgement(text.data(), text.size()).kind, Kind::Refused);
}

}  // namespace
