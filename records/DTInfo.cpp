#include "records/DTInfo.h"

#include "base/bytes.h"
#include "base/text.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t block_unit = 1024;
constexpr uint32_t largest_growth = 256 * 1024;
constexpr uint32_t frame_size = 3;  // a record without its key and value
constexpr uint8_t free_byte = 0xFF; // where a key length would be: no record starts here

static_assert(DTINFO_MAX_KEY < free_byte, "a key length is never taken for free space");

bool l_trace = true;

struct Bytes {
    const void *data;
    uint32_t length;

    bool usable() const { return data || length == 0; }
};

struct Record {
    const uint8_t *key;
    const uint8_t *value;
    uint8_t key_len;
    uint16_t value_len;

    uint32_t size() const { return frame_size + key_len + value_len; }
};

// Erased records whose bytes are not free bytes yet: what is appended covers most of them.
struct Erased {
    uint32_t from = 0;
    uint32_t to = 0;
};

uint32_t block_size(const DTInfo *store) { return store->memory->size; }

uint8_t *block(const DTInfo *store) { return dt::behind(store->memory); }

bool is_empty(const DTInfo *store) {
    return store->use_addr == store->free_addr && store->free_size != 0;
}

// An empty store counts as wrapped; who walks asks for that first.
bool is_wrapped(const DTInfo *store) { return store->free_addr <= store->use_addr; }

// What would leave 32 bits is held at the largest.
uint32_t rounded_up(uint32_t size) {
    const uint32_t largest = UINT32_MAX / block_unit * block_unit;
    return size < largest ? (size + block_unit - 1) / block_unit * block_unit : largest;
}

// The one reader of records. False where no whole record lies: a position that a walk kept while
// records were erased may point anywhere. Inline: every append to a full store and every step of a
// walk reads one.
[[gnu::always_inline]] inline bool read_record(const DTInfo *store, uint32_t at, Record *record) {
    if (at >= block_size(store)) return false;
    const uint8_t *start = block(store) + at;
    const uint32_t rest = block_size(store) - at;
    const uint8_t key_len = *start;
    if (key_len == free_byte || rest < frame_size + key_len) return false;
    const uint16_t value_len = dt::load<uint16_t>(start + 1 + key_len);
    *record = {start + 1, start + frame_size + key_len, key_len, value_len};
    return record->size() <= rest;
}

// The one writer of records: all but the value, whose place is returned.
uint8_t *write_frame(const DTInfo *store, Bytes key, uint32_t value_len) {
    dt::ByteWriter to(block(store) + store->free_addr);
    return to.put(static_cast<uint8_t>(key.length))
        .put_key(key.data, key.length)
        .put(static_cast<uint16_t>(value_len))
        .end();
}

void advance(DTInfo *store, uint32_t size) {
    store->free_addr += size;
    store->free_size -= size;
}

void dump(const DTInfo *store) {
    if (l_trace) DTLogger_Dump(store);
}

// Every append to a full store reports its size: printf would cost more than the append.
[[gnu::noinline]] void trace_size(uint32_t needed) {
    char text[16] = "size ";
    const char *end = dt::put_number(text + 5, static_cast<int32_t>(needed), 1);
    fwrite(text, 1, static_cast<size_t>(end - text), stdout);
}

// 1: the room is there, 2: there is more of it than before.
int progress(const DTInfo *store, uint32_t needed) { return needed <= store->free_size ? 1 : 2; }

[[gnu::noinline]] int grow(DTInfo *store, uint32_t needed, uint32_t growth) {
    dump(store);
    const uint32_t old_size = block_size(store);
    DTMem *grown =
        growth <= UINT32_MAX - old_size ? DTMem_realloc(store->memory, old_size + growth) : nullptr;
    if (!grown) return 0;
    store->memory = grown;
    DTMem_memset(grown, old_size, free_byte, growth);
    store->free_size += growth;
    if (l_trace)
        printf("add size %d, new size %d freesize %d\n", static_cast<int>(growth),
               static_cast<int>(block_size(store)), static_cast<int>(store->free_size));
    dump(store);
    return progress(store, needed);
}

