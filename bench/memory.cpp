// Tracked blocks and pieces of the static pool.
#include "bench/bench.h"

#include <dt/foundation.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <utility>

namespace {

using bench::use;

constexpr uint32_t owner = 7;
constexpr uint32_t block_size = 64;
constexpr uint32_t piece_size = 16;

struct Malloc {
    static void *take() { return malloc(block_size); }
    static void give(void *block) { free(block); }
};

struct DtMalloc {
    static void *take() { return DTMem_Malloc(owner, block_size); }
    static void give(void *block) { DTMem_Free(owner, block); }
};

template <class Memory> class Block {
public:
    void operator()() {
        void *block = Memory::take();
        use(block);
        Memory::give(block);
    }
    std::string kept() {
        char *block = static_cast<char *>(Memory::take());
        memset(block, 'x', block_size);
        const std::string content(block, block_size);
        Memory::give(block);
        return content;
    }
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
void *from_pool() { return DTMem_Malloc_Static(owner, piece_size); }
void nowhere(void *) {}

const bench::Family memory([] {
    bench::contend<Block<DtMalloc>>("tracked allocation", bench::libdt);
    bench::contend<Block<Malloc>>("tracked allocation", "malloc");
    bench::contend<Pieces<from_pool, nowhere>>("pool piece", bench::libdt);
    bench::contend<Pieces<by_malloc, free>>("pool piece", "malloc");
});

} // namespace
