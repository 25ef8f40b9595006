/* md_message_c.h: the flat C interface of md_message.
 *
 * Conventions, for all functions unless a function says otherwise:
 *
 * 1. Ownership. A handle owns one object. MD_mInt_new and MD_Message_createFromBytes make message handles, released by
 *    MD_Message_delete; MD_DateTime_new and MD_DateTime_new_empty make date-time handles, released by
 *    MD_DateTime_delete. Deleting null does nothing; deleting twice, or using a handle after its deletion, is
 *    undefined.
 * 2. Null arguments. A null handle, or another null pointer that a function says it checks, gives the function's null
 *    result (false, 0; true for MD_Message_empty) and nothing else happens. Pointers not said to be checked must be
 *    good.
 * 3. Empty handles. MD_Message_createFromBytes returns a handle that holds no message when it does not recognise the
 *    bytes; of these functions only MD_Message_delete may be called on it. Test the first byte before (1, 6 or 70), or
 *    MD_Message_getPB of md_message_c_ext.h behind.
 * 4. Lifetime of views. What MD_Message_getString and MD_Message_getBuffer point to belongs to the message and is valid
 *    until the message is changed or deleted. Such a view is a valid argument of an add or update of the same message.
 *    The memory behind a view that is added or updated is copied.
 * 5. Results. bool is true for done. A failed get leaves the output as it was; why it failed may stand on standard
 *    error. No function returns an error code, and errno tells nothing.
 * 6. Field ids are unsigned 16-bit numbers; each field's type is the one that the process's field dictionary declares,
 *    which is loaded on first use from the configuration search path (environment variable CONFIG_PATH).
 * 7. Threads. One handle belongs to one thread at a time; different handles are independent.
 * 8. Exceptions. Running out of memory throws std::bad_alloc out of a function, and leaves the message as it was. The
 *    first use of the dictionary, by whatever makes the first message, throws std::runtime_error when a definition file
 *    is found that cannot be loaded. A C program, which has no way to catch them, ends there; asking md_message_c_ext.h
 *    for the dictionary first (MD_FieldMap_size, or loading one) spares it the latter.
 */
#ifndef MD_MESSAGE_C_H
#define MD_MESSAGE_C_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* Marks what the shared library exports. */
#if defined(_WIN32) && !defined(MD_STATIC)
#if defined(MD_BUILDING_LIBRARY)
#define MD_C_API __declspec(dllexport)
#else
#define MD_C_API __declspec(dllimport)
#endif
#elif defined(_WIN32)
#define MD_C_API
#else
#define MD_C_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A message behind a pointer. */
typedef struct MD_MessageCell* MD_MessageHandle;
/* A date-time behind a pointer. */
typedef struct MD_DateTimeCell* MD_DateTimeHandle;

/* Characters with their count, a terminating NUL not counted. */
typedef struct MD_String {
  const char* data; /**< the first character */
  uint16_t length;  /**< how many there are */
} MD_String;

/* Bytes with their count. */
typedef struct MD_Buffer {
  const uint8_t* data; /**< the first byte */
  uint16_t length;     /**< how many there are */
} MD_Buffer;

/* ---- Making and deleting messages ---- */

/* A new empty message of the mInt encoding. Never null. */
MD_C_API MD_MessageHandle MD_mInt_new(void);

/* A message that holds a copy of `length` received bytes, in the encoding that the first byte names: 1 IterMap, 6 mInt,
 * 70 MsgT. Never null; the handle is empty (convention 3) when the bytes are null, none, or of another first byte.
 * Fields unknown to the dictionary are cut out and reported on standard error. */
MD_C_API MD_MessageHandle MD_Message_createFromBytes(const unsigned char* bytes, uint32_t length);

/* Deletes the message and its handle. */
MD_C_API void MD_Message_delete(MD_MessageHandle message);

/* Replaces the contents by a copy of received bytes in the message's own encoding, header included and not tested.
 * False when `bytes` is null. */
MD_C_API bool MD_Message_setBinary(MD_MessageHandle message, const unsigned char* bytes, uint32_t length);