uint32_t doubling(const DTInfo *store, uint32_t needed) {
    const uint32_t missing = needed - store->free_size;
    const uint32_t size = block_size(store);
    const uint32_t growth = size < largest_growth ? size : largest_growth;
    return growth < missing ? rounded_up(missing) : growth;
}

// Near the maximum the block grows straight to it.
uint32_t bounded_growth(const DTInfo *store, uint32_t needed) {
    const uint32_t left = store->max_size - block_size(store);
    const bool near = left < block_size(store) || needed >= uint64_t{left} + store->free_size;
    return near ? left : doubling(store, needed);
}

// The oldest position goes to the block's start: the write position now ends the free piece.
void unwrap(DTInfo *store) {
    store->use_addr = 0;
    store->free_size = block_size(store) - store->free_addr;
}

// All but those in front of a position.
void set_free(const DTInfo *store, const Erased &erased, uint32_t covered_to) {
    const uint32_t from = covered_to > erased.from ? covered_to : erased.from;
    if (from < erased.to) memset(block(store) + from, free_byte, erased.to - from);
}

int erase_oldest(DTInfo *store, uint32_t needed, Erased *erased) {
    if (!is_wrapped(store)) {
        set_free(store, *erased, 0); // as the tail of the block, behind the newest record
        *erased = {};
        store->free_addr = 0;
        store->free_size = 0;
    }
    if (store->use_addr >= block_size(store)) return 0;
    if (block(store)[store->use_addr] == free_byte) { // the tail of the older records' cycle
        unwrap(store);
        return 2;
    }
    Record oldest;
    if (!read_record(store, store->use_addr, &oldest)) return 0;
    const uint32_t size = oldest.size();
    if (store->use_addr != erased->to) erased->from = store->use_addr;
    store->use_addr += size;
    erased->to = store->use_addr;
    store->free_size += size;
    if (store->use_addr >= block_size(store)) unwrap(store);
    return progress(store, needed);
}

// One step towards the room needed. 0: there is none, 1: it is there, 2: ask again.
int DTInfo_FreeSize_(DTInfo *store, uint32_t needed, Erased *erased) {
    if (l_trace) trace_size(needed);
    if (needed <= store->free_size) return 1;
    if (store->max_size == 0) return grow(store, needed, doubling(store, needed));
    if (needed > store->max_size) return 0;
    if (block_size(store) < store->max_size)
        return grow(store, needed, bounded_growth(store, needed));
    return erase_oldest(store, needed, erased);
}

// Of the room the caller writes the first bytes; the others are free bytes.
bool make_room(DTInfo *store, uint32_t needed, uint32_t written) {
    if (needed <= store->free_size) return true;
    Erased erased;
    int answer = 2;
    while (answer == 2) answer = DTInfo_FreeSize_(store, needed, &erased);
    set_free(store, erased, answer == 1 ? store->free_addr + written : 0);
    return answer == 1;
}

bool is_sound(const DTInfo *store) {
    return store->memory && store->free_addr <= block_size(store) &&
           store->free_size <= block_size(store) - store->free_addr;
}

// Room for a record, and its frame written: the place of its value, or null with nothing written.
// The write position stays; so many bytes of the value are for the caller to write.
uint8_t *begin_record(DTInfo *store, Bytes key, uint32_t value_len, uint32_t written) {
    const bool fits = key.length <= DTINFO_MAX_KEY && value_len <= DTINFO_MAX_VALUE;
    if (!is_sound(store) || !fits || !key.usable()) return nullptr;
    const uint32_t frame = frame_size + key.length;
    if (!make_room(store, frame + value_len, frame + written)) return nullptr;
    return write_frame(store, key, value_len);
}

void put(uint8_t *to, Bytes bytes) {
    if (bytes.length != 0) memcpy(to, bytes.data, bytes.length);
}

