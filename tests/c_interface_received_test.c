/* The functions of md_message_c_ext.h about received bytes and about several fields in one call, from strict C99. It
 * runs with CONFIG_PATH set to data/c_interface. */
#include "md/md_message_c_ext.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "support/c_check.h"
#include "support/c_fields.h"

static const uint8_t kCodes[] = {MD_ENCODING_ITERMAP, MD_ENCODING_MINT, MD_ENCODING_MSGT};

enum { kSlots = 9 };

static const uint8_t kBlob[] = {1, 0, 255};

/* A slot for a value of each type. */
static void fillSlots(MD_FieldSlot slots[kSlots]) {
  static const struct {
    uint16_t id;
    uint8_t type;
  } kFields[kSlots] = {{kChar, MD_TYPE_CHAR},     {kInt, MD_TYPE_INT},           {kInt64, MD_TYPE_INT64},
                       {kFloat, MD_TYPE_FLOAT},   {kDouble, MD_TYPE_DOUBLE},     {kString, MD_TYPE_STRING},
                       {kBuffer, MD_TYPE_BUFFER}, {kDateTime, MD_TYPE_DATETIME}, {kEpochNS, MD_TYPE_EPOCH_NSEC}};
  int i;
  for (i = 0; i < kSlots; ++i) {
    memset(&slots[i], 0, sizeof slots[i]);
    slots[i].id = kFields[i].id;
    slots[i].type = kFields[i].type;
    slots[i].status = 9;
  }
  slots[0].value.c = 'B';
  slots[1].value.i = -5;
  slots[2].value.l = INT64_C(5000000000);
  slots[3].value.f = 1.5F;
  slots[4].value.d = 184.15;
  slots[5].value.s = stringOf("ORI/USD");
  slots[6].value.b.data = kBlob;
  slots[6].value.b.length = sizeof kBlob;
  slots[7].value.dt = UINT64_C(0x123456789ABCDEF);
  slots[8].value.ns = UINT64_C(1717407000173980747);
}

static void checkValues(const MD_FieldSlot slots[kSlots]) {
  CHECK(slots[0].value.c == 'B');
  CHECK(slots[1].value.i == -5);
  CHECK(slots[2].value.l == INT64_C(5000000000));
  CHECK(slots[3].value.f == 1.5F);
  CHECK(slots[4].value.d == 184.15);
  CHECK(slots[5].value.s.length == 7 && memcmp(slots[5].value.s.data, "ORI/USD", 7) == 0);
  CHECK(slots[6].value.b.length == sizeof kBlob && memcmp(slots[6].value.b.data, kBlob, sizeof kBlob) == 0);
  CHECK(slots[7].value.dt == UINT64_C(0x123456789ABCDEF));
  CHECK(slots[8].value.ns == UINT64_C(1717407000173980747));
}

static void slotsKeepTheirLayout(void) {
  CHECK(offsetof(MD_FieldSlot, id) == 0 && offsetof(MD_FieldSlot, type) == 2);
  CHECK(offsetof(MD_FieldSlot, status) == 3 && offsetof(MD_FieldSlot, value) == 8);
  CHECK(sizeof(MD_FieldSlot) == 8 + 2 * sizeof(void*));
}

static void fieldsAreWrittenAndRead(void) {
  size_t code;
  for (code = 0; code < COUNT_OF(kCodes); ++code) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[code]);
    MD_FieldSlot slots[kSlots];
    int32_t value = 0;
    int i;
    fillSlots(slots);
    CHECK(MD_Message_writeFields(message, slots, kSlots, MD_WRITE_ADD) == kSlots);
    for (i = 0; i < kSlots; ++i) {
      CHECK(slots[i].status == 1);
    }
    CHECK(MD_Message_getInt(message, kInt, &value) && value == -5);
    for (i = 0; i < kSlots; ++i) {
      memset(&slots[i].value, 0, sizeof slots[i].value);
      slots[i].status = 9;
    }
    CHECK(MD_Message_readFields(message, slots, kSlots) == kSlots);
    checkValues(slots);
    slots[1].value.i = 70000;
    CHECK(MD_Message_writeFields(message, slots + 1, 1, MD_WRITE_UPDATE) == 1);
    CHECK(MD_Message_getInt(message, kInt, &value) && value == 70000);
    MD_Message_delete(message);
  }
}

