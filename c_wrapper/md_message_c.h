/* md_message_c.h: the C API of md_message.
 *
 * Conventions, for all functions unless documented otherwise:
 *
 * 1. Ownership. A handle owns one object. MD_mInt_new and MD_Message_createFromBytes create message handles, released
 *    by MD_Message_delete; MD_DateTime_new and MD_DateTime_new_empty create date-time handles, released by
 *    MD_DateTime_delete. Deleting NULL does nothing; deleting twice, or using a handle after its deletion, is
 *    undefined.
 * 2. Null arguments. A null handle, or another null pointer that is documented as checked, returns the null result of
 *    the function (false, 0; true for MD_Message_empty) without any other effect. All other pointers must be valid.
 * 3. Invalid handles. MD_Message_createFromBytes returns an invalid handle if it does not recognise the bytes; of these
 *    functions only MD_Message_delete may be called on it. Check the first byte before the call (1, 6 or 70), or
 *    MD_Message_getPB of md_message_c_ext.h after it.
 * 4. Lifetime of views. The views of MD_Message_getString and MD_Message_getBuffer belong to the message and are valid
 *    until the message is modified or deleted. A view is a valid argument of an add or update of the same message. The
 *    memory of a view that is added or updated is copied.
 * 5. Results. bool is true for success. A failed get leaves the output unchanged; the reason may be written to standard
 *    error. No function returns an error code or sets errno.
 * 6. Field ids are unsigned 16-bit numbers. The field dictionary of the process declares the type of each field. It is
 *    loaded on first use from the configuration search path (environment variable CONFIG_PATH).
 * 7. Threads. A handle belongs to one thread at a time; different handles are independent.
 * 8. Exceptions. If memory runs out, a function throws std::bad_alloc and leaves the message unchanged. The first use
 *    of the dictionary, when the first message is created, throws std::runtime_error if a dictionary file is found that
 *    cannot be loaded. A C program cannot catch these exceptions and ends. To avoid the latter, use the dictionary by a
 *    function of md_message_c_ext.h first (MD_FieldMap_size, or one that loads a dictionary).
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

/* An opaque handle of a message. */
typedef struct MD_MessageCell* MD_MessageHandle;
/* An opaque handle of a date-time. */
typedef struct MD_DateTimeCell* MD_DateTimeHandle;

/* Characters with their number, which excludes a terminating NUL. */
typedef struct MD_String {
  const char* data; /**< the first character */
  uint16_t length;  /**< number of characters */
} MD_String;

/* Bytes with their number. */
typedef struct MD_Buffer {
  const uint8_t* data; /**< the first byte */
  uint16_t length;     /**< number of bytes */
} MD_Buffer;

/* ---- Creating and deleting messages ---- */

/* A new empty message of the mInt encoding. Never null. */
MD_C_API MD_MessageHandle MD_mInt_new(void);

/* A message that holds a copy of `length` received bytes, in the encoding given by the first byte: 1 IterMap, 6 mInt,
 * 70 MsgT. Never null; the handle is invalid (convention 3) if `bytes` is null, `length` is 0, or the first byte is
 * another one. Unknown fields are dropped and reported on standard error. */
MD_C_API MD_MessageHandle MD_Message_createFromBytes(const unsigned char* bytes, uint32_t length);

/* Deletes the message and its handle. */
MD_C_API void MD_Message_delete(MD_MessageHandle message);

/* Replaces the contents by a copy of received bytes in the encoding of the message, including the header, which is not
 * checked. False if `bytes` is null. */
MD_C_API bool MD_Message_setBinary(MD_MessageHandle message, const unsigned char* bytes, uint32_t length);

/* ---- Reading a field ----
 * False, with the output unchanged, if the field is absent, of another type, or truncated. A null output pointer is
 * checked and returns false. */

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

/* Whether a date-time can be read from the field. `dt` is checked for null and otherwise unchanged: the value is not
 * returned. */
MD_C_API bool MD_Message_getDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt);

/* Nanoseconds since 1970-01-01 UTC. */
MD_C_API bool MD_Message_getEpochNS(MD_MessageHandle message, uint16_t id, uint64_t* out);

