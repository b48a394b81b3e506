// Calls libdt's contenders for callgrind to count, a dump for each kind of work: its name says how
// many operations it is of. The first dump is of calls that do nothing. bench/instructions.py runs
// it.
#include "bench/bench.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>
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
    const std::string name = std::to_string(calls * contender.operations()) + " " + work;
    contender.begin();
    CALLGRIND_START_INSTRUMENTATION;
    call(contender);
    CALLGRIND_ZERO_STATS;
    for (uint64_t i = 0; i < calls; ++i) call(contender);
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
}

} // namespace

// A clock that stands still: a second that ends while a call runs would count as that call's work.
extern "C" time_t time(time_t *out) {
    if (out) *out = 1700000000;
    return 1700000000;
}

int main() {
    if (!freopen("/dev/null", "w", stdout)) return 1;
    setenv("TZ", "UTC0", 1); // the same work whatever the system's time zone
    bench::Holder<Nothing> nothing;
    count("nothing", nothing);
    for (const bench::Entry &entry : bench::entries())
        if (entry.who == bench::libdt && is_small(entry.work)) count(entry.work, *entry.make());
}
