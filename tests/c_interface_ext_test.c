/* The additions to the C interface, from strict C99. It runs with CONFIG_PATH set to data/c_interface, where its
 * dictionary is located and mInt is preferred; with the argument "unloadable" where the dictionary cannot be loaded and
 * the preferred encoding is unknown. */
#include "md/md_message_c_ext.h"

#include <stdio.h>
#include <string.h>

#include "support/c_check.h"
#include "support/c_fields.h"

enum { kFieldCount = 22 /* of the dictionary */ };

static const uint8_t kCodes[] = {MD_ENCODING_ITERMAP, MD_ENCODING_MINT, MD_ENCODING_MSGT};

static const char kUntouched[] = "untouched";

/* A handle that holds no message. */
static MD_MessageHandle emptyHandle(void) { return MD_Message_createFromBytes(NULL, 0); }

static bool addsString(MD_MessageHandle message, uint16_t id, const char* text) {
  const MD_String view = stringOf(text);
  return MD_Message_addString(message, id, &view);
}

static bool hasSameBytes(MD_MessageHandle a, MD_MessageHandle b) {
  const uint32_t size = MD_Message_getSize(a);
  return MD_Message_getSize(b) == size && memcmp(MD_Message_getBinary(a), MD_Message_getBinary(b), size) == 0;
}

/* ---- The process ---- */

static unsigned g_assertions = 0;
static const char* g_expression = "";
static const char* g_file = "";
static unsigned g_line = 0;

static void noteAssertion(const char* expression, const char* file, unsigned line) {
  ++g_assertions;
  g_expression = expression;
  g_file = file;
  g_line = line;
}

static void handlerAndVersion(void) {
  const MD_AssertionHandler first = MD_set_assertion_handler(noteAssertion);
  CHECK(first == NULL);
  CHECK(MD_set_assertion_handler(NULL) == noteAssertion);
  CHECK(MD_set_assertion_handler(first) == NULL);
  CHECK(strcmp(MD_version(), MD_EXPECTED_VERSION) == 0);
  CHECK(MD_version() == MD_version());
}

static char g_report[200];
static size_t g_reportLength = 0;

static void noteReport(const char* text, size_t length) {
  g_reportLength = length;
  if (length < sizeof g_report) {
    memcpy(g_report, text, length + 1);
  }
}

static void reportHandler(void) {
  const char expected[] =
      "mInt Error: Attempting to ADD a field with incorrect id!\n"
      "  Field id:   999\n  Field type: \x02\n  Field size: 1\n";
  const MD_MessageHandle message = MD_mInt_new();
  CHECK(MD_set_report_handler(noteReport) == NULL);
  CHECK(!MD_Message_addInt(message, kUnknown, 5));
  CHECK(MD_set_report_handler(NULL) == noteReport);
  CHECK(g_reportLength == sizeof expected - 1);
  CHECK(memcmp(g_report, expected, sizeof expected) == 0);
  CHECK(MD_set_report_handler(NULL) == NULL);
  MD_Message_delete(message);
}

/* ---- Making messages ---- */

static void messagesOfACode(void) {
  size_t i;
  unsigned code;
  for (i = 0; i < COUNT_OF(kCodes); ++i) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[i]);
    CHECK(message != NULL && MD_Message_getPB(message) == kCodes[i]);
    CHECK(MD_Message_empty(message) && MD_Message_fieldCount(message) == 0);
    CHECK(MD_Message_getBinary(message)[0] == kCodes[i]);
    CHECK(MD_Message_getSize(message) == (kCodes[i] == MD_ENCODING_MSGT ? 4 : 1));
    CHECK(MD_Message_addInt(message, kInt, 5) && MD_Message_exists(message, kInt));
    MD_Message_delete(message);
  }
  for (code = 0; code < 256; ++code) {
    if (code != 1 && code != 6 && code != 70) {
      CHECK(MD_Message_createFromPB((uint8_t)code) == NULL);
    }
  }
}

static void preferredMessages(void) {
  int cached;
  for (cached = 0; cached < 2; ++cached) {
    MD_MessageHandle message = MD_Message_createPreferred(cached != 0);
    CHECK(message != NULL && MD_Message_getPB(message) == MD_ENCODING_MINT && MD_Message_empty(message));
    MD_Message_delete(message);
  }
}

