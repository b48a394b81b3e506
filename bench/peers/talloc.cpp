// Blocks that are charged to a context.
#include "bench/bench.h"

#include <talloc.h>

namespace {

class Talloc {
public:
    Talloc() : context_(talloc_named_const(nullptr, 0, "bench")) {}
    Talloc(const Talloc &) = delete;
    ~Talloc() { talloc_free(context_); }

    void operator()() {
        void *block = talloc_size(context_, 64);
        bench::use(block);
        talloc_free(block);
    }
    std::string kept() { return ""; }

private:
    void *context_;
};

const bench::Family family([] { bench::contend<Talloc>("tracked allocation", "talloc"); });

} // namespace
