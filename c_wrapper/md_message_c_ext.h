/* md_message_c_ext.h: the functions of the C API that md_message_c.h does not have.
 *
 * The conventions of md_message_c.h on ownership, field ids, lifetimes of views and threads apply here as well. Those
 * on failure are stricter, for all functions unless documented otherwise:
 *
 * 1. Exceptions. No function throws. If memory runs out, a function returns its null result (false, 0, NULL), and
 *    messages, date-times and outputs are unchanged. If an assertion handler throws an exception, the function returns
 *    the null result, too; a copy then ends after the fields copied so far.
 * 2. Null arguments. A null handle or any other null pointer returns the null result, unless a function documents
 *    another meaning of NULL. An invalid handle (convention 3 there) is treated as NULL.
 * 3. Handles. A function that creates a message returns NULL instead of an invalid handle. Handles are released by
 *    MD_Message_delete.
 * 4. Capacity. A function that fills a caller-supplied array of `capacity` elements returns the required size; with
 *    NULL for the array it only returns the size, and true. If the capacity is insufficient, the array is filled, the
 *    required size is set and the result is false. If the function fails for another reason, the size is unchanged.
 * 5. Assertions. MD_Message_copyMsg, MD_Message_toText and MD_Message_toPriceText fail an assertion if a field cannot
 *    be read or stored. A failed assertion ends the process, or calls the handler (MD_set_assertion_handler). For
 *    messages of unknown origin use MD_Message_copyReadable and MD_Message_toSafeText.
 */
#ifndef MD_MESSAGE_C_EXT_H
#define MD_MESSAGE_C_EXT_H

#include "md_message_c.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The encoding ids, each also the first byte of a serialised message. */
enum { MD_ENCODING_ITERMAP = 1, MD_ENCODING_MINT = 6, MD_ENCODING_MSGT = 70 };

/* The type codes of fields. Only those of the first list can be read and written through a message. */
enum {
  MD_TYPE_CHAR = 1,
  MD_TYPE_INT = 2,
  MD_TYPE_FLOAT = 4,
  MD_TYPE_DOUBLE = 5,
  MD_TYPE_STRING = 6,
  MD_TYPE_BUFFER = 14,
  MD_TYPE_INT64 = 19,
  MD_TYPE_DATETIME = 20,
  MD_TYPE_EPOCH_NSEC = 22
};
enum {
  MD_TYPE_RAW = 0,
  MD_TYPE_SHORT = 3,
  MD_TYPE_VECTOR = 7,
  MD_TYPE_MSG_T = 8,
  MD_TYPE_DATE = 9,
  MD_TYPE_TIME = 10,
  MD_TYPE_FRACTION = 11,
  MD_TYPE_CHILD_MSG = 12,
  MD_TYPE_FOLDED_INT = 13,
  MD_TYPE_UINT = 16,
  MD_TYPE_LONG_INT = 17,
  MD_TYPE_ULONG_INT = 18
};

/* ---- Creating messages ----
 * NULL if memory runs out, and on first use if a dictionary file is found that cannot be loaded. */

/* A new empty message of an encoding. NULL for an unknown encoding id. */
MD_C_API MD_MessageHandle MD_Message_createFromPB(uint8_t code);

/* A new empty message of the preferred encoding of the site, given by the file message/preferred.conf on the
 * configuration search path. Without the file it is the encoding that a previous call has read, or MsgT. `cached`:
 * whether to read the file once per process instead of on every call. NULL if the file contains an unknown encoding id.
 */
MD_C_API MD_MessageHandle MD_Message_createPreferred(bool cached);

/* A message that holds a copy of `size` received bytes, as created by MD_Message_createFromBytes, but NULL where that
 * returns an invalid handle: for null or no bytes, and for an unknown encoding byte. */
MD_C_API MD_MessageHandle MD_Message_tryCreateFromBytes(const unsigned char* bytes, uint32_t size);

/* A new empty message of the same encoding. NULL for a null handle. */
MD_C_API MD_MessageHandle MD_Message_createEmpty(MD_MessageHandle message);

/* A new message of the same encoding with a copy of the contents. NULL for a null handle. */
MD_C_API MD_MessageHandle MD_Message_clone(MD_MessageHandle message);

/* ---- The message as a whole ----
 * Only the functions for copies and deltas modify a message. */

/* The encoding id (PB), also the first serialised byte. 0 for a null handle. Allocates nothing. */
MD_C_API uint8_t MD_Message_getPB(MD_MessageHandle message);