static void messagesOfTheSameKind(void) {
  size_t i;
  MD_MessageHandle held = emptyHandle();
  for (i = 0; i < COUNT_OF(kCodes); ++i) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[i]);
    MD_MessageHandle empty;
    MD_MessageHandle copy;
    int32_t value = 0;
    CHECK(MD_Message_addInt(message, kInt, 5) && addsString(message, kString, "IBM"));
    empty = MD_Message_createEmpty(message);
    copy = MD_Message_clone(message);
    CHECK(empty != NULL && MD_Message_getPB(empty) == kCodes[i] && MD_Message_empty(empty));
    CHECK(copy != NULL && MD_Message_getPB(copy) == kCodes[i] && hasSameBytes(copy, message));
    CHECK(MD_Message_updateInt(copy, kInt, 100000) && MD_Message_getInt(message, kInt, &value) && value == 5);
    MD_Message_delete(message);
    CHECK(MD_Message_getInt(copy, kInt, &value) && value == 100000);
    CHECK(MD_Message_addInt(empty, kInt, 7) && MD_Message_getInt(empty, kInt, &value) && value == 7);
    MD_Message_delete(empty);
    MD_Message_delete(copy);
  }
  CHECK(MD_Message_createEmpty(NULL) == NULL && MD_Message_createEmpty(held) == NULL);
  CHECK(MD_Message_clone(NULL) == NULL && MD_Message_clone(held) == NULL);
  MD_Message_delete(held);
}

/* ---- The message as a whole ---- */

static void bytesAndCode(void) {
  static const uint8_t kBytes[] = {6, 44, 1, 1, 5};
  MD_MessageHandle held = emptyHandle();
  MD_MessageHandle made = MD_mInt_new();
  MD_MessageHandle received = MD_Message_createFromBytes(kBytes, sizeof kBytes);

  CHECK(MD_Message_addInt(made, kInt, 5) && MD_Message_getSize(made) == sizeof kBytes);
  CHECK(memcmp(MD_Message_getBinary(made), kBytes, sizeof kBytes) == 0 && hasSameBytes(made, received));
  CHECK(MD_Message_getBinary(received) != kBytes);
  CHECK(MD_Message_getPB(made) == MD_ENCODING_MINT && MD_Message_getPB(received) == MD_ENCODING_MINT);
  CHECK(MD_Message_getPB(NULL) == 0 && MD_Message_getPB(held) == 0);
  CHECK(MD_Message_getBinary(NULL) == NULL && MD_Message_getBinary(held) == NULL);
  MD_Message_delete(made);
  MD_Message_delete(received);
  MD_Message_delete(held);
}

static void copies(void) {
  size_t from;
  size_t to;
  MD_MessageHandle held = emptyHandle();
  for (from = 0; from < COUNT_OF(kCodes); ++from) {
    for (to = 0; to < COUNT_OF(kCodes); ++to) {
      MD_MessageHandle source = MD_Message_createFromPB(kCodes[from]);
      MD_MessageHandle target = MD_Message_createFromPB(kCodes[to]);
      MD_String text = {NULL, 0};
      int32_t number = 0;
      double price = 0;
      CHECK(MD_Message_copyMsg(target, source) && MD_Message_empty(target));
      CHECK(MD_Message_addInt(source, kInt, 5) && addsString(source, kString, "IBM"));
      CHECK(MD_Message_addInt(target, kInt, 70000) && MD_Message_addDouble(target, kDouble, 1.5));
      CHECK(MD_Message_copyMsg(target, source) && MD_Message_fieldCount(target) == 3);
      CHECK(MD_Message_getInt(target, kInt, &number) && number == 5);
      CHECK(MD_Message_getString(target, kString, &text) && text.length == 3 && memcmp(text.data, "IBM", 3) == 0);
      CHECK(MD_Message_getDouble(target, kDouble, &price) && price == 1.5);
      CHECK(MD_Message_fieldCount(source) == 2 && MD_Message_copyMsg(source, source));
      CHECK(MD_Message_fieldCount(source) == 2 && MD_Message_getInt(source, kInt, &number) && number == 5);
      CHECK(!MD_Message_copyMsg(NULL, source) && !MD_Message_copyMsg(source, NULL) && !MD_Message_copyMsg(NULL, NULL));
      CHECK(!MD_Message_copyMsg(held, source) && !MD_Message_copyMsg(source, held));
      MD_Message_delete(source);
      MD_Message_delete(target);
    }
  }
  MD_Message_delete(held);
}

/* A field that cannot be read fails an assertion, and is skipped if the handler returns. */
static void copyOfAnUnreadableField(void) {
  static const unsigned char kCutOff[] = {6, 10, 0, 1, 'x', 44, 1, 4, 5};
  MD_MessageHandle source = MD_Message_createFromBytes(kCutOff, sizeof kCutOff);
  MD_MessageHandle target = MD_mInt_new();
  const MD_AssertionHandler before = MD_set_assertion_handler(noteAssertion);
  char text[256];
  size_t length = 0;

  g_assertions = 0;
  CHECK(MD_Message_copyMsg(target, source) && g_assertions == 1);
  CHECK(strcmp(g_expression, "b == true") == 0 && strcmp(g_file, "md_message/src/md_message") == 0 && g_line == 310);
  CHECK(MD_Message_fieldCount(target) == 1 && MD_Message_exists(target, kChar));
  CHECK(MD_Message_toText(source, text, sizeof text, &length) && g_assertions == 2);
  CHECK(strcmp(text, "CH                     = x\nQTY                    = <VARIANT>\n") == 0);
  MD_set_assertion_handler(before);
  MD_Message_delete(source);
  MD_Message_delete(target);
}

