// Getting values from a hash table, whichever it is.
#pragma once

#include "bench/bench.h"
#include "bench/inputs.h"

namespace bench {

inline const char *const default_get = "hash get, default hash";
inline const char *const cheap_get = "hash get, cheap hash";

// The keys in an order that no cache foresees.
class Order {
public:
    size_t next() { return at_ = (at_ + 387) % hash_entries; }
    void restart() { at_ = 0; }

private:
    size_t at_ = 0;
};

template <size_t N, class Table> class Get {
public:
    void operator()() { sum_ += table_.get(keys_[order_.next()]); }

    std::string kept() {
        order_.restart();
        sum_ = 0;
        for (size_t i = 0; i < hash_entries; ++i) (*this)();
        return std::to_string(sum_);
    }

protected:
    std::vector<Key<N>> keys_ = hash_keys<N>();
    Table table_{keys_};
    Order order_;
    uint64_t sum_ = 0;
};

} // namespace bench
