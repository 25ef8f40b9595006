/* A UDP feed handler in C with a realistic loop: it parses each datagram into a reused message of its encoding, reads
 * the fields and counts malformed messages. Once every symbol has occurred, it allocates nothing. The output is that of
 * udp_feed_handler.cpp.
 *
 *   udp_feed_handler ADDRESS:PORT [COUNT [IDLE_SECONDS [INTERFACE]]]
 *
 * ADDRESS is an IPv4 address of this machine, or a multicast group, joined by the interface with the address INTERFACE;
 * port 0 lets the system choose one. Ends after COUNT datagrams (0, the default: any number), or after IDLE_SECONDS
 * without a datagram (10 by default; 0: no limit). Run it where etc/field_map.txt is found: in the repository's root,
 * or with CONFIG_PATH naming the folder. Send datagrams with udp_publisher, or with
 *
 *   mdmsg generate --count 1000 | mdmsg replay --destination 127.0.0.1:30001 */
#define _DEFAULT_SOURCE /* sockets, for -std=c99: NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <md/md_message_c_ext.h>

enum { ENCODINGS = 3, LONGEST_SYMBOL = 31, MOST_INSTRUMENTS = 1024, LONGEST_DATAGRAM = 65535 };

static const uint8_t codes[ENCODINGS] = {MD_ENCODING_ITERMAP, MD_ENCODING_MINT, MD_ENCODING_MSGT};

/* Field ids, looked up once, since looking a name up takes longer than reading a field. */
struct fields {
  uint16_t sequence, symbol, kind, send_time, bid, ask, last, last_size;
};

struct instrument {
  char symbol[LONGEST_SYMBOL + 1];
  uint64_t quotes, trades;
  double bid, ask, last, traded;
};

struct handler {
  struct fields fields;
  MD_MessageHandle messages[ENCODINGS]; /* one a kind, whose memory serves all datagrams */
  struct instrument* instruments;
  size_t instrument_count, instrument_capacity;
  uint64_t datagrams, bytes, foreign, unusable, with_unknown_fields;
  uint64_t expected, missing, late; /* sequence numbers */
};

/* NULL if there are too many: a sender may send any symbols. */
static struct instrument* instrument_of(struct handler* handler, const MD_String* symbol) {
  struct instrument* instrument;
  size_t i;
  for (i = 0; i < handler->instrument_count; ++i) { /* for more than some dozens of instruments take a hash table */
    instrument = &handler->instruments[i];
    if (strlen(instrument->symbol) == symbol->length && memcmp(instrument->symbol, symbol->data, symbol->length) == 0) {
      return instrument;
    }
  }
  if (handler->instrument_count == handler->instrument_capacity) {
    const size_t capacity = handler->instrument_capacity == 0 ? 16 : 2 * handler->instrument_capacity;
    struct instrument* const grown =
        capacity > MOST_INSTRUMENTS ? NULL : realloc(handler->instruments, capacity * sizeof *grown);
    if (grown == NULL) {
      return NULL;
    }
    handler->instruments = grown;
    handler->instrument_capacity = capacity;
  }
  instrument = &handler->instruments[handler->instrument_count++];
  memset(instrument, 0, sizeof *instrument);
  memcpy(instrument->symbol, symbol->data, symbol->length);
  return instrument;
}

static bool on_quote(struct handler* handler, MD_MessageHandle message, const MD_String* symbol) {
  double bid = 0;
  double ask = 0;
  struct instrument* instrument;
  if (!MD_Message_getDouble(message, handler->fields.bid, &bid) ||
      !MD_Message_getDouble(message, handler->fields.ask, &ask) ||
      (instrument = instrument_of(handler, symbol)) == NULL) {
    return false;
  }
  ++instrument->quotes;
  instrument->bid = bid;
  instrument->ask = ask;
  return true;
}

static bool on_trade(struct handler* handler, MD_MessageHandle message, const MD_String* symbol) {
  double last = 0;
  double size = 0;
  struct instrument* instrument;
  if (!MD_Message_getDouble(message, handler->fields.last, &last) ||
      !MD_Message_getDouble(message, handler->fields.last_size, &size) ||
      (instrument = instrument_of(handler, symbol)) == NULL) {
    return false;
  }
  ++instrument->trades;
  instrument->last = last;
  instrument->traded += size;
  return true;
}

/* UDP loses and reorders datagrams; the sequence numbers reveal this. Late datagrams are counted here; if an older
 * price must not replace a newer one, check this first. */
static void on_sequence(struct handler* handler, uint64_t sequence) {
  if (sequence < handler->expected) {
    ++handler->late;
    return;
  }
  handler->missing += handler->expected != 0 ? sequence - handler->expected : 0;
  handler->expected = sequence + 1;
}

