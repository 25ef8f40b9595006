/// @file
/// Doubles as exact decimal fractions: prices travel as doubles but are shown and exchanged with 15 significant digits,
/// so that no binary noise shows. Nothing here owns memory or keeps state; every call is thread-safe.
#ifndef MD_FRAC_DOUBLE_H
#define MD_FRAC_DOUBLE_H

#include <cstdint>
#include <string>

#include "md/md_api.h"

namespace MD {

/// The number of decimal places to which the fractional part of a double is first scaled: 15. Set before any code runs,
/// so that static initialisers may use what is declared here.
extern MD_API const std::int64_t base_double_places;

/// Splits `v` into a whole part and a decimal fraction, so that v is about whole + num / den.
///
/// Whole part and fraction together carry 15 significant digits; a whole part of 0 counts as one digit. What lies below
/// them is rounded, half up for a positive fraction and half toward zero for a negative one. Trailing zeros are
/// dropped, but one decimal place always remains: 3.0 gives 3, 0, 10. A magnitude of 10^15 or more has no fraction
/// left.
///
/// Two results to know about. A fraction of 10^-15 or more that rounds to nothing keeps all its places (num 0,
/// den 10^15). A negative fraction of less than one unit of the last kept place that is rounded away from zero comes
/// back positive: -7e-15 gives 0, +1, 10^14.
///
/// @param[in]  v      the value
/// @param[out] whole  `v` truncated toward zero, one further where the fraction was rounded to 1
/// @param[out] num    numerator; of the sign of `whole` or zero, apart from the second result above
/// @param[out] den    denominator, the power of ten 10^k
/// @return k, the number of decimal places (1 to 15). Never fails: a NaN, an infinity and a magnitude of 2^63 or more
///         give whole INT64_MIN, num 0, den 10 and the result 1.
MD_API int frac_double(double v, std::int64_t& whole, std::int64_t& num, std::int64_t& den);

/// The same in 32 bits, with at most 9 decimal places: further ones are cut off, not rounded.
/// @param[in]  v      the value
/// @param[out] whole  whole part, as of the 64-bit form
/// @param[out] num    numerator, less than 10^9 in magnitude
/// @param[out] den    denominator, the power of ten 10^k
/// @return k, the number of decimal places (1 to 9), or -1 when the whole part does not fit into an int; the three
///         outputs are then left as they were
MD_API int frac_double(double v, int& whole, int& num, int& den);

/// The decimal text of `v`, through the 64-bit frac_double(): "0.05", "3.0", "-0.5". It has 1 to 15 decimals and
/// neither an exponent nor an influence of the locale.
/// @return the text; "-9223372036854775808.0" for a NaN, an infinity and a magnitude of 2^63 or more
MD_API std::string frac_double_to_string(double v);

}  // namespace MD

#endif