/* ---- Reading a field ----
 * False, and the output as it was, when the field is absent, of another type, or cut off by the end of the message.
 * A null output pointer is checked and gives false. */

/* A character. */
MD_C_API bool MD_Message_getChar(MD_MessageHandle message, uint16_t id, char* out);

/* A 32-bit integer. */
MD_C_API bool MD_Message_getInt(MD_MessageHandle message, uint16_t id, int32_t* out);

/* A 64-bit integer. */
MD_C_API bool MD_Message_getInt64(MD_MessageHandle message, uint16_t id, int64_t* out);

/* A float. */
MD_C_API bool MD_Message_getFloat(MD_MessageHandle message, uint16_t id, float* out);

/* A double. */
MD_C_API bool MD_Message_getDouble(MD_MessageHandle message, uint16_t id, double* out);

/* The characters of a string, a view into the message (convention 4). */
MD_C_API bool MD_Message_getString(MD_MessageHandle message, uint16_t id, MD_String* out);

/* The bytes of a buffer, a view into the message (convention 4). */
MD_C_API bool MD_Message_getBuffer(MD_MessageHandle message, uint16_t id, MD_Buffer* out);

/* Tells whether a date-time could be read from the field. `dt` is checked for null and otherwise not touched: the value
 * is not handed back. */
MD_C_API bool MD_Message_getDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt);

/* Nanoseconds since 1970-01-01 UTC. */
MD_C_API bool MD_Message_getEpochNS(MD_MessageHandle message, uint16_t id, uint64_t* out);

/* ---- Adding a field ----
 * False, and the message as it was, when the field exists already, when the dictionary does not know the id or gives it
 * another type, or when the encoding cannot hold the value (mInt: strings of more than 254 characters, buffers of more
 * than 255 bytes). */

/* A character. */
MD_C_API bool MD_Message_addChar(MD_MessageHandle message, uint16_t id, char value);

/* A 32-bit integer. */
MD_C_API bool MD_Message_addInt(MD_MessageHandle message, uint16_t id, int32_t value);

/* A 64-bit integer. */
MD_C_API bool MD_Message_addInt64(MD_MessageHandle message, uint16_t id, int64_t value);

/* A float. */
MD_C_API bool MD_Message_addFloat(MD_MessageHandle message, uint16_t id, float value);

/* A double. */
MD_C_API bool MD_Message_addDouble(MD_MessageHandle message, uint16_t id, double value);

/* A string, copied. `value` is not checked for null. */
MD_C_API bool MD_Message_addString(MD_MessageHandle message, uint16_t id, const MD_String* value);

/* A byte buffer, copied. `value` is not checked for null. */
MD_C_API bool MD_Message_addBuffer(MD_MessageHandle message, uint16_t id, const MD_Buffer* value);

/* The date, time and offset of `dt`, which is checked for null; other bits of it are not carried over. */
MD_C_API bool MD_Message_addDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt);

/* Nanoseconds since 1970-01-01 UTC. */
MD_C_API bool MD_Message_addEpochNS(MD_MessageHandle message, uint16_t id, uint64_t value);

/* ---- Updating a field ----
 * Replaces the value of a field, or adds the field when it is absent. A value of another length moves the field to the
 * end of the message. False when the value cannot be stored; what a refused update of another type leaves behind is the
 * encoding's rule, and may be the removal of the field. */

/* A character. */
MD_C_API bool MD_Message_updateChar(MD_MessageHandle message, uint16_t id, char value);

/* A 32-bit integer. */
MD_C_API bool MD_Message_updateInt(MD_MessageHandle message, uint16_t id, int32_t value);

/* A 64-bit integer. */
MD_C_API bool MD_Message_updateInt64(MD_MessageHandle message, uint16_t id, int64_t value);

/* A float. */
MD_C_API bool MD_Message_updateFloat(MD_MessageHandle message, uint16_t id, float value);

/* A double. */
MD_C_API bool MD_Message_updateDouble(MD_MessageHandle message, uint16_t id, double value);

/* A string, copied. `value` is not checked for null. */
MD_C_API bool MD_Message_updateString(MD_MessageHandle message, uint16_t id, const MD_String* value);

