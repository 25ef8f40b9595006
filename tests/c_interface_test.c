/* The C interface from strict C99. It runs with CONFIG_PATH set to data/c_interface, which contains its dictionary. */
#include "md/md_message_c.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "support/c_check.h"
#include "support/c_fields.h"

/* An empty message of each encoding. */
static const struct Encoding {
  const char* name;
  unsigned char header[4];
  uint32_t headerBytes;
} kEncodings[] = {
    {"mInt", {6, 0, 0, 0}, 1},
    {"IterMap", {1, 0, 0, 0}, 1},
    {"MsgT", {70, 'Q', 'R', '1'}, 4},
};

static MD_MessageHandle emptyMessage(size_t encoding) {
  return MD_Message_createFromBytes(kEncodings[encoding].header, kEncodings[encoding].headerBytes);
}

static MD_Buffer bufferOf(const uint8_t* bytes, uint16_t length) {
  MD_Buffer view;
  view.data = bytes;
  view.length = length;
  return view;
}

static bool isString(MD_MessageHandle message, uint16_t id, const char* expected) {
  MD_String view;
  return MD_Message_getString(message, id, &view) && view.length == strlen(expected) &&
         memcmp(view.data, expected, view.length) == 0;
}

static bool isBuffer(MD_MessageHandle message, uint16_t id, const uint8_t* expected, uint16_t length) {
  MD_Buffer view;
  return MD_Message_getBuffer(message, id, &view) && view.length == length && memcmp(view.data, expected, length) == 0;
}

static bool isInt(MD_MessageHandle message, uint16_t id, int32_t expected) {
  int32_t value;
  return MD_Message_getInt(message, id, &value) && value == expected;
}

static bool addsString(MD_MessageHandle message, uint16_t id, const char* text) {
  const MD_String view = stringOf(text);
  return MD_Message_addString(message, id, &view);
}

static bool updatesString(MD_MessageHandle message, uint16_t id, const char* text) {
  const MD_String view = stringOf(text);
  return MD_Message_updateString(message, id, &view);
}

static bool hasIds(MD_MessageHandle message, const uint16_t* expected, size_t count) {
  uint16_t ids[32];
  size_t found = kMarked;
  return MD_Message_getFieldIds(message, ids, &found) && found == count &&
         memcmp(ids, expected, count * sizeof *expected) == 0;
}

/* ---- The value types ---- */

/* get, add and update of one type, from an absent field on: `first` and `second` are two values, `other` is a field of
 * another type. */