static void receivedBytes(void) {
  static const unsigned char bytes[] = {6, 44, 1, 1, 5};
  static const unsigned char foreign[] = {5, 1};
  int32_t number = 0;
  MD_MessageHandle message = MD_Message_tryCreateFromBytes(bytes, sizeof bytes);
  CHECK(message != NULL && MD_Message_getInt(message, kInt, &number) && number == 5);
  CHECK(MD_Message_tryCreateFromBytes(foreign, sizeof foreign) == NULL);
  CHECK(MD_Message_tryCreateFromBytes(bytes, 0) == NULL && MD_Message_tryCreateFromBytes(NULL, 5) == NULL);
  MD_Message_delete(message);
}

/* An mInt of received bytes whose double is truncated. */
static MD_MessageHandle truncatedMessage(void) {
  static const unsigned char bytes[] = {6, 44, 1, 1, 5, 22, 0, 8, 1, 2, 3};
  return MD_Message_tryCreateFromBytes(bytes, sizeof bytes);
}

static void copiesWithoutAssertions(void) {
  MD_MessageHandle source = truncatedMessage();
  MD_MessageHandle target = MD_Message_createFromPB(MD_ENCODING_MSGT);
  MD_MessageHandle held = emptyHandle();
  const uint16_t listed[] = {kInt, kUnknown, kDouble};
  uint16_t rest[2] = {kMarked, kMarked};
  size_t count = kMarked;
  int32_t number = 0;

  CHECK(!MD_Message_copyReadable(target, source, rest, 2, &count) && count == 1);
  CHECK(rest[0] == kDouble && rest[1] == kMarked);
  CHECK(MD_Message_getInt(target, kInt, &number) && number == 5 && MD_Message_fieldCount(target) == 1);
  CHECK(!MD_Message_copyFields(target, source, listed, 3, rest, 1, &count) && count == 2);
  CHECK(rest[0] == kUnknown && rest[1] == kMarked);
  CHECK(MD_Message_copyFields(target, source, listed, 1, rest, 2, &count) && count == 0);
  CHECK(!MD_Message_copyReadable(target, source, NULL, 0, NULL) &&
        MD_Message_copyFields(target, source, listed, 1, NULL, 0, NULL));
  CHECK(MD_Message_copyFields(target, source, listed, 0, NULL, 0, NULL));

  count = kMarked;
  CHECK(!MD_Message_copyReadable(NULL, source, rest, 2, &count) &&
        !MD_Message_copyReadable(target, NULL, rest, 2, &count));
  CHECK(!MD_Message_copyReadable(held, source, rest, 2, &count) &&
        !MD_Message_copyReadable(target, held, rest, 2, &count));
  CHECK(!MD_Message_copyFields(target, source, NULL, 1, rest, 2, &count) && count == kMarked);
  MD_Message_delete(source);
  MD_Message_delete(target);
  MD_Message_delete(held);
}

static void deltas(void) {
  MD_MessageHandle before = MD_Message_createFromPB(MD_ENCODING_MINT);
  MD_MessageHandle after = MD_Message_createFromPB(MD_ENCODING_ITERMAP);
  MD_MessageHandle delta = MD_Message_createFromPB(MD_ENCODING_MSGT);
  MD_MessageHandle held = emptyHandle();
  const uint16_t keys[] = {kString};
  MD_Buffer removed = {NULL, 0};

  CHECK(MD_Message_addInt(before, kInt, 5) && addsString(before, kString, "IBM"));
  CHECK(addsString(after, kString, "IBM") && MD_Message_addDouble(after, kDouble, 1.5));
  CHECK(!MD_Message_sameFields(before, after) && MD_Message_sameFields(before, before));
  CHECK(MD_Message_diff(before, after, delta, kBuffer, keys, 1) && MD_Message_fieldCount(delta) == 3);
  CHECK(MD_Message_getBuffer(delta, kBuffer, &removed) && removed.length == 2);
  CHECK(removed.data[0] == (kInt & 255) && removed.data[1] == kInt >> 8);
  CHECK(MD_Message_applyDelta(before, delta, kBuffer) && MD_Message_sameFields(before, after));
  CHECK(MD_Message_diff(before, after, delta, kBuffer, NULL, 0) && MD_Message_empty(delta));
  CHECK(!MD_Message_diff(before, after, before, kBuffer, NULL, 0) && MD_Message_empty(before));
  CHECK(!MD_Message_applyDelta(after, after, kBuffer));

  CHECK(!MD_Message_sameFields(NULL, after) && !MD_Message_sameFields(after, held));
  CHECK(!MD_Message_diff(NULL, after, delta, kBuffer, NULL, 0) &&
        !MD_Message_diff(before, held, delta, kBuffer, NULL, 0));
  CHECK(!MD_Message_diff(before, after, NULL, kBuffer, NULL, 0));
  CHECK(!MD_Message_applyDelta(NULL, delta, kBuffer) && !MD_Message_applyDelta(after, held, kBuffer));
  MD_Message_delete(before);
  MD_Message_delete(after);
  MD_Message_delete(delta);
  MD_Message_delete(held);
}

