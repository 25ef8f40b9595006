/* md_message_c_ext.h: what the C interface offers beyond the functions of md_message_c.h.
 *
 * The conventions of md_message_c.h on ownership, field ids, lifetimes of views and threads hold here as well. Those on
 * failure are stricter; for all functions unless one says otherwise:
 *
 * 1. Exceptions. None leaves a function. Running out of memory gives the function's null result (false, 0, null), and
 *    messages, date-times and outputs are as they were. An exception that an assertion handler throws gives the null
 *    result, too; a copy ends there, the fields before it copied.
 * 2. Null arguments. A null handle or any other null pointer gives the null result, except where a function says what
 *    null stands for. A handle that holds no message (convention 3 there) is as good as null.
 * 3. Handles. A function that makes a message returns null instead of a handle that holds none. Handles are released by
 *    MD_Message_delete.
 * 4. Room. Where a function fills `capacity` places of the caller's, null for the places only asks how many are needed:
 *    true. Too few are filled as far as they go, the number that is needed is told, and the result is false. When it
 *    fails for another reason, the number is left as it was.
 * 5. Assertions. MD_Message_copyMsg and the print-outs assert that each field can be read, and stored: a failed
 *    assertion ends the process, or goes to the handler (MD_set_assertion_handler). Messages of unknown origin are best
 *    checked first, each field by the get of its type.
 */
#ifndef MD_MESSAGE_C_EXT_H
#define MD_MESSAGE_C_EXT_H

#include "md_message_c.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The encodings' codes, each also the first byte of a serialised message. */
enum { MD_ENCODING_ITERMAP = 1, MD_ENCODING_MINT = 6, MD_ENCODING_MSGT = 70 };

/* The codes of fields' types. Only those of the first list can be read and written through a message. */
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

/* ---- Making messages ----
 * Null when memory runs out, and on first use when a dictionary is found that cannot be loaded. */

/* A new empty message of an encoding. Null for a code that is no encoding's. */
MD_C_API MD_MessageHandle MD_Message_createFromPB(uint8_t code);

/* A new empty message of the site's preferred encoding, which the file message/preferred.conf on the configuration
 * search path names, MsgT when there is none, or what a call before has read. `cached`: whether to read the file once
 * in the life of the process instead of on every call. Null when the file names a code that is no encoding's. */
MD_C_API MD_MessageHandle MD_Message_createPreferred(bool cached);

/* A message that holds a copy of `size` received bytes, as MD_Message_createFromBytes makes it, but null where that
 * returns a handle that holds no message: for null bytes, for none, and for bytes of no encoding. */
MD_C_API MD_MessageHandle MD_Message_tryCreateFromBytes(const unsigned char* bytes, uint32_t size);

/* A new empty message of the same encoding. Null for a null handle. */
MD_C_API MD_MessageHandle MD_Message_createEmpty(MD_MessageHandle message);

/* A new message of the same encoding with a copy of the contents. Null for a null handle. */
MD_C_API MD_MessageHandle MD_Message_clone(MD_MessageHandle message);

/* ---- The message as a whole ----
 * Only the functions that copy, and those of deltas, change a message. */

/* The encoding's code. 0 for a null handle. Needs no memory. */
MD_C_API uint8_t MD_Message_getPB(MD_MessageHandle message);

/* The serialised message, MD_Message_getSize bytes: a view, valid until the message is changed or deleted. Null for a
 * null handle; a message of no bytes at all (MD_Message_setBinary with none) may have any pointer. Needs no memory. */
MD_C_API const uint8_t* MD_Message_getBinary(MD_MessageHandle message);

/* Copies every field of `from`, of any encoding, to `to`: fields that both hold take the value of `from`, other fields
 * of `to` stay. A field that cannot be read there or stored here fails an assertion (convention 5) and, when the
 * handler returns, is left out. False, and `to` as it was, for a null handle and when memory runs out. */
MD_C_API bool MD_Message_copyMsg(MD_MessageHandle to, MD_MessageHandle from);

/* Copies every field of `from` to `to` that can be read there and held here, without an assertion. Writes the ids of
 * the other fields to not_copied[0] to not_copied[capacity - 1], as far as there is room, and their number to `count`.
 * A null `not_copied` or `count` only forgoes that. True when every field was copied; false, and `to` as it was, also
 * for a null handle and when memory runs out, `count` being as it was. */
MD_C_API bool MD_Message_copyReadable(MD_MessageHandle to, MD_MessageHandle from, uint16_t* not_copied, size_t capacity,
                                      size_t* count);

