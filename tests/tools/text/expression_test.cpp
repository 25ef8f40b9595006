// The grammar of --where: tokens, precedence, evaluation and errors with their columns.
#include "text/expression.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace MD::tool;

/// The tests of an expression, as "FIELD operator VALUE".
std::string testsOf(const Expression& expression) {
  std::string text;
  for (const ExpressionTest& test : expression.tests()) {
    text += (text.empty() ? "" : "; ") + test.field.text;
    text += test.comparison == Comparison::In       ? " in"
            : test.comparison == Comparison::Exists ? " exists"
                                                    : std::string(" ") + operatorText(test.comparison);
    for (const ExpressionWord& value : test.values) {
      text += " [" + value.text + ']';
    }
  }
  return text;
}

std::string errorOf(const std::string& text) {
  try {
    return testsOf(Expression(text));
  } catch (const ExpressionError& error) {
    return std::to_string(error.column()) + ": " + error.what();
  }
}

TEST(Expression, ReadsComparisons) {
  const struct {
    const char* text;
    const char* tests;
  } cases[] = {
      {"A=1", "A = [1]"},
      {"A==1", "A = [1]"},
      {" A \t<= -1.5 ", "A <= [-1.5]"},
      {"A != NEB/USD", "A != [NEB/USD]"},
      {"A =~ '^x(y|z)'", "A =~ [^x(y|z)]"},
      {"A ~ \"a b\"", "A ~ [a b]"},
      {R"(A = "a""b" or B = 'it''s')", "A = [a\"b]; B = [it's]"},
      {"A = \"\"", "A = []"},
      {"A in (1,2 , \"3,4\")", "A in [1] [2] [3,4]"},
      {"A IN (x)", "A in [x]"},
      {"exists(A)", "A exists"},
      {"EXISTS ( \"B C\" )", "B C exists"},
      {"exists = 5", "exists = [5]"},
      {"\"not\" = 5", "not = [5]"},
      {"@time >= 2024-06-03T09:30:00+02:00", "@time >= [2024-06-03T09:30:00+02:00]"},
      {"A = and and B = or", "A = [and]; B = [or]"},
      {"A=1 and(B=2)or C=3", "A = [1]; B = [2]; C = [3]"},
  };
  for (const auto& [text, tests] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(errorOf(text), tests);
  }
}

TEST(Expression, RefusesAnythingElseWithItsColumn) {
  constexpr const char* kHint = "; values with spaces, parentheses, commas or operators go in double quotes";
  const struct {
    const char* text;
    std::string error;
  } cases[] = {
      {"", "1: expected a field, \"not\", \"exists\" or \"(\", found the end"},
      {"A", "2: expected one of = != < <= > >= ~ =~ or \"in\", found the end"},
      {"= 5", "1: expected a field, \"not\", \"exists\" or \"(\", found \"=\""},
      {"A is 5", "3: expected one of = != < <= > >= ~ =~ or \"in\", found \"is\""},
      {"A =< 5", "3: expected one of = != < <= > >= ~ =~ or \"in\", found \"=<\""},
      {"A<>B", "2: expected one of = != < <= > >= ~ =~ or \"in\", found \"<>\""},
      {"A ! 5", "3: expected one of = != < <= > >= ~ =~ or \"in\", found \"!\""},
      {"A = ", "5: expected a value, found the end"},
      {"A = > 5", "5: expected a value, found \">\""},
      {"A = 1 2", std::string("7: expected \"and\", \"or\" or the end, found \"2\"") + kHint},
      {"A = a,b", std::string("6: expected \"and\", \"or\" or the end, found \",\"") + kHint},
      {"A = 1 and", std::string("10: expected a field, \"not\", \"exists\" or \"(\", found the end")},
      {"A = 1 or or B = 2", std::string("13: expected one of = != < <= > >= ~ =~ or \"in\", found \"B\"")},
      {"(A = 1", "7: expected \"and\", \"or\" or \")\", found the end"},
      {"A = 1)", std::string("6: expected \"and\", \"or\" or the end, found \")\"") + kHint},
      {"()", "2: expected a field, \"not\", \"exists\" or \"(\", found \")\""},
      {"not", "4: expected a field, \"not\", \"exists\" or \"(\", found the end"},
      {"A in 5", "6: expected \"(\" and values, found \"5\""},
      {"A in ()", "7: expected a value, found \")\""},
      {"A in (1,)", "9: expected a value, found \")\""},
      {"A in (1", "8: expected \",\" or \")\", found the end"},
      {"exists(", "8: expected a field, found the end"},
      {"exists(A", "9: expected \")\", found the end"},
      {"A = \"x", "5: the quote is not closed"},
      {"A = 'it''s", "5: the quote is not closed"},
  };
  for (const auto& [text, error] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(errorOf(text), error);
  }
}