static void fieldIds(void) {
  static const unsigned char kBytes[] = {6, 44, 1, 1, 5, 10, 0, 1, 'x', 44, 1, 1, 6};
  MD_MessageHandle held = emptyHandle();
  MD_MessageHandle none = MD_mInt_new();
  MD_MessageHandle message = MD_Message_createFromBytes(kBytes, sizeof kBytes);
  uint16_t ids[4] = {kMarked, kMarked, kMarked, kMarked};
  size_t count = kMarked;

  CHECK(MD_Message_copyFieldIds(message, NULL, 0, &count) && count == 3);
  count = kMarked;
  CHECK(MD_Message_copyFieldIds(message, NULL, 4, &count) && count == 3);
  count = kMarked;
  CHECK(!MD_Message_copyFieldIds(message, ids, 0, &count) && count == 3 && ids[0] == kMarked);
  count = kMarked;
  CHECK(!MD_Message_copyFieldIds(message, ids, 2, &count) && count == 3);
  CHECK(ids[0] == kInt && ids[1] == kChar && ids[2] == kMarked);
  count = kMarked;
  CHECK(MD_Message_copyFieldIds(message, ids, 3, &count) && count == 3);
  CHECK(ids[0] == kInt && ids[1] == kChar && ids[2] == kInt && ids[3] == kMarked);
  ids[0] = kMarked;
  CHECK(MD_Message_copyFieldIds(none, ids, 0, &count) && count == 0);
  CHECK(MD_Message_copyFieldIds(none, ids, 4, &count) && count == 0 && ids[0] == kMarked);
  count = kMarked;
  CHECK(!MD_Message_copyFieldIds(NULL, ids, 4, &count) && !MD_Message_copyFieldIds(held, ids, 4, &count));
  CHECK(!MD_Message_copyFieldIds(message, ids, 4, NULL) && ids[0] == kMarked && count == kMarked);
  MD_Message_delete(message);
  MD_Message_delete(none);
  MD_Message_delete(held);
}

/* ---- Text output ---- */

typedef bool (*PrintOut)(MD_MessageHandle, char*, size_t, size_t*);

/* Every size from none to more than enough. */
static void printsInto(PrintOut print, MD_MessageHandle message, const char* expected) {
  const size_t whole = strlen(expected);
  char text[256];
  size_t capacity;
  size_t length = kMarked;

  CHECK(whole + 2 < sizeof text);
  CHECK(print(message, NULL, 0, &length) && length == whole);
  length = kMarked;
  CHECK(print(message, NULL, 100, &length) && length == whole);
  for (capacity = 0; capacity < whole + 3; ++capacity) {
    const size_t kept = capacity > whole ? whole : capacity == 0 ? 0 : capacity - 1;
    memset(text, '#', sizeof text);
    length = kMarked;
    CHECK(print(message, text, capacity, &length) == (capacity > whole) && length == whole);
    CHECK(memcmp(text, expected, kept) == 0);
    CHECK(capacity == 0 || text[kept] == '\0');
    CHECK(text[capacity] == '#');
  }
}

static void printsNothingFor(PrintOut print, MD_MessageHandle message) {
  char text[] = "untouched";
  size_t length = kMarked;
  CHECK(!print(message, text, sizeof text, &length) && length == kMarked && strcmp(text, kUntouched) == 0);
  CHECK(!print(message, NULL, 0, &length) && length == kMarked);
}