static void eachSlotSaysWhetherItWasDone(void) {
  MD_MessageHandle message = MD_mInt_new();
  MD_FieldSlot slots[kSlots];
  fillSlots(slots);
  CHECK(MD_Message_writeFields(message, slots, 2, MD_WRITE_ADD) == 2);
  slots[2].id = kUnknown;
  CHECK(MD_Message_writeFields(message, slots, 4, MD_WRITE_ADD) == 1);
  CHECK(slots[0].status == 0 && slots[1].status == 0 && slots[2].status == 0 && slots[3].status == 1);
  slots[1].type = MD_TYPE_DOUBLE; /* another one than the field's */
  slots[1].value.d = 2.5;
  slots[4].value.d = 1.25; /* absent */
  slots[0].type = MD_TYPE_SHORT;
  CHECK(MD_Message_readFields(message, slots, 5) == 1);
  CHECK(slots[0].status == 0 && slots[1].status == 0 && slots[2].status == 0 && slots[3].status == 1);
  CHECK(slots[4].status == 0 && slots[4].value.d == 1.25 && slots[1].value.d == 2.5);
  slots[3].status = 9;
  CHECK(MD_Message_writeFields(message, slots + 3, 1, 2) == 0 && slots[3].status == 0);
  slots[3].status = 9;
  CHECK(MD_Message_readFields(NULL, slots + 3, 1) == 0 && slots[3].status == 0);
  CHECK(MD_Message_readFields(message, NULL, 1) == 0);
  CHECK(MD_Message_writeFields(NULL, slots, 1, MD_WRITE_ADD) == 0);
  CHECK(MD_Message_readFields(message, slots, 0) == 0);
  MD_Message_delete(message);
}

/* In each encoding: fields that a message does not have, and a mode of writing that there is not. */
static void nothingIsReadOrWritten(void) {
  size_t code;
  for (code = 0; code < COUNT_OF(kCodes); ++code) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[code]);
    MD_FieldSlot slots[kSlots];
    int i;
    fillSlots(slots);
    CHECK(MD_Message_readFields(message, slots, kSlots) == 0);
    for (i = 0; i < kSlots; ++i) {
      CHECK(slots[i].status == 0);
      slots[i].status = 9;
    }
    checkValues(slots);
    CHECK(MD_Message_writeFields(message, slots, kSlots, MD_WRITE_UPDATE + 1) == 0);
    for (i = 0; i < kSlots; ++i) {
      CHECK(slots[i].status == 0);
    }
    checkValues(slots);
    CHECK(MD_Message_empty(message));
    MD_Message_delete(message);
  }
}

/* Fields that are already there are not added, and those that are not are added by an update. */
static void eachTypeIsUpdated(void) {
  size_t code;
  for (code = 0; code < COUNT_OF(kCodes); ++code) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[code]);
    MD_FieldSlot slots[kSlots];
    uint32_t size;
    int i;
    fillSlots(slots);
    CHECK(MD_Message_writeFields(message, slots, kSlots, MD_WRITE_UPDATE) == kSlots);
    size = MD_Message_getSize(message);
    CHECK(MD_Message_writeFields(message, slots, kSlots, MD_WRITE_ADD) == 0);
    for (i = 0; i < kSlots; ++i) {
      CHECK(slots[i].status == 0);
    }
    CHECK(MD_Message_fieldCount(message) == kSlots && MD_Message_getSize(message) == size);
    slots[0].value.c = 'C';
    slots[8].value.ns = 7;
    CHECK(MD_Message_writeFields(message, slots, kSlots, MD_WRITE_UPDATE) == kSlots);
    for (i = 0; i < kSlots; ++i) {
      CHECK(slots[i].status == 1);
    }
    slots[0].value.c = 0;
    slots[8].value.ns = 0;
    CHECK(MD_Message_readFields(message, slots, kSlots) == kSlots);
    CHECK(slots[0].value.c == 'C' && slots[8].value.ns == 7 && MD_Message_getSize(message) == size);
    MD_Message_delete(message);
  }
}

static void fieldsArePeeked(void) {
  size_t code;
  for (code = 0; code < COUNT_OF(kCodes); ++code) {
    MD_MessageHandle message = MD_Message_createFromPB(kCodes[code]);
    MD_FieldSlot slots[kSlots];
    MD_FieldSlot peeked[kSlots];
    MD_FieldSlot first[kSlots];
    const uint8_t* bytes;
    uint32_t size;
    fillSlots(slots);
    MD_Message_writeFields(message, slots, kSlots, MD_WRITE_ADD);
    bytes = MD_Message_getBinary(message);
    size = MD_Message_getSize(message);
    memset(peeked, 0, sizeof peeked);
    memset(first, 0, sizeof first);
    CHECK(MD_peekChar(bytes, size, kChar, &peeked[0].value.c));
    CHECK(MD_peekInt(bytes, size, kInt, &peeked[1].value.i));
    CHECK(MD_peekInt64(bytes, size, kInt64, &peeked[2].value.l));
    CHECK(MD_peekFloat(bytes, size, kFloat, &peeked[3].value.f));
    CHECK(MD_peekDouble(bytes, size, kDouble, &peeked[4].value.d));
    CHECK(MD_peekString(bytes, size, kString, &peeked[5].value.s));
    CHECK(MD_peekBuffer(bytes, size, kBuffer, &peeked[6].value.b));
    CHECK(MD_peekDateTime(bytes, size, kDateTime, &peeked[7].value.dt));
    CHECK(MD_peekEpochNS(bytes, size, kEpochNS, &peeked[8].value.ns));
    checkValues(peeked);
    CHECK(MD_peekFirstChar(bytes, size, kChar, &first[0].value.c));
    CHECK(MD_peekFirstInt(bytes, size, kInt, &first[1].value.i));
    CHECK(MD_peekFirstInt64(bytes, size, kInt64, &first[2].value.l));
    CHECK(MD_peekFirstFloat(bytes, size, kFloat, &first[3].value.f));
    CHECK(MD_peekFirstDouble(bytes, size, kDouble, &first[4].value.d));
    CHECK(MD_peekFirstString(bytes, size, kString, &first[5].value.s));
    CHECK(MD_peekFirstBuffer(bytes, size, kBuffer, &first[6].value.b));
    CHECK(MD_peekFirstDateTime(bytes, size, kDateTime, &first[7].value.dt));
    CHECK(MD_peekFirstEpochNS(bytes, size, kEpochNS, &first[8].value.ns));
    checkValues(first);
    CHECK((const uint8_t*)peeked[5].value.s.data > bytes && (const uint8_t*)peeked[5].value.s.data < bytes + size);
    MD_Message_delete(message);
  }
}

