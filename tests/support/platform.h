// A platform layer for tests: the program's own five functions, which the library uses instead of
// its defaults. Console calls are kept, allocations can be made to fail.
#pragma once

#include <stdint.h>
#include <string>
#include <vector>

struct Platform {
    std::vector<std::string> prints; // one entry a console call
    std::vector<uint32_t> delays;
    unsigned allocations = 0;  // asked for so far
    unsigned refused = 0;      // of these
    unsigned blocks = 0;       // not given back yet
    void (*freeing)() = [] {}; // called before a block is taken back
    std::string format;        // the last that TMB_snprintf was given

    std::string console() const; // all prints, joined
    std::string take_console();  // the same, and forgets them
    // The nth allocation from now on is the first, or the only one, to fail.
    void fail_allocations_from(unsigned nth) { fail(nth, UINT32_MAX - allocations - nth); }
    void fail_only(unsigned nth) { fail(nth, 1); }
    void allocations_work() { fail(0, 0); }
    bool fails() const { return allocations - fail_from < fail_count; }

private:
    void fail(unsigned nth, unsigned count) {
        fail_from = allocations + nth;
        fail_count = count;
    }

    unsigned fail_from = 0;
    unsigned fail_count = 0;
};

extern Platform platform;

// Bytes outstanding for an owner id, by the library's own accounting.
uint32_t outstanding(int id);
