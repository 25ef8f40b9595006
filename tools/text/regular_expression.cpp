#include "text/regular_expression.h"

#if defined(MDMSG_HAS_RE2)
#include <re2/re2.h>
#endif

#include "base/errors.h"
#include "base/quoted_text.h"

namespace MD::tool {

#if defined(MDMSG_HAS_RE2)

struct RegularExpression::Compiled {
  explicit Compiled(const std::string& pattern) : expression(pattern, options()) {}

  static re2::RE2::Options options() {
    re2::RE2::Options options;
    options.set_log_errors(false);
    return options;
  }

  re2::RE2 expression;
};

RegularExpression::RegularExpression(const std::string& pattern) : m_compiled(std::make_unique<Compiled>(pattern)) {
  if (!m_compiled->expression.ok()) {
    throw LineError(inQuotes(pattern) + " is not a regular expression: " + m_compiled->expression.error());
  }
}

bool RegularExpression::isIn(std::string_view text) const {
  return re2::RE2::PartialMatch({text.data(), text.size()}, m_compiled->expression);
}

#else

struct RegularExpression::Compiled {};

RegularExpression::RegularExpression(const std::string& pattern) {
  throw LineError("the regular expression " + inQuotes(pattern) + " cannot be used: this mdmsg was built without RE2");
}

bool RegularExpression::isIn(std::string_view) const { return false; }

#endif

RegularExpression::RegularExpression(RegularExpression&&) noexcept = default;
RegularExpression::~RegularExpression() = default;

}  // namespace MD::tool
