/* The pack format: a short text names, letter by letter, the fields of a packed record.
 *
 *   B b   1 byte            shown in hex, in decimal
 *   H h   2 bytes           shown in hex, in decimal, both with their sign
 *   I i   4 bytes           shown in hex, in decimal
 *   T     4 bytes           a time in seconds, shown as date and time; 0 shows the current time
 *   s S   count bytes       shown as text up to its first zero byte, as a hex dump
 *
 * The count stands before the letter, "12s"; before any other letter it is ignored, and beyond 31
 * bits it is held at the largest. Any other character makes no field and drops a count. Fields
 * follow each other without gaps, in the host's byte order. Layout: docs/formats.md, "Pack
 * language".
 */
#ifndef DT_RECORDS_DTBUFFER_H
#define DT_RECORDS_DTBUFFER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the bytes that a record of this format takes (at most 2^31 - 1) and, unless field_count
 * is null, stores the number of its fields. A null format has none.
 */
int32_t DTBuffer_GetPackSize(const char *format, int32_t *field_count);

/* Packs one argument per letter into buffer and returns the bytes written; a null buffer returns 0.
 *
 * B b H h  an int, of which the low bits are written.
 * I i T    a 32-bit value: cast a time_t or a 64-bit value.
 * s S      the address of count readable bytes. A count of 0 still takes an argument.
 *
 * The plain form trusts that the record fits; the sized form writes nothing and returns -1 when it
 * does not fit into size bytes.
 */
int32_t DTBuffer_Pack(void *buffer, const char *format, ...);
int32_t DTBuffer_PackN(void *buffer, uint32_t size, const char *format, ...);

/* Reads a record and returns the number of its fields.
 *
 * One pointer per letter receives the field: a byte, a 2-byte or 4-byte object, and for s and S an
 * array of count + 1 bytes, which is terminated at index count.
 *
 * A format that begins with "*" shows the record instead: "format:" and the format, then a line per
 * field (an S field's dump goes on the next lines) on the console; no further arguments. Fields of
 * any length are shown whole.
 *
 * The plain form trusts that buffer holds the whole record; the sized form stops before the first
 * field that does not lie wholly in length bytes and returns -1; the fields before it have been
 * stored or shown. A null format: 0. A null buffer holds fields of no bytes alone: both forms stop
 * before the first field that has any and return the number of those before it.
 */
int32_t DTBuffer_UNPack(const char *format, const void *buffer, ...);
int32_t DTBuffer_UNPackN(const char *format, const void *buffer, uint32_t length, ...);

#ifdef __cplusplus
}
#endif

#endif