/* The same for `id_count` listed fields. A field that `from` does not have is not copied, either. */
MD_C_API bool MD_Message_copyFields(MD_MessageHandle to, MD_MessageHandle from, const uint16_t* ids, size_t id_count,
                                    uint16_t* not_copied, size_t capacity, size_t* count);

/* Whether two messages have the same fields, whatever the encodings and the order: the same ids with values of the same
 * type and the same bits. Of an id that received bytes repeat, the last record counts. */
MD_C_API bool MD_Message_sameFields(MD_MessageHandle a, MD_MessageHandle b);

/* Replaces the contents of `delta`, of any encoding, by what turns `before` into `after`: the fields that are new or
 * have another value, the fields `keys` in any case, and a BUFFER field `removed_ids` that lists the ids of removed
 * fields. A null `keys` stands for none. False, and `delta` is empty, when a delta cannot say that (see md/md_delta.h);
 * send the whole message instead. False for a null handle, and when memory runs out, which may leave `delta` empty. */
MD_C_API bool MD_Message_diff(MD_MessageHandle before, MD_MessageHandle after, MD_MessageHandle delta,
                              uint16_t removed_ids, const uint16_t* keys, size_t key_count);

/* Changes `state` by a delta whose list of removed fields is `removed_ids`. False, and `state` as it was, when `delta`
 * is not a delta, when `state` cannot hold a value, for a null handle and when memory runs out. */
MD_C_API bool MD_Message_applyDelta(MD_MessageHandle state, MD_MessageHandle delta, uint16_t removed_ids);

/* Writes the ids of all fields in wire order to ids[0] to ids[capacity - 1] and their number to `count` (convention 4).
 * A field that received bytes repeat is listed each time. */
MD_C_API bool MD_Message_copyFieldIds(MD_MessageHandle message, uint16_t* ids, size_t capacity, size_t* count);

/* Prints a message, one field a line: its name (the id, when the dictionary does not know it) in a column of 22
 * characters, " = ", the value, a line feed. `length` is the number of characters; a NUL follows them, for which
 * `capacity` must have room as well (convention 4). A text that is cut off ends with a NUL, too. After a failure for
 * another reason the text is empty. */
MD_C_API bool MD_Message_toText(MD_MessageHandle message, char* text, size_t capacity, size_t* length);

/* The same, but a price that is kept in integer fields named stem_WHOLE, stem_NUM and stem_DENOM prints as one line of
 * the stem and the decimal number. */
MD_C_API bool MD_Message_toPriceText(MD_MessageHandle message, char* text, size_t capacity, size_t* length);

/* A message as text that is ready for any received bytes, without an assertion: as MD_Message_toText, but each id once,
 * text escaped (md/md_escape.h), and "<truncated: 3 of 8 bytes>" for a field that cannot be read. */
MD_C_API bool MD_Message_toSafeText(MD_MessageHandle message, char* text, size_t capacity, size_t* length);

/* ---- Reading a field ----
 * False, and the outputs as they were, when the field is absent or cut off by the end of the message. Neither needs
 * memory. */

/* Where a field's value lies in the serialised message, how many bytes it takes and its type: for MsgT the one that
 * stands in the message, otherwise the dictionary's. The bytes are as the encoding stores them, a terminating NUL of a
 * string included; valid until the message is changed or deleted. Bytes of a length that the end of the message cuts
 * off count as zero. */
MD_C_API bool MD_Message_fieldData(MD_MessageHandle message, uint16_t id, const uint8_t** data, uint32_t* size,
                                   uint8_t* type);

/* Reads a date-time into `dt`. (MD_Message_getDateTime tells only whether it could.) False also for a field of another
 * type. */
MD_C_API bool MD_Message_readDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt);

/* ---- Several fields in one call ----
 * Programs in other languages read many fields of each message; a call per field costs them more than the read. */

/* A value, in the member of its type. */
typedef union MD_FieldValue {
  char c;      /**< a CHAR */
  int32_t i;   /**< an INT */
  int64_t l;   /**< an INT64 */
  float f;     /**< a FLOAT */
  double d;    /**< a DOUBLE */
  MD_String s; /**< a STRING; when read, a view: valid until the message is changed or deleted */
  MD_Buffer b; /**< a BUFFER; likewise */
  uint64_t dt; /**< a DATETIME's packed word */
  uint64_t ns; /**< the nanoseconds of an EPOCH_NSEC */
} MD_FieldValue;

/* A field to read or write. The layout is part of the binary interface. */
typedef struct MD_FieldSlot {
  uint16_t id;         /**< the field */
  uint8_t type;        /**< the MD_TYPE_ code of the value */
  uint8_t status;      /**< set by the call: 1 when the field was read or written, otherwise 0 */
  MD_FieldValue value; /**< its value */
} MD_FieldSlot;

