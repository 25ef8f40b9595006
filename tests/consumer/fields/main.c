/* A program with generated constants: the wrong dictionary, the right one, and a message. */
#include <stdio.h>

#include <md/md_message_c_ext.h>

#include "feed.h"

static void check(const char* dictionary, size_t length) {
  char text[200];
  MD_FieldMap_loadText(dictionary, length, NULL, 0);
  printf("%s, %s fingerprint\n", feed_check(text, sizeof text) ? "right" : text,
         MD_FieldMap_fingerprint() == FEED_DICTIONARY_FINGERPRINT ? "same" : "another");
}

int main(void) {
  static const char kWrong[] = "SYMBOL 1 STRING  BID 23 DOUBLE  class 30 INT";
  static const char kRight[] = "BID 22 DOUBLE  class 30 INT  SYMBOL 1 STRING";
  check(kWrong, sizeof kWrong - 1);
  check(kRight, sizeof kRight - 1);

  MD_MessageHandle message = MD_Message_createFromPB(MD_ENCODING_MINT);
  double bid = 0;
  if (MD_Message_addDouble(message, FEED_BID, 184.25) && MD_Message_getDouble(message, FEED_BID, &bid)) {
    printf("BID %.2f, class is field %d\n", bid, FEED_class);
  }
  MD_Message_delete(message);
  return 0;
}
