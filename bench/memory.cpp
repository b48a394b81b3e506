// Tracked blocks and pieces of the static pool.
#include "bench/bench.h"

#include <dt/foundation.h>
#include <stdlib.h>

#include <algorithm>
#include <utility>

namespace {

using bench::use;

constexpr uint32_t block_size = 64;
constexpr uint32_t piece_size = 16;

struct Malloc {
    void operator()() {
        void *block = malloc(block_size);
        use(block);
        free(block);
    }
    std::string kept() { return ""; }
};

struct DtMalloc {
    void operator()() {
        void *block = DTMem_Malloc(7, block_size);
        use(block);
        DTMem_Free(7, block);
    }
    std::string kept() { return ""; }
};

// What malloc gave is freed outside the time: pieces of the pool are never given back.
template <void *(&get)(), void (&give_back)(void *)> class Pieces {
public:
    void prepare() {
        for (void *&piece : pieces_) give_back(std::exchange(piece, nullptr));
    }
    void operator()() {
        for (void *&piece : pieces_) piece = get();
    }
    std::string kept() {
        prepare();
        (*this)();
        return std::to_string(std::count(pieces_, pieces_ + count, nullptr));
    }
    size_t operations() const { return count; }

private:
    static constexpr size_t count = 1000; // of a call
    void *pieces_[count] = {};
};

void *by_malloc() { return malloc(piece_size); }
void *from_pool() { return DTMem_Malloc_Static(7, piece_size); }
void nowhere(void *) {}

const bench::Family memory([] {
    bench::contend<DtMalloc>("tracked allocation", bench::libdt);
    bench::contend<Malloc>("tracked allocation", "malloc");
    bench::contend<Pieces<from_pool, nowhere>>("pool piece", bench::libdt);
    bench::contend<Pieces<by_malloc, free>>("pool piece", "malloc");
});

} // namespace
