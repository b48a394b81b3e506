// Tracked blocks and pieces of the static pool.
#include "bench/bench.h"

#include <dt/foundation.h>
#include <stdlib.h>

namespace {

using bench::use;

constexpr uint32_t block_size = 64;
constexpr uint32_t piece_size = 16;
constexpr size_t pieces = 10000; // of a call

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
class MallocPieces {
public:
    void prepare() {
        for (void *piece : pieces_) free(piece);
        pieces_.clear();
        pieces_.reserve(pieces);
    }
    void operator()() {
        for (size_t i = 0; i < pieces; ++i) pieces_.push_back(malloc(piece_size));
    }
    std::string kept() {
        prepare();
        (*this)();
        return std::to_string(pieces_.size());
    }
    size_t operations() const { return pieces; }

private:
    std::vector<void *> pieces_;
};

class DtPieces {
public:
    void prepare() {
        pieces_.clear();
        pieces_.reserve(pieces);
    }
    void operator()() {
        for (size_t i = 0; i < pieces; ++i) pieces_.push_back(DTMem_Malloc_Static(7, piece_size));
    }
    std::string kept() {
        prepare();
        (*this)();
        return std::to_string(pieces_.size());
    }
    size_t operations() const { return pieces; }

private:
    std::vector<void *> pieces_;
};

const bench::Family memory([] {
    bench::contend<DtMalloc>("tracked allocation", bench::libdt);
    bench::contend<Malloc>("tracked allocation", "malloc");
    bench::contend<DtPieces>("pool piece", bench::libdt);
    bench::contend<MallocPieces>("pool piece", "malloc");
});

} // namespace