/* Senders are untrusted: the stored data is bounded, and printed text cannot control a terminal. */
static bool is_symbol(const MD_String* text) {
  size_t i;
  for (i = 0; i < text->length; ++i) {
    if (text->data[i] < ' ' || text->data[i] > '~') {
      return false;
    }
  }
  return text->length <= LONGEST_SYMBOL;
}

/* Every field may be absent, of another type or truncated: its get then returns false. */
static bool on_message(struct handler* handler, MD_MessageHandle message) {
  int64_t sequence = 0;
  MD_String symbol = {NULL, 0}; /* a view into the message, good until the message changes */
  char kind = 0;
  uint64_t send_time = 0;
  if (!MD_Message_getInt64(message, handler->fields.sequence, &sequence) ||
      !MD_Message_getString(message, handler->fields.symbol, &symbol) ||
      !MD_Message_getChar(message, handler->fields.kind, &kind) ||
      !MD_Message_getEpochNS(message, handler->fields.send_time, &send_time)) {
    return false;
  }
  if (sequence < 0 || !is_symbol(&symbol)) {
    return false;
  }
  if (!(kind == 'Q' ? on_quote(handler, message, &symbol) : kind == 'T' && on_trade(handler, message, &symbol))) {
    return false;
  }
  on_sequence(handler, (uint64_t)sequence);
  return true;
}

/* Nothing about the bytes is trusted. */
static void on_datagram(struct handler* handler, const uint8_t* bytes, uint32_t size) {
  size_t i;
  ++handler->datagrams;
  handler->bytes += size;
  for (i = 0; i < ENCODINGS; ++i) {
    if (size != 0 && bytes[0] == codes[i]) {
      /* The message's memory grows to that of the longest datagram. When there is none to be had, this ends a C
       * program, as all functions of md_message_c.h do. */
      MD_Message_setBinary(handler->messages[i], bytes, size);
      /* The parser has already dropped unknown fields and reported them on standard error. */
      handler->with_unknown_fields += MD_Message_getSize(handler->messages[i]) != size ? 1 : 0;
      handler->unusable += on_message(handler, handler->messages[i]) ? 0 : 1;
      return;
    }
  }
  ++handler->foreign;
}

static int compare_symbols(const void* a, const void* b) {
  return strcmp(((const struct instrument*)a)->symbol, ((const struct instrument*)b)->symbol);
}

static void print_summary(struct handler* handler) {
  size_t i;
  printf("%" PRIu64 " datagrams, %" PRIu64 " bytes\n", handler->datagrams, handler->bytes);
  printf("malformed: %" PRIu64 " unrecognised, %" PRIu64 " unusable; %" PRIu64 " with unknown fields\n",
         handler->foreign, handler->unusable, handler->with_unknown_fields);
  printf("sequence numbers: %" PRIu64 " missing, %" PRIu64 " late\n", handler->missing, handler->late);
  if (handler->instrument_count != 0) {
    qsort(handler->instruments, handler->instrument_count, sizeof *handler->instruments, compare_symbols);
  }
  for (i = 0; i < handler->instrument_count; ++i) {
    const struct instrument* const instrument = &handler->instruments[i];
    printf("%-8s %4" PRIu64 " quotes, the last %.2f/%.2f, %4" PRIu64 " trades, the last at %.2f, %.1f in all\n",
           instrument->symbol, instrument->quotes, instrument->bid, instrument->ask, instrument->trades,
           instrument->last, instrument->traded);
  }
}

/* False, and a message, when there is no such field or no message can be made. */
static bool set_up(struct handler* handler) {
  struct fields* const fields = &handler->fields;
  const struct {
    const char* name;
    uint16_t* id;
  } names[] = {{"SEQ", &fields->sequence},  {"SYMBOL", &fields->symbol},
               {"MSG_KIND", &fields->kind}, {"SEND_TIME", &fields->send_time},
               {"BID", &fields->bid},       {"ASK", &fields->ask},
               {"LAST", &fields->last},     {"LAST_SIZE", &fields->last_size}};
  size_t i;
  for (i = 0; i < sizeof names / sizeof names[0]; ++i) {
    if (!MD_FieldMap_nameToId(names[i].name, names[i].id)) {
      (void)fprintf(stderr, "udp_feed_handler: the dictionary has no field %s; is field_map.txt found?\n",
                    names[i].name);
      return false;
    }
  }
  for (i = 0; i < ENCODINGS; ++i) {
    handler->messages[i] = MD_Message_createFromPB(codes[i]);
    if (handler->messages[i] == NULL) {
      (void)fprintf(stderr, "udp_feed_handler: out of memory\n");
      return false;
    }
  }
  return true;
}

static void tear_down(struct handler* handler) {
  size_t i;
  for (i = 0; i < ENCODINGS; ++i) {
    MD_Message_delete(handler->messages[i]); /* takes null */
  }
  free(handler->instruments);
}

