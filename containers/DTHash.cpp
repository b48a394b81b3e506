#include "containers/DTHash.h"

#include "base/bytes.h"
#include "base/nodes.h"
#include "base/owner.h"
#include "containers/DTMD5.h"
#include "foundation/DTMem.h"
#include "foundation/DTPrint.h"
#include "foundation/DTString.h"
#include "platform/vrk.h"
#include "records/DTBuffer.h"

#include <string.h>

namespace {

// Where a key stands in its bucket; no entry when it is absent.
struct Found {
    uint8_t *entry;
    int32_t position;
};

uint8_t *entry_at(uintptr_t value) { return reinterpret_cast<uint8_t *>(value); }

// The default hash has reduced its result already: a second division would cost more than the test.
DTList **bucket_of(const DTHash *table, const void *key) {
    const uint32_t hash = table->hash(key, table->key_size, table->bucket_count);
    return &table->buckets[hash < table->bucket_count ? hash : hash % table->bucket_count];
}

Found find_key(const DTHash *table, const DTList *bucket, const void *key) {
    Found found = {nullptr, 0};
    for (const uintptr_t value : dt::nodes(bucket)) {
        found.entry = entry_at(value);
        if (memcmp(found.entry, key, table->key_size) == 0) return found;
        ++found.position;
    }
    return {nullptr, -1};
}

DTList *used_bucket(const DTHash *table, DTList **bucket) {
    if (!*bucket)
        *bucket = DTList_New(0, table->is_static ? nullptr : dt::release_value<DTMem_LocalFree>);
    return *bucket;
}

uint8_t *new_entry(const DTHash *table, const void *key, const void *value) {
    const uint32_t size = table->key_size + table->value_size;
    void *entry = table->is_static ? DTMem_LocalMalloc_Static(size) : DTMem_LocalMalloc(size);
    if (entry) dt::ByteWriter(entry).put(key, table->key_size).put(value, table->value_size);
    return static_cast<uint8_t *>(entry);
}

// An entry from the pool that gets no place in its bucket is lost: the pool takes nothing back.
int add_entry(const DTHash *table, DTList *bucket, const void *key, const void *value) {
    uint8_t *entry = bucket ? new_entry(table, key, value) : nullptr;
    if (!entry) return 0;
    if (DTList_Push(bucket, reinterpret_cast<uintptr_t>(entry))) return 1;
    if (!table->is_static) DTMem_LocalFree(entry);
    return 0;
}

void show_bytes(const void *bytes, uint32_t count) {
    char format[100];
    TMB_snprintf(format, sizeof format, "*%dS", static_cast<int>(count));
    DTBuffer_UNPack(format, bytes);
}

// A match that nothing meets: the search goes on over all entries.
int show_entry(const void *key, void *value, void *table) {
    const DTHash *shown = static_cast<const DTHash *>(table);
    DTPrint_Show("key=>\n", 0);
    show_bytes(key, shown->key_size);
    DTPrint_Show("result=>\n", 0);
    show_bytes(value, shown->value_size);
    DTPrint_Show("-----------------------------------------\n", 0);
    return 1;
}

} // namespace

static_assert(sizeof(void *) != 4 || sizeof(DTHash) == 24, "six words on the device");

DTHash *DTHash_NewEx(uint32_t key_size, uint32_t value_size, uint32_t bucket_count,
                     DTHashFunction hash, uint32_t is_static) {
    constexpr uint32_t most_buckets = UINT32_MAX / sizeof(DTList *);
    const bool too_large = value_size > UINT32_MAX - key_size || bucket_count > most_buckets;
    if (bucket_count == 0 || too_large) return nullptr;
    const uint32_t array_size = bucket_count * static_cast<uint32_t>(sizeof(DTList *));
    dt::Owner<void, DTMem_LocalFree> memory(DTMem_LocalMalloc(sizeof(DTHash)));
    void *buckets = memory ? DTMem_LocalMalloc(array_size) : nullptr;
    if (!buckets) return nullptr;
    memset(buckets, 0, array_size);
    DTHash *table = static_cast<DTHash *>(memory.take());
    *table = {static_cast<DTList **>(buckets),
              bucket_count,
              hash ? hash : DTMD5_Hash,
              key_size,
              value_size,
              is_static};
    return table;
}

DTHash *DTHash_New(uint32_t key_size, uint32_t value_size, uint32_t bucket_count,
                   DTHashFunction hash) {
    return DTHash_NewEx(key_size, value_size, bucket_count, hash, 0);
}

int DTHash_Set(DTHash *table, const void *key, const void *value) {
    if (!table || !key || (!value && table->value_size != 0)) return 0;
    DTList **bucket = bucket_of(table, key);
    uint8_t *entry = find_key(table, *bucket, key).entry;
    if (!entry) return add_entry(table, used_bucket(table, bucket), key, value);
    if (value) memmove(entry + table->key_size, value, table->value_size);
    return 1;
}

int DTHash_Get(const DTHash *table, const void *key, void **result) {
    if (!table) return 0;
    uint8_t *entry = key ? find_key(table, *bucket_of(table, key), key).entry : nullptr;
    if (result) *result = entry ? entry + table->key_size : nullptr;
    return entry != nullptr;
}

void *DTHash_Find(const DTHash *table, DTHashMatch match, void *argument) {
    for (uint32_t i = 0; table && match && i < table->bucket_count; ++i) {
        for (const uintptr_t value : dt::nodes(table->buckets[i])) {
            uint8_t *entry = entry_at(value);
            if (match(entry, entry + table->key_size, argument) == 0) return entry;
        }
    }
    return nullptr;
}

void DTHash_Delete(DTHash *table, const void *key) {
    if (!table || !key) return;
    DTList *bucket = *bucket_of(table, key);
    DTMem_LocalFree(entry_at(DTList_Remove(bucket, find_key(table, bucket, key).position)));
}

void DTHash_Release(DTHash *table) {
    if (!table || table->is_static) return;
    for (uint32_t i = 0; i < table->bucket_count; ++i) DTList_Release(table->buckets[i]);
    DTMem_LocalFree(table->buckets);
    DTMem_LocalFree(table);
}

void DTHash_Show(DTHash *table) { DTHash_Find(table, show_entry, table); }

void DTHash_ShowDepth(const DTHash *table) {
    for (uint32_t i = 0; table && i < table->bucket_count; ++i) {
        const DTList *bucket = table->buckets[i];
        if (!bucket) continue;
        DTPrint_Show(DTString_SFormat("pos=%d,length=%d\n", static_cast<int>(i),
                                      static_cast<int>(DTList_Length(bucket))),
                     0);
    }
}