/* The serialised message, MD_Message_getSize bytes: a view, valid until the message is modified or deleted. NULL for a
 * null handle; a message without any bytes (MD_Message_setBinary with none) may return any pointer. Allocates nothing.
 */
MD_C_API const uint8_t* MD_Message_getBinary(MD_MessageHandle message);

/* Copies every field of `from`, of any encoding, to `to`: fields in both messages get the value of `from`, other fields
 * of `to` are kept. A field that cannot be read or stored fails an assertion (convention 5) and, if the handler
 * returns, is skipped. False, with `to` unchanged, for a null handle and if memory runs out. */
MD_C_API bool MD_Message_copyMsg(MD_MessageHandle to, MD_MessageHandle from);

/* Copies every field of `from` that can be read and that `to` can hold, without an assertion. Writes the ids of the
 * other fields to not_copied[0] to not_copied[capacity - 1], up to the capacity, and their number to `count`. A null
 * `not_copied` or `count` skips this. True if every field was copied. False, with `to` and `count` unchanged, also for
 * a null handle and if memory runs out. */
MD_C_API bool MD_Message_copyReadable(MD_MessageHandle to, MD_MessageHandle from, uint16_t* not_copied, size_t capacity,
                                      size_t* count);

/* The same for `id_count` listed fields. A field that `from` does not have counts as not copied. */
MD_C_API bool MD_Message_copyFields(MD_MessageHandle to, MD_MessageHandle from, const uint16_t* ids, size_t id_count,
                                    uint16_t* not_copied, size_t capacity, size_t* count);

/* Whether two messages have the same fields, regardless of encodings and order: the same ids with values of the same
 * type and the same bits. Of a repeated id, the last record is compared. */
MD_C_API bool MD_Message_sameFields(MD_MessageHandle a, MD_MessageHandle b);

/* Replaces the contents of `delta`, of any encoding, by the changes from `before` to `after`: the fields that are new
 * or have another value, the fields `keys` in any case, and a BUFFER field `removed_ids` that lists the ids of removed
 * fields. A null `keys` means none. False, with an empty `delta`, if a delta cannot express the changes (see
 * md/md_delta.h); send the whole message instead. False also for a null handle, and if memory runs out, which may leave
 * `delta` empty. */
MD_C_API bool MD_Message_diff(MD_MessageHandle before, MD_MessageHandle after, MD_MessageHandle delta,
                              uint16_t removed_ids, const uint16_t* keys, size_t key_count);

/* Applies a delta, whose list of removed fields is `removed_ids`, to `state`. False, with `state` unchanged, if `delta`
 * is not a delta, if `state` cannot hold a value, for a null handle and if memory runs out. */
MD_C_API bool MD_Message_applyDelta(MD_MessageHandle state, MD_MessageHandle delta, uint16_t removed_ids);

/* Writes the ids of all fields in wire order to ids[0] to ids[capacity - 1] and their number to `count` (convention 4).
 * A repeated field is listed each time. */
MD_C_API bool MD_Message_copyFieldIds(MD_MessageHandle message, uint16_t* ids, size_t capacity, size_t* count);

/* Writes a message as text, one field per line: its name (or its id, if the dictionary does not contain it) in a column
 * of 22 characters, " = ", the value, a line feed. `length` is the number of characters without the terminating NUL,
 * which `capacity` must include (convention 4). A shortened text ends with a NUL, too. After a failure for another
 * reason the text is empty. */
MD_C_API bool MD_Message_toText(MD_MessageHandle message, char* text, size_t capacity, size_t* length);

/* The same, but a price stored in integer fields named stem_WHOLE, stem_NUM and stem_DENOM is written as one line with
 * the stem and the decimal number. */
MD_C_API bool MD_Message_toPriceText(MD_MessageHandle message, char* text, size_t capacity, size_t* length);

/* Writes any received message as text, without an assertion: as MD_Message_toText, but each id once, text escaped
 * (md/md_escape.h), and "<truncated: 3 of 8 bytes>" for a field that cannot be read. */
MD_C_API bool MD_Message_toSafeText(MD_MessageHandle message, char* text, size_t capacity, size_t* length);
/* The same with prices as in MD_Message_toPriceText. */
MD_C_API bool MD_Message_toSafePriceText(MD_MessageHandle message, char* text, size_t capacity, size_t* length);

/* ---- Reading a field ----
 * False, with the outputs unchanged, if the field is absent or truncated. These functions allocate nothing. */