// The size of the record appended, or -1.
int32_t append(DTInfo *store, Bytes key, Bytes value) {
    uint8_t *to = value.usable() ? begin_record(store, key, value.length, value.length) : nullptr;
    if (!to) return -1;
    put(to, value);
    const uint32_t size = frame_size + key.length + value.length;
    advance(store, size);
    return static_cast<int32_t>(size);
}

// Moves a walk's position to where its next record lies; false at the end of the walk. The oldest
// position may rest on the free tail, just behind the last old record that was erased: what there
// is then begins at the block's start.
bool settle(const DTInfo *store, uint32_t *pos) {
    const bool starts = *pos == DTINFO_FIRST;
    if (starts) *pos = store->use_addr;
    if (!starts && *pos >= store->free_addr) {
        const bool behind_newest = *pos == store->free_addr || *pos < store->use_addr;
        if (!is_wrapped(store) || behind_newest) return false;
    }
    if (*pos >= block_size(store) || block(store)[*pos] == free_byte) {
        *pos = 0;
        return store->use_addr != 0;
    }
    return starts || *pos != store->use_addr;
}

// Compares bytes, not keys: a filter longer than the key goes on behind it.
bool key_begins_with(const DTInfo *store, const uint8_t *key, Bytes filter) {
    if (filter.length == 0) return true;
    const size_t rest = static_cast<size_t>(block(store) + block_size(store) - key);
    return filter.length <= rest && *key == *static_cast<const uint8_t *>(filter.data) &&
           memcmp(key, filter.data, filter.length) == 0;
}

[[gnu::always_inline]] inline bool next_record(const DTInfo *store, Bytes filter, uint32_t *pos,
                                               Record *record) {
    while (settle(store, pos) && read_record(store, *pos, record)) {
        *pos += record->size();
        if (key_begins_with(store, record->key, filter)) return true;
    }
    return false;
}

bool is_readable(const DTInfo *store) { return store && store->memory && !is_empty(store); }

uint32_t text_length(const void *text) {
    return static_cast<uint32_t>(strnlen(static_cast<const char *>(text), UINT32_MAX));
}

} // namespace

static_assert(sizeof(void *) != 4 || sizeof(DTInfo) == 276, "as laid out on the device");

DTInfo *DTInfo_New(uint32_t max_size) {
    DTInfo *store = static_cast<DTInfo *>(DTMem_LocalMalloc(sizeof(DTInfo)));
    if (!store) return nullptr;
    memset(store, 0, sizeof *store);
    if (DTInfo_ReSize(store, max_size)) return store;
    DTMem_LocalFree(store);
    return nullptr;
}

int DTInfo_ReSize(DTInfo *store, uint32_t max_size) {
    if (!store) return 0;
    max_size = rounded_up(max_size);
    if (store->memory && max_size == store->max_size) return 1;
    if (store->memory && max_size != 0 && max_size <= block_size(store)) {
        DTMem_Release(store->memory);
        store->memory = nullptr;
        store->free_size = 0;
    }
    if (!store->memory) store->memory = DTMem_New(block_unit, 0);
    if (!store->memory) return 0;
    store->max_size = max_size;
    DTInfo_Clear(store);
    return 1;
}

void DTInfo_Clear(DTInfo *store) {
    if (!store || !store->memory) return;
    store->free_size = block_size(store);
    DTMem_memset(store->memory, 0, free_byte, block_size(store));
    store->use_addr = 0;
    store->free_addr = 0;
}

void DTInfo_Release(DTInfo *store) {
    if (!store) return;
    DTMem_Release(store->memory);
    DTMem_LocalFree(store);
}

void DTInfo_Ignore(DTInfo *store, uint32_t value) {
    if (store) store->ignore = value;
}

void DTInfo_SetFlag(DTInfo *store, uint32_t id, int32_t mode) {
    if (!store || id >= DTINFO_FLAGS) return;
    const uint8_t bit = static_cast<uint8_t>(1u << (id % 8));
    switch (mode) {
    case 1:
        store->flags[id / 8] |= bit;
        break;
    case 2:
        memset(store->flags, 0xFF, sizeof store->flags);
        break;
    case 3:
        memset(store->flags, 0, sizeof store->flags);
        break;
    default:
        store->flags[id / 8] &= static_cast<uint8_t>(~bit);
    }
}

