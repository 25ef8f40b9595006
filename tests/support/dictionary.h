// Dictionaries for tests.
#ifndef MD_TESTS_SUPPORT_DICTIONARY_H
#define MD_TESTS_SUPPORT_DICTIONARY_H

#include <cstdint>

#include <sstream>
#include <string>

#include "md/md_fieldmap.h"
#include "support/field_ids.h"

namespace MD::test {

/// Fills the process's dictionary from entries of name, id and type name.
inline void loadDictionary(const std::string& text) {
  std::istringstream stream(text);
  MD_FieldMap::reload_text(stream, "test dictionary");
}

/// Ids of the fields in kDictionary: those that all dictionaries of the tests share, and some that no message can
/// carry.
namespace id {
enum : std::uint16_t {
  kOptiPrice = 100,
  kShort = 200,
  kRaw = 201,
  kFraction = 202,
  MD_TEST_FIELD_IDS(MD_TEST_ENUMERATOR)
};
}  // namespace id

inline constexpr const char* kDictionary =
    "CH 10 CHAR\n"
    "CH2 11 CHAR\n"
    "QTY 300 INT\n"
    "QTY2 301 INT\n"
    "SEQ 20 INT64\n"
    "SEQ2 21 INT64\n"
    "VOLA 40 FLOAT\n"
    "VOLA2 41 FLOAT\n"
    "BID 22 DOUBLE\n"
    "ASK 23 DOUBLE\n"
    "SYMBOL 60 STRING\n"
    "VENUE 61 STRING\n"
    "BLOB 70 BUFFER\n"
    "BLOB2 71 BUFFER\n"
    "WHEN 80 DATETIME\n"
    "WHEN2 81 DATETIME\n"
    "RECV 90 EPOCH_NSEC\n"
    "RECV2 91 EPOCH_NSEC\n"
    "TICK 100 OPTI_PRICE\n"
    "SHORTY 200 SHORT\n"
    "RAWLY 201 RAW\n"
    "FRACT 202 FRACTION\n"
    "HIGH 40000 INT\n";

}  // namespace MD::test

#endif
