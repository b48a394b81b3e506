#include "foundation/DTMem.h"

#include "base/bytes.h"
#include "foundation/DTPrint.h"
#include "foundation/DTString.h"
#include "platform/vrk.h"

#include <string.h>

namespace {

constexpr uint32_t prefix_size = 4;
constexpr uint32_t chunk_size = 0x100000;
constexpr uint32_t largest_piece = 0x80000;
constexpr uint32_t owners = 256;

uint32_t DTMem_Size[owners];
uint32_t DTMem_MallocCnt[owners];
uint32_t DTMem_FreeCnt[owners];

uint8_t *static_mem;
uint32_t l_static_leftsize;
uint32_t l_static_times;
uint32_t l_static_malloc_times;

void *carve(uint32_t size) {
    void *piece = static_mem;
    static_mem += size;
    l_static_leftsize -= size;
    ++l_static_malloc_times;
    return piece;
}

// Abandons what is left of the current chunk. Without memory there is no current chunk any more.
bool new_chunk(uint32_t id) {
    static_mem = static_cast<uint8_t *>(DTMem_Malloc(id, chunk_size));
    if (!static_mem) return false;
    ++l_static_times;
    l_static_leftsize = chunk_size;
    return true;
}

bool holds(const DTMem *block, uint32_t offset) { return block && offset < block->size; }

// How much of length bytes at an offset inside the block lies inside it too.
uint32_t clamped(const DTMem *block, uint32_t offset, uint32_t length) {
    const uint32_t rest = block->size - offset;
    return length < rest ? length : rest;
}

void show_line(const char *line) { DTPrint_Puts(line, 0); }

} // namespace

static_assert(sizeof(DTMem) == 8, "a block is its data and 8 bytes");

void *DTMem_Malloc(uint32_t id, uint32_t size) {
    if (size > UINT32_MAX - prefix_size) return nullptr;
    char *raw = static_cast<char *>(VRK_Malloc(size + prefix_size));
    if (!raw) return nullptr;
    dt::store(raw, size);
    DTMem_Size[id & 0xFF] += size + prefix_size;
    ++DTMem_MallocCnt[id & 0xFF];
    return raw + prefix_size;
}

void DTMem_Free(uint32_t id, void *address) {
    if (!address) return;
    char *raw = static_cast<char *>(address) - prefix_size;
    const uint32_t size = dt::load<uint32_t>(raw);
    VRK_Free(raw);
    DTMem_Size[id & 0xFF] -= size + prefix_size;
    ++DTMem_FreeCnt[id & 0xFF];
}

void *DTMem_LocalMalloc(uint32_t size) { return DTMem_Malloc(0, size); }

void DTMem_LocalFree(void *address) { DTMem_Free(0, address); }

void *DTMem_Malloc_Static(uint32_t id, uint32_t size) {
    if (size == 0 || size > UINT32_MAX - 3) return nullptr;
    const uint32_t rounded = (size + 3) & ~uint32_t{3};
    if (rounded > largest_piece) return DTMem_Malloc(id, rounded);
    const bool fits = static_mem && rounded <= l_static_leftsize;
    if (!fits && !new_chunk(id)) return DTMem_Malloc(id, rounded);
    return carve(rounded);
}

void *DTMem_LocalMalloc_Static(uint32_t size) { return DTMem_Malloc_Static(0, size); }

void DTMem_Show(void) {
    show_line("   id        size    malloc    free");
    show_line("-------------------------------------");
    for (uint32_t id = 0; id < owners; ++id) {
        if (DTMem_Size[id] == 0) continue;
        show_line(DTString_SFormat("  %3d  0x%08x      %4d    %4d", static_cast<int>(id),
                                   DTMem_Size[id], static_cast<int>(DTMem_MallocCnt[id]),
                                   static_cast<int>(DTMem_FreeCnt[id])));
    }
    show_line("");
    show_line(DTString_SFormat("static memory : left         = 0x%08x", l_static_leftsize));
    show_line(
        DTString_SFormat("static memory : times        = %d", static_cast<int>(l_static_times)));
    show_line(DTString_SFormat("static memory : malloc times = %d",
                               static_cast<int>(l_static_malloc_times)));
}

DTMem *DTMem_New(uint32_t size, uint32_t is_static) {
    if (size > UINT32_MAX - sizeof(DTMem)) return nullptr;
    const uint32_t whole = size + static_cast<uint32_t>(sizeof(DTMem));
    void *memory = is_static ? DTMem_LocalMalloc_Static(whole) : DTMem_LocalMalloc(whole);
    DTMem *block = static_cast<DTMem *>(memory);
    if (!block) return nullptr;
    block->size = size;
    block->is_static = is_static;
    return block;
}

void DTMem_Release(DTMem *block) {
    if (block && !block->is_static) DTMem_LocalFree(block);
}

void *DTMem_Get(DTMem *block, uint32_t offset) {
    return holds(block, offset) ? dt::behind(block) + offset : nullptr;
}

int DTMem_memcmp(const DTMem *block, uint32_t offset, const void *bytes, uint32_t length) {
    if (!holds(block, offset) || !bytes || length > block->size - offset) return -1;
    return memcmp(dt::behind(block) + offset, bytes, length);
}

void DTMem_memset(DTMem *block, uint32_t offset, int value, uint32_t length) {
    if (!holds(block, offset)) return;
    memset(dt::behind(block) + offset, value, clamped(block, offset, length));
}

uint32_t DTMem_memget(const DTMem *block, uint32_t offset, void *to, uint32_t length) {
    if (!holds(block, offset) || !to) return 0;
    const uint32_t count = clamped(block, offset, length);
    memmove(to, dt::behind(block) + offset, count);
    return count;
}

uint32_t DTMem_memcpy(DTMem *block, uint32_t offset, const void *from, uint32_t length) {
    if (!holds(block, offset) || !from) return 0;
    const uint32_t count = clamped(block, offset, length);
    memmove(dt::behind(block) + offset, from, count);
    return count;
}

DTMem *DTMem_realloc(DTMem *block, uint32_t new_size) {
    if (!block || block->is_static) return block;
    DTMem *grown = DTMem_New(new_size, 0);
    if (!grown) return nullptr;
    memcpy(dt::behind(grown), dt::behind(block), clamped(block, 0, new_size));
    DTMem_LocalFree(block);
    return grown;
}
