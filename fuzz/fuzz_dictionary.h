// The dictionary that the targets install.
#ifndef MD_FUZZ_FUZZ_DICTIONARY_H
#define MD_FUZZ_FUZZ_DICTIONARY_H

#include <string>

#include "support/dictionary.h"

namespace MD::fuzz {

/// The tests' fields, and beyond them: every other type, prices, two fields of one name, the lowest and the highest id.
inline void useDictionary() {
  [[maybe_unused]] static const bool isInstalled = [] {
    test::loadDictionary(std::string(test::kDictionary) +
                         "ZERO 0 STRING\n"
                         "PX_WHOLE 110 INT\n"
                         "PX_NUM 111 INT\n"
                         "PX_DENOM 112 INT\n"
                         "QX_WHOLE 113 DOUBLE\n"
                         "QX_NUM 114 INT\n"
                         "PX_NUM 115 INT\n"
                         "VEC 203 VECTOR\n"
                         "MSG 204 MSG_T\n"
                         "DAY 205 DATE\n"
                         "TOD 206 TIME\n"
                         "CHILD 207 CHILD_MSG\n"
                         "FOLD 208 FOLDED_INT\n"
                         "UI 209 UINT\n"
                         "LI 210 LONG_INT\n"
                         "ULI 211 ULONG_INT\n"
                         "LAST 65535 CHAR\n");
    return true;
  }();
}

}  // namespace MD::fuzz

#endif
