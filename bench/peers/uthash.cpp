// A hash table that is linked into its entries, with the same cheap hash.
#include "bench/bench.h"
#include "bench/hash.h"

#define HASH_FUNCTION(key, length, hash) ((hash) = bench::cheap_hash(key))
#include <uthash.h>

namespace {

using namespace bench;

template <size_t N> class Table {
public:
    explicit Table(const std::vector<Key<N>> &keys) : entries_(keys.size()) {
        for (size_t i = 0; i < keys.size(); ++i) {
            Entry *entry = &entries_[i];
            entry->key = keys[i];
            entry->value = i;
            HASH_ADD(hh, head_, key, N, entry);
        }
    }
    Table(const Table &) = delete;
    ~Table() { HASH_CLEAR(hh, head_); }

    uint64_t get(const Key<N> &key) const {
        Entry *found;
        HASH_FIND(hh, head_, key.data(), N, found);
        return found ? found->value : 0;
    }

private:
    struct Entry {
        Key<N> key;
        uint64_t value;
        UT_hash_handle hh;
    };
    std::vector<Entry> entries_;
    Entry *head_ = nullptr;
};

const Family uthash([] {
    contend<Get<4, Table<4>>>(with_size(cheap_get, 4), "uthash");
    contend<Get<16, Table<16>>>(with_size(cheap_get, 16), "uthash");
    contend<Get<40, Table<40>>>(with_size(cheap_get, 40), "uthash");
});

} // namespace
