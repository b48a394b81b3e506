/* Accounted heap memory, a static pool, and bounds-checked memory blocks.
 *
 * Every block is charged to a numeric owner id, of which the low 8 bits count: DTMem_Show lists per
 * id the bytes outstanding, the allocations and the frees. libdt's own modules use id 0, the
 * collection subsystem id 100; applications may use any other.
 *
 * A size so large that its bookkeeping would wrap 32 bits counts as exhausted memory.
 */
#ifndef DT_FOUNDATION_DTMEM_H
#define DT_FOUNDATION_DTMEM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Returns size uninitialised bytes charged to owner id, or null when the platform has no memory.
 * Their alignment is what the platform makes of it (see VRK_Malloc), 4 bytes at least. The
 * accounting counts size + 4 bytes. Give the block back with DTMem_Free under the same id: the id
 * is not kept in the block, and a free under another id moves the bytes between the entries.
 */
void *DTMem_Malloc(uint32_t id, uint32_t size);

/* Frees what DTMem_Malloc returned; null is ignored. The block goes back to the platform before the
 * accounts change.
 */
void DTMem_Free(uint32_t id, void *address);

/* DTMem_Malloc and DTMem_Free with owner id 0. */
void *DTMem_LocalMalloc(uint32_t size);
void DTMem_LocalFree(void *address);

/* Returns at least size bytes that live until the process ends; null for a size of 0 or when no
 * memory is left. Sizes are rounded up to a multiple of 4. Up to 0x80000 bytes are carved from
 * chunks of 1 MiB, which are charged to the id whose request caused them; larger requests, and all
 * requests while no chunk can be had, become blocks of their own. Pieces are 4-byte aligned.
 */
void *DTMem_Malloc_Static(uint32_t id, uint32_t size);

/* DTMem_Malloc_Static with owner id 0. */
void *DTMem_LocalMalloc_Static(uint32_t size);

/* Prints on the console one line for each owner id that holds memory (id, bytes, allocations,
 * frees), then the state of the static pool.
 */
void DTMem_Show(void);

/* A byte area that knows its size; offsets count from its first data byte. */
typedef struct DTMem {
    uint32_t size;      /* data bytes; every access is checked against it */
    uint32_t is_static; /* not 0: from the static pool, never freed and never grown */
#ifndef __cplusplus
    uint8_t data[]; /* the bytes; C++ has no such members: use DTMem_Get */
#endif
} DTMem;

/* Returns a block of size uninitialised bytes, charged to owner id 0, or null without memory.
 * is_static not 0 takes it from the static pool.
 */
DTMem *DTMem_New(uint32_t size, uint32_t is_static);

/* Frees a block; null and static blocks are left alone. */
void DTMem_Release(DTMem *block);

/* Returns the address of the data byte at offset; null for a null block or an offset not below its
 * size. Valid until the block is grown or released.
 */
void *DTMem_Get(DTMem *block, uint32_t offset);

/* Compares length bytes at offset with bytes, with memcmp's result. -1 for a null block, null
 * bytes, or a range that does not lie wholly in the block; nothing is read then.
 */
int DTMem_memcmp(const DTMem *block, uint32_t offset, const void *bytes, uint32_t length);

/* Fills, reads and writes length bytes at offset, cut at the block's end. The other side may lie in
 * the block itself. The results are the number of bytes copied: 0 for a null block or address or an
 * offset not below the size.
 */
void DTMem_memset(DTMem *block, uint32_t offset, int value, uint32_t length);
uint32_t DTMem_memget(const DTMem *block, uint32_t offset, void *to, uint32_t length);
uint32_t DTMem_memcpy(DTMem *block, uint32_t offset, const void *from, uint32_t length);

/* Replaces a block by one of new_size bytes that begins with the old content (as much as fits;
 * bytes beyond it are uninitialised), and frees the old one. A static block is returned unchanged.
 * Null for a null block, or without memory: then the old block stays valid and the caller's.
 */
DTMem *DTMem_realloc(DTMem *block, uint32_t new_size);

#ifdef __cplusplus
}
#endif

#endif