#define SCALAR_TEST(Name, Value, id, secondId, other)                                     \
  static void get##Name##AddUpdate(MD_MessageHandle message, Value first, Value second) { \
    Value value = second;                                                                 \
    CHECK(!MD_Message_get##Name(message, id, &value) && value == second);                 \
    CHECK(!MD_Message_exists(message, id));                                               \
    CHECK(MD_Message_add##Name(message, id, first));                                      \
    CHECK(MD_Message_exists(message, id) && MD_Message_fieldCount(message) == 1);         \
    CHECK(MD_Message_get##Name(message, id, &value) && value == first);                   \
    CHECK(!MD_Message_add##Name(message, id, second));                                    \
    CHECK(MD_Message_get##Name(message, id, &value) && value == first);                   \
    CHECK(MD_Message_update##Name(message, id, second));                                  \
    CHECK(MD_Message_get##Name(message, id, &value) && value == second);                  \
    CHECK(MD_Message_update##Name(message, secondId, first));                             \
    CHECK(MD_Message_get##Name(message, secondId, &value) && value == first);             \
    CHECK(MD_Message_get##Name(message, id, &value) && value == second);                  \
    CHECK(MD_Message_fieldCount(message) == 2);                                           \
    CHECK(!MD_Message_get##Name(message, id, NULL));                                      \
    CHECK(!MD_Message_add##Name(message, other, first));                                  \
    CHECK(!MD_Message_update##Name(message, other, first));                               \
    CHECK(!MD_Message_exists(message, other));                                            \
    CHECK(!MD_Message_add##Name(message, kUnknown, first));                               \
    CHECK(!MD_Message_update##Name(message, kUnknown, first));                            \
    CHECK(!MD_Message_add##Name(message, kBeyond, first));                                \
    CHECK(!MD_Message_update##Name(message, kBeyond, first));                             \
    value = second;                                                                       \
    CHECK(!MD_Message_get##Name(message, kUnknown, &value) && value == second);           \
    CHECK(!MD_Message_get##Name(message, kBeyond, &value) && value == second);            \
    CHECK(updatesString(message, kString2, "of another type"));                           \
    CHECK(!MD_Message_get##Name(message, kString2, &value) && value == second);           \
    CHECK(isString(message, kString2, "of another type"));                                \
    CHECK(!MD_Message_get##Name(NULL, id, &value) && value == second);                    \
    CHECK(!MD_Message_get##Name(NULL, id, NULL));                                         \
    CHECK(!MD_Message_add##Name(NULL, id, first));                                        \
    CHECK(!MD_Message_update##Name(NULL, id, first));                                     \
    CHECK(MD_Message_fieldCount(message) == 3);                                           \
    MD_Message_clear(message);                                                            \
  }

SCALAR_TEST(Char, char, kChar, kChar2, kInt)
SCALAR_TEST(Int, int32_t, kInt, kInt2, kInt64)
SCALAR_TEST(Int64, int64_t, kInt64, kInt64b, kDouble)
SCALAR_TEST(Float, float, kFloat, kFloat2, kInt)
SCALAR_TEST(Double, double, kDouble, kDouble2, kInt64)
SCALAR_TEST(EpochNS, uint64_t, kEpochNS, kEpochNS2, kDateTime)

static void scalarTypes(MD_MessageHandle message) {
  getCharAddUpdate(message, 'A', '\0');
  getCharAddUpdate(message, (char)0x80, 'z');
  getIntAddUpdate(message, 0, INT32_MAX);
  getIntAddUpdate(message, 127, 128);
  getIntAddUpdate(message, 32767, 32768);
  getIntAddUpdate(message, INT32_MIN, -1);
  getInt64AddUpdate(message, INT64_MIN, INT64_MAX);
  getInt64AddUpdate(message, 0, -1);
  getFloatAddUpdate(message, 1.5f, -0.25f);
  getDoubleAddUpdate(message, 0.1, -1e308);
  getEpochNSAddUpdate(message, UINT64_C(1705310000123456789), UINT64_MAX);
  getEpochNSAddUpdate(message, 0, 1);
}

static void strings(MD_MessageHandle message) {
  const MD_String unset = {"unset", 5};
  const MD_String withNul = {"a\0b", 3};
  const MD_String text = stringOf("IBM");
  char source[] = "copied";
  MD_String view = unset;
  MD_String again;

  CHECK(!MD_Message_getString(message, kString, &view) && view.data == unset.data && view.length == unset.length);
  CHECK(addsString(message, kString, "IBM"));
  CHECK(MD_Message_getString(message, kString, &view) && view.length == 3);
  CHECK(memcmp(view.data, "IBM", 4) == 0); /* a NUL follows the characters */
  CHECK(!addsString(message, kString, "refused") && isString(message, kString, "IBM"));
  CHECK(updatesString(message, kString, "MBI") && isString(message, kString, "MBI"));
  CHECK(updatesString(message, kString, "of another length") && isString(message, kString, "of another length"));
  CHECK(updatesString(message, kString2, "") && isString(message, kString2, ""));
  CHECK(MD_Message_updateString(message, kString2, &withNul));
  CHECK(MD_Message_getString(message, kString2, &view) && view.length == 3 && memcmp(view.data, "a\0b", 3) == 0);

  /* A view stays valid while the message does not change, and reading changes nothing. */
  CHECK(MD_Message_getString(message, kString, &view));
  CHECK(MD_Message_getString(message, kString2, &again));
  CHECK(MD_Message_getString(message, kString, &again) && again.data == view.data && again.length == view.length);
  CHECK(memcmp(view.data, "of another length", 17) == 0);

  /* What is added is a copy. */
  MD_Message_clear(message);
  view = stringOf(source);
  CHECK(MD_Message_addString(message, kString, &view));
  memcpy(source, "erased", 6);
  CHECK(isString(message, kString, "copied"));

  view = unset;
  CHECK(!MD_Message_getString(message, kUnknown, &view) && view.data == unset.data);
  CHECK(MD_Message_addInt(message, kInt, 5));
  CHECK(!MD_Message_getString(message, kInt, &view) && view.data == unset.data && view.length == unset.length);
  CHECK(!MD_Message_addString(message, kInt2, &text) && !MD_Message_exists(message, kInt2));
  CHECK(!MD_Message_addString(message, kUnknown, &text));
  CHECK(!MD_Message_updateString(message, kBeyond, &text));
  CHECK(!MD_Message_getString(message, kString, NULL));
  CHECK(!MD_Message_getString(NULL, kString, &view) && view.data == unset.data);
  CHECK(!MD_Message_addString(NULL, kString, &text));
  CHECK(!MD_Message_updateString(NULL, kString, &text));
  CHECK(!MD_Message_addString(NULL, kString, NULL));
  CHECK(!MD_Message_updateString(NULL, kString, NULL));
  MD_Message_clear(message);
}

static void buffers(MD_MessageHandle message) {
  const uint8_t kUnset[] = {9};
  const uint8_t kFirst[] = {0, 255, 128};
  const uint8_t kSecond[] = {1, 0, 3};
  const uint8_t kLonger[] = {5, 6, 7, 8};
  const MD_Buffer unset = bufferOf(kUnset, 1);
  const MD_Buffer first = bufferOf(kFirst, 3);
  const MD_Buffer second = bufferOf(kSecond, 3);
  const MD_Buffer longer = bufferOf(kLonger, 4);
  const MD_Buffer none = bufferOf(NULL, 0);
  uint8_t source[] = {1, 2};
  MD_Buffer view = unset;

  CHECK(!MD_Message_getBuffer(message, kBuffer, &view) && view.data == unset.data && view.length == unset.length);
  CHECK(MD_Message_addBuffer(message, kBuffer, &first) && isBuffer(message, kBuffer, kFirst, 3));
  CHECK(!MD_Message_addBuffer(message, kBuffer, &longer) && isBuffer(message, kBuffer, kFirst, 3));
  CHECK(MD_Message_updateBuffer(message, kBuffer, &second) && isBuffer(message, kBuffer, kSecond, 3));
  CHECK(MD_Message_updateBuffer(message, kBuffer, &longer) && isBuffer(message, kBuffer, kLonger, 4));
  CHECK(MD_Message_updateBuffer(message, kBuffer2, &none));
  CHECK(MD_Message_getBuffer(message, kBuffer2, &view) && view.length == 0);

  MD_Message_clear(message);
  view = bufferOf(source, 2);
  CHECK(MD_Message_addBuffer(message, kBuffer, &view));
  source[0] = 77;
  CHECK(MD_Message_getBuffer(message, kBuffer, &view) && view.data[0] == 1 && view.data[1] == 2);

  view = unset;
  CHECK(!MD_Message_getBuffer(message, kUnknown, &view) && view.data == unset.data);
  CHECK(addsString(message, kString, "x"));
  CHECK(!MD_Message_getBuffer(message, kString, &view) && view.data == unset.data && view.length == unset.length);
  CHECK(!MD_Message_addBuffer(message, kString2, &first) && !MD_Message_exists(message, kString2));
  CHECK(!MD_Message_addBuffer(message, kUnknown, &first));
  CHECK(!MD_Message_updateBuffer(message, kBeyond, &first));
  CHECK(!MD_Message_getBuffer(message, kBuffer, NULL));
  CHECK(!MD_Message_getBuffer(NULL, kBuffer, &view) && view.data == unset.data);
  CHECK(!MD_Message_addBuffer(NULL, kBuffer, &first));
  CHECK(!MD_Message_updateBuffer(NULL, kBuffer, &first));
  CHECK(!MD_Message_addBuffer(NULL, kBuffer, NULL));
  CHECK(!MD_Message_updateBuffer(NULL, kBuffer, NULL));
  MD_Message_clear(message);
}

static void dateTimeFields(MD_MessageHandle message) {
  MD_DateTimeHandle first = MD_DateTime_new(20240115, 93000000, -300);
  MD_DateTimeHandle other = MD_DateTime_new(19991231, 7, 60);
  char before[8];
  char after[8];

  CHECK(!MD_Message_getDateTime(message, kDateTime, other));
  CHECK(MD_Message_addDateTime(message, kDateTime, first));
  CHECK(!MD_Message_addDateTime(message, kDateTime, other));
  CHECK(MD_DateTime_serialize(before, other));
  CHECK(MD_Message_getDateTime(message, kDateTime, other));
  CHECK(MD_DateTime_serialize(after, other) && memcmp(before, after, 8) == 0);
  CHECK(MD_Message_updateDateTime(message, kDateTime, other));
  CHECK(MD_Message_updateDateTime(message, kDateTime2, first));
  CHECK(MD_Message_getDateTime(message, kDateTime2, first));
  CHECK(MD_Message_fieldCount(message) == 2);

  CHECK(addsString(message, kString, "no date-time"));
  CHECK(!MD_Message_getDateTime(message, kString, first));
  CHECK(!MD_Message_getDateTime(message, kUnknown, first));
  CHECK(!MD_Message_addDateTime(message, kEpochNS, first) && !MD_Message_exists(message, kEpochNS));
  CHECK(!MD_Message_updateDateTime(message, kUnknown, first));
  CHECK(!MD_Message_getDateTime(message, kDateTime, NULL));
  CHECK(!MD_Message_getDateTime(NULL, kDateTime, first));
  CHECK(!MD_Message_addDateTime(NULL, kDateTime, first));
  CHECK(!MD_Message_addDateTime(message, kDateTime2, NULL));
  CHECK(!MD_Message_updateDateTime(NULL, kDateTime, first));
  CHECK(!MD_Message_updateDateTime(message, kDateTime, NULL));
  MD_Message_clear(message);
  CHECK(!MD_Message_addDateTime(message, kDateTime, NULL) && !MD_Message_exists(message, kDateTime));
  CHECK(!MD_Message_updateDateTime(message, kDateTime, NULL) && !MD_Message_exists(message, kDateTime));
  MD_DateTime_delete(first);
  MD_DateTime_delete(other);
}

/* The packed word has three bits that no part covers, 61 to 63: above the offset, whose sign they repeat. */
static void dateTimeBitsThatDoNotTravel(void) {
  static const char kWord[8] = {0x40, 0x11, (char)0x8B, (char)0xF5, (char)0x82, (char)0x8F, (char)0xDA, (char)0x1F};
  static const char kStored[8] = {0x40, 0x11, (char)0x8B, (char)0xF5, (char)0x82, (char)0x8F, (char)0xDA, (char)0xFF};
  MD_MessageHandle message = MD_mInt_new();
  MD_DateTimeHandle dt = MD_DateTime_new_empty();
  MD_DateTimeHandle empty = MD_DateTime_new_empty();
  MD_String view;
  char word[8];
  int32_t date = 0;
  int32_t time = 0;
  int16_t offset = 0;

  CHECK(MD_DateTime_deserialize(dt, kWord));
  CHECK(MD_DateTime_serialize(word, dt) && memcmp(word, kWord, 8) == 0); /* the date-time itself keeps them */
  CHECK(MD_DateTime_date(dt, &date) && date == 20240115);
  CHECK(MD_DateTime_time(dt, &time) && time == 93000000);
  CHECK(MD_DateTime_exch_gmt_offset(dt, &offset) && offset == -300);

  /* The message is its bytes, so the word is found after a string: NUL, id, length 8. */
  CHECK(addsString(message, kString, "IBM"));
  CHECK(MD_Message_addDateTime(message, kDateTime, dt));
  CHECK(MD_Message_getSize(message) == 1 + (3 + 4) + (3 + 8));
  CHECK(MD_Message_getString(message, kString, &view));
  CHECK(memcmp(view.data + 3, "\0\x50\0\x08", 4) == 0);
  CHECK(memcmp(view.data + 7, kStored, 8) == 0);
  CHECK(MD_Message_updateDateTime(message, kDateTime, empty));
  CHECK(memcmp(view.data + 7, "\0\0\0\0\0\0\0\0", 8) == 0);
  CHECK(MD_Message_updateDateTime(message, kDateTime, dt));
  CHECK(memcmp(view.data + 7, kStored, 8) == 0);
  CHECK(MD_DateTime_serialize(word, dt) && memcmp(word, kWord, 8) == 0);
  MD_DateTime_delete(dt);
  MD_DateTime_delete(empty);
  MD_Message_delete(message);
}

/* ---- Date-times ---- */

static void dateTimeParts(void) {
  static const struct {
    const char* name;
    int32_t date, time;
    int16_t offset;
    int32_t dateBack, timeBack;
    int16_t offsetBack;
    unsigned char word[8];
  } kRows[] = {
      {"aDay", 20240131, 1, 0, 20240131, 1, 0, {0x01, 0x00, 0x00, 0xF0, 0x83, 0x0F, 0x00, 0x00}},
      {"aNegativeOffset",
       20240115,
       93000000,
       -300,
       20240115,
       93000000,
       -300,
       {0x40, 0x11, 0x8B, 0xF5, 0x82, 0x8F, 0xDA, 0xFF}},
      {"allParts", 21551231, 268435455, -1, 21551231, 268435455, -1, {0xFF, 0xFF, 0xFF, 0xFF, 0xF9, 0xFF, 0xFF, 0xFF}},
      {"theWordZero", 19000000, 0, 0, 19000000, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}},
      {"aYearTooLate", 21560101, 0, 0, 19000101, 0, 0, {0x00, 0x00, 0x00, 0x10, 0x02, 0x00, 0x00, 0x00}},
      {"monthThirteen", 19001301, 0, 0, 19001301, 0, 0, {0x00, 0x00, 0x00, 0x10, 0x1A, 0x00, 0x00, 0x00}},
      {"monthSeventeen", 19001701, 0, 0, 19000101, 0, 0, {0x00, 0x00, 0x00, 0x10, 0x02, 0x00, 0x00, 0x00}},
      {"aTimeTooLate", 19000000, 268435457, 0, 19000000, 1, 0, {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}},
      {"theLargestOffset",
       19000000,
       0,
       INT16_MAX,
       19000000,
       0,
       INT16_MAX,
       {0x00, 0x00, 0x00, 0x00, 0x00, 0xE0, 0xFF, 0x0F}},
      {"theSmallestOffset",
       19000000,
       0,
       INT16_MIN,
       19000000,
       0,
       INT16_MIN,
       {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0}},
  };
  size_t i;
  for (i = 0; i < COUNT_OF(kRows); ++i) {
    MD_DateTimeHandle dt = MD_DateTime_new(kRows[i].date, kRows[i].time, kRows[i].offset);
    MD_DateTimeHandle copy = MD_DateTime_new_empty();
    char word[9] = "........";
    char wordOfCopy[8];
    int32_t number = -1;
    int16_t offset = -2;

    g_case = kRows[i].name;
    CHECK(dt != NULL && copy != NULL);
    CHECK(MD_DateTime_date(dt, &number) && number == kRows[i].dateBack);
    CHECK(MD_DateTime_time(dt, &number) && number == kRows[i].timeBack);
    CHECK(MD_DateTime_exch_gmt_offset(dt, &offset) && offset == kRows[i].offsetBack);
    word[8] = '#';
    CHECK(MD_DateTime_serialize(word, dt) && memcmp(word, kRows[i].word, 8) == 0 && word[8] == '#');
    CHECK(MD_DateTime_deserialize(copy, word));
    CHECK(MD_DateTime_serialize(wordOfCopy, copy) && memcmp(wordOfCopy, word, 8) == 0);
    CHECK(MD_DateTime_date(copy, &number) && number == kRows[i].dateBack);
    MD_DateTime_delete(dt);
    MD_DateTime_delete(copy);
  }
  g_case = "";
}

static void dateTimeNulls(void) {
  MD_DateTimeHandle dt = MD_DateTime_new_empty();
  char word[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  int32_t number = 77;
  int16_t offset = 78;

  CHECK(dt != NULL);
  CHECK(MD_DateTime_date(dt, &number) && number == 19000000);
  CHECK(MD_DateTime_time(dt, &number) && number == 0);
  number = 77;
  CHECK(!MD_DateTime_serialize(NULL, dt));
  CHECK(!MD_DateTime_serialize(word, NULL) && memcmp(word, "\1\2\3\4\5\6\7\10", 8) == 0);
  CHECK(!MD_DateTime_serialize(NULL, NULL));
  CHECK(!MD_DateTime_deserialize(NULL, word));
  CHECK(!MD_DateTime_deserialize(dt, NULL));
  CHECK(!MD_DateTime_deserialize(NULL, NULL));
  CHECK(MD_DateTime_serialize(word, dt) && memcmp(word, "\0\0\0\0\0\0\0\0", 8) == 0);
  CHECK(!MD_DateTime_date(NULL, &number) && number == 77);
  CHECK(!MD_DateTime_time(NULL, &number) && number == 77);
  CHECK(!MD_DateTime_exch_gmt_offset(NULL, &offset) && offset == 78);
  CHECK(!MD_DateTime_date(NULL, NULL));
  CHECK(!MD_DateTime_time(NULL, NULL));
  CHECK(!MD_DateTime_exch_gmt_offset(NULL, NULL));
  MD_DateTime_delete(dt);
  MD_DateTime_delete(NULL);
}

/* ---- Making messages ---- */

static void newMessages(void) {
  MD_MessageHandle message = MD_mInt_new();
  MD_MessageHandle other = MD_mInt_new();

  CHECK(message != NULL && other != NULL && message != other);
  CHECK(MD_Message_empty(message) && MD_Message_getSize(message) == 1 && MD_Message_fieldCount(message) == 0);
  CHECK(MD_Message_addInt(message, kInt, 5)); /* 2 bytes of id, 1 of length, 1 of value: an mInt */
  CHECK(MD_Message_getSize(message) == 5 && !MD_Message_empty(message));
  CHECK(MD_Message_addInt(message, kHigh, 128));
  CHECK(MD_Message_getSize(message) == 10);
  CHECK(MD_Message_empty(other) && !MD_Message_exists(other, kInt));
  MD_Message_delete(other);
  CHECK(isInt(message, kInt, 5) && isInt(message, kHigh, 128));
  MD_Message_delete(message);
}

static void messagesFromBytes(void) {
  static const struct {
    const char* name;
    unsigned char bytes[24];
    uint32_t length;
  } kRows[] = {
      {"mInt", {6, 44, 1, 1, 5, 60, 0, 3, 'A', 'B', 0}, 11},
      {"IterMap", {1, 44, 1, 5, 0, 0, 0, 60, 0, 3, 0, 'A', 'B', 0}, 14},
      {"MsgT", {70, 'Q', 'R', '1', 1, 44, 0, 2, 0, 0, 0, 4, 0, 0, 0, 5}, 16},
      {"MsgTWhoseMarkIsNotRead", {70, 6, 6, 6, 1, 44, 0, 2, 0, 0, 0, 4, 0, 0, 0, 5}, 16},
  };
  size_t i;
  for (i = 0; i < COUNT_OF(kRows); ++i) {
    /* Bytes that are gone afterwards, in a block of exactly their size. */
    unsigned char* bytes = malloc(kRows[i].length);
    MD_MessageHandle message;
    g_case = kRows[i].name;
    if (bytes == NULL) {
      CHECK(bytes != NULL);
      continue;
    }
    memcpy(bytes, kRows[i].bytes, kRows[i].length);
    message = MD_Message_createFromBytes(bytes, kRows[i].length);
    memset(bytes, 0xEE, kRows[i].length);
    free(bytes);
    CHECK(message != NULL);
    CHECK(MD_Message_getSize(message) == kRows[i].length && !MD_Message_empty(message));
    CHECK(isInt(message, kInt, 5));
    CHECK(MD_Message_exists(message, kString) == (i < 2));
    CHECK(i >= 2 || isString(message, kString, "AB"));
    CHECK(MD_Message_addChar(message, kChar, 'x') && MD_Message_fieldCount(message) == (i < 2 ? 3 : 2));
    MD_Message_delete(message);
  }
  g_case = "";
}

static void unrecognisedBytes(void) {
  unsigned first;
  for (first = 0; first < 256; ++first) {
    const unsigned char bytes[2] = {(unsigned char)first, 0};
    MD_MessageHandle message = MD_Message_createFromBytes(bytes, 1);
    CHECK(message != NULL);
    if (first == 1 || first == 6 || first == 70) {
      CHECK(MD_Message_empty(message) && MD_Message_getSize(message) == 1);
    }
    MD_Message_delete(message);
  }
  {
    const unsigned char six[1] = {6};
    MD_MessageHandle ofNull = MD_Message_createFromBytes(NULL, 5);
    MD_MessageHandle ofNothing = MD_Message_createFromBytes(six, 0);
    MD_MessageHandle ofNeither = MD_Message_createFromBytes(NULL, 0);
    CHECK(ofNull != NULL && ofNothing != NULL && ofNeither != NULL);
    MD_Message_delete(ofNull);
    MD_Message_delete(ofNothing);
    MD_Message_delete(ofNeither);
  }
}

static void replacedBytes(void) {
  static const unsigned char kBytes[] = {6, 44, 1, 1, 5, 10, 0, 1, 'x'};
  static const unsigned char kOfIterMap[] = {1, 44, 1, 1, 9}; /* the first byte is not looked at */
  MD_MessageHandle message = MD_mInt_new();
  char value = '?';

  CHECK(addsString(message, kString, "replaced"));
  CHECK(MD_Message_setBinary(message, kBytes, sizeof kBytes));
  CHECK(MD_Message_getSize(message) == sizeof kBytes && MD_Message_fieldCount(message) == 2);
  CHECK(isInt(message, kInt, 5) && MD_Message_getChar(message, kChar, &value) && value == 'x');
  CHECK(!MD_Message_exists(message, kString));

  CHECK(!MD_Message_setBinary(message, NULL, 5));
  CHECK(!MD_Message_setBinary(NULL, kBytes, sizeof kBytes));
  CHECK(!MD_Message_setBinary(NULL, NULL, 0));
  CHECK(MD_Message_getSize(message) == sizeof kBytes && isInt(message, kInt, 5));

  CHECK(MD_Message_setBinary(message, kOfIterMap, sizeof kOfIterMap));
  CHECK(isInt(message, kInt, 9) && MD_Message_fieldCount(message) == 1);

  CHECK(MD_Message_setBinary(message, kBytes, 0));
  CHECK(MD_Message_getSize(message) == 0 && MD_Message_empty(message) && MD_Message_fieldCount(message) == 0);
  CHECK(MD_Message_addInt(message, kInt, 6));
  CHECK(MD_Message_getSize(message) == 5 && isInt(message, kInt, 6));
  MD_Message_delete(message);
}

/* ---- The message as a whole ---- */

static void fillWithInts(MD_MessageHandle message) {
  MD_Message_clear(message);
  CHECK(MD_Message_addInt(message, kInt, 1) && MD_Message_addInt(message, kInt2, 2));
  CHECK(MD_Message_addInt(message, kWhole, 3) && MD_Message_addInt(message, kNum, 4));
}

static void erasing(size_t encoding) {
  static const uint16_t kTwo[] = {kInt2, kNum};
  static const uint16_t kOneAbsent[] = {kInt2, kDenom, kNum};
  static const uint16_t kRepeated[] = {kWhole, kWhole};
  static const uint16_t kAll[] = {kNum, kWhole, kInt2, kInt};
  static const uint16_t kNoneKnown[] = {kUnknown, kBeyond};
  static const uint16_t kLeftOfTwo[] = {kInt, kWhole};
  static const uint16_t kLeftOfRepeated[] = {kInt, kInt2, kNum};
  static const uint16_t kInOrder[] = {kInt, kInt2, kWhole, kNum};
  MD_MessageHandle message = emptyMessage(encoding);
  const bool ofEmptyList = kEncodings[encoding].header[0] != 6; /* an mInt asks first whether it is empty itself */

  CHECK(!MD_Message_erase(message, kInt));
  CHECK(MD_Message_erase_array(message, kTwo, 0) == ofEmptyList);
  CHECK(!MD_Message_erase_array(message, kTwo, 2));
  CHECK(!MD_Message_erase_array(message, NULL, 0));

  fillWithInts(message);
  CHECK(MD_Message_erase(message, kInt2));
  CHECK(!MD_Message_exists(message, kInt2) && isInt(message, kInt, 1) && isInt(message, kWhole, 3));
  CHECK(!MD_Message_erase(message, kInt2));
  CHECK(!MD_Message_erase(message, kUnknown) && !MD_Message_erase(message, kBeyond));
  CHECK(!MD_Message_erase(NULL, kInt));
  CHECK(MD_Message_fieldCount(message) == 3);

  fillWithInts(message);
  CHECK(MD_Message_erase_array(message, kTwo, 0));
  CHECK(!MD_Message_erase_array(message, NULL, 0));
  CHECK(!MD_Message_erase_array(message, NULL, 2));
  CHECK(!MD_Message_erase_array(NULL, kTwo, 2));
  CHECK(!MD_Message_erase_array(NULL, NULL, 0));
  CHECK(!MD_Message_erase_array(message, kNoneKnown, 2));
  CHECK(hasIds(message, kInOrder, 4));

  CHECK(MD_Message_erase_array(message, kTwo, 1)); /* of the two, one */
  CHECK(!MD_Message_exists(message, kInt2) && isInt(message, kNum, 4));

  fillWithInts(message);
  CHECK(MD_Message_erase_array(message, kTwo, 2));
  CHECK(hasIds(message, kLeftOfTwo, 2) && isInt(message, kInt, 1) && isInt(message, kWhole, 3));

  fillWithInts(message);
  CHECK(!MD_Message_erase_array(message, kOneAbsent, 3));
  CHECK(hasIds(message, kLeftOfTwo, 2) && MD_Message_fieldCount(message) == 2);

  fillWithInts(message);
  CHECK(MD_Message_erase_array(message, kRepeated, 2));
  CHECK(hasIds(message, kLeftOfRepeated, 3) && MD_Message_fieldCount(message) == 3);
  CHECK(!MD_Message_erase_array(message, kRepeated, 2));

  fillWithInts(message);
  CHECK(MD_Message_erase_array(message, kAll, 4));
  CHECK(MD_Message_empty(message) && MD_Message_getSize(message) == kEncodings[encoding].headerBytes);
  MD_Message_delete(message);
}

static void wholeMessage(size_t encoding) {
  static const uint16_t kMovedToTheEnd[] = {kInt, kChar, kString};
  MD_MessageHandle message = emptyMessage(encoding);
  uint16_t ids[4] = {kMarked, kMarked, kMarked, kMarked};
  size_t count = kMarked;

  CHECK(MD_Message_empty(message) && MD_Message_getSize(message) == kEncodings[encoding].headerBytes);
  CHECK(!MD_Message_exists(message, kInt) && MD_Message_fieldCount(message) == 0);
  CHECK(MD_Message_getFieldIds(message, ids, &count) && count == 0 && ids[0] == kMarked);

  CHECK(MD_Message_addInt(message, kInt, 100000) && addsString(message, kString, "IBM"));
  CHECK(MD_Message_addChar(message, kChar, 'x'));
  CHECK(!MD_Message_empty(message) && MD_Message_fieldCount(message) == 3);
  CHECK(MD_Message_getFieldIds(message, ids, &count) && count == 3);
  CHECK(ids[0] == kInt && ids[1] == kString && ids[2] == kChar && ids[3] == kMarked);
  CHECK(updatesString(message, kString, "MSFT")); /* of another length: moves to the end */
  CHECK(hasIds(message, kMovedToTheEnd, 3));
  CHECK(MD_Message_updateInt(message, kInt, 100001) && hasIds(message, kMovedToTheEnd, 3));

  ids[0] = kMarked;
  count = kMarked;
  CHECK(!MD_Message_getFieldIds(NULL, ids, &count) && ids[0] == kMarked && count == kMarked);
  CHECK(!MD_Message_getFieldIds(message, NULL, &count) && count == kMarked);
  CHECK(!MD_Message_getFieldIds(message, ids, NULL) && ids[0] == kMarked);

  CHECK(MD_Message_print(message));
  CHECK(MD_Message_fieldCount(message) == 3);
  MD_Message_clear(message);
  CHECK(MD_Message_empty(message) && MD_Message_getSize(message) == kEncodings[encoding].headerBytes);
  CHECK(!MD_Message_exists(message, kInt) && MD_Message_fieldCount(message) == 0);
  CHECK(MD_Message_print(message));
  CHECK(MD_Message_addInt(message, kInt, 7) && isInt(message, kInt, 7));
  MD_Message_delete(message);
}

/* Received bytes may hold a field twice: the later one is found, both are listed. */
static void repeatedField(void) {
  static const unsigned char kBytes[] = {6, 44, 1, 1, 5, 10, 0, 1, 'x', 44, 1, 1, 6};
  static const uint16_t kIds[] = {kInt, kChar, kInt};
  MD_MessageHandle message = MD_Message_createFromBytes(kBytes, sizeof kBytes);

  CHECK(MD_Message_fieldCount(message) == 2);
  CHECK(hasIds(message, kIds, 3));
  CHECK(isInt(message, kInt, 6));
  MD_Message_delete(message);
}

static void nullHandle(void) {
  double price = -1.0;

  CHECK(MD_Message_empty(NULL));
  CHECK(!MD_Message_exists(NULL, kInt));
  CHECK(MD_Message_getSize(NULL) == 0);
  CHECK(MD_Message_fieldCount(NULL) == 0);
  CHECK(!MD_Message_print(NULL));
  CHECK(!MD_Message_getWND(NULL, kWhole, kNum, kDenom, &price) && price == -1.0);
  MD_Message_clear(NULL);
  MD_Message_delete(NULL);
}

static void prices(size_t encoding) {
  MD_MessageHandle message = emptyMessage(encoding);
  double price = -1.0;

  CHECK(!MD_Message_getWND(message, kWhole, kNum, kDenom, &price) && price == -1.0);
  CHECK(MD_Message_addInt(message, kNum, 5));
  CHECK(MD_Message_getWND(message, kWhole, kNum, kDenom, &price) && price == 0.05);
  CHECK(MD_Message_addInt(message, kWhole, 12));
  CHECK(MD_Message_getWND(message, kWhole, kNum, kDenom, &price) && price == 12.05);
  CHECK(MD_Message_addInt(message, kDenom, 8));
  CHECK(MD_Message_getWND(message, kWhole, kNum, kDenom, &price) && price == 12.625);
  CHECK(!MD_Message_getWND(message, kWhole, kNum, kDenom, NULL));
  CHECK(MD_Message_updateInt(message, kDenom, 0));
  CHECK(MD_Message_getWND(message, kWhole, kNum, kDenom, &price) && isinf(price) && price > 0);
  CHECK(MD_Message_updateInt(message, kNum, 0));
  CHECK(MD_Message_getWND(message, kWhole, kNum, kDenom, &price) && isnan(price));
  MD_Message_delete(message);
}

/* ---- Views into the same message ---- */

/* A view is a good argument of a change of its own message. The fields together pass the 1024 bytes that a new message
 * has, so the buffer grows under a view. */
static void viewsAsArguments(MD_MessageHandle message) {
  char text[255];
  uint8_t bytes[255] = {0};
  MD_String string;
  MD_Buffer buffer = bufferOf(bytes, sizeof bytes);
  size_t i;

  for (i = 0; i < sizeof bytes; ++i) {
    text[i] = (char)('a' + i % 26);
    bytes[i] = (uint8_t)(255 - i);
  }
  text[sizeof text - 1] = '\0';
  CHECK(addsString(message, kString, text));
  CHECK(MD_Message_addBuffer(message, kBuffer, &buffer));
  CHECK(MD_Message_getString(message, kString, &string) && MD_Message_addString(message, kString2, &string));
  CHECK(MD_Message_getSize(message) < 1024);
  CHECK(MD_Message_getBuffer(message, kBuffer, &buffer) && MD_Message_addBuffer(message, kBuffer2, &buffer));
  CHECK(MD_Message_getSize(message) > 1024);
  CHECK(isString(message, kString, text) && isString(message, kString2, text));
  CHECK(isBuffer(message, kBuffer, bytes, sizeof bytes) && isBuffer(message, kBuffer2, bytes, sizeof bytes));

  /* Of another field and of the field itself, of another length and of the same. */
  CHECK(MD_Message_getString(message, kString2, &string));
  string.data += 26;
  string.length = 150;
  CHECK(MD_Message_updateString(message, kString, &string));
  CHECK(MD_Message_getString(message, kString, &string) && string.length == 150);
  CHECK(memcmp(string.data, text, 150) == 0);
  CHECK(MD_Message_updateString(message, kString, &string));
  CHECK(MD_Message_getString(message, kString, &string) && memcmp(string.data, text, 150) == 0);
  CHECK(MD_Message_getBuffer(message, kBuffer, &buffer));
  buffer.data += 1;
  buffer.length -= 1;
  CHECK(MD_Message_updateBuffer(message, kBuffer, &buffer) && isBuffer(message, kBuffer, bytes + 1, 254));
  CHECK(MD_Message_getBuffer(message, kBuffer2, &buffer) && MD_Message_updateBuffer(message, kBuffer2, &buffer));
  CHECK(isBuffer(message, kBuffer2, bytes, sizeof bytes));
  CHECK(isString(message, kString2, text));
}

/* What an mInt refuses for its length; the others take it. */
static void lengths(size_t encoding) {
  static char text[65536];
  static uint8_t bytes[65535];
  const bool isMInt = kEncodings[encoding].header[0] == 6;
  MD_MessageHandle message = emptyMessage(encoding);
  MD_String string;
  MD_Buffer buffer = bufferOf(bytes, 255);

  memset(text, 'x', sizeof text - 1);
  memset(bytes, 7, sizeof bytes);
  string.data = text;
  string.length = 254;
  CHECK(MD_Message_addString(message, kString, &string));
  CHECK(MD_Message_getString(message, kString, &string) && string.length == 254);
  CHECK(MD_Message_addBuffer(message, kBuffer, &buffer));
  CHECK(MD_Message_getBuffer(message, kBuffer, &buffer) && buffer.length == 255);
  MD_Message_clear(message);

  string.data = text;
  string.length = 255;
  buffer = bufferOf(bytes, 256);
  CHECK(MD_Message_addString(message, kString, &string) == !isMInt);
  CHECK(MD_Message_exists(message, kString) == !isMInt);
  CHECK(MD_Message_addBuffer(message, kBuffer, &buffer) == !isMInt);
  CHECK(MD_Message_exists(message, kBuffer) == !isMInt);
  MD_Message_clear(message);

  string.length = 65535;
  buffer = bufferOf(bytes, 65535);
  CHECK(MD_Message_addString(message, kString, &string) == !isMInt);
  CHECK(MD_Message_addBuffer(message, kBuffer, &buffer) == !isMInt);
  if (!isMInt) {
    CHECK(MD_Message_getString(message, kString, &string) && string.length == 65535);
    CHECK(memcmp(string.data, text, 65536) == 0);
    CHECK(isBuffer(message, kBuffer, bytes, 65535));
  }
  MD_Message_delete(message);
}

int main(void) {
  MD_MessageHandle fresh[COUNT_OF(kEncodings)];
  size_t i;
  /* First, and all at once: a buffer that comes back from a deleted message has grown already. */
  for (i = 0; i < COUNT_OF(kEncodings); ++i) {
    fresh[i] = emptyMessage(i);
  }
  for (i = 0; i < COUNT_OF(kEncodings); ++i) {
    g_case = kEncodings[i].name;
    viewsAsArguments(fresh[i]);
  }
  for (i = 0; i < COUNT_OF(kEncodings); ++i) {
    MD_Message_delete(fresh[i]);
  }
  for (i = 0; i < COUNT_OF(kEncodings); ++i) {
    MD_MessageHandle message = emptyMessage(i);
    g_case = kEncodings[i].name;
    scalarTypes(message);
    strings(message);
    buffers(message);
    dateTimeFields(message);
    MD_Message_delete(message);
    erasing(i);
    wholeMessage(i);
    prices(i);
    lengths(i);
  }
  g_case = "";
  dateTimeBitsThatDoNotTravel();
  dateTimeParts();
  dateTimeNulls();
  newMessages();
  messagesFromBytes();
  unrecognisedBytes();
  replacedBytes();
  repeatedField();
  nullHandle();
  return reportChecks();
}
