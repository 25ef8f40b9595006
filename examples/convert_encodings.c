/* Converts messages of any encoding to one encoding, and reports the reason for each message that cannot be converted.
 * A message is written completely or not at all.
 *
 *   convert_encodings ENCODING [FILE]     mInt, IterMap or MsgT, or its code; without a file: standard input
 *
 * Reads and writes one message per line, in hex. The exit status is 1 if a line could not be converted. Run it where
 * etc/field_map.txt is found: in the repository's root, or with CONFIG_PATH naming the folder. */
#include <md/md_message_c_ext.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { LONGEST_MESSAGE = 65535 /* that of a datagram */, LONGEST_OF_MINT = 255 };

/* A line that is read, and its message. */
static char line[2 * LONGEST_MESSAGE + 2];
static uint8_t bytes[LONGEST_MESSAGE];

/* Installed for MD_Message_copyMsg, which asserts that every field can be copied: it then skips those that cannot,
 * where otherwise received bytes could end the process. */
static void go_on(const char* expression, const char* file, unsigned source_line) {
  (void)expression;
  (void)file;
  (void)source_line;
}

/* 0 for a name or code that is no encoding's. */
static uint8_t encoding_code(const char* text) {
  if (strcmp(text, "mInt") == 0 || strcmp(text, "6") == 0) {
    return MD_ENCODING_MINT;
  }
  if (strcmp(text, "IterMap") == 0 || strcmp(text, "1") == 0) {
    return MD_ENCODING_ITERMAP;
  }
  return strcmp(text, "MsgT") == 0 || strcmp(text, "70") == 0 ? MD_ENCODING_MSGT : 0;
}

static void report(unsigned long number, const char* reason) {
  (void)fprintf(stderr, "convert_encodings: line %lu: %s\n", number, reason);
}

/* Says why `target` has not got the field `id` of `source`. */
static void report_field(unsigned long number, MD_MessageHandle source, uint16_t id, MD_MessageHandle target) {
  const char* const name = MD_FieldMap_idToName(id); /* null for an unknown id */
  const uint8_t* value = NULL;
  uint32_t size = 0;
  uint8_t type = 0;
  (void)fprintf(stderr, "convert_encodings: line %lu: field %s ", number, name != NULL ? name : "?");
  if (!MD_Message_fieldData(source, id, &value, &size, &type)) {
    (void)fprintf(stderr, "is cut off by the end of the message\n");
  } else if (MD_Message_getPB(target) == MD_ENCODING_MINT && size > LONGEST_OF_MINT) {
    (void)fprintf(stderr, "takes %lu bytes, an mInt's at most 255\n", (unsigned long)size);
  } else {
    (void)fprintf(stderr, "of type %u and %lu bytes holds no value that can be read\n", (unsigned)type,
                  (unsigned long)size);
  }
}

/* Fills the empty `target` with the fields of `source`, of which `ids` lists `count`. False, and a report, when one is
 * skipped. */
static bool copy_fields(unsigned long number, MD_MessageHandle source, const uint16_t* ids, size_t count,
                        MD_MessageHandle target) {
  size_t i;
  if (count != MD_Message_fieldCount(source)) {
    report(number, "a field is repeated, of which one value only can be read");
    return false;
  }
  if (!MD_Message_copyMsg(target, source)) {
    report(number, "out of memory");
    return false;
  }
  for (i = 0; i < count; ++i) {
    if (!MD_Message_exists(target, ids[i])) {
      report_field(number, source, ids[i], target);
      return false;
    }
  }
  return true;
}

/* The same for a message that was just received in `size` bytes. */
static bool convert(unsigned long number, MD_MessageHandle source, size_t size, MD_MessageHandle target) {
  uint16_t* ids;
  size_t count = 0;
  bool is_done;
  /* The handle is never null. For an unknown encoding byte it is invalid: only the next function and the delete accept
   * it. */
  if (MD_Message_getPB(source) == 0) {
    report(number, "unknown encoding byte");
    return false;
  }
  /* The parser has dropped unknown fields and reported them on standard error. */
  if (MD_Message_getSize(source) != size) {
    (void)fprintf(
        stderr,
        "convert_encodings: line %lu: %lu bytes are of no field that the dictionary has, or has with this type\n",
        number, (unsigned long)(size - MD_Message_getSize(source)));
    return false;
  }
  /* Without an array for the ids, it returns the required size. */
  if (!MD_Message_copyFieldIds(source, NULL, 0, &count) || (ids = malloc((count + 1) * sizeof *ids)) == NULL) {
    report(number, "out of memory");
    return false;
  }
  if (MD_Message_copyFieldIds(source, ids, count, &count)) {
    is_done = copy_fields(number, source, ids, count, target);
  } else {
    report(number, "out of memory");
    is_done = false;
  }
  free(ids);
  return is_done;
}

