/* A program that uses the C interface as installed. CONFIG_PATH names the folder of field_map.txt. */
#include <md/md_message_c.h>
#include <md/md_message_c_ext.h>

#include <stdio.h>

enum { SYMBOL = 1, BID = 22, BID_QTY = 26 };

int main(void) {
  const MD_String symbol = {"NEB/USD", 7};
  MD_MessageHandle sent = MD_mInt_new();
  MD_MessageHandle received;
  MD_DateTimeHandle time = MD_DateTime_new(20240603, 93000000, -300);
  unsigned char bytes[64];
  MD_String text = {NULL, 0};
  double bid = 0;
  int32_t quantity = 0;
  int32_t date = 0;
  char word[8];

  if (!MD_Message_addString(sent, SYMBOL, &symbol) || !MD_Message_addDouble(sent, BID, 184.25) ||
      !MD_Message_addInt(sent, BID_QTY, 300)) {
    return 1;
  }
  printf("%u fields, %u bytes\n", (unsigned)MD_Message_fieldCount(sent), (unsigned)MD_Message_getSize(sent));
  MD_Message_delete(sent);

  /* One field, as mInt: header byte, then id, length and value. */
  bytes[0] = 6;
  bytes[1] = BID_QTY;
  bytes[2] = 0;
  bytes[3] = 1;
  bytes[4] = 25;
  received = MD_Message_tryCreateFromBytes(bytes, 5);
  if (MD_Message_getPB(received) != MD_ENCODING_MINT || MD_FieldMap_fingerprint() == 0) {
    return 1;
  }
  if (!MD_Message_getInt(received, BID_QTY, &quantity) || MD_Message_getDouble(received, BID, &bid) ||
      MD_Message_getString(received, SYMBOL, &text)) {
    return 1;
  }
  printf("quantity %d, bid %.2f\n", (int)quantity, bid);
  MD_Message_delete(received);

  if (!MD_DateTime_serialize(word, time) || !MD_DateTime_date(time, &date)) {
    return 1;
  }
  printf("date %d\n", (int)date);
  MD_DateTime_delete(time);
  return 0;
}
