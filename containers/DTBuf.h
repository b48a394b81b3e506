/* A growable array of fixed-size elements in one zero-filled area; with an element size of 1 a text
 * buffer. Counts and indices are in elements. No terminator is kept: behind the text there is a 0
 * from the zero fill unless the buffer is exactly full.
 */
#ifndef DT_CONTAINERS_DTBUF_H
#define DT_CONTAINERS_DTBUF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The buffer; to be read, and changed through the functions alone. */
typedef struct DTBuf {
    uint32_t capacity; /* elements that the area holds */
    uint32_t step;     /* a new area's bytes are a multiple of this */
    uint32_t unit;     /* bytes per element */
    uint32_t length;   /* elements in use */
    uint8_t *data;     /* the area: capacity * unit bytes */
} DTBuf;

/* Returns an empty buffer with room for capacity elements of unit bytes. step is the growth step in
 * bytes; 0 stands for as many bytes as capacity has elements. Null without memory, for a unit of 0,
 * and when capacity and step are both 0.
 */
DTBuf *DTBuf_New(uint32_t unit, uint32_t capacity, uint32_t step);

/* Frees the buffer and its area; null is ignored. */
void DTBuf_Release(DTBuf *buf);

/* Elements in use; 0 for null. */
uint32_t DTBuf_Length(const DTBuf *buf);

/* Zeroes what is in use and empties the buffer; the area keeps its size. */
void DTBuf_Clear(DTBuf *buf);

/* Stores the address of the element at index in *result and returns length - index + 1 (one more
 * than the elements from there to the end); stores null and returns 0 at or beyond the length. A
 * null buffer or result returns 0 and stores nothing. The address is valid until the buffer grows
 * or is released.
 */
uint32_t DTBuf_Get(const DTBuf *buf, uint32_t index, void **result);

/* Copies count elements behind the last one. A count of 0 takes from as a text, without its
 * terminator: the count is then the text's length in bytes, whatever the size of an element, and
 * from must hold that many elements. from may lie in the buffer itself. Returns 1, or 0 with the
 * buffer unchanged for a null buffer or source, or when it cannot grow.
 */
int DTBuf_Append(DTBuf *buf, const void *from, uint32_t count);

/* Copies count elements to index and following, growing the area when needed; the length stays, and
 * what lies at or beyond it is lost at the next growth. Returns as DTBuf_Append.
 */
int DTBuf_Set(DTBuf *buf, uint32_t index, const void *from, uint32_t count);

#ifdef __cplusplus
}
#endif

#endif
