#include "text/expression.h"

#include <algorithm>
#include <utility>

#include "base/quoted_text.h"

namespace MD::tool {
namespace {

constexpr std::string_view kSpaces = " \t\r\n";
constexpr std::string_view kOperatorCharacters = "=!<>~";

constexpr struct {
  std::string_view text;
  Comparison comparison;
} kOperators[] = {{"=", Comparison::Equal},           {"==", Comparison::Equal},
                  {"!=", Comparison::NotEqual},       {"<", Comparison::Less},
                  {"<=", Comparison::LessOrEqual},    {">", Comparison::Greater},
                  {">=", Comparison::GreaterOrEqual}, {"~", Comparison::Contains},
                  {"=~", Comparison::Matches}};
constexpr const char* kOperatorList = "= != < <= > >= ~ =~";

struct Token {
  enum class Kind : std::uint8_t { Word, Quoted, Operator, Open, Close, Comma, End };

  Kind kind = Kind::End;
  std::string text;  // of a quoted one without the quotes
  std::size_t column = 0;

  bool isValue() const noexcept { return kind == Kind::Word || kind == Kind::Quoted; }
};

class Tokenizer {
 public:
  explicit Tokenizer(std::string_view text) : m_text(text) {}

  Token next() {
    m_at = std::min(m_text.find_first_not_of(kSpaces, m_at), m_text.size());
    Token token;
    token.column = m_at + 1;
    if (m_at == m_text.size()) {
      return token;
    }
    const char c = m_text[m_at];
    if (c == '"' || c == '\'') {
      token.kind = Token::Kind::Quoted;
      token.text = takeQuoted(c);
    } else if (c == '(' || c == ')' || c == ',') {
      token.kind = c == '(' ? Token::Kind::Open : c == ')' ? Token::Kind::Close : Token::Kind::Comma;
      token.text = m_text[m_at++];
    } else {
      const bool isOperator = kOperatorCharacters.find(c) != kOperatorCharacters.npos;
      token.kind = isOperator ? Token::Kind::Operator : Token::Kind::Word;
      const std::size_t end = std::min(isOperator ? m_text.find_first_not_of(kOperatorCharacters, m_at)
                                                  : m_text.find_first_of(" \t\r\n=!<>~(),\"'", m_at),
                                       m_text.size());
      token.text = m_text.substr(m_at, end - m_at);
      m_at = end;
    }
    return token;
  }

 private:
  std::string takeQuoted(char quote) {
    const std::size_t begin = m_at++;
    std::string text;
    for (;;) {
      const std::size_t end = m_text.find(quote, m_at);
      if (end == m_text.npos) {
        throw ExpressionError(begin + 1, "the quote is not closed");
      }
      text += m_text.substr(m_at, end - m_at);
      m_at = end + 1;
      if (m_text.substr(m_at, 1) != std::string_view(&quote, 1)) {
        return text;
      }
      text += quote;
      ++m_at;
    }
  }

  std::string_view m_text;
  std::size_t m_at = 0;
};

}  // namespace

const char* operatorText(Comparison comparison) noexcept {
  const auto* const found = std::find_if(std::begin(kOperators), std::end(kOperators),
                                         [&](const auto& row) { return row.comparison == comparison; });
  return found != std::end(kOperators) ? found->text.data() : "";
}

/// Reads an expression, then says for each test which one follows.
class ExpressionParser {
 public:
  ExpressionParser(std::string_view text, Expression& expression) : m_tokens(text), m_expression(expression) {
    advance();
    const Node root = parseAny();
    if (m_token.kind != Token::Kind::End) {
      throw unexpected("\"and\", \"or\" or the end");
    }
    m_expression.m_steps.resize(m_expression.m_tests.size());
    link(root, Expression::kTrue, Expression::kFalse);
  }

 private:
  struct Node {
    enum class Kind : std::uint8_t { Test, Not, All, Any };

    Kind kind = Kind::Test;
    std::size_t firstTest = 0;
    std::vector<Node> children;
  };

  void advance() { m_token = m_tokens.next(); }

  bool isKeyword(std::string_view lower, std::string_view upper) const {
    return m_token.kind == Token::Kind::Word && (m_token.text == lower || m_token.text == upper);
  }

  ExpressionError unexpected(const std::string& expected) const {
    std::string text = "expected " + expected + ", found ";
    if (m_token.kind == Token::Kind::End) {
      return {m_token.column, text + "the end"};
    }
    text += inQuotes(m_token.text);
    if (!m_expression.m_tests.empty()) {
      text += "; values with spaces, parentheses, commas or operators go in double quotes";
    }
    return {m_token.column, text};
  }

