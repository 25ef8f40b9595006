/* Builds a quote with the C API, changes it, reads it, and receives one as bytes. Run it where the sample
 * dictionary etc/field_map.txt is found: in the repository's root, or with CONFIG_PATH naming the folder. */
#include <md/md_message_c_ext.h>

#include <inttypes.h>
#include <stdio.h>

/* Ids from etc/field_map.txt. */
enum { SYMBOL = 1, BID = 22, BID_QTY = 26, RECV_TIME = 14, EXCH_TIME = 16 };

static void print_quote(MD_MessageHandle quote) {
  MD_String symbol;
  double bid = 0;
  int32_t quantity = 0;
  uint64_t received = 0;
  printf("%" PRIu64 " fields in %" PRIu32 " bytes:", MD_Message_fieldCount(quote), MD_Message_getSize(quote));
  if (MD_Message_getString(quote, SYMBOL, &symbol)) {
    printf(" %.*s", (int)symbol.length, symbol.data);
  }
  if (MD_Message_getInt(quote, BID_QTY, &quantity) && MD_Message_getDouble(quote, BID, &bid)) {
    printf(" %" PRId32 " @ %.2f", quantity, bid);
  }
  if (MD_Message_getEpochNS(quote, RECV_TIME, &received)) {
    printf(", received %" PRIu64 " ns", received);
  }
  printf("%s\n", MD_Message_exists(quote, EXCH_TIME) ? ", with an exchange time" : "");
}

int main(void) {
  /* An mInt datagram: header byte 6, then id (2 bytes), length (1 byte) and value of each field. */
  static const unsigned char datagram[] = {6, 1, 0, 4, 'N', 'E', 'B', 0, 26, 0, 1, 25};

  const MD_String symbol = {"NEB/USD", 7};
  MD_MessageHandle quote = MD_mInt_new();
  MD_DateTimeHandle exchange_time = MD_DateTime_new(20240603, 93000000, -300);
  MD_MessageHandle received;

  if (!MD_Message_addString(quote, SYMBOL, &symbol) || !MD_Message_addDouble(quote, BID, 184.15) ||
      !MD_Message_addInt(quote, BID_QTY, 100000) || !MD_Message_addEpochNS(quote, RECV_TIME, 1717407000173980747u) ||
      !MD_Message_addDateTime(quote, EXCH_TIME, exchange_time)) {
    fprintf(stderr, "a field was refused: is etc/field_map.txt on the search path?\n");
    return 1;
  }
  print_quote(quote);
  MD_Message_updateDouble(quote, BID, 184.2);
  MD_Message_erase(quote, EXCH_TIME);
  print_quote(quote);

  received = MD_Message_tryCreateFromBytes(datagram, sizeof datagram);
  if (received == NULL) { /* unknown encoding byte, or no memory */
    return 1;
  }
  print_quote(received);

  MD_Message_delete(received);
  MD_DateTime_delete(exchange_time);
  MD_Message_delete(quote);
  return 0;
}
