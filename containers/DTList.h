/* A singly linked list of values: addresses, or integers.
 *
 * A list with a free callback is dynamic: its nodes are tracked blocks, elements can be removed,
 * and the callback releases values that the list drops. A list without one is static: its nodes
 * come from the static pool, nothing is ever removed and the list is never released.
 *
 * Indices count from 0 at the head. Every indexed operation and every append walks from there.
 *
 * A compare callback may append to the list, which the search then does not visit, and must not
 * change it otherwise. free_value may read the list and append to it, but not release it; the
 * element that it is called for has left the list, and its count, before; its node is freed after
 * it.
 */
#ifndef DT_CONTAINERS_DTLIST_H
#define DT_CONTAINERS_DTLIST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Releases a value that the list drops. */
typedef void (*DTListFree)(uintptr_t value);

/* Returns 0 when the value matches the key. */
typedef int (*DTListCompare)(uintptr_t value, uintptr_t key);

/* Nodes lie in the static pool too, whose pieces are 4-byte aligned on any system. */
#if defined(__GNUC__)
typedef struct DTListNode *DTListLink __attribute__((aligned(4)));
typedef uintptr_t DTListValue __attribute__((aligned(4)));
#else
typedef struct DTListNode *DTListLink;
typedef uintptr_t DTListValue;
#endif

/* One element. */
typedef struct DTListNode {
    DTListLink next;   /* null: the last */
    DTListValue value; /* the caller's, never followed */
} DTListNode;

/* The list; walking from head by hand is allowed, changing is the functions' task. */
typedef struct DTList {
    int32_t length;        /* elements */
    int32_t max_length;    /* bound of DTList_Push alone; 0: none, below 0: always reached */
    DTListFree free_value; /* not null: a dynamic list */
    DTListLink head;       /* null: empty */
} DTList;

/* Returns an empty list, or null without memory. */
DTList *DTList_New(int32_t max_length, DTListFree free_value);

/* Number of elements; 0 for null. */
int32_t DTList_Length(const DTList *list);

/* Puts a value behind the element at position: -1 or less makes it the first, 0 the second, length
 * - 1 or more the last; in an empty list any position will do. Returns 1, or 0 with the list
 * unchanged for null or without memory for the node.
 */
int DTList_Insert(DTList *list, int32_t position, uintptr_t value);

/* Puts a value behind the last element. Returns as DTList_Insert. */
int DTList_Append(DTList *list, uintptr_t value);

/* Puts a value in front; a list that has reached max_length first drops its last element, through
 * free_value unless that element is 0 (a static list drops nothing and grows). Returns as
 * DTList_Insert; the dropped element stays dropped.
 */
int DTList_Push(DTList *list, uintptr_t value);

/* The value at index; an index below 0 gives the first; 0 for null or beyond the end. */
uintptr_t DTList_Get(const DTList *list, int32_t index);

/* Stores a value at index and returns the one it replaced. Beyond the end the list is extended by
 * elements of value 0 up to index and 0 is returned; 0 is also returned when there is no memory for
 * that (the elements appended so far stay), for null, and for an index below 0 (nothing changes):
 * where it matters, look again.
 */
uintptr_t DTList_Set(DTList *list, int32_t index, uintptr_t value);

/* The first value for which compare answers 0, or its index; 0 and -1 when there is none, and for a
 * null list or compare.
 */
uintptr_t DTList_Find(const DTList *list, DTListCompare compare, uintptr_t key);
int32_t DTList_FindPos(const DTList *list, DTListCompare compare, uintptr_t key);

/* Unlinks the element at index and returns its value, which is the caller's from then on. 0, with
 * nothing changed, for null, an index outside the list, and static lists.
 */
uintptr_t DTList_Remove(DTList *list, int32_t index);

/* DTList_Remove of the last and of the first element. */
uintptr_t DTList_PopTail(DTList *list);
uintptr_t DTList_Popup(DTList *list);

/* Empties a dynamic list; every value but 0 goes through free_value. Static lists stay as they are.
 */
void DTList_RemoveAll(DTList *list);

/* DTList_RemoveAll, and the list itself is freed; nothing for null and static lists. */
void DTList_Release(DTList *list);

#ifdef __cplusplus
}
#endif

#endif
