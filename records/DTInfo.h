/* The record store: a bounded ring of records, each a key and a value.
 *
 * A store begins with 1024 bytes and grows to its maximum; then the oldest records make room for
 * new ones. Growing doubles the block, by 256 KiB at most, and copies it: to 64 MiB it takes 263
 * steps that copy 8 GiB together (5 seconds of a desktop processor), the last of them with 128 MiB
 * allocated, so give stores a maximum that suits. Operations on a null store do nothing or answer
 * as without records. Records are read by a walk from the oldest to the newest. Everything is
 * charged to owner id 0. Layout: docs/formats.md, "Record store".
 */
#ifndef DT_RECORDS_DTINFO_H
#define DT_RECORDS_DTINFO_H

#include "../foundation/DTMem.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DTINFO_FIRST 0xFFFFFFFFu /* a walk's position before its first record */
#define DTINFO_FLAGS 2000u       /* ids that have a flag */
#define DTINFO_MAX_KEY 254u      /* bytes of a key */
#define DTINFO_MAX_VALUE 65535u  /* bytes of a value */

/* The store; only a caller of DTInfo_PackPre changes a field itself. */
typedef struct DTInfo {
    DTMem *memory;     /* the ring's bytes */
    uint32_t max_size; /* the block grows to this many bytes; 0: without limit, nothing is erased */
    uint32_t free_addr;              /* offset of the next record to be written */
    uint32_t use_addr;               /* offset of the oldest record */
    uint32_t free_size;              /* free bytes in one piece from free_addr on */
    uint32_t ignore;                 /* not 0: appends are dropped */
    uint8_t flags[DTINFO_FLAGS / 8]; /* flag n is bit n % 8 of byte n / 8 */
} DTInfo;

/* Returns an empty store with all flags clear, or null without memory. max_size is in bytes and
 * rounded up to a multiple of 1024, at most to 0xFFFFFC00; 0 means no limit.
 */
DTInfo *DTInfo_New(uint32_t max_size);

/* Changes the maximum, which empties the store unless it stays the same after rounding. Returns 1,
 * or 0 for null or without memory; the store may then be without a block, until a resize succeeds.
 */
int DTInfo_ReSize(DTInfo *store, uint32_t max_size);

/* Drops all records; the block keeps its size. */
void DTInfo_Clear(DTInfo *store);

/* Frees the store; null is ignored. */
void DTInfo_Release(DTInfo *store);

/* With a value other than 0 appends are dropped from now on; reading goes on as before. */
void DTInfo_Ignore(DTInfo *store, uint32_t value);

/* Sets the flag of an id (mode 1), sets all (2), clears all (3), or clears the flag (any other
 * mode). Nothing for an id of 2000 or more.
 */
void DTInfo_SetFlag(DTInfo *store, uint32_t id, int32_t mode);

/* The flag of an id, 0 or 1; ids of 2000 and more are always set. */
int DTInfo_GetFlag(const DTInfo *store, uint32_t id);

/* Appends a record of key_len key bytes (at most 254) and value_len value bytes, erasing the oldest
 * records for it when the store is at its maximum. Neither may lie in the store itself; null is as
 * good as any address when its length is 0.
 *
 * Returns the bytes that the record takes, key_len + value_len + 3; 0 when appends are ignored; -1
 * for null, a key that is too long, a record larger than the maximum, positions that cannot be, or
 * without memory to grow: nothing is written then. A refused key or size erases nothing.
 */
int32_t DTInfo_Append(DTInfo *store, const void *key, uint8_t key_len, const void *value,
                      uint16_t value_len);

/* Appends one record whose value is part1 followed by part2, together at most 65535 bytes. Returns
 * 1, also when appends are ignored, and 0 where DTInfo_Append returns -1.
 */
int32_t DTInfo_Append2Message(DTInfo *store, const void *key, uint8_t key_len, const void *part1,
                              uint16_t len1, const void *part2, uint16_t len2);

/* DTInfo_Append of two texts without their terminators; -1 also for a null text and for one longer
 * than a key can be. Of the value's length the low 16 bits count, and so many bytes are stored: of
 * a text of 65,536 bytes none.
 */
