// Counts the instructions of libdt's contenders: run it under valgrind --tool=callgrind with
// --instr-atstart=no. Each kind of work gets a dump of its own, of a number of calls; the first
// dump is that of calls that do nothing.
#include "bench/bench.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

namespace {

using bench::Contender;

constexpr uint64_t calls = 100;

// Large tables and files take valgrind minutes and show nothing that the small ones do not.
bool is_small(const std::string &work) {
    for (const char *large :
         {"10000 x 10", "1000 x 10", "large to small", "fault log file", "collection message"})
        if (work.find(large) != std::string::npos) return false;
    return true;
}

struct Nothing {
    void operator()() { asm volatile("" : : : "memory"); }
    std::string kept() { return ""; }
};

void call(Contender &contender) {
    contender.prepare();
    CALLGRIND_TOGGLE_COLLECT;
    contender.repeat(1);
    CALLGRIND_TOGGLE_COLLECT;
}

void count(const std::string &work, Contender &contender) {
    contender.begin();
    CALLGRIND_START_INSTRUMENTATION;
    call(contender);
    CALLGRIND_ZERO_STATS;
    for (uint64_t i = 0; i < calls; ++i) call(contender);
    CALLGRIND_DUMP_STATS_AT(work.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
    fprintf(stderr, "%zu %s\n", contender.operations() * calls, work.c_str());
}

} // namespace

int main() {
    if (!freopen("/dev/null", "w", stdout)) return 1;
    unsetenv("TZ");
    bench::Holder<Nothing> nothing;
    count("nothing", nothing);
    for (const bench::Entry &entry : bench::entries())
        if (entry.who == bench::libdt && is_small(entry.work)) count(entry.work, *entry.make());
}