/* A byte buffer, copied. `value` is not checked for null. */
MD_C_API bool MD_Message_updateBuffer(MD_MessageHandle message, uint16_t id, const MD_Buffer* value);

/* The date, time and offset of `dt`, which is checked for null; other bits of it are not carried over. */
MD_C_API bool MD_Message_updateDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt);

/* Nanoseconds since 1970-01-01 UTC. */
MD_C_API bool MD_Message_updateEpochNS(MD_MessageHandle message, uint16_t id, uint64_t value);

/* ---- The message as a whole ---- */

/* Erases a field. False when it is absent. */
MD_C_API bool MD_Message_erase(MD_MessageHandle message, uint16_t id);

/* Erases `count` fields. True when all of them were present; those present are erased in either case. For a count of 0
 * and for an empty message the result is the encoding's. `ids` is checked for null, whatever the count. */
MD_C_API bool MD_Message_erase_array(MD_MessageHandle message, const uint16_t* ids, size_t count);

/* Removes all fields. */
MD_C_API void MD_Message_clear(MD_MessageHandle message);

/* Whether there is no field. True for a null handle. */
MD_C_API bool MD_Message_empty(MD_MessageHandle message);

/* Whether the field is present. */
MD_C_API bool MD_Message_exists(MD_MessageHandle message, uint16_t id);

/* The length of the serialised message in bytes. */
MD_C_API uint32_t MD_Message_getSize(MD_MessageHandle message);

/* The number of fields that can be found. */
MD_C_API uint64_t MD_Message_fieldCount(MD_MessageHandle message);

/* Reads a price kept in three integer fields: whole + numerator / denominator. An absent whole or numerator counts as
 * 0, an absent denominator as 100. False when none of the three can be read. A null `out` is checked. */
MD_C_API bool MD_Message_getWND(MD_MessageHandle message, uint16_t whole_id, uint16_t numerator_id,
                                uint16_t denominator_id, double* out);

/* Prints nothing. True for a handle that is not null. */
MD_C_API bool MD_Message_print(MD_MessageHandle message);

/* Writes the ids of all fields in wire order to ids[0], ids[1], ... and their number to `count`. There is no bound:
 * make room for every record of the message, which received bytes may make more than MD_Message_fieldCount (they can
 * repeat a field); no record is shorter than 2 bytes. Null `ids` and `count` are checked. True also when there are
 * none. */
MD_C_API bool MD_Message_getFieldIds(MD_MessageHandle message, uint16_t* ids, size_t* count);

/* ---- Date-times ---- */

/* A date-time of a date as the number yyyymmdd, a time of day below 2^28 and the exchange's offset from GMT, the two
 * last in units of the caller's own. Parts out of range are cut to their width. Never null. */
MD_C_API MD_DateTimeHandle MD_DateTime_new(int32_t date, int32_t time, int16_t exch_gmt_offset);

/* A date-time whose packed word is 0. Never null. */
MD_C_API MD_DateTimeHandle MD_DateTime_new_empty(void);

/* Deletes the date-time and its handle. */
MD_C_API void MD_DateTime_delete(MD_DateTimeHandle dt);

/* Writes the packed word to buffer[0] to buffer[7], little-endian. `buffer`, the first argument here, is checked. */
MD_C_API bool MD_DateTime_serialize(char* buffer, MD_DateTimeHandle dt);

/* Reads the packed word from buffer[0] to buffer[7]. The handle is the first argument here; `buffer` is checked. */
MD_C_API bool MD_DateTime_deserialize(MD_DateTimeHandle dt, const char* buffer);

/* The date as the number yyyymmdd. `out` is not checked, nor in the two below. */
MD_C_API bool MD_DateTime_date(MD_DateTimeHandle dt, int32_t* out);

/* The time of day. */
MD_C_API bool MD_DateTime_time(MD_DateTimeHandle dt, int32_t* out);

/* The exchange's offset from GMT. */
MD_C_API bool MD_DateTime_exch_gmt_offset(MD_DateTimeHandle dt, int16_t* out);

#ifdef __cplusplus
}
#endif

#endif