static void printOuts(void) {
  size_t i;
  MD_MessageHandle held = emptyHandle();
  for (i = 0; i < COUNT_OF(kCodes); ++i) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[i]);
    char text[] = "untouched";
    printsInto(MD_Message_toText, message, "");
    printsInto(MD_Message_toPriceText, message, "");
    CHECK(addsString(message, kString, "IBM") && MD_Message_addInt(message, kWhole, 12));
    CHECK(MD_Message_addInt(message, kNum, 34) && MD_Message_addInt(message, kDenom, 100));
    CHECK(MD_Message_addInt64(message, kInt64, INT64_C(1234567)));
    printsInto(MD_Message_toText, message,
               "SYMBOL                 = IBM\nPX_WHOLE               = 12\nPX_NUM                 = 34\n"
               "PX_DENOM               = 100\nSEQ                    = 1234567\n");
    printsInto(MD_Message_toPriceText, message,
               "SYMBOL                 = IBM\nPX                     = 12.34\nSEQ                    = 1234567\n");
    CHECK(!MD_Message_toText(message, text, sizeof text, NULL) && strcmp(text, kUntouched) == 0);
    CHECK(!MD_Message_toPriceText(message, text, sizeof text, NULL) && strcmp(text, kUntouched) == 0);
    MD_Message_delete(message);
  }
  printsNothingFor(MD_Message_toText, NULL);
  printsNothingFor(MD_Message_toText, held);
  printsNothingFor(MD_Message_toPriceText, NULL);
  printsNothingFor(MD_Message_toPriceText, held);
  MD_Message_delete(held);
}

/* ---- Reading a field ---- */

static bool hasData(MD_MessageHandle message, uint16_t id, uint8_t type, const void* expected, uint32_t expectedSize) {
  const uint8_t* data = NULL;
  uint32_t size = 0;
  uint8_t found = 255;
  return MD_Message_fieldData(message, id, &data, &size, &found) && found == type && size == expectedSize &&
         memcmp(data, expected, size) == 0;
}

static bool hasNoData(MD_MessageHandle message, uint16_t id) {
  const uint8_t mark = 0;
  const uint8_t* data = &mark;
  uint32_t size = kMarked;
  uint8_t type = 255;
  return !MD_Message_fieldData(message, id, &data, &size, &type) && data == &mark && size == kMarked && type == 255;
}

static void safeText(void) {
  MD_MessageHandle message = truncatedMessage();
  printsInto(MD_Message_toSafeText, message,
             "QTY                    = 5\nBID                    = <truncated: 3 of 8 bytes>\n");
  printsNothingFor(MD_Message_toSafeText, NULL);
  printsInto(MD_Message_toSafePriceText, message,
             "QTY                    = 5\nBID                    = <truncated: 3 of 8 bytes>\n");
  printsNothingFor(MD_Message_toSafePriceText, NULL);
  MD_Message_delete(message);
}

static void fieldDataOfEachEncoding(void) {
  static const uint8_t kLittle[] = {0xA0, 0x86, 1, 0};
  static const uint8_t kBig[] = {0, 1, 0x86, 0xA0};
  size_t i;
  MD_MessageHandle held = emptyHandle();
  for (i = 0; i < COUNT_OF(kCodes); ++i) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[i]);
    const uint8_t* data = NULL;
    uint32_t size = 0;
    uint8_t type = 0;
    CHECK(MD_Message_addInt(message, kInt, 100000) && addsString(message, kString, "IBM"));
    CHECK(hasData(message, kInt, MD_TYPE_INT, kCodes[i] == MD_ENCODING_MSGT ? kBig : kLittle, 4));
    CHECK(hasData(message, kString, MD_TYPE_STRING, "IBM", 4));
    CHECK(hasNoData(message, kChar) && hasNoData(message, kUnknown) && hasNoData(message, kBeyond));
    CHECK(!MD_Message_fieldData(message, kInt, NULL, &size, &type) && size == 0 && type == 0);
    CHECK(!MD_Message_fieldData(message, kInt, &data, NULL, &type) && data == NULL && type == 0);
    CHECK(!MD_Message_fieldData(message, kInt, &data, &size, NULL) && data == NULL && size == 0);
    MD_Message_delete(message);
  }
  CHECK(hasNoData(NULL, kInt) && hasNoData(held, kInt));
  MD_Message_delete(held);
}

/* The data of a field whose record runs past the end of the message is not returned. */
static void fieldDataThatIsCutOff(void) {
  static const struct {
    const char* name;
    unsigned char bytes[16];
    uint32_t length;
  } kRows[] = {
      {"mInt", {6, 44, 1, 4, 5, 0, 0}, 7},
      {"mIntWithoutValue", {6, 44, 1, 4}, 4},
      {"IterMap", {1, 44, 1, 5, 0, 0}, 6},
      {"IterMapString", {1, 60, 0, 5, 0, 'A', 'B'}, 7},
      {"MsgT", {70, 'Q', 'R', '1', 1, 44, 0, 2, 0, 0, 0, 4, 0, 0}, 14},
  };
  size_t i;
  for (i = 0; i < COUNT_OF(kRows); ++i) {
    MD_MessageHandle message = MD_Message_createFromBytes(kRows[i].bytes, kRows[i].length);
    g_case = kRows[i].name;
    CHECK(MD_Message_fieldCount(message) == 1);
    CHECK(hasNoData(message, kInt) && hasNoData(message, kString));
    MD_Message_delete(message);
  }
  g_case = "";
}

