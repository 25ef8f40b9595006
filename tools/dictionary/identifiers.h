// Names of fields as identifiers that C, C++ and Python all take.
#ifndef MDMSG_IDENTIFIERS_H
#define MDMSG_IDENTIFIERS_H

#include <string>
#include <string_view>

namespace MD::tool {

/// `prefix` and `name` as one identifier. It depends on these two alone, so that a field keeps its identifier whatever
/// fields are added:
///
/// - ASCII letters and digits are kept, and an underscore between two of them.
/// - Each run of other bytes is written as `x` and the bytes in hex, with underscores between it and its neighbours:
///   "BID PRICE" is BID_x20_PRICE.
/// - `n` is put before an identifier that would begin with a digit: "52W_HIGH" is n52W_HIGH.
/// - An underscore is appended to a word that isReserved(): "class" is class_.
///
/// Different names can still have one identifier: "class" and "class_" have not, "A B" and "A_x20_B" have.
/// @param prefix  empty, or one that isPrefix()
std::string identifierOf(std::string_view name, std::string_view prefix = {});

/// Whether identifiers may begin with it: a letter, then letters, digits and single underscores.
bool isPrefix(std::string_view text) noexcept;

/// Whether it is a keyword of C, C++ or Python, a common macro, or a name that generated files use for something else
/// than a field.
bool isReserved(std::string_view word) noexcept;

}  // namespace MD::tool

#endif
