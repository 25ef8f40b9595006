/// @file
/// The price layout: formatted text of a message with prices as decimal numbers.
#ifndef MD_PRICE_OUTPUT_H
#define MD_PRICE_OUTPUT_H

#include <iosfwd>
#include <string>

#include "md/md_api.h"
#include "md/md_message.h"

namespace MD {

/// Used in one output expression, `out << PriceOutput(message)`. Refers to the message and owns nothing.
class PriceOutput {
 public:
  /// Prints `message`, which must outlive the expression.
  explicit PriceOutput(const MD_Message& message) noexcept : m_message(message) {}

 private:
  friend MD_API std::ostream& operator<<(std::ostream& out, const PriceOutput& price);
  friend MD_API std::string to_string(const PriceOutput& price);

  const MD_Message& m_message;
};

/// Prints a message like its `operator<<`, but prints a price in the `INT` fields stem_WHOLE, stem_NUM and stem_DENOM
/// as one line with the stem and whole + num / denom (0.0 if the denominator is not positive). The default of a missing
/// numerator is 0, that of a missing denominator 100.
MD_API std::ostream& operator<<(std::ostream& out, const PriceOutput& price);

/// The same text for any received message, in the form of to_string() of a message: escaped, each id once, without
/// diagnostics. Takes time and memory proportional to the size of the message.
MD_API std::string to_string(const PriceOutput& price);

}  // namespace MD

#endif