static void peeksFailLikeGets(void) {
  static const uint8_t kRepeated[] = {6, 0x2C, 1, 1, 5, 0x2C, 1, 1, 7};
  int32_t value = 1;
  double price = 1.5;
  CHECK(MD_peekInt(kRepeated, sizeof kRepeated, kInt, &value) && value == 7);
  CHECK(MD_peekFirstInt(kRepeated, sizeof kRepeated, kInt, &value) && value == 5);
  CHECK(!MD_peekInt(kRepeated, sizeof kRepeated, kInt2, &value) && value == 5);
  CHECK(!MD_peekDouble(kRepeated, sizeof kRepeated, kInt, &price) && price == 1.5);
  CHECK(!MD_peekInt(NULL, 9, kInt, &value));
  CHECK(!MD_peekInt(kRepeated, 0, kInt, &value));
  CHECK(!MD_peekInt(kRepeated + 1, sizeof kRepeated - 1, kInt, &value));
  CHECK(!MD_peekInt(kRepeated, sizeof kRepeated, kInt, NULL));
  CHECK(value == 5);
}

static void recordsAreListed(void) {
  static const uint8_t kBytes[] = {6, 0x2C, 1, 1, 5, 0x0F, 0x27, 1, 9, 20, 0, 8, 1, 2};
  MD_Record record = {1, 2, false, 3, NULL};
  uint32_t position = 0;
  CHECK(MD_nextRecord(kBytes, sizeof kBytes, &position, &record));
  CHECK(record.id == kInt && record.type == MD_TYPE_INT && record.size == 1 && !record.isTruncated);
  CHECK(record.data == kBytes + 4);
  CHECK(MD_nextRecord(kBytes, sizeof kBytes, &position, &record));
  CHECK(record.id == kInt64 && record.type == MD_TYPE_INT64 && record.size == 2 && record.isTruncated);
  CHECK(!MD_nextRecord(kBytes, sizeof kBytes, &position, &record));
  CHECK(!MD_nextRecord(kBytes, sizeof kBytes, &position, &record));
  CHECK(record.id == kInt64);
  position = 0;
  CHECK(!MD_nextRecord(NULL, 5, &position, &record));
  CHECK(!MD_nextRecord(kBytes + 1, 5, &position, &record));
  CHECK(!MD_nextRecord(kBytes, sizeof kBytes, NULL, &record));
  CHECK(!MD_nextRecord(kBytes, sizeof kBytes, &position, NULL));
}

static void receiversReuseTheirMessages(void) {
  static const uint8_t kMInt[] = {6, 0x2C, 1, 1, 5};
  static const uint8_t kIterMap[] = {1, 0x2C, 1, 6, 0, 0, 0};
  MD_ReceiverHandle receiver = MD_Receiver_new();
  int32_t value = 0;
  MD_MessageHandle message = MD_Receiver_parse(receiver, kMInt, sizeof kMInt);
  CHECK(message != NULL && MD_Message_getPB(message) == MD_ENCODING_MINT);
  CHECK(MD_Message_getInt(message, kInt, &value) && value == 5);
  CHECK(MD_Receiver_parse(receiver, kMInt, sizeof kMInt) == message);
  message = MD_Receiver_parse(receiver, kIterMap, sizeof kIterMap);
  CHECK(message != NULL && MD_Message_getInt(message, kInt, &value) && value == 6);
  CHECK(MD_Receiver_parse(receiver, kMInt + 1, sizeof kMInt - 1) == NULL);
  CHECK(MD_Receiver_parse(receiver, NULL, 5) == NULL && MD_Receiver_parse(receiver, kMInt, 0) == NULL);
  CHECK(MD_Receiver_parse(NULL, kMInt, sizeof kMInt) == NULL);
  MD_Receiver_delete(receiver);
  MD_Receiver_delete(NULL);
}

int main(void) {
  slotsKeepTheirLayout();
  fieldsAreWrittenAndRead();
  eachSlotSaysWhetherItWasDone();
  nothingIsReadOrWritten();
  eachTypeIsUpdated();
  fieldsArePeeked();
  peeksFailLikeGets();
  recordsAreListed();
  receiversReuseTheirMessages();
  return reportChecks();
}
