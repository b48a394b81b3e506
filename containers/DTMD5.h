/* A 128-bit mixing function, and the default hash of DTHash made of it.
 *
 * It borrows MD5's functions, constants and rotations but keeps a schedule of its own: one block,
 * no padding, 40 steps. Its results are never those of MD5, and it protects nothing: it spreads
 * keys over buckets. Only the first 40 bytes of an input count.
 *
 * Nothing is kept between calls; they may run in several threads at once.
 */
#ifndef DT_CONTAINERS_DTMD5_H
#define DT_CONTAINERS_DTMD5_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DTMD5_COUNTED_BYTES 40u /* input bytes beyond these have no effect */

/* A context: the chaining words that inputs are mixed into. */
typedef struct DTMD5 {
    uint32_t counters[2]; /* set to 0 by DTMD5_Init and not used otherwise */
    uint32_t chain[4];    /* A, B, C, D */
} DTMD5;

/* Sets a context to its initial values; null is ignored. */
void DTMD5_Init(DTMD5 *context);

/* Mixes length bytes of input into the four chaining words, in one compression: the bytes are taken
 * as little-endian words, and what is missing to the block's end counts as 0. A length of 0 mixes
 * in a block of zeros. At most the first 40 bytes are read.
 *
 * Returns 1, or 0 with the words unchanged when either address is null.
 */
int DTMD5_Encode(uint32_t chain[4], const void *input, uint32_t length);

/* The sum, modulo 2^32, of the chaining words after one compression of the key, reduced to 0 to
 * modulus - 1. 0 for a null key and for a modulus of 0.
 */
uint32_t DTMD5_Hash(const void *key, uint32_t length, uint32_t modulus);

#ifdef __cplusplus
}
#endif

#endif
