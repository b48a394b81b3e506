/* A hash table from keys of a fixed number of bytes to values of a fixed number of bytes.
 *
 * Keys and values are copied into the table, and keys are compared byte for byte. The number of
 * buckets never changes; a bucket is a list, newest entry first, that is made when it is first
 * needed and stays. A dynamic table's entries are tracked blocks; a static table's come from the
 * static pool, are never removed, and the table is never released. All is charged to owner id 0.
 *
 * An entry is its key followed directly by its value: a value is aligned for its type only where
 * the key size leaves it so, and in a static table to 4 bytes at best. Where that does not do, copy
 * it out.
 */
#ifndef DT_CONTAINERS_DTHASH_H
#define DT_CONTAINERS_DTHASH_H

#include "DTList.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Chooses a key's bucket; any result will do, it is reduced to the number of buckets. */
typedef uint32_t (*DTHashFunction)(const void *key, uint32_t key_size, uint32_t bucket_count);

/* Returns 0 for the entry looked for. It may change the value, but must not delete entries. */
typedef int (*DTHashMatch)(const void *key, void *value, void *argument);

/* The table; its fields are set once, when it is made. */
typedef struct DTHash {
    DTList **buckets;      /* bucket_count lists of entry addresses; null: not used yet */
    uint32_t bucket_count; /* never changes */
    DTHashFunction hash;   /* never null: DTMD5_Hash unless another was given */
    uint32_t key_size;     /* bytes of every key */
    uint32_t value_size;   /* bytes of every value */
    uint32_t is_static;    /* not 0: nothing is ever removed or released */
} DTHash;

/* Returns an empty table; is_static not 0 makes it static.
 *
 * key_size, value_size  bytes, each may be 0.
 * bucket_count          at least 1.
 * hash                  null: DTMD5_Hash, by which keys that agree in their first 40 bytes share a
 *                       bucket.
 *
 * Null, with nothing left allocated, without memory, for no bucket, and for sizes whose sum or
 * whose array of buckets would not fit into 32 bits.
 */
DTHash *DTHash_NewEx(uint32_t key_size, uint32_t value_size, uint32_t bucket_count,
                     DTHashFunction hash, uint32_t is_static);

/* DTHash_NewEx of a dynamic table. */
DTHash *DTHash_New(uint32_t key_size, uint32_t value_size, uint32_t bucket_count,
                   DTHashFunction hash);

/* Stores a value: over the one that the key has, in place, or as a new entry, the first of its
 * bucket. Returns 1, or 0 with every entry as it was without memory, for a null table or key, and
 * for a null value that has bytes.
 */
int DTHash_Set(DTHash *table, const void *key, const void *value);

/* Looks a key up: 1 with the address of its value in *result, 0 with null there when it is absent
 * (a null key always is). A null table answers 0 and stores nothing; with a null result the answer
 * alone is given.
 *
 * The address is that of the value in the table: what is written there changes it. It is valid
 * until the entry is deleted or the table released.
 */
int DTHash_Get(const DTHash *table, const void *key, void **result);

/* Returns the first entry for which match answers 0: the address of its key, behind which the value
 * lies. Buckets go in ascending order, their entries from the newest. Null when there is none and
 * for a null table or match.
 */
void *DTHash_Find(const DTHash *table, DTHashMatch match, void *argument);

/* Removes a key's entry and frees it; nothing when it is absent and in static tables. */
void DTHash_Delete(DTHash *table, const void *key);

/* Frees a dynamic table with all its entries; null and static tables are left alone. */
void DTHash_Release(DTHash *table);

/* Prints every entry on the console, key and value as hex dumps, in the order of DTHash_Find. */
void DTHash_Show(DTHash *table);

/* Prints the number of entries of every bucket that has been used, the empty ones too. */
void DTHash_ShowDepth(const DTHash *table);

#ifdef __cplusplus
}
#endif

#endif