/// Evaluates over variables A to E, each of which is true when its bit is set; notes which are looked at.
bool evaluate(const Expression& expression, unsigned bits, std::string* asked = nullptr) {
  return expression.holds([&](std::size_t test) {
    const char name = expression.tests()[test].field.text[0];
    if (asked != nullptr) {
      *asked += name;
    }
    return (bits >> (name - 'A') & 1U) != 0;
  });
}

TEST(Expression, AndBindsCloserThanOrAndNotCloserThanBoth) {
  const struct {
    const char* text;
    bool (*wanted)(bool a, bool b, bool c, bool d, bool e);
  } cases[] = {
      {"A=1 or B=1 and C=1", [](bool a, bool b, bool c, bool, bool) { return a || (b && c); }},
      {"A=1 and B=1 or C=1", [](bool a, bool b, bool c, bool, bool) { return (a && b) || c; }},
      {"(A=1 or B=1) and C=1", [](bool a, bool b, bool c, bool, bool) { return (a || b) && c; }},
      {"not A=1 and B=1", [](bool a, bool b, bool, bool, bool) { return !a && b; }},
      {"not (A=1 and B=1)", [](bool a, bool b, bool, bool, bool) { return !(a && b); }},
      {"not not A=1", [](bool a, bool, bool, bool, bool) { return a; }},
      {"not (A=1 or not (B=1 and C=1)) or D=1 and not E=1",
       [](bool a, bool b, bool c, bool d, bool e) { return !(a || !(b && c)) || (d && !e); }},
      {"A=1 and (B=1 or C=1) and (D=1 or E=1)",
       [](bool a, bool b, bool c, bool d, bool e) { return a && (b || c) && (d || e); }},
  };
  for (const auto& [text, wanted] : cases) {
    SCOPED_TRACE(text);
    const Expression expression(text);
    for (unsigned bits = 0; bits != 32; ++bits) {
      const auto bit = [&](unsigned i) { return (bits >> i & 1U) != 0; };
      EXPECT_EQ(evaluate(expression, bits), wanted(bit(0), bit(1), bit(2), bit(3), bit(4))) << bits;
    }
  }
}

TEST(Expression, LooksNoFurtherThanNeeded) {
  std::string asked;
  EXPECT_TRUE(evaluate(Expression("A=1 or B=1"), 1, &asked));
  EXPECT_EQ(asked, "A");
  asked.clear();
  EXPECT_FALSE(evaluate(Expression("A=1 and B=1"), 2, &asked));
  EXPECT_EQ(asked, "A");
  asked.clear();
  EXPECT_TRUE(evaluate(Expression("A=1 and B=1 or C=1"), 4, &asked));
  EXPECT_EQ(asked, "AC");
}

TEST(Expression, NestingIsBoundedButLengthIsNot) {
  const auto nested = [](std::size_t levels) { return std::string(levels, '(') + "A=1" + std::string(levels, ')'); };
  EXPECT_EQ(errorOf(nested(100)), "A = [1]");
  EXPECT_EQ(errorOf(nested(101)), "101: nested more than 100 levels deep");
  EXPECT_EQ(errorOf(nested(1'000'000)), "101: nested more than 100 levels deep");
  std::string nots;
  std::string chain = "A=1";
  for (int i = 0; i != 100'000; ++i) {
    nots += "not ";
    chain += i % 2 == 0 ? " or A=1" : " and B=1";
  }
  EXPECT_EQ(errorOf(nots + "A=1"), "401: nested more than 100 levels deep");
  const Expression expression(chain);
  EXPECT_EQ(expression.tests().size(), 100'001U);
  EXPECT_TRUE(evaluate(expression, 3));
  EXPECT_TRUE(evaluate(expression, 1));
  EXPECT_FALSE(evaluate(expression, 2));
}

}  // namespace
