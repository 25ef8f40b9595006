/* The constants of odd_fields.xml in C: compiled as strictly as users may, and compared with dictionaries. Run with the
 * path of odd_fields.xml. */
#include "odd.h"

#include <string.h>

#include "support/c_check.h"

int main(int argc, char** argv) {
  static const char kOther[] = "BID 7 DOUBLE class 8 CHAR";
  char text[200] = "untouched";

  CHECK(argc == 2 && MD_FieldMap_reload_xml(argv[1], text, sizeof text));
  CHECK(MD_FieldMap_fingerprint() == ODD_DICTIONARY_FINGERPRINT);
  CHECK(odd_check(text, sizeof text) && text[0] == '\0');
  CHECK(strcmp(MD_FieldMap_idToName(ODD_BID), "BID") == 0);
  CHECK(strcmp(MD_FieldMap_idToName(ODD_BID_x20_PRICE), "BID PRICE") == 0);
  CHECK(strcmp(MD_FieldMap_idToName(ODD_a_x22_b_x5C_c_x3F3F2F), "a\"b\\c\?\?/") == 0);
  CHECK(strcmp(MD_FieldMap_idToName(ODD_xE8B2B7E580A4), "\xe8\xb2\xb7\xe5\x80\xa4") == 0);
  CHECK(strcmp(MD_FieldMap_idToName(ODD_class), "class") == 0);
  CHECK(ODD_alignas == 1 && (int)ODD_alignas_type == MD_TYPE_INT);

  CHECK(MD_FieldMap_loadText(kOther, sizeof kOther - 1, NULL, 0));
  CHECK(!odd_check(text, sizeof text) && !odd_check(NULL, 0));
  CHECK(strncmp(text,
                "the dictionary text in memory does not match the fields of this program: alignas: expected id 1 INT, ",
                100) == 0);
  CHECK(MD_FieldMap_fingerprint() != ODD_DICTIONARY_FINGERPRINT);
  return reportChecks();
}