int32_t DTInfo_Write(DTInfo *store, const char *key, const char *value);

/* Makes room for a record and writes all of it but the value; key_len 0 means the key's text
 * length, and of value_len the low 16 bits count. The caller then writes exactly that many bytes at
 * DTMem_Get(store->memory, store->free_addr), adds them to free_addr and takes them from free_size.
 * Returns 1, or 0 when nothing was written: null, appends ignored, a key above 254 bytes, no room.
 */
int32_t DTInfo_PackPre(DTInfo *store, const void *key, uint32_t key_len, uint32_t value_len);

/* Reads the next record, oldest first.
 *
 * key, key_len  bytes that the record's key must begin with, a key_len of 0 meaning the key's text
 *               length; null or no bytes: any record. The filter is compared with the bytes from
 *               the record's key on: one that is longer than the key goes on into what follows.
 * pos           in/out; DTINFO_FIRST before the first call, left alone between calls.
 * rec_key, rec_key_len, value, value_len
 *               out, each may be null; no terminators. An empty value at the block's very end has
 *               the address one past the last byte.
 *
 * Returns 1, or 0 with the outputs untouched at the end of the walk and for null. The addresses lie
 * inside the store and die with its next append, resize, clear or release.
 */
int DTInfo_Get(DTInfo *store, const void *key, uint8_t key_len, uint32_t *pos,
               const uint8_t **rec_key, uint8_t *rec_key_len, const uint8_t **value,
               uint16_t *value_len);

/* Reads the next record of any key as DTInfo_Get does. Writes "*" and its key into format_out, a
 * show-mode format when the key is a pack format: room for 256 characters always suffices.
 */
int DTInfo_GetPack(DTInfo *store, uint32_t *pos, char *format_out, const uint8_t **value);

/* Appends a typed info record, stamped with the current time. Its key is its own pack format,
 * "TBhI%dS%dS%dS" with the lengths of its strings filled in (see DTBuffer.h): time, type, id (the
 * low 16 bits), value and three byte strings.
 *
 * id     data3 is recorded only when the flag of the whole id is set (DTInfo_SetFlag); ids of 2000
 *        and more always count as set. Otherwise its length counts as 0.
 * data1, len1, data2, len2, data3, len3
 *        lengths in bytes; a string may be null when its length is 0. None may lie in the store.
 *
 * Nothing is appended for null, when appends are ignored, without room, for a record of more than
 * 65535 bytes, and for a recorded string that has a length below 0 or, with a length, no address.
 */
void DTInfo_AddInfo(DTInfo *store, uint8_t type, uint32_t id, const void *data1, int32_t len1,
                    const void *data2, int32_t len2, const void *data3, int32_t len3,
                    uint32_t value);

/* Shows the selected info records on the console, oldest first, each as "index=", its number and
 * the dump of its fields; then, without a line break, the number of records selected.
 *
 * A record is selected when it meets every filter:
 * id          -1: any; otherwise the low 16 bits are compared.
 * hex1, hex2  the bytes that the first and the second string must begin with, as pairs of hex
 *             digits, each read as strtol does (a pair that is no number counts as 0). An odd last
 *             digit is ignored, as is what follows the 200th byte. Null or empty: any string.
 * value       0: any; 0xFFFFFFFF: any but 0.
 * type        0: any.
 * from, to    of the records selected, which are numbered from 1, those above from are shown, up to
 *             and including to; a to of 0 means no end. The others are counted all the same.
 *
 * Strings of any length are compared and shown. A record that is not an info record, by its key or
 * because its value is shorter than its key says, is skipped and not counted.
 */
void DTInfo_ShowInfo(DTInfo *store, int32_t id, const char *hex1, const char *hex2, uint32_t value,
                     uint32_t type, uint32_t from, uint32_t to);

/* Prints the store's addresses and sizes on standard output, seven lines. */
void DTLogger_Dump(const DTInfo *store);

/* Whether stores report on standard output each time room has to be made, and how they grow. A
 * switch of the whole process, on (1) until turned off (0).
 */
void DTInfo_SetTrace(int on);

#ifdef __cplusplus
}
#endif

#endif
