// The conditions of --where as text: tokens, grammar and the order of evaluation. Which fields there are and how values
// compare is left to the caller.
//
//   expression:  term { "or" term }
//   term:        factor { "and" factor }
//   factor:      "not" factor | "(" expression ")" | "exists" "(" FIELD ")" | FIELD operator VALUE
//                | FIELD "in" "(" VALUE { "," VALUE } ")"
//   operator:    = == != < <= > >= ~ =~
//
// A FIELD or VALUE is a word without spaces, parentheses, commas, quotes and operators, or a text in double or single
// quotes, in which two quotes are one. Keywords may be in capitals.
#ifndef MDMSG_EXPRESSION_H
#define MDMSG_EXPRESSION_H

#include <cstddef>
#include <cstdint>

#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace MD::tool {

enum class Comparison : std::uint8_t {
  Equal,
  NotEqual,
  Less,
  LessOrEqual,
  Greater,
  GreaterOrEqual,
  Contains,  ///< ~
  Matches,   ///< =~, a regular expression
  In,
  Exists,
};

/// As the expression has it; empty for In and Exists.
const char* operatorText(Comparison comparison) noexcept;

/// A field or value of an expression.
struct ExpressionWord {
  std::string text;        ///< without quotes
  std::size_t column = 0;  ///< where it begins, from 1
};

/// One comparison of a field.
struct ExpressionTest {
  Comparison comparison = Comparison::Exists;
  ExpressionWord field;
  std::vector<ExpressionWord> values;  ///< one; of In at least one; of Exists none
};

/// A text is not an expression.
class ExpressionError : public std::runtime_error {
 public:
  ExpressionError(std::size_t column, const std::string& reason) : std::runtime_error(reason), m_column(column) {}

  std::size_t column() const noexcept { return m_column; }

 private:
  std::size_t m_column;
};

class Expression {
 public:
  /// The deepest nesting of parentheses and "not".
  static constexpr std::size_t kMostLevels = 100;

  /// @throws ExpressionError
  explicit Expression(std::string_view text);

  /// In the order of the text.
  const std::vector<ExpressionTest>& tests() const noexcept { return m_tests; }

  /// Evaluates from left to right and no further than needed.
  /// @param test  called with the index of a test in tests(): whether it holds
  template <class Test>
  bool holds(Test test) const {
    std::size_t at = 0;
    while (at < m_steps.size()) {
      at = test(at) ? m_steps[at].ifTrue : m_steps[at].ifFalse;
    }
    return at == kTrue;
  }

 private:
  friend class ExpressionParser;

  static constexpr std::size_t kTrue = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t kFalse = kTrue - 1;

  /// Which test follows a test, or what the result is.
  struct Step {
    std::size_t ifTrue = kTrue;
    std::size_t ifFalse = kFalse;
  };

  std::vector<ExpressionTest> m_tests;
  std::vector<Step> m_steps;  // by test
};

}  // namespace MD::tool

#endif