/* ---- Adding a field ----
 * False, with the message unchanged, if the field is already present, if the dictionary does not contain the id or
 * declares another type for it, or if the encoding cannot hold the value (mInt: strings of more than 254 characters,
 * buffers of more than 255 bytes). */

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
 * Replaces the value of a field, or adds the field if it is absent. A value of another length moves the field to the
 * end of the message. False if the value cannot be stored; in some encodings a refused update with a value of another
 * type removes the field. */

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

/* Erases a field. False if it is absent. */
MD_C_API bool MD_Message_erase(MD_MessageHandle message, uint16_t id);

/* Erases `count` fields. True if all of them were present; those present are erased in either case. For a count of 0
 * and for an empty message the result depends on the encoding. `ids` is checked for null, regardless of the count. */
MD_C_API bool MD_Message_erase_array(MD_MessageHandle message, const uint16_t* ids, size_t count);

/* Removes all fields. */
MD_C_API void MD_Message_clear(MD_MessageHandle message);

/* Whether there is no field. True for a null handle. */
MD_C_API bool MD_Message_empty(MD_MessageHandle message);

/* Whether the field is present. */
MD_C_API bool MD_Message_exists(MD_MessageHandle message, uint16_t id);

/* The length of the serialised message in bytes. */
MD_C_API uint32_t MD_Message_getSize(MD_MessageHandle message);

/* The number of different fields. */
MD_C_API uint64_t MD_Message_fieldCount(MD_MessageHandle message);

/* Reads a price stored in three integer fields: whole part + numerator / denominator. The default of a missing whole
 * part or numerator is 0, that of a missing denominator 100. False if none of the three can be read. A null `out` is
 * checked. */
MD_C_API bool MD_Message_getWND(MD_MessageHandle message, uint16_t whole_id, uint16_t numerator_id,
                                uint16_t denominator_id, double* out);

/* A no-op, kept for compatibility. True for a handle that is not null. */
MD_C_API bool MD_Message_print(MD_MessageHandle message);

/* Writes the ids of all fields in wire order to ids[0], ids[1], ... and their number to `count`. There is no capacity
 * check: provide space for every record of the message. Received bytes can repeat a field, so this can be more than
 * MD_Message_fieldCount; no record is shorter than 2 bytes. Null `ids` and `count` are checked. True also for no
 * fields.
 */
MD_C_API bool MD_Message_getFieldIds(MD_MessageHandle message, uint16_t* ids, size_t* count);

/* ---- Date-times ---- */

/* A date-time of a date as the number yyyymmdd, a time of day below 2^28 and the exchange's UTC offset. Recommended
 * units: hhmmssmmm (93000000 is 09:30:00.000) and minutes east of UTC. Parts out of range are reduced to their width.
 * Never null. */
MD_C_API MD_DateTimeHandle MD_DateTime_new(int32_t date, int32_t time, int16_t exch_gmt_offset);

/* A date-time whose packed word is 0. Never null. */
MD_C_API MD_DateTimeHandle MD_DateTime_new_empty(void);

/* Deletes the date-time and its handle. */
MD_C_API void MD_DateTime_delete(MD_DateTimeHandle dt);

/* Writes the packed word to buffer[0] to buffer[7], little-endian. `buffer`, the first argument here, is checked. */
MD_C_API bool MD_DateTime_serialize(char* buffer, MD_DateTimeHandle dt);

/* Reads the packed word from buffer[0] to buffer[7]. The handle is the first argument here; `buffer` is checked. */
MD_C_API bool MD_DateTime_deserialize(MD_DateTimeHandle dt, const char* buffer);

/* The date as the number yyyymmdd. `out` is not checked in this function and the two below. */
MD_C_API bool MD_DateTime_date(MD_DateTimeHandle dt, int32_t* out);

/* The time of day. */
MD_C_API bool MD_DateTime_time(MD_DateTimeHandle dt, int32_t* out);

/* The exchange's UTC offset. */
MD_C_API bool MD_DateTime_exch_gmt_offset(MD_DateTimeHandle dt, int16_t* out);

#ifdef __cplusplus
}
#endif

#endif