static void dateTimes(void) {
  size_t i;
  MD_MessageHandle held = emptyHandle();
  for (i = 0; i < COUNT_OF(kCodes); ++i) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[i]);
    MD_DateTimeHandle sent = MD_DateTime_new(20240115, 93000000, -300);
    MD_DateTimeHandle read = MD_DateTime_new(19991231, 7, 60);
    char words[2][8];
    int32_t date = 0;
    CHECK(!MD_Message_readDateTime(message, kDateTime, read));
    CHECK(addsString(message, kString, "no date-time") && !MD_Message_readDateTime(message, kString, read));
    CHECK(!MD_Message_readDateTime(message, kUnknown, read) && !MD_Message_readDateTime(NULL, kDateTime, read));
    CHECK(!MD_Message_readDateTime(held, kDateTime, read));
    CHECK(MD_DateTime_date(read, &date) && date == 19991231);
    CHECK(MD_Message_addDateTime(message, kDateTime, sent));
    CHECK(!MD_Message_readDateTime(message, kDateTime, NULL));
    CHECK(MD_Message_readDateTime(message, kDateTime, read));
    CHECK(MD_DateTime_serialize(words[0], sent) && MD_DateTime_serialize(words[1], read));
    CHECK(memcmp(words[0], words[1], 8) == 0);
    MD_DateTime_delete(sent);
    MD_DateTime_delete(read);
    MD_Message_delete(message);
  }
  MD_Message_delete(held);
}

/* ---- The field dictionary ---- */

static bool isField(uint16_t id, const char* name, uint8_t type) {
  const char* foundName = MD_FieldMap_idToName(id);
  uint16_t foundId = 0;
  uint8_t types[2] = {255, 255};
  return foundName != NULL && strcmp(foundName, name) == 0 && MD_FieldMap_nameToId(name, &foundId) && foundId == id &&
         MD_FieldMap_idToType(id, &types[0]) && MD_FieldMap_nameToType(name, &types[1]) && types[0] == type &&
         types[1] == type;
}

static bool isNoField(uint16_t id, const char* name) {
  uint16_t foundId = kMarked;
  uint8_t type = 255;
  return MD_FieldMap_idToName(id) == NULL && !MD_FieldMap_idToType(id, &type) &&
         !MD_FieldMap_nameToId(name, &foundId) && !MD_FieldMap_nameToType(name, &type) && foundId == kMarked &&
         type == 255;
}

static void lookUps(void) {
  uint16_t ids[kFieldCount + 1];
  size_t count = kMarked;

  CHECK(MD_FieldMap_size() == kFieldCount);
  CHECK(isField(kInt, "QTY", MD_TYPE_INT) && isField(kHigh, "HIGH", MD_TYPE_INT));
  CHECK(isField(kChar, "CH", MD_TYPE_CHAR) && isField(kEpochNS, "RECV", MD_TYPE_EPOCH_NSEC));
  CHECK(isField(kBuffer, "BLOB", MD_TYPE_BUFFER) && isField(kDouble, "BID", MD_TYPE_DOUBLE));
  CHECK(isNoField(kUnknown, "NO_SUCH_FIELD") && isNoField(kBeyond, "") && isNoField(0, "qty"));
  CHECK(!MD_FieldMap_idToType(kInt, NULL) && !MD_FieldMap_nameToId("QTY", NULL) && !MD_FieldMap_nameToId(NULL, ids));
  CHECK(!MD_FieldMap_nameToType("QTY", NULL) && !MD_FieldMap_nameToType(NULL, (uint8_t*)ids));

  CHECK(MD_FieldMap_copyIds(NULL, 0, &count) && count == kFieldCount);
  memset(ids, 0xEE, sizeof ids);
  count = kMarked;
  CHECK(!MD_FieldMap_copyIds(ids, 2, &count) && count == kFieldCount);
  CHECK(ids[0] == 10 && ids[1] == 11 && ids[2] == 0xEEEE);
  count = kMarked;
  CHECK(MD_FieldMap_copyIds(ids, kFieldCount, &count) && count == kFieldCount);
  CHECK(ids[2] == 20 && ids[kFieldCount - 1] == kHigh && ids[kFieldCount] == 0xEEEE);
  CHECK(!MD_FieldMap_copyIds(ids, kFieldCount, NULL));
}