  Node parseAny() {
    return parseChain(
        Node::Kind::Any, [this] { return isKeyword("or", "OR"); }, [this] { return parseAll(); });
  }

  Node parseAll() {
    return parseChain(
        Node::Kind::All, [this] { return isKeyword("and", "AND"); }, [this] { return parseFactor(); });
  }

  template <class GoesOn, class Parse>
  Node parseChain(Node::Kind kind, GoesOn goesOn, Parse parse) {
    Node first = parse();
    if (!goesOn()) {
      return first;
    }
    Node chain{kind, first.firstTest, {}};
    chain.children.push_back(std::move(first));
    while (goesOn()) {
      advance();
      chain.children.push_back(parse());
    }
    return chain;
  }

  Node parseFactor() {
    const bool isNot = isKeyword("not", "NOT");
    if (!isNot && m_token.kind != Token::Kind::Open) {
      return parseTest();
    }
    if (++m_level > Expression::kMostLevels) {
      throw ExpressionError(m_token.column,
                            "nested more than " + std::to_string(Expression::kMostLevels) + " levels deep");
    }
    advance();
    Node node;
    if (isNot) {
      node = {Node::Kind::Not, m_expression.m_tests.size(), {}};
      node.children.push_back(parseFactor());
    } else {
      node = parseAny();
      take(Token::Kind::Close, "\"and\", \"or\" or \")\"");
    }
    --m_level;
    return node;
  }

  void take(Token::Kind kind, const char* expected) {
    if (m_token.kind != kind) {
      throw unexpected(expected);
    }
    advance();
  }

  ExpressionWord takeWord(const char* expected) {
    if (!m_token.isValue()) {
      throw unexpected(expected);
    }
    ExpressionWord word{std::move(m_token.text), m_token.column};
    advance();
    return word;
  }

  Node parseTest() {
    ExpressionTest test;
    const bool mayBeExists = isKeyword("exists", "EXISTS");
    test.field = takeWord("a field, \"not\", \"exists\" or \"(\"");
    if (mayBeExists && m_token.kind == Token::Kind::Open) {
      advance();
      test.field = takeWord("a field");
      take(Token::Kind::Close, "\")\"");
    } else if (isKeyword("in", "IN")) {
      test.comparison = Comparison::In;
      advance();
      take(Token::Kind::Open, "\"(\" and values");
      for (;;) {
        test.values.push_back(takeWord("a value"));
        if (m_token.kind != Token::Kind::Comma) {
          break;
        }
        advance();
      }
      take(Token::Kind::Close, "\",\" or \")\"");
    } else {
      test.comparison = takeOperator();
      test.values.push_back(takeWord("a value"));
    }
    m_expression.m_tests.push_back(std::move(test));
    return {Node::Kind::Test, m_expression.m_tests.size() - 1, {}};
  }

  Comparison takeOperator() {
    const auto* const found = std::find_if(std::begin(kOperators), std::end(kOperators),
                                           [&](const auto& row) { return row.text == m_token.text; });
    if (m_token.kind != Token::Kind::Operator || found == std::end(kOperators)) {
      throw ExpressionError(m_token.column,
                            std::string("expected one of ") + kOperatorList + " or \"in\", found " +
                                (m_token.kind == Token::Kind::End ? std::string("the end") : inQuotes(m_token.text)));
    }
    advance();
    return found->comparison;
  }

  /// No deeper than the nesting of the text: the terms of a chain are one level.
  void link(const Node& node, std::size_t ifTrue, std::size_t ifFalse) {
    switch (node.kind) {
      case Node::Kind::Test:
        m_expression.m_steps[node.firstTest] = {ifTrue, ifFalse};
        return;
      case Node::Kind::Not:
        return link(node.children[0], ifFalse, ifTrue);
      case Node::Kind::All:
      case Node::Kind::Any:
        break;
    }
    const bool isAll = node.kind == Node::Kind::All;
    for (std::size_t i = 0; i != node.children.size(); ++i) {
      if (i + 1 == node.children.size()) {
        link(node.children[i], ifTrue, ifFalse);
      } else {
        const std::size_t next = node.children[i + 1].firstTest;
        link(node.children[i], isAll ? next : ifTrue, isAll ? ifFalse : next);
      }
    }
  }

  Tokenizer m_tokens;
  Token m_token;
  Expression& m_expression;
  std::size_t m_level = 0;
};

Expression::Expression(std::string_view text) { ExpressionParser(text, *this); }

}  // namespace MD::tool