struct options {
  struct sockaddr_in place;
  uint32_t count;
  uint32_t idle_seconds;
  struct in_addr interface_address; /* all zero: the system's choice */
};

static bool parse_number(const char* text, uint32_t largest, uint32_t* number) {
  char* end = NULL;
  unsigned long long value;
  errno = 0;
  if (*text < '0' || *text > '9') { /* neither sign nor space */
    return false;
  }
  value = strtoull(text, &end, 10);
  if (*end != '\0' || errno != 0 || value > largest) {
    return false;
  }
  *number = (uint32_t)value;
  return true;
}

static bool parse_place(const char* text, struct sockaddr_in* place) {
  const char* const colon = strrchr(text, ':');
  char address[INET_ADDRSTRLEN] = "";
  uint32_t port = 0;
  if (colon == NULL || (size_t)(colon - text) >= sizeof address || !parse_number(colon + 1, 65535, &port)) {
    return false;
  }
  memcpy(address, text, (size_t)(colon - text));
  place->sin_family = AF_INET;
  place->sin_port = htons((uint16_t)port);
  return inet_pton(AF_INET, address, &place->sin_addr) == 1;
}

static bool parse_options(int argc, char** argv, struct options* options) {
  return argc >= 2 && argc <= 5 && parse_place(argv[1], &options->place) &&
         (argc < 3 || parse_number(argv[2], 4000000000u, &options->count)) &&
         (argc < 4 || parse_number(argv[3], 86400, &options->idle_seconds)) &&
         (argc < 5 || inet_pton(AF_INET, argv[4], &options->interface_address) == 1);
}

static bool set_up_socket(int receiver, const struct options* options) {
  const bool is_group = IN_MULTICAST(ntohl(options->place.sin_addr.s_addr));
  const int on = 1;
  const int buffer_size = 4 << 20; /* for bursts, up to the limit of the system; datagrams that do not fit are lost */
  struct timeval idle = {0, 0};
  struct ip_mreq group;
  idle.tv_sec = (time_t)options->idle_seconds;
  group.imr_multiaddr = options->place.sin_addr;
  group.imr_interface = options->interface_address;
  return (!is_group || setsockopt(receiver, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0) &&
         setsockopt(receiver, SOL_SOCKET, SO_RCVBUF, &buffer_size, sizeof buffer_size) == 0 &&
         setsockopt(receiver, SOL_SOCKET, SO_RCVTIMEO, &idle, sizeof idle) == 0 &&
         bind(receiver, (const struct sockaddr*)&options->place, sizeof options->place) == 0 &&
         (!is_group || setsockopt(receiver, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) == 0);
}

/* Says where the socket is bound, with the port that the system chose. Senders may wait for this. */
static bool announce(int receiver) {
  struct sockaddr_in bound;
  socklen_t size = sizeof bound;
  char address[INET_ADDRSTRLEN] = "";
  if (getsockname(receiver, (struct sockaddr*)&bound, &size) != 0 ||
      inet_ntop(AF_INET, &bound.sin_addr, address, sizeof address) == NULL) {
    return false;
  }
  printf("listening on %s:%u\n", address, (unsigned)ntohs(bound.sin_port));
  return fflush(stdout) == 0;
}

/* Receives until it is enough. False, with errno, when the system refuses. */
static bool receive(int receiver, const struct options* options, struct handler* handler) {
  static uint8_t buffer[LONGEST_DATAGRAM];
  while (options->count == 0 || handler->datagrams < options->count) {
    const ssize_t size = recv(receiver, buffer, sizeof buffer, 0);
    if (size >= 0) {
      on_datagram(handler, buffer, (uint32_t)size);
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      return true; /* idle for too long */
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

int main(int argc, char** argv) {
  struct options options;
  struct handler handler;
  int receiver = -1;
  int status = 1;
  memset(&options, 0, sizeof options);
  memset(&handler, 0, sizeof handler);
  options.idle_seconds = 10;
  if (!parse_options(argc, argv, &options)) {
    (void)fprintf(stderr, "usage: udp_feed_handler ADDRESS:PORT [COUNT [IDLE_SECONDS [INTERFACE]]]\n");
    return 2;
  }
  if (set_up(&handler)) {
    receiver = socket(AF_INET, SOCK_DGRAM, 0);
    if (receiver != -1 && set_up_socket(receiver, &options) && announce(receiver) &&
        receive(receiver, &options, &handler)) {
      print_summary(&handler);
      status = 0;
    } else {
      (void)fprintf(stderr, "udp_feed_handler: %s\n", strerror(errno));
    }
  }
  if (receiver != -1) {
    close(receiver);
  }
  tear_down(&handler);
  return status;
}
