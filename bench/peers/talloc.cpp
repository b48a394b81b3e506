// Blocks that are charged to a context.
#include "bench/bench.h"

#include <string.h>
#include <talloc.h>

namespace {

class Talloc {
public:
    Talloc() : context_(talloc_named_const(nullptr, 0, "bench")) {}
    Talloc(const Talloc &) = delete;
    ~Talloc() { talloc_free(context_); }

    void operator()() {
        void *block = talloc_size(context_, block_size);
        bench::use(block);
        talloc_free(block);
    }
    std::string kept() {
        char *block = static_cast<char *>(talloc_size(context_, block_size));
        memset(block, 'x', block_size);
        const std::string content(block, block_size);
        talloc_free(block);
        return content;
    }

private:
    static constexpr size_t block_size = 64;

    void *context_;
};

const bench::Family family([] { bench::contend<Talloc>("tracked allocation", "talloc"); });

} // namespace
