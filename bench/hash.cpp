// Looking a key up that is there.
#include "bench/hash.h"

#include <dt/containers.h>
#include <unordered_map>

namespace {

using namespace bench;

uint32_t cheap(const void *key, uint32_t, uint32_t) { return cheap_hash(key); }

template <size_t N, DTHashFunction hash> class DtTable {
public:
    explicit DtTable(const std::vector<Key<N>> &keys)
        : table_(DTHash_New(N, sizeof(uint64_t), hash_buckets, hash)) {
        for (uint64_t i = 0; i < keys.size(); ++i) DTHash_Set(table_, keys[i].data(), &i);
    }
    DtTable(const DtTable &) = delete;
    ~DtTable() { DTHash_Release(table_); }

    uint64_t get(const Key<N> &key) const {
        void *value;
        uint64_t found = 0;
        if (DTHash_Get(table_, key.data(), &value)) memcpy(&found, value, sizeof found);
        return found;
    }

private:
    DTHash *table_;
};

template <size_t N> class StdTable {
public:
    explicit StdTable(const std::vector<Key<N>> &keys) : table_(hash_buckets) {
        for (uint64_t i = 0; i < keys.size(); ++i) table_[keys[i]] = i;
    }
    uint64_t get(const Key<N> &key) const {
        const auto found = table_.find(key);
        return found == table_.end() ? 0 : found->second;
    }

private:
    struct Hash {
        size_t operator()(const Key<N> &key) const { return cheap_hash(key.data()); }
    };
    std::unordered_map<Key<N>, uint64_t, Hash> table_;
};

// The 40 steps of the default hash: one waits for the other, whatever the input is.
template <size_t N> class MixingSteps {
public:
    explicit MixingSteps(const std::vector<Key<N>> &keys) : keys_(keys) {}

    uint64_t get(const Key<N> &key) const {
        uint32_t word;
        memcpy(&word, key.data(), sizeof word);
        use(mixed(word));
        return static_cast<uint64_t>(&key - keys_.data());
    }

private:
    static uint32_t function(uint32_t round, uint32_t x, uint32_t y, uint32_t z) {
        switch (round) {
        case 0:
            return z ^ (x & (y ^ z));
        case 1:
            return (x & z) + (y & ~z);
        case 2:
            return x ^ y ^ z;
        default:
            return y ^ (x | ~z);
        }
    }

    static uint32_t mixed(uint32_t word) {
        uint32_t r[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
#pragma GCC unroll 40
        for (uint32_t step = 0; step < 40; ++step) {
            uint32_t &target = r[(40 - step) % 4];
            const uint32_t before = r[(41 - step) % 4];
            const uint32_t mix =
                function(step / 10, before, r[(42 - step) % 4], r[(43 - step) % 4]);
            const uint32_t sum = target + mix + word + 0x9e3779b9 * step;
            const uint32_t by = 5 + step % 4 * 5;
            target = before + (sum << by | sum >> (32 - by));
        }
        return r[0] + r[1] + r[2] + r[3];
    }

    const std::vector<Key<N>> &keys_;
};

template <size_t N> void add() {
    const std::string by_default = with_size(default_get, N);
    contend<Get<N, MixingSteps<N>>>(by_default, limit);
    contend<Get<N, DtTable<N, nullptr>>>(by_default, libdt);
    const std::string by_cheap = with_size(cheap_get, N);
    contend<Get<N, DtTable<N, cheap>>>(by_cheap, libdt);
    contend<Get<N, StdTable<N>>>(by_cheap, "unordered_map");
}

const Family hash([] {
    add<4>();
    add<16>();
    add<40>();
});

} // namespace