/* Reads the fields that slots[0] to slots[count - 1] name, each as the get function of its type does. The value of a
 * slot whose field cannot be read stays as it was. Returns the number of fields that were read. */
MD_C_API size_t MD_Message_readFields(MD_MessageHandle message, MD_FieldSlot* slots, size_t count);

/* What MD_Message_writeFields does with each field. */
enum { MD_WRITE_ADD = 0, MD_WRITE_UPDATE = 1 };

/* Adds or updates, by `mode`, the fields of slots[0] to slots[count - 1] in their order, each as the function of its
 * type does. Returns the number of fields that were written; fewer than `count` when one is refused, or memory runs
 * out: then the slots from that one on are not written. Another mode writes none. */
MD_C_API size_t MD_Message_writeFields(MD_MessageHandle message, MD_FieldSlot* slots, size_t count, int mode);

/* ---- Received bytes ---- */

/* Parses received bytes into messages that it reuses: in steady state nothing is allocated. */
typedef struct MD_ReceiverCell* MD_ReceiverHandle;

/* A receiver. Null when memory runs out, and when a dictionary is found on first use that cannot be loaded. */
MD_C_API MD_ReceiverHandle MD_Receiver_new(void);

/* Releases a receiver and its messages. Null is accepted. */
MD_C_API void MD_Receiver_delete(MD_ReceiverHandle receiver);

/* Parses a serialised message in any encoding. The message belongs to the receiver, is valid until the next parse, and
 * must not be deleted. Null for bytes of no encoding and for no bytes. */
MD_C_API MD_MessageHandle MD_Receiver_parse(MD_ReceiverHandle receiver, const uint8_t* bytes, uint32_t size);

/* @{ */
/* Each reads one field of a serialised message in any encoding without building a message: the answer of the get
 * function on the message that MD_Message_createFromBytes builds from the bytes. MD::peek() in md/md_peek.h describes
 * the rules. Of a repeated field the last record counts, for MD_peekFirst... the first one. Nothing is copied,
 * allocated or reported. Views refer to `bytes`. False, and the output as it was, when the field is absent, of another
 * type or truncated, and for bytes of no encoding. Thread-safe while the dictionary is not reloaded. */
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

/* A record of received bytes, which it refers to. */
typedef struct MD_Record {
  uint16_t id;         /**< the field */
  uint8_t type;        /**< one of the MD_TYPE_ codes */
  bool isTruncated;    /**< whether the bytes end within the record, which is then the last */
  uint32_t size;       /**< how many value bytes there are; of a truncated record fewer than it announces */
  const uint8_t* data; /**< the value as it is on the wire: a string with its NUL */
} MD_Record;

/* Finds the next record of a serialised message in any encoding: those that the message which
 * MD_Message_createFromBytes builds would hold, in wire order. Set `position` to 0 before the first call; each call
 * sets it for the next one. False, and `record` as it was, when there is none left. Nothing is copied, allocated or
 * reported.
 */
MD_C_API bool MD_nextRecord(const uint8_t* bytes, uint32_t size, uint32_t* position, MD_Record* record);

/* ---- The field dictionary ----
 * There is one in a process. It is loaded on first use from the configuration search path. Look-ups are safe from
 * several threads. */

/* A field's name, terminated by NUL: a view, valid until a dictionary is loaded. Null for an unknown id. */
MD_C_API const char* MD_FieldMap_idToName(uint16_t id);

/* A field's type. False, and `type` as it was, for an unknown id. */
MD_C_API bool MD_FieldMap_idToType(uint16_t id, uint8_t* type);

/* The id of a name, of the higher id where two fields have it. False, and `id` as it was, for an unknown name. */
MD_C_API bool MD_FieldMap_nameToId(const char* name, uint16_t* id);

/* The type of the field of a name. False, and `type` as it was, for an unknown name. */
MD_C_API bool MD_FieldMap_nameToType(const char* name, uint8_t* type);

/* The number of fields. */
MD_C_API size_t MD_FieldMap_size(void);

/* What the fields were loaded from, terminated by NUL: the path of a file, or a name for what was not a file. Empty
 * when there is no dictionary file, and after a load that failed. A view, valid until a dictionary is loaded. */
MD_C_API const char* MD_FieldMap_source(void);

/* A hash of the ids, types and names of all fields, whatever the order and the format of the file and the machine; the
 * algorithm is described at MD_FieldMap::fingerprint() in md/md_fieldmap.h. 0 when a dictionary is found on first use
 * that cannot be loaded. */
MD_C_API uint64_t MD_FieldMap_fingerprint(void);

/* A field as a program knows it, such as the headers that "mdmsg dict generate" writes: its name, terminated by NUL,
 * its id and the code of its type. */