/* -1 for no digit. */
static int digit_of(char character) {
  if (character >= '0' && character <= '9') {
    return character - '0';
  }
  if (character >= 'a' && character <= 'f') {
    return character - 'a' + 10;
  }
  return character >= 'A' && character <= 'F' ? character - 'A' + 10 : -1;
}

/* Reads the `length` characters of the line into `bytes`. Null, or why they are no message. */
static const char* from_hex(size_t length) {
  size_t i;
  if (length / 2 > LONGEST_MESSAGE) {
    return "longer than a datagram";
  }
  if (length % 2 != 0) {
    return "not hex";
  }
  for (i = 0; i < length; i += 2) {
    const int high = digit_of(line[i]);
    const int low = digit_of(line[i + 1]);
    if (high == -1 || low == -1) {
      return "not hex";
    }
    bytes[i / 2] = (uint8_t)(high * 16 + low);
  }
  return NULL;
}

/* Reads a line without its end; of one that is too long no more than a character too many. False at the end. */
static bool read_line(FILE* in, size_t* length) {
  int character;
  *length = 0;
  while ((character = getc(in)) != EOF && character != '\n') {
    if (*length < sizeof line) {
      line[(*length)++] = (char)character;
    }
  }
  if (*length != 0 && *length < sizeof line && line[*length - 1] == '\r') {
    --*length;
  }
  return character != EOF || *length != 0;
}

static void print_hex(MD_MessageHandle message) {
  const uint8_t* const binary = MD_Message_getBinary(message);
  const uint32_t size = MD_Message_getSize(message);
  uint32_t i;
  for (i = 0; i < size; ++i) {
    printf("%02x", (unsigned)binary[i]);
  }
  putchar('\n');
}

/* Returns the exit status. */
static int run(FILE* in, MD_MessageHandle target) {
  unsigned long number = 0;
  size_t length = 0;
  int status = 0;
  while (read_line(in, &length)) {
    const char* const reason = from_hex(length);
    ++number;
    if (reason != NULL) {
      report(number, reason);
      status = 1;
    } else {
      /* Like all functions of md_message_c.h it ends a C program when memory runs out; those of md_message_c_ext.h
       * say so by their results. */
      MD_MessageHandle source = MD_Message_createFromBytes(bytes, (uint32_t)(length / 2));
      MD_Message_clear(target);
      if (convert(number, source, length / 2, target)) {
        print_hex(target);
      } else {
        status = 1;
      }
      MD_Message_delete(source);
    }
  }
  if (ferror(in) || fflush(stdout) != 0) {
    (void)fprintf(stderr, "convert_encodings: cannot read on, or cannot write\n");
    status = 1;
  }
  return status;
}

int main(int argc, char** argv) {
  const uint8_t code = argc == 2 || argc == 3 ? encoding_code(argv[1]) : 0;
  FILE* in = stdin;
  MD_MessageHandle target;
  int status;
  if (code == 0) {
    (void)fprintf(stderr, "usage: convert_encodings mInt|IterMap|MsgT [FILE]\n");
    return 2;
  }
  if (argc == 3 && (in = fopen(argv[2], "r")) == NULL) {
    (void)fprintf(stderr, "convert_encodings: cannot read %s\n", argv[2]);
    return 2;
  }
  MD_set_assertion_handler(go_on);
  target = MD_Message_createFromPB(code);
  if (target == NULL) { /* no memory, or a dictionary that cannot be loaded */
    (void)fprintf(stderr, "convert_encodings: no message can be made\n");
    status = 1;
  } else {
    status = run(in, target);
  }
  MD_Message_delete(target); /* takes null */
  if (in != stdin) {
    (void)fclose(in);
  }
  return status;
}
