/* A set of small numbers, one bit for each that can be a member, with a count of those that are.
 *
 * A set never grows. A null set has no members, and a number at or beyond its size is never one.
 */
#ifndef DT_CONTAINERS_DTSET_H
#define DT_CONTAINERS_DTSET_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The set; its bits follow it. */
typedef struct DTSet {
    uint32_t size; /* members are 0 to size - 1 */
    int32_t count; /* members present */
#ifndef __cplusplus
    uint8_t bits[]; /* i is present when bit i % 8 of byte i / 8 is 1; C++: use DTSet_Get */
#endif
} DTSet;

/* Returns an empty set, charged to owner id 0; null for a size of 0, without memory, and for a size
 * above 2^31 - 1, whose members could not be counted.
 */
DTSet *DTSet_New(uint32_t size);

/* 1 when the number is a member, else 0. */
int DTSet_Get(const DTSet *set, uint32_t member);

/* Adds (flag not 0) or removes (flag 0) a member. Returns 1 when that changed the set; 0 when the
 * number was in or out already, for null, and for a number at or beyond the size.
 */
int DTSet_Set(DTSet *set, uint32_t member, int32_t flag);

/* Frees the set; null is ignored. */
void DTSet_Release(DTSet *set);

#ifdef __cplusplus
}
#endif

#endif