static void checkingFields(void) {
  MD_ExpectedField fields[] = {{"QTY", kInt, MD_TYPE_INT}, {"BID", kDouble, MD_TYPE_DOUBLE}};
  char error[200] = "untouched";
  char cut[15];

  CHECK(MD_FieldMap_checkFields(fields, 2, error, sizeof error) && error[0] == '\0');
  CHECK(MD_FieldMap_checkFields(fields, 2, NULL, 0) && MD_FieldMap_checkFields(fields, 0, error, sizeof error));
  fields[0].type = MD_TYPE_INT64;
  fields[1].name = "BIDS";
  CHECK(!MD_FieldMap_checkFields(fields, 2, error, sizeof error));
  CHECK(
      strcmp(error,
             "the dictionary c_interface/field_map.txt does not match the fields of this program: QTY: expected id 300 "
             "INT64, found id 300 INT; BIDS: expected id 22 DOUBLE, found no field of this name") == 0);
  CHECK(!MD_FieldMap_checkFields(fields, 2, cut, sizeof cut) && strcmp(cut, "the dictionary") == 0);
  CHECK(!MD_FieldMap_checkFields(fields, 2, NULL, 0));
  fields[1].name = NULL;
  CHECK(!MD_FieldMap_checkFields(fields, 2, error, sizeof error) && strcmp(error, "null pointer") == 0);
  CHECK(!MD_FieldMap_checkFields(NULL, 0, error, sizeof error) && strcmp(error, "null pointer") == 0);
}

static void loading(void) {
  static const char kText[] = "ONE 1 INT\nTWO 2 STRING THREE 3 CHAR and what is not read";
  static const char kXml[] =
      "<D><FieldDefinition><Entry><Name>FIVE</Name><Code>5</Code><Type>INT</Type></Entry></FieldDefinition></D>";
  char error[80] = "untouched";
  char cut[8];

  CHECK(MD_FieldMap_reload_text_memory(kText, strlen(kText), error, sizeof error) && error[0] == '\0');
  CHECK(MD_FieldMap_size() == 3 && isField(2, "TWO", MD_TYPE_STRING) && isNoField(kInt, "QTY"));
  CHECK(MD_FieldMap_reload_text_memory(kText, 9, NULL, 0) && MD_FieldMap_size() == 1);
  CHECK(MD_FieldMap_reload_text_memory("", 0, error, sizeof error) && MD_FieldMap_size() == 0);

  CHECK(MD_FieldMap_fingerprint() == UINT64_C(0xcbf29ce484222325));

  CHECK(MD_FieldMap_loadText("BID 22 DOUBLE", 13, error, sizeof error) && error[0] == '\0');
  CHECK(MD_FieldMap_size() == 1 && MD_FieldMap_fingerprint() == UINT64_C(0x971b738f62ef1d94));
  CHECK(strcmp(MD_FieldMap_source(), "text in memory") == 0);
  CHECK(MD_FieldMap_loadText("BID 22 DUOBLE", 13, error, sizeof error) && MD_FieldMap_size() == 0);
  CHECK(strcmp(error, "text in memory:1: field BID: \"DUOBLE\" is not a type; skipped\n") == 0);
  CHECK(MD_FieldMap_loadText("BID 22 DUOBLE", 13, NULL, 0) && MD_FieldMap_loadText("", 0, error, 5));
  CHECK(MD_FieldMap_loadTextFile("c_interface/field_map.txt", error, sizeof error) && error[0] == '\0');
  CHECK(MD_FieldMap_size() == kFieldCount && strcmp(MD_FieldMap_source(), "c_interface/field_map.txt") == 0);
  CHECK(!MD_FieldMap_loadText(NULL, 0, error, sizeof error) && strcmp(error, "null pointer") == 0);
  CHECK(!MD_FieldMap_loadTextFile(NULL, NULL, 0) && MD_FieldMap_size() == kFieldCount);
  CHECK(!MD_FieldMap_loadTextFile("c_interface/none.txt", error, sizeof error) && MD_FieldMap_size() == 0);
  CHECK(strcmp(error, "Unable to open file: c_interface/none.txt") == 0 && MD_FieldMap_source()[0] == '\0');

  CHECK(MD_FieldMap_reload_xml_memory(kXml, strlen(kXml), error, sizeof error) && error[0] == '\0');
  CHECK(MD_FieldMap_size() == 1 && isField(5, "FIVE", MD_TYPE_INT));
  CHECK(!MD_FieldMap_reload_xml_memory("<D>", 3, error, sizeof error) && MD_FieldMap_size() == 0);
  CHECK(strcmp(error, "Failed to load field def file: XML in memory") == 0);

  CHECK(MD_FieldMap_reload_xml("c_interface/fields.xml", error, sizeof error) && error[0] == '\0');
  CHECK(MD_FieldMap_size() == 2 && isField(7, "BID", MD_TYPE_DOUBLE) && isField(9, "NOTE", MD_TYPE_STRING));
  memcpy(error, kUntouched, sizeof kUntouched);
  CHECK(!MD_FieldMap_reload_text_memory(NULL, 0, error, sizeof error) && strcmp(error, "null pointer") == 0);
  CHECK(!MD_FieldMap_reload_xml_memory(NULL, 0, error, sizeof error) && strcmp(error, "null pointer") == 0);
  CHECK(!MD_FieldMap_reload_text(NULL, error, sizeof error) && strcmp(error, "null pointer") == 0);
  CHECK(!MD_FieldMap_reload_xml(NULL, error, sizeof error) && strcmp(error, "null pointer") == 0);
  CHECK(!MD_FieldMap_reload_xml(NULL, NULL, 0) && !MD_FieldMap_reload_text(NULL, NULL, 0));
  CHECK(MD_FieldMap_size() == 2);

  CHECK(!MD_FieldMap_reload_text("c_interface/none.txt", error, sizeof error));
  CHECK(strcmp(error, "Unable to open file: c_interface/none.txt") == 0);
  CHECK(MD_FieldMap_size() == 0 && isNoField(7, "BID"));
  CHECK(!MD_FieldMap_reload_xml("c_interface/none.xml", error, sizeof error));
  CHECK(strcmp(error, "Failed to load field def file: c_interface/none.xml") == 0);
  CHECK(!MD_FieldMap_reload("c_interface/none.xml", error, sizeof error));
  CHECK(strcmp(error, "Failed to load field def file: c_interface/none.xml") == 0);

  memset(cut, '#', sizeof cut);
  CHECK(!MD_FieldMap_reload_text("c_interface/none.txt", cut, 7));
  CHECK(memcmp(cut, "Unable\0#", 8) == 0);
  CHECK(!MD_FieldMap_reload_text("c_interface/none.txt", cut, 1) && memcmp(cut, "\0nable\0#", 8) == 0);
  cut[0] = '#';
  CHECK(!MD_FieldMap_reload_text("c_interface/none.txt", cut, 0) && cut[0] == '#');
  CHECK(!MD_FieldMap_reload_text("c_interface/none.txt", NULL, sizeof cut));

  CHECK(MD_FieldMap_reload_xml("", error, sizeof error) && error[0] == '\0' && MD_FieldMap_size() == 0);
  CHECK(MD_FieldMap_reload("c_interface/fields.xml", error, sizeof error) && MD_FieldMap_size() == 2);
  CHECK(MD_FieldMap_reload_text("c_interface/field_map.txt", error, sizeof error) && MD_FieldMap_size() == kFieldCount);
  CHECK(MD_FieldMap_reload_xml("", NULL, 0) && MD_FieldMap_reload("", error, sizeof error));
  CHECK(MD_FieldMap_size() == kFieldCount);
  CHECK(MD_FieldMap_reload_xml("", NULL, 0) && MD_FieldMap_reload(NULL, error, sizeof error) && error[0] == '\0');
  CHECK(MD_FieldMap_size() == kFieldCount && isField(kInt, "QTY", MD_TYPE_INT));
}

