/// @file
/// The type codes of fields, used in dictionaries and encodings, and the encoding ids.
#ifndef MD_DATATYPES_H
#define MD_DATATYPES_H

#include <cstdint>

#include "md/md_api.h"

namespace MD {

/// A separate scope, so that `MD::DATATYPES::INT` exists and `MD::INT` does not.
namespace DATATYPES {

/// One unsigned byte per type. Only the nine types of `MD_VALUE_TYPES` can be read and written through a message; the
/// others exist in dictionaries for other encodings of the same data.
enum Code : std::uint8_t {
  RAW = 0,
  CHAR = 1,
  INT = 2,
  OPTI_PRICE = INT,  ///< stored and read exactly as an `INT`
  SHORT = 3,
  FLOAT = 4,
  DOUBLE = 5,
  STRING = 6,
  VECTOR = 7,
  MSG_T = 8,
  DATE = 9,
  TIME = 10,
  FRACTION = 11,
  CHILD_MSG = 12,
  FOLDED_INT = 13,
  BUFFER = 14,
  UINT = 16,
  LONG_INT = 17,
  ULONG_INT = 18,
  INT64 = 19,
  DATETIME = 20,
  EPOCH_NSEC = 22,
};

}  // namespace DATATYPES

/// A separate scope, like `DATATYPES`.
namespace ENCODINGS {

/// Expands X(class, enumerator, code) for each encoding. The library and its C API generate all code per encoding from
/// this list; md/detail/encodings.h includes the classes.
#define MD_ENCODINGS(X)  \
  X(mInt, MINT, 6)       \
  X(IterMap, ITERMAP, 1) \
  X(MsgT, MSGT, 70)

/// The encoding byte (PB): the first byte of a serialised message, the result of `MD_Message::getPB()`, and the
/// argument of `MD_Message::createFromPB()`.
enum Code : std::uint8_t {
/// An entry of the list as an enumerator.
#define MD_ENUMERATOR(Class, CODE, code) CODE = code,
  MD_ENCODINGS(MD_ENUMERATOR)
#undef MD_ENUMERATOR
};

struct Encoding {
  std::uint8_t code;
  const char* name;  ///< name of the class
};

/// An entry of the list as a row of the table.
#define MD_ROW(Class, CODE, code) {CODE, #Class},
/// All encodings.
inline constexpr Encoding kAll[] = {MD_ENCODINGS(MD_ROW)
#undef MD_ROW
};

}  // namespace ENCODINGS
}  // namespace MD

#endif
