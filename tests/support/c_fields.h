/* The fields of data/c_interface/field_map.txt, for tests that are written in C. */
#ifndef MD_TESTS_SUPPORT_C_FIELDS_H
#define MD_TESTS_SUPPORT_C_FIELDS_H

#include <stdint.h>
#include <string.h>

#include "md/md_message_c.h"
#include "support/field_ids.h"

enum {
  kWhole = 100,
  kNum = 101,
  kDenom = 102,
  kMarked = 0xABCD, /* what an untouched id or count still holds */
  MD_TEST_FIELD_IDS(MD_TEST_ENUMERATOR)
};

static MD_String stringOf(const char* text) {
  MD_String view;
  view.data = text;
  view.length = (uint16_t)strlen(text);
  return view;
}

#endif