/* The address of the value of a field in the serialised message, its size in bytes and its type: in MsgT the type in
 * the message, otherwise that of the dictionary. The bytes are as stored by the encoding, including the terminating NUL
 * of a string. They are valid until the message is modified or deleted. Missing bytes of a truncated length field count
 * as zero. */
MD_C_API bool MD_Message_fieldData(MD_MessageHandle message, uint16_t id, const uint8_t** data, uint32_t* size,
                                   uint8_t* type);

/* Reads a date-time into `dt`. (MD_Message_getDateTime only returns whether it is readable.) False also for a field of
 * another type. */
MD_C_API bool MD_Message_readDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt);

/* ---- Several fields in one call ----
 * Programs in other languages read many fields of each message; a call per field costs more than the read. */

/* A value, in the member for its type. */
typedef union MD_FieldValue {
  char c;      /**< a CHAR */
  int32_t i;   /**< an INT */
  int64_t l;   /**< an INT64 */
  float f;     /**< a FLOAT */
  double d;    /**< a DOUBLE */
  MD_String s; /**< a STRING; after a read a view, valid until the message is modified or deleted */
  MD_Buffer b; /**< a BUFFER; likewise */
  uint64_t dt; /**< the packed word of a DATETIME */
  uint64_t ns; /**< the nanoseconds of an EPOCH_NSEC */
} MD_FieldValue;

/* A field to read or write. The layout is part of the binary interface. */
typedef struct MD_FieldSlot {
  uint16_t id;         /**< the field */
  uint8_t type;        /**< the MD_TYPE_ code of the value */
  uint8_t status;      /**< set by the call: 1 if the field was read or written, otherwise 0 */
  MD_FieldValue value; /**< its value */
} MD_FieldSlot;

/* Reads the fields of slots[0] to slots[count - 1], each as the get function of its type does. The value of a slot
 * whose field cannot be read is unchanged. Returns the number of fields that were read. */
MD_C_API size_t MD_Message_readFields(MD_MessageHandle message, MD_FieldSlot* slots, size_t count);

/* The operation of MD_Message_writeFields. */
enum { MD_WRITE_ADD = 0, MD_WRITE_UPDATE = 1 };

/* Adds or updates, by `mode`, the fields of slots[0] to slots[count - 1] in their order, each as the function of its
 * type does. Returns the number of fields that were written. It is less than `count` if one is refused or memory runs
 * out: the slots from that one on are not written. Another mode writes none. */
MD_C_API size_t MD_Message_writeFields(MD_MessageHandle message, MD_FieldSlot* slots, size_t count, int mode);

/* ---- Received bytes ---- */

/* Parses received bytes into messages that it reuses: in steady state nothing is allocated. */
typedef struct MD_ReceiverCell* MD_ReceiverHandle;

/* A receiver. NULL if memory runs out, and if on first use a dictionary file is found that cannot be loaded. */
MD_C_API MD_ReceiverHandle MD_Receiver_new(void);

/* Releases a receiver and its messages. Null is accepted. */
MD_C_API void MD_Receiver_delete(MD_ReceiverHandle receiver);

/* Parses a serialised message in any encoding. The message belongs to the receiver, is valid until the next parse, and
 * must not be deleted. NULL for an unknown encoding byte and for no bytes. */
MD_C_API MD_MessageHandle MD_Receiver_parse(MD_ReceiverHandle receiver, const uint8_t* bytes, uint32_t size);

/* @{ */
/* Each reads one field of a serialised message in any encoding without building a message. The result is that of the
 * get function on the message that MD_Message_createFromBytes builds from the bytes. MD::peek() in md/md_peek.h
 * describes the rules. If a field is repeated, MD_peek... reads the last record, MD_peekFirst... the first one. Nothing
 * is copied, allocated or reported. Views refer to `bytes`. False, with the output unchanged, if the field is absent,
 * of another type or truncated, and for an unknown encoding byte. Thread-safe while the dictionary is not reloaded. */