int DTInfo_GetFlag(const DTInfo *store, uint32_t id) {
    if (id >= DTINFO_FLAGS) return 1;
    return store ? store->flags[id / 8] >> (id % 8) & 1 : 0;
}

int32_t DTInfo_Append(DTInfo *store, const void *key, uint8_t key_len, const void *value,
                      uint16_t value_len) {
    if (!store) return -1;
    return store->ignore ? 0 : append(store, {key, key_len}, {value, value_len});
}

int32_t DTInfo_Append2Message(DTInfo *store, const void *key, uint8_t key_len, const void *part1,
                              uint16_t len1, const void *part2, uint16_t len2) {
    if (!store) return 0;
    if (store->ignore) return 1;
    const Bytes first = {part1, len1}, second = {part2, len2};
    if (!first.usable() || !second.usable()) return 0;
    const uint32_t length = first.length + second.length;
    uint8_t *to = begin_record(store, {key, key_len}, length, length);
    if (!to) return 0;
    put(to, first);
    put(to + len1, second);
    advance(store, frame_size + key_len + length);
    return 1;
}

int32_t DTInfo_Write(DTInfo *store, const char *key, const char *value) {
    if (!store || !key || !value) return -1;
    if (store->ignore) return 0;
    return append(store, {key, text_length(key)}, {value, static_cast<uint16_t>(strlen(value))});
}

int32_t DTInfo_PackPre(DTInfo *store, const void *key, uint32_t key_len, uint32_t value_len) {
    if (!store || store->ignore) return 0;
    const Bytes name = {key, key_len == 0 && key ? text_length(key) : key_len};
    if (!begin_record(store, name, static_cast<uint16_t>(value_len), 0)) return 0;
    advance(store, frame_size + name.length);
    return 1;
}

int DTInfo_Get(DTInfo *store, const void *key, uint8_t key_len, uint32_t *pos,
               const uint8_t **rec_key, uint8_t *rec_key_len, const uint8_t **value,
               uint16_t *value_len) {
    if (!is_readable(store) || !pos) return 0;
    const uint32_t whole = key && key_len == 0 ? text_length(key) : key_len;
    Record record;
    if (!next_record(store, {key, key ? whole : 0}, pos, &record)) return 0;
    if (rec_key) *rec_key = record.key;
    if (rec_key_len) *rec_key_len = record.key_len;
    if (value) *value = record.value;
    if (value_len) *value_len = record.value_len;
    return 1;
}

int DTInfo_GetPack(DTInfo *store, uint32_t *pos, char *format_out, const uint8_t **value) {
    Record record;
    if (!is_readable(store) || !pos || !format_out) return 0;
    if (!next_record(store, {nullptr, 0}, pos, &record)) return 0;
    format_out[0] = '*';
    memcpy(format_out + 1, record.key, record.key_len);
    format_out[1 + record.key_len] = '\0';
    if (value) *value = record.value;
    return 1;
}

void DTInfo_SetTrace(int on) { l_trace = on != 0; }

void DTLogger_Dump(const DTInfo *store) {
    if (!store) return;
    const auto address = [](const void *at) {
        return static_cast<unsigned>(reinterpret_cast<uintptr_t>(at));
    };
    printf("logger info addr: 0x%x\n", address(store));
    printf("memory addr: 0x%x\n", address(store->memory));
    printf("memory size: %d\n", static_cast<int>(store->memory ? block_size(store) : 0));
    printf("free addr:   %d\n", static_cast<int>(store->free_addr));
    printf("use  addr:   %d\n", static_cast<int>(store->use_addr));
    printf("maxsize: %d\n", static_cast<int>(store->max_size));
    printf("freesize: %d\n", static_cast<int>(store->free_size));
}
