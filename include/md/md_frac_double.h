/// @file
/// Doubles as exact decimal fractions: prices are stored as doubles but printed with 15 significant digits, without
/// binary rounding noise. The functions own no memory and keep no state; every call is thread-safe.
#ifndef MD_FRAC_DOUBLE_H
#define MD_FRAC_DOUBLE_H

#include <cstdint>
#include <string>

#include "md/md_api.h"

namespace MD {

/// The number of decimal places to which the fractional part of a double is first scaled: 15. It is initialised before
/// any code runs, so static initialisers may use the functions of this header.
extern MD_API const std::int64_t base_double_places;

/// Splits `v` into a whole part and a decimal fraction, so that v is approximately whole + num / den.
///
/// Whole part and fraction together have 15 significant digits; a whole part of 0 counts as one digit. Further digits
/// are rounded, half up for a positive fraction and half toward zero for a negative one. Trailing zeros are dropped,
/// but one decimal place always remains: the results for 3.0 are 3, 0, 10. A magnitude of 10^15 or more has no
/// fraction.
///
/// Two results are intentional. A fraction of 10^-15 or more that rounds to zero keeps all its places (num 0,
/// den 10^15). A negative fraction of less than one unit of the last place that is rounded away from zero becomes
/// positive: the results for -7e-15 are 0, +1, 10^14.
///
/// @param[in]  v      the value
/// @param[out] whole  `v` truncated toward zero, plus or minus one if the fraction was rounded to 1
/// @param[out] num    numerator; with the sign of `whole` or zero, except for the second result above
/// @param[out] den    denominator, the power of ten 10^k
/// @return k, the number of decimal places (1 to 15). Never fails: for a NaN, an infinity and a magnitude of 2^63 or
///         more, whole is INT64_MIN, num 0, den 10 and the result 1.
MD_API int frac_double(double v, std::int64_t& whole, std::int64_t& num, std::int64_t& den);

/// The same in 32 bits, with at most 9 decimal places: further places are dropped, not rounded.
/// @param[in]  v      the value
/// @param[out] whole  whole part, as in the 64-bit form
/// @param[out] num    numerator, less than 10^9 in magnitude
/// @param[out] den    denominator, the power of ten 10^k
/// @return k, the number of decimal places (1 to 9), or -1, with the outputs unchanged, if the whole part does not fit
///         into an int
MD_API int frac_double(double v, int& whole, int& num, int& den);

/// The decimal text of `v` by the 64-bit frac_double(): "0.05", "3.0", "-0.5". It has 1 to 15 decimals and no exponent,
/// and does not depend on the locale.
/// @return the text; "-9223372036854775808.0" for a NaN, an infinity and a magnitude of 2^63 or more
MD_API std::string frac_double_to_string(double v);

}  // namespace MD

#endif