/* The first use of the dictionary fails to load it; from then on it has no field. */
static void unloadableConfiguration(void) {
  MD_MessageHandle message = MD_Message_createFromPB(MD_ENCODING_MINT);
  char error[80] = "";
  CHECK(message == NULL);
  message = MD_Message_createFromPB(MD_ENCODING_MINT);
  CHECK(message != NULL && !MD_Message_addInt(message, kInt, 5));
  CHECK(MD_FieldMap_size() == 0 && isNoField(kInt, "QTY"));
  CHECK(MD_Message_createPreferred(false) == NULL && MD_Message_createPreferred(true) == NULL);
  CHECK(!MD_FieldMap_reload(NULL, error, sizeof error));
  CHECK(strncmp(error, "Failed to load field def file: ", 31) == 0 && strstr(error, "FieldDefinition.xml") != NULL);
  MD_Message_delete(message);
}

int main(int argc, char** argv) {
  if (argc == 2 && strcmp(argv[1], "unloadable") == 0) {
    unloadableConfiguration();
    return reportChecks();
  }
  handlerAndVersion();
  reportHandler();
  messagesOfACode();
  preferredMessages();
  messagesOfTheSameKind();
  bytesAndCode();
  copies();
  copyOfAnUnreadableField();
  receivedBytes();
  copiesWithoutAssertions();
  deltas();
  fieldIds();
  printOuts();
  safeText();
  fieldDataOfEachEncoding();
  fieldDataThatIsCutOff();
  dateTimes();
  lookUps();
  checkingFields();
  loading();
  return reportChecks();
}
