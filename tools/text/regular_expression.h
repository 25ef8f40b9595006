// A regular expression in the syntax of RE2, which searches in linear time whatever the text and the expression are.
#ifndef MDMSG_REGULAR_EXPRESSION_H
#define MDMSG_REGULAR_EXPRESSION_H

#include <memory>
#include <string>
#include <string_view>

namespace MD::tool {

/// Thread-safe.
class RegularExpression {
 public:
  /// @throws LineError for a text that is none, and where the program is built without RE2
  explicit RegularExpression(const std::string& pattern);
  RegularExpression(RegularExpression&&) noexcept;
  ~RegularExpression();

  /// Whether a part of the text matches.
  bool isIn(std::string_view text) const;

 private:
  struct Compiled;
  std::unique_ptr<Compiled> m_compiled;
};

}  // namespace MD::tool

#endif