MD_C_API bool MD_peekChar(const uint8_t* bytes, uint32_t size, uint16_t id, char* out);
MD_C_API bool MD_peekInt(const uint8_t* bytes, uint32_t size, uint16_t id, int32_t* out);
MD_C_API bool MD_peekInt64(const uint8_t* bytes, uint32_t size, uint16_t id, int64_t* out);
MD_C_API bool MD_peekFloat(const uint8_t* bytes, uint32_t size, uint16_t id, float* out);
MD_C_API bool MD_peekDouble(const uint8_t* bytes, uint32_t size, uint16_t id, double* out);
MD_C_API bool MD_peekString(const uint8_t* bytes, uint32_t size, uint16_t id, MD_String* out);
MD_C_API bool MD_peekBuffer(const uint8_t* bytes, uint32_t size, uint16_t id, MD_Buffer* out);
MD_C_API bool MD_peekDateTime(const uint8_t* bytes, uint32_t size, uint16_t id, uint64_t* out); /* the packed word */
MD_C_API bool MD_peekEpochNS(const uint8_t* bytes, uint32_t size, uint16_t id, uint64_t* out);
MD_C_API bool MD_peekFirstChar(const uint8_t* bytes, uint32_t size, uint16_t id, char* out);
MD_C_API bool MD_peekFirstInt(const uint8_t* bytes, uint32_t size, uint16_t id, int32_t* out);
MD_C_API bool MD_peekFirstInt64(const uint8_t* bytes, uint32_t size, uint16_t id, int64_t* out);
MD_C_API bool MD_peekFirstFloat(const uint8_t* bytes, uint32_t size, uint16_t id, float* out);
MD_C_API bool MD_peekFirstDouble(const uint8_t* bytes, uint32_t size, uint16_t id, double* out);
MD_C_API bool MD_peekFirstString(const uint8_t* bytes, uint32_t size, uint16_t id, MD_String* out);
MD_C_API bool MD_peekFirstBuffer(const uint8_t* bytes, uint32_t size, uint16_t id, MD_Buffer* out);
MD_C_API bool MD_peekFirstDateTime(const uint8_t* bytes, uint32_t size, uint16_t id, uint64_t* out); /* likewise */
MD_C_API bool MD_peekFirstEpochNS(const uint8_t* bytes, uint32_t size, uint16_t id, uint64_t* out);
/* @} */

/* A record of received bytes; it refers to these bytes. */
typedef struct MD_Record {
  uint16_t id;         /**< the field */
  uint8_t type;        /**< one of the MD_TYPE_ codes */
  bool isTruncated;    /**< whether the bytes end within the record, which is then the last */
  uint32_t size;       /**< number of value bytes that are present; in a truncated record less than its length */
  const uint8_t* data; /**< the value in wire format: a string with its NUL */
} MD_Record;

/* Finds the next record of a serialised message in any encoding: the records of the message that
 * MD_Message_createFromBytes would build, in wire order. Set `position` to 0 before the first call; each call
 * sets it for the next one. False, with `record` unchanged, if there is no further record. Nothing is copied, allocated
 * or reported. */
MD_C_API bool MD_nextRecord(const uint8_t* bytes, uint32_t size, uint32_t* position, MD_Record* record);

/* ---- The field dictionary ----
 * There is one per process. It is loaded on first use from the configuration search path. Lookups are thread-safe. */

/* The name of a field, terminated by NUL: a view, valid until a dictionary is loaded. NULL for an unknown id. */
MD_C_API const char* MD_FieldMap_idToName(uint16_t id);

/* The type of a field. False, with `type` unchanged, for an unknown id. */
MD_C_API bool MD_FieldMap_idToType(uint16_t id, uint8_t* type);

/* The id of a name; the higher id if two fields share the name. False, with `id` unchanged, for an unknown name. */
MD_C_API bool MD_FieldMap_nameToId(const char* name, uint16_t* id);

/* The type of the field with a name. False, with `type` unchanged, for an unknown name. */
MD_C_API bool MD_FieldMap_nameToType(const char* name, uint8_t* type);

/* The number of fields. */
MD_C_API size_t MD_FieldMap_size(void);

/* The source of the fields, terminated by NUL: the path of the file, or a name if it was not a file. Empty if there is
 * no dictionary file, and after a failed load. A view, valid until a dictionary is loaded. */
MD_C_API const char* MD_FieldMap_source(void);

/* A hash of the ids, types and names of all fields, independent of the order and format of the file and of the machine.
 * MD_FieldMap::fingerprint() in md/md_fieldmap.h describes the algorithm. 0 if on first use a dictionary file is found
 * that cannot be loaded. */
MD_C_API uint64_t MD_FieldMap_fingerprint(void);

/* A field that a program was compiled with, for example in a header generated by "mdmsg dict generate": name, id and
 * type code. */
typedef struct MD_ExpectedField {
  const char* name; /**< terminated by NUL */
  uint16_t id;      /**< the field id */
  uint8_t type;     /**< the MD_TYPE_ code of its type */
} MD_ExpectedField;

