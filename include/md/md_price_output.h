/// @file
/// A message's print-out with its prices as decimal numbers.
#ifndef MD_PRICE_OUTPUT_H
#define MD_PRICE_OUTPUT_H

#include <iosfwd>
#include <string>

#include "md/md_api.h"
#include "md/md_message.h"

namespace MD {

/// For one output expression, `out << PriceOutput(message)`: refers to the message and owns nothing.
class PriceOutput {
 public:
  /// Prints `message`, which must outlive the expression.
  explicit PriceOutput(const MD_Message& message) noexcept : m_message(message) {}

 private:
  friend MD_API std::ostream& operator<<(std::ostream& out, const PriceOutput& price);
  friend MD_API std::string to_string(const PriceOutput& price);

  const MD_Message& m_message;
};

/// Prints as `operator<<` for messages does, but a price kept in `INT` fields named stem_WHOLE, stem_NUM and stem_DENOM
/// prints as one line, the stem and whole + num / denom (0.0 when the denominator is not positive). An absent numerator
/// counts as 0, an absent denominator as 100.
MD_API std::ostream& operator<<(std::ostream& out, const PriceOutput& price);

/// The same text ready for any bytes, as to_string() of a message makes it: escaped, each id once, silent. Takes time
/// and room in proportion to the message.
MD_API std::string to_string(const PriceOutput& price);

}  // namespace MD

#endif