typedef struct MD_ExpectedField {
  const char* name; /**< terminated by NUL */
  uint16_t id;      /**< the field id */
  uint8_t type;     /**< the MD_TYPE_ code of its type */
} MD_ExpectedField;

/* Whether the dictionary has each of `count` fields with this id and type; it may have others besides them. False when
 * it gives one of the names another id or type, or does not have it, and when it cannot be loaded: error[0] to
 * error[error_capacity - 1] then name the dictionary and the fields that differ, cut off where they must be and
 * terminated by NUL; otherwise the text is empty. A null `error`, or no room, only forgoes the text. A null name gives
 * false. */
MD_C_API bool MD_FieldMap_checkFields(const MD_ExpectedField* fields, size_t count, char* error, size_t error_capacity);

/* Writes the ids of all fields, lowest first, to ids[0] to ids[capacity - 1] and their number to `count` (convention
 * 4). Needs no memory once the dictionary is loaded. */
MD_C_API bool MD_FieldMap_copyIds(uint16_t* ids, size_t capacity, size_t* count);

/* ---- Loading a dictionary ----
 * Each replaces the dictionary's fields. Do so only while no message exists that was filled before, and no other thread
 * uses the dictionary or a message. False when it cannot be done, memory running out included: then there is no field
 * until a load succeeds. Why is written to error[0] to error[error_capacity - 1], cut off where it must be and
 * terminated by NUL; after success it is empty. A null `error`, or no room, only forgoes the text. Where a load is the
 * first use of the dictionary, the search path's comes before it, and its failure is the load's. */

/* From the XML file `path`; from the configuration search path when that is null or empty, which succeeds, without any
 * field, where no definition file is found. */
MD_C_API bool MD_FieldMap_reload(const char* path, char* error, size_t error_capacity);

/* From the XML file `path`, an empty path leaving no field. A null `path` changes nothing and gives false. */
MD_C_API bool MD_FieldMap_reload_xml(const char* path, char* error, size_t error_capacity);

/* From `length` characters in memory, in the format of an XML file. A null `xml` changes nothing and gives false, also
 * when `length` is 0. */
MD_C_API bool MD_FieldMap_reload_xml_memory(const char* xml, size_t length, char* error, size_t error_capacity);

/* From the text file `path`: entries of name, id and type name. A null `path` changes nothing and gives false. */
MD_C_API bool MD_FieldMap_reload_text(const char* path, char* error, size_t error_capacity);

/* From `length` characters in memory, in the format of a text file. A null `text` changes nothing and gives false, also
 * when `length` is 0. */
MD_C_API bool MD_FieldMap_reload_text_memory(const char* text, size_t length, char* error, size_t error_capacity);

/* @{ */
/* From `length` characters in memory, or from the text file `path`, and without a search for another file before.
 * Writes one line to `report` for each entry that was skipped or looks like a mistake: source, line number, field and
 * reason; after a failure only why it failed. A report that does not fit is cut off, and is terminated by NUL; a null
 * `report`, or no room, only forgoes it. A null `text` or `path` changes nothing and gives false. */
MD_C_API bool MD_FieldMap_loadText(const char* text, size_t length, char* report, size_t report_capacity);
MD_C_API bool MD_FieldMap_loadTextFile(const char* path, char* report, size_t report_capacity);
/* @} */

/* ---- The process ---- */

/* Called with the text of a failed assertion, the source it is filed under and its line there. When it returns, the
 * operation goes on as its description says. It must not leave by longjmp. */
typedef void (*MD_AssertionHandler)(const char* expression, const char* file, unsigned line);

/* Installs `handler` for the whole process; null restores the default, which writes to standard error and aborts.
 * Returns the handler that was installed before, null when it was the default. Needs no memory; thread-safe. */
MD_C_API MD_AssertionHandler MD_set_assertion_handler(MD_AssertionHandler handler);

/* Called with the whole text of one diagnostic instead of writing it to standard error: `length` characters, line ends
 * included, that hold raw bytes of received messages (NUL too), and a NUL behind them; valid until it returns. It may
 * be called from several threads at once, by any function that reports. It must not leave by an exception or longjmp.
 */
typedef void (*MD_ReportHandler)(const char* text, size_t length);

/* Installs `handler` for the whole process; null restores the default, which writes each diagnostic to standard error.
 * Returns the handler that was installed before, null when it was the default. Needs no memory; thread-safe. */
MD_C_API MD_ReportHandler MD_set_report_handler(MD_ReportHandler handler);

/* The library's version, "major.minor.patch": a constant that is never released. Needs no memory. */
MD_C_API const char* MD_version(void);

#ifdef __cplusplus
}
#endif

#endif