/* Whether the dictionary contains each of `count` fields with this id and type; it may contain other fields. False if a
 * name is missing or has another id or type, and if the dictionary cannot be loaded: error[0] to
 * error[error_capacity - 1] then contain the name of the dictionary and the fields that differ, shortened if necessary
 * and terminated by NUL. Otherwise the text is empty. A null `error` or a capacity of 0 skips the text. A null name
 * returns false. */
MD_C_API bool MD_FieldMap_checkFields(const MD_ExpectedField* fields, size_t count, char* error, size_t error_capacity);

/* Writes the ids of all fields, lowest first, to ids[0] to ids[capacity - 1] and their number to `count` (convention
 * 4). Allocates nothing once the dictionary is loaded. */
MD_C_API bool MD_FieldMap_copyIds(uint16_t* ids, size_t capacity, size_t* count);

/* ---- Loading a dictionary ----
 * Each function replaces the fields of the dictionary. Load only while no filled message exists and no other thread
 * uses the dictionary or a message. False on failure, including lack of memory: the dictionary is then empty until a
 * load succeeds. The reason is written to error[0] to error[error_capacity - 1], shortened if necessary and terminated
 * by NUL; after success it is empty. A null `error` or a capacity of 0 skips the text. If a load is the first use of
 * the dictionary, the file on the configuration search path is loaded first, and its failure is that of the load. */

/* From the XML file `path`. If `path` is null or empty, from the configuration search path; this succeeds with an empty
 * dictionary if no dictionary file is found. */
MD_C_API bool MD_FieldMap_reload(const char* path, char* error, size_t error_capacity);

/* From the XML file `path`; an empty path results in an empty dictionary. A null `path` changes nothing and returns
 * false. */
MD_C_API bool MD_FieldMap_reload_xml(const char* path, char* error, size_t error_capacity);

/* From `length` characters in memory, in the format of an XML file. A null `xml` changes nothing and returns false,
 * even if `length` is 0. */
MD_C_API bool MD_FieldMap_reload_xml_memory(const char* xml, size_t length, char* error, size_t error_capacity);

/* From the text file `path`: entries of name, id and type name. A null `path` changes nothing and returns false. */
MD_C_API bool MD_FieldMap_reload_text(const char* path, char* error, size_t error_capacity);

/* From `length` characters in memory, in the format of a text file. A null `text` changes nothing and returns false,
 * even if `length` is 0. */
MD_C_API bool MD_FieldMap_reload_text_memory(const char* text, size_t length, char* error, size_t error_capacity);

/* @{ */
/* From `length` characters in memory, or from the text file `path`, without first searching for another file. Writes
 * one line to `report` for each entry that was skipped or looks like a mistake: source, line number, field and reason.
 * After a failure it contains only the reason of the failure. A report that does not fit is shortened and terminated by
 * NUL; a null `report` or a capacity of 0 skips it. A null `text` or `path` changes nothing and returns false. */
MD_C_API bool MD_FieldMap_loadText(const char* text, size_t length, char* report, size_t report_capacity);
MD_C_API bool MD_FieldMap_loadTextFile(const char* path, char* report, size_t report_capacity);
/* @} */

/* ---- The process ---- */

/* Called with the text of a failed assertion, its source file and its line. If it returns, the operation continues as
 * documented. It must not leave by longjmp. */
typedef void (*MD_AssertionHandler)(const char* expression, const char* file, unsigned line);

/* Installs `handler` for the whole process; null restores the default, which writes to standard error and aborts.
 * Returns the handler that was installed before, NULL for the default. Allocates nothing; thread-safe. */
MD_C_API MD_AssertionHandler MD_set_assertion_handler(MD_AssertionHandler handler);

/* Called with the complete text of one diagnostic, which is then not written to standard error: `length` characters,
 * including line ends, followed by a NUL. They may contain raw bytes of received messages, including NUL, and are valid
 * until the handler returns. It may be called from several threads at once, by any function that writes diagnostics. It
 * must not leave by an exception or longjmp. */
typedef void (*MD_ReportHandler)(const char* text, size_t length);

/* Installs `handler` for the whole process; null restores the default, which writes each diagnostic to standard error.
 * Returns the handler that was installed before, NULL for the default. Allocates nothing; thread-safe. */
MD_C_API MD_ReportHandler MD_set_report_handler(MD_ReportHandler handler);

/* The version of the library, "major.minor.patch": a constant that is never released. */
MD_C_API const char* MD_version(void);

#ifdef __cplusplus
}
#endif

#endif
